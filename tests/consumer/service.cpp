// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/service/filerunner.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <chrono>
#include <cstdio>

using namespace KezService;

/// Handles one order by a runner.
int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    const QTemporaryDir spool;
    QFile order(spool.filePath(QStringLiteral("order")));
    if (!order.open(QIODevice::WriteOnly))
        return EXIT_FAILURE;
    order.close();

    RunnerSettings settings;
    settings.spool = spool.path();
    FileRunner runner(settings);
    runner.addConsumer(QStringLiteral("printer"),
                       [](const FileAtHand&) { return Outcome::done(); });
    QObject::connect(&runner, &FileRunner::progressed, &application,
                     [](const RunnerProgress& progress) {
                         if (progress.files == 0)
                             QCoreApplication::quit();
                     });
    runner.start();
    application.exec();
    const bool isClean = runner.stop(std::chrono::seconds(10)).isClean() && !order.exists();
    std::puts(isClean ? "service: all is right" : "service: the order is still there");
    return isClean ? EXIT_SUCCESS : EXIT_FAILURE;
}
