// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/configuration.h>
#include <kez/exception.h>
#include <kez/log.h>
#include <kez/service/exitcodes.h>
#include <kez/service/serviceapplication.h>
#include <kez/service/servicelog.h>
#include <kez/service/servicenotifier.h>
#include <kez/service/unixsignals.h>

#include <QTimer>

#include <csignal>
#include <cstdio>

using namespace KezService;

// Stands for a service's work: the second ticket fails, and after the third one somebody stops it.
void sellTicket(int number, QTimer& till)
{
    if (number == 2)
        throw Exception("the printer is out of paper"); // is logged, and the service goes on
    if (number == 3) {
        till.stop();
        std::raise(SIGTERM);
    }
}

int main(int argc, char* argv[])
try {
    ServiceApplication application(argc, argv);
    UnixSignals received;     // keeps the signals that come from now on
    ServiceNotifier notifier; // reads the environment before any thread is started

    const QMap<QString, QString> settings{{"log.filename", "./till"}, {"log.filter", "info"}};
    const auto config = Config::load(Properties(settings), "1.0"); // or from a file
    openLog(*config);

    int sold = 0;
    QTimer till;
    till.callOnTimeout([&] { sellTicket(++sold, till); });
    QObject::connect(&received, &UnixSignals::stopRequested, [&](const QString& name) {
        notifier.stopping("closes the till");
        Log::getInstance()->info("stopped by " + name);
        QCoreApplication::exit(ExitClean);
    });
    till.start(1);
    received.listen();
    notifier.ready("sells tickets");
    notifier.startWatchdog();
    const int code = QCoreApplication::exec();
    std::printf("%d tickets, %d failed\n", sold, application.escapedCount());
    return code;
} catch (const Exception& failure) {
    std::fprintf(stderr, "%s\n", qPrintable(failure.detail())); // what, where and why
    return ExitUnavailable;
}
