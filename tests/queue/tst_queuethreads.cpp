// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/queuefixture.h"
#include "support/failuretext.h"
#include "support/messagecapture.h"
#include "support/tracelog.h"

#include <kez/ConsumerAncestor.h>
#include <kez/FilesQueue.h>

#include <QFileSystemWatcher>
#include <QJsonArray>
#include <QJsonObject>
#include <QSemaphore>
#include <QSet>
#include <QTest>
#include <QThread>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace {

/// Tells ThreadSanitizer that one thread passes data to another one: what a thread wrote before
/// give() is visible to a thread that calls take() later. Qt does the same, but is not built with
/// ThreadSanitizer, which therefore does not see it.
class Handover {
public:
    void give() { _count.fetch_add(1, std::memory_order_release); }
    void take() const { _count.load(std::memory_order_acquire); }

private:
    std::atomic<int> _count = 0;
};

/// Runs one action in the thread that it lives in.
class Runner : public QObject {
    Q_OBJECT

public:
    explicit Runner(Handover& handover) : _handover(handover) {}

    const std::function<void()>* action = nullptr;

public Q_SLOTS:
    void run()
    {
        _handover.take();
        (*action)();
        _handover.give();
    }

private:
    Handover& _handover;
};

/// A queue that runs in a thread of its own, as an application arranges it.
class RunningQueue {
public:
    explicit RunningQueue(std::unique_ptr<FilesQueue> queue) : _queue(std::move(queue))
    {
        _thread.setObjectName("queue thread");
        _queue->moveToThread(&_thread);
        _runner->moveToThread(&_thread);
        QObject::connect(&_thread, &QThread::started, _queue.get(), &FilesQueue::onProcess);
        QObject::connect(
            &_thread, &QThread::finished, _queue.get(), [this] { _handover.give(); },
            Qt::DirectConnection);
        QObject::connect(
            _queue.get(), &FilesQueue::filesNotConsumed, _queue.get(), [this] { _answers.give(); },
            Qt::DirectConnection);
    }
    ~RunningQueue()
    {
        _thread.quit();
        hasEnded();
    }

    FilesQueue& queue() const { return *_queue; }
    QThread& thread() { return _thread; }

    /// Covers what filesNotConsumed() carries to other threads.
    const Handover& answers() const { return _answers; }

    void start()
    {
        _thread.start();
        call([] {});
    }
    bool hasEnded()
    {
        const bool result = _thread.wait(10000);
        _handover.take();
        return result;
    }

    /// Runs `action` in the queue's thread, after the events that are already posted to the queue.
    /// Slots that the queue's thread runs are connected there, so that ThreadSanitizer sees the
    /// order.
    void call(const std::function<void()>& action)
    {
        _runner->action = &action;
        _handover.give();
        QMetaObject::invokeMethod(_runner.get(), "run", Qt::BlockingQueuedConnection);
        _handover.take();
    }

    int size()
    {
        int result = -1;
        call([&] { result = _queue->size(); });
        return result;
    }

private:
    Handover _handover;
    Handover _answers;
    std::unique_ptr<Runner> _runner = std::make_unique<Runner>(_handover);
    std::unique_ptr<FilesQueue> _queue;
    QThread _thread;
};

/// A consumer in a thread of its own, which handles each file once.
class RunningConsumer : public ConsumerAncestor {
public:
    explicit RunningConsumer(const QString& id) : ConsumerAncestor(id) {}

    /// To be called once, after the consumer is registered with the queue.
    void start(RunningQueue& running)
    {
        const FilesQueue& queue = running.queue();
        _running = &running;
        _directory = queue.path().absolutePath() + "/";
        moveToThread(&_thread);
        connect(&queue, &FilesQueue::queueUpdated, this, &RunningConsumer::ask);
        connect(&queue, &FilesQueue::filesNotConsumed, this, &RunningConsumer::handle);
        connect(&_thread, &QThread::started, this, &RunningConsumer::ask);
        connect(
            &_thread, &QThread::finished, this, [this] { _handover.give(); }, Qt::DirectConnection);
        _thread.start();
    }
    void stop()
    {
        _thread.quit();
        _thread.wait();
        _handover.take();
    }

    int handledCount() const { return _handledCount; }

    /// To be called after stop().
    const QSet<QString>& handled() const { return _handled; }
    int failures() const { return _failures; }

private:
    void ask() { Q_EMIT requestForFiles(id()); }

    void handle(const QList<QString>& files, bool error)
    {
        _running->answers().take();
        if (error)
            ++_failures;
        for (const QString& name : files) {
            if (_handled.contains(name))
                continue;
            QFile file(_directory + name);
            if (!file.open(QIODevice::ReadOnly) || file.readAll() != "content")
                ++_failures;
            _handled.insert(name);
            ++_handledCount;
            Q_EMIT consumed(id(), name);
        }
    }

    RunningQueue* _running = nullptr;
    QString _directory;
    QSet<QString> _handled;
    int _failures = 0;
    std::atomic<int> _handledCount = 0;
    Handover _handover;
    QThread _thread;
};

/// Asks a queue everything, from the thread that this object lives in.
class Inquirer : public QObject {
public:
    Inquirer(const FilesQueue& queue, Handover& handover) : _queue(queue), _handover(handover) {}

    void inquire()
    {
        _handover.take();
        const QString name = QStringLiteral("z");
        _answers << QString::number(_queue.size()) << QString::number(_queue.index("c"))
                 << QString::number(_queue.fileIndex(name))
                 << _queue.entryFromFileName(name)->fileName()
                 << QString::number(_queue.existsFileEntry(name))
                 << QString::number(_queue.isConsumedFromAll(name)) << _queue.path().absolutePath()
                 << QString::number(_queue.scrutationIntervall());
        _thread = QThread::currentThread();
        _handover.give();
    }
    QStringList answers() const { return _answers; }
    const QThread* thread() const { return _thread; }

private:
    const FilesQueue& _queue;
    Handover& _handover;
    QStringList _answers;
    const QThread* _thread = nullptr;
};

std::unique_ptr<FilesQueue> makeQueue(const QueueDirectory& directory,
                                      const QList<ConsumerEntry>& consumers, int interval)
{
    return std::make_unique<FilesQueue>(directory.path(), consumers, true, interval);
}

QStringList numberedNames(int count)
{
    QStringList names;
    for (int i = 0; i < count; ++i)
        names.append(QStringLiteral("file-%1").arg(i, 5, 10, QLatin1Char('0')));
    return names;
}

QSet<QString> toSet(const QStringList& names)
{
    return {names.begin(), names.end()};
}

} // namespace

class QueueThreadsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void processTracesItsThread_data();
    void processTracesItsThread();
    void processTracesTheAbsolutePath();
    void watcherLivesInTheQueuesThread();
    void quitEndsTheThread_data();
    void quitEndsTheThread();
    void callsFromAnotherThreadAreQueued();
    void slotsRunInTheQueuesThread();
    void secondProcessConnectsTwice();
    void describedQueueRunsInAThread();
    void queueStopsWithWorkPending();
    void queueGoesSilentlyAfterItsThread();

    void directSlotMayCallEverything();
    void nestedRescanFindsNewFiles();
    void blockingSlotInAnotherThreadMayAsk();
    void appendWaitsForTheRescan();
    void appendFromManyThreads();

    void filesFlowThroughThreads_data();
    void filesFlowThroughThreads();
};

void QueueThreadsTest::processTracesItsThread_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::newRow("plain") << QString();
    QTest::newRow("place holders") << QStringLiteral("%1%2");
}

void QueueThreadsTest::processTracesItsThread()
{
    QFETCH(QString, suffix);
    const TraceLog traces;
    const QueueDirectory directory(suffix);
    RunningQueue running(makeQueue(directory, {}, 0));
    running.start();
    quintptr thread = 0;
    running.call([&] { thread = reinterpret_cast<quintptr>(QThread::currentThreadId()); });
    QVERIFY(thread != reinterpret_cast<quintptr>(QThread::currentThreadId()));
    const QString hexadecimal = QString::number(thread, 16).rightJustified(16, '0');
    QCOMPARE(traces.texts(), QStringList("Thread onProcess : ID = 0x" + hexadecimal +
                                         " (_path=" + directory.path() + ")"));
}

void QueueThreadsTest::processTracesTheAbsolutePath()
{
    const TraceLog traces;
    const QueueDirectory directory;
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(directory.path()));
    FilesQueue queue("./", {}, true, 0);
    queue.onProcess();
    QVERIFY(QDir::setCurrent(before));
    QCOMPARE(traces.texts().size(), 1);
    QVERIFY2(traces.texts().at(0).endsWith(" (_path=" + directory.path() + ")"),
             qUtf8Printable(traces.texts().at(0)));
}

void QueueThreadsTest::watcherLivesInTheQueuesThread()
{
    const TraceLog traces;
    const QueueDirectory directory;
    RunningQueue running(makeQueue(directory, {}, 0));
    running.start();
    const QFileSystemWatcher* const watcher = running.queue().findChild<QFileSystemWatcher*>();
    QVERIFY(watcher);
    QCOMPARE(watcher->thread(), &running.thread());
    QCOMPARE(running.queue().thread(), &running.thread());
}

void QueueThreadsTest::quitEndsTheThread_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("named") << "files";
    QTest::newRow("without name") << "";
    QTest::newRow("place holder") << "%1";
    QTest::newRow("accents") << "l'été";
}

void QueueThreadsTest::quitEndsTheThread()
{
    QFETCH(QString, name);
    TraceLog traces;
    const QueueDirectory directory;
    RunningQueue running(makeQueue(directory, {}, 10));
    running.thread().setObjectName(name);
    running.start();
    running.call([&] { running.queue().disableScrutationMode(); });
    traces.take();
    QMetaObject::invokeMethod(&running.queue(), &FilesQueue::onQuit);
    QVERIFY(running.hasEnded());
    QCOMPARE(traces.take(),
             QStringList("> [FilesQueue] : Demande d'arrêt du thread d'affinité " + name));
    QVERIFY(directory.create("a"));
    QTest::qWait(50);
    QCOMPARE(traces.take(), QStringList());
    QCOMPARE(running.queue().size(), 0);
}

void QueueThreadsTest::callsFromAnotherThreadAreQueued()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    ConsumerAncestor consumer("c");
    RunningQueue running(makeQueue(directory, {{"c", &consumer}}, 0));
    running.start();
    QObject application;
    connect(&application, &QObject::objectNameChanged, &running.queue(), &FilesQueue::onQuit);

    // Nothing happens while the queue's thread is busy.
    QSemaphore busy;
    QMetaObject::invokeMethod(&running.queue(), [&] { busy.acquire(); });
    traces.take();
    Q_EMIT consumer.requestForFiles("c");
    Q_EMIT consumer.consumed("c", "a");
    application.setObjectName("asks to quit");
    QCOMPARE(traces.take(), QStringList());
    busy.release();
    QVERIFY(running.hasEnded());
    QCOMPARE(traces.take(),
             QStringList({"> requestForFiles : Demande de la liste des fichiers en attente pour le "
                          "consommateur c",
                          "> consummed : Fichier a utilisé par le consommateur c",
                          "> [FilesQueue] : Demande d'arrêt du thread d'affinité queue thread"}));
    QVERIFY(running.queue().isConsumedFromAll("a"));
}

void QueueThreadsTest::slotsRunInTheQueuesThread()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    ConsumerAncestor consumer("c");
    RunningQueue running(makeQueue(directory, {}, 0));
    running.start();
    running.queue().appendConsumer(&consumer);
    std::atomic<QThread*> answering = nullptr;
    std::atomic<QThread*> announcing = nullptr;
    running.call([&] {
        connect(
            &running.queue(), &FilesQueue::filesNotConsumed, &running.queue(),
            [&] { answering = QThread::currentThread(); }, Qt::DirectConnection);
        connect(
            &running.queue(), &FilesQueue::queueUpdated, &running.queue(),
            [&] { announcing = QThread::currentThread(); }, Qt::DirectConnection);
    });
    Q_EMIT consumer.requestForFiles("c");
    QVERIFY(directory.deliver("b"));
    QTRY_COMPARE(answering.load(), &running.thread());
    QTRY_COMPARE(announcing.load(), &running.thread());
}

void QueueThreadsTest::secondProcessConnectsTwice()
{
    TraceLog traces;
    const QueueDirectory directory;
    ConsumerAncestor consumer("c");
    FilesQueue queue(directory.path(), {{"c", &consumer}}, true, 0);
    queue.onProcess();
    queue.onProcess();
    QCOMPARE(queue.findChildren<QFileSystemWatcher*>().size(), 2);
    const QSignalSpy answered(&queue, &FilesQueue::filesNotConsumed);
    Q_EMIT consumer.requestForFiles("c");
    QCOMPARE(answered.size(), 2);
}

void QueueThreadsTest::describedQueueRunsInAThread()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    RunningConsumer consumer("c");
    RunningQueue running(std::unique_ptr<FilesQueue>(
        FilesQueue::initFilesQueue({QJsonObject{{"path", directory.path()}, {"period", 20}}})));
    running.start();
    running.queue().appendConsumer(&consumer);
    consumer.start(running);
    QVERIFY(directory.deliver("b"));
    QTRY_COMPARE(directory.names(), QStringList());
    consumer.stop();
    QCOMPARE(consumer.handled(), toSet({"a", "b"}));
}

void QueueThreadsTest::queueStopsWithWorkPending()
{
    const TraceLog traces;
    const QueueDirectory directory;
    const QStringList names = numberedNames(50);
    QVERIFY(directory.createAll(names));
    RunningConsumer consumer("c");
    {
        RunningQueue running(makeQueue(directory, {{"c", &consumer}}, 1));
        running.start();
        consumer.start(running);
        QTRY_VERIFY(consumer.handledCount() > 0);
        QMetaObject::invokeMethod(&running.queue(), &FilesQueue::onQuit);
        QVERIFY(running.hasEnded());
        consumer.stop();
    }
    QCOMPARE(consumer.failures(), 0);
}

void QueueThreadsTest::queueGoesSilentlyAfterItsThread()
{
    const TraceLog traces;
    const QueueDirectory directory;
    const MessageCapture output;
    {
        RunningQueue running(makeQueue(directory, {}, 10));
        running.start();
        QMetaObject::invokeMethod(&running.queue(), &FilesQueue::onQuit);
        QVERIFY(running.hasEnded());
    }
    QCOMPARE(output.texts(), QStringList());
}

void QueueThreadsTest::directSlotMayCallEverything()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    ConsumerAncestor consumer("c");
    ConsumerAncestor newcomer("new");
    RunningQueue running(makeQueue(directory, {{"c", &consumer}}, 0));
    running.start();
    FilesQueue& queue = running.queue();

    QStringList answers;
    std::atomic<int> depth = 0;
    std::atomic<bool> done = false;
    const auto callEverything = [&](const QList<QString>& appended) {
        if (++depth > 1)
            return;
        const QString name = appended.value(0);
        const bool isThere = queue.size() == 3 && queue.index("c") == 0 &&
                             queue.fileIndex(name) == 2 && queue.entryFromFileName(name) &&
                             queue.existsFileEntry(name) && !queue.isConsumedFromAll(name) &&
                             queue.path().exists() && queue.scrutationIntervall() == 0;
        queue.onConsumed("c", "a");
        queue.appendConsumer(&newcomer);
        queue.appendConsumer(nullptr);
        Q_EMIT consumer.requestForFiles("c");
        queue.onRequestForFiles("c");
        queue.setScrutationIntervall(60000);
        const bool isEnabled = queue.enableScrutationMode();
        queue.disableScrutationMode();
        queue.onConsumed("new", "a");
        queue.onDirectoryChanged();
        queue.onProcess();
        queue.onQuit();
        done = isThere && isEnabled && !queue.existsFileEntry("a");
    };
    running.call([&] {
        connect(
            &queue, &FilesQueue::filesNotConsumed, &queue,
            [&](const QList<QString>& files) { answers = files; }, Qt::DirectConnection);
        connect(&queue, &FilesQueue::queueUpdated, &queue, callEverything, Qt::DirectConnection);
    });
    QVERIFY(directory.deliver("d"));
    QVERIFY(running.hasEnded());
    QVERIFY(done);
    QCOMPARE(answers, QStringList({"b", "d"}));
    QCOMPARE(queuedNames(queue, {"a", "b", "d"}), QStringList({"b", "d"}));
    QCOMPARE(directory.names(), QStringList({"b", "d"}));
    QCOMPARE(queue.index("new"), 1);
}

void QueueThreadsTest::nestedRescanFindsNewFiles()
{
    TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 0);
    QList<QList<QString>> announced;
    connect(&queue, &FilesQueue::queueUpdated, &queue, [&](const QList<QString>& appended) {
        announced.append(appended);
        if (announced.size() > 3)
            return;
        QVERIFY(directory.create(QString::number(announced.size())));
        queue.onDirectoryChanged();
    });
    QVERIFY(directory.create("0"));
    queue.onDirectoryChanged();
    QCOMPARE(announced, QList<QList<QString>>({{"0"}, {"1"}, {"2"}, {"3"}}));
    QCOMPARE(queue.size(), 4);
    const QStringList seen = traces.take();
    QCOMPARE(seen.size(), 8);
    QCOMPARE(seen.last(), summaryTrace(1, 0, 0, 4));

    // The lock is free again, for this thread and for others.
    ConsumerAncestor consumer("c");
    std::thread other([&] { queue.appendConsumer(&consumer); });
    other.join();
    QCOMPARE(queue.index("c"), 0);
}

void QueueThreadsTest::blockingSlotInAnotherThreadMayAsk()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"x", "y"}));
    RunningQueue running(makeQueue(directory, {{"c", nullptr}}, 0));
    running.start();
    QThread thread;
    Handover handover;
    Inquirer inquirer(running.queue(), handover);
    inquirer.moveToThread(&thread);
    running.call([&] {
        connect(
            &running.queue(), &FilesQueue::queueUpdated, &running.queue(), [&] { handover.give(); },
            Qt::DirectConnection);
        connect(&running.queue(), &FilesQueue::queueUpdated, &inquirer, &Inquirer::inquire,
                Qt::BlockingQueuedConnection);
    });
    thread.start();
    QVERIFY(directory.deliver("z"));
    QTRY_COMPARE(running.size(), 3);
    thread.quit();
    QVERIFY(thread.wait(5000));
    handover.take();
    QCOMPARE(inquirer.thread(), &thread);
    QCOMPARE(inquirer.answers(),
             QStringList({"3", "0", "2", "z", "1", "0", directory.path(), "0"}));
}

void QueueThreadsTest::appendWaitsForTheRescan()
{
    const TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 0);
    ConsumerAncestor consumer("c");
    std::atomic<bool> isAppended = false;
    std::atomic<bool> isAppendedInTime = false;
    std::thread other;
    connect(&queue, &FilesQueue::queueUpdated, &queue, [&] {
        other = std::thread([&] {
            queue.appendConsumer(&consumer);
            isAppended = true;
        });
        QThread::msleep(50);
        isAppendedInTime = isAppended.load();
    });
    QVERIFY(directory.create("a"));
    queue.onDirectoryChanged();
    QVERIFY(other.joinable());
    other.join();
    QVERIFY(!isAppendedInTime);
    QVERIFY(isAppended);
    QVERIFY(!queue.entryFromFileName("a")->isConsumed(0));
}

void QueueThreadsTest::appendFromManyThreads()
{
    constexpr int Threads = 4;
    constexpr int ConsumersEach = 25;
    const TraceLog traces(LoggerLevel::fatal);
    const QueueDirectory directory;
    QVERIFY(directory.createAll(numberedNames(20)));
    std::vector<std::unique_ptr<ConsumerAncestor>> consumers;
    for (int i = 0; i < Threads * ConsumersEach; ++i)
        consumers.push_back(std::make_unique<ConsumerAncestor>(QString::number(i)));

    RunningQueue running(makeQueue(directory, {}, 1));
    running.start();
    std::vector<std::thread> threads;
    for (int t = 0; t < Threads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = t * ConsumersEach; i < (t + 1) * ConsumersEach; ++i) {
                running.queue().appendConsumer(consumers.at(size_t(i)).get());
                directory.deliver(QStringLiteral("late-%1").arg(i));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    const int expectedSize = 20 + Threads * ConsumersEach;
    QTRY_COMPARE(running.size(), expectedSize);
    QMetaObject::invokeMethod(&running.queue(), &FilesQueue::onQuit);
    QVERIFY(running.hasEnded());
    FilesQueue& queue = running.queue();
    QSet<int> positions;
    for (const std::unique_ptr<ConsumerAncestor>& consumer : consumers)
        positions.insert(queue.index(consumer->id()));
    QCOMPARE(positions.size(), Threads * ConsumersEach);
    QVERIFY(!positions.contains(-1));
    for (const QString& name : directory.names()) {
        const FileEntry* const entry = queue.entryFromFileName(name);
        QVERIFY(entry);
        QVERIFY(!entry->isConsumed(Threads * ConsumersEach - 1));
        QVERIFY(!failureText([&] { entry->isConsumed(Threads * ConsumersEach); }).isNull());
    }
    for (const std::unique_ptr<ConsumerAncestor>& consumer : consumers)
        queue.onConsumed(consumer->id(), "late-0");
    QVERIFY(queue.isConsumedFromAll("late-0"));
}

void QueueThreadsTest::filesFlowThroughThreads_data()
{
    QTest::addColumn<int>("interval");
    QTest::addColumn<bool>("isLateConsumer");
    QTest::newRow("watch and timer") << 20 << false;
    QTest::newRow("watch alone") << 0 << false;
    QTest::newRow("one more consumer meanwhile") << 20 << true;
}

void QueueThreadsTest::filesFlowThroughThreads()
{
    QFETCH(int, interval);
    QFETCH(bool, isLateConsumer);
    const TraceLog traces;
    const QueueDirectory directory;
    const QStringList names = numberedNames(400);
    RunningConsumer first("1");
    RunningConsumer second("2");
    RunningConsumer third("3");
    RunningConsumer late("late");
    QStringList appended;
    QStringList deleted;
    {
        RunningQueue running(
            makeQueue(directory, {{"1", &first}, {"2", &second}, {"3", &third}}, interval));
        FilesQueue& queue = running.queue();
        connect(
            &queue, &FilesQueue::queueUpdated, &queue,
            [&](const QList<QString>& added, const QList<QString>& dropped) {
                appended += added;
                deleted += dropped;
            },
            Qt::DirectConnection);
        running.start();
        for (RunningConsumer* const consumer : {&first, &second, &third})
            consumer->start(running);

        std::thread producer([&] {
            for (const QString& name : names)
                directory.deliver(name);
        });
        if (isLateConsumer) {
            queue.appendConsumer(&late);
            late.start(running);
        }
        producer.join();
        for (RunningConsumer* const consumer : {&first, &second, &third})
            QTRY_COMPARE_WITH_TIMEOUT(consumer->handledCount(), 400, 60000);

        // The files of the last reports are deleted by one more re-scan.
        for (int i = 0; i < 200 && !directory.names().isEmpty(); ++i) {
            running.call([] {});
            directory.create(".nudge");
            directory.remove(".nudge");
            QTest::qWait(20);
        }
        QCOMPARE(directory.names(), QStringList());
        QTRY_COMPARE(running.size(), 0);
        for (RunningConsumer* const consumer : {&first, &second, &third, &late})
            consumer->stop();
        QMetaObject::invokeMethod(&queue, &FilesQueue::onQuit);
        QVERIFY(running.hasEnded());
    }
    for (const RunningConsumer* const consumer : {&first, &second, &third}) {
        QCOMPARE(consumer->failures(), 0);
        QCOMPARE(consumer->handled(), toSet(names));
    }
    QCOMPARE(late.failures(), 0);
    appended.sort();
    QCOMPARE(appended, names);
    QCOMPARE(deleted, QStringList());
}

QTEST_GUILESS_MAIN(QueueThreadsTest)
#include "tst_queuethreads.moc"
