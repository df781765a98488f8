// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/queuefixture.h"
#include "support/failuretext.h"
#include "support/messagecapture.h"
#include "support/tracelog.h"

#include <kez/FilesQueue.h>

#include <QFileSystemWatcher>
#include <QTest>

namespace {

const QList<ConsumerEntry> OneConsumer{{"c", nullptr}};

QString invalidDirectory(const QString& path)
{
    return "FilesQueue::FilesQueue(const QString&, QList<ConsumerEntry>, int, QObject*) -> "
           "Le répertoire " +
           path + " est invalide";
}

/// While it lives, Qt reads names that begin with "data:" as files of another directory.
class SearchPath {
public:
    explicit SearchPath(const QString& directory) { QDir::setSearchPaths("data", {directory}); }
    ~SearchPath() { QDir::setSearchPaths("data", {}); }
    SearchPath(const SearchPath&) = delete;
    SearchPath& operator=(const SearchPath&) = delete;
};

QStringList watchedBy(const FilesQueue& queue)
{
    return queue.findChild<QFileSystemWatcher*>()->directories();
}

} // namespace

class QueueDirectoryTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void namesThatQtReadsOtherwiseStayInside_data();
    void namesThatQtReadsOtherwiseStayInside();
    void relativePathIsResolvedOnce();
    void relativePathIsPurgedWhereItWasGiven();
    void watchOfARelativePathStays();
    void pathShowsWhatWasGiven();
    void traceShowsTheAbsolutePath();
    void searchPathIsResolvedOnce();
    void prefixWithoutSearchPathIsAName();
    void resourceIsRefused();
    void dotSlashNamesAnyDirectory();
    void parentOfALinksTargetIsMeantAsTheSystemMeansIt();
    void workingDirectoryThatIsGoneIsRefused();

    void directoryMadeAgainIsWatchedAgain();
    void directoryInPlaceOfAnotherIsWatched();
    void directoryOfTheSameInodeIsWatchedAgain();
    void directoryMissingAtTheStartIsWatchedLater();
    void nothingIsMissedBetweenDirectoryAndWatch();
    void rescanLeavesAWatchThatIsRightAlone();
    void linkToAnotherDirectoryIsFollowed();
};

void QueueDirectoryTest::namesThatQtReadsOtherwiseStayInside_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("colon") << ":a";
    QTest::newRow("colon alone") << ":";
    QTest::newRow("search path") << "data:outside";
    QTest::newRow("unknown search path") << "nothing:outside";
    QTest::newRow("drive") << "c:a";
    QTest::newRow("file address") << "file:outside";
}

void QueueDirectoryTest::namesThatQtReadsOtherwiseStayInside()
{
    QFETCH(QString, name);
    const TraceLog traces;
    const QueueDirectory elsewhere;
    QVERIFY(elsewhere.create("outside"));
    const SearchPath searchPath(elsewhere.path());
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"./" + name, "b"}));

    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    QCOMPARE(queue.size(), 2);
    queue.onConsumed("c", name);
    queue.onDirectoryChanged();
    QCOMPARE(directory.names(), QStringList("b"));
    QVERIFY(elsewhere.exists("outside"));

    QVERIFY(directory.create("./" + name));
    const FilesQueue purged(directory.path(), OneConsumer, false, 0);
    QCOMPARE(directory.names(), QStringList());
    QVERIFY(elsewhere.exists("outside"));
}

void QueueDirectoryTest::relativePathIsResolvedOnce()
{
    const TraceLog traces;
    const QueueDirectory parent;
    const QueueDirectory elsewhere;
    for (const QueueDirectory* const directory : {&parent, &elsewhere}) {
        QVERIFY(directory->makeDirectory("queue"));
        QVERIFY(directory->createAll({"queue/a", "queue/b"}));
    }
    WorkingDirectory first(parent.path());
    QVERIFY(first.isSet());
    FilesQueue queue("queue", OneConsumer, true, 0);
    queue.onConsumed("c", "a");
    {
        const WorkingDirectory second(elsewhere.path());
        QVERIFY(second.isSet());
        QVERIFY(elsewhere.create("queue/wrong") && parent.create("queue/right"));
        queue.onDirectoryChanged();
    }
    QCOMPARE(queuedNames(queue, {"b", "right"}), QStringList({"b", "right"}));
    QVERIFY(!parent.exists("queue/a"));
    QVERIFY(elsewhere.exists("queue/a"));
}

void QueueDirectoryTest::relativePathIsPurgedWhereItWasGiven()
{
    const QueueDirectory parent;
    QVERIFY(parent.makeDirectory("queue"));
    QVERIFY(parent.createAll({"queue/a", "b"}));
    const WorkingDirectory first(parent.path());
    QVERIFY(first.isSet());
    const FilesQueue queue("./queue//", {}, false, 0);
    QCOMPARE(parent.names(), QStringList({"b", "queue"}));
    QVERIFY(!parent.exists("queue/a"));
}

void QueueDirectoryTest::watchOfARelativePathStays()
{
    const TraceLog traces;
    const QueueDirectory directory;
    const QueueDirectory elsewhere;
    const WorkingDirectory first(directory.path());
    QVERIFY(first.isSet());
    FilesQueue queue(".", {}, true, 0);
    const WorkingDirectory second(elsewhere.path());
    QVERIFY(second.isSet());
    queue.onProcess();
    QVERIFY(directory.deliver("a"));
    QTRY_COMPARE(queue.size(), 1);
}

void QueueDirectoryTest::pathShowsWhatWasGiven()
{
    const QueueDirectory directory;
    QVERIFY(directory.makeDirectory("queue"));
    const WorkingDirectory first(directory.path());
    QVERIFY(first.isSet());
    for (const QString& path :
         {QStringLiteral("queue"), QStringLiteral("."), directory.path() + "/./queue"}) {
        const FilesQueue queue(path, {}, true, 0);
        QCOMPARE(queue.path().path(), QDir(path).path());
    }
    QCOMPARE(failureText([] { const FilesQueue queue("absent", {}, true, 0); }),
             invalidDirectory("absent"));
}

void QueueDirectoryTest::traceShowsTheAbsolutePath()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.makeDirectory("queue"));
    std::unique_ptr<FilesQueue> queue;
    {
        const WorkingDirectory first(directory.path());
        QVERIFY(first.isSet());
        queue = std::make_unique<FilesQueue>("./queue/", QList<ConsumerEntry>(), true, 0);
    }
    queue->onProcess();
    QVERIFY2(traces.texts().at(0).endsWith(" (_path=" + directory.filePath("queue") + ")"),
             qUtf8Printable(traces.texts().at(0)));
}

void QueueDirectoryTest::searchPathIsResolvedOnce()
{
    const TraceLog traces;
    const QueueDirectory parent;
    const QueueDirectory elsewhere;
    for (const QueueDirectory* const directory : {&parent, &elsewhere}) {
        QVERIFY(directory->makeDirectory("queue"));
        QVERIFY(directory->createAll({"queue/a", "queue/b"}));
    }
    const SearchPath before(parent.path());
    FilesQueue queue("data:queue", OneConsumer, true, 0);
    QCOMPARE(queue.size(), 2);
    queue.onConsumed("c", "a");
    const SearchPath after(elsewhere.path());
    queue.onDirectoryChanged();
    QCOMPARE(queuedNames(queue, {"b"}), QStringList("b"));
    QVERIFY(!parent.exists("queue/a"));
    QVERIFY(elsewhere.exists("queue/a"));
}

void QueueDirectoryTest::prefixWithoutSearchPathIsAName()
{
    const TraceLog traces;
    const QueueDirectory parent;
    QVERIFY(parent.makeDirectory("data:queue"));
    QVERIFY(parent.create("data:queue/a"));
    const WorkingDirectory first(parent.path());
    QVERIFY(first.isSet());
    FilesQueue queue("data:queue", OneConsumer, true, 0);
    QCOMPARE(queue.size(), 1);
    queue.onConsumed("c", "a");
    queue.onDirectoryChanged();
    QVERIFY(!parent.exists("data:queue/a"));
}

void QueueDirectoryTest::resourceIsRefused()
{
    // Qt reads such a path as a resource, even if a directory has that name. A resource is not
    // writable.
    const QueueDirectory parent;
    QVERIFY(parent.makeDirectory(":queue"));
    QVERIFY(parent.create(":queue/a"));
    const WorkingDirectory first(parent.path());
    QVERIFY(first.isSet());
    for (const QString& path : {QStringLiteral(":queue"), QStringLiteral(":/resources/lang")}) {
        QCOMPARE(failureText([&] { const FilesQueue queue(path, {}, false, 0); }),
                 invalidDirectory(path));
    }
    QVERIFY(parent.exists(":queue/a"));
}

void QueueDirectoryTest::dotSlashNamesAnyDirectory()
{
    const QueueDirectory parent;
    const WorkingDirectory first(parent.path());
    QVERIFY(first.isSet());
    const SearchPath searchPath(QDir::tempPath());
    for (const QString& name : {QStringLiteral(":queue"), QStringLiteral("data:queue")}) {
        QVERIFY(parent.makeDirectory(name));
        QVERIFY(parent.create(name + "/a"));
        const FilesQueue queue("./" + name, {}, true, 0);
        QCOMPARE(queue.fileIndex("a"), 0);
        const FilesQueue purged("./" + name, {}, false, 0);
        QVERIFY(!parent.exists(name + "/a"));
    }
}

void QueueDirectoryTest::parentOfALinksTargetIsMeantAsTheSystemMeansIt()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.makeDirectory("real") && directory.makeDirectory("real/below"));
    QVERIFY(directory.makeLink("link", "real/below"));
    QVERIFY(directory.createAll({"a", "real/a", "real/b"}));
    FilesQueue queue(directory.filePath("link/.."), OneConsumer, true, 0);
    QCOMPARE(queuedNames(queue, {"a", "b"}), QStringList({"a", "b"}));
    queue.onConsumed("c", "a");
    queue.onDirectoryChanged();
    QVERIFY(directory.exists("a"));
    QVERIFY(!directory.exists("real/a"));
    queue.onProcess();
    QVERIFY(directory.deliver("real/c") || directory.create("real/c"));
    QTRY_COMPARE(queuedNames(queue, {"b", "c"}), QStringList({"b", "c"}));
}

void QueueDirectoryTest::workingDirectoryThatIsGoneIsRefused()
{
    // No absolute path leads to it. "/" and the relative path together are another directory.
    const QueueDirectory directory;
    QVERIFY(directory.makeDirectory("gone"));
    const WorkingDirectory gone(directory.filePath("gone"));
    QVERIFY(gone.isSet());
    QVERIFY(QDir().rmdir(directory.filePath("gone")));
    QCOMPARE(failureText([] { const FilesQueue queue(".", {}, true, 0); }), invalidDirectory("."));
}

void QueueDirectoryTest::directoryMadeAgainIsWatchedAgain()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.makeDirectory("queue"));
    FilesQueue queue(directory.filePath("queue"), {}, true, 0);
    queue.onProcess();
    QVERIFY(QDir().rmdir(directory.filePath("queue")));
    QTRY_COMPARE(watchedBy(queue), QStringList());
    queue.onDirectoryChanged();
    QCOMPARE(watchedBy(queue), QStringList());

    QVERIFY(directory.makeDirectory("queue"));
    QVERIFY(directory.create("queue/a"));
    queue.onDirectoryChanged();
    QCOMPARE(queue.fileIndex("a"), 0);
    QCOMPARE(watchedBy(queue), QStringList(directory.filePath("queue")));
    QVERIFY(directory.deliver("queue/b") || directory.create("queue/b"));
    QTRY_COMPARE(queue.fileIndex("b"), 1);
}

void QueueDirectoryTest::directoryInPlaceOfAnotherIsWatched()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.makeDirectory("queue"));
    QVERIFY(directory.create("queue/a"));
    FilesQueue queue(directory.filePath("queue"), {}, true, 0);
    queue.onProcess();
    QVERIFY(directory.rename("queue", "away"));
    QVERIFY(directory.makeDirectory("queue"));
    queue.onDirectoryChanged();
    QCOMPARE(queue.size(), 0);
    QVERIFY(directory.create("queue/b"));
    QTRY_COMPARE(queuedNames(queue, {"b"}), QStringList("b"));
    QCOMPARE(watchedBy(queue).size(), 1);

    // Changes in the directory that was moved away start no re-scan.
    QCoreApplication::processEvents();
    const qsizetype before = traces.texts().size();
    QVERIFY(directory.create("away/c"));
    QTest::qWait(50);
    QCOMPARE(traces.texts().size(), before);
}

void QueueDirectoryTest::directoryOfTheSameInodeIsWatchedAgain()
{
    // The directory is removed and made again before the watch's signal arrives. The new one often
    // has the same inode number.
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.makeDirectory("queue"));
    FilesQueue queue(directory.filePath("queue"), {}, true, 0);
    queue.onProcess();
    for (int i = 0; i < 3; ++i) {
        QVERIFY(QDir().rmdir(directory.filePath("queue")));
        QVERIFY(directory.makeDirectory("queue"));
        queue.onDirectoryChanged();
        QTest::qWait(20); // the signal of the old watch arrives now
        QVERIFY(directory.create("queue/a"));
        QTRY_COMPARE(queue.size(), 1);
        QVERIFY(directory.remove("queue/a"));
        QTRY_COMPARE(queue.size(), 0);
    }
}

void QueueDirectoryTest::directoryMissingAtTheStartIsWatchedLater()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.makeDirectory("queue"));
    FilesQueue queue(directory.filePath("queue"), {}, true, 0);
    QVERIFY(QDir().rmdir(directory.filePath("queue")));
    queue.onProcess();
    QVERIFY(directory.makeDirectory("queue"));
    queue.onDirectoryChanged();
    QVERIFY(directory.create("queue/a"));
    QTRY_COMPARE(queue.size(), 1);
}

void QueueDirectoryTest::nothingIsMissedBetweenDirectoryAndWatch()
{
    // One file comes with the directory, another one right after the re-scan that finds it.
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.makeDirectory("queue"));
    FilesQueue queue(directory.filePath("queue"), {}, true, 0);
    queue.onProcess();
    connect(&queue, &FilesQueue::queueUpdated, &queue, [&](const QList<QString>& appended) {
        if (appended.contains("a"))
            QVERIFY(directory.create("queue/b"));
    });
    QVERIFY(QDir().rmdir(directory.filePath("queue")));
    QTRY_COMPARE(watchedBy(queue), QStringList());
    QVERIFY(directory.makeDirectory("queue"));
    QVERIFY(directory.create("queue/a"));
    queue.onDirectoryChanged();
    QTRY_COMPARE(queuedNames(queue, {"a", "b"}), QStringList({"a", "b"}));
}

void QueueDirectoryTest::rescanLeavesAWatchThatIsRightAlone()
{
    const TraceLog traces;
    const MessageCapture output;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 0);
    queue.onProcess();
    for (int i = 0; i < 3; ++i)
        queue.onDirectoryChanged();
    QCOMPARE(watchedBy(queue), QStringList(directory.path()));
    QCOMPARE(output.texts(), QStringList());
}

void QueueDirectoryTest::linkToAnotherDirectoryIsFollowed()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.makeDirectory("one") && directory.makeDirectory("two"));
    QVERIFY(directory.makeLink("link", "one"));
    FilesQueue queue(directory.filePath("link"), {}, true, 0);
    queue.onProcess();
    QVERIFY(directory.makeLink("new", "two"));
    QVERIFY(directory.rename("new", "link"));
    queue.onDirectoryChanged();
    QVERIFY(directory.create("two/a"));
    QTRY_COMPARE(queue.size(), 1);
}

QTEST_GUILESS_MAIN(QueueDirectoryTest)
#include "tst_queuedirectory.moc"
