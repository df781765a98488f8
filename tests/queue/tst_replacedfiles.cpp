// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/queuefixture.h"
#include "support/childprocess.h"
#include "support/tracelog.h"

#include <kez/FilesQueue.h>

#include <QTest>
#include <QThread>

#include <tuple>

#include <fcntl.h>

namespace {

const QList<ConsumerEntry> OneConsumer{{"c", nullptr}};
const QList<ConsumerEntry> TwoConsumers{{"c", nullptr}, {"d", nullptr}};

quint64 inodeOf(const QString& path)
{
    struct stat status {};
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_ino : 0;
}

bool hasBirth(const QString& path)
{
    struct statx status {};
    return ::statx(AT_FDCWD, QFile::encodeName(path).constData(), 0, STATX_BTIME, &status) == 0 &&
           (status.stx_mask & STATX_BTIME);
}

/// Inode number and birth.
std::tuple<quint64, qint64, quint32> identityOf(const QString& path)
{
    struct statx status {};
    ::statx(AT_FDCWD, QFile::encodeName(path).constData(), AT_SYMLINK_NOFOLLOW,
            STATX_INO | STATX_BTIME, &status);
    return {status.stx_ino, status.stx_btime.tv_sec, status.stx_btime.tv_nsec};
}

/// What one re-scan announced and traced.
struct Rescan {
    QStringList appended;
    QStringList deleted;
    QString summary;
};

Rescan rescan(FilesQueue& queue, TraceLog& traces)
{
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    traces.take();
    queue.onDirectoryChanged();
    Rescan result;
    result.summary = traces.take().value(1);
    if (!updated.isEmpty()) {
        result.appended = updated.at(0).at(0).value<QList<QString>>();
        result.deleted = updated.at(0).at(1).value<QList<QString>>();
    }
    return result;
}

/// A file that may not be read takes the place of a consumed one.
int childReplacedByUnreadable()
{
    if (!becomeOrdinaryUser())
        return 1;
    TraceLog traces;
    const QueueDirectory directory;
    if (!directory.createAll({"a", "b"}))
        return 2;
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    if (!directory.create(".new") || !directory.setMode(".new", 0000) ||
        !directory.rename(".new", "a"))
        return 3;
    const Rescan seen = rescan(queue, traces);
    if (!directory.exists("a"))
        return 4;
    return seen.summary == summaryTrace(0, 1, 1, 1) && queue.size() == 1 ? 0 : 5;
}

int childMain(const QStringList&)
{
    return childReplacedByUnreadable();
}

} // namespace

class ReplacedFilesTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void fileRenamedOverAConsumedOneIsNew();
    void replacedFilesEnterInNameOrderWithTheOthers();
    void fileMadeAfterAConsumedOneIsNew();
    void fileMadeAtOnceAfterAConsumedOneIsNew();
    void fileReplacedBeforeTheLastReportIsDeleted();
    void fileMadeAnewBeforeTheLastReportIsDeleted();
    void fileReplacedAgainIsNewAgain();
    void fileThatComesBackIsNew();
    void consumedLinkReplacedByALinkIsNew();
    void consumedLinkWithAnotherTargetIsDeleted();
    void consumedFileReplacedByALinkIsNew();
    void consumedFileReplacedByARefusedLinkIsDropped();
    void consumedFileReplacedByAnUnreadableOneIsDropped();
    void fileThatIsThereAtTheLastMomentIsDeleted();
    void touchedFileIsDeleted();
};

void ReplacedFilesTest::fileRenamedOverAConsumedOneIsNew()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), TwoConsumers, true, 0);
    queue.onConsumed("c", "a");
    queue.onConsumed("d", "a");
    QVERIFY(directory.deliver("a", "another"));
    const Rescan first = rescan(queue, traces);
    QCOMPARE(directory.content("a"), QByteArray("another"));
    QCOMPARE(first.appended, QStringList("a"));
    QCOMPARE(first.deleted, QStringList());
    QCOMPARE(first.summary, summaryTrace(1, 0, 1, 2));
    QCOMPARE(queuedNames(queue, {"a", "b"}), QStringList({"b", "a"}));
    QVERIFY(!queue.entryFromFileName("a")->isConsumed(0));
    QVERIFY(!queue.entryFromFileName("a")->isConsumed(1));

    queue.onConsumed("c", "a");
    queue.onConsumed("d", "a");
    QCOMPARE(rescan(queue, traces).summary, summaryTrace(0, 0, 1, 1));
    QCOMPARE(directory.names(), QStringList("b"));
}

void ReplacedFilesTest::replacedFilesEnterInNameOrderWithTheOthers()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"b", "d", "kept", "gone"}));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    for (const char* const name : {"d", "b", "gone"})
        queue.onConsumed("c", name);
    QVERIFY(directory.deliver("d") && directory.deliver("b"));
    QVERIFY(directory.createAll({"c", "a"}));
    const Rescan seen = rescan(queue, traces);
    QCOMPARE(seen.appended, QStringList({"a", "b", "c", "d"}));
    QCOMPARE(seen.summary, summaryTrace(4, 0, 3, 5));
    const QStringList order{"kept", "a", "b", "c", "d"};
    QCOMPARE(queuedNames(queue, order), order);
    QCOMPARE(directory.names(), QStringList({"a", "b", "c", "d", "kept"}));
}

void ReplacedFilesTest::fileMadeAfterAConsumedOneIsNew()
{
    // Many file systems give a new file the inode number of the one that was removed last. The wait
    // is longer than a tick of the clock that gives the birth times.
    TraceLog traces;
    const QueueDirectory directory;
    bool isReused = false;
    for (int i = 0; i < 5 && !isReused; ++i) {
        QVERIFY(directory.create("a"));
        if (!hasBirth(directory.filePath("a")))
            QSKIP("the file system keeps no births");
        FilesQueue queue(directory.path(), OneConsumer, true, 0);
        queue.onConsumed("c", "a");
        const quint64 inode = inodeOf(directory.filePath("a"));
        QThread::msleep(30);
        QVERIFY(directory.remove("a") && directory.create("a", "another"));
        isReused = inodeOf(directory.filePath("a")) == inode;
        QCOMPARE(rescan(queue, traces).appended, QStringList("a"));
        QCOMPARE(directory.content("a"), QByteArray("another"));
        QVERIFY(directory.remove("a"));
    }
    if (!isReused)
        qInfo("no inode number was used again here");
}

void ReplacedFilesTest::fileMadeAtOnceAfterAConsumedOneIsNew()
{
    // The new file often has the inode number of the one before, and comes in the same tick of the
    // clock. Only files that differ in one of the two can be told apart.
    TraceLog traces(LoggerLevel::fatal);
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    for (int i = 0; i < 50; ++i) {
        QVERIFY(directory.create("a"));
        const auto first = identityOf(directory.filePath("a"));
        queue.onDirectoryChanged();
        queue.onConsumed("c", "a");
        QVERIFY(directory.remove("a") && directory.create("a", "another"));
        const bool isOther = identityOf(directory.filePath("a")) != first;
        queue.onDirectoryChanged();
        QVERIFY(!isOther || directory.content("a") == "another");
        directory.remove("a");
        queue.onDirectoryChanged();
    }
}

void ReplacedFilesTest::fileReplacedBeforeTheLastReportIsDeleted()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), TwoConsumers, true, 0);
    queue.onConsumed("c", "a");
    QVERIFY(directory.deliver("a", "another"));
    QCOMPARE(rescan(queue, traces).summary, summaryTrace(0, 0, 0, 1));
    QVERIFY(queue.entryFromFileName("a")->isConsumed(0));
    queue.onConsumed("d", "a");
    QCOMPARE(rescan(queue, traces).summary, summaryTrace(0, 0, 1, 0));
    QCOMPARE(directory.names(), QStringList());
}

void ReplacedFilesTest::fileMadeAnewBeforeTheLastReportIsDeleted()
{
    // The new file often has the inode number of the one before.
    TraceLog traces;
    const QueueDirectory directory;
    for (int i = 0; i < 20; ++i) {
        QVERIFY(directory.create("a"));
        FilesQueue queue(directory.path(), TwoConsumers, true, 0);
        queue.onConsumed("c", "a");
        QVERIFY(directory.remove("a") && directory.create("a", "another"));
        QCOMPARE(rescan(queue, traces).summary, summaryTrace(0, 0, 0, 1));
        queue.onConsumed("d", "a");
        QCOMPARE(rescan(queue, traces).summary, summaryTrace(0, 0, 1, 0));
        QCOMPARE(directory.names(), QStringList());
    }
}

void ReplacedFilesTest::fileReplacedAgainIsNewAgain()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    for (const char* const content : {"first", "second", "third"}) {
        queue.onConsumed("c", "a");
        QVERIFY(directory.deliver("a", content));
        QCOMPARE(rescan(queue, traces).appended, QStringList("a"));
        QCOMPARE(directory.content("a"), QByteArray(content));
    }
    // If it is replaced before it is reported, it stays the same entry.
    QVERIFY(directory.deliver("a", "fourth"));
    QCOMPARE(rescan(queue, traces).summary, summaryTrace(0, 0, 0, 1));
    queue.onConsumed("c", "a");
    QCOMPARE(rescan(queue, traces).summary, summaryTrace(0, 0, 1, 0));
    QCOMPARE(directory.names(), QStringList());
}

void ReplacedFilesTest::fileThatComesBackIsNew()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    QVERIFY(directory.deliver("a", "second"));
    QCOMPARE(rescan(queue, traces).appended, QStringList("a"));
    queue.onDirectoryChanged();

    // The second file is moved away. A third one is consumed, then the second one comes back.
    QVERIFY(directory.rename("a", ".second") && directory.deliver("a", "third"));
    QCOMPARE(rescan(queue, traces).summary, summaryTrace(0, 0, 0, 1));
    queue.onConsumed("c", "a");
    QVERIFY(directory.rename(".second", "a"));
    QCOMPARE(rescan(queue, traces).appended, QStringList("a"));
    QCOMPARE(directory.content("a"), QByteArray("second"));
}

void ReplacedFilesTest::consumedLinkReplacedByALinkIsNew()
{
    TraceLog traces;
    const QueueDirectory elsewhere;
    QVERIFY(elsewhere.create("target"));
    const QueueDirectory directory;
    QVERIFY(directory.makeLink("link", elsewhere.filePath("target")));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "link");
    QVERIFY(directory.makeLink(".new", elsewhere.filePath("target")));
    QVERIFY(directory.rename(".new", "link"));
    QCOMPARE(rescan(queue, traces).appended, QStringList("link"));
    QCOMPARE(directory.names(), QStringList("link"));
}

void ReplacedFilesTest::consumedLinkWithAnotherTargetIsDeleted()
{
    TraceLog traces;
    const QueueDirectory elsewhere;
    QVERIFY(elsewhere.create("target"));
    const QueueDirectory directory;
    QVERIFY(directory.makeLink("link", elsewhere.filePath("target")));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "link");
    QVERIFY(elsewhere.deliver("target", "another"));
    QCOMPARE(rescan(queue, traces).summary, summaryTrace(0, 0, 1, 0));
    QCOMPARE(directory.names(), QStringList());
    QCOMPARE(elsewhere.content("target"), QByteArray("another"));
}

void ReplacedFilesTest::consumedFileReplacedByALinkIsNew()
{
    TraceLog traces;
    const QueueDirectory elsewhere;
    QVERIFY(elsewhere.create("target"));
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    QVERIFY(directory.makeLink(".new", elsewhere.filePath("target")));
    QVERIFY(directory.rename(".new", "a"));
    QCOMPARE(rescan(queue, traces).appended, QStringList("a"));
    QCOMPARE(directory.names(), QStringList("a"));
}

void ReplacedFilesTest::consumedFileReplacedByARefusedLinkIsDropped()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    QVERIFY(directory.makeLink(".new", "/dev/null"));
    QVERIFY(directory.rename(".new", "a"));
    traces.take();
    queue.onDirectoryChanged();
    QCOMPARE(traces.take(),
             QStringList({listingTrace(1), rejectionTrace("a"), summaryTrace(0, 0, 1, 0)}));
    QCOMPARE(directory.names(), QStringList("a"));
}

void ReplacedFilesTest::consumedFileReplacedByAnUnreadableOneIsDropped()
{
    const ChildResult child = runChild({"replacedByUnreadable"});
    QCOMPARE(child.exitCode, 0);
}

void ReplacedFilesTest::fileThatIsThereAtTheLastMomentIsDeleted()
{
    // The listing comes right after the birth, so that the two times are close to each other.
    TraceLog traces(LoggerLevel::fatal);
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    for (int i = 0; i < 200; ++i) {
        QVERIFY(directory.create("a"));
        queue.onDirectoryChanged();
        queue.onConsumed("c", "a");
        queue.onDirectoryChanged();
        QVERIFY(!directory.exists("a"));
    }
}

void ReplacedFilesTest::touchedFileIsDeleted()
{
    // New content and new permissions do not make it another file.
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    QThread::msleep(30);
    QVERIFY(directory.create("a", "other content") && directory.setMode("a", 0640));
    QCOMPARE(rescan(queue, traces).summary, summaryTrace(0, 0, 1, 0));
    QCOMPARE(directory.names(), QStringList());
}

KEZ_TEST_MAIN_WITH_CHILDREN(ReplacedFilesTest, childMain)
#include "tst_replacedfiles.moc"
