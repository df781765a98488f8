// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/queuefixture.h"
#include "support/failuretext.h"
#include "support/messagecapture.h"
#include "support/queuefaults.h"
#include "support/tracelog.h"

#include <kez/FilesQueue.h>

#include <QFileSystemWatcher>
#include <QTest>

#include <cstring>

namespace {

const QList<ConsumerEntry> OneConsumer{{"c", nullptr}};

struct FaultGuard {
    FaultGuard() = default;
    ~FaultGuard() { QueueFaults::reset(); }
    FaultGuard(const FaultGuard&) = delete;
    FaultGuard& operator=(const FaultGuard&) = delete;
};

} // namespace

class QueueFaultsTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QueueFaults::reset(); }

    void failedListingChangesNothing_data();
    void failedListingChangesNothing();
    void failedListingRefusesTheDirectory_data();
    void failedListingRefusesTheDirectory();
    void absentDirectoryHoldsNothing_data();
    void absentDirectoryHoldsNothing();
    void fileThatCannotBeAskedForStaysAsItIs_data();
    void fileThatCannotBeAskedForStaysAsItIs();
    void fileThatCannotBeAskedForIsNotPurged();
    void nameThatIsListedTwiceEntersOnce();
    void refusedWatchIsTriedOnceADirectory();
    void secondProcessTriesARefusedWatchAgain();

    void knownFilesCostOneCallEach();
};

void QueueFaultsTest::failedListingChangesNothing_data()
{
    QTest::addColumn<int>("openError");
    QTest::addColumn<int>("readError");
    for (const int error :
         {EINTR, ESTALE, ETIMEDOUT, EIO, EMFILE, ENFILE, ENOMEM, ELOOP, ENXIO, EPERM}) {
        QTest::addRow("open: %s", strerrorname_np(error)) << error << 0;
    }
    for (const int error : {EINTR, ESTALE, ETIMEDOUT, EIO, EACCES, ENOTDIR, ENOENT})
        QTest::addRow("read: %s", strerrorname_np(error)) << 0 << error;
}

void QueueFaultsTest::failedListingChangesNothing()
{
    QFETCH(int, openError);
    QFETCH(int, readError);
    const FaultGuard guard;
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b", "c"}));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    QVERIFY(directory.remove("b") && directory.create("d"));
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    traces.take();

    QueueFaults::openError = openError;
    QueueFaults::readError = readError;
    QueueFaults::soundEntries = 3;
    queue.onDirectoryChanged();
    QueueFaults::reset();
    QCOMPARE(queuedNames(queue, {"a", "b", "c", "d"}), QStringList({"a", "b", "c"}));
    QVERIFY(queue.isConsumedFromAll("a"));
    QVERIFY(directory.exists("a"));
    QCOMPARE(updated.size(), 0);
    QCOMPARE(traces.take(), QStringList());

    queue.onDirectoryChanged();
    QCOMPARE(queuedNames(queue, {"a", "b", "c", "d"}), QStringList({"c", "d"}));
    QVERIFY(!directory.exists("a"));
}

void QueueFaultsTest::failedListingRefusesTheDirectory_data()
{
    QTest::addColumn<int>("error");
    for (const int error : {EINTR, ESTALE, ETIMEDOUT, EIO})
        QTest::addRow("%s", strerrorname_np(error)) << error;
}

void QueueFaultsTest::failedListingRefusesTheDirectory()
{
    QFETCH(int, error);
    const FaultGuard guard;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    QueueFaults::openError = error;
    const QString failure =
        failureText([&] { const FilesQueue queue(directory.path(), {}, false, 0); });
    QueueFaults::reset();
    QCOMPARE(failure,
             "FilesQueue::FilesQueue(const QString&, QList<ConsumerEntry>, int, QObject*) -> "
             "Le répertoire " +
                 directory.path() + " est invalide");
    QVERIFY(directory.exists("a"));
}

void QueueFaultsTest::absentDirectoryHoldsNothing_data()
{
    QTest::addColumn<int>("error");
    for (const int error : {ENOENT, ENOTDIR, EACCES})
        QTest::addRow("%s", strerrorname_np(error)) << error;
}

void QueueFaultsTest::absentDirectoryHoldsNothing()
{
    QFETCH(int, error);
    const FaultGuard guard;
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    traces.take();
    QueueFaults::openError = error;
    queue.onDirectoryChanged();
    QueueFaults::reset();
    QCOMPARE(traces.take(), QStringList({listingTrace(0), summaryTrace(0, 2, 1, 0)}));
    // The consumed file is deleted: its directory may still be entered.
    QCOMPARE(directory.names(), QStringList("b"));
}

void QueueFaultsTest::fileThatCannotBeAskedForStaysAsItIs_data()
{
    QTest::addColumn<int>("error");
    for (const int error : {EINTR, ESTALE, ETIMEDOUT, EIO, ENOMEM})
        QTest::addRow("%s", strerrorname_np(error)) << error;
}

void QueueFaultsTest::fileThatCannotBeAskedForStaysAsItIs()
{
    QFETCH(int, error);
    const FaultGuard guard;
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), {{"c", nullptr}, {"d", nullptr}}, true, 0);
    queue.onConsumed("c", "a");
    QVERIFY(directory.remove("b") && directory.create("e"));
    traces.take();
    QueueFaults::accessError = error;
    queue.onDirectoryChanged();
    QueueFaults::reset();
    QCOMPARE(traces.take(), QStringList({listingTrace(0), summaryTrace(0, 1, 0, 1)}));
    QVERIFY(queue.entryFromFileName("a")->isConsumed(0));
    queue.onDirectoryChanged();
    QCOMPARE(traces.take(), QStringList({listingTrace(2), summaryTrace(1, 0, 0, 2)}));
    QCOMPARE(queuedNames(queue, {"a", "e"}), QStringList({"a", "e"}));
}

void QueueFaultsTest::fileThatCannotBeAskedForIsNotPurged()
{
    const FaultGuard guard;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    QueueFaults::accessError = EIO;
    const FilesQueue queue(directory.path(), {}, false, 0);
    QueueFaults::reset();
    QVERIFY(directory.exists("a"));
}

void QueueFaultsTest::nameThatIsListedTwiceEntersOnce()
{
    const FaultGuard guard;
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    QueueFaults::areNamesListedTwice = true;
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    QCOMPARE(queue.size(), 2);
    QVERIFY(directory.create("d"));
    traces.take();
    queue.onDirectoryChanged();
    QCOMPARE(traces.take(), QStringList({listingTrace(3), summaryTrace(1, 0, 0, 3)}));
    queue.onConsumed("c", "d");
    queue.onDirectoryChanged();
    QCOMPARE(queuedNames(queue, {"a", "b"}), QStringList({"a", "b"}));
}

void QueueFaultsTest::refusedWatchIsTriedOnceADirectory()
{
    const FaultGuard guard;
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.makeDirectory("queue"));
    FilesQueue queue(directory.filePath("queue"), {}, true, 0);
    const MessageCapture output;
    QueueFaults::watchError = ENOSPC;
    queue.onProcess();
    const qsizetype once = output.texts().size();
    QVERIFY(once > 0);
    for (int i = 0; i < 3; ++i)
        queue.onDirectoryChanged();
    QCOMPARE(output.texts().size(), once);

    // For another directory in its place, the watch is tried again.
    QVERIFY(directory.rename("queue", "away") && directory.makeDirectory("queue"));
    QueueFaults::watchError = 0;
    queue.onDirectoryChanged();
    QCOMPARE(output.texts().size(), once);
    QCOMPARE(queue.findChild<QFileSystemWatcher*>()->directories(),
             QStringList(directory.filePath("queue")));
}

void QueueFaultsTest::secondProcessTriesARefusedWatchAgain()
{
    const FaultGuard guard;
    const TraceLog traces;
    const MessageCapture output;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 0);
    QueueFaults::watchError = ENOSPC;
    queue.onProcess();
    QueueFaults::watchError = 0;
    queue.onProcess();
    QVERIFY(directory.create("a"));
    QTRY_COMPARE(queue.size(), 1);
}

void QueueFaultsTest::knownFilesCostOneCallEach()
{
    const FaultGuard guard;
    const TraceLog traces(LoggerLevel::fatal);
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b", "c", "d"}));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onProcess();
    queue.onDirectoryChanged();
    QueueFaults::reset();
    queue.onDirectoryChanged();
    QCOMPARE(QueueFaults::accessCalls, 4);
    QCOMPARE(QueueFaults::statCalls, 0);
    QCOMPARE(QueueFaults::statusCalls, 0);
}

QTEST_GUILESS_MAIN(QueueFaultsTest)
#include "tst_queuefaults.moc"
