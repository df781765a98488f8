// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// A service with one queue and one consumer, between the program of the README and examples/intake:
// it logs the number of lines of each file that it finds in the directory "queue.path". The queue
// then deletes the file.
//
//     consumer service.properties

#include "fileconsumer.h"

#include <kez/kez.h>

#include <QCoreApplication>
#include <QDebug>
#include <QSocketNotifier>

#include <csignal>
#include <sys/signalfd.h>

namespace {

// As in the README: readable when somebody asks the process to stop.
int stopSignals()
{
    sigset_t stopping;
    sigemptyset(&stopping);
    sigaddset(&stopping, SIGTERM);
    sigaddset(&stopping, SIGINT);
    const int descriptor = signalfd(-1, &stopping, SFD_CLOEXEC);
    if (descriptor < 0)
        throw Exception("no descriptor for the signals");
    sigprocmask(SIG_BLOCK, &stopping, nullptr);
    return descriptor;
}

void logLineCount(QFile& file)
{
    const QByteArray text = file.readAll();
    if (file.error() != QFile::NoError)
        throw Exception(file.fileName() + ": " + file.errorString());
    Log::getInstance()->info(
        QString("%1: %2 lines").arg(file.fileName(), QString::number(text.count('\n'))));
}

} // namespace

int main(int argc, char* argv[])
try {
    QCoreApplication application(argc, argv);
    QSocketNotifier stop(stopSignals(), QSocketNotifier::Read);
    QObject::connect(&stop, &QSocketNotifier::activated, &application, &QCoreApplication::quit);

    const auto config = Config::load(application.arguments().value(1), "1.0");
    config->setLogger(Config::buildFileSystemLogger(*config->properties()));
    Log::initInstance(*config->logger());

    FileConsumer consumer("lines", logLineCount);
    FilesQueue queue(config->value("queue.path"), {{consumer.id(), &consumer}}, true, 1000);
    queue.onProcess();
    consumer.consume(queue);

    const int status = application.exec();
    Log::getInstance()->info("stopped");
    return status;
} catch (const Exception& e) {
    qCritical().noquote() << e.detail();
    return 1;
}
