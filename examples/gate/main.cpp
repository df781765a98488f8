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
#include <kez/service/exitcodes.h>
#include <kez/service/unixsignals.h>

#include <QCoreApplication>
#include <QTextStream>

using namespace Qt::StringLiterals;
using KezService::ArrivalGate;
using KezService::UnixSignals;

namespace {

int run(const ArrivalGate::Settings& settings)
{
    UnixSignals received;
    ArrivalGate gate(settings);
    QObject::connect(&received, &UnixSignals::stopRequested, &gate, [&gate] {
        gate.stop();
        QCoreApplication::exit(KezService::ExitClean);
    });
    gate.start();
    received.listen();
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
        return KezService::ExitUsage;
    }
    settings.incoming = arguments.at(0);
    settings.queueDirectory = arguments.at(1);
    try {
        return run(settings);
    } catch (const Exception& failure) {
        QTextStream(stderr) << failure.detail() << Qt::endl;
    }
    return KezService::ExitFailure;
}
