// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/queuefixture.h"
#include "support/childprocess.h"
#include "support/failuretext.h"
#include "support/tracelog.h"

#include <kez/ConsumerAncestor.h>
#include <kez/FilesQueue.h>

#include <QPointer>
#include <QTest>
#include <QThread>

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

static_assert(std::is_base_of_v<QObject, ConsumerAncestor>);
static_assert(std::has_virtual_destructor_v<ConsumerAncestor>);
static_assert(std::is_same_v<decltype(ConsumerEntry{}.consumer), ConsumerAncestor*>);

namespace {

const QString ConsumedPrefix =
    QStringLiteral("void FilesQueue::consumed(const QString&, const QString&) -> ");

QString requestTrace(const QString& id)
{
    return "> requestForFiles : Demande de la liste des fichiers en attente pour le consommateur " +
           id;
}

QString consumedTrace(const QString& fileName, const QString& id)
{
    return "> consummed : Fichier " + fileName + " utilisé par le consommateur " + id;
}

QString unknownConsumer(const QString& id)
{
    return "L'identifiant de consommateur " + id + " n'existe pas";
}

QString unknownFile(const QString& fileName)
{
    return "Le fichier [" + fileName + "] n'existe pas dans la file d'attente";
}

/// A consumer as an application writes it. It handles every file that the queue names.
class DiligentConsumer : public ConsumerAncestor {
public:
    using ConsumerAncestor::ConsumerAncestor;

    void attach(FilesQueue& queue)
    {
        connect(&queue, &FilesQueue::filesNotConsumed, this,
                [this](const QList<QString>& files, bool error) {
                    if (!_asking || error)
                        return;
                    for (const QString& file : files) {
                        _handled.append(file);
                        Q_EMIT consumed(id(), file);
                    }
                });
    }
    void work()
    {
        _asking = true;
        Q_EMIT requestForFiles(id());
        _asking = false;
    }
    QStringList handled() const { return _handled; }

private:
    bool _asking = false;
    QStringList _handled;
};

/// A consumer whose memory is overwritten when it is destroyed, so that a later use of it fails.
class DoomedConsumer {
public:
    explicit DoomedConsumer(const QString& id) : _consumer(new (_memory) ConsumerAncestor(id)) {}
    ~DoomedConsumer() { destroy(); }
    DoomedConsumer(const DoomedConsumer&) = delete;
    DoomedConsumer& operator=(const DoomedConsumer&) = delete;

    ConsumerAncestor* get() const { return _consumer; }
    void destroy()
    {
        if (!_consumer)
            return;
        _consumer->~ConsumerAncestor();
        _consumer = nullptr;
        std::memset(_memory, 0x5a, sizeof _memory);
    }

private:
    alignas(ConsumerAncestor) unsigned char _memory[sizeof(ConsumerAncestor)];
    ConsumerAncestor* _consumer;
};

/// Prints the exceptions that reach the event loop, as an application may do.
class CatchingApplication : public QCoreApplication {
public:
    using QCoreApplication::QCoreApplication;

    bool notify(QObject* receiver, QEvent* event) override
    {
        try {
            return QCoreApplication::notify(receiver, event);
        } catch (const Exception& failure) {
            std::printf("value: %s\n", failure.detail().toUtf8().constData());
        } catch (Exception* failure) {
            std::printf("pointer: %s\n", failure->detail().toUtf8().constData());
            delete failure;
        }
        return false;
    }
};

/// A consumer in another thread makes both failures happen. They reach the event loop.
int childMain(const QStringList&)
{
    int argc = 1;
    char name[] = "consumers";
    char* argv[] = {name, nullptr};
    CatchingApplication application(argc, argv);
    const TraceLog traces;
    const QueueDirectory directory;
    directory.create("a");
    ConsumerAncestor consumer("c");
    FilesQueue queue(directory.path(), {}, true, 0);
    queue.appendConsumer(&consumer);

    QThread thread;
    consumer.moveToThread(&thread);
    QObject::connect(&thread, &QThread::started, &consumer, [&] {
        Q_EMIT consumer.consumed("stranger", "a");
        Q_EMIT consumer.consumed("c", "absent");
        Q_EMIT consumer.consumed("c", "a");
        thread.quit();
    });
    QObject::connect(&thread, &QThread::finished, &application, &QCoreApplication::quit);
    thread.start();
    QCoreApplication::exec();
    thread.wait();
    std::printf("consumed: %d\n", int(queue.isConsumedFromAll("a")));
    return 0;
}

} // namespace

class ConsumersTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void ancestorKeepsIdentifierAndParent();
    void ancestorIsDestroyedThroughItsBase();
    void entryIsBraceInitialised();

    void requestIsAnsweredInQueueOrder();
    void requestLeavesOutWhatThatConsumerHandled();
    void requestWithNothingLeftIsEmpty();
    void requestOnEmptyQueueIsEmpty();
    void requestOfUnknownConsumer_data();
    void requestOfUnknownConsumer();
    void requestIsTracedFirst();
    void everyListenerGetsEveryAnswer();

    void reportSetsTheFlagOfItsConsumer();
    void repeatedReportIsHarmless();
    void reportOfUnknownConsumerThrowsPointer_data();
    void reportOfUnknownConsumerThrowsPointer();
    void reportOfUnknownFileThrowsValue_data();
    void reportOfUnknownFileThrowsValue();
    void unknownConsumerComesBeforeUnknownFile();
    void reportOfDroppedFileThrowsValue();
    void reportPutsBothNamesInOnce();
    void reportStartsNoRescan();
    void failureReachesTheEmittingCode();
    void failureReachesTheEventLoop();

    void constructorsConsumersAreConnectedByProcess();
    void appendIgnoresNull();
    void appendedConsumerIsConnectedAtOnce();
    void appendedConsumerOwesEveryFile();
    void appendedConsumerHoldsBackDeletion();
    void appendKeepsEarlierFlags();
    void appendedFilesHaveAFlagForEveryConsumer();
    void appendBeforeProcessConnectsTwice();
    void appendWhileProcessing();
    void appendTracesNothing();
    void appendDoesNotRefuseDuplicates();
    void consumerGivenTwiceBlocksDeletion();
    void appendToQueueWithoutConsumersStartsDeletion();
    void queueDoesNotOwnItsConsumers();
    void consumerMayGoAfterTheQueue();
    void consumerMayGoBeforeProcess_data();
    void consumerMayGoBeforeProcess();
    void consumerMayGoWhileProcessing();

    void threeConsumersEmptyTheQueue();
};

void ConsumersTest::ancestorKeepsIdentifierAndParent()
{
    QObject parent;
    const ConsumerAncestor consumer(" été %1 ", &parent);
    QCOMPARE(consumer.id(), QStringLiteral(" été %1 "));
    QCOMPARE(consumer.parent(), &parent);
    const ConsumerAncestor nameless{QString()};
    QCOMPARE(nameless.id(), QString());
    QVERIFY(!nameless.parent());
    const QMetaObject& meta = ConsumerAncestor::staticMetaObject;
    QVERIFY(meta.indexOfSignal("consumed(QString,QString)") >= 0);
    QVERIFY(meta.indexOfSignal("requestForFiles(QString)") >= 0);
}

void ConsumersTest::ancestorIsDestroyedThroughItsBase()
{
    std::unique_ptr<ConsumerAncestor> consumer = std::make_unique<DiligentConsumer>("c");
    const QPointer<QObject> watched = consumer.get();
    consumer.reset();
    QVERIFY(!watched);
}

void ConsumersTest::entryIsBraceInitialised()
{
    ConsumerAncestor consumer("c");
    const ConsumerEntry entry{"c", &consumer};
    QCOMPARE(entry.id, QStringLiteral("c"));
    QCOMPARE(entry.consumer, &consumer);
}

void ConsumersTest::requestIsAnsweredInQueueOrder()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"m", "n"}));
    ConsumerAncestor consumer("c");
    FilesQueue queue(directory.path(), {{"c", &consumer}}, true, 0);
    QVERIFY(directory.createAll({"b", "a"}));
    queue.onDirectoryChanged();

    const QSignalSpy answered(&queue, &FilesQueue::filesNotConsumed);
    queue.onRequestForFiles("c");
    QCOMPARE(answered.size(), 1);
    QCOMPARE(answered.at(0).at(0).value<QList<QString>>(), QList<QString>({"m", "n", "a", "b"}));
    QCOMPARE(answered.at(0).at(1).toBool(), false);
}

void ConsumersTest::requestLeavesOutWhatThatConsumerHandled()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b", "c"}));
    FilesQueue queue(directory.path(), {{"x", nullptr}, {"y", nullptr}}, true, 0);
    const QSignalSpy answered(&queue, &FilesQueue::filesNotConsumed);
    queue.onConsumed("x", "b");
    queue.onRequestForFiles("x");
    queue.onRequestForFiles("y");
    QCOMPARE(answered.at(0).at(0).value<QList<QString>>(), QList<QString>({"a", "c"}));
    QCOMPARE(answered.at(1).at(0).value<QList<QString>>(), QList<QString>({"a", "b", "c"}));
}

void ConsumersTest::requestWithNothingLeftIsEmpty()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), {{"x", nullptr}, {"y", nullptr}}, true, 0);
    queue.onConsumed("x", "a");
    const QSignalSpy answered(&queue, &FilesQueue::filesNotConsumed);
    queue.onRequestForFiles("x");
    QCOMPARE(answered.size(), 1);
    QCOMPARE(answered.at(0).at(0).value<QList<QString>>(), QList<QString>());
    QCOMPARE(answered.at(0).at(1).toBool(), false);
}

void ConsumersTest::requestOnEmptyQueueIsEmpty()
{
    const TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {{"x", nullptr}}, true, 0);
    const QSignalSpy answered(&queue, &FilesQueue::filesNotConsumed);
    queue.onRequestForFiles("x");
    QCOMPARE(answered.size(), 1);
    QCOMPARE(answered.at(0).at(0).value<QList<QString>>(), QList<QString>());
    QCOMPARE(answered.at(0).at(1).toBool(), false);
}

void ConsumersTest::requestOfUnknownConsumer_data()
{
    QTest::addColumn<QString>("id");
    QTest::newRow("plain") << "X";
    QTest::newRow("empty") << "";
    QTest::newRow("other case") << "C";
    QTest::newRow("place holders") << "%1 %2";
    QTest::newRow("accents") << "l'été";
}

void ConsumersTest::requestOfUnknownConsumer()
{
    QFETCH(QString, id);
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), {{"c", nullptr}}, true, 0);
    const QSignalSpy answered(&queue, &FilesQueue::filesNotConsumed);
    queue.onRequestForFiles(id);
    QCOMPARE(answered.size(), 1);
    QCOMPARE(answered.at(0).at(0).value<QList<QString>>(),
             QList<QString>(1, "L'identifiant de consommateur " + id + " n'existe pas"));
    QCOMPARE(answered.at(0).at(1).toBool(), true);
    QCOMPARE(traces.take(),
             QStringList("> requestForFiles : Demande de la liste des fichiers en attente pour le "
                         "consommateur " +
                         id));
}

void ConsumersTest::requestIsTracedFirst()
{
    TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {{"c", nullptr}}, true, 0);
    QStringList tracesBefore;
    connect(&queue, &FilesQueue::filesNotConsumed, &queue, [&] { tracesBefore = traces.texts(); });
    queue.onRequestForFiles("c");
    QCOMPARE(tracesBefore, QStringList(requestTrace("c")));
    QCOMPARE(traces.texts(), QStringList(requestTrace("c")));
}

void ConsumersTest::everyListenerGetsEveryAnswer()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), {{"x", nullptr}, {"y", nullptr}}, true, 0);
    int first = 0;
    int second = 0;
    QObject listener;
    connect(&queue, &FilesQueue::filesNotConsumed, &listener, [&] { ++first; });
    connect(&queue, &FilesQueue::filesNotConsumed, &listener, [&] { ++second; });
    queue.onRequestForFiles("x");
    queue.onRequestForFiles("y");
    queue.onRequestForFiles("unknown");
    QCOMPARE(first, 3);
    QCOMPARE(second, 3);
}

void ConsumersTest::reportSetsTheFlagOfItsConsumer()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), {{"x", nullptr}, {"y", nullptr}, {"z", nullptr}}, true, 0);
    queue.onConsumed("y", "b");
    for (int i = 0; i < 3; ++i) {
        QVERIFY(!queue.entryFromFileName("a")->isConsumed(i));
        QCOMPARE(queue.entryFromFileName("b")->isConsumed(i), i == 1);
    }
    QVERIFY(!queue.isConsumedFromAll("b"));
}

void ConsumersTest::repeatedReportIsHarmless()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), {{"x", nullptr}, {"y", nullptr}}, true, 0);
    queue.onConsumed("x", "a");
    queue.onConsumed("x", "a");
    QVERIFY(queue.entryFromFileName("a")->isConsumed(0));
    QVERIFY(!queue.entryFromFileName("a")->isConsumed(1));
    QCOMPARE(traces.take(), QStringList({consumedTrace("a", "x"), consumedTrace("a", "x")}));
}

void ConsumersTest::reportOfUnknownConsumerThrowsPointer_data()
{
    QTest::addColumn<QString>("id");
    QTest::newRow("plain") << "X";
    QTest::newRow("empty") << "";
    QTest::newRow("other case") << "C";
    QTest::newRow("place holders") << "%1 %2";
}

void ConsumersTest::reportOfUnknownConsumerThrowsPointer()
{
    QFETCH(QString, id);
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), {{"c", nullptr}}, true, 0);
    try {
        queue.onConsumed(id, "a");
        QFAIL("no exception");
    } catch (Exception* failure) {
        const std::unique_ptr<Exception> owner(failure);
        QCOMPARE(failure->detail(), "void FilesQueue::consumed(const QString&, const QString&) -> "
                                    "L'identifiant de consommateur " +
                                        id + " n'existe pas");
        QVERIFY(!failure->parent());
    }
    QCOMPARE(traces.take(), QStringList(consumedTrace("a", id)));
    QVERIFY(!queue.isConsumedFromAll("a"));
}

void ConsumersTest::reportOfUnknownFileThrowsValue_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("plain") << "absent";
    QTest::newRow("empty") << "";
    QTest::newRow("other case") << "A";
    QTest::newRow("place holders") << "%1 %2";
}

void ConsumersTest::reportOfUnknownFileThrowsValue()
{
    QFETCH(QString, name);
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), {{"c", nullptr}}, true, 0);
    try {
        queue.onConsumed("c", name);
        QFAIL("no exception");
    } catch (const Exception& failure) {
        QCOMPARE(failure.detail(), "void FilesQueue::consumed(const QString&, const QString&) -> "
                                   "Le fichier [" +
                                       name + "] n'existe pas dans la file d'attente");
        QVERIFY(!failure.parent());
    }
    QCOMPARE(traces.take(), QStringList(consumedTrace(name, "c")));
}

void ConsumersTest::unknownConsumerComesBeforeUnknownFile()
{
    const TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 0);
    QCOMPARE(pointerFailureText([&] { queue.onConsumed("X", "absent"); }),
             ConsumedPrefix + unknownConsumer("X"));
}

void ConsumersTest::reportOfDroppedFileThrowsValue()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), {{"c", nullptr}}, true, 0);
    queue.onConsumed("c", "a");
    queue.onConsumed("c", "a");
    QVERIFY(directory.remove("b"));
    queue.onDirectoryChanged();
    QCOMPARE(failureText([&] { queue.onConsumed("c", "a"); }), ConsumedPrefix + unknownFile("a"));
    QCOMPARE(failureText([&] { queue.onConsumed("c", "b"); }), ConsumedPrefix + unknownFile("b"));
}

void ConsumersTest::reportPutsBothNamesInOnce()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"%1", "%2"}));
    FilesQueue queue(directory.path(), {{"%1", nullptr}, {"%2", nullptr}}, true, 0);
    queue.onConsumed("%1", "%2");
    queue.onConsumed("%2", "%1");
    QCOMPARE(traces.take(),
             QStringList({"> consummed : Fichier %2 utilisé par le consommateur %1",
                          "> consummed : Fichier %1 utilisé par le consommateur %2"}));
}

void ConsumersTest::reportStartsNoRescan()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    ConsumerAncestor consumer("c");
    FilesQueue queue(directory.path(), {{"c", &consumer}}, true, 0);
    queue.onProcess();
    traces.take();
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    const QSignalSpy answered(&queue, &FilesQueue::filesNotConsumed);
    Q_EMIT consumer.consumed("c", "a");
    QTest::qWait(100);
    QCOMPARE(traces.take(), QStringList(consumedTrace("a", "c")));
    QVERIFY(queue.isConsumedFromAll("a"));
    QVERIFY(directory.exists("a"));
    QCOMPARE(updated.size(), 0);
    QCOMPARE(answered.size(), 0);

    QVERIFY(directory.deliver("b"));
    QTRY_VERIFY(!directory.exists("a"));
    QTRY_COMPARE(queuedNames(queue, {"a", "b"}), QStringList("b"));
}

void ConsumersTest::failureReachesTheEmittingCode()
{
    const TraceLog traces;
    const QueueDirectory directory;
    ConsumerAncestor consumer("c");
    FilesQueue queue(directory.path(), {}, true, 0);
    queue.appendConsumer(&consumer);
    QCOMPARE(pointerFailureText([&] { Q_EMIT consumer.consumed("X", "a"); }),
             ConsumedPrefix + unknownConsumer("X"));
    QCOMPARE(failureText([&] { Q_EMIT consumer.consumed("c", "a"); }),
             ConsumedPrefix + unknownFile("a"));
}

void ConsumersTest::failureReachesTheEventLoop()
{
    const ChildResult child = runChild({"failures"});
    QVERIFY2(child.finished && child.exitCode == 0, child.err.constData());
    QCOMPARE(QString::fromUtf8(child.out),
             "pointer: " + ConsumedPrefix + unknownConsumer("stranger") +
                 "\nvalue: " + ConsumedPrefix + unknownFile("absent") + "\nconsumed: 1\n");
}

void ConsumersTest::constructorsConsumersAreConnectedByProcess()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    ConsumerAncestor first("x");
    ConsumerAncestor second("y");
    FilesQueue queue(directory.path(), {{"x", &first}, {"y", &second}}, true, 0);
    Q_EMIT first.requestForFiles("x");
    Q_EMIT first.consumed("x", "a");
    QCOMPARE(traces.take(), QStringList());

    queue.onProcess();
    traces.take();
    Q_EMIT second.requestForFiles("y");
    Q_EMIT first.consumed("x", "a");
    QCOMPARE(traces.take(), QStringList({requestTrace("y"), consumedTrace("a", "x")}));
    QVERIFY(queue.entryFromFileName("a")->isConsumed(0));
}

void ConsumersTest::appendIgnoresNull()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), {{"c", nullptr}}, true, 0);
    queue.appendConsumer(nullptr);
    QCOMPARE(queue.index(""), -1);
    QVERIFY(!failureText([&] { queue.entryFromFileName("a")->isConsumed(1); }).isNull());
    queue.onConsumed("c", "a");
    QVERIFY(queue.isConsumedFromAll("a"));
}

void ConsumersTest::appendedConsumerIsConnectedAtOnce()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    ConsumerAncestor consumer("c");
    FilesQueue queue(directory.path(), {}, true, 0);
    queue.appendConsumer(&consumer);
    QCOMPARE(queue.index("c"), 0);
    const QSignalSpy answered(&queue, &FilesQueue::filesNotConsumed);
    Q_EMIT consumer.requestForFiles("c");
    Q_EMIT consumer.consumed("c", "a");
    QCOMPARE(answered.size(), 1);
    QCOMPARE(traces.take(), QStringList({requestTrace("c"), consumedTrace("a", "c")}));
    QVERIFY(queue.isConsumedFromAll("a"));
}

void ConsumersTest::appendedConsumerOwesEveryFile()
{
    const TraceLog traces;
    const QueueDirectory directory;
    const QStringList names{"a", "b", "c"};
    QVERIFY(directory.createAll(names));
    FilesQueue queue(directory.path(), {{"x", nullptr}, {"y", nullptr}}, true, 0);
    for (const QString& name : names) {
        queue.onConsumed("x", name);
        queue.onConsumed("y", name);
    }
    ConsumerAncestor newcomer("new");
    queue.appendConsumer(&newcomer);
    const QSignalSpy answered(&queue, &FilesQueue::filesNotConsumed);
    Q_EMIT newcomer.requestForFiles("new");
    QCOMPARE(answered.at(0).at(0).value<QList<QString>>(), QList<QString>(names));
}

void ConsumersTest::appendedConsumerHoldsBackDeletion()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), {{"x", nullptr}}, true, 0);
    queue.onConsumed("x", "a");
    queue.onConsumed("x", "b");
    ConsumerAncestor newcomer("new");
    queue.appendConsumer(&newcomer);
    QVERIFY(!queue.isConsumedFromAll("a"));
    queue.onDirectoryChanged();
    QCOMPARE(queue.size(), 2);
    QCOMPARE(directory.names(), QStringList({"a", "b"}));

    Q_EMIT newcomer.consumed("new", "b");
    queue.onDirectoryChanged();
    QCOMPARE(directory.names(), QStringList("a"));
}

void ConsumersTest::appendKeepsEarlierFlags()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), {{"x", nullptr}, {"y", nullptr}}, true, 0);
    queue.onConsumed("y", "a");
    ConsumerAncestor newcomer("new");
    queue.appendConsumer(&newcomer);
    const FileEntry* const entry = queue.entryFromFileName("a");
    QVERIFY(!entry->isConsumed(0));
    QVERIFY(entry->isConsumed(1));
    QVERIFY(!entry->isConsumed(2));
    QVERIFY(!queue.entryFromFileName("b")->isConsumed(2));
}

void ConsumersTest::appendedFilesHaveAFlagForEveryConsumer()
{
    const TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {{"x", nullptr}}, true, 0);
    ConsumerAncestor newcomer("new");
    queue.appendConsumer(&newcomer);
    QVERIFY(directory.create("a"));
    queue.onDirectoryChanged();
    const FileEntry* const entry = queue.entryFromFileName("a");
    QVERIFY(!entry->isConsumed(0));
    QVERIFY(!entry->isConsumed(1));
    QVERIFY(!failureText([&] { entry->isConsumed(2); }).isNull());
}

void ConsumersTest::appendBeforeProcessConnectsTwice()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    ConsumerAncestor given("given");
    ConsumerAncestor appended("appended");
    FilesQueue queue(directory.path(), {{"given", &given}}, true, 0);
    queue.appendConsumer(&appended);
    queue.onProcess();
    traces.take();
    const QSignalSpy answered(&queue, &FilesQueue::filesNotConsumed);

    Q_EMIT given.requestForFiles("given");
    Q_EMIT given.consumed("given", "a");
    QCOMPARE(traces.take(), QStringList({requestTrace("given"), consumedTrace("a", "given")}));
    QCOMPARE(answered.size(), 1);

    Q_EMIT appended.requestForFiles("appended");
    Q_EMIT appended.consumed("appended", "a");
    QCOMPARE(traces.take(),
             QStringList({requestTrace("appended"), requestTrace("appended"),
                          consumedTrace("a", "appended"), consumedTrace("a", "appended")}));
    QCOMPARE(answered.size(), 3);
    QVERIFY(queue.isConsumedFromAll("a"));
}

void ConsumersTest::appendWhileProcessing()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), {}, true, 0);
    queue.onProcess();
    ConsumerAncestor consumer("c");
    queue.appendConsumer(&consumer);
    traces.take();
    Q_EMIT consumer.requestForFiles("c");
    Q_EMIT consumer.consumed("c", "a");
    QCOMPARE(traces.take(), QStringList({requestTrace("c"), consumedTrace("a", "c")}));
    QVERIFY(directory.deliver("b"));
    QTRY_COMPARE(directory.names(), QStringList("b"));
}

void ConsumersTest::appendTracesNothing()
{
    const TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 0);
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    const QSignalSpy answered(&queue, &FilesQueue::filesNotConsumed);
    ConsumerAncestor consumer("c");
    queue.appendConsumer(&consumer);
    queue.appendConsumer(nullptr);
    QCOMPARE(traces.texts(), QStringList());
    QCOMPARE(updated.size() + answered.size(), 0);
}

void ConsumersTest::appendDoesNotRefuseDuplicates()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    ConsumerAncestor first("same");
    ConsumerAncestor second("same");
    FilesQueue queue(directory.path(), {}, true, 0);
    queue.appendConsumer(&first);
    queue.appendConsumer(&second);
    QCOMPARE(queue.index("same"), 0);
    Q_EMIT first.consumed("same", "a");
    Q_EMIT second.consumed("same", "a");
    QVERIFY(queue.entryFromFileName("a")->isConsumed(0));
    QVERIFY(!queue.entryFromFileName("a")->isConsumed(1));
    queue.onDirectoryChanged();
    QVERIFY(directory.exists("a"));
}

void ConsumersTest::consumerGivenTwiceBlocksDeletion()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    ConsumerAncestor consumer("c");
    FilesQueue queue(directory.path(), {{"c", &consumer}}, true, 0);
    queue.onConsumed("c", "a");
    queue.onDirectoryChanged();
    QCOMPARE(directory.names(), QStringList("b"));

    queue.appendConsumer(&consumer);
    queue.onConsumed("c", "b");
    queue.onDirectoryChanged();
    QCOMPARE(directory.names(), QStringList("b"));
    QVERIFY(!queue.isConsumedFromAll("b"));
    const QSignalSpy answered(&queue, &FilesQueue::filesNotConsumed);
    queue.onRequestForFiles("c");
    QCOMPARE(answered.at(0).at(0).value<QList<QString>>(), QList<QString>());
}

void ConsumersTest::appendToQueueWithoutConsumersStartsDeletion()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), {}, true, 0);
    queue.onDirectoryChanged();
    ConsumerAncestor consumer("c");
    queue.appendConsumer(&consumer);
    queue.onDirectoryChanged();
    QCOMPARE(directory.names(), QStringList({"a", "b"}));
    queue.onConsumed("c", "a");
    queue.onDirectoryChanged();
    QCOMPARE(directory.names(), QStringList("b"));
}

void ConsumersTest::queueDoesNotOwnItsConsumers()
{
    const TraceLog traces;
    const QueueDirectory directory;
    ConsumerAncestor given("given");
    ConsumerAncestor appended("appended");
    {
        FilesQueue queue(directory.path(), {{"given", &given}}, true, 0);
        queue.appendConsumer(&appended);
        queue.onProcess();
        QVERIFY(!given.parent());
        QVERIFY(!appended.parent());
    }
    QCOMPARE(given.id(), QStringLiteral("given"));
    QCOMPARE(appended.id(), QStringLiteral("appended"));
}

void ConsumersTest::consumerMayGoAfterTheQueue()
{
    const TraceLog traces;
    const QueueDirectory directory;
    ConsumerAncestor consumer("c");
    {
        FilesQueue queue(directory.path(), {}, true, 0);
        queue.appendConsumer(&consumer);
    }
    Q_EMIT consumer.requestForFiles("c");
    Q_EMIT consumer.consumed("c", "a");
    QCOMPARE(traces.texts(), QStringList());
}

void ConsumersTest::consumerMayGoBeforeProcess_data()
{
    QTest::addColumn<bool>("isGiven");
    QTest::newRow("given to the constructor") << true;
    QTest::newRow("appended") << false;
}

void ConsumersTest::consumerMayGoBeforeProcess()
{
    QFETCH(bool, isGiven);
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    ConsumerAncestor stays("stays");
    DoomedConsumer goes("goes");
    QList<ConsumerEntry> given{{"stays", &stays}};
    if (isGiven)
        given.append({"goes", goes.get()});
    FilesQueue queue(directory.path(), given, true, 0);
    if (!isGiven)
        queue.appendConsumer(goes.get());
    goes.destroy();
    queue.onProcess();

    // It counts as a consumer that never reports.
    QCOMPARE(queue.index("goes"), 1);
    Q_EMIT stays.consumed("stays", "a");
    queue.onDirectoryChanged();
    QVERIFY(queue.entryFromFileName("a")->isConsumed(0));
    QVERIFY(!queue.isConsumedFromAll("a"));
    QVERIFY(directory.exists("a"));
}

void ConsumersTest::consumerMayGoWhileProcessing()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    ConsumerAncestor stays("stays");
    DoomedConsumer goes("goes");
    FilesQueue queue(directory.path(), {{"stays", &stays}, {"goes", goes.get()}}, true, 0);
    queue.onProcess();
    Q_EMIT goes.get()->consumed("goes", "a");
    goes.destroy();
    Q_EMIT stays.consumed("stays", "a");
    Q_EMIT stays.consumed("stays", "b");
    queue.onDirectoryChanged();
    QCOMPARE(directory.names(), QStringList("b"));
    queue.onProcess(); // connects the rest once more
    QVERIFY(directory.exists("b"));
}

void ConsumersTest::threeConsumersEmptyTheQueue()
{
    const TraceLog traces;
    const QueueDirectory directory;
    const QStringList names{"a", "b", "c", "d"};
    QVERIFY(directory.createAll(names));
    DiligentConsumer first("1");
    DiligentConsumer second("2");
    DiligentConsumer third("3");
    FilesQueue queue(directory.path(), {{"1", &first}, {"2", &second}, {"3", &third}}, true, 0);
    queue.onProcess();
    const QList<DiligentConsumer*> consumers{&first, &second, &third};
    for (DiligentConsumer* const consumer : consumers)
        consumer->attach(queue);
    for (DiligentConsumer* const consumer : consumers) {
        QVERIFY(!queue.isConsumedFromAll("a"));
        consumer->work();
        QCOMPARE(consumer->handled(), names);
    }
    QVERIFY(queue.isConsumedFromAll("d"));
    QCOMPARE(directory.names(), names);
    queue.onDirectoryChanged();
    QCOMPARE(directory.names(), QStringList());
    QCOMPARE(queue.size(), 0);
}

KEZ_TEST_MAIN_WITH_CHILDREN(ConsumersTest, childMain)
#include "tst_consumers.moc"
