// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "runnerfixture.h"
#include "service/journal_p.h"
#include "service/kittexts_p.h"
#include "support/childoutput.h"
#include "support/failuretext.h"
#include "support/interposed.h"
#include "support/tracelog.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <future>
#include <memory>
#include <new>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace KezService;
using namespace std::chrono_literals;

namespace {

/// What the functions below answer; 0 for the true answer.
namespace Faults {

std::atomic<int> deletionError = 0; // of the queue's files
std::atomic<int> deletions = 0;     // attempts
std::atomic<int> journalError = 0;  // when the journal is written
std::atomic<int> soundThreads = -1; // how many more can be started; -1 for any number

bool isJournal(int descriptor)
{
    const QByteArray link = "/proc/self/fd/" + QByteArray::number(descriptor);
    char path[4096];
    const ssize_t size = ::readlink(link.constData(), path, sizeof path - 1);
    path[std::max<ssize_t>(size, 0)] = '\0';
    return std::strstr(path, "/.kez/journal") != nullptr;
}

} // namespace Faults

} // namespace

extern "C" {

int unlinkat(int directory, const char* path, int flags) noexcept
{
    static const auto original = interposed<int (*)(int, const char*, int)>("unlinkat");
    if (std::strncmp(path, "order", 5) == 0) {
        ++Faults::deletions;
        if (Faults::deletionError != 0) {
            errno = Faults::deletionError;
            return -1;
        }
    }
    return original(directory, path, flags);
}

ssize_t write(int descriptor, const void* bytes, size_t size)
{
    static const auto original = interposed<ssize_t (*)(int, const void*, size_t)>("write");
    if (Faults::journalError != 0 && Faults::isJournal(descriptor)) {
        errno = Faults::journalError;
        return -1;
    }
    return original(descriptor, bytes, size);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*function)(void*),
                   void* argument) noexcept
{
    static const auto original =
        interposed<int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>(
            "pthread_create");
    if (Faults::soundThreads >= 0 && --Faults::soundThreads < 0)
        return EAGAIN;
    return original(thread, attributes, function, argument);
}
}

namespace {

const Outcome Done = Outcome::done();

HandlerSettings patient()
{
    HandlerSettings settings;
    settings.firstPause = settings.longestPause = 1h;
    return settings;
}

/// The lines from level info on, without those about the start and the stop.
QStringList said(const TraceLog& log)
{
    static const QString start = "1" + kitText("RunnerStarted").section('[', 0, 0);
    static const QString stop = "1" + kitText("RunnerStopped").section('[', 0, 0);
    const QStringList all = log.texts();
    QStringList lines; // a new list: threads that log share the other one
    for (const QString& line : all) {
        if (!line.startsWith(start) && !line.startsWith(stop))
            lines.append(line);
    }
    return lines;
}

/// A handler that notes the names that it is given.
Handler noting(Calls& calls)
{
    return [&calls](const FileAtHand& file) {
        calls.note(file.name);
        return Done;
    };
}

QString line(int level, const QString& text)
{
    return QString::number(level) + text;
}

/// As if the process had died while `consumer` handled the files.
void leaveUnfinished(const Spool& spool, const QString& consumer, const QStringList& names)
{
    QDir(spool.path()).mkdir(".kez");
    Journal journal(spool.path(), {consumer}, true);
    for (const QString& name : names) {
        const auto stamp = stampOf(QFile::encodeName(spool.pathOf(name)));
        const quint64 number = journal.enter({{name, *stamp}}).front().number;
        const Journal::Step step{Journal::Step::Begun, number, 0};
        journal.record({&step, 1});
    }
}

/// Gives orders to a runner, and knows in which state they should bring it.
class OrderedRunner {
public:
    OrderedRunner(const Spool& spool, const Handler& handler)
        : _spool(spool), _runner(settingsFor(spool))
    {
        HandlerSettings settings = quickSettings();
        settings.threads = 2;
        _runner.addConsumer("only", handler, settings);
    }

    /// Begin, pause, resume, stop, put a file, wait. False if that does not go as it should.
    bool follow(char order)
    {
        switch (order) {
        case 'b':
            return begin();
        case 'p':
            _isPaused = isBetween();
            return _runner.pause(10s);
        case 'r':
            _isPaused = false;
            _runner.resume();
            return true;
        case 's':
            _isPaused = false;
            _hasEnded = _isBegun;
            return _runner.stop(10s).isClean();
        case 'f':
            return _spool.put(QString("more-%1").arg(_filesPut++));
        case 'w':
            QTest::qWait(20);
            return true;
        default:
            return false;
        }
    }

    bool isAsExpected() const
    {
        return _runner.isRunning() == isBetween() && _runner.isPaused() == _isPaused;
    }

    bool mayWork() const { return isBetween() && !_isPaused; }
    qsizetype filesPut() const { return _filesPut; }

private:
    bool isBetween() const { return _isBegun && !_hasEnded; }

    bool begin()
    {
        const bool isRefused = !failureText([this] { _runner.start(); }).isNull();
        return isRefused == std::exchange(_isBegun, true);
    }

    const Spool& _spool;
    FileRunner _runner;
    bool _isBegun = false;
    bool _hasEnded = false;
    bool _isPaused = false;
    qsizetype _filesPut = 0;
};

double processorTime()
{
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) + 1e-9 * double(time.tv_nsec);
}

} // namespace

class TestRunnerFaults : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void removedSpoolIsSaidOnce();
    void spoolThatComesBackRepeatsNothing();
    void spoolThatFlickersRepeatsNothing();
    void missingRightsRepeatNothing();
    void fileAtWorkOutlivesALossOfTheSpool();
    void verdictOutlivesALossOfTheQuarantine();
    void journalIsWrittenAgainAfterAFullDisk();
    void undeletableFileIsNotHandledAgain();
    void undeletableFileIsKnownWithOtherRights();
    void undeletableFileIsKnownAfterARestart();
    void replacementOfAnUndeletableFileIsHandled();
    void fileLinkedAgainIsHandledAgain();
    void removedHiddenDirectoryIsMadeAgain();
    void runnerStandsStillWhileAnotherHasTheSpool();
    void slowHandlerIsSaidOnce();
    void longAndOddNamesAreHandledAndQuarantined();
    void exhaustedMemoryIsRetry();
    void costGrowsWithTheNumberOfFiles();
    void stopWhileRetriesWait();
    void stopDuringSuspicion();
    void suspectsAreHandledOneByOne();
    void vanishedSuspectHoldsUpNobody();
    void slowSuspectHoldsUpTheOthersForAWhile();
    void causeIsQuarantinedOnlyOnce();
    void ordersInAnySequenceAreFollowed_data();
    void ordersInAnySequenceAreFollowed();
    void runnerIsDestroyedAtWork();
    void failedStartLeavesTheSpoolFree_data();
    void failedStartLeavesTheSpoolFree();
    void limitsMayBeVeryLong();
    void relativeDirectoriesStay();
    void runnersMayShareAQuarantine();
    void announcementsAreBounded();
};

void TestRunnerFaults::cleanup()
{
    Faults::deletionError = 0;
    Faults::journalError = 0;
    Faults::soundThreads = -1;
}

void TestRunnerFaults::removedSpoolIsSaidOnce()
{
    const Spool spool;
    QVERIFY(spool.putMany(3));
    const TraceLog log(LoggerLevel::info);
    Calls calls;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("first", noting(calls));
    runner.addConsumer(
        "second",
        [](const FileAtHand& file) {
            return file.name.startsWith("new") ? Outcome::reject("no") : Outcome::retry("later");
        },
        patient());
    runner.start();
    QTRY_COMPARE(calls.count(), qsizetype(3));
    QTRY_COMPARE(runner.progress().consumers.at(1).retrying, qint64(3));
    const qsizetype before = said(log).size();
    QVERIFY(QDir().rename(spool.path(), spool.beside("away"))); // at once
    QTRY_COMPARE(said(log).mid(before),
                 QStringList{line(3, kitText("RunnerSpoolLost", spool.path()))});
    QVERIFY(QDir(spool.beside("away")).removeRecursively());
    QTest::qWait(1200); // it looks again, and the status is due
    QVERIFY(QDir().mkdir(spool.path()));
    QVERIFY(spool.put("new"));
    QTRY_COMPARE_WITH_TIMEOUT(calls.count("new"), qsizetype(1), 15000);
    QTRY_COMPARE(spool.quarantined(), QStringList{"new"});
    QTRY_VERIFY(!spool.holds("new"));
    QTRY_COMPARE(runner.progress().files, qint64(0));
    QTRY_VERIFY(QFile::exists(spool.pathOf(".kez/status.json")));
    QCOMPARE(said(log).mid(before),
             QStringList({line(3, kitText("RunnerSpoolLost", spool.path())),
                          line(1, kitText("RunnerSpoolBack", spool.path())),
                          line(3, kitText("RunnerQuarantined", QString("new"), QString("second"),
                                          QString("no"), QString("new")))}));
    FileRunner other(settingsFor(spool));
    other.addConsumer("only", noting(calls));
    QVERIFY(failureText([&] { other.start(); }).contains(spool.path()));
    QVERIFY(runner.stop(10s).isClean());
    QVERIFY(readFile(spool.pathOf(".kez/journal")).startsWith("kez-journal 1\n"));
    QCOMPARE(calls.count(), qsizetype(4));
}

void TestRunnerFaults::spoolThatComesBackRepeatsNothing()
{
    const Spool spool;
    QVERIFY(spool.putMany(10));
    const TraceLog log(LoggerLevel::error);
    Calls calls;
    Calls others;
    {
        FileRunner runner(settingsFor(spool));
        runner.addConsumer("noting", noting(calls));
        runner.addConsumer(
            "retrying",
            [&](const FileAtHand& file) {
                others.note(file.name + QString::number(file.attempt));
                return Outcome::retry("later");
            },
            patient());
        runner.start();
        QTRY_COMPARE(runner.progress().consumers.at(1).retrying, qint64(10));
        for (int time = 1; time <= 2; ++time) {
            QTRY_COMPARE(calls.count(), qsizetype(10));
            QVERIFY(QDir().rename(spool.path(), spool.beside("away")));
            QTRY_COMPARE(said(log).size(), qsizetype(time));
            QVERIFY(QDir().rename(spool.beside("away"), spool.path()));
            QVERIFY(spool.put(QString("new-%1").arg(time)));
            QTRY_COMPARE_WITH_TIMEOUT(calls.count(QString("new-%1").arg(time)), qsizetype(1),
                                      15000);
            QTRY_COMPARE(runner.progress().files, qint64(10 + time));
            QVERIFY(QFile::remove(spool.pathOf(QString("new-%1").arg(time))));
            QTRY_COMPARE(runner.progress().files, qint64(9 + time));
            QVERIFY(spool.put(QString("other-%1").arg(time)));
            QTRY_COMPARE(others.count(QString("other-%1").arg(time) + '1'), qsizetype(1));
            calls.forget(QString("new-%1").arg(time));
            QTRY_COMPARE(calls.count(QString("other-%1").arg(time)), qsizetype(1));
            calls.forget(QString("other-%1").arg(time));
        }
        QVERIFY(runner.stop(10s).isClean());
    }
    // After a restart, too.
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("noting", noting(calls));
    runner.addConsumer("retrying", [](const FileAtHand& file) {
        return file.attempt == 2 ? Done : Outcome::reject("the attempts were not kept");
    });
    runner.start();
    QTRY_COMPARE(spool.names(), QStringList());
    QCOMPARE(calls.count(), qsizetype(10));
    QCOMPARE(spool.quarantined(), QStringList());
}

void TestRunnerFaults::spoolThatFlickersRepeatsNothing()
{
    constexpr int Files = 200;
    const Spool spool;
    const TraceLog log(LoggerLevel::fatal);
    QVERIFY(spool.putMany(Files));
    Calls calls;
    RunnerSettings settings = settingsFor(spool);
    settings.period = 1ms; // it looks at bad moments
    FileRunner runner(settings);
    runner.addConsumer("noting", noting(calls));
    runner.addConsumer("slow", [&](const FileAtHand&) {
        std::this_thread::sleep_for(1ms);
        return Done;
    });
    runner.start();
    while (runner.progress().files > 0) {
        QVERIFY(QDir().rename(spool.path(), spool.beside("away")));
        QVERIFY(QDir().rename(spool.beside("away"), spool.path()));
        QTest::qWait(5);
    }
    QTRY_COMPARE(spool.names(), QStringList());
    runner.stop(10s);
    QCOMPARE(calls.count(), qsizetype(Files));
}

void TestRunnerFaults::missingRightsRepeatNothing()
{
    const ChildResult child = runChild({"rights"});
    QVERIFY2(child.exitCode == 0, child.err.constData());
    QCOMPARE(child.out, QByteArray("lost\nback\nhandled\nonce\n"));
}

void TestRunnerFaults::fileAtWorkOutlivesALossOfTheSpool()
{
    const Spool spool;
    QVERIFY(spool.put("order"));
    const TraceLog log(LoggerLevel::error);
    std::promise<void> release;
    std::shared_future<void> isReleased = release.get_future().share();
    Calls calls;
    HandlerSettings settings;
    settings.threads = 2;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer(
        "only",
        [&](const FileAtHand& file) {
            calls.note(file.name);
            isReleased.wait();
            return Done;
        },
        settings);
    runner.start();
    QTRY_COMPARE(calls.count(), qsizetype(1));
    QVERIFY(QDir().rename(spool.path(), spool.beside("away")));
    QTRY_COMPARE(said(log).size(), qsizetype(1));
    QVERIFY(QDir().rename(spool.beside("away"), spool.path()));
    QVERIFY(spool.put("next")); // by the second thread
    QTRY_COMPARE_WITH_TIMEOUT(calls.count("next"), qsizetype(1), 15000);
    release.set_value();
    QTRY_COMPARE(spool.names(), QStringList());
    QCOMPARE(calls.count("order"), qsizetype(1));
}

void TestRunnerFaults::verdictOutlivesALossOfTheQuarantine()
{
    const Spool spool;
    const QString quarantine = spool.beside("bad");
    QVERIFY(QDir().mkdir(quarantine));
    const TraceLog log(LoggerLevel::warning);
    RunnerSettings settings = settingsFor(spool);
    settings.quarantine = quarantine;
    Calls calls;
    FileRunner runner(settings);
    runner.addConsumer(
        "only",
        [&](const FileAtHand& file) {
            calls.note(file.name);
            return file.name == u"good" ? Done : Outcome::reject("no");
        },
        quickSettings());
    runner.start();
    QVERIFY(QDir().rmdir(quarantine));
    QVERIFY(spool.put("a") && spool.put("b") && spool.put("good"));
    QTRY_VERIFY(!spool.holds("good"));
    QTRY_COMPARE(runner.progress().consumers.at(0).retrying, qint64(2));
    QCOMPARE(said(log), QStringList{line(3, kitText("RunnerQuarantineLost", quarantine,
                                                    systemErrorText(ENOENT)))});
    QVERIFY(spool.holds("a") && spool.holds("b"));
    QVERIFY(QDir().mkdir(quarantine));
    QTRY_COMPARE(QDir(quarantine).entryList(QDir::Files),
                 QStringList({"a", "a.txt", "b", "b.txt"}));
    QTRY_COMPARE(spool.names(), QStringList());
    QTRY_COMPARE(runner.progress().consumers.at(0).quarantined, qint64(2));
    QCOMPARE(said(log).size(), qsizetype(3));
    QCOMPARE(calls.count(), qsizetype(3)); // the verdict stood
}

void TestRunnerFaults::journalIsWrittenAgainAfterAFullDisk()
{
    const Spool spool;
    const TraceLog log(LoggerLevel::info);
    const QString journal = spool.pathOf(".kez/journal");
    Calls calls;
    {
        FileRunner runner(settingsFor(spool));
        runner.addConsumer("noting", noting(calls));
        runner.addConsumer(
            "late",
            [](const FileAtHand& file) {
                return file.name == u"order-000000" ? Outcome::retry("later") : Done;
            },
            patient());
        runner.start();
        Faults::journalError = ENOSPC;
        QVERIFY(spool.putMany(50));
        QTRY_COMPARE(spool.names(), QStringList{"order-000000"});
        Faults::journalError = 0;
        QTRY_COMPARE_WITH_TIMEOUT(said(log).size(), qsizetype(3), 15000);
        QCOMPARE(said(log).at(0),
                 line(3, kitText("JournalNotWritten", journal, systemErrorText(ENOSPC))));
        QVERIFY(said(log).contains(line(1, kitText("JournalWrittenAgain", journal))));
    }
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("noting", noting(calls));
    runner.addConsumer("late", [](const FileAtHand&) { return Done; });
    runner.start();
    QTRY_COMPARE(spool.names(), QStringList());
    QCOMPARE(calls.count(), qsizetype(50));
}

void TestRunnerFaults::undeletableFileIsNotHandledAgain()
{
    const Spool spool;
    const TraceLog log(LoggerLevel::warning);
    Calls calls;
    RunnerSettings settings = settingsFor(spool);
    settings.period = 50ms;
    FileRunner runner(settings);
    runner.addConsumer("only", noting(calls));
    runner.start();
    Faults::deletionError = EACCES;
    Faults::deletions = 0;
    QVERIFY(spool.put("order-1") && spool.put("order-2"));
    for (int i = 0; i < 10; ++i) { // the directory changes, too
        const QString name = QString("file-%1").arg(i);
        QVERIFY(spool.put(name));
        QTRY_VERIFY(!spool.holds(name));
    }
    QElapsedTimer time;
    time.start();
    QTRY_VERIFY_WITH_TIMEOUT(Faults::deletions >= 4, 15000); // at once, and then again
    // At once, after 0.8 s at least, after 1.6 s, ...: no loop.
    const qint64 bound = 2 * (2 + (time.elapsed() + 2000) / 800);
    QVERIFY2(Faults::deletions <= bound, QByteArray::number(Faults::deletions));
    QCOMPARE(calls.count("order-1"), qsizetype(1));
    QCOMPARE(calls.count("order-2"), qsizetype(1));
    QCOMPARE(runner.progress().files, qint64(0));
    QStringList lines = said(log);
    std::sort(lines.begin(), lines.end());
    QCOMPARE(lines, QStringList({line(3, kitText("RunnerNotDeleted", QString("order-1"))),
                                 line(3, kitText("RunnerNotDeleted", QString("order-2")))}));
    QVERIFY(QFile::remove(spool.pathOf("order-2"))); // by an operator
    Faults::deletionError = 0;
    QTRY_VERIFY_WITH_TIMEOUT(!spool.holds("order-1"), 30000);
    QVERIFY(spool.put("order-1"));
    QTRY_COMPARE(calls.count("order-1"), qsizetype(2)); // another file
    QTRY_VERIFY(!spool.holds("order-1"));
}

void TestRunnerFaults::undeletableFileIsKnownWithOtherRights()
{
    const Spool spool;
    const TraceLog log(LoggerLevel::error);
    Calls calls;
    RunnerSettings settings = settingsFor(spool);
    settings.period = 10ms;
    FileRunner runner(settings);
    runner.addConsumer("only", noting(calls));
    runner.start();
    Faults::deletionError = EPERM;
    QVERIFY(spool.put("order"));
    QTRY_COMPARE(said(log).size(), qsizetype(1));
    for (const auto rights : {QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup,
                              QFile::ReadOwner | QFile::WriteOwner}) {
        QVERIFY(QFile::setPermissions(spool.pathOf("order"), rights)); // by an operator
        QTest::qWait(100);
    }
    Faults::deletionError = 0;
    QTRY_VERIFY_WITH_TIMEOUT(!spool.holds("order"), 20000);
    QCOMPARE(calls.count(), qsizetype(1));
    QCOMPARE(said(log).size(), qsizetype(1));
}

void TestRunnerFaults::undeletableFileIsKnownAfterARestart()
{
    const Spool spool;
    const TraceLog log(LoggerLevel::warning);
    Calls calls;
    Faults::deletionError = EROFS;
    for (int start = 0; start < 3; ++start) {
        if (start == 0)
            QVERIFY(spool.put("order"));
        else if (start == 2)
            Faults::deletionError = 0;
        FileRunner runner(settingsFor(spool));
        runner.addConsumer("only", noting(calls));
        runner.start();
        QTRY_COMPARE(spool.names(), start == 2 ? QStringList() : QStringList{"order"});
        QTRY_COMPARE(runner.progress().files, qint64(0));
        QTRY_COMPARE(said(log).size(), qsizetype(std::min(start + 1, 2)));
        QCOMPARE(runner.stop(10s).waiting, qint64(0));
    }
    QCOMPARE(calls.count(), qsizetype(1));
}

void TestRunnerFaults::replacementOfAnUndeletableFileIsHandled()
{
    const Spool spool;
    std::mutex mutex;
    QList<QByteArray> contents;
    RunnerSettings settings = settingsFor(spool);
    settings.period = 20ms;
    const TraceLog log(LoggerLevel::error);
    FileRunner runner(settings);
    runner.addConsumer("only", [&](const FileAtHand& file) {
        const std::lock_guard lock(mutex);
        contents.append(readFile(file.path));
        return Done;
    });
    runner.start();
    Faults::deletionError = EACCES;
    QVERIFY(spool.put("order", "first"));
    QTRY_COMPARE(said(log).size(), qsizetype(1));
    QTest::qWait(100); // the queue offers it again
    Faults::deletionError = 0;
    QVERIFY(writeFile(spool.beside("other"), "second"));
    const QByteArray from = QFile::encodeName(spool.beside("other"));
    QCOMPARE(::rename(from.constData(), QFile::encodeName(spool.pathOf("order")).constData()), 0);
    QTRY_VERIFY(!spool.holds("order"));
    runner.stop(10s);
    QCOMPARE(contents, QList<QByteArray>({"first", "second"}));
}

void TestRunnerFaults::fileLinkedAgainIsHandledAgain()
{
    constexpr int Times = 20;
    const Spool spool;
    const TraceLog log(LoggerLevel::fatal);
    QVERIFY(writeFile(spool.beside("original"), "order"));
    const QByteArray from = QFile::encodeName(spool.beside("original"));
    const QByteArray to = QFile::encodeName(spool.pathOf("order"));
    Calls calls;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", noting(calls));
    runner.start();
    for (int time = 1; time <= Times; ++time) {
        QCOMPARE(::link(from.constData(), to.constData()), 0);
        while (::access(to.constData(), F_OK) == 0) {} // the very moment counts
    }
    QTRY_COMPARE(calls.count(), qsizetype(Times));
}

void TestRunnerFaults::removedHiddenDirectoryIsMadeAgain()
{
    const Spool spool;
    QVERIFY(spool.putMany(3));
    const TraceLog log(LoggerLevel::info);
    Calls calls;
    {
        FileRunner runner(settingsFor(spool));
        runner.addConsumer("noting", noting(calls));
        runner.addConsumer(
            "late",
            [](const FileAtHand& file) {
                if (file.name == u"good")
                    return Done;
                return file.name == u"bad" ? Outcome::reject("no") : Outcome::retry("later");
            },
            patient());
        runner.start();
        QTRY_COMPARE(runner.progress().consumers.at(1).retrying, qint64(3));
        QTRY_COMPARE(calls.count(), qsizetype(3));
        const qsizetype before = said(log).size();
        const QString hidden = spool.pathOf(".kez");

        QVERIFY(QFile::remove(hidden + "/status.json"));
        QVERIFY(QFile::remove(hidden + "/journal"));
        QTRY_VERIFY(QFile::exists(hidden + "/journal"));
        QVERIFY(spool.put("good"));
        QTRY_VERIFY(!spool.holds("good")); // the queue's thread does something else again
        QCOMPARE(said(log).mid(before),
                 QStringList{line(2, kitText("JournalRemoved", hidden + "/journal"))});

        QVERIFY(QDir().rename(hidden, spool.beside("away"))); // at once
        QTRY_VERIFY(QFile::exists(hidden + "/lock"));
        QTRY_VERIFY(QFile::exists(hidden + "/journal"));
        QCOMPARE(said(log).mid(before + 1),
                 QStringList{line(2, kitText("RunnerLockRemoved", hidden))});
        FileRunner other(settingsFor(spool));
        other.addConsumer("only", noting(calls));
        QVERIFY(failureText([&] { other.start(); }).contains(spool.path()));
        QVERIFY(spool.put("bad"));
        QTRY_COMPARE(spool.quarantined(), QStringList{"bad"});
        QTRY_VERIFY(!spool.holds("bad"));
        QTRY_VERIFY(QFile::exists(hidden + "/status.json"));
    }
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("noting", noting(calls));
    runner.addConsumer("late", [](const FileAtHand&) { return Done; });
    runner.start();
    QTRY_COMPARE(spool.names(), QStringList());
    QCOMPARE(calls.count(), qsizetype(5));
}

void TestRunnerFaults::runnerStandsStillWhileAnotherHasTheSpool()
{
    const Spool spool;
    const TraceLog log(LoggerLevel::info);
    Calls calls;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", noting(calls));
    runner.start();
    QVERIFY(spool.put("before"));
    QTRY_VERIFY(!spool.holds("before"));
    QTRY_VERIFY(QFile::exists(spool.pathOf(".kez/journal")));

    // A lock that is held takes the place of the runner's.
    const QByteArray theirs = QFile::encodeName(spool.pathOf(".kez/theirs"));
    const int lock = ::open(theirs.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    QVERIFY(lock >= 0);
    QCOMPARE(::flock(lock, LOCK_EX | LOCK_NB), 0);
    QCOMPARE(::write(lock, "4711\n", 5), ssize_t(5));
    QCOMPARE(::rename(theirs.constData(), QFile::encodeName(spool.pathOf(".kez/lock")).constData()),
             0);
    const qsizetype before = said(log).size();
    const QString taken = line(3, kitText("RunnerSpoolTaken", spool.path(), QString("4711")));
    QTRY_COMPARE(said(log).mid(before), QStringList{taken});
    QVERIFY(writeFile(spool.pathOf(".kez/theirs"), "their journal"));
    QCOMPARE(
        ::rename(theirs.constData(), QFile::encodeName(spool.pathOf(".kez/journal")).constData()),
        0);
    QVERIFY(spool.put("meanwhile"));
    QVERIFY(runner.pause(10s)); // does not set it going
    runner.resume();
    QTest::qWait(1500);
    QCOMPARE(calls.count(), qsizetype(1));
    QCOMPARE(said(log).mid(before), QStringList{taken});
    QCOMPARE(readFile(spool.pathOf(".kez/journal")), QByteArray("their journal"));

    ::close(lock);
    QTRY_COMPARE_WITH_TIMEOUT(calls.count("meanwhile"), qsizetype(1), 15000);
    QTRY_VERIFY(!spool.holds("meanwhile"));
    QCOMPARE(said(log).mid(before + 1),
             QStringList{line(1, kitText("RunnerSpoolBack", spool.path()))});
}

void TestRunnerFaults::slowHandlerIsSaidOnce()
{
    const Spool spool;
    QVERIFY(spool.put("slow"));
    const TraceLog log(LoggerLevel::info);
    std::promise<void> release;
    std::shared_future<void> isReleased = release.get_future().share();
    HandlerSettings settings;
    settings.slowAfter = 10ms;
    settings.threads = 2;
    FileRunner runner(settingsFor(spool));
    Calls calls;
    runner.addConsumer(
        "only",
        [&](const FileAtHand& file) {
            calls.note(file.name);
            if (file.name == u"slow")
                isReleased.wait();
            return Done;
        },
        settings);
    runner.start();
    QTRY_COMPARE(said(log).size(), qsizetype(1));
    static const QRegularExpression expected(
        '^' +
        QRegularExpression::escape(
            line(2, kitText("RunnerSlow", QString("slow"), QString("only"), QString("@"))))
            .replace("\\@", "\\d+") +
        '$');
    QVERIFY2(expected.match(said(log).first()).hasMatch(), qPrintable(said(log).first()));
    QVERIFY(spool.put("next"));
    QTRY_VERIFY(!spool.holds("next")); // the other thread goes on
    QTest::qWait(2200);                // two more looks
    QCOMPARE(said(log).size(), qsizetype(1));
    release.set_value();
    QTRY_VERIFY(!spool.holds("slow"));
    QVERIFY(spool.put("slow")); // quick this time
    QTRY_VERIFY(!spool.holds("slow"));
    QCOMPARE(said(log).size(), qsizetype(1));
}

void TestRunnerFaults::longAndOddNamesAreHandledAndQuarantined()
{
    const Spool spool;
    const QString box = QString::fromUtf8("\xF0\x9F\x93\xA6");
    const QStringList names{QString(255, 'a'), box.repeated(63) + "xyz", QString(127, u'é') + 'z',
                            "line\nfeed"};
    for (const QString& name : names) {
        QCOMPARE(QFile::encodeName(name).size() > 250, name != names.last());
        QVERIFY(spool.put(name));
    }
    const TraceLog log(LoggerLevel::error);
    Calls calls;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("noting", noting(calls));
    runner.addConsumer(
        "rejecting",
        [](const FileAtHand& file) {
            return file.attempt == 1 ? Outcome::retry("once more") : Outcome::reject("no");
        },
        quickSettings());
    runner.start();
    QTRY_COMPARE(spool.names(), QStringList());
    for (const QString& name : names)
        QCOMPARE(calls.count(name), qsizetype(1));
    QCOMPARE(spool.quarantined().size(), names.size());
    QCOMPARE(said(log).size(), names.size());
    QVERIFY(said(log).filter("line\\nfeed").size() == 1);
}

void TestRunnerFaults::exhaustedMemoryIsRetry()
{
    const Spool spool;
    const TraceLog log(LoggerLevel::fatal);
    QVERIFY(spool.put("order"));
    std::atomic<int> attempts = 0;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer(
        "only",
        [&](const FileAtHand&) {
            if (++attempts < 3)
                throw std::bad_alloc();
            return Done;
        },
        quickSettings());
    runner.start();
    QTRY_VERIFY(!spool.holds("order"));
    QCOMPARE(int(attempts), 3);
    QCOMPARE(spool.quarantined(), QStringList());
}

void TestRunnerFaults::costGrowsWithTheNumberOfFiles()
{
    // Eight times as many files cost about eight times as much. If each file were compared with all
    // others, they would cost 64 times as much. Only processor time counts, so that a busy machine
    // makes no difference.
    constexpr double Limit = 32;
    double few = 0;
    for (const int count : {2500, 20000}) {
        const TraceLog log(LoggerLevel::fatal);
        const Spool spool(Spool::fastParent());
        QVERIFY(spool.putMany(count));
        const QStringList names = spool.names();
        std::atomic<int> late = 0;
        Calls calls;
        const double before = processorTime();
        FileRunner runner(settingsFor(spool));
        runner.addConsumer("noting", noting(calls));
        runner.addConsumer(
            "retrying",
            [&late](const FileAtHand& file) {
                late += file.attempt == 2 ? 1 : 0;
                return file.attempt == 2 ? Done : Outcome::retry("later");
            },
            quickSettings());
        runner.start();
        QTRY_COMPARE_WITH_TIMEOUT(runner.progress().files, qint64(0), 120000);
        QVERIFY(runner.stop(60s).isClean());
        const double cost = processorTime() - before;
        QCOMPARE(spool.names(), QStringList());
        QVERIFY(calls.names() == names); // each one once, in order
        QCOMPARE(int(late), count);
        if (few > 0)
            QVERIFY2(cost < Limit * few, QByteArray::number(cost / few));
        few = cost;
    }
}

void TestRunnerFaults::stopWhileRetriesWait()
{
    const Spool spool;
    QVERIFY(spool.putMany(5));
    const TraceLog log(LoggerLevel::error);
    Calls calls;
    for (int start = 1; start <= 3; ++start) {
        FileRunner runner(settingsFor(spool));
        runner.addConsumer(
            "only",
            [&](const FileAtHand& file) {
                calls.note(file.name);
                return Outcome::retry("later");
            },
            patient());
        runner.start();
        QTRY_COMPARE(calls.count(), qsizetype(5 * start));
        const StopReport report = runner.stop(10s);
        QVERIFY(report.isClean());
        QCOMPARE(report.waiting, qint64(5));
        QCOMPARE(runner.progress().files, qint64(5));
        QCOMPARE(runner.progress().consumers.at(0).retrying, qint64(5));
    }
}

void TestRunnerFaults::stopDuringSuspicion()
{
    const Spool spool;
    QVERIFY(spool.putMany(4));
    leaveUnfinished(spool, "only", {"order-000001", "order-000002"});
    const TraceLog log(LoggerLevel::error);
    const auto release = std::make_shared<std::promise<void>>();
    const auto isReleased = std::make_shared<std::shared_future<void>>(release->get_future());
    Calls calls;
    {
        FileRunner runner(settingsFor(spool));
        const auto begun = std::make_shared<std::atomic<bool>>(false);
        runner.addConsumer("only", [isReleased, begun](const FileAtHand& file) {
            if (file.name != u"order-000001")
                qFatal("not alone");
            *begun = true;
            isReleased->wait();
            return Done;
        });
        runner.start();
        QTRY_VERIFY(*begun);
        const StopReport report = runner.stop(10ms);
        QCOMPARE(report.left.size(), qsizetype(1));
        QCOMPARE(report.waiting, qint64(4));
    }
    release->set_value();
    QTRY_VERIFY(
        failureText([&] {
            FileRunner runner(settingsFor(spool));
            runner.addConsumer("only", noting(calls));
            runner.start(); // when the handler that was left behind has given the spool free
            QTRY_COMPARE(spool.names(), QStringList());
        }).isNull());
    // What it did at last counts.
    QCOMPARE(calls.names(), QStringList({"order-000002", "order-000000", "order-000003"}));
    QCOMPARE(spool.quarantined(), QStringList());
}

void TestRunnerFaults::suspectsAreHandledOneByOne()
{
    const Spool spool;
    const TraceLog log(LoggerLevel::fatal);
    QVERIFY(spool.putMany(20));
    leaveUnfinished(spool, "only", {"order-000003", "order-000007", "order-000008"});
    std::atomic<int> atWork = 0;
    std::atomic<int> company = 0;
    Calls calls;
    HandlerSettings settings;
    settings.threads = 4;
    FileRunner runner(settingsFor(spool));
    const auto handler = [&](const FileAtHand& file) {
        const bool isSuspect = calls.count() < 3;
        calls.note(file.name);
        company += ++atWork > 1 && isSuspect ? 1 : 0;
        std::this_thread::sleep_for(5ms);
        company += atWork > 1 && isSuspect ? 1 : 0;
        --atWork;
        return Done;
    };
    runner.addConsumer("only", handler, settings);
    runner.addConsumer("other", [&](const FileAtHand&) {
        ++atWork;
        std::this_thread::sleep_for(1ms);
        --atWork;
        return Done;
    });
    runner.start();
    QTRY_COMPARE(spool.names(), QStringList());
    QCOMPARE(calls.names().first(3), QStringList({"order-000003", "order-000007", "order-000008"}));
    QCOMPARE(calls.count(), qsizetype(20));
    QCOMPARE(int(company), 0);
}

void TestRunnerFaults::vanishedSuspectHoldsUpNobody()
{
    const Spool spool;
    const TraceLog log(LoggerLevel::warning);
    QVERIFY(spool.putMany(4));
    leaveUnfinished(spool, "only", {"order-000001", "order-000002"});
    std::promise<void> release;
    std::shared_future<void> isReleased = release.get_future().share();
    Calls calls;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", [&](const FileAtHand& file) {
        calls.note(file.name);
        if (file.name == u"order-000001")
            isReleased.wait();
        return Done;
    });
    runner.start();
    QTRY_COMPARE(calls.count(), qsizetype(1));
    QVERIFY(QFile::remove(spool.pathOf("order-000002")));
    QTRY_COMPARE(runner.progress().files, qint64(3));
    release.set_value();
    QTRY_COMPARE(spool.names(), QStringList());
    QCOMPARE(calls.names(), QStringList({"order-000001", "order-000000", "order-000003"}));
    // Nobody took up the one that was gone.
    QCOMPARE(said(log), QStringList{line(2, kitText("RunnerSuspect", QString("order-000001"),
                                                    QString("only")))});
}

void TestRunnerFaults::slowSuspectHoldsUpTheOthersForAWhile()
{
    const Spool spool;
    const TraceLog log(LoggerLevel::fatal);
    QVERIFY(spool.putMany(3));
    leaveUnfinished(spool, "only", {"order-000001"});
    std::promise<void> release;
    std::shared_future<void> isReleased = release.get_future().share();
    Calls others;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", [&](const FileAtHand& file) {
        if (file.name == u"order-000001")
            isReleased.wait();
        return Done;
    });
    runner.addConsumer("other", noting(others));
    runner.start();
    QTest::qWait(300);
    QCOMPARE(others.count(), qsizetype(0));
    QTRY_COMPARE_WITH_TIMEOUT(others.count(), qsizetype(3), 15000);
    const QByteArray journal = readFile(spool.pathOf(".kez/journal"));
    QVERIFY2(journal.contains("\nJ 1 0 "), journal);
    release.set_value();
    QTRY_COMPARE(spool.names(), QStringList());
}

void TestRunnerFaults::causeIsQuarantinedOnlyOnce()
{
    const Spool spool;
    QVERIFY(spool.putMany(3));
    for (int death = 0; death < 2; ++death)
        leaveUnfinished(spool, "only", {"order-000001"});
    const TraceLog log(LoggerLevel::error);
    Calls calls;
    Calls others;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", noting(calls));
    runner.addConsumer("other", noting(others));
    runner.start();
    QTRY_COMPARE(spool.names(), QStringList());
    QCOMPARE(calls.names(), QStringList({"order-000000", "order-000002"}));
    QCOMPARE(others.count(), qsizetype(3)); // it ends the process in one handler only
    QCOMPARE(spool.quarantined(), QStringList{"order-000001"});
    const QByteArray text = spool.quarantineText("order-000001");
    const QString reason = kitText("RunnerProcessDied", QString("2"));
    QVERIFY2(text.contains("\nreason=" + reason.toUtf8() + '\n'), text);
    QVERIFY2(text.contains("\ntries=2\n"), text);
    QCOMPARE(said(log).size(), qsizetype(1));
}

void TestRunnerFaults::ordersInAnySequenceAreFollowed_data()
{
    QTest::addColumn<QByteArray>("orders"); // see OrderedRunner
    for (const char* const orders :
         {"bs",     "bpwrws",     "bpws",       "bppwrrws", "brs", "bsprs", "bsss", "pbws",
          "pwrbws", "bprprprprs", "bpfwrfwpfs", "bprs",     "bpp", "bp",    "b",    "bpr",
          "bss",    "",           "p",          "s",        "pr",  "sb"})
        QTest::newRow(orders) << QByteArray(orders);
}

void TestRunnerFaults::ordersInAnySequenceAreFollowed()
{
    QFETCH(const QByteArray, orders);
    const Spool spool;
    QVERIFY(spool.putMany(30));
    const TraceLog log(LoggerLevel::error);
    Calls calls;
    std::atomic<int> atWork = 0;
    const Handler handler = [&](const FileAtHand& file) {
        ++atWork;
        calls.note(file.name);
        std::this_thread::sleep_for(1ms);
        --atWork;
        return file.attempt % 2 == 1 ? Outcome::retry("again") : Done;
    };
    qsizetype files = 30;
    {
        OrderedRunner runner(spool, handler);
        for (const char order : orders) {
            QVERIFY(runner.follow(order));
            QVERIFY(runner.isAsExpected());
            if (!runner.mayWork())
                QCOMPARE(int(atWork), 0);
        }
        const qsizetype before = calls.count();
        QTest::qWait(runner.mayWork() ? 0 : 20);
        QVERIFY(runner.mayWork() || calls.count() == before);
        files += runner.filesPut();
    }
    QCOMPARE(int(atWork), 0);
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", handler, quickSettings());
    runner.start();
    QTRY_COMPARE(spool.names(), QStringList());
    QCOMPARE(calls.count(), 2 * files); // what was done is not repeated
    QCOMPARE(spool.quarantined(), QStringList());
    QCOMPARE(said(log), QStringList());
}

void TestRunnerFaults::runnerIsDestroyedAtWork()
{
    const Spool spool;
    QVERIFY(spool.putMany(20));
    const TraceLog log(LoggerLevel::error);
    Calls calls;
    for (int start = 0; start < 10; ++start) {
        FileRunner runner(settingsFor(spool));
        runner.addConsumer("only", [&](const FileAtHand& file) {
            std::this_thread::sleep_for(1ms);
            calls.note(file.name);
            return Done;
        });
        runner.start();
        const qsizetype before = calls.count();
        QTRY_VERIFY(calls.count() > before || spool.names().isEmpty());
    }
    QTRY_COMPARE(spool.names(), QStringList());
    QCOMPARE(calls.count(), qsizetype(20));
    QCOMPARE(said(log), QStringList());
}

void TestRunnerFaults::failedStartLeavesTheSpoolFree_data()
{
    QTest::addColumn<QByteArray>("fault");
    QTest::newRow("no quarantine") << QByteArray("quarantine");
    QTest::newRow("no thread for the queue") << QByteArray("0");
    QTest::newRow("no thread for a handler") << QByteArray("1");
    QTest::newRow("no second thread for a handler") << QByteArray("3");
}

void TestRunnerFaults::failedStartLeavesTheSpoolFree()
{
    QFETCH(const QByteArray, fault);
    const Spool spool;
    const TraceLog log(LoggerLevel::fatal);
    QVERIFY(spool.putMany(5));
    Calls calls;
    HandlerSettings settings;
    settings.threads = 2;
    RunnerSettings broken = settingsFor(spool);
    if (fault == "quarantine")
        broken.quarantine = spool.beside("absent");
    FileRunner failing(broken);
    failing.addConsumer("first", noting(calls), settings);
    failing.addConsumer("second", noting(calls), settings);
    if (fault != "quarantine")
        Faults::soundThreads = fault.toInt();
    const QString failure = failureText([&] { failing.start(); });
    Faults::soundThreads = -1;
    if (fault == "quarantine")
        QVERIFY2(failure.contains(broken.quarantine), qPrintable(failure));
    else
        QCOMPARE(failure, kitText("RunnerThreadFailed", spool.path(), systemErrorText(EAGAIN)));
    QVERIFY(!failing.isRunning());
    QCOMPARE(failing.stop(10s).waiting, qint64(0));
    QCOMPARE(calls.count(), qsizetype(0));

    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", noting(calls));
    runner.start();
    QTRY_COMPARE(spool.names(), QStringList());
    runner.stop(10s);
    if (fault != "quarantine")
        failing.start(); // there are threads again
    QCOMPARE(failing.isRunning(), fault != "quarantine");
}

void TestRunnerFaults::limitsMayBeVeryLong()
{
    constexpr auto Forever = std::chrono::milliseconds::max();
    const Spool spool;
    QVERIFY(spool.put("order"));
    HandlerSettings settings;
    settings.firstPause = settings.longestPause = settings.slowAfter = Forever;
    settings.attempts = std::numeric_limits<int>::max();
    RunnerSettings runnerSettings = settingsFor(spool);
    runnerSettings.period = Forever;
    const TraceLog log(LoggerLevel::info);
    FileRunner runner(runnerSettings);
    Calls calls;
    runner.addConsumer(
        "only",
        [&](const FileAtHand& file) {
            calls.note(file.name);
            return Outcome::retry("much later");
        },
        settings);
    runner.start();
    QTRY_COMPARE(runner.progress().consumers.at(0).retrying, qint64(1));
    QVERIFY(runner.pause(Forever));
    runner.resume();
    QTest::qWait(1100); // a look at slow handlers
    QCOMPARE(calls.count(), qsizetype(1));
    QCOMPARE(said(log).size(), qsizetype(1)); // "retry"
    QVERIFY(!runner.pause(std::chrono::milliseconds::min()));
    QVERIFY(runner.stop(Forever).isClean());
}

void TestRunnerFaults::relativeDirectoriesStay()
{
    const Spool spool;
    const TraceLog log(LoggerLevel::fatal);
    QVERIFY(QDir().mkdir(spool.beside("bad")));
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(QFileInfo(spool.path()).path()));
    RunnerSettings settings;
    settings.spool = "spool";
    settings.quarantine = "bad";
    FileRunner runner(settings);
    runner.addConsumer("only", [](const FileAtHand& file) { return Outcome::reject(file.path); });
    QVERIFY(QDir::setCurrent("/"));
    runner.start();
    QVERIFY(spool.put("order"));
    QTRY_VERIFY(!spool.holds("order"));
    QDir::setCurrent(before);
    QVERIFY(QFile::exists(spool.beside("bad/order")));
}

void TestRunnerFaults::runnersMayShareAQuarantine()
{
    const Spool first;
    const Spool second;
    const QString quarantine = first.beside("bad");
    QVERIFY(QDir().mkdir(quarantine));
    const TraceLog log(LoggerLevel::fatal);
    std::vector<std::unique_ptr<FileRunner>> runners;
    for (const Spool* const spool : {&first, &second}) {
        QVERIFY(spool->putMany(50));
        RunnerSettings settings = settingsFor(*spool);
        settings.quarantine = quarantine;
        HandlerSettings several;
        several.threads = 3;
        runners.push_back(std::make_unique<FileRunner>(settings));
        for (const char* const id : {"a", "b"})
            runners.back()->addConsumer(
                id, [](const FileAtHand&) { return Outcome::reject("no"); }, several);
        runners.back()->start();
    }
    QTRY_COMPARE(first.names() + second.names(), QStringList());
    QCOMPARE(QDir(quarantine).entryList(QDir::Files | QDir::Hidden).size(), qsizetype(400));
}

void TestRunnerFaults::announcementsAreBounded()
{
    const Spool spool;
    const TraceLog log(LoggerLevel::fatal);
    std::atomic<int> announcements = 0;
    FileRunner runner(settingsFor(spool));
    connect(
        &runner, &FileRunner::progressed, &runner, [&] { ++announcements; }, Qt::DirectConnection);
    runner.addConsumer("only", [](const FileAtHand&) { return Done; });
    QElapsedTimer time;
    time.start();
    runner.start();
    quint64 status = 0;
    int replacements = 0;
    for (int i = 0; time.elapsed() < 1500; ++i) {
        QVERIFY(spool.put(QString::number(i)));
        QTest::qWait(3);
        struct stat info {};
        ::stat(QFile::encodeName(spool.pathOf(".kez/status.json")).constData(), &info);
        const auto seen = quint64(info.st_mtim.tv_sec) * 1000000000 + quint64(info.st_mtim.tv_nsec);
        replacements += std::exchange(status, seen) != seen ? 1 : 0;
    }
    const qint64 elapsed = time.elapsed();
    QVERIFY2(announcements <= elapsed / 100 + 2, QByteArray::number(announcements));
    QVERIFY2(announcements > 3, QByteArray::number(announcements));
    QVERIFY2(replacements <= elapsed / 1000 + 2, QByteArray::number(replacements));
    QTRY_COMPARE(spool.names(), QStringList());
}

namespace {

/// A spool whose rights are lost and regained, and its runner.
struct Rights {
    explicit Rights(mode_t without) : lost(without), runner(settingsFor(spool))
    {
        spool.putMany(10);
        runner.addConsumer("noting", noting(calls));
        runner.addConsumer(
            "late",
            [this](const FileAtHand& file) {
                others.note(file.name);
                return Outcome::retry("later");
            },
            patient());
        runner.start();
    }

    void set(mode_t mode) const { ::chmod(QFile::encodeName(spool.path()).constData(), mode); }

    bool haveAllHandled(qsizetype files) const
    {
        return calls.count() == files && others.count() == files;
    }

    const mode_t lost;
    const Spool spool;
    Calls calls;
    Calls others;
    FileRunner runner;
};

/// At once on four spools, since each loss lasts a second at least.
int loseRights()
{
    if (!becomeOrdinaryUser())
        return 1;
    int argc = 1;
    char name[] = "child";
    char* argv[] = {name, nullptr};
    const QCoreApplication application(argc, argv);
    const TraceLog log(LoggerLevel::info);
    std::vector<std::unique_ptr<Rights>> all;
    for (const mode_t mode : {0000, 0300, 0500, 0600})
        all.push_back(std::make_unique<Rights>(mode));
    const auto count = [&log, &all](int level, const char* key) {
        const QStringList lines = said(log);
        return std::count_if(all.begin(), all.end(), [&](const auto& rights) {
            return lines.count(line(level, kitText(key, rights->spool.path()))) == 1;
        });
    };
    const auto waitForAll = [&all](qsizetype files) {
        return QTest::qWaitFor(
            [&] {
                return std::all_of(all.begin(), all.end(), [files](const auto& rights) {
                    return rights->haveAllHandled(files);
                });
            },
            20000);
    };
    constexpr qsizetype Retries = 40;
    if (!waitForAll(10) || !QTest::qWaitFor([&] { return said(log).size() == Retries; }, 20000))
        return 2;
    for (const auto& rights : all)
        rights->set(rights->lost);
    if (QTest::qWaitFor([&] { return count(3, "RunnerSpoolLost") == 4; }, 20000))
        say(QString("lost"));
    QTest::qWait(100);
    for (const auto& rights : all)
        rights->set(0700);
    if (QTest::qWaitFor([&] { return count(1, "RunnerSpoolBack") == 4; }, 20000) &&
        said(log).size() == Retries + 8)
        say(QString("back"));
    for (const auto& rights : all)
        rights->spool.put("new");
    if (waitForAll(11))
        say(QString("handled"));
    const bool areAllOnce = std::all_of(all.begin(), all.end(), [](const auto& rights) {
        rights->runner.stop(10s);
        return rights->haveAllHandled(11) && rights->calls.count("new") == 1;
    });
    if (areAllOnce && count(3, "RunnerSpoolLost") == 4)
        say(QString("once"));
    return 0;
}

int childMain(const QStringList&)
{
    return loseRights();
}

} // namespace

KEZ_TEST_MAIN_WITH_CHILDREN(TestRunnerFaults, childMain)
#include "tst_runnerfaults.moc"
