// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/childoutput.h"
#include "support/environmentguard.h"
#include "support/failuretext.h"
#include "support/interposed.h"
#include "support/language.h"
#include "support/logring.h"
#include "support/messagecapture.h"
#include "support/opendescriptors.h"

#include <kez/initlib.h>
#include <kez/logger.h>
#include <kez/service/logringcheck.h>

#include <QDir>
#include <QMap>
#include <QRandomGenerator>
#include <QTest>

#include <algorithm>
#include <cerrno>
#include <limits>

#include <dirent.h>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace KezService;

namespace {

/// After so many renames, those of ring files fail; negative for never.
int soundRenames = -1;
int renames = 0;

/// The errors of opendir and of the first readdir; 0 for none.
int openError = 0;
int readError = 0;

} // namespace

extern "C" {

int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to,
              unsigned int flags) noexcept
{
    static const auto original =
        interposed<int (*)(int, const char*, int, const char*, unsigned int)>("renameat2");
    if (soundRenames >= 0 && renames >= soundRenames) {
        errno = EACCES;
        return -1;
    }
    const int status = original(fromDirectory, from, toDirectory, to, flags);
    if (status == 0)
        ++renames;
    return status;
}

DIR* opendir(const char* path)
{
    static const auto original = interposed<DIR* (*)(const char*)>("opendir");
    if (openError == 0)
        return original(path);
    errno = openError;
    return nullptr;
}

struct dirent* readdir(DIR* directory)
{
    static const auto original = interposed<struct dirent* (*)(DIR*)>("readdir");
    if (readError == 0)
        return original(directory);
    errno = readError;
    return nullptr;
}
}

namespace {

constexpr quint32 Century = 36500;
constexpr quint32 Largest = std::numeric_limits<quint32>::max();

using Indexes = QList<quint32>;
using Strings = QStringList;

QByteArray content(quint32 index)
{
    return "lines of " + QByteArray::number(index) + '\n';
}

bool fill(const LogRing& ring, const Indexes& indexes)
{
    return std::all_of(indexes.begin(), indexes.end(),
                       [&](quint32 index) { return ring.put(index, content(index)); });
}

/// What the files 0, 1, ... of the ring held before, up to the first one that is missing.
QByteArrayList contents(const LogRing& ring)
{
    QByteArrayList result;
    for (uint i = 0; ring.has(i); ++i)
        result.append(ring.bytes(i));
    return result;
}

/// The contents of all files in the directory, sorted.
QByteArrayList allContents(const LogRing& ring)
{
    QByteArrayList result;
    for (const QString& name : ring.names())
        result.append(readFile(ring.path() + '/' + name));
    std::sort(result.begin(), result.end());
    return result;
}

/// The indexes that are in the ring after a check, as the rule says it: those below `kept`, those
/// that follow from there without a gap, and of all these the newest `kept`.
Indexes expectedRing(Indexes indexes, quint32 kept)
{
    std::sort(indexes.begin(), indexes.end());
    Indexes ring;
    quint64 next = kept;
    for (const quint32 index : indexes) {
        if (index < kept || index == next) {
            ring.append(index);
            next = index == next ? next + 1 : next;
        }
    }
    return ring.mid(std::max<qsizetype>(0, ring.size() - kept));
}

QByteArrayList contentsOf(const Indexes& indexes)
{
    QByteArrayList result;
    for (const quint32 index : indexes)
        result.append(content(index));
    return result;
}

/// Logs numbered lines that make the ring rotate several times; false if one did not reach a file.
bool logsAndRotates(const LogRing& ring, quint32 kept)
{
    const MessageCapture capture;
    const int lines = int(kept) * 4 + 7;
    {
        Logger logger(ring.name(), 40, kept, Century, LoggerLevel::debug, plainFormatter);
        logger.disableTee();
        for (int i = 0; i < lines; ++i)
            logger.info(QStringLiteral("numbered line %1").arg(i));
        logger.closeDuplicatedHandle();
    }
    // Two lines fit into a file, so the last lines of the ring are the last ones that were logged.
    const QByteArrayList logged = ring.allLines(kept);
    const auto newest = std::min<qsizetype>(logged.size(), 2 * qsizetype(kept) - 1);
    for (qsizetype i = 1; i <= newest; ++i) {
        if (logged.at(logged.size() - i) != "numbered line " + QByteArray::number(lines - i))
            return false;
    }
    return capture.messages().isEmpty() && newest > 0;
}

int childMain(const QStringList& arguments)
{
    kezEnsureInit();
    useLanguage(QStringLiteral("en_US"));
    if (!becomeOrdinaryUser())
        return 1;
    for (const QString& text : checkLogRing(arguments.value(0), 5).texts)
        say(QString(text).remove(QFileInfo(arguments.value(0)).path() + '/'));
    return 0;
}

} // namespace

class TestLogRingCheck : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { useLanguage(QStringLiteral("en_US")); }
    void init() { forgetFaults(); }
    void cleanup() { forgetFaults(); }

    // --- Rings

    void ringIsRepaired_data()
    {
        QTest::addColumn<Indexes>("indexes");
        QTest::addColumn<quint32>("kept");
        QTest::addColumn<Indexes>("ring");  // which ones it holds then
        QTest::addColumn<Strings>("aside"); // and which names are new beside them
        const auto row = [](const char* name, const Indexes& indexes, quint32 kept,
                            const Indexes& ring, const Strings& aside = {}) {
            QTest::newRow(name) << indexes << kept << ring << aside;
        };
        row("no file", {}, 5, {});
        row("sound", {0, 1, 2}, 5, {0, 1, 2});
        row("full", {0, 1, 2}, 3, {0, 1, 2});
        row("gap at 0", {1, 2, 3}, 5, {1, 2, 3});
        row("gap in the middle", {0, 1, 3, 4}, 5, {0, 1, 3, 4});
        row("several gaps", {1, 3, 4, 7, 9}, 10, {1, 3, 4, 7, 9});
        row("only the last index", {4}, 5, {4});
        row("more than nine files", {0, 2, 9, 10, 11, 99}, 100, {0, 2, 9, 10, 11, 99});
        row("status of a failed rotation", {0, 1, 4294967293}, 5, {0, 1},
            {"app-4294967293.log.aside"});
        row("only a foreign index", {4294967295}, 5, {}, {"app-4294967295.log.aside"});
        row("index above the ring", {0, 1, 7}, 5, {0, 1}, {"app-7.log.aside"});
        row("gap and foreign index", {1, 20240115}, 5, {1}, {"app-20240115.log.aside"});
        row("kept lowered by one", {0, 1, 2, 3}, 3, {1, 2, 3}, {"app-0.log.aside"});
        row("kept lowered by many", {0, 1, 2, 3, 4, 5, 6, 7}, 2, {6, 7},
            {"app-0.log.aside", "app-1.log.aside", "app-2.log.aside", "app-3.log.aside",
             "app-4.log.aside", "app-5.log.aside"});
        row("kept lowered, with room below", {1, 5, 6}, 5, {1, 5, 6});
        row("kept lowered, gap in the ring", {0, 2, 3}, 3, {0, 2, 3});
        row("kept lowered, gap above the ring", {0, 1, 2, 3, 5, 6}, 3, {1, 2, 3},
            {"app-0.log.aside", "app-5.log.aside", "app-6.log.aside"});
        row("all above a lowered ring", {5, 6, 7, 8, 9}, 5, {5, 6, 7, 8, 9});
        row("one file kept", {0, 1}, 1, {1}, {"app-0.log.aside"});
        row("0 means 5", {0, 2, 3, 4, 9}, 0, {0, 2, 3, 4}, {"app-9.log.aside"});
        row("huge ring", {0, 4294967293}, Largest, {0, 4294967293});
        row("above a huge ring", {0, Largest}, Largest, {0, Largest});
    }
    void ringIsRepaired()
    {
        QFETCH(const Indexes, indexes);
        QFETCH(const quint32, kept);
        QFETCH(const Indexes, ring);
        QFETCH(const Strings, aside);
        const LogRing files;
        QVERIFY(fill(files, indexes));
        const QByteArrayList before = allContents(files);
        const int descriptors = openDescriptors();

        const RingReport report = checkLogRing(files.name(), kept);

        QVERIFY(report.isRingSound);
        QCOMPARE(contents(files), contentsOf(ring));
        QCOMPARE(files.names().filter(QRegularExpression("aside")), aside);
        QCOMPARE(files.names().size(), ring.size() + aside.size());
        QCOMPARE(allContents(files), before);
        QCOMPARE(report.putAside.size(), aside.size());
        QCOMPARE(report.texts.size(), report.putAside.size() + report.moved.size());
        QCOMPARE(openDescriptors(), descriptors);

        QCOMPARE(checkLogRing(files.name(), kept).texts, QStringList());
        QCOMPARE(contents(files), contentsOf(ring));
        QVERIFY(logsAndRotates(files, kept == 0 ? 5 : std::min(kept, 7U)));
    }

    void reportSaysWhatIsWhere()
    {
        const LogRing ring;
        QVERIFY(fill(ring, {1, 4, 5, 9}) && ring.put(5, "torn"));
        const RingReport report = checkLogRing(ring.name(), 2);
        QVERIFY(report.isRingSound);
        QCOMPARE(report.moved.size(), 1);
        QCOMPARE(report.moved.first().from, ring.file(1));
        QCOMPARE(report.moved.first().to, ring.file(0));
        QCOMPARE(report.putAside.size(), 3);
        QCOMPARE(report.putAside.first().from, ring.file(4));
        QCOMPARE(report.putAside.first().to, ring.file(4) + ".aside");
        QCOMPARE(report.ended, QString());
        QCOMPARE(report.texts.last(),
                 "Log ring: there was a gap; " + ring.file(1) + " was renamed to app-0.log");
        QCOMPARE(report.texts.first(), "Log ring: " + ring.file(4) +
                                           " has no place in the ring; it was put aside as "
                                           "app-4.log.aside");
    }

    void textsAreInTheLanguageOfTheProcess()
    {
        const LogRing ring;
        QVERIFY(fill(ring, {0, 1}) && ring.put(1, "torn"));
        useLanguage(QStringLiteral("fr_FR"));
        const RingReport report = checkLogRing(ring.name(), 1);
        useLanguage(QStringLiteral("en_US"));
        QCOMPARE(report.texts.size(), 3);
        for (const QString& text : report.texts)
            QVERIFY2(text.startsWith("Anneau du journal : "), qPrintable(text));
    }

    void reportIsLoggedAsWarnings()
    {
        const LogRing ring;
        QVERIFY(fill(ring, {0, 2}));
        const RingReport report = checkLogRing(ring.name(), 5);
        Logger logger(ring.name(), 1 << 20, 5, Century, LoggerLevel::warning, &levelFormatter);
        logger.disableTee();
        report.logTo(logger);
        logger.closeDuplicatedHandle();
        QCOMPARE(ring.lines(1).last(),
                 QByteArray::number(LoggerLevel::warning) + ':' + report.texts.at(0).toUtf8());
    }

    void soundRingIsNotTouched()
    {
        const LogRing ring;
        QVERIFY(fill(ring, {0, 1, 2}));
        const RingReport report = checkLogRing(ring.name(), 5);
        QVERIFY(report.isRingSound && report.texts.isEmpty() && report.moved.isEmpty());
        QCOMPARE(renames, 0);
        QCOMPARE(contents(ring), contentsOf({0, 1, 2}));
    }

    // --- Names

    void otherNamesAreLeftAlone()
    {
        const LogRing ring;
        const QStringList others{"app.log",           "app-.log",
                                 "app-1.txt",         "app-1.log.gz",
                                 "app-1.log.aside",   "app-x.log",
                                 "app-+1.log",        "app- 1.log",
                                 "app-1-7.log",       "app-debug.log",
                                 "apple-7.log",       "ap-7.log",
                                 "app--7.log",        "App-7.log",
                                 "app-07.log.moving", QString::fromUtf8("app-\u0663.log"),
                                 ".app-7.log"};
        QVERIFY(fill(ring, {0}));
        for (const QString& name : others)
            QVERIFY(writeFile(ring.path() + '/' + name, "other"));
        const QStringList before = ring.names();
        QCOMPARE(checkLogRing(ring.name(), 5).texts, QStringList());
        QCOMPARE(ring.names(), before);
    }

    void numberThatNoLoggerWritesIsPutAside_data()
    {
        QTest::addColumn<QString>("name");
        for (const char* number :
             {"00", "007", "0000000000000000000000001", "4294967296", "99999999999999999999"})
            QTest::newRow(number) << QStringLiteral("app-%1.log").arg(number);
    }
    void numberThatNoLoggerWritesIsPutAside()
    {
        QFETCH(const QString, name);
        const LogRing ring;
        QVERIFY(fill(ring, {0, 1}) && writeFile(ring.path() + '/' + name, "other"));
        const RingReport report = checkLogRing(ring.name(), 5);
        QCOMPARE(report.putAside.size(), 1);
        QCOMPARE(report.putAside.first().to, ring.path() + '/' + name + ".aside");
        QCOMPARE(ring.names().size(), 3);
        QCOMPARE(contents(ring), contentsOf({0, 1}));
    }

    void nameThatIsTakenIsNotReplaced()
    {
        const LogRing ring;
        const QString path = ring.file(9);
        QVERIFY(ring.put(9, "third"));
        QVERIFY(writeFile(path + ".aside", "first") && writeFile(path + ".aside-2", "second"));
        QCOMPARE(checkLogRing(ring.name(), 5).putAside.first().to, path + ".aside-3");
        QCOMPARE(readFile(path + ".aside"), QByteArray("first"));
        QCOMPARE(readFile(path + ".aside-2"), QByteArray("second"));
        QCOMPARE(readFile(path + ".aside-3"), QByteArray("third"));
    }

    void ringIsTheOneThatTheLoggerOpens_data()
    {
        QTest::addColumn<QString>("fileName"); // with %1 for a directory
        QTest::newRow("absolute") << "%1/app";
        QTest::newRow("with the suffix") << "%1/app.log";
        QTest::newRow("with two suffixes") << "%1/app.log.log";
        QTest::newRow("other suffix") << "%1/app.txt";
        QTest::newRow("bare name, in the home directory") << "app";
        QTest::newRow("relative") << "./app";
        QTest::newRow("above") << "%1/sub/../app";
        QTest::newRow("two slashes") << "%1//app";
        QTest::newRow("no base") << "%1/";
        QTest::newRow("suffix only") << "%1/.log";
        QTest::newRow("with a number") << "%1/app-1";
        QTest::newRow("with a marker") << "%1/a%d.log";
        QTest::newRow("accents") << QString::fromUtf8("%1/équipe n° 1");
        QTest::newRow("line feed") << "%1/a\nb";
    }
    void ringIsTheOneThatTheLoggerOpens()
    {
        QFETCH(const QString, fileName);
        const LogRing ring;
        QVERIFY(QDir(ring.path()).mkdir("sub"));
        const EnvironmentGuard home("HOME", QFile::encodeName(ring.path()));
        const QString before = QDir::currentPath();
        QVERIFY(QDir::setCurrent(ring.path()));
        const QString given =
            fileName.contains("%1") ? QString(fileName).replace("%1", ring.path()) : fileName;
        Logger(given, 0, 5, Century, LoggerLevel::debug).close();
        const QString made = ring.names().filter("-0.log").value(0);
        QVERIFY(!made.isEmpty());
        const QString moved = QString(made).replace("-0.log", "-3.log");
        QVERIFY(QFile::rename(made, moved));

        const RingReport report = checkLogRing(given, 5);
        QDir::setCurrent(before);

        QVERIFY(ring.names().contains(made) && !ring.names().contains(moved));
        QCOMPARE(report.texts.size(), 1);
        QVERIFY(!report.texts.first().contains('\n'));
    }

    // --- Why a gap has to be closed

    void rotationNeedsAllFilesButTheOldest_data()
    {
        QTest::addColumn<uint>("missing");
        for (uint index = 0; index < 4; ++index)
            QTest::addRow("app-%u.log", index) << index;
    }
    void rotationNeedsAllFilesButTheOldest()
    {
        QFETCH(const uint, missing);
        const LogRing ring;
        QVERIFY(fill(ring, {0, 1, 2, 3}));
        const MessageCapture capture;
        Logger logger(ring.name(), 15, 4, Century, LoggerLevel::debug, plainFormatter);
        logger.disableTee();
        QVERIFY(QFile::remove(ring.file(missing)));
        logger.info(QStringLiteral("newest"));
        logger.closeDuplicatedHandle();
        QCOMPARE(ring.bytes(3) == "newest\n", missing == 0);
        QCOMPARE(capture.texts().size(), missing == 0 ? 0 : 1);
    }

    // --- What is not a regular file

    void otherKindsArePutAside_data()
    {
        QTest::addColumn<int>("kind");
        QTest::newRow("directory") << int(S_IFDIR);
        QTest::newRow("fifo") << int(S_IFIFO);
        QTest::newRow("link to nothing") << int(S_IFLNK);
        QTest::newRow("link to a directory") << int(S_IFLNK | S_IFDIR);
    }
    void otherKindsArePutAside()
    {
        QFETCH(const int, kind);
        const LogRing ring;
        QVERIFY(fill(ring, {0, 1, 3}));
        const QByteArray path = QFile::encodeName(ring.file(2));
        if (kind == S_IFDIR)
            QCOMPARE(::mkdir(path.constData(), 0700), 0);
        else if (kind == S_IFIFO)
            QCOMPARE(::mkfifo(path.constData(), 0600), 0);
        else
            QVERIFY(QFile::link(kind == S_IFLNK ? "nowhere" : ring.path(), ring.file(2)));
        const RingReport report = checkLogRing(ring.name(), 5);
        QVERIFY(report.isRingSound);
        QCOMPARE(contents(ring), contentsOf({0, 1, 3}));
        struct stat info {};
        QCOMPARE(::lstat((path + ".aside").constData(), &info), 0);
        QCOMPARE(int(info.st_mode & S_IFMT), kind & S_IFLNK ? int(S_IFLNK) : kind);
    }

    void linkToAFileIsAFileOfTheRing()
    {
        const LogRing ring;
        QVERIFY(fill(ring, {0}) && writeFile(ring.path() + "/elsewhere", "torn"));
        QVERIFY(QFile::link(QStringLiteral("elsewhere"), ring.file(2)));
        const RingReport report = checkLogRing(ring.name(), 5);
        QVERIFY(report.isRingSound);
        QVERIFY(QFileInfo(ring.file(1)).isSymLink());
        QCOMPARE(report.ended, ring.file(1));
        QCOMPARE(readFile(ring.path() + "/elsewhere"), QByteArray("torn\n"));
    }

    // --- The last line

    void tornLastLineIsEnded_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<QByteArray>("after");
        QTest::newRow("torn") << QByteArray("a\nb") << QByteArray("a\nb\n");
        QTest::newRow("one byte") << QByteArray("a") << QByteArray("a\n");
        QTest::newRow("zeros") << QByteArray(3, '\0') << QByteArray("\0\0\0\n", 4);
        QTest::newRow("carriage return") << QByteArray("a\r") << QByteArray("a\r\n");
        QTest::newRow("whole") << QByteArray("a\n") << QByteArray("a\n");
        QTest::newRow("empty line") << QByteArray("\n") << QByteArray("\n");
        QTest::newRow("empty") << QByteArray() << QByteArray();
    }
    void tornLastLineIsEnded()
    {
        QFETCH(const QByteArray, before);
        QFETCH(const QByteArray, after);
        const LogRing ring;
        QVERIFY(ring.put(0, "older, torn") && ring.put(1, before));
        const RingReport report = checkLogRing(ring.name(), 5);
        QVERIFY(report.isRingSound);
        QCOMPARE(report.ended, before == after ? QString() : ring.file(1));
        QCOMPARE(report.texts.size(), before == after ? 0 : 1);
        QCOMPARE(ring.bytes(0), QByteArray("older, torn"));
        QCOMPARE(ring.bytes(1), after);
        QVERIFY(checkLogRing(ring.name(), 5).texts.isEmpty());
    }

    void newestFileIsEndedUnderItsNewName()
    {
        const LogRing ring;
        QVERIFY(fill(ring, {0, 2}) && ring.put(8, "torn") && ring.put(77, "foreign"));
        QCOMPARE(checkLogRing(ring.name(), 8).ended, ring.file(2));
        QCOMPARE(contents(ring), (QByteArrayList{content(0), content(2), "torn\n"}));
        QCOMPARE(readFile(ring.file(77) + ".aside"), QByteArray("foreign"));
    }

    void processLimitIsNotExceeded()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, QByteArray(100000, 'x')));
        rlimit usual{};
        QCOMPARE(getrlimit(RLIMIT_FSIZE, &usual), 0);
        const rlimit lowered{100000, usual.rlim_max};
        QCOMPARE(setrlimit(RLIMIT_FSIZE, &lowered), 0);
        const RingReport report = checkLogRing(ring.name(), 5); // else a signal ends the process
        setrlimit(RLIMIT_FSIZE, &usual);
        QVERIFY(!report.isRingSound);
        QCOMPARE(report.texts.size(), 1);
        QCOMPARE(ring.bytes(0).size(), 100000);
    }

    // --- Failures

    void directoryThatCannotBeListedIsAFailure()
    {
        const LogRing ring;
        QVERIFY(fill(ring, {1}));
        const QString missing = failureText([&] { checkLogRing(ring.path() + "/nowhere/app", 5); });
        QVERIFY2(missing.startsWith("Log ring: the directory " + ring.path() +
                                    "/nowhere/ cannot be listed: "),
                 qPrintable(missing));
        for (int* const error : {&openError, &readError}) {
            *error = EIO;
            const QString text = failureText([&] { checkLogRing(ring.name(), 5); });
            *error = 0;
            QVERIFY2(text.contains(ring.path()), qPrintable(text));
        }
        QVERIFY(ring.has(1));
        QVERIFY(!failureText([&] { checkLogRing(ring.file(1) + "/app", 5); }).isEmpty());
    }

    void failedRepairIsSaidAndKeepsTheOrder()
    {
        const LogRing ring;
        QVERIFY(fill(ring, {1, 3}) && ring.put(5, "torn"));
        soundRenames = 1;
        const RingReport report = checkLogRing(ring.name(), 6);
        QVERIFY(!report.isRingSound);
        QCOMPARE(ring.names(), (QStringList{"app-0.log", "app-3.log", "app-5.log"}));
        QCOMPARE(report.texts.size(), 3);
        QVERIFY2(report.texts.at(1).startsWith("Log ring: " + ring.file(3) +
                                               " could not be renamed to app-1.log: "),
                 qPrintable(report.texts.at(1)));
        QCOMPARE(report.ended, ring.file(5)); // the file that the logger opens
        QCOMPARE(ring.bytes(5), QByteArray("torn\n"));
    }

    void directoryInTheWayStopsTheRepair()
    {
        // Its aside name would be too long, so it stays.
        const LogRing ring;
        const QString base = ring.path() + '/' + QString(255 - 6, 'x');
        QVERIFY(QDir().mkdir(base + "-1.log"));
        for (const char* end : {"-0.log", "-2.log"})
            QVERIFY(writeFile(base + end, end));
        const RingReport report = checkLogRing(base, 5);
        QVERIFY(!report.isRingSound);
        QVERIFY(QFile::exists(base + "-2.log") && QDir(base + "-1.log").exists());
    }

    void rightsThatAreMissingAreSaid()
    {
        const LogRing ring;
        QVERIFY(fill(ring, {0, 2}));
        QVERIFY(openToEverybody(ring.path()));
        QCOMPARE(::chmod(QFile::encodeName(ring.path()).constData(), 0555), 0);
        QCOMPARE(::chmod(QFile::encodeName(ring.file(2)).constData(), 0), 0);
        const ChildResult child =
            runChild({ring.name()}, environmentUnder(QStringLiteral("C"), QStringLiteral("C")));
        QCOMPARE(::chmod(QFile::encodeName(ring.path()).constData(), 0755), 0);
        COMPARE_CHILD(child, "Log ring: app-2.log could not be renamed to app-1.log: "
                             "Permission denied\n"
                             "Log ring: the last line of app-2.log could not be checked or ended: "
                             "Permission denied\n");
    }

    // --- Crashes

    /// Every rename may be the last one of a check. The next check then makes the same ring.
    void nextCheckGoesOn_data()
    {
        QTest::addColumn<Indexes>("indexes");
        QTest::addColumn<quint32>("kept");
        QTest::newRow("gaps") << Indexes{1, 4, 5, 7} << 10U;
        QTest::newRow("lowered") << Indexes{0, 1, 2, 3, 4, 5, 6, 7, 8, 9} << 5U;
        QTest::newRow("lowered to one") << Indexes{0, 1, 2, 3} << 1U;
        QTest::newRow("lowered a lot") << Indexes{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11} << 3U;
        QTest::newRow("lowered, with gaps") << Indexes{1, 3, 4, 5, 6, 7} << 4U;
        QTest::newRow("foreign") << Indexes{0, 2, 9, 4294967293} << 4U;
        QTest::newRow("all") << Indexes{1, 3, 4, 5, 6, 8, 4294967291, 4294967295} << 4U;
    }
    void nextCheckGoesOn()
    {
        QFETCH(const Indexes, indexes);
        QFETCH(const quint32, kept);
        const QByteArrayList expected = contentsOf(expectedRing(indexes, kept));
        bool isWhole = false;
        for (int sound = 0; !isWhole; ++sound) {
            const LogRing ring;
            QVERIFY(fill(ring, indexes));
            const QByteArrayList before = allContents(ring);
            renames = 0;
            soundRenames = sound;
            isWhole = checkLogRing(ring.name(), kept).isRingSound;
            soundRenames = -1;
            QCOMPARE(allContents(ring), before);
            QVERIFY(checkLogRing(ring.name(), kept).isRingSound);
            QVERIFY2(contents(ring) == expected, qPrintable(QString::number(sound)));
            QCOMPARE(allContents(ring), before);
        }
    }

    void fileOnItsWayIsPutAsideIfItsPlaceIsTaken()
    {
        // A crash, then a service that grew its ring without a check.
        const LogRing ring;
        QVERIFY(fill(ring, {0, 1, 2}) && writeFile(ring.file(2) + ".moving", "older"));
        QVERIFY(checkLogRing(ring.name(), 5).isRingSound);
        QCOMPARE(contents(ring), contentsOf({0, 1, 2}));
        QCOMPARE(readFile(ring.file(2) + ".aside"), QByteArray("older"));
    }

    // --- Any ring

    void anyRingIsRepaired_data()
    {
        QTest::addColumn<quint32>("seed");
        for (quint32 seed = 1; seed <= 150; ++seed)
            QTest::addRow("%u", seed) << seed;
    }
    void anyRingIsRepaired()
    {
        QFETCH(const quint32, seed);
        QRandomGenerator random(seed);
        const quint32 kept = random.bounded(1, 12);
        const auto density = random.bounded(101);
        QMap<quint32, QByteArray> files;
        for (quint32 index = 0; index < 16; ++index) {
            if (random.bounded(100) < density)
                files.insert(index, QByteArray());
        }
        if (random.bounded(3) == 0)
            files.insert(random.generate(), QByteArray());
        const LogRing ring;
        for (auto file = files.begin(); file != files.end(); ++file) {
            QByteArray bytes = "file " + QByteArray::number(file.key());
            bytes += QByteArray(random.bounded(60), 'x') + (random.bounded(2) ? "\n" : "");
            *file = random.bounded(8) == 0 ? QByteArray() : bytes;
            QVERIFY(ring.put(file.key(), *file));
        }
        QByteArrayList expected;
        for (const quint32 index : expectedRing(files.keys(), kept))
            expected.append(files.value(index));
        if (!expected.isEmpty() && !expected.last().isEmpty() && !expected.last().endsWith('\n'))
            expected.last() += '\n';

        soundRenames = random.bounded(4) == 0 ? random.bounded(8) : -1;
        checkLogRing(ring.name(), kept);
        soundRenames = -1;
        const RingReport report = checkLogRing(ring.name(), kept);

        QVERIFY(report.isRingSound);
        // A check that was stopped may have ended the line of a file that is not the newest.
        QByteArrayList found = contents(ring);
        QCOMPARE(found.size(), expected.size());
        for (qsizetype i = 0; i < found.size(); ++i)
            QVERIFY(found.at(i) == expected.at(i) || found.at(i) == expected.at(i) + '\n');
        QCOMPARE(ring.names().size(), files.size());
        QVERIFY(checkLogRing(ring.name(), kept).texts.isEmpty());
        QVERIFY(logsAndRotates(ring, kept));
    }

private:
    static void forgetFaults()
    {
        soundRenames = -1;
        renames = openError = readError = 0;
    }
};

KEZ_TEST_MAIN_WITH_CHILDREN(TestLogRingCheck, childMain)
#include "tst_logringcheck.moc"
