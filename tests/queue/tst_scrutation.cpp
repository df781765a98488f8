// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/queuefixture.h"
#include "support/tracelog.h"

#include <kez/FilesQueue.h>

#include <QFileSystemWatcher>
#include <QPointer>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <limits>

namespace {

QTimer* timerOf(const FilesQueue& queue)
{
    return queue.findChild<QTimer*>(QString(), Qt::FindDirectChildrenOnly);
}

} // namespace

class ScrutationTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void withoutIntervalThereIsNoTimer_data();
    void withoutIntervalThereIsNoTimer();
    void enablingMakesARepeatingTimer();
    void enablingAgainKeepsTheTimer();
    void enablingMakesTheTimerRepeatAgain();
    void disablingKeepsTheTimer();
    void disablingWithoutTimerDoesNothing();
    void timerEndsWithTheThreadThatTheQueueLivesIn_data();
    void timerEndsWithTheThreadThatTheQueueLivesIn();
    void newIntervalRestartsARunningTimer();
    void noIntervalStopsARunningTimer_data();
    void noIntervalStopsARunningTimer();
    void newIntervalLeavesAStoppedTimerStopped();
    void noIntervalLeavesAStoppedTimerAlone();
    void intervalWithoutTimerIsOnlyStored();
    void stoppedTimerRunsAgain();
    void largestInterval();
    void everyTickIsARescan();
    void stoppedTimerDoesNotRescan();
    void tickFindsADirectoryThatIsMadeAgain();
    void tickDeletesConsumedFiles();

    void processMakesTheWatcherAndTheTimer();
    void processWithoutIntervalMakesNoTimer();
    void processDoesNotRescan();
    void watchSeesFilesComeAndGo();
    void watchSurvivesManyChanges();
};

void ScrutationTest::withoutIntervalThereIsNoTimer_data()
{
    QTest::addColumn<int>("interval");
    QTest::newRow("zero") << 0;
    QTest::newRow("below") << -1;
    QTest::newRow("far below") << std::numeric_limits<int>::min();
}

void ScrutationTest::withoutIntervalThereIsNoTimer()
{
    QFETCH(int, interval);
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, interval);
    QCOMPARE(queue.scrutationIntervall(), interval);
    QCOMPARE(queue.enableScrutationMode(), false);
    QVERIFY(!timerOf(queue));
    queue.setScrutationIntervall(0);
    QCOMPARE(queue.enableScrutationMode(), false);
    QVERIFY(!timerOf(queue));

    queue.setScrutationIntervall(500);
    QVERIFY(!timerOf(queue));
    QCOMPARE(queue.enableScrutationMode(), true);
    QVERIFY(timerOf(queue)->isActive());
    QCOMPARE(timerOf(queue)->interval(), 500);
}

void ScrutationTest::enablingMakesARepeatingTimer()
{
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 700);
    QVERIFY(!timerOf(queue));
    QCOMPARE(queue.enableScrutationMode(), true);
    QTimer* const timer = timerOf(queue);
    QVERIFY(timer);
    QVERIFY(timer->isActive());
    QVERIFY(!timer->isSingleShot());
    QCOMPARE(timer->interval(), 700);
    QCOMPARE(queue.scrutationIntervall(), 700);
}

void ScrutationTest::enablingAgainKeepsTheTimer()
{
    const TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 30);
    QVERIFY(queue.enableScrutationMode());
    QTimer* const timer = timerOf(queue);
    QCOMPARE(queue.enableScrutationMode(), true);
    QCOMPARE(queue.findChildren<QTimer*>(), QList<QTimer*>({timer}));
    QVERIFY(timer->isActive());

    // The timer is still connected once: each tick is one re-scan, which writes two traces.
    const QSignalSpy ticks(timer, &QTimer::timeout);
    QTRY_VERIFY(ticks.size() >= 2);
    queue.disableScrutationMode();
    QCOMPARE(traces.texts().size(), 2 * ticks.size());
}

void ScrutationTest::enablingMakesTheTimerRepeatAgain()
{
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 700);
    QVERIFY(queue.enableScrutationMode());
    timerOf(queue)->setSingleShot(true);
    QVERIFY(queue.enableScrutationMode());
    QVERIFY(!timerOf(queue)->isSingleShot());
    queue.disableScrutationMode();
    timerOf(queue)->setSingleShot(true);
    QVERIFY(queue.enableScrutationMode());
    QVERIFY(!timerOf(queue)->isSingleShot());
}

void ScrutationTest::disablingKeepsTheTimer()
{
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 700);
    QVERIFY(queue.enableScrutationMode());
    QTimer* const timer = timerOf(queue);
    queue.disableScrutationMode();
    QCOMPARE(timerOf(queue), timer);
    QVERIFY(!timer->isActive());
    QCOMPARE(queue.scrutationIntervall(), 700);
    queue.disableScrutationMode();
    QVERIFY(!timer->isActive());
}

void ScrutationTest::timerEndsWithTheThreadThatTheQueueLivesIn_data()
{
    QTest::addColumn<bool>("movesAway");
    QTest::newRow("its thread") << false;
    QTest::newRow("a thread that it left") << true;
}

void ScrutationTest::timerEndsWithTheThreadThatTheQueueLivesIn()
{
    QFETCH(const bool, movesAway);
    const TraceLog traces;
    const QueueDirectory directory;
    QThread* const home = QThread::currentThread();
    QThread worker;
    FilesQueue queue(directory.path(), {}, true, 100000);
    queue.moveToThread(&worker);
    connect(&worker, &QThread::started, &queue, [&] {
        queue.onProcess();
        if (movesAway)
            queue.moveToThread(home);
        worker.quit();
    });
    worker.start();
    QVERIFY(worker.wait(10000));
    QCoreApplication::processEvents(); // a timer that moved starts again in its new thread
    QCOMPARE(timerOf(queue)->isActive(), movesAway);
}

void ScrutationTest::disablingWithoutTimerDoesNothing()
{
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 700);
    queue.disableScrutationMode();
    QVERIFY(!timerOf(queue));
    QVERIFY(queue.enableScrutationMode());
}

void ScrutationTest::newIntervalRestartsARunningTimer()
{
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 60000);
    QVERIFY(queue.enableScrutationMode());
    QTimer* const timer = timerOf(queue);
    queue.setScrutationIntervall(90000);
    QCOMPARE(queue.scrutationIntervall(), 90000);
    QCOMPARE(timerOf(queue), timer);
    QVERIFY(timer->isActive());
    QVERIFY(!timer->isSingleShot());
    QCOMPARE(timer->interval(), 90000);
    QVERIFY(timer->remainingTime() > 60000);
}

void ScrutationTest::noIntervalStopsARunningTimer_data()
{
    QTest::addColumn<int>("interval");
    QTest::newRow("zero") << 0;
    QTest::newRow("below") << -5;
}

void ScrutationTest::noIntervalStopsARunningTimer()
{
    QFETCH(int, interval);
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 700);
    QVERIFY(queue.enableScrutationMode());
    const QPointer<QTimer> timer = timerOf(queue);
    queue.setScrutationIntervall(interval);
    QCOMPARE(queue.scrutationIntervall(), interval);
    QVERIFY(timer);
    QVERIFY(!timer->isActive());
    QCOMPARE(timer->interval(), 700);
    QCOMPARE(queue.enableScrutationMode(), false);
    QVERIFY(!timer->isActive());
    QCOMPARE(queue.findChildren<QTimer*>().size(), 1);
}

void ScrutationTest::newIntervalLeavesAStoppedTimerStopped()
{
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 700);
    QVERIFY(queue.enableScrutationMode());
    queue.disableScrutationMode();
    queue.setScrutationIntervall(200);
    QCOMPARE(queue.scrutationIntervall(), 200);
    QVERIFY(!timerOf(queue)->isActive());
    QCOMPARE(timerOf(queue)->interval(), 200);

    // The same if the interval 0 has stopped it.
    QVERIFY(queue.enableScrutationMode());
    queue.setScrutationIntervall(0);
    queue.setScrutationIntervall(300);
    QVERIFY(!timerOf(queue)->isActive());
    QCOMPARE(timerOf(queue)->interval(), 300);
}

void ScrutationTest::noIntervalLeavesAStoppedTimerAlone()
{
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 700);
    QVERIFY(queue.enableScrutationMode());
    queue.disableScrutationMode();
    queue.setScrutationIntervall(0);
    QCOMPARE(queue.scrutationIntervall(), 0);
    QVERIFY(!timerOf(queue)->isActive());
    QCOMPARE(timerOf(queue)->interval(), 700);
}

void ScrutationTest::intervalWithoutTimerIsOnlyStored()
{
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 10);
    for (const int interval : {200, 0, -3, 400}) {
        queue.setScrutationIntervall(interval);
        QCOMPARE(queue.scrutationIntervall(), interval);
        QVERIFY(!timerOf(queue));
    }
    QVERIFY(queue.enableScrutationMode());
    QCOMPARE(timerOf(queue)->interval(), 400);
}

void ScrutationTest::stoppedTimerRunsAgain()
{
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 700);
    QVERIFY(queue.enableScrutationMode());
    QTimer* const timer = timerOf(queue);
    queue.setScrutationIntervall(0);
    queue.setScrutationIntervall(800);
    QCOMPARE(queue.enableScrutationMode(), true);
    QCOMPARE(queue.findChildren<QTimer*>(), QList<QTimer*>({timer}));
    QVERIFY(timer->isActive());
    QCOMPARE(timer->interval(), 800);

    queue.disableScrutationMode();
    QCOMPARE(queue.enableScrutationMode(), true);
    QVERIFY(timer->isActive());
    QCOMPARE(timer->interval(), 800);
}

void ScrutationTest::largestInterval()
{
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, std::numeric_limits<int>::max());
    QVERIFY(queue.enableScrutationMode());
    QCOMPARE(timerOf(queue)->interval(), std::numeric_limits<int>::max());
    queue.setScrutationIntervall(1);
    QCOMPARE(timerOf(queue)->interval(), 1);
}

void ScrutationTest::everyTickIsARescan()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), {}, true, 20);
    QVERIFY(queue.enableScrutationMode());
    QCOMPARE(traces.texts(), QStringList());
    QTRY_VERIFY(traces.texts().size() >= 6);
    queue.disableScrutationMode();
    const QStringList seen = traces.take();
    QCOMPARE(seen.size() % 2, 0);
    for (int i = 0; i < seen.size(); i += 2) {
        QCOMPARE(seen.at(i), listingTrace(1));
        QCOMPARE(seen.at(i + 1), summaryTrace(0, 0, 0, 1));
    }
}

void ScrutationTest::stoppedTimerDoesNotRescan()
{
    TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 20);
    QVERIFY(queue.enableScrutationMode());
    QTRY_VERIFY(!traces.texts().isEmpty());
    queue.disableScrutationMode();
    traces.take();
    QTest::qWait(100);
    QCOMPARE(traces.take(), QStringList());

    QVERIFY(queue.enableScrutationMode());
    QTRY_VERIFY(!traces.texts().isEmpty());
    queue.setScrutationIntervall(0);
    traces.take();
    QTest::qWait(100);
    QCOMPARE(traces.take(), QStringList());
}

void ScrutationTest::tickFindsADirectoryThatIsMadeAgain()
{
    // A directory that is removed and made again has no watch until a tick finds it.
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.makeDirectory("queue"));
    FilesQueue queue(directory.filePath("queue"), {}, true, 20);
    queue.onProcess();
    QVERIFY(QDir().rmdir(directory.filePath("queue")));
    QVERIFY(directory.makeDirectory("queue"));
    QTest::qWait(50);
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    QVERIFY(directory.create("queue/a"));
    QTRY_COMPARE(updated.size(), 1);
    QCOMPARE(queue.fileIndex("a"), 0);
}

void ScrutationTest::tickDeletesConsumedFiles()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    ConsumerAncestor consumer("c");
    FilesQueue queue(directory.path(), {{"c", &consumer}}, true, 20);
    queue.onProcess();
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    Q_EMIT consumer.consumed("c", "a");
    QVERIFY(directory.exists("a"));
    QTRY_COMPARE(directory.names(), QStringList("b"));
    QTRY_COMPARE(queue.size(), 1);
    QCOMPARE(updated.size(), 0);
}

void ScrutationTest::processMakesTheWatcherAndTheTimer()
{
    const TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 60000);
    QVERIFY(!queue.findChild<QFileSystemWatcher*>());
    queue.onProcess();
    const QList<QFileSystemWatcher*> watchers =
        queue.findChildren<QFileSystemWatcher*>(QString(), Qt::FindDirectChildrenOnly);
    QCOMPARE(watchers.size(), 1);
    QCOMPARE(watchers.at(0)->directories(), QStringList(directory.path()));
    QCOMPARE(watchers.at(0)->files(), QStringList());
    QVERIFY(timerOf(queue)->isActive());
    QCOMPARE(timerOf(queue)->interval(), 60000);
}

void ScrutationTest::processWithoutIntervalMakesNoTimer()
{
    const TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 0);
    queue.onProcess();
    QVERIFY(queue.findChild<QFileSystemWatcher*>());
    QVERIFY(!timerOf(queue));
}

void ScrutationTest::processDoesNotRescan()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), {}, true, 0);
    QVERIFY(directory.create("b"));
    QVERIFY(directory.remove("a"));
    queue.onProcess();
    QTest::qWait(100);
    QCOMPARE(traces.take().size(), 1);
    QCOMPARE(queuedNames(queue, {"a", "b"}), QStringList("a"));

    QVERIFY(directory.deliver("d"));
    QTRY_COMPARE(queuedNames(queue, {"a", "b", "d"}), QStringList({"b", "d"}));
}

void ScrutationTest::watchSeesFilesComeAndGo()
{
    const TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 0);
    queue.onProcess();
    QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    QVERIFY(directory.deliver("a"));
    QTRY_COMPARE(updated.size(), 1);
    QCOMPARE(updated.at(0).at(0).value<QList<QString>>(), QList<QString>({"a"}));
    QVERIFY(directory.remove("a"));
    QTRY_COMPARE(updated.size(), 2);
    QCOMPARE(updated.at(1).at(1).value<QList<QString>>(), QList<QString>({"a"}));
    QCOMPARE(queue.size(), 0);
}

void ScrutationTest::watchSurvivesManyChanges()
{
    const TraceLog traces(LoggerLevel::fatal);
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 0);
    queue.onProcess();
    for (int i = 0; i < 2000; ++i)
        QVERIFY(directory.deliver(QString::number(i)));
    QTRY_COMPARE(queue.size(), 2000);
    for (int i = 0; i < 2000; ++i)
        QVERIFY(directory.remove(QString::number(i)));
    QTRY_COMPARE(queue.size(), 0);
}

QTEST_GUILESS_MAIN(ScrutationTest)
#include "tst_scrutation.moc"
