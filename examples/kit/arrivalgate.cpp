// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/service/arrivalgate.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTextStream>
#include <QTimer>

using namespace Qt::StringLiterals;
using KezService::ArrivalGate;

namespace {

/// What a producer does that knows nothing of queues: it writes bit by bit, under the final name.
void writeSlowly(QFile& file, int rest)
{
    file.write("a line of a scanned page\n");
    file.flush();
    if (rest == 0)
        file.close();
    else
        QTimer::singleShot(30, &file, [&file, rest] { writeSlowly(file, rest - 1); });
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    QTextStream out(stdout);
    QDir().mkdir(u"incoming"_s);
    QDir().mkdir(u"spool"_s);

    ArrivalGate::Settings settings;
    settings.incoming = u"incoming"_s;
    settings.queueDirectory = u"spool"_s;
    settings.quietPeriod = std::chrono::milliseconds(100); // 2 seconds are usual
    ArrivalGate gate(settings);
    QObject::connect(&gate, &ArrivalGate::handedOn, &application,
                     [&](const QString& name, const QString& nameInQueue) {
                         const qint64 size = QFile(u"spool/"_s + nameInQueue).size();
                         out << name << " is complete: " << size << " bytes\n";
                         QCoreApplication::quit();
                     });
    gate.start();

    QFile upload(u"incoming/video.part"_s); // a temporary name: nobody is done with it
    QFile scan(u"incoming/scan.txt"_s);
    if (!upload.open(QFile::WriteOnly) || !scan.open(QFile::WriteOnly))
        return 1;
    writeSlowly(scan, 9);
    QCoreApplication::exec();
    out << "left alone: " << QDir(u"incoming"_s).entryList(QDir::Files).join(u", "_s) << '\n';
    return 0;
}
