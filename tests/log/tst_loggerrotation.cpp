// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/childprocess.h"
#include "support/descriptorlimit.h"
#include "support/failuretext.h"
#include "support/language.h"
#include "support/libcfaults.h"
#include "support/loggersettings.h"
#include "support/logring.h"
#include "support/messagecapture.h"
#include "support/messageprinter.h"
#include "support/opendescriptors.h"

#include <kez/initlib.h>
#include <kez/logger.h>

#include <QDir>
#include <QTest>

#include <algorithm>
#include <cstring>
#include <limits>

namespace {

constexpr quint32 Century = 36500;
constexpr quint64 Large = 1 << 20;
constexpr qint64 Msec = 1000000;
constexpr qint64 Day = qint64(86400) * 1000 * Msec;

/// A rotation status as the result type shows it.
constexpr uint status(int value)
{
    return static_cast<uint>(value);
}

/// The `_last` field that the logger shows.
QString lastOf(const Logger& logger)
{
    return QString::number(shownNumber(logger, QStringLiteral("_last")));
}

struct QuietLogger : Logger {
    QuietLogger(const LogRing& ring, quint64 maxSize, quint32 kept, quint32 timeout = Century)
        : Logger(ring.name(), maxSize, kept, timeout, LoggerLevel::debug, plainFormatter)
    {
        disableTee();
    }
};

/// A file's birth in nanoseconds since 1970; 0 if the file system records none.
qint64 birthOf(const QString& path)
{
    struct statx info {};
    if (statx(AT_FDCWD, QFile::encodeName(path).constData(), 0, STATX_BTIME, &info) != 0 ||
        !(info.stx_mask & STATX_BTIME))
        return 0;
    return info.stx_btime.tv_sec * 1000 * Msec + info.stx_btime.tv_nsec;
}

/// Rotates while the process has no free descriptor for the copy.
int childMain(const QStringList& arguments)
{
    kezEnsureInit();
    useLanguage(QStringLiteral("en_US"));
    printMessagesPlainly();
    Logger logger(arguments.value(0), 4, 3, Century, LoggerLevel::debug, plainFormatter);
    logger.disableTee();
    const DescriptorLimit none(0);
    logger.info(QStringLiteral("first"));
    puts(logger.duplicatedDescriptor() ? "stream" : "no stream");
    return 0;
}

} // namespace

class TestLoggerRotation : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { useLanguage(QStringLiteral("en_US")); }
    void cleanup()
    {
        LibcFaults::reset();
        useLanguage(QStringLiteral("en_US"));
    }

    // --- Results of rotation()

    void roomInTheRingGivesTheNextIndex()
    {
        const LogRing ring;
        QuietLogger logger(ring, Large, 5);
        for (uint i = 0; i < 4; ++i) {
            logger.info(QString::number(i));
            QCOMPARE(logger.rotation(i), i + 1);
            QCOMPARE(ring.bytes(i + 1), QByteArray(""));
        }
        logger.info(QStringLiteral("4"));
        for (uint i = 0; i < 5; ++i)
            QCOMPARE(ring.bytes(i), QByteArray::number(i) + '\n');
        logger.closeDuplicatedHandle();
    }

    void fullRingShiftsDown()
    {
        const LogRing ring;
        for (uint i = 0; i < 5; ++i)
            QVERIFY(ring.put(i, "content " + QByteArray::number(i) + '\n'));
        QuietLogger logger(ring, Large, 5);
        QCOMPARE(logger.rotation(4), 4U);
        for (uint i = 0; i < 4; ++i)
            QCOMPARE(ring.bytes(i), "content " + QByteArray::number(i + 1) + '\n');
        QCOMPARE(ring.bytes(4), QByteArray(""));
        QCOMPARE(ring.names().size(), 5);
        logger.info(QStringLiteral("new"));
        QCOMPARE(ring.bytes(4), QByteArray("new\n"));
        logger.closeDuplicatedHandle();
    }

    void indexAboveTheRingShiftsDown()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, "a\n"));
        QVERIFY(ring.put(1, "b\n"));
        QuietLogger logger(ring, Large, 2);
        QCOMPARE(logger.rotation(std::numeric_limits<uint>::max()), 1U);
        QCOMPARE(ring.bytes(0), QByteArray("b\n"));
        QCOMPARE(ring.bytes(1), QByteArray(""));
        logger.closeDuplicatedHandle();
    }

    void fullRingWithoutOldestFileShiftsDown()
    {
        const LogRing ring;
        QVERIFY(ring.put(1, "b\n"));
        QVERIFY(ring.put(2, "c\n"));
        QuietLogger logger(ring, Large, 3);
        QCOMPARE(logger.rotation(2), 2U);
        QCOMPARE(ring.bytes(0), QByteArray("b\n"));
        QCOMPARE(ring.bytes(1), QByteArray("c\n"));
        QCOMPARE(ring.bytes(2), QByteArray(""));
        logger.closeDuplicatedHandle();
    }

    void ringOfOneStartsItsFileAnew()
    {
        const LogRing ring;
        QuietLogger logger(ring, 8, 1);
        logger.info(QStringLiteral("one"));
        logger.info(QStringLiteral("two"));
        QCOMPARE(ring.bytes(0), QByteArray("two\n"));
        QCOMPARE(logger.rotation(0), 0U);
        QCOMPARE(ring.bytes(0), QByteArray(""));
        QCOMPARE(ring.names(), QStringList{"app-0.log"});
        QCOMPARE(lastOf(logger), QStringLiteral("0"));
        logger.closeDuplicatedHandle();
    }

    void failedRotationHasItsStatus_data()
    {
        QTest::addColumn<QString>("situation");
        QTest::addColumn<int>("result");
        QTest::newRow("leftover at the next index") << "leftover" << -1;
        QTest::newRow("dangling link at the next index") << "link" << -1;
        QTest::newRow("next file cannot be created") << "create, room" << -1;
        QTest::newRow("oldest is a directory") << "directory" << -2;
        QTest::newRow("oldest cannot be deleted") << "unlink" << -2;
        QTest::newRow("gap in the ring") << "gap" << -3;
        QTest::newRow("rename refused") << "rename" << -3;
        QTest::newRow("no descriptor for the next file") << "descriptors, room" << -1;
        QTest::newRow("top file cannot be created") << "create, full" << -4;
        QTest::newRow("no descriptor for the top file") << "descriptors, full" << -4;
    }
    void failedRotationHasItsStatus()
    {
        QFETCH(QString, situation);
        QFETCH(int, result);
        const LogRing ring;
        const bool room = result == -1;
        const uint newest = room ? 1 : 4;
        for (uint i = 0; i <= newest; ++i)
            QVERIFY(ring.put(i, QByteArray::number(i) + '\n'));
        QuietLogger logger(ring, 12, 5);
        if (situation == QLatin1String("leftover"))
            QVERIFY(ring.put(2, "left\n"));
        if (situation == QLatin1String("link"))
            QVERIFY(QFile::link("nowhere", ring.file(2)));
        if (situation == QLatin1String("directory"))
            QVERIFY(QFile::remove(ring.file(0)) && QDir().mkdir(ring.file(0)));
        if (situation == QLatin1String("gap"))
            QVERIFY(QFile::remove(ring.file(3)));
        if (situation.startsWith(QLatin1String("create")))
            LibcFaults::createError = EACCES;
        if (situation.startsWith(QLatin1String("descriptors")))
            LibcFaults::createError = EMFILE;
        if (situation == QLatin1String("unlink"))
            LibcFaults::unlinkError = EACCES;
        if (situation == QLatin1String("rename"))
            LibcFaults::renameError = EACCES;

        const MessageCapture capture;
        logger.warning(QStringLiteral("too long now"));
        LibcFaults::reset();
        QCOMPARE(capture.messages().size(), 1);
        QCOMPARE(capture.messages().first().type, QtWarningMsg);
        QCOMPARE(capture.messages().first().text,
                 QStringLiteral("\"too long now [log file rotation failure]\""));
        QCOMPARE(lastOf(logger), QString::number(status(result)));
        QVERIFY(!logger.needsRotate());

        logger.info(QStringLiteral("x"));
        QCOMPARE(capture.texts().last(), QStringLiteral("\"x\""));
        QCOMPARE(capture.messages().size(), 2);

        if (situation == QLatin1String("leftover"))
            QCOMPARE(ring.bytes(2), QByteArray("left\n"));
        if (situation == QLatin1String("gap")) {
            QCOMPARE(ring.bytes(0), QByteArray("1\n"));
            QCOMPARE(ring.bytes(1), QByteArray("2\n"));
            QVERIFY(!ring.has(2) && !ring.has(3));
            QCOMPARE(ring.bytes(4), QByteArray("4\n"));
        }
        if (result == -2)
            QCOMPARE(ring.bytes(1), QByteArray("1\n"));
        if (result == -4) {
            QVERIFY(!ring.has(4));
            QCOMPARE(ring.bytes(3), QByteArray("4\n"));
        }
    }

    void failedRenameEndsTheShift()
    {
        const LogRing ring;
        for (uint i = 0; i < 5; ++i)
            QVERIFY(ring.put(i, QByteArray::number(i)));
        QuietLogger logger(ring, Large, 5);
        LibcFaults::renameError = EIO;
        QCOMPARE(logger.rotation(4), status(-3));
        QCOMPARE(LibcFaults::renames.load(), 1);
        QVERIFY(!ring.has(0));
        QCOMPARE(ring.bytes(1), QByteArray("1"));
    }

    void shiftTakesOneRenamePerFile()
    {
        const LogRing ring;
        for (uint i = 0; i < 5; ++i)
            QVERIFY(ring.put(i, QByteArray::number(i)));
        QuietLogger logger(ring, Large, 5);
        LibcFaults::renames = 0;
        QCOMPARE(logger.rotation(4), 4U);
        QCOMPARE(LibcFaults::renames.load(), 4);
        logger.closeDuplicatedHandle();
    }

    void indexFollowsARotationThatTheApplicationMakes_data()
    {
        QTest::addColumn<QString>("how");
        QTest::addColumn<uint>("kept");
        QTest::newRow("rotation, room in the ring") << "rotation" << 5U;
        QTest::newRow("rotation, full ring") << "rotation" << 2U;
        QTest::newRow("look for the last file, room in the ring") << "look" << 5U;
        QTest::newRow("look for the last file, full ring") << "look" << 2U;
    }
    void indexFollowsARotationThatTheApplicationMakes()
    {
        QFETCH(QString, how);
        QFETCH(uint, kept);
        const LogRing ring;
        QuietLogger logger(ring, 8, kept);
        uint index = 0;
        for (int i = 0; i < 3; ++i) {
            logger.info(QStringLiteral("before"));
            if (how == QLatin1String("look")) {
                QVERIFY(ring.append(index, "full"));
                index = logger.lookForLastFile();
            } else {
                index = logger.rotation(index);
            }
            QCOMPARE(index, std::min(uint(i) + 1, kept - 1));
            QCOMPARE(lastOf(logger), QString::number(index));
        }
        const MessageCapture capture;
        logger.info(QStringLiteral("one"));
        logger.info(QStringLiteral("two two"));
        QCOMPARE(capture.texts(), QStringList());
        QCOMPARE(ring.bytes(std::min(index + 1, kept - 1)), QByteArray("two two\n"));
        logger.closeDuplicatedHandle();
    }

    void failedRotationOfTheApplicationLeavesTheIndex()
    {
        const LogRing ring;
        QuietLogger logger(ring, Large, 5);
        QCOMPARE(logger.rotation(0), 1U);
        QVERIFY(ring.put(2, "left\n"));
        QCOMPARE(logger.rotation(1), status(-1));
        QCOMPARE(lastOf(logger), QStringLiteral("1"));
        logger.closeDuplicatedHandle();
    }

    void rotationNeedsNoDescriptorThatItGaveAway_data()
    {
        QTest::addColumn<uint>("kept");
        QTest::addColumn<int>("error");
        QTest::newRow("room, process's limit") << 5U << EMFILE;
        QTest::newRow("room, system's limit") << 5U << ENFILE;
        QTest::newRow("full ring, process's limit") << 2U << EMFILE;
        QTest::newRow("ring of one, process's limit") << 1U << EMFILE;
    }
    /// The descriptor of a closed log file is gone at once, as if another thread took it.
    void rotationNeedsNoDescriptorThatItGaveAway()
    {
        QFETCH(uint, kept);
        QFETCH(int, error);
        const LogRing ring;
        for (uint i = 0; i + 1 < std::min(kept, 3U); ++i)
            QVERIFY(ring.put(i, "earlier\n"));
        QuietLogger logger(ring, 8, kept);
        const MessageCapture capture;
        LibcFaults::createError = error;
        LibcFaults::refusing = LibcFaults::Refusing::AfterClosing;
        logger.info(QStringLiteral("long line"));
        LibcFaults::reset();
        QCOMPARE(capture.texts(), QStringList());
        QCOMPARE(ring.bytes(lastOf(logger).toUInt()), QByteArray("long line\n"));
        logger.closeDuplicatedHandle();
    }

    void rotationWithoutAFreeDescriptorClosesFirst_data()
    {
        rotationNeedsNoDescriptorThatItGaveAway_data();
    }
    void rotationWithoutAFreeDescriptorClosesFirst()
    {
        QFETCH(uint, kept);
        QFETCH(int, error);
        const LogRing ring;
        QuietLogger logger(ring, 8, kept);
        logger.info(QStringLiteral("one"));
        const MessageCapture capture;
        LibcFaults::createError = error;
        LibcFaults::refusing = LibcFaults::Refusing::UntilClosing;
        logger.info(QStringLiteral("two two"));
        LibcFaults::reset();
        QCOMPARE(capture.texts(), QStringList());
        QCOMPARE(lastOf(logger), QString::number(std::min(1U, kept - 1)));
        QCOMPARE(ring.bytes(lastOf(logger).toUInt()), QByteArray("two two\n"));
        logger.closeDuplicatedHandle();
    }

    void loggerWithoutFileNameCannotRotate()
    {
        Logger logger;
        QCOMPARE(logger.rotation(0), status(-5));
        QCOMPARE(logger.rotation(7), status(-5));
    }

    void failureTextFollowsTheLanguage()
    {
        const LogRing ring;
        QuietLogger logger(ring, 4, 5);
        QVERIFY(ring.put(1, ""));
        useLanguage(QStringLiteral("fr_FR"));
        const MessageCapture capture;
        logger.critical(QStringLiteral("long"));
        QCOMPARE(capture.messages().first().type, QtCriticalMsg);
        QCOMPARE(capture.texts(),
                 QStringList{QString::fromUtf8("\"long [\xc3\xa9"
                                               "chec rotation fichier journal]\"")});
    }

    void failedRotationShowsTheMarkedLineAfterTheTee()
    {
        const LogRing ring;
        QuietLogger logger(ring, 4, 5);
        logger.enableTee();
        QVERIFY(ring.put(1, ""));
        const MessageCapture capture;
        logger.info(QStringLiteral("long"));
        logger.info(QStringLiteral("later"));
        QCOMPARE(capture.texts(),
                 (QStringList{"\"long [Tee]\"", "\"long [Tee] [log file rotation failure]\"",
                              "\"later\""}));
    }

    void rotationAfterAFailureGivesAFileAgain()
    {
        const LogRing ring;
        QuietLogger logger(ring, 6, 5);
        QVERIFY(ring.put(1, ""));
        {
            const MessageCapture capture;
            logger.info(QStringLiteral("long line"));
        }
        QVERIFY(QFile::remove(ring.file(1)));
        QCOMPARE(logger.rotation(0), 1U);
        logger.info(QStringLiteral("x"));
        QCOMPARE(ring.bytes(1), QByteArray("x\n"));
        logger.closeDuplicatedHandle();
    }

    // --- Size

    void fileNeverReachesItsLimit_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<bool>("tee");
        QTest::newRow("ASCII") << "0123456789" << false;
        QTest::newRow("two bytes each") << QString(5, QChar(0xe9)) << false;
        QTest::newRow("three bytes each") << QString(4, QChar(0x20ac)) << false;
        QTest::newRow("four bytes each") << QString::fromUtf8("\xf0\x9f\x98\x80!") << false;
        QTest::newRow("lone surrogate") << QString(QChar(0xd800)) + "ab" << false;
        QTest::newRow("NUL") << QString(2, QChar(0)) << false;
        QTest::newRow("empty line") << "" << false;
        QTest::newRow("with the tee marker") << "x" << true;
    }
    void fileNeverReachesItsLimit()
    {
        QFETCH(QString, line);
        QFETCH(bool, tee);
        const QByteArray bytes = (line + (tee ? " [Tee]" : "")).toUtf8() + '\n';
        const auto size = quint64(bytes.size());
        const MessageCapture capture;
        {
            const LogRing ring;
            QuietLogger logger(ring, 2 * size, 5);
            if (tee)
                logger.enableTee();
            logger.info(line);
            logger.info(line);
            QVERIFY(ring.bytes(0) == bytes);
            QVERIFY(ring.bytes(1) == bytes);
            logger.closeDuplicatedHandle();
        }
        {
            const LogRing ring;
            QuietLogger logger(ring, 2 * size + 1, 5);
            if (tee)
                logger.enableTee();
            logger.info(line);
            logger.info(line);
            QVERIFY(ring.bytes(0) == bytes + bytes);
            QVERIFY(!ring.has(1));
        }
    }

    void lineLongerThanTheLimitGetsAFileOfItsOwn()
    {
        const LogRing ring;
        QuietLogger logger(ring, 10, 5);
        logger.info(QStringLiteral("a"));
        logger.info(QString(50, QLatin1Char('b')));
        logger.info(QStringLiteral("c"));
        QCOMPARE(ring.bytes(0), QByteArray("a\n"));
        QCOMPARE(ring.bytes(1), QByteArray(50, 'b') + '\n');
        QCOMPARE(ring.bytes(2), QByteArray("c\n"));
        logger.closeDuplicatedHandle();
    }

    void longFirstLineLeavesAnEmptyFile()
    {
        const LogRing ring;
        QuietLogger logger(ring, 10, 5);
        logger.info(QString(50, QLatin1Char('b')));
        QCOMPARE(ring.bytes(0), QByteArray(""));
        QCOMPARE(ring.bytes(1), QByteArray(50, 'b') + '\n');
        logger.closeDuplicatedHandle();
    }

    void needsRotateAnswersAtTheLimit()
    {
        const LogRing ring;
        QuietLogger logger(ring, 10, 5);
        QVERIFY(!logger.needsRotate());
        QVERIFY(!logger.needsRotate(QString(9, QLatin1Char('x'))));
        QVERIFY(logger.needsRotate(QString(10, QLatin1Char('x'))));
        QVERIFY(!logger.needsRotate(QString(4, QChar(0xe9))));
        QVERIFY(logger.needsRotate(QString(5, QChar(0xe9))));
        const QString lone(9, QChar(0xdc00)); // Qt decides how long a lone surrogate gets
        QCOMPARE(logger.needsRotate(lone), lone.toUtf8().size() >= 10);
        QVERIFY(!logger.needsRotate(QString()));
        QVERIFY(ring.append(0, "123456789"));
        QVERIFY(!logger.needsRotate());
        QVERIFY(!logger.needsRotate(QString()));
        QVERIFY(logger.needsRotate(QStringLiteral("x")));
        QVERIFY(ring.append(0, "0"));
        QVERIFY(logger.needsRotate());
        QVERIFY(logger.needsRotate(QString()));
    }

    void growthByAnotherWriterCounts()
    {
        const LogRing ring;
        QuietLogger logger(ring, 100, 5);
        logger.info(QStringLiteral("one"));
        QVERIFY(ring.append(0, QByteArray(92, 'o') + '\n'));
        logger.info(QStringLiteral("12"));
        QCOMPARE(ring.bytes(0).size(), 97);
        QCOMPARE(ring.bytes(1), QByteArray("12\n"));
        logger.closeDuplicatedHandle();
    }

    void shrinkingByAnotherProgramCounts()
    {
        const LogRing ring;
        QuietLogger logger(ring, 20, 5);
        logger.info(QString(15, QLatin1Char('x')));
        QVERIFY(QFile::resize(ring.file(0), 0));
        logger.info(QString(15, QLatin1Char('y')));
        QCOMPARE(ring.bytes(0), QByteArray(15, 'y') + '\n');
        QVERIFY(!ring.has(1));
    }

    void zeroSizeMeansOneMebibyte()
    {
        const LogRing ring;
        QuietLogger logger(ring, 0, 5);
        QVERIFY(QFile::resize(ring.file(0), 1048573));
        logger.info(QStringLiteral("x"));
        QVERIFY(!ring.has(1));
        QCOMPARE(QFileInfo(ring.file(0)).size(), 1048575);
        logger.info(QString());
        QVERIFY(ring.has(1));
        logger.closeDuplicatedHandle();
    }

    void zeroKeptMeansFive()
    {
        const LogRing ring;
        QuietLogger logger(ring, 3, 0);
        for (int i = 0; i < 8; ++i)
            logger.info(QString::number(i));
        QCOMPARE(ring.names(),
                 (QStringList{"app-0.log", "app-1.log", "app-2.log", "app-3.log", "app-4.log"}));
        QCOMPARE(ring.allLines(5), (QByteArrayList{"3", "4", "5", "6", "7"}));
        logger.closeDuplicatedHandle();
    }

    void largestSizeLimitNeverRotates()
    {
        const LogRing ring;
        QuietLogger logger(ring, std::numeric_limits<quint64>::max(), 2);
        for (int i = 0; i < 20; ++i)
            logger.info(QStringLiteral("line"));
        QCOMPARE(ring.names(), QStringList{"app-0.log"});
        QVERIFY(!logger.needsRotate());
    }

    // --- Age

    void timeoutOfZeroRotatesBeforeEveryLine()
    {
        const LogRing ring;
        QuietLogger logger(ring, Large, 4, 0);
        QVERIFY(logger.needsRotate());
        QCOMPARE(ring.names(), QStringList{"app-0.log"});
        for (int i = 0; i < 3; ++i)
            logger.info(QString::number(i));
        QCOMPARE(ring.bytes(0), QByteArray(""));
        QCOMPARE(ring.allLines(4), (QByteArrayList{"0", "1", "2"}));
        logger.info(QStringLiteral("3"));
        QCOMPARE(ring.bytes(0), QByteArray("0\n"));
        QCOMPARE(ring.bytes(3), QByteArray("3\n"));
        logger.closeDuplicatedHandle();
    }

    void fileIsLeftAtItsAgeLimit_data()
    {
        QTest::addColumn<uint>("days");
        QTest::newRow("one day") << 1U;
        QTest::newRow("a month") << 31U;
        QTest::newRow("a century") << Century;
    }
    void fileIsLeftAtItsAgeLimit()
    {
        QFETCH(uint, days);
        const LogRing ring;
        QuietLogger logger(ring, Large, 3, days);
        const qint64 birth = birthOf(ring.file(0));
        if (birth == 0)
            QSKIP("this file system records no birth times");
        const qint64 limit = (birth + Msec - 1) / Msec * Msec + days * Day;

        LibcFaults::clock = limit - 2 * Msec;
        QVERIFY(!logger.needsRotate());
        logger.info(QStringLiteral("young"));
        QVERIFY(!ring.has(1));
        LibcFaults::clock = limit;
        QVERIFY(logger.needsRotate());
        QVERIFY(logger.needsRotate(QString()));
        logger.info(QStringLiteral("old"));
        LibcFaults::clock = 0;
        QCOMPARE(ring.bytes(0), QByteArray("young\n"));
        QCOMPARE(ring.bytes(1), QByteArray("old\n"));
        logger.closeDuplicatedHandle();
    }

    void writingDoesNotMakeAFileYounger()
    {
        const LogRing ring;
        QuietLogger logger(ring, Large, 3, 2);
        const qint64 birth = birthOf(ring.file(0));
        if (birth == 0)
            QSKIP("this file system records no birth times");
        LibcFaults::clock = birth + Day;
        logger.info(QStringLiteral("x"));
        LibcFaults::clock = birth + 2 * Day + Msec;
        QVERIFY(logger.needsRotate());
    }

    void largestTimeoutNeverRotates()
    {
        const LogRing ring;
        QuietLogger logger(ring, Large, 3, std::numeric_limits<quint32>::max());
        QVERIFY(!logger.needsRotate());
        LibcFaults::clock = std::numeric_limits<qint64>::max() - Day;
        QVERIFY(!logger.needsRotate());
    }

    void clockBeforeTheBirthDoesNotRotate()
    {
        const LogRing ring;
        QuietLogger logger(ring, Large, 3, 1);
        LibcFaults::clock = Day;
        QVERIFY(!logger.needsRotate());
    }

    void rotatedFileBeginsANewAge()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, "x\n"));
        QuietLogger logger(ring, Large, 3, 1);
        logger.rotation(0);
        QVERIFY(!logger.needsRotate());
        logger.closeDuplicatedHandle();
    }

    void withoutBirthTimeTheModificationCounts()
    {
        const LogRing ring;
        LibcFaults::noBirthTime = true;
        QuietLogger logger(ring, Large, 3, 1);
        struct stat info {};
        QCOMPARE(stat(QFile::encodeName(ring.file(0)).constData(), &info), 0);
        const qint64 modified = info.st_mtim.tv_sec * 1000 * Msec + info.st_mtim.tv_nsec;
        LibcFaults::clock = modified + Day - 2 * Msec;
        QVERIFY(!logger.needsRotate());
        LibcFaults::clock = modified + Day + 2 * Msec;
        QVERIFY(logger.needsRotate());
    }

    void zeroTimeoutWithoutBirthTimeRotatesAlways()
    {
        const LogRing ring;
        LibcFaults::noBirthTime = true;
        QuietLogger logger(ring, Large, 3, 0);
        QVERIFY(logger.needsRotate());
    }

    // --- Going on after a restart

    void restartFindsTheNewestFile_data()
    {
        QTest::addColumn<int>("listError");
        QTest::addColumn<QList<int>>("sizes"); // per index; -1: no such file
        QTest::addColumn<uint>("kept");
        QTest::addColumn<uint>("index");
        QTest::addColumn<QStringList>("names");
        const auto row = [](const char* name, const QList<int>& sizes, uint kept, uint index,
                            const QStringList& names) {
            QTest::newRow(name) << 0 << sizes << kept << index << names;
            QTest::addRow("%s, directory cannot be listed", name)
                << EMFILE << sizes << kept << index << names;
        };
        row("nothing there", {}, 5, 0, {"app-0.log"});
        row("one file, room", {9}, 5, 0, {"app-0.log"});
        row("one file, full", {10}, 5, 1, {"app-0.log", "app-1.log"});
        row("one file, more than full", {11}, 5, 1, {"app-0.log", "app-1.log"});
        row("several, newest has room", {10, 10, 3}, 5, 2, {"app-0.log", "app-1.log", "app-2.log"});
        row("several, newest full", {1, 1, 10}, 5, 3,
            {"app-0.log", "app-1.log", "app-2.log", "app-3.log"});
        row("whole ring, newest full", {10, 10, 10}, 3, 2, {"app-0.log", "app-1.log", "app-2.log"});
        row("gap below the newest", {1, -1, 1}, 5, 2, {"app-0.log", "app-2.log"});
        row("only a high index", {-1, -1, -1, -1, 0}, 5, 4, {"app-4.log"});
        row("files above the ring", {1, -1, 1, 1}, 2, 0, {"app-0.log", "app-2.log", "app-3.log"});
        row("ring of one, full", {10}, 1, 0, {"app-0.log"});
        row("largest ring", {1, -1, 1}, std::numeric_limits<uint>::max(), 2,
            {"app-0.log", "app-2.log"});
    }
    void restartFindsTheNewestFile()
    {
        QFETCH(int, listError);
        QFETCH(QList<int>, sizes);
        QFETCH(uint, kept);
        QFETCH(uint, index);
        QFETCH(QStringList, names);
        const LogRing ring;
        for (uint i = 0; i < uint(sizes.size()); ++i)
            if (sizes.at(i) >= 0)
                QVERIFY(ring.put(i, QByteArray(sizes.at(i), 'x')));
        LibcFaults::listError = listError;
        QuietLogger logger(ring, 10, kept);
        LibcFaults::listError = 0;
        QCOMPARE(ring.names(), names);
        QCOMPARE(lastOf(logger), QString::number(index));
        if (index < uint(sizes.size()) && sizes.at(index) >= 0 && sizes.at(index) < 10)
            QCOMPARE(ring.bytes(index).size(), sizes.at(index));
        else
            QCOMPARE(ring.bytes(index), QByteArray(""));
        logger.info(QString());
        QVERIFY(ring.bytes(index).endsWith('\n') || ring.bytes(index + 1) == "\n");
        logger.closeDuplicatedHandle();
    }

    void startWithoutDescriptorsNamesTheNewestFile()
    {
        const LogRing ring;
        for (uint i = 0; i < 3; ++i)
            QVERIFY(ring.put(i, QByteArray::number(i) + '\n'));
        LibcFaults::listError = EMFILE;
        LibcFaults::createError = EMFILE;
        const QString text = failureText([&ring] { const QuietLogger logger(ring, Large, 5); });
        LibcFaults::reset();
        QCOMPARE(text, QStringLiteral("Logger::Logger(const QString&, quint64, quint32, quint32, "
                                      "LogLevel, LogFormatter) -> Failed to open file [%1] in "
                                      "append mode")
                           .arg(ring.file(2)));
        QCOMPARE(ring.names(), (QStringList{"app-0.log", "app-1.log", "app-2.log"}));
    }

    void startWithoutDescriptorsKeepsAFullRing_data()
    {
        QTest::addColumn<QList<QByteArray>>("contents");
        QTest::addColumn<uint>("kept");
        QTest::addColumn<uint>("newest");
        QTest::newRow("room in the ring") << QList<QByteArray>{"older", "long enough"} << 10U << 1U;
        QTest::newRow("no room") << QList<QByteArray>{"older", "old", "long enough"} << 3U << 2U;
        QTest::newRow("ring of one") << QList<QByteArray>{"long enough"} << 1U << 0U;
    }
    void startWithoutDescriptorsKeepsAFullRing()
    {
        QFETCH(QList<QByteArray>, contents);
        QFETCH(uint, kept);
        QFETCH(uint, newest);
        const LogRing ring;
        for (uint i = 0; i < uint(contents.size()); ++i)
            QVERIFY(ring.put(i, contents.at(i)));
        const QStringList names = ring.names();
        LibcFaults::listError = EMFILE;
        LibcFaults::createError = EMFILE;
        const QString text = failureText([&] { const QuietLogger logger(ring, 10, kept); });
        LibcFaults::reset();
        QVERIFY2(
            text.endsWith(
                QStringLiteral("Failed to open file [%1] in append mode").arg(ring.file(newest))),
            qPrintable(text));
        QCOMPARE(ring.names(), names);
        for (uint i = 0; i < uint(contents.size()); ++i)
            QCOMPARE(ring.bytes(i), contents.at(i));
    }

    void startWithAFullFileNeedsNoMoreThanTheFileAndItsStream()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, "long enough"));
        {
            const DescriptorLimit two(2);
            QuietLogger logger(ring, 10, 3);
            logger.info(QStringLiteral("first"));
            logger.closeDuplicatedHandle();
        }
        QCOMPARE(ring.bytes(1), QByteArray("first\n"));
    }

    void otherNamesAreNotPartOfTheRing()
    {
        const LogRing ring;
        const QStringList others{"app-01.log", "app-+1.log",   "app- 1.log",         "app-1.log.gz",
                                 "app-1.LOG",  "app--1.log",   "app-4294967296.log", "app-.log",
                                 "app-x.log",  "app-0x1.log",  "xapp-2.log",         "app-2-3.log",
                                 "app-1",      "app-1.logger", "app-00.log",         "app-5.log"};
        for (const QString& other : others)
            QVERIFY(writeFile(ring.path() + QLatin1Char('/') + other, "other"));
        QuietLogger logger(ring, 4, 5);
        QVERIFY(ring.has(0));
        for (int i = 0; i < 8; ++i)
            logger.info(QStringLiteral("ab"));
        QCOMPARE(lastOf(logger), QStringLiteral("4"));
        for (const QString& other : others)
            QCOMPARE(readFile(ring.path() + QLatin1Char('/') + other), QByteArray("other"));
        logger.closeDuplicatedHandle();
    }

    void existingFileThatIsTooOldIsLeftAtOnce()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, "x\n"));
        QuietLogger logger(ring, Large, 5, 0);
        QCOMPARE(ring.names(), (QStringList{"app-0.log", "app-1.log"}));
        QCOMPARE(lastOf(logger), QStringLiteral("1"));
        logger.closeDuplicatedHandle();
    }

    void fullAndTooOldRotatesTwice()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, "full enough\n"));
        QuietLogger logger(ring, 5, 5, 0);
        QCOMPARE(ring.names(), (QStringList{"app-0.log", "app-1.log", "app-2.log"}));
        QCOMPARE(lastOf(logger), QStringLiteral("2"));
        logger.closeDuplicatedHandle();
    }

    void restartOnAFullRingShiftsOnce()
    {
        const LogRing ring;
        for (uint i = 0; i < 3; ++i)
            QVERIFY(ring.put(i, QByteArray(10, char('a' + i))));
        QuietLogger logger(ring, 10, 3);
        QCOMPARE(ring.bytes(0), QByteArray(10, 'b'));
        QCOMPARE(ring.bytes(1), QByteArray(10, 'c'));
        QCOMPARE(ring.bytes(2), QByteArray(""));
        logger.info(QStringLiteral("x"));
        QCOMPARE(ring.bytes(2), QByteArray("x\n"));
        logger.closeDuplicatedHandle();
    }

    void statusOfAFailedRestartBecomesTheIndex()
    {
        const LogRing ring;
        for (const uint i : {0U, 1U, 2U, 4U})
            QVERIFY(ring.put(i, QByteArray(10, 'x')));
        QuietLogger logger(ring, 10, 5);
        QCOMPARE(lastOf(logger), QStringLiteral("4294967293"));
        logger.info(QStringLiteral("x"));
        QCOMPARE(ring.bytes(4294967293U), QByteArray("x\n"));
    }

    void loggerWithoutFileNameHasNothingToLookFor()
    {
        Logger logger;
        QCOMPARE(logger.lookForLastFile(), 0U);
    }

    void lookingAgainAnswersTheNewestOrRotates()
    {
        const LogRing ring;
        QuietLogger logger(ring, 10, 5);
        QCOMPARE(logger.lookForLastFile(), 0U);
        QVERIFY(ring.put(3, "x"));
        QCOMPARE(logger.lookForLastFile(), 3U);
        QVERIFY(ring.put(3, QByteArray(10, 'x')));
        QCOMPARE(logger.lookForLastFile(), 4U);
        QCOMPARE(ring.bytes(4), QByteArray(""));
        logger.closeDuplicatedHandle();
    }

    void largestRingCostsNoScan()
    {
        const LogRing ring;
        constexpr quint32 Most = std::numeric_limits<quint32>::max();
        {
            QuietLogger logger(ring, 4, Most);
            logger.info(QStringLiteral("one"));
            QCOMPARE(ring.bytes(1), QByteArray("one\n"));
            QCOMPARE(logger.lookForLastFile(), 2U);
            logger.closeDuplicatedHandle();
        }
        {
            QVERIFY(ring.put(Most - 1, "x"));
            QuietLogger logger(ring, 4, Most);
            QCOMPARE(lastOf(logger), QString::number(Most - 1));
            QCOMPARE(logger.rotation(Most - 1), 0U + status(-3));
        }
    }

    void linkToAFullFileIsFollowed()
    {
        const LogRing ring;
        QVERIFY(writeFile(ring.path() + QStringLiteral("/target"), QByteArray(10, 'x')));
        QVERIFY(QFile::link(ring.path() + QStringLiteral("/target"), ring.file(0)));
        QuietLogger logger(ring, 10, 5);
        QVERIFY(ring.has(1));
        logger.closeDuplicatedHandle();
    }

    // --- Handles across rotations

    void tenThousandRotationsLeakNothing()
    {
        const LogRing ring;
        QuietLogger logger(ring, Large, 3, 0);
        logger.info(QStringLiteral("first"));
        const int before = openDescriptors();
        for (int i = 0; i < 10000; ++i)
            logger.info(QString::number(i));
        QCOMPARE(openDescriptors(), before);
        QCOMPARE(ring.allLines(3), (QByteArrayList{"9997", "9998", "9999"}));
        QCOMPARE(ring.names().size(), 3);
        logger.closeDuplicatedHandle();
    }

    void rotationGivesAFreshLoggerItsStream()
    {
        const LogRing ring;
        QuietLogger logger(ring, Large, 3);
        QVERIFY(logger.duplicatedDescriptor() == nullptr);
        logger.rotation(0);
        FILE* stream = logger.duplicatedDescriptor();
        QVERIFY(stream != nullptr);
        QVERIFY(fputs("stream\n", stream) >= 0);
        QCOMPARE(fflush(stream), 0);
        QCOMPARE(ring.bytes(1), QByteArray("stream\n"));
        logger.closeDuplicatedHandle();
    }

    void streamFollowsTheRotations()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, ""));
        QuietLogger logger(ring, Large, 3);
        FILE* const stream = logger.duplicatedDescriptor();
        QVERIFY(stream != nullptr);
        const int fd = fileno(stream);
        uint index = 0;
        for (int i = 0; i < 6; ++i) {
            QVERIFY(fprintf(stream, "%d\n", i) > 0);
            QCOMPARE(fflush(stream), 0);
            QCOMPARE(ring.lines(index).last(), QByteArray::number(i));
            index = logger.rotation(index);
            QVERIFY(logger.duplicatedDescriptor() == stream);
            QCOMPARE(fileno(stream), fd);
            QVERIFY(fcntl(fd, F_GETFD) & FD_CLOEXEC);
            QVERIFY(fcntl(fd, F_GETFL) & O_APPEND);
            QCOMPARE(ring.bytes(index), QByteArray(""));
        }
        QVERIFY(fputs("last\n", stream) >= 0);
        QCOMPARE(fflush(stream), 0);
        QCOMPARE(ring.bytes(2), QByteArray("last\n"));
        QCOMPARE(ring.bytes(1), QByteArray("5\n"));
        QCOMPARE(ring.bytes(0), QByteArray("4\n"));
        logger.closeDuplicatedHandle();
    }

    void unflushedTextOfTheStreamStaysInTheFileBefore()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, ""));
        QuietLogger logger(ring, Large, 3);
        FILE* const stream = logger.duplicatedDescriptor();
        QVERIFY(fputs("pending\n", stream) >= 0);
        QCOMPARE(logger.rotation(0), 1U);
        QCOMPARE(ring.bytes(0), QByteArray("pending\n"));
        QVERIFY(fputs("next\n", stream) >= 0);
        logger.closeDuplicatedHandle();
        QCOMPARE(ring.bytes(1), QByteArray("next\n"));
        QCOMPARE(ring.bytes(0), QByteArray("pending\n"));
    }

    void streamAndLoggerDoNotOverwriteEachOtherAfterARotation()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, ""));
        QuietLogger logger(ring, Large, 3);
        logger.rotation(0);
        FILE* const stream = logger.duplicatedDescriptor();
        QByteArray expected;
        for (int i = 0; i < 20; ++i) {
            logger.info(QStringLiteral("logger"));
            QVERIFY(fputs("stream\n", stream) >= 0);
            QCOMPARE(fflush(stream), 0);
            expected += "logger\nstream\n";
        }
        QCOMPARE(ring.bytes(1), expected);
        logger.closeDuplicatedHandle();
    }

    void closedStreamIsReplacedByTheNextRotation()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, ""));
        QuietLogger logger(ring, Large, 3);
        const int descriptors = openDescriptors();
        for (uint i = 0; i < 2; ++i) {
            logger.closeDuplicatedHandle();
            QCOMPARE(openDescriptors(), descriptors - 1);
            QCOMPARE(logger.rotation(i), i + 1);
            QCOMPARE(openDescriptors(), descriptors);
            QVERIFY(fputs("again\n", logger.duplicatedDescriptor()) >= 0);
            QCOMPARE(fflush(logger.duplicatedDescriptor()), 0);
            QCOMPARE(ring.bytes(i + 1), QByteArray("again\n"));
        }
        logger.closeDuplicatedHandle();
    }

    void streamStaysUsableAfterAFailedRotation()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, ""));
        QuietLogger logger(ring, Large, 3);
        QVERIFY(ring.put(1, ""));
        FILE* const stream = logger.duplicatedDescriptor();
        QCOMPARE(logger.rotation(0), status(-1));
        QVERIFY(fputs("x\n", stream) >= 0);
        QCOMPARE(fflush(stream), 0);
        QVERIFY(QFile::remove(ring.file(1)));
        QCOMPARE(logger.rotation(0), 1U);
        QVERIFY(logger.duplicatedDescriptor() == stream);
        logger.closeDuplicatedHandle();
    }

    void failedRotationHoldsNoFile()
    {
        const LogRing ring;
        QuietLogger logger(ring, Large, 3);
        const int before = openDescriptors();
        QVERIFY(ring.put(1, ""));
        QCOMPARE(logger.rotation(0), status(-1));
        QCOMPARE(openDescriptors(), before - 1);
    }

    void rotationWithoutDescriptorsWarnsAndCarriesOn()
    {
#ifdef __SANITIZE_ADDRESS__
        QSKIP("the sanitizers' own checks need descriptors");
#endif
        const LogRing ring;
        const ChildResult child = runChild({ring.name()});
        QCOMPARE(child.exitCode, 0);
        QCOMPARE(ring.bytes(1), QByteArray("first\n"));
        const QByteArrayList messages = linesIn(child.err);
        QCOMPARE(messages.size(), 1);
        const QByteArray message = messages.first();
        QVERIFY2(message.startsWith("warning|"), message.constData());
        QVERIFY2(message.contains("Echec de la duplioation du descripteur de journal : "),
                 message.constData());
        QVERIFY2(message.contains(QByteArray("void Logger::duplicateLogFile() -> ") +
                                  strerrordesc_np(EMFILE)),
                 message.constData());
        QCOMPARE(child.out, QByteArray("no stream\n"));
    }
};

namespace {

/// A zone whose days all have 24 hours, set before the application object reads it.
const bool s_zoneIsSet = qputenv("TZ", "UTC0");

} // namespace

KEZ_TEST_MAIN_WITH_CHILDREN(TestLoggerRotation, childMain)
#include "tst_loggerrotation.moc"
