// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/queuefixture.h"
#include "support/descriptorlimit.h"
#include "support/failuretext.h"
#include "support/files.h"
#include "support/messagecapture.h"
#include "support/queuefaults.h"
#include "support/tracelog.h"

#include <kez/FilesQueue.h>

#include <QDateTime>
#include <QFileSystemWatcher>
#include <QHash>
#include <QTest>

#include <cstring>

namespace {

const QList<ConsumerEntry> OneConsumer{{"c", nullptr}};
constexpr std::int64_t Second = 1000000000;

/// Ends the faults. Declared after the directory, so that they have ended when it is removed.
struct FaultGuard {
    FaultGuard() = default;
    ~FaultGuard() { QueueFaults::reset(); }
    FaultGuard(const FaultGuard&) = delete;
    FaultGuard& operator=(const FaultGuard&) = delete;
};

std::int64_t nanosecondsNow()
{
    return QDateTime::currentMSecsSinceEpoch() * 1000000;
}

void setBirth(struct statx& status, std::int64_t nanoseconds)
{
    status.stx_mask |= STATX_BTIME;
    status.stx_btime.tv_sec = nanoseconds / Second;
    status.stx_btime.tv_nsec = static_cast<std::uint32_t>(nanoseconds % Second);
}

/// Makes the directory one that has been left alone for a while.
void settle()
{
    QueueFaults::clock = nanosecondsNow() + 10 * Second;
}

/// When a name was last added to the directory or removed from it.
std::int64_t lastChangeOf(const QueueDirectory& directory)
{
    struct stat status {};
    ::stat(QFile::encodeName(directory.path()).constData(), &status);
    return status.st_ctim.tv_sec * Second + status.st_ctim.tv_nsec;
}

/// Re-scans; whether the consumed file stayed on disk and entered the queue again, as announced.
bool isNewAfterRescan(FilesQueue& queue, const QueueDirectory& directory, const QString& name)
{
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    queue.onDirectoryChanged();
    return updated.size() == 1 &&
           updated.at(0).at(0).value<QList<QString>>() == QList<QString>(1, name) &&
           updated.at(0).at(1).value<QList<QString>>().isEmpty() && directory.exists(name) &&
           queue.existsFileEntry(name) && !queue.isConsumedFromAll(name);
}

bool isDeletedAfterRescan(FilesQueue& queue, const QueueDirectory& directory, const QString& name)
{
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    queue.onDirectoryChanged();
    return updated.isEmpty() && !directory.exists(name) && !queue.existsFileEntry(name);
}

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
    void replacedDirectoryIsListedWithOneDescriptor();
    void replacedDirectoryThatCannotBeOpenedAgainIsListedLater();
    void secondProcessTriesARefusedWatchAgain();

    void bornAfterTheListingIsAnotherFile();
    void birthDecidesInASettledDirectory_data();
    void birthDecidesInASettledDirectory();
    void fileThatTookTheNameBeforeALaterListingIsTheSame_data();
    void fileThatTookTheNameBeforeALaterListingIsTheSame();
    void otherDeviceIsAnotherFile();
    void exactBirthDecidesInADirectoryThatHasJustChanged_data();
    void exactBirthDecidesInADirectoryThatHasJustChanged();
    void withoutBirthTimesTheInodeCounts();
    void fileServersClockMayBeAhead();
    void birthInTheFutureCountsOnce();
    void otherInodesInListingsCountOnce_data();
    void otherInodesInListingsCountOnce();
    void otherInodesInListingsDoNotCountForANewFile();
    void unknownInodesInListingsDoNotCount();
    void fileReplacedAfterTheListingIsNew();
    void fileRemovedAfterTheListingIsDropped();
    void fileThatEnteredAgainMayBeReplaced();

    void knownFilesCostOneCallEach();
    void newFilesCostOneCallMoreIfTheDirectoryHasJustChanged();
    void consumedFilesCostOneCallMore();
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
    TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
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
    const QueueDirectory directory;
    const FaultGuard guard;
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
    TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
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
    TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
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
    const QueueDirectory directory;
    const FaultGuard guard;
    QVERIFY(directory.create("a"));
    QueueFaults::accessError = EIO;
    const FilesQueue queue(directory.path(), {}, false, 0);
    QueueFaults::reset();
    QVERIFY(directory.exists("a"));
}

void QueueFaultsTest::nameThatIsListedTwiceEntersOnce()
{
    TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
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
    const TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
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

void QueueFaultsTest::replacedDirectoryIsListedWithOneDescriptor()
{
    const TraceLog traces;
    const QueueDirectory parent;
    const FaultGuard guard;
    QVERIFY(parent.makeDirectory("queue"));
    FilesQueue queue(parent.filePath("queue"), {}, true, 0);
    queue.onProcess();
    QVERIFY(parent.rename("queue", "before") && parent.makeDirectory("queue"));
    QVERIFY(writeFile(parent.filePath("queue/a"), "content"));
    {
        const DescriptorLimit one(1);
        queue.onDirectoryChanged();
    }
    QVERIFY(queue.existsFileEntry("a"));
    QVERIFY(writeFile(parent.filePath("queue/b"), "content"));
    QTRY_VERIFY(queue.existsFileEntry("b"));
}

void QueueFaultsTest::replacedDirectoryThatCannotBeOpenedAgainIsListedLater()
{
    const TraceLog traces;
    const QueueDirectory parent;
    const FaultGuard guard;
    QVERIFY(parent.makeDirectory("queue"));
    FilesQueue queue(parent.filePath("queue"), {}, true, 0);
    queue.onProcess();
    QVERIFY(parent.rename("queue", "before") && parent.makeDirectory("queue"));
    QVERIFY(writeFile(parent.filePath("queue/a"), "content"));
    QueueFaults::soundOpens = 1; // the one before the watch is set
    QueueFaults::openError = EMFILE;
    queue.onDirectoryChanged();
    QVERIFY(!queue.existsFileEntry("a"));
    QueueFaults::openError = 0;
    queue.onDirectoryChanged();
    QVERIFY(queue.existsFileEntry("a"));
    QVERIFY(writeFile(parent.filePath("queue/b"), "content"));
    QTRY_VERIFY(queue.existsFileEntry("b"));
}

void QueueFaultsTest::secondProcessTriesARefusedWatchAgain()
{
    const TraceLog traces;
    const MessageCapture output;
    const QueueDirectory directory;
    const FaultGuard guard;
    FilesQueue queue(directory.path(), {}, true, 0);
    QueueFaults::watchError = ENOSPC;
    queue.onProcess();
    QueueFaults::watchError = 0;
    queue.onProcess();
    QVERIFY(directory.create("a"));
    QTRY_COMPARE(queue.size(), 1);
}

void QueueFaultsTest::bornAfterTheListingIsAnotherFile()
{
    const TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    // As if the listed file had been removed, and a later one had got its inode number.
    const std::int64_t birth = nanosecondsNow() + Second;
    QueueFaults::status = [birth](const char*, struct statx& status) { setBirth(status, birth); };
    QVERIFY(isNewAfterRescan(queue, directory, "a"));
    QCOMPARE(queuedNames(queue, {"a", "b"}), QStringList({"b", "a"}));
    queue.onConsumed("c", "a");
    QVERIFY(isDeletedAfterRescan(queue, directory, "a"));
}

void QueueFaultsTest::birthDecidesInASettledDirectory_data()
{
    QTest::addColumn<qint64>("later");
    QTest::addColumn<bool>("isSame");
    QTest::newRow("long before the last change") << qint64(-3600 * Second) << true;
    QTest::newRow("at the last change") << qint64(0) << true;
    QTest::newRow("within a coarse time of change") << qint64(2 * Second - 1) << true;
    QTest::newRow("after that") << qint64(2 * Second) << false;
    QTest::newRow("after the listing") << qint64(11 * Second) << false;
}

void QueueFaultsTest::birthDecidesInASettledDirectory()
{
    QFETCH(qint64, later);
    QFETCH(bool, isSame);
    const TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
    QVERIFY(directory.create("a"));
    settle();
    const std::int64_t birth = lastChangeOf(directory) + later;
    QueueFaults::status = [birth](const char*, struct statx& status) { setBirth(status, birth); };
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    QVERIFY(isSame ? isDeletedAfterRescan(queue, directory, "a")
                   : isNewAfterRescan(queue, directory, "a"));
}

void QueueFaultsTest::fileThatTookTheNameBeforeALaterListingIsTheSame_data()
{
    QTest::addColumn<qint64>("later");
    QTest::addColumn<bool>("isSame");
    QTest::newRow("before the first file") << qint64(-3600 * Second) << false;
    QTest::newRow("just before the last change") << qint64(-1) << true;
    QTest::newRow("at the last change") << qint64(0) << true;
    QTest::newRow("after it") << qint64(1) << false;
}

void QueueFaultsTest::fileThatTookTheNameBeforeALaterListingIsTheSame()
{
    // The name is given to another file with the same inode number, then the directory is listed,
    // then the last consumer reports.
    QFETCH(qint64, later);
    QFETCH(bool, isSame);
    const TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
    QVERIFY(directory.create("a"));
    std::int64_t birth = lastChangeOf(directory) - Second;
    QueueFaults::status = [&birth](const char*, struct statx& status) { setBirth(status, birth); };
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    QVERIFY(directory.create("b"));
    birth = lastChangeOf(directory) + later;
    queue.onDirectoryChanged();
    queue.onConsumed("c", "a");
    QVERIFY(isSame ? isDeletedAfterRescan(queue, directory, "a")
                   : isNewAfterRescan(queue, directory, "a"));
}

void QueueFaultsTest::otherDeviceIsAnotherFile()
{
    // As if another file system had been mounted: its files have the same inode numbers.
    const TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    QueueFaults::device = 4711;
    QVERIFY(isNewAfterRescan(queue, directory, "a"));
    queue.onConsumed("c", "a");
    QVERIFY(isDeletedAfterRescan(queue, directory, "a"));
}

void QueueFaultsTest::exactBirthDecidesInADirectoryThatHasJustChanged_data()
{
    QTest::addColumn<qint64>("later");
    QTest::addColumn<bool>("isSame");
    QTest::newRow("the same") << qint64(0) << true;
    QTest::newRow("just before") << qint64(-1) << false;
    QTest::newRow("just after") << qint64(1) << false;
}

void QueueFaultsTest::exactBirthDecidesInADirectoryThatHasJustChanged()
{
    QFETCH(qint64, later);
    QFETCH(bool, isSame);
    const TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
    QVERIFY(directory.create("a"));
    std::int64_t birth = lastChangeOf(directory);
    QueueFaults::status = [&birth](const char*, struct statx& status) { setBirth(status, birth); };
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    birth += later;
    QVERIFY(isSame ? isDeletedAfterRescan(queue, directory, "a")
                   : isNewAfterRescan(queue, directory, "a"));
}

void QueueFaultsTest::withoutBirthTimesTheInodeCounts()
{
    const TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    queue.onConsumed("c", "b");
    QVERIFY(directory.deliver("b", "another"));
    QueueFaults::status = [](const char*, struct statx& status) {
        setBirth(status, nanosecondsNow() + Second); // not valid, as the mask says
        status.stx_mask &= ~static_cast<unsigned int>(STATX_BTIME);
    };
    QVERIFY(isNewAfterRescan(queue, directory, "b"));
    QVERIFY(!directory.exists("a"));
    queue.onConsumed("c", "b");
    QVERIFY(isDeletedAfterRescan(queue, directory, "b"));
}

void QueueFaultsTest::fileServersClockMayBeAhead()
{
    // The server's clock gives the births and the directory's time of change.
    const TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
    QVERIFY(directory.create("a"));
    QueueFaults::clock = nanosecondsNow() - 60 * Second;
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    QVERIFY(isDeletedAfterRescan(queue, directory, "a"));
}

void QueueFaultsTest::birthInTheFutureCountsOnce()
{
    // As if the clock had been set back: the birth is later than every listing.
    const TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
    QVERIFY(directory.create("a"));
    settle();
    const std::int64_t birth = nanosecondsNow() + 86400 * Second;
    QueueFaults::status = [birth](const char*, struct statx& status) { setBirth(status, birth); };
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    QVERIFY(isNewAfterRescan(queue, directory, "a"));
    queue.onDirectoryChanged();
    queue.onConsumed("c", "a");
    QVERIFY(isDeletedAfterRescan(queue, directory, "a"));
}

void QueueFaultsTest::otherInodesInListingsCountOnce_data()
{
    QTest::addColumn<bool>("isConstant");
    QTest::newRow("always the same other number") << true;
    QTest::newRow("another number every time") << false;
}

void QueueFaultsTest::otherInodesInListingsCountOnce()
{
    QFETCH(bool, isConstant);
    const TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
    QVERIFY(directory.create("a"));
    std::uint64_t number = 1U << 20U;
    QueueFaults::listedInode = [&](const char*, std::uint64_t inode) {
        return isConstant ? inode ^ 0x5555U : ++number;
    };
    settle();
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onDirectoryChanged();
    queue.onConsumed("c", "a");
    QVERIFY(isNewAfterRescan(queue, directory, "a"));
    queue.onDirectoryChanged();
    queue.onConsumed("c", "a");
    QVERIFY(isDeletedAfterRescan(queue, directory, "a"));
}

void QueueFaultsTest::otherInodesInListingsDoNotCountForANewFile()
{
    const TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
    QVERIFY(directory.create("a"));
    std::uint64_t number = 1U << 20U;
    QueueFaults::listedInode = [&](const char*, std::uint64_t) { return ++number; };
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onDirectoryChanged();
    queue.onConsumed("c", "a");
    QVERIFY(isDeletedAfterRescan(queue, directory, "a"));
}

void QueueFaultsTest::unknownInodesInListingsDoNotCount()
{
    const TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
    QVERIFY(directory.createAll({"a", "b"}));
    QueueFaults::listedInode = [](const char*, std::uint64_t) { return 0xffffffffU; };
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    QVERIFY(isDeletedAfterRescan(queue, directory, "a"));

    // The birth still counts.
    queue.onConsumed("c", "b");
    const std::int64_t birth = nanosecondsNow() + Second;
    QueueFaults::status = [birth](const char*, struct statx& status) { setBirth(status, birth); };
    QVERIFY(isNewAfterRescan(queue, directory, "b"));
}

void QueueFaultsTest::fileReplacedAfterTheListingIsNew()
{
    const TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    QueueFaults::beforeStatus = [&](const char* path) {
        const char* const slash = std::strrchr(path, '/');
        if (std::strcmp(slash ? slash + 1 : path, "a") != 0)
            return;
        QueueFaults::beforeStatus = nullptr;
        QVERIFY(directory.deliver("a", "another"));
    };
    QVERIFY(isNewAfterRescan(queue, directory, "a"));
    QVERIFY(!QueueFaults::beforeStatus);
    QCOMPARE(directory.content("a"), QByteArray("another"));
    queue.onConsumed("c", "a");
    QVERIFY(isDeletedAfterRescan(queue, directory, "a"));
}

void QueueFaultsTest::fileRemovedAfterTheListingIsDropped()
{
    TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    QueueFaults::beforeStatus = [&](const char*) {
        QueueFaults::beforeStatus = nullptr;
        QVERIFY(directory.remove("a"));
    };
    traces.take();
    queue.onDirectoryChanged();
    QCOMPARE(traces.take(), QStringList({listingTrace(1), summaryTrace(0, 0, 1, 0)}));
}

void QueueFaultsTest::fileThatEnteredAgainMayBeReplaced()
{
    // The file that entered again is replaced before it is reported: the new one is deleted.
    const TraceLog traces;
    const QueueDirectory directory;
    const FaultGuard guard;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    QVERIFY(directory.deliver("a", "second"));
    QVERIFY(isNewAfterRescan(queue, directory, "a"));
    QVERIFY(directory.deliver("a", "third"));
    queue.onDirectoryChanged();
    queue.onConsumed("c", "a");
    QVERIFY(isDeletedAfterRescan(queue, directory, "a"));

    // It is replaced after it is reported: the new one stays.
    QVERIFY(directory.create("b"));
    queue.onDirectoryChanged();
    queue.onConsumed("c", "b");
    QVERIFY(directory.deliver("b", "second"));
    QVERIFY(isNewAfterRescan(queue, directory, "b"));
    queue.onConsumed("c", "b");
    QVERIFY(directory.deliver("b", "third"));
    QVERIFY(isNewAfterRescan(queue, directory, "b"));
    QCOMPARE(directory.content("b"), QByteArray("third"));
}

void QueueFaultsTest::knownFilesCostOneCallEach()
{
    const TraceLog traces(LoggerLevel::fatal);
    const QueueDirectory directory;
    const FaultGuard guard;
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

void QueueFaultsTest::newFilesCostOneCallMoreIfTheDirectoryHasJustChanged()
{
    const TraceLog traces(LoggerLevel::fatal);
    const QueueDirectory directory;
    const FaultGuard guard;
    QVERIFY(directory.createAll({"a", "b", "c", "d"}));
    int filesAsked = 0; // not the directory, which has a path
    const auto countFiles = [&](const char* path) { filesAsked += path[0] != '/'; };
    QueueFaults::beforeStatus = countFiles;
    const FilesQueue fresh(directory.path(), OneConsumer, true, 0);
    QCOMPARE(filesAsked, 4);
    QCOMPARE(QueueFaults::accessCalls, 4);

    QueueFaults::reset();
    filesAsked = 0;
    QueueFaults::beforeStatus = countFiles;
    settle();
    const FilesQueue settled(directory.path(), OneConsumer, true, 0);
    QCOMPARE(filesAsked, 0);
    QCOMPARE(QueueFaults::accessCalls, 4);
}

void QueueFaultsTest::consumedFilesCostOneCallMore()
{
    const TraceLog traces(LoggerLevel::fatal);
    const QueueDirectory directory;
    const FaultGuard guard;
    QVERIFY(directory.createAll({"a", "b", "c", "d"}));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    for (const char* const name : {"a", "b", "c"})
        queue.onConsumed("c", name);
    QueueFaults::reset();
    queue.onDirectoryChanged();
    QCOMPARE(QueueFaults::accessCalls, 4);
    QCOMPARE(QueueFaults::statCalls, 0);
    QCOMPARE(QueueFaults::statusCalls, 3);
    QCOMPARE(directory.names(), QStringList("d"));
}

QTEST_GUILESS_MAIN(QueueFaultsTest)
#include "tst_queuefaults.moc"
