// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/queuefixture.h"
#include "queue/rescanpace_p.h"
#include "support/messagecapture.h"
#include "support/queuefaults.h"
#include "support/tracelog.h"

#include <kez/FilesQueue.h>

#include <QFileSystemWatcher>
#include <QTest>
#include <QThread>
#include <QTimer>
#include <QTimerEvent>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

using namespace std::chrono_literals;
using Clock = RescanPace::Clock;

namespace {

/// Far longer than any test takes.
constexpr auto VeryLong = 1000000ms;

/// The pace of a queue that processes.
RescanPace& paceOf(const FilesQueue& queue)
{
    for (QObject* const child : queue.children()) {
        if (auto* const pace = dynamic_cast<RescanPace*>(child))
            return *pace;
    }
    qFatal("the queue has no pace");
}

/// Changes are held back from now on, as after a very long re-scan.
void holdChanges(const FilesQueue& queue)
{
    const auto now = Clock::now();
    paceOf(queue).noteRescan(now - VeryLong, now, true);
}

/// The pause is over, and its timer fires.
void endPause(RescanPace& pace)
{
    const auto now = Clock::now();
    pace.noteRescan(now, now, false);
    QTimerEvent event(0);
    QCoreApplication::sendEvent(&pace, &event);
}

void endPause(const FilesQueue& queue)
{
    endPause(paceOf(queue));
}

/// The pace of a queue, which counts the re-scans for changes that were held back.
struct CountingPace {
    /// A re-scan of that duration has just ended.
    explicit CountingPace(Clock::duration rescan) { pace.noteRescan(now - rescan, now, true); }

    QObject queue;
    int rescans = 0;
    RescanPace pace{&queue, [this] { ++rescans; }};
    const Clock::time_point now = Clock::now();
};

/// A queue that processes, in this thread, and the number of its re-scans.
class PacedQueue {
public:
    PacedQueue() { queue.onProcess(); }

    /// Since the last call.
    int rescans()
    {
        int count = 0;
        for (const QString& text : _traces.take())
            count += text.startsWith("> directoryChanged : Ajoutés");
        return count;
    }

    /// Makes a file and waits until the queue holds that change back.
    bool hold(const QString& name)
    {
        return directory.deliver(name) &&
               QTest::qWaitFor([&] { return paceOf(queue).isChangeHeld(); });
    }

private:
    TraceLog _traces;

public:
    QueueDirectory directory;
    FilesQueue queue{directory.path(), {{"c", nullptr}}, true, 0};
};

/// Lets every change that the system has signalled reach the queue.
void deliverSignals(const QueueDirectory& directory)
{
    QFileSystemWatcher later({directory.path()});
    bool isSeen = false;
    QObject::connect(&later, &QFileSystemWatcher::directoryChanged, [&] { isSeen = true; });
    directory.create(".last");
    QVERIFY(QTest::qWaitFor([&] { return isSeen; }));
    for (int i = 0; i < 5; ++i)
        QCoreApplication::processEvents();
}

} // namespace

class RescanPaceTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QueueFaults::reset(); }

    void firstChangeIsNotHeld();
    void changeWaitsForThreeTimesTheRescan_data();
    void changeWaitsForThreeTimesTheRescan();
    void pauseHasAnEnd();
    void heldChangeIsScannedOnce();
    void listingCoversAHeldChange();
    void failedListingDoesNotCoverAHeldChange();
    void shorterRescanShortensThePause();
    void earlyTimerWaitsAgain();
    void withoutEventLoopNothingIsHeld();

    void queueScansTheFirstChangeAtOnce();
    void queueScansABurstOnce();
    void queueSeesTheLastChange();
    void directCallIsNotHeld();
    void callFromAnotherObjectIsNotHeld_data();
    void callFromAnotherObjectIsNotHeld();
    void callFromASlotIsNotHeld_data();
    void callFromASlotIsNotHeld();
    void changeInANestedEventLoopIsHeld();
    void tickIsNotHeld();
    void directCallCoversAHeldChange();
    void failedDirectCallLeavesAHeldChange();
    void ownDeletionsEnd();
    void pausesMakeNoTimerObject();
    void queueIsDestroyedWithAHeldChange();
    void heldChangeGoesToAnotherThread();
    void quitWithAHeldChange();
    void directoryMadeAgainWithAHeldChange();
    void secondProcessScansOnce();
};

void RescanPaceTest::firstChangeIsNotHeld()
{
    QObject queue;
    RescanPace pace(&queue, [] {});
    QVERIFY(!pace.holdBack(Clock::now()));
    QVERIFY(!pace.isChangeHeld());
}

void RescanPaceTest::changeWaitsForThreeTimesTheRescan_data()
{
    QTest::addColumn<qint64>("rescan");
    QTest::newRow("nothing") << qint64(0);
    QTest::newRow("a nanosecond") << qint64(1);
    QTest::newRow("a microsecond") << qint64(1000);
    QTest::newRow("a millisecond") << qint64(1000000);
    QTest::newRow("a second") << qint64(1000000000);
}

void RescanPaceTest::changeWaitsForThreeTimesTheRescan()
{
    QFETCH(qint64, rescan);
    QObject queue;
    RescanPace pace(&queue, [] {});
    const auto end = Clock::now();
    pace.noteRescan(end - std::chrono::nanoseconds(rescan), end, true);
    const auto due = end + std::chrono::nanoseconds(3 * rescan);
    QVERIFY(!pace.holdBack(due));
    QVERIFY(!pace.holdBack(due + 1h));
    QVERIFY(!pace.isChangeHeld());
    QVERIFY(pace.holdBack(due - 1ns));
    QVERIFY(pace.isChangeHeld());
}

void RescanPaceTest::pauseHasAnEnd()
{
    QCOMPARE(RescanPace::pauseAfter(10s), Clock::duration(30s));
    QCOMPARE(RescanPace::pauseAfter(20s), Clock::duration(60s));
    QCOMPARE(RescanPace::pauseAfter(24h), Clock::duration(60s));
    QCOMPARE(RescanPace::pauseAfter(0s), Clock::duration(0s));
}

void RescanPaceTest::heldChangeIsScannedOnce()
{
    CountingPace counting(2ms);
    auto& [queue, rescans, pace, now] = counting;
    for (int i = 0; i < 100; ++i)
        QVERIFY(pace.holdBack(now));
    QCOMPARE(rescans, 0);
    QTRY_COMPARE(rescans, 1);
    QVERIFY(Clock::now() >= now + 6ms); // not before, however late
    QVERIFY(!pace.isChangeHeld());
    QTest::qWait(30);
    QCOMPARE(rescans, 1);
}

void RescanPaceTest::listingCoversAHeldChange()
{
    CountingPace counting(2ms);
    auto& [queue, rescans, pace, now] = counting;
    QVERIFY(pace.holdBack(now));
    pace.noteRescan(now, now, true);
    QVERIFY(!pace.isChangeHeld());
    QTest::qWait(30);
    QCOMPARE(rescans, 0);
}

void RescanPaceTest::failedListingDoesNotCoverAHeldChange()
{
    CountingPace counting(2ms);
    auto& [queue, rescans, pace, now] = counting;
    QVERIFY(pace.holdBack(now));
    pace.noteRescan(now, now, false);
    QTRY_COMPARE(rescans, 1);
}

void RescanPaceTest::shorterRescanShortensThePause()
{
    CountingPace counting(VeryLong);
    auto& [queue, rescans, pace, now] = counting;
    QVERIFY(pace.holdBack(now));
    pace.noteRescan(now - 1ms, now, true);
    QVERIFY(pace.holdBack(now));
    QTRY_COMPARE(rescans, 1);
}

void RescanPaceTest::earlyTimerWaitsAgain()
{
    CountingPace counting(VeryLong);
    auto& [queue, rescans, pace, now] = counting;
    QVERIFY(pace.holdBack(now));
    QTimerEvent event(0);
    QCoreApplication::sendEvent(&pace, &event);
    QCOMPARE(rescans, 0);
    QVERIFY(pace.isChangeHeld());
    endPause(pace);
    QCOMPARE(rescans, 1);
    QVERIFY(!pace.isChangeHeld());
}

void RescanPaceTest::withoutEventLoopNothingIsHeld()
{
    // A timer that cannot start would never fire.
    const MessageCapture output;
    bool isHeld = true;
    std::thread([&] {
        QObject queue;
        RescanPace pace(&queue, [] {});
        const auto now = Clock::now();
        pace.noteRescan(now - VeryLong, now, true);
        isHeld = pace.holdBack(now) || pace.isChangeHeld();
    }).join();
    QVERIFY(!isHeld);
}

void RescanPaceTest::queueScansTheFirstChangeAtOnce()
{
    PacedQueue paced;
    QVERIFY(paced.directory.deliver("a"));
    QTRY_VERIFY(paced.queue.existsFileEntry("a"));

    // So is the first one after a quiet moment.
    deliverSignals(paced.directory);
    QTRY_VERIFY(!paceOf(paced.queue).isChangeHeld());
    const auto now = Clock::now();
    paceOf(paced.queue).noteRescan(now - VeryLong - 1ms, now - VeryLong, true);
    QVERIFY(paced.directory.deliver("b"));
    QTRY_VERIFY(paced.queue.existsFileEntry("b"));
}

void RescanPaceTest::queueScansABurstOnce()
{
    PacedQueue paced;
    holdChanges(paced.queue);
    for (int i = 0; i < 50; ++i) {
        QVERIFY(paced.hold(QString::number(i)));
        QCoreApplication::processEvents();
    }
    deliverSignals(paced.directory);
    paced.rescans();
    QCOMPARE(paced.queue.size(), 0);
    const QSignalSpy updated(&paced.queue, &FilesQueue::queueUpdated);
    endPause(paced.queue);
    QCOMPARE(paced.rescans(), 1);
    QCOMPARE(updated.size(), 1);
    QCOMPARE(paced.queue.size(), 50);
    QTest::qWait(30);
    QCOMPARE(paced.rescans(), 0);
}

void RescanPaceTest::queueSeesTheLastChange()
{
    // Whatever the moment at which the last file of a burst comes.
    PacedQueue paced;
    for (int burst = 1; burst <= 60; ++burst) {
        const auto now = Clock::now();
        paceOf(paced.queue).noteRescan(now - 500us, now, true);
        for (int i = 0; i < burst % 7; ++i) {
            QVERIFY(paced.directory.deliver(QStringLiteral("%1-%2").arg(burst).arg(i)));
            QCoreApplication::processEvents();
        }
        const QString last = QStringLiteral("last-%1").arg(burst);
        QVERIFY(paced.directory.deliver(last));
        QTRY_VERIFY(paced.queue.existsFileEntry(last));
    }
    QCOMPARE(paced.queue.size(), int(paced.directory.names().size()));
}

void RescanPaceTest::directCallIsNotHeld()
{
    PacedQueue paced;
    for (int i = 0; i < 5; ++i) {
        holdChanges(paced.queue);
        QVERIFY(paced.directory.deliver(QString::number(i)));
        paced.queue.onDirectoryChanged();
        QCOMPARE(paced.queue.size(), i + 1);
    }
    holdChanges(paced.queue);
    QVERIFY(paced.directory.deliver("a"));
    QVERIFY(QMetaObject::invokeMethod(&paced.queue, "onDirectoryChanged"));
    QCOMPARE(paced.queue.size(), 6);
}

void RescanPaceTest::callFromAnotherObjectIsNotHeld_data()
{
    QTest::addColumn<bool>("isWatcher");
    QTest::addColumn<bool>("isQueued");
    QTest::newRow("an object") << false << false;
    QTest::newRow("an object, queued") << false << true;
    QTest::newRow("the application's own watcher") << true << false;
    QTest::newRow("the application's own watcher, queued") << true << true;
}

void RescanPaceTest::callFromAnotherObjectIsNotHeld()
{
    QFETCH(bool, isWatcher);
    QFETCH(bool, isQueued);
    PacedQueue paced;
    const QueueDirectory other;
    const auto type = isQueued ? Qt::QueuedConnection : Qt::DirectConnection;
    QObject object;
    QFileSystemWatcher watcher({other.path()});
    if (isWatcher)
        connect(&watcher, &QFileSystemWatcher::directoryChanged, &paced.queue,
                &FilesQueue::onDirectoryChanged, type);
    else
        connect(&object, &QObject::objectNameChanged, &paced.queue, &FilesQueue::onDirectoryChanged,
                type);
    holdChanges(paced.queue);
    QVERIFY(paced.hold("a"));
    if (isWatcher)
        QVERIFY(other.create("x"));
    else
        object.setObjectName("changed");
    QTRY_VERIFY(paced.queue.existsFileEntry("a"));
    QVERIFY(!paceOf(paced.queue).isChangeHeld());
}

void RescanPaceTest::callFromASlotIsNotHeld_data()
{
    QTest::addColumn<bool>("isHeld");
    QTest::newRow("during a re-scan at once") << false;
    QTest::newRow("during a re-scan after a pause") << true;
}

void RescanPaceTest::callFromASlotIsNotHeld()
{
    // The slot of another object calls while the signal of the watch is still being delivered.
    QFETCH(bool, isHeld);
    PacedQueue paced;
    QObject other;
    int calls = 0;
    connect(&paced.queue, &FilesQueue::queueUpdated, &other, [&] {
        if (++calls > 3)
            return;
        holdChanges(paced.queue);
        const QString name = QStringLiteral("from-slot-%1").arg(calls);
        QVERIFY(paced.directory.deliver(name));
        paced.queue.onDirectoryChanged();
        QVERIFY(paced.queue.existsFileEntry(name));
    });
    if (isHeld) {
        holdChanges(paced.queue);
        QVERIFY(paced.hold("a"));
        endPause(paced.queue);
    } else {
        QVERIFY(paced.directory.deliver("a"));
    }
    QTRY_COMPARE(calls, 4);
    QCOMPARE(paced.queue.size(), 4);

    // Later signals of the watch are held as before.
    holdChanges(paced.queue);
    QVERIFY(paced.hold("b"));
    QVERIFY(!paced.queue.existsFileEntry("b"));
}

void RescanPaceTest::changeInANestedEventLoopIsHeld()
{
    PacedQueue paced;
    bool isHeld = false;
    bool isCallHeld = true;
    connect(&paced.queue, &FilesQueue::queueUpdated, this, [&] {
        disconnect(&paced.queue, &FilesQueue::queueUpdated, this, nullptr);
        holdChanges(paced.queue);
        isHeld = paced.hold("b") && !paced.queue.existsFileEntry("b");
        paced.queue.onDirectoryChanged();
        isCallHeld = !paced.queue.existsFileEntry("b");
    });
    QVERIFY(paced.directory.deliver("a"));
    QTRY_VERIFY(!isCallHeld);
    QVERIFY(isHeld);
}

void RescanPaceTest::tickIsNotHeld()
{
    PacedQueue paced;
    paced.queue.setScrutationIntervall(60000);
    QVERIFY(paced.queue.enableScrutationMode());
    holdChanges(paced.queue);
    QVERIFY(paced.hold("a"));
    auto* const timer = paced.queue.findChild<QTimer*>();
    QVERIFY(timer);
    timer->start(1);
    QTRY_VERIFY(paced.queue.existsFileEntry("a"));
    timer->stop();
    for (int i = 0; i < 3; ++i) {
        holdChanges(paced.queue);
        paced.rescans();
        timer->start(0);
        int rescans = 0;
        QTRY_VERIFY((rescans += paced.rescans()) > 0);
        timer->stop();
    }
}

void RescanPaceTest::directCallCoversAHeldChange()
{
    PacedQueue paced;
    holdChanges(paced.queue);
    QVERIFY(paced.hold("a"));
    deliverSignals(paced.directory);
    paced.queue.onDirectoryChanged();
    paced.rescans();
    QVERIFY(!paceOf(paced.queue).isChangeHeld());
    QTest::qWait(30);
    QCOMPARE(paced.rescans(), 0);
}

void RescanPaceTest::failedDirectCallLeavesAHeldChange()
{
    PacedQueue paced;
    holdChanges(paced.queue);
    QVERIFY(paced.hold("a"));
    QueueFaults::openError = EMFILE;
    paced.queue.onDirectoryChanged();
    QueueFaults::openError = 0;
    QVERIFY(!paced.queue.existsFileEntry("a"));
    QVERIFY(paceOf(paced.queue).isChangeHeld());
    endPause(paced.queue);
    QVERIFY(paced.queue.existsFileEntry("a"));
}

void RescanPaceTest::ownDeletionsEnd()
{
    PacedQueue paced;
    for (int i = 0; i < 20; ++i)
        QVERIFY(paced.directory.create(QString::number(i)));
    paced.queue.onDirectoryChanged();
    for (int i = 0; i < 20; ++i)
        paced.queue.onConsumed("c", QString::number(i));
    paced.queue.onDirectoryChanged();
    QCOMPARE(paced.directory.names(), QStringList());
    deliverSignals(paced.directory);
    QTRY_VERIFY(!paceOf(paced.queue).isChangeHeld());
    paced.rescans();
    QTest::qWait(100);
    QCOMPARE(paced.rescans(), 0);
}

void RescanPaceTest::pausesMakeNoTimerObject()
{
    PacedQueue paced;
    holdChanges(paced.queue);
    QVERIFY(paced.hold("a"));
    QVERIFY(paced.queue.findChildren<QTimer*>().isEmpty());
    QCOMPARE(paced.queue.findChildren<QFileSystemWatcher*>().size(), 1);
}

void RescanPaceTest::queueIsDestroyedWithAHeldChange()
{
    const MessageCapture output;
    const TraceLog traces;
    const QueueDirectory directory;
    auto queue = std::make_unique<FilesQueue>(directory.path(), QList<ConsumerEntry>(), true, 0);
    queue->onProcess();
    holdChanges(*queue);
    QVERIFY(directory.create("a"));
    QTRY_VERIFY(paceOf(*queue).isChangeHeld());
    queue.reset();
    QTest::qWait(20);
    QCOMPARE(output.texts(), QStringList());
}

void RescanPaceTest::heldChangeGoesToAnotherThread()
{
    const MessageCapture output;
    const TraceLog traces;
    const QueueDirectory directory;
    QThread thread;
    FilesQueue queue(directory.path(), {}, true, 0);
    queue.onProcess();
    holdChanges(queue);
    QVERIFY(directory.create("a"));
    QTRY_VERIFY(paceOf(queue).isChangeHeld());
    queue.moveToThread(&thread);
    thread.start();

    // The timer runs in the new thread.
    std::atomic<bool> isSeen = false;
    connect(
        &queue, &FilesQueue::queueUpdated, &queue,
        [&] { isSeen = QThread::currentThread() == &thread; }, Qt::DirectConnection);
    QTimer::singleShot(0, &queue, [&] { endPause(queue); });
    QTRY_VERIFY(isSeen);
    QTimer::singleShot(0, &queue, [&] { queue.moveToThread(qApp->thread()); });
    QTRY_COMPARE(queue.thread(), qApp->thread());
    thread.quit();
    QVERIFY(thread.wait(5000));
    QVERIFY(queue.existsFileEntry("a"));
    QCOMPARE(output.texts(), QStringList());
}

void RescanPaceTest::quitWithAHeldChange()
{
    const MessageCapture output;
    const TraceLog traces(LoggerLevel::fatal);
    const QueueDirectory directory;
    {
        QThread thread;
        FilesQueue queue(directory.path(), {}, true, 0);
        queue.moveToThread(&thread);
        connect(&thread, &QThread::started, &queue, &FilesQueue::onProcess);
        thread.start();
        QVERIFY(QMetaObject::invokeMethod(
            &queue, [&] { holdChanges(queue); }, Qt::BlockingQueuedConnection));
        QVERIFY(directory.create("a"));
        QTRY_VERIFY([&] {
            bool isHeld = false;
            QMetaObject::invokeMethod(
                &queue, [&] { isHeld = paceOf(queue).isChangeHeld(); },
                Qt::BlockingQueuedConnection);
            return isHeld;
        }());
        QMetaObject::invokeMethod(&queue, &FilesQueue::onQuit);
        QVERIFY(thread.wait(5000));
        QVERIFY(!queue.existsFileEntry("a"));
    }
    QCOMPARE(output.texts(), QStringList());
}

void RescanPaceTest::directoryMadeAgainWithAHeldChange()
{
    const TraceLog traces;
    const QueueDirectory parent;
    QVERIFY(parent.makeDirectory("queue"));
    FilesQueue queue(parent.filePath("queue"), {}, true, 0);
    queue.onProcess();
    QVERIFY(parent.create("queue/a"));
    QTRY_VERIFY(queue.existsFileEntry("a"));
    holdChanges(queue);
    QVERIFY(parent.remove("queue/a"));
    QVERIFY(QDir().rmdir(parent.filePath("queue")));
    QTRY_VERIFY(paceOf(queue).isChangeHeld());
    QVERIFY(parent.makeDirectory("queue"));
    QVERIFY(parent.create("queue/b"));

    // The held change finds the new directory and watches it.
    endPause(queue);
    QCOMPARE(queuedNames(queue, {"a", "b"}), QStringList("b"));
    QVERIFY(parent.create("queue/d"));
    QTRY_COMPARE(queuedNames(queue, {"b", "d"}), QStringList({"b", "d"}));
}

void RescanPaceTest::secondProcessScansOnce()
{
    // Both watches signal a change.
    PacedQueue paced;
    paced.queue.onProcess();
    holdChanges(paced.queue);
    QVERIFY(paced.hold("a"));
    deliverSignals(paced.directory);
    paced.rescans();
    endPause(paced.queue);
    QCOMPARE(paced.rescans(), 1);
    QVERIFY(paced.queue.existsFileEntry("a"));
}

QTEST_GUILESS_MAIN(RescanPaceTest)
#include "tst_rescanpace.moc"
