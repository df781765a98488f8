// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/allocations.h"
#include "support/language.h"
#include "support/libcfaults.h"
#include "support/logring.h"
#include "support/messagecapture.h"

#include <kez/log.h>
#include <kez/logger.h>

#include <QDateTime>
#include <QRandomGenerator>
#include <QTest>

namespace {

constexpr quint32 Century = 36500;
constexpr quint64 Large = 1 << 30;
constexpr qint64 Msec = 1000000;
constexpr qint64 Day = qint64(86400) * 1000 * Msec;
constexpr int HeadLength = 32; // "dd/MM/yyyy HH:mm:ss,zzz <LEVEL> "

using Level = LoggerLevel::LogLevel;

struct QuietLogger : Logger {
    explicit QuietLogger(const LogRing& ring, quint64 maxSize = Large, quint32 timeout = Century,
                         LogFormatter lineFormatter = nullptr)
        : Logger(ring.name(), maxSize, 5, timeout, LoggerLevel::debug, lineFormatter)
    {
        disableTee();
    }
    ~QuietLogger() { closeDuplicatedHandle(); }
    QuietLogger(const QuietLogger&) = delete;
    QuietLogger& operator=(const QuietLogger&) = delete;
};

/// The line as the formatter makes it, which an application may call too.
QString lineOf(Level level, const QString& msg)
{
    QString line;
    Logger::formatter(level, msg, line);
    return line;
}

QString text(qsizetype size, char32_t character = U'x')
{
    QString result;
    while (result.size() < size)
        result += QString::fromUcs4(&character, 1);
    return result;
}

/// A text of every kind of character, lone surrogates and control characters included.
QString randomText(QRandomGenerator& random, int kind)
{
    QString result;
    const int size = random.bounded(1100);
    while (result.size() < size) {
        char32_t character = random.bounded(kind == 0 ? 0x80 : 0x110000);
        if (kind == 1 && random.bounded(20) != 0)
            character = 0x20 + character % 0x5f;
        if (kind == 2 || character < 0xd800 || character > 0xdfff)
            result += character < 0x10000 ? QString(QChar(char16_t(character)))
                                          : QString::fromUcs4(&character, 1);
    }
    return result;
}

qint64 now()
{
    return QDateTime::currentMSecsSinceEpoch() * Msec;
}

/// Writes a line of which the file takes the first `taken` bytes.
void tearLine(Logger& logger, size_t taken)
{
    LibcFaults::writeLimit = taken;
    LibcFaults::shortWrites = 1;
    LibcFaults::writeError = ENOSPC;
    logger.info(QStringLiteral("torn"));
    LibcFaults::writeError = 0;
}

void ownFormatter(Level level, const QString& msg, QString& out)
{
    Logger::formatter(level, msg, out);
}

} // namespace

/// Lines in the default format, which are made in another way than those of a formatter.
class TestLoggerLines : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { useLanguage(QStringLiteral("en_US")); }
    void cleanup() { LibcFaults::reset(); }

    void fileHasTheLineOfTheFormatter_data()
    {
        QTest::addColumn<QString>("message");
        for (const int size : {0,  1,  2,  7,   8,   9,   15,  16,  17,   31,    32,    33,    47,
                               63, 64, 65, 498, 499, 500, 501, 502, 1000, 21845, 21846, 100000}) {
            QTest::addRow("%d ASCII", size) << text(size);
            QTest::addRow("%d of two bytes", size) << text(size, U'\u00e9');
            QTest::addRow("%d of three bytes", size) << text(size, U'\u20ac');
            QTest::addRow("%d of four bytes", size) << text(size, U'\U0001f600');
        }
        for (int place = 0; place < 34; ++place) {
            QTest::addRow("accent at %d", place) << text(place) + QChar(0xe9) + text(33 - place);
            QTest::addRow("lone surrogate at %d", place)
                << text(place) + QChar(0xd83d) + text(33 - place);
        }
        for (const uint character : {0x0, 0x1, 0xa, 0xd, 0x7f, 0x80, 0xff, 0x7ff, 0x800, 0xd7ff,
                                     0xd800, 0xdbff, 0xdc00, 0xdfff, 0xe000, 0xfeff, 0xffff})
            QTest::addRow("U+%04x", character) << "a" + QString(QChar(char16_t(character)));
        QTest::newRow("lone surrogate at the longest") << text(499) + QChar(0xdc00);
        QTest::newRow("surrogates the wrong way round") << QString(QChar(0xdc00)) + QChar(0xd83d);
        QTest::newRow("CRLF") << "a\r\nb\r\n";
        QTest::newRow("markers") << "%1 %2 %3 [>>] [Tee]";
        QTest::newRow("null") << QString();
    }
    void fileHasTheLineOfTheFormatter()
    {
        QFETCH(const QString, message);
        LibcFaults::clock = now();
        const LogRing ring;
        QuietLogger logger(ring);
        QByteArray expected;
        for (const int level : {0, 1, 2, 3, 4, 5, 7, 0x7fffffff}) {
            logger.writeTrace(static_cast<Level>(level), message);
            expected += lineOf(static_cast<Level>(level), message).toUtf8() + '\n';
        }
        QCOMPARE(ring.bytes(0), expected);
    }

    void manyTextsComeOutAsByTheFormatter()
    {
        QRandomGenerator random(20261122);
        LibcFaults::clock = now();
        const LogRing ring;
        QuietLogger logger(ring);
        QByteArray expected;
        for (int i = 0; i < 3000; ++i) {
            const QString message = randomText(random, i % 3);
            logger.info(message);
            expected += lineOf(LoggerLevel::info, message).toUtf8() + '\n';
        }
        QVERIFY(ring.bytes(0) == expected);
    }

    void timeIsThatOfTheLine()
    {
        const LogRing ring;
        QuietLogger logger(ring);
        QByteArray expected;
        const qint64 start = now();
        for (const qint64 step : {0, 1, 999, 1000, 1001, 59999, 60000, 3600000, 86400000, 5}) {
            LibcFaults::clock = start + step * Msec;
            logger.warning(QStringLiteral("m"));
            expected += lineOf(LoggerLevel::warning, QStringLiteral("m")).toUtf8() + '\n';
        }
        QCOMPARE(ring.bytes(0), expected);
    }

    void fileThatTheLineWouldFillIsLeft_data()
    {
        QTest::addColumn<QString>("character");
        QTest::addColumn<int>("size");
        QTest::newRow("ASCII") << "x" << 1;
        QTest::newRow("two bytes") << QString(QChar(0xe9)) << 2;
        QTest::newRow("three bytes") << QString(QChar(0x20ac)) << 3;
    }
    void fileThatTheLineWouldFillIsLeft()
    {
        QFETCH(const QString, character);
        QFETCH(const int, size);
        const LogRing ring;
        const int whole = HeadLength + 10 * size + 1;
        QuietLogger logger(ring, quint64(3 * whole));
        for (int i = 0; i < 3; ++i)
            logger.info(character.repeated(10));
        QCOMPARE(ring.bytes(0).size(), 2 * whole);
        QCOMPARE(ring.bytes(1).size(), whole);
        QVERIFY(ring.append(1, QByteArray(whole, 'f'))); // what others append counts
        logger.info(character.repeated(10));
        QCOMPARE(ring.bytes(2).size(), whole);
    }

    /// The coarse clock is late. The file is left at the very millisecond all the same.
    void oldFileIsLeftInTime_data()
    {
        QTest::addColumn<bool>("byDefault");
        QTest::addColumn<qint64>("coarseDelay");
        for (const int delay : {0, 1, 10, 500}) {
            QTest::addRow("default format, %d ms late", delay) << true << delay * Msec;
            QTest::addRow("own formatter, %d ms late", delay) << false << delay * Msec;
        }
    }
    void oldFileIsLeftInTime()
    {
        QFETCH(const bool, byDefault);
        QFETCH(const qint64, coarseDelay);
        const LogRing ring;
        QVERIFY(ring.put(0, ""));
        struct statx info {};
        QCOMPARE(statx(AT_FDCWD, qPrintable(ring.file(0)), 0, STATX_BTIME, &info), 0);
        if (!(info.stx_mask & STATX_BTIME))
            QSKIP("This file system records no birth.");
        const qint64 birth = info.stx_btime.tv_sec * 1000 + info.stx_btime.tv_nsec / Msec;
        const qint64 end =
            QDateTime::fromMSecsSinceEpoch(birth).addDays(7).toMSecsSinceEpoch() * Msec;
        QuietLogger logger(ring, Large, 7, byDefault ? nullptr : ownFormatter);
        LibcFaults::coarseDelay = coarseDelay;
        for (const qint64 before : {Day, 2000 * Msec, 999 * Msec, 1 * Msec, qint64(1)}) {
            LibcFaults::clock = end - before;
            logger.info(QStringLiteral("young"));
        }
        QVERIFY(!ring.has(1));
        LibcFaults::clock = end;
        logger.info(QStringLiteral("too old"));
        QCOMPARE(ring.lines(0).size(), 5);
        QCOMPARE(ring.lines(1).size(), 1);
    }

    void refusedLineIsShownAsItWas_data()
    {
        QTest::addColumn<QString>("message");
        QTest::newRow("ASCII") << "refused";
        QTest::newRow("accents") << QString::fromUtf8("refus\u00e9 \u20ac \U0001f600");
        QTest::newRow("NUL inside") << QString(QChar(0)) + "b" + QChar(0);
        QTest::newRow("byte order mark") << QString(QChar(0xfeff)) + "b";
        QTest::newRow("longest") << text(500);
        QTest::newRow("too long") << text(501);
        QTest::newRow("empty") << "";
    }
    void refusedLineIsShownAsItWas()
    {
        QFETCH(const QString, message);
        LibcFaults::clock = now();
        const LogRing ring;
        QuietLogger logger(ring);
        const MessageCapture capture;
        LibcFaults::writes = 0;
        LibcFaults::writeError = ENOSPC;
        logger.warning(message);
        QCOMPARE(LibcFaults::writes.load(), 1);
        LibcFaults::writeError = 0;
        QString expected;
        QDebug(&expected).nospace() << lineOf(LoggerLevel::warning, message) + " [>>]";
        QCOMPARE(capture.texts(), QStringList{expected});
        QCOMPARE(capture.messages().first().type, QtWarningMsg);
        logger.info(QStringLiteral("next"));
        QCOMPARE(ring.bytes(0), lineOf(LoggerLevel::info, QStringLiteral("next")).toUtf8() + '\n');
    }

    void tornLineMergesWithNoOther()
    {
        LibcFaults::clock = now();
        const LogRing ring;
        QuietLogger logger(ring);
        const MessageCapture capture;
        tearLine(logger, 4);
        logger.info(QStringLiteral("next"));
        const QByteArray next = lineOf(LoggerLevel::info, QStringLiteral("next")).toUtf8() + '\n';
        QCOMPARE(ring.bytes(0), next.left(4) + '\n' + next);
    }

    void lineEndAfterATornLineCountsForTheSize()
    {
        LibcFaults::clock = now();
        const LogRing ring;
        const QByteArray next = lineOf(LoggerLevel::info, QStringLiteral("next")).toUtf8() + '\n';
        QuietLogger logger(ring, quint64(4 + 1 + next.size()));
        const MessageCapture capture;
        tearLine(logger, 4);
        logger.info(QStringLiteral("next"));
        QCOMPARE(ring.bytes(0), next.left(4));
        QCOMPARE(ring.bytes(1), next);
    }

    void failedRotationShowsTheLine()
    {
        LibcFaults::clock = now();
        const LogRing ring;
        QuietLogger logger(ring, 40);
        const MessageCapture capture;
        LibcFaults::createError = EACCES;
        logger.info(QStringLiteral("lost file"));
        logger.info(QStringLiteral("later"));
        const QString first = lineOf(LoggerLevel::info, QStringLiteral("lost file"));
        QCOMPARE(capture.texts(),
                 (QStringList{'"' + first + " [log file rotation failure]\"",
                              '"' + lineOf(LoggerLevel::info, QStringLiteral("later")) + '"'}));
        QCOMPARE(ring.bytes(0), QByteArray());
    }

    void teeAndCloseApplyToTheNextLine()
    {
        LibcFaults::clock = now();
        const LogRing ring;
        QuietLogger logger(ring);
        const MessageCapture capture;
        const QString line = lineOf(LoggerLevel::info, QStringLiteral("m"));
        logger.info(QStringLiteral("m"));
        logger.enableTee();
        logger.info(QStringLiteral("m"));
        logger.disableTee();
        logger.info(QStringLiteral("m"));
        logger.close();
        logger.info(QStringLiteral("m"));
        QCOMPARE(ring.bytes(0), (line + '\n' + line + " [Tee]\n" + line + '\n').toUtf8());
        QCOMPARE(capture.texts(), (QStringList{'"' + line + " [Tee]\"", '"' + line + '"'}));
    }

    void formatterThatIsResetAppliesToTheNextLine()
    {
        LibcFaults::clock = now();
        const LogRing ring;
        QuietLogger logger(ring, Large, Century, plainFormatter);
        logger.info(QStringLiteral("m"));
        logger.setFormatter(nullptr);
        logger.info(QStringLiteral("m"));
        QCOMPARE(ring.lines(0),
                 (QByteArrayList{"m", lineOf(LoggerLevel::info, QStringLiteral("m")).toUtf8()}));
    }

    void lineCostsOneSeekOneWriteAndNoAllocation_data()
    {
        QTest::addColumn<bool>("byDefault");
        QTest::addColumn<QString>("message");
        for (const bool byDefault : {true, false}) {
            const char* const way = byDefault ? "default format" : "own formatter";
            QTest::addRow("%s, short", way) << byDefault << "Server started";
            QTest::addRow("%s, accents", way) << byDefault << text(100, U'\u00e9');
            QTest::addRow("%s, longest", way) << byDefault << text(500, U'\u20ac');
            QTest::addRow("%s, longer", way) << byDefault << text(501);
        }
    }
    void lineCostsOneSeekOneWriteAndNoAllocation()
    {
        QFETCH(const bool, byDefault);
        QFETCH(const QString, message);
        const LogRing ring;
        QuietLogger logger(ring, Large, Century, byDefault ? nullptr : ownFormatter);
        for (int i = 0; i < 2; ++i) // the buffers become as long as the line
            logger.info(message);
        LibcFaults::writes = LibcFaults::seeks = LibcFaults::waits = 0;
        const long before = Allocations::count;
        for (int i = 0; i < 100; ++i)
            logger.info(message);
        const long after = Allocations::count;
        QCOMPARE(LibcFaults::seeks.load(), 100);
        QCOMPARE(LibcFaults::writes.load(), 100);
        QCOMPARE(LibcFaults::waits, 0);
        if (Allocations::AreCounted)
            QCOMPARE(after - before, 0L);
        QCOMPARE(ring.lines(0).size(), 102);
    }
};

QTEST_GUILESS_MAIN(TestLoggerLines)
#include "tst_loggerlines.moc"
