// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// The program of the README.
#include <kez/kez.h>

#include <QCoreApplication>
#include <QDebug>
#include <QSocketNotifier>

#include <csignal>
#include <sys/signalfd.h>

// A descriptor that becomes readable when somebody asks the process to stop.
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

void logEach(const QString& text, const QStringList& names)
{
    for (const QString& name : names)
        Log::getInstance()->info(text + name);
}

int main(int argc, char* argv[])
try {
    QCoreApplication application(argc, argv); // prepares the library, too

    // Comes first: threads that are started later inherit the blocked signals.
    QSocketNotifier stop(stopSignals(), QSocketNotifier::Read);
    QObject::connect(&stop, &QSocketNotifier::activated, &application, &QCoreApplication::quit);

    const auto config = Config::load("service.properties", "1.0");
    config->setLogger(Config::buildFileSystemLogger(*config->properties()));
    Log::initInstance(*config->logger());
    config->logBanner("Service %1", config->value("app.version"), true, Kez::defaultCopyright());

    ConsumerAncestor reader("reader"); // reports nothing, so the queue deletes nothing
    FilesQueue queue(config->value("queue.path"), {{reader.id(), &reader}}, true, 1000);
    QObject::connect(&queue, &FilesQueue::filesNotConsumed,
                     [](const QStringList& names) { logEach("waiting: ", names); });
    QObject::connect(&queue, &FilesQueue::queueUpdated,
                     [](const QStringList& names) { logEach("arrived: ", names); });
    queue.onProcess();
    queue.onRequestForFiles(reader.id());

    const int status = application.exec();
    Log::getInstance()->info("stopped");
    return status;
} catch (const Exception& e) {
    qCritical().noquote() << e.detail(); // what failed, where and why
    return 1;
}
