// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// The program of the README.
#include <kez/kez.h>

#include <QCoreApplication>
#include <QDebug>

int main(int argc, char* argv[])
try {
    QCoreApplication application(argc, argv); // prepares the library, too
    const auto config = Config::load("service.properties", "1.0");

    config->setLogger(Config::buildFileSystemLogger(*config->properties()));
    Log::initInstance(*config->logger());
    config->logBanner("Service %1", config->value("app.version"), true, Kez::defaultCopyright());

    FilesQueue queue(config->value("queue.path"), {}, true, 1000);
    QObject::connect(&queue, &FilesQueue::queueUpdated, [](const QStringList& arrived) {
        for (const QString& name : arrived)
            Log::getInstance()->info("arrived: " + name);
    });
    queue.onProcess();
    return application.exec();
} catch (const Exception& e) {
    qCritical().noquote() << e.detail(); // what, where and why, in the operator's language
    return 1;
}
