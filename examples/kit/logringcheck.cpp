// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/exception.h>
#include <kez/logger.h>
#include <kez/service/logringcheck.h>

#include <QDir>
#include <QFile>

#include <cstdio>

using namespace KezService;

void write(const QString& name, const QByteArray& bytes)
{
    QFile file(name);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        throw Exception(name + ": " + file.errorString());
}

int main()
try {
    // Somebody has deleted app-1.log, a rotation has failed there, and the power has failed.
    write("app-0.log", "monday\n");
    write("app-2.log", "tuesday\n");
    write("app-3.log", "wednesday\nthursd");
    write("app-4294967293.log", "elsewhere\n");

    const RingReport report = checkLogRing("./app", 5);
    Logger logger("./app", 100000, 5, 7, LoggerLevel::info);
    logger.disableTee();
    report.logTo(logger); // the operators read what was done, and why
    logger.info("friday");
    logger.closeDuplicatedHandle();

    std::printf("%d texts, %s\n", int(report.texts.size()),
                report.isRingSound ? "sound" : "faulty");
    for (const QString& name : QDir().entryList(QDir::Files, QDir::Name)) {
        QFile file(name);
        if (!file.open(QIODevice::ReadOnly))
            throw Exception(name + ": " + file.errorString());
        std::printf("%s: %s", qPrintable(name), file.readLine().constData());
    }
    return 0;
} catch (const Exception& failure) {
    std::fprintf(stderr, "%s\n", qPrintable(failure.detail()));
    return 1;
}
