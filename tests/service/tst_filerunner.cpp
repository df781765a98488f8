// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "runnerfixture.h"
#include "service/kittexts_p.h"
#include "support/failuretext.h"

#include <kez/exception.h>
#include <kez/log.h>

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <atomic>
#include <cstdio>
#include <future>
#include <stdexcept>
#include <thread>

using namespace KezService;
using namespace std::chrono_literals;

class TestFileRunner : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void everyConsumerHandlesEveryFileOnce();
    void filesThatArriveAreHandled();
    void filesAreHandledInQueueOrder();
    void handlerSeesPathNameKeyAndAttempt();
    void retryComesBackAndHoldsUpNobody();
    void whatAHandlerThrowsIsRetry_data();
    void whatAHandlerThrowsIsRetry();
    void rejectedFileGoesToQuarantineAndIsDone();
    void fileIsQuarantinedAfterTheLastAttempt();
    void attemptsMayHaveNoLimit();
    void otherConsumersStillHandleAQuarantinedFile();
    void asManyHandlersAsThreadsRunAtOnce();
    void changedFileIsHandledAgain();
    void vanishedFileIsForgotten();
    void stuckHandlerHoldsUpNoOtherConsumer();
    void pauseLeavesNothingAtWork();
    void pauseGivesUpAtItsLimit();
    void pausedRunnerGoesOnAfterTheScope();
    void pausedRunnerThrowsAtItsLimit();
    void secondRunnerIsRefused();
    void wrongUseIsRefused();
    void restartRepeatsNothing();
    void doneForSomeStaysDoneAfterARestart();
    void progressIsAnnounced();
    void progressAfterTheStopIsTheLastOne();
    void statusFileShowsTheProgress();
    void progressIsFoundByConsumer();
    void pauseIsInTheStatusFileAtOnce();
    void presentFilesAreDeletedOnRequest();
};

void TestFileRunner::everyConsumerHandlesEveryFileOnce()
{
    const Spool spool;
    QVERIFY(spool.putMany(200));
    Calls first;
    Calls second;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("first", [&](const FileAtHand& file) {
        first.note(file.name);
        return Outcome::done();
    });
    HandlerSettings several = quickSettings();
    several.threads = 3;
    runner.addConsumer(
        "second",
        [&](const FileAtHand& file) {
            second.note(file.name);
            return Outcome::done();
        },
        several);
    runner.start();
    QTRY_COMPARE(spool.names(), QStringList());
    QVERIFY(runner.stop(10s).isClean());
    for (const Calls* const calls : {&first, &second}) {
        QCOMPARE(calls->count(), qsizetype(200));
        const QStringList names = calls->names();
        QCOMPARE(QSet<QString>(names.begin(), names.end()).size(), qsizetype(200));
    }
}

void TestFileRunner::filesThatArriveAreHandled()
{
    const Spool spool;
    Calls calls;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", [&](const FileAtHand& file) {
        calls.note(file.name);
        return Outcome::done();
    });
    runner.start();
    QVERIFY(spool.put("late"));
    QTRY_COMPARE(calls.names(), QStringList{"late"});
    QTRY_VERIFY(!spool.holds("late"));
    QVERIFY(spool.put("late"));
    QTRY_COMPARE(calls.count("late"), qsizetype(2));
    QTRY_VERIFY(!spool.holds("late"));
}

void TestFileRunner::filesAreHandledInQueueOrder()
{
    const Spool spool;
    QVERIFY(spool.putMany(50));
    const QStringList expected = spool.names();
    Calls calls;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", [&](const FileAtHand& file) {
        calls.note(file.name);
        return Outcome::done();
    });
    runner.start();
    QTRY_COMPARE(calls.names(), expected);
}

void TestFileRunner::handlerSeesPathNameKeyAndAttempt()
{
    const Spool spool;
    QVERIFY(spool.put("order.xml", "content"));
    std::mutex mutex;
    std::vector<FileAtHand> seen;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer(
        "only",
        [&](const FileAtHand& file) {
            const std::lock_guard lock(mutex);
            seen.push_back(file);
            return seen.size() < 3 ? Outcome::retry("not yet") : Outcome::done();
        },
        quickSettings());
    runner.start();
    QTRY_VERIFY(!spool.holds("order.xml"));
    runner.stop(10s);
    QCOMPARE(seen.size(), size_t(3));
    for (size_t i = 0; i < seen.size(); ++i) {
        QCOMPARE(seen[i].path, spool.pathOf("order.xml"));
        QCOMPARE(seen[i].name, QString("order.xml"));
        QCOMPARE(seen[i].key, seen[0].key);
        QCOMPARE(seen[i].attempt, int(i) + 1);
    }
    QCOMPARE(seen[0].key.size(), qsizetype(32));
}

void TestFileRunner::retryComesBackAndHoldsUpNobody()
{
    const Spool spool;
    QVERIFY(spool.putMany(3));
    HandlerSettings settings = quickSettings();
    settings.firstPause = 200ms;
    settings.longestPause = 200ms;
    Calls calls;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer(
        "only",
        [&](const FileAtHand& file) {
            calls.note(file.name);
            const bool isDone = file.name != u"order-000000" || file.attempt == 2;
            return isDone ? Outcome::done() : Outcome::retry("locked");
        },
        settings);
    runner.start();
    QTRY_COMPARE(calls.names(),
                 QStringList({"order-000000", "order-000001", "order-000002", "order-000000"}));
}

void TestFileRunner::whatAHandlerThrowsIsRetry_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("reason");
    QTest::newRow("Exception") << 0 << QString("the reason");
    QTest::newRow("pointer to an Exception") << 1 << QString("the reason");
    QTest::newRow("standard exception") << 2 << QString("the reason");
    QTest::newRow("anything") << 3 << kitText("ExceptionOfType", QString("int"));
}

void TestFileRunner::whatAHandlerThrowsIsRetry()
{
    QFETCH(const int, kind);
    QFETCH(const QString, reason);
    const Spool spool;
    QVERIFY(spool.put("order"));
    HandlerSettings settings = quickSettings();
    settings.attempts = 2;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer(
        "only",
        [kind](const FileAtHand&) -> Outcome {
            switch (kind) {
            case 0:
                throw Exception("the reason");
            case 1:
                throw new Exception("the reason");
            case 2:
                throw std::runtime_error("the reason");
            default:
                throw 42;
            }
        },
        settings);
    runner.start();
    QTRY_COMPARE(spool.quarantined(), QStringList{"order"});
    QTRY_VERIFY(!spool.holds("order"));
    const QByteArray text = spool.quarantineText("order");
    QVERIFY2(text.contains("\ntries=2\n"), text);
    QVERIFY2(text.contains("\nreason=" + reason.toUtf8() + '\n'), text);
}

void TestFileRunner::rejectedFileGoesToQuarantineAndIsDone()
{
    const Spool spool;
    QVERIFY(spool.put("order.xml", "<nonsense"));
    FileRunner runner(settingsFor(spool));
    Calls announced;
    connect(
        &runner, &FileRunner::quarantined, &runner,
        [&](const QString& consumer, const QString& name, const QString& nameThere) {
            announced.note(consumer + '|' + name + '|' + nameThere);
        },
        Qt::DirectConnection);
    runner.addConsumer("ledger",
                       [](const FileAtHand&) { return Outcome::reject("no XML\nat all"); });
    runner.start();
    QTRY_VERIFY(!spool.holds("order.xml"));
    QTRY_COMPARE(announced.names(), QStringList{"ledger|order.xml|order.xml"});
    QCOMPARE(readFile(spool.pathOf(".kez/quarantine/order.xml")), QByteArray("<nonsense"));
    const QByteArray text = spool.quarantineText("order.xml");
    for (const char* const line : {"\nconsumer=ledger\n", "\nfile=order.xml\n",
                                   "\nreason=no XML\\nat all\n", "\ntries=1\n", "\ntime=20"})
        QVERIFY2(text.contains(line), text);
}

void TestFileRunner::fileIsQuarantinedAfterTheLastAttempt()
{
    const Spool spool;
    QVERIFY(spool.put("order"));
    HandlerSettings settings = quickSettings();
    settings.attempts = 4;
    Calls calls;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer(
        "only",
        [&](const FileAtHand& file) {
            calls.note(file.name);
            return Outcome::retry("no luck");
        },
        settings);
    runner.start();
    QTRY_COMPARE(spool.quarantined(), QStringList{"order"});
    QTRY_VERIFY(!spool.holds("order"));
    QCOMPARE(calls.count(), qsizetype(4));
    QVERIFY(spool.quarantineText("order").contains("\ntries=4\n"));
}

void TestFileRunner::attemptsMayHaveNoLimit()
{
    const Spool spool;
    QVERIFY(spool.put("order"));
    HandlerSettings settings = quickSettings();
    settings.attempts = 0;
    std::atomic<int> last = 0;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer(
        "only",
        [&](const FileAtHand& file) {
            last = file.attempt;
            return file.attempt == 25 ? Outcome::done() : Outcome::retry("no luck");
        },
        settings);
    runner.start();
    QTRY_VERIFY(!spool.holds("order"));
    QCOMPARE(int(last), 25);
    QCOMPARE(spool.quarantined(), QStringList());
}

void TestFileRunner::otherConsumersStillHandleAQuarantinedFile()
{
    const Spool spool;
    QVERIFY(spool.put("order"));
    std::promise<void> rejected;
    std::shared_future<void> isRejected = rejected.get_future().share();
    Calls calls;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("first", [](const FileAtHand&) { return Outcome::reject("mine"); });
    runner.addConsumer("second", [&calls, isRejected](const FileAtHand& file) {
        isRejected.wait();
        calls.note(QFile::exists(file.path) ? file.name : "gone");
        return Outcome::done();
    });
    runner.start();
    QTRY_COMPARE(spool.quarantined(), QStringList{"order"});
    rejected.set_value();
    QTRY_VERIFY(!spool.holds("order"));
    QCOMPARE(calls.names(), QStringList{"order"});
    QCOMPARE(spool.quarantined(), QStringList{"order"});
}

void TestFileRunner::asManyHandlersAsThreadsRunAtOnce()
{
    const Spool spool;
    QVERIFY(spool.putMany(60));
    HandlerSettings settings = quickSettings();
    settings.threads = 4;
    std::atomic<int> atOnce = 0;
    std::atomic<int> most = 0;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer(
        "only",
        [&](const FileAtHand&) {
            const int now = ++atOnce;
            int before = most;
            while (now > before && !most.compare_exchange_weak(before, now)) {}
            std::this_thread::sleep_for(1ms);
            --atOnce;
            return Outcome::done();
        },
        settings);
    runner.start();
    QTRY_COMPARE(spool.names(), QStringList());
    QVERIFY2(most > 1 && most <= 4, QByteArray::number(most));
}

void TestFileRunner::changedFileIsHandledAgain()
{
    const Spool spool;
    QVERIFY(spool.put("order", "first"));
    std::mutex mutex;
    QList<QByteArray> contents;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", [&](const FileAtHand& file) {
        const std::lock_guard lock(mutex);
        contents.append(readFile(file.path));
        // Another file takes its place before it is reported.
        if (contents.size() == 1 && writeFile(spool.beside("other"), "second"))
            std::rename(qPrintable(spool.beside("other")), qPrintable(file.path));
        return Outcome::done();
    });
    runner.start();
    const auto seen = [&] {
        const std::lock_guard lock(mutex);
        return contents;
    };
    QTRY_COMPARE(seen(), QList<QByteArray>({"first", "second"}));
    QTRY_VERIFY(!spool.holds("order"));
}

void TestFileRunner::vanishedFileIsForgotten()
{
    const Spool spool;
    QVERIFY(spool.put("order"));
    std::atomic<bool> isGone = false;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer(
        "only",
        [&](const FileAtHand& file) {
            if (file.name == u"next")
                return Outcome::done();
            if (!isGone.exchange(true))
                QFile::remove(file.path);
            return Outcome::retry("cannot be read");
        },
        quickSettings());
    runner.start();
    QTRY_COMPARE(runner.progress().files, qint64(0));
    QVERIFY(spool.put("next"));
    QTRY_VERIFY(!spool.holds("next"));
    QCOMPARE(spool.quarantined(), QStringList());
}

void TestFileRunner::stuckHandlerHoldsUpNoOtherConsumer()
{
    const Spool spool;
    QVERIFY(spool.putMany(5));
    const auto release = std::make_shared<std::promise<void>>();
    const auto isReleased = std::make_shared<std::shared_future<void>>(release->get_future());
    const auto begun = std::make_shared<std::atomic<bool>>(false);
    const auto ended = std::make_shared<std::atomic<bool>>(false);
    Calls calls;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("stuck", [isReleased, begun, ended](const FileAtHand&) {
        *begun = true;
        isReleased->wait();
        *ended = true;
        return Outcome::done();
    });
    runner.addConsumer("other", [&](const FileAtHand& file) {
        calls.note(file.name);
        return Outcome::done();
    });
    runner.start();
    QTRY_COMPARE(calls.count(), qsizetype(5));
    QTRY_VERIFY(*begun);
    const StopReport report = runner.stop(10ms);
    QCOMPARE(report.left.size(), qsizetype(1));
    QCOMPARE(report.left.first().consumer, QString("stuck"));
    QCOMPARE(report.left.first().name, QString("order-000000"));
    QCOMPARE(report.waiting, qint64(5));
    QCOMPARE(spool.names().size(), qsizetype(5));
    release->set_value();
    QTRY_VERIFY(*ended);
}

void TestFileRunner::pauseLeavesNothingAtWork()
{
    const Spool spool;
    QVERIFY(spool.putMany(300));
    std::atomic<int> atWork = 0;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", [&](const FileAtHand&) {
        ++atWork;
        std::this_thread::sleep_for(100us);
        --atWork;
        return Outcome::done();
    });
    runner.start();
    for (int i = 0; i < 5; ++i) {
        QVERIFY(runner.pause(10s));
        QCOMPARE(int(atWork), 0);
        const QStringList before = spool.names();
        QTest::qWait(20);
        QCOMPARE(int(atWork), 0);
        QCOMPARE(spool.names(), before);
        runner.resume();
    }
    QTRY_COMPARE(spool.names(), QStringList());
    QVERIFY(runner.pause(10s));
    QVERIFY(runner.stop(10s).isClean());
}

void TestFileRunner::pauseGivesUpAtItsLimit()
{
    const Spool spool;
    QVERIFY(spool.put("order"));
    std::promise<void> release;
    std::shared_future<void> isReleased = release.get_future().share();
    std::atomic<bool> isAtWork = false;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", [&](const FileAtHand&) {
        isAtWork = true;
        isReleased.wait();
        return Outcome::done();
    });
    runner.start();
    QTRY_VERIFY(isAtWork);
    QVERIFY(!runner.pause(10ms));
    release.set_value();
    QTRY_VERIFY(!spool.holds("order")); // it goes on
}

void TestFileRunner::pausedRunnerGoesOnAfterTheScope()
{
    const Spool spool;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", [](const FileAtHand&) { return Outcome::done(); });
    runner.start();
    {
        const PausedRunner paused(runner, 10s);
        QVERIFY(runner.isPaused());
        QVERIFY(spool.put("order"));
        {
            const PausedRunner again(runner, 10s);
        }
        QVERIFY(runner.isPaused());
        QTest::qWait(50);
        QVERIFY(spool.holds("order"));
    }
    QVERIFY(!runner.isPaused());
    QTRY_VERIFY(!spool.holds("order"));
    {
        QVERIFY(runner.pause(10s));
        const PausedRunner paused(runner, 10s);
    }
    QVERIFY(runner.isPaused());
    const PausedRunner paused(runner, 10s);
    runner.stop(10s);
    QVERIFY(!runner.isPaused());
}

void TestFileRunner::pausedRunnerThrowsAtItsLimit()
{
    const Spool spool;
    QVERIFY(spool.put("order"));
    std::promise<void> release;
    std::shared_future<void> isReleased = release.get_future().share();
    std::atomic<bool> isAtWork = false;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", [&](const FileAtHand&) {
        isAtWork = true;
        isReleased.wait();
        return Outcome::done();
    });
    runner.start();
    QTRY_VERIFY(isAtWork);
    const QString failure = failureText([&] { const PausedRunner paused(runner, 10ms); });
    QVERIFY2(failure.contains(spool.path()) && failure.contains("10 ms"), qPrintable(failure));
    QVERIFY(!runner.isPaused());
    release.set_value();
    QTRY_VERIFY(!spool.holds("order"));
}

void TestFileRunner::secondRunnerIsRefused()
{
    const Spool spool;
    const auto nothing = [](const FileAtHand&) { return Outcome::done(); };
    FileRunner first(settingsFor(spool));
    first.addConsumer("only", nothing);
    first.start();
    FileRunner second(settingsFor(spool));
    second.addConsumer("only", nothing);
    const QString failure = failureText([&] { second.start(); });
    QVERIFY2(failure.contains(spool.path()) &&
                 failure.contains(QString::number(QCoreApplication::applicationPid())),
             qPrintable(failure));
    QVERIFY(!second.isRunning());
    first.stop(10s);
    second.start();
    QVERIFY(second.isRunning());
}

void TestFileRunner::wrongUseIsRefused()
{
    const Spool spool;
    const Handler nothing = [](const FileAtHand&) { return Outcome::done(); };
    FileRunner runner(settingsFor(spool));
    QVERIFY(!failureText([&] { runner.start(); }).isNull());
    QVERIFY(!failureText([&] { runner.addConsumer("", nothing); }).isNull());
    QVERIFY(!failureText([&] { runner.addConsumer("a", {}); }).isNull());
    runner.addConsumer("a", nothing);
    QVERIFY(failureText([&] { runner.addConsumer("a", nothing); }).contains("[a]"));
    HandlerSettings none;
    none.threads = 0;
    QVERIFY(failureText([&] { runner.addConsumer("b", nothing, none); }).contains("[threads]"));
    HandlerSettings noAttempt;
    noAttempt.attempts = -1;
    QVERIFY(
        failureText([&] { runner.addConsumer("b", nothing, noAttempt); }).contains("[attempts]"));
    runner.start();
    QVERIFY(failureText([&] { runner.addConsumer("c", nothing); }).contains("[c]"));
    QVERIFY(!failureText([&] { runner.start(); }).isNull());

    RunnerSettings nowhere;
    nowhere.spool = spool.beside("nowhere");
    FileRunner lost(nowhere);
    lost.addConsumer("a", nothing);
    QVERIFY(failureText([&] { lost.start(); }).contains("nowhere"));
}

void TestFileRunner::restartRepeatsNothing()
{
    const Spool spool;
    QVERIFY(spool.putMany(20));
    Calls calls;
    const auto note = [&](const FileAtHand& file) {
        calls.note(file.name);
        return Outcome::done();
    };
    const auto later = [](const FileAtHand&) { return Outcome::retry("not today"); };
    HandlerSettings slow;
    slow.firstPause = 1h;
    slow.longestPause = 1h;
    for (int start = 0; start < 3; ++start) {
        FileRunner runner(settingsFor(spool));
        runner.addConsumer("noting", note);
        runner.addConsumer("late", later, slow);
        runner.start();
        QTRY_COMPARE(runner.progress().consumers.at(1).retrying, qint64(20));
        QTRY_COMPARE(runner.progress().consumers.at(0).waiting, qint64(0));
        QTRY_COMPARE(calls.count(), qsizetype(20));
        QCOMPARE(runner.stop(10s).waiting, qint64(20));
    }
    QCOMPARE(calls.count(), qsizetype(20));
}

void TestFileRunner::doneForSomeStaysDoneAfterARestart()
{
    const Spool spool;
    QVERIFY(spool.put("order"));
    Calls first;
    const auto noteFirst = [&](const FileAtHand& file) {
        first.note(file.key);
        return Outcome::done();
    };
    QString key;
    {
        FileRunner runner(settingsFor(spool));
        runner.addConsumer("first", noteFirst);
        runner.addConsumer("second", [](const FileAtHand&) { return Outcome::reject("no"); });
        runner.addConsumer(
            "third",
            [&key](const FileAtHand& file) {
                key = file.key;
                return Outcome::retry("wait");
            },
            HandlerSettings{1, 10, 1h, 1h, 1min});
        runner.start();
        QTRY_COMPARE(runner.progress().consumers.at(2).retrying, qint64(1));
        QTRY_COMPARE(runner.progress().consumers.at(1).quarantined, qint64(1));
        QTRY_COMPARE(first.count(), qsizetype(1));
    }
    QVERIFY(spool.holds("order"));
    // The quarantined link has changed the file's time of change, and so does its removal.
    QVERIFY(QFile::remove(spool.pathOf(".kez/quarantine/order")));
    int attempt = 0;
    QString keyAgain;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("first", noteFirst);
    runner.addConsumer("second", [](const FileAtHand&) { return Outcome::reject("no"); });
    runner.addConsumer("third", [&](const FileAtHand& file) {
        attempt = file.attempt;
        keyAgain = file.key;
        return Outcome::done();
    });
    runner.start();
    QTRY_VERIFY(!spool.holds("order"));
    runner.stop(10s);
    QCOMPARE(first.names(), QStringList{key});
    QCOMPARE(keyAgain, key);
    QCOMPARE(attempt, 2);
    QCOMPARE(spool.quarantined(), QStringList());
}

void TestFileRunner::progressIsAnnounced()
{
    const Spool spool;
    QVERIFY(spool.putMany(3));
    HandlerSettings late = quickSettings();
    late.firstPause = 1h;
    late.longestPause = 1h;
    FileRunner runner(settingsFor(spool));
    std::atomic<int> announcements = 0;
    connect(
        &runner, &FileRunner::progressed, &runner, [&] { ++announcements; }, Qt::DirectConnection);
    runner.addConsumer(
        "only",
        [](const FileAtHand& file) {
            if (file.name == u"order-000000")
                return Outcome::reject("no");
            return file.name == u"order-000001" ? Outcome::retry("later") : Outcome::done();
        },
        late);
    runner.start();
    QTRY_COMPARE(runner.progress().consumers.first().retrying, qint64(1));
    const RunnerProgress progress = runner.progress();
    QCOMPARE(progress.files, qint64(1));
    const ConsumerProgress& only = progress.consumers.first();
    QCOMPARE(only.id, QString("only"));
    QCOMPARE(only.done, qint64(1));
    QCOMPARE(only.quarantined, qint64(1));
    QCOMPARE(only.waiting, qint64(0));
    QCOMPARE(only.running, qint64(0));
    QCOMPARE(only.oldest, QString("order-000001"));
    QVERIFY(only.oldestSince.secsTo(QDateTime::currentDateTime()) < 3600);
    QTRY_VERIFY(announcements > 0);
}

void TestFileRunner::progressAfterTheStopIsTheLastOne()
{
    const Spool spool;
    QVERIFY(spool.putMany(3));
    std::promise<void> lastFile;
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", [&](const FileAtHand& file) {
        if (file.name == u"order-000000")
            return Outcome::reject("no");
        if (file.name == u"order-000002")
            lastFile.set_value();
        return Outcome::done();
    });
    runner.start();
    lastFile.get_future().wait();
    QCOMPARE(runner.stop(10s).waiting, qint64(0)); // before the next announcement is due
    const RunnerProgress progress = runner.progress();
    QCOMPARE(progress.files, qint64(0));
    QCOMPARE(progress.consumers.first().done, qint64(2));
    QCOMPARE(progress.consumers.first().quarantined, qint64(1));
}

void TestFileRunner::statusFileShowsTheProgress()
{
    const Spool spool;
    QVERIFY(spool.put("order"));
    FileRunner runner(settingsFor(spool));
    runner.addConsumer("only", [](const FileAtHand&) { return Outcome::done(); });
    runner.start();
    const auto status = [&spool] {
        return QJsonDocument::fromJson(readFile(spool.pathOf(".kez/status.json"))).object();
    };
    QCOMPARE(status().value("state").toString(), QString("running"));
    QCOMPARE(status().value("process").toInteger(), QCoreApplication::applicationPid());
    QTRY_VERIFY(!spool.holds("order"));
    runner.stop(10s);
    QCOMPARE(status().value("state").toString(), QString("stopped"));
    QCOMPARE(status().value("spool").toString(), spool.path());
    QCOMPARE(status().value("files").toInteger(-1), qint64(0));
    const QJsonObject only = status().value("consumers").toArray().first().toObject();
    QCOMPARE(only.value("id").toString(), QString("only"));
    QCOMPARE(only.value("done").toInteger(), qint64(1));
}

void TestFileRunner::progressIsFoundByConsumer()
{
    RunnerProgress progress;
    QCOMPARE(progress.consumer("first").id, QString());
    for (const QString id : {"first", "second"}) {
        progress.consumers.append(ConsumerProgress());
        progress.consumers.last().id = id;
        progress.consumers.last().done = progress.consumers.size();
    }
    QCOMPARE(progress.consumer("first").done, qint64(1));
    QCOMPARE(progress.consumer("second").done, qint64(2));
    QCOMPARE(progress.consumer("third").id, QString());
    QCOMPARE(progress.consumer("third").done, qint64(0));
}

void TestFileRunner::pauseIsInTheStatusFileAtOnce()
{
    const Spool spool;
    FileRunner runner(settingsFor(spool));
    std::atomic<int> announcements = 0;
    connect(
        &runner, &FileRunner::progressed, &runner, [&] { ++announcements; }, Qt::DirectConnection);
    runner.addConsumer("only", [](const FileAtHand&) { return Outcome::done(); });
    const auto state = [&spool] {
        const QByteArray text = readFile(spool.pathOf(".kez/status.json"));
        return QJsonDocument::fromJson(text).object().value("state").toString();
    };
    QElapsedTimer time;
    time.start();
    runner.start();
    for (int i = 0; i < 30; ++i) {
        QVERIFY(runner.pause(10s));
        QCOMPARE(state(), QString("paused"));
        runner.resume();
        QTRY_COMPARE(state(), QString("running"));
    }
    const qint64 most = time.elapsed() / 100 + 2; // as without a pause
    QVERIFY2(announcements <= most, QByteArray::number(announcements));
}

void TestFileRunner::presentFilesAreDeletedOnRequest()
{
    const Spool spool;
    QVERIFY(spool.putMany(3));
    RunnerSettings settings = settingsFor(spool);
    settings.present = PresentFiles::Delete;
    Calls calls;
    FileRunner runner(settings);
    runner.addConsumer("only", [&](const FileAtHand& file) {
        calls.note(file.name);
        return Outcome::done();
    });
    runner.start();
    QCOMPARE(spool.names(), QStringList());
    QVERIFY(spool.put("later"));
    QTRY_COMPARE(calls.names(), QStringList{"later"});
}

QTEST_GUILESS_MAIN(TestFileRunner)
#include "tst_filerunner.moc"
