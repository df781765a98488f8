// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Hands complete files on from a directory into which others write to that of a queue.
//
//     gate [--marker] INCOMING DIRECTORY
//
// With --marker, "x.xml" is complete when there is a file "x.xml.done"; otherwise when it has been
// quiet for two seconds and nobody writes it. The log is the standard error. Ends with SIGTERM or
// SIGINT. Exit codes: 0 after a clean stop; 1 if the gate cannot begin; 2 for a wrong command line.

#include <kez/exception.h>
#include <kez/service/arrivalgate.h>

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTextStream>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>

#include <sys/signalfd.h>

using namespace Qt::StringLiterals;
using KezService::ArrivalGate;

namespace {

constexpr int UsageFault = 2;

/// A descriptor that is readable when somebody asks the process to stop. The signals stay blocked:
/// no code runs in a signal handler.
int stopSignals()
{
    sigset_t stopping;
    sigemptyset(&stopping);
    sigaddset(&stopping, SIGTERM);
    sigaddset(&stopping, SIGINT);
    sigprocmask(SIG_BLOCK, &stopping, nullptr);
    const int descriptor = signalfd(-1, &stopping, SFD_CLOEXEC);
    if (descriptor < 0)
        throw std::system_error(errno, std::generic_category(), "signalfd");
    return descriptor;
}

int run(const ArrivalGate::Settings& settings)
{
    QSocketNotifier stop(stopSignals(), QSocketNotifier::Read);
    ArrivalGate gate(settings);
    QObject::connect(&stop, &QSocketNotifier::activated, &gate, [&] {
        stop.setEnabled(false);
        gate.stop();
        QCoreApplication::quit();
    });
    gate.start();
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    QStringList arguments = QCoreApplication::arguments().mid(1);
    ArrivalGate::Settings settings;
    if (arguments.value(0) == u"--marker"_s) {
        settings.completeness = ArrivalGate::Completeness::Marker;
        arguments.removeFirst();
    }
    if (arguments.size() != 2 || arguments.first().startsWith(u'-')) {
        QTextStream(stderr) << "usage: gate [--marker] INCOMING DIRECTORY" << Qt::endl;
        return UsageFault;
    }
    settings.incoming = arguments.at(0);
    settings.queueDirectory = arguments.at(1);
    try {
        return run(settings);
    } catch (const Exception& failure) {
        QTextStream(stderr) << failure.detail() << Qt::endl;
    } catch (const std::system_error& failure) {
        QTextStream(stderr) << failure.what() << Qt::endl;
    }
    return EXIT_FAILURE;
}
