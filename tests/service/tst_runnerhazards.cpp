// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// What operators do to a spool under a runner, and what a program does wrong in its slots.

#include "runnerfixture.h"
#include "service/kittexts_p.h"
#include "support/failuretext.h"
#include "support/tracelog.h"

#include <kez/service/filerunner.h>
#include <kez/service/serviceapplication.h>

#include <QtTest>

#include <atomic>
#include <stdexcept>
#include <thread>

using namespace KezService;
using namespace std::chrono_literals;

namespace {

const Outcome Done = Outcome::done();

HandlerSettings patient()
{
    HandlerSettings settings;
    settings.firstPause = settings.longestPause = 1h;
    return settings;
}

Handler noting(Calls& calls)
{
    return [&calls](const FileAtHand& file) {
        calls.note(file.name);
        return Done;
    };
}

/// Keeps what is said at errors, without the levels.
QStringList errors(const TraceLog& log)
{
    QStringList lines;
    for (const QString& line : log.texts()) {
        if (line.startsWith('3'))
            lines.append(line.mid(1));
    }
    return lines;
}

} // namespace

class TestRunnerHazards : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void spoolReplacedForAWhileRepeatsNothing();
    void deletedSpoolMayBeMadeAgain();
    void rejectionWithoutTheSpoolIsNoVerdict();
    void lossOfTheSpoolCostsNoAttempt();
    void restartsCostNoAttempt();
    void missingQuarantineIsSaidOnce();
    void quarantineIsRetriedWithPauses();
    void throwingSlotLosesNothing();
    void runnerIsNotStoppedInItsOwnThread();
    void filesBeginInQueueOrderAfterARestart();
};

void TestRunnerHazards::spoolReplacedForAWhileRepeatsNothing()
{
    const Spool spool;
    QVERIFY(spool.putMany(3));
    const TraceLog log(LoggerLevel::info);
    Calls calls;
    Calls tries;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("first", noting(calls));
    runner.addConsumer(
        "second",
        [&](const FileAtHand& file) {
            tries.note(file.key + QString::number(file.attempt));
            return Outcome::retry("later");
        },
        patient());
    runner.start();
    QTRY_COMPARE(runner.progress().consumers.at(1).retrying, qint64(3));
    const QStringList before = tries.names();
    const QByteArray journal = readFile(spool.pathOf(".kez/journal"));

    QVERIFY(QDir().rename(spool.path(), spool.beside("away")));
    QVERIFY(QDir().mkdir(spool.path())); // a mount point, or by mistake
    QVERIFY(spool.put("stray"));
    QTRY_VERIFY(errors(log).contains(kitText("RunnerSpoolReplaced", spool.path())));
    QTest::qWait(1200); // it looks again
    QCOMPARE(errors(log).count(kitText("RunnerSpoolReplaced", spool.path())), qsizetype(1));
    QVERIFY(!QFile::exists(spool.pathOf(".kez"))); // nothing is touched
    QVERIFY(spool.holds("stray"));
    QCOMPARE(runner.progress().files, qint64(3));

    QVERIFY(QDir(spool.path()).removeRecursively());
    QVERIFY(QDir().rename(spool.beside("away"), spool.path()));
    QVERIFY(spool.put("new"));
    QTRY_COMPARE_WITH_TIMEOUT(calls.count("new"), qsizetype(1), 15000);
    QTRY_COMPARE(runner.progress().consumers.at(1).retrying, qint64(4));
    QVERIFY(runner.stop(10s).isClean());
    QCOMPARE(calls.count(), qsizetype(4));
    QCOMPARE(tries.names().mid(0, 3), before);
    QCOMPARE(tries.count(), qsizetype(4));
    QVERIFY(journal.startsWith("kez-journal 1\n"));

    FileRunner again(settingsFor(spool));
    again.addConsumer("first", noting(calls));
    again.addConsumer("second", [&](const FileAtHand& file) {
        return file.attempt == 2 ? Done : Outcome::reject("the attempts were not kept");
    });
    again.start();
    QTRY_COMPARE(spool.names(), QStringList());
    QCOMPARE(calls.count(), qsizetype(4));
    QCOMPARE(spool.quarantined(), QStringList());
}

void TestRunnerHazards::deletedSpoolMayBeMadeAgain()
{
    const Spool spool;
    QVERIFY(spool.putMany(3));
    const TraceLog log(LoggerLevel::info);
    Calls calls;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("first", noting(calls));
    runner.addConsumer(
        "second",
        [](const FileAtHand& file) { return file.name == u"new" ? Done : Outcome::retry("later"); },
        patient());
    runner.start();
    QTRY_COMPARE(runner.progress().consumers.at(1).retrying, qint64(3));
    QVERIFY(QDir().rename(spool.path(), spool.beside("away")));
    QVERIFY(QDir(spool.beside("away")).removeRecursively());
    QVERIFY(QDir().mkdir(spool.path()));
    QVERIFY(spool.put("new"));
    QTRY_COMPARE_WITH_TIMEOUT(calls.count("new"), qsizetype(1), 15000);
    QTRY_COMPARE(spool.names(), QStringList());
    QTRY_COMPARE(runner.progress().files, qint64(0));
    QVERIFY(!log.texts().contains("3" + kitText("RunnerSpoolReplaced", spool.path())));
}

void TestRunnerHazards::rejectionWithoutTheSpoolIsNoVerdict()
{
    const Spool spool;
    QVERIFY(spool.put("order"));
    const TraceLog log(LoggerLevel::fatal);
    std::atomic<int> handled = 0;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer(
        "only",
        [&](const FileAtHand& file) {
            if (++handled == 1 && !QDir().rename(spool.path(), spool.beside("away")))
                return Done;
            return QFile::exists(file.path) ? Done : Outcome::reject("there is no such file");
        },
        quickSettings());
    runner.start();
    QTRY_VERIFY(QFileInfo::exists(spool.beside("away")));
    QTest::qWait(100); // the quarantine fails
    QVERIFY(QDir().rename(spool.beside("away"), spool.path()));
    QTRY_VERIFY_WITH_TIMEOUT(!spool.holds("order"), 20000);
    QVERIFY(runner.stop(10s).isClean());
    QVERIFY(handled >= 2);
    QCOMPARE(spool.quarantined(), QStringList());
}

void TestRunnerHazards::lossOfTheSpoolCostsNoAttempt()
{
    constexpr int Files = 100;
    const QStringList fatal{"order-000010", "order-000030", "order-000050"};
    const Spool spool;
    QVERIFY(spool.putMany(Files));
    const TraceLog log(LoggerLevel::warning);
    HandlerSettings settings = quickSettings();
    settings.attempts = 2;
    Calls missing;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer(
        "only",
        [&](const FileAtHand& file) {
            if (fatal.contains(file.name) && missing.count(file.name) == 0)
                QDir().rename(spool.path(), spool.beside("away"));
            if (QFile::exists(file.path))
                return Done;
            missing.note(file.name);
            return Outcome::retry("it is not there");
        },
        settings);
    runner.start();
    for (const QString& name : fatal) {
        QTRY_COMPARE_WITH_TIMEOUT(missing.count(name), qsizetype(1), 20000);
        QTest::qWait(50);
        QCOMPARE(missing.names().last(), name); // the next ones are not begun
        QVERIFY(QDir().rename(spool.beside("away"), spool.path()));
        QTRY_VERIFY_WITH_TIMEOUT(spool.names().value(0, "z") >= name, 20000); // deleted so far
    }
    QTRY_COMPARE_WITH_TIMEOUT(spool.names(), QStringList(), 20000);
    QTRY_COMPARE(runner.progress().consumers.at(0).done, qint64(Files));
    QCOMPARE(missing.names(), fatal);
    QCOMPARE(spool.quarantined(), QStringList());
    const QStringList named = log.texts().filter("order-0");
    QVERIFY2(named.isEmpty(), qPrintable(named.join(QChar(10))));
}

void TestRunnerHazards::restartsCostNoAttempt()
{
    const Spool spool;
    QVERIFY(spool.put("order"));
    const TraceLog log(LoggerLevel::fatal);
    HandlerSettings settings = patient();
    settings.attempts = 3;
    QList<int> attempts;
    for (int start = 0; start < 5; ++start) {
        FileRunner runner(settingsFor(spool));
        runner.addConsumer(
            "only",
            [&](const FileAtHand& file) {
                attempts.append(file.attempt);
                return Outcome::retry("later");
            },
            settings);
        runner.start();
        QTRY_COMPARE(runner.progress().consumers.at(0).retrying, qint64(1));
        runner.stop(10s);
    }
    QCOMPARE(attempts, QList<int>({1, 2, 2, 2, 2}));
    settings = quickSettings(); // in time
    settings.attempts = 3;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer(
        "only",
        [&](const FileAtHand& file) {
            attempts.append(file.attempt);
            return Outcome::retry("later");
        },
        settings);
    runner.start();
    QTRY_COMPARE(spool.quarantined(), QStringList{"order"});
    runner.stop(10s);
    QCOMPARE(attempts.mid(5), QList<int>({2, 2, 3}));
}

void TestRunnerHazards::missingQuarantineIsSaidOnce()
{
    const Spool spool;
    const QString quarantine = spool.beside("bad");
    QVERIFY(QDir().mkdir(quarantine));
    const TraceLog log(LoggerLevel::info);
    RunnerSettings settings = settingsFor(spool);
    settings.quarantine = quarantine;
    FileRunner runner(settings);
    runner.addConsumer(
        "only", [](const FileAtHand&) { return Outcome::reject("no"); }, quickSettings());
    runner.start();
    for (int time = 1; time <= 2; ++time) {
        QVERIFY(QDir(quarantine).removeRecursively());
        QVERIFY(spool.putMany(20));
        QTRY_COMPARE(runner.progress().consumers.at(0).retrying, qint64(20));
        const QString lost = kitText("RunnerQuarantineLost", quarantine, systemErrorText(ENOENT));
        QCOMPARE(errors(log).count(lost), qsizetype(time));
        QVERIFY(QDir().mkdir(quarantine));
        QTRY_COMPARE_WITH_TIMEOUT(spool.names(), QStringList(), 30000);
        QTRY_COMPARE(log.texts().count("1" + kitText("RunnerQuarantineBack", quarantine)),
                     qsizetype(time));
        QCOMPARE(errors(log).count(lost), qsizetype(time));
    }
    QCOMPARE(errors(log).size(), qsizetype(42)); // with one per file that is quarantined
}

void TestRunnerHazards::quarantineIsRetriedWithPauses()
{
    const Spool spool;
    const QString quarantine = spool.beside("bad");
    QVERIFY(QDir().mkdir(quarantine));
    const TraceLog log(LoggerLevel::debug);
    RunnerSettings settings = settingsFor(spool);
    settings.quarantine = quarantine;
    HandlerSettings eager;
    eager.firstPause = eager.longestPause = 0ms;
    FileRunner runner(settings);
    runner.addConsumer(
        "only", [](const FileAtHand&) { return Outcome::reject("no"); }, eager);
    runner.start();
    QVERIFY(QDir(quarantine).removeRecursively());
    QVERIFY(spool.put("order"));
    QTRY_COMPARE(runner.progress().consumers.at(0).retrying, qint64(1));
    QTest::qWait(300);
    qsizetype attempts = 0;
    for (const QString& line : log.texts())
        attempts += line.contains("[order]") ? 1 : 0;
    QVERIFY2(attempts <= 2, QByteArray::number(attempts)); // a second lies between two
    QVERIFY(QDir().mkdir(quarantine));
    QTRY_COMPARE_WITH_TIMEOUT(spool.names(), QStringList(), 15000);
}

void TestRunnerHazards::throwingSlotLosesNothing()
{
    const Spool spool;
    QVERIFY(spool.putMany(6));
    const TraceLog log(LoggerLevel::error);
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", [](const FileAtHand& file) {
        return file.name == u"order-000001" ? Outcome::reject("no") : Done;
    });
    QObject::connect(&runner, &FileRunner::quarantined,
                     [] { throw std::runtime_error("a slot of mine"); });
    QObject::connect(&runner, &FileRunner::progressed, [] { throw 42; });
    runner.start();
    QTRY_COMPARE(spool.names(), QStringList());
    QTRY_COMPARE(runner.progress().consumers.at(0).done, qint64(5));
    QVERIFY(runner.stop(10s).isClean());
    QVERIFY(errors(log).join('\n').contains("a slot of mine"));
}

void TestRunnerHazards::runnerIsNotStoppedInItsOwnThread()
{
    const Spool spool;
    QVERIFY(spool.put("order"));
    const TraceLog log(LoggerLevel::error);
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", [](const FileAtHand&) { return Done; });
    std::atomic<int> refused = 0;
    QObject::connect(&runner, &FileRunner::progressed, [&] {
        for (const auto& action : {std::function<void()>([&] { runner.stop(1s); }),
                                   std::function<void()>([&] { runner.pause(1s); })}) {
            if (failureText(action).contains(spool.path()))
                ++refused;
        }
    });
    runner.start();
    QTRY_COMPARE(spool.names(), QStringList());
    QTRY_VERIFY(refused >= 2);
    QVERIFY(runner.stop(10s).isClean());
}

void TestRunnerHazards::filesBeginInQueueOrderAfterARestart()
{
    constexpr int Files = 300; // more than enter at a time
    const Spool spool;
    const TraceLog log(LoggerLevel::fatal);
    const auto later = [](const FileAtHand&) { return Outcome::retry("later"); };
    {
        FileRunner runner(settingsFor(spool));
        runner.addConsumer("only", later, patient());
        runner.start();
        QVERIFY(spool.put("z"));
        QTRY_COMPARE(runner.progress().files, qint64(1));
        QVERIFY(spool.putMany(Files));
        QTRY_COMPARE(runner.progress().files, qint64(Files + 1));
    }
    QVERIFY(spool.put("a"));
    Calls calls;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", noting(calls));
    runner.start();
    QTRY_COMPARE(calls.count(), qsizetype(Files + 2));
    QCOMPARE(calls.names().first(), QString("z"));
    QCOMPARE(calls.names().last(), QString("a"));
}

QTEST_GUILESS_MAIN(TestRunnerHazards)
#include "tst_runnerhazards.moc"
