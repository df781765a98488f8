// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/queuefixture.h"
#include "support/childprocess.h"
#include "support/descriptorlimit.h"
#include "support/failuretext.h"
#include "support/tracelog.h"

#include <kez/FilesQueue.h>

#include <QFileSystemWatcher>
#include <QPointer>
#include <QRandomGenerator>
#include <QTest>
#include <QTimer>

#include <cstdio>
#include <memory>

namespace {

const QString ConstructorPrefix = QStringLiteral(
    "FilesQueue::FilesQueue(const QString&, QList<ConsumerEntry>, int, QObject*) -> ");
const QString NotInQueuePrefix = QStringLiteral("bool FilesQueue::allConsumed(const QString&) -> ");

QString invalidDirectory(const QString& path)
{
    return ConstructorPrefix + "Le répertoire " + path + " est invalide";
}

QString constructionFailure(const QString& path, const QList<ConsumerEntry>& consumers = {},
                            bool keep = true)
{
    return failureText([&] { const FilesQueue queue(path, consumers, keep, 0); });
}

QList<ConsumerEntry> entriesOf(const QStringList& ids)
{
    QList<ConsumerEntry> entries;
    for (const QString& id : ids)
        entries.append({id, nullptr});
    return entries;
}

/// One announcement of a queue, and what the queue had traced until then.
struct Update {
    QList<QString> appended;
    QList<QString> deleted;
    QStringList tracesBefore;
    int sizeThen;
};

/// An expectation in a child. The child prints a failed one on its standard error.
bool expect(bool condition, const char* text)
{
    if (!condition)
        std::fprintf(stderr, "not so: %s\n", text);
    return condition;
}
#define EXPECT(condition)                                                                          \
    if (!expect((condition), #condition))                                                          \
    return 1

constexpr int NotForThisUser = 77;

int childRefusedDirectories()
{
    const QueueDirectory directory;
    struct Guard {
        const QueueDirectory& directory;
        ~Guard() { directory.setOwnMode(0700); }
    } guard{directory};
    EXPECT(directory.create("a"));
    for (const mode_t mode : {0500U, 0300U, 0100U, 0000U}) {
        EXPECT(directory.setOwnMode(mode));
        EXPECT(constructionFailure(directory.path(), {}, false) ==
               invalidDirectory(directory.path()));
        EXPECT(directory.setOwnMode(0700));
        EXPECT(directory.exists("a"));
    }
    EXPECT(constructionFailure(directory.path()).isNull());
    return 0;
}

int childIgnoresWhatItMayNotUse()
{
    TraceLog traces;
    const QueueDirectory directory;
    EXPECT(directory.createAll({"both", "neither", "readonly", "writeonly"}));
    EXPECT(directory.setMode("neither", 0000));
    EXPECT(directory.setMode("readonly", 0400));
    EXPECT(directory.setMode("writeonly", 0200));

    FilesQueue queue(directory.path(), {}, true, 0);
    EXPECT(queuedNames(queue, {"both"}) == QStringList("both"));

    EXPECT(directory.createAll({"late", "late.readonly", "late.writeonly"}));
    EXPECT(directory.setMode("late.readonly", 0400));
    EXPECT(directory.setMode("late.writeonly", 0200));
    queue.onDirectoryChanged();
    EXPECT(queuedNames(queue, {"both", "late"}) == QStringList({"both", "late"}));
    EXPECT(traces.take() == QStringList({listingTrace(2), summaryTrace(1, 0, 0, 2)}));

    // A file that loses a permission counts as gone. If it gets it back, it counts as new.
    EXPECT(directory.setMode("both", 0400));
    queue.onDirectoryChanged();
    EXPECT(queuedNames(queue, {"both", "late"}) == QStringList("late"));
    EXPECT(directory.setMode("both", 0600));
    queue.onDirectoryChanged();
    EXPECT(queuedNames(queue, {"both", "late"}) == QStringList({"late", "both"}));
    return 0;
}

int childPurgesWhatItMayUse()
{
    const QueueDirectory directory;
    EXPECT(directory.createAll({"both", "neither", "readonly", "writeonly"}));
    EXPECT(directory.setMode("neither", 0000));
    EXPECT(directory.setMode("readonly", 0400));
    EXPECT(directory.setMode("writeonly", 0200));
    const FilesQueue queue(directory.path(), {}, false, 0);
    EXPECT(queue.size() == 0);
    EXPECT(directory.names() == QStringList({"neither", "readonly", "writeonly"}));
    return 0;
}

/// In another user's sticky directory, a file may be writable and still not be deleted.
int childPurgeFailure()
{
    if (geteuid() != 0)
        return NotForThisUser;
    const QueueDirectory directory;
    EXPECT(directory.createAll({"a", "b"}));
    EXPECT(directory.setMode("a", 0666));
    EXPECT(directory.setMode("b", 0666));
    EXPECT(directory.setOwnMode(01777));
    EXPECT(seteuid(65534) == 0);
    QStringList ownAfterPurge;
    {
        EXPECT(directory.create("own"));
        const FilesQueue queue(directory.path(), {}, false, 0);
        EXPECT(queue.size() == 0);
        ownAfterPurge = directory.names();
    }
    EXPECT(seteuid(0) == 0);
    EXPECT(ownAfterPurge == QStringList({"a", "b"}));
    return 0;
}

int childDeletionFailure()
{
    TraceLog traces;
    const QueueDirectory directory;
    EXPECT(directory.createAll({"a", "b"}));
    ConsumerAncestor consumer("c");
    FilesQueue queue(directory.path(), {{"c", &consumer}}, true, 0);
    queue.onConsumed("c", "a");
    traces.take();

    // The file stays and its entry goes: the next re-scan takes the file for a new one.
    EXPECT(directory.setOwnMode(0500));
    queue.onDirectoryChanged();
    const bool stayed = directory.exists("a");
    const QStringList first = traces.take();
    const QStringList namesThen = queuedNames(queue, {"a", "b"});
    queue.onDirectoryChanged();
    const QStringList second = traces.take();
    EXPECT(directory.setOwnMode(0700));

    EXPECT(stayed);
    EXPECT(first == QStringList({listingTrace(2), summaryTrace(0, 0, 1, 1)}));
    EXPECT(namesThen == QStringList("b"));
    EXPECT(second == QStringList({listingTrace(2), summaryTrace(1, 0, 0, 2)}));
    EXPECT(queuedNames(queue, {"a", "b"}) == QStringList({"b", "a"}));
    EXPECT(!queue.isConsumedFromAll("a"));
    return 0;
}

/// A consumed file is deleted even if the listing no longer shows it.
int childConsumedFileWithoutPermission()
{
    TraceLog traces;
    const QueueDirectory directory;
    EXPECT(directory.create("a"));
    ConsumerAncestor consumer("c");
    FilesQueue queue(directory.path(), {{"c", &consumer}}, true, 0);
    queue.onConsumed("c", "a");
    EXPECT(directory.setMode("a", 0000));
    traces.take();
    queue.onDirectoryChanged();
    EXPECT(traces.take() == QStringList({listingTrace(0), summaryTrace(0, 1, 1, 0)}));
    EXPECT(directory.names().isEmpty());
    return 0;
}

int childMain(const QStringList& arguments)
{
    const QString name = arguments.value(0);
    if (name == QLatin1String("purgeFailure"))
        return childPurgeFailure();
    EXPECT(becomeOrdinaryUser());
    if (name == QLatin1String("refusedDirectories"))
        return childRefusedDirectories();
    if (name == QLatin1String("ignored"))
        return childIgnoresWhatItMayNotUse();
    if (name == QLatin1String("purged"))
        return childPurgesWhatItMayUse();
    if (name == QLatin1String("deletionFailure"))
        return childDeletionFailure();
    if (name == QLatin1String("withoutPermission"))
        return childConsumedFileWithoutPermission();
    return 2;
}

/// What a queue has to do, in its simplest form.
class QueueModel {
public:
    /// The files on disk: a number for each name. A replaced file has another number.
    using Files = QMap<QString, int>;

    struct Entry {
        QString name;
        QList<bool> flags;
        int file = 0;
    };
    struct Rescan {
        QStringList appended;
        QStringList deleted;
        int consumed = 0;
    };

    explicit QueueModel(int consumers) : _consumers(consumers) {}

    const QList<Entry>& entries() const { return _entries; }

    void appendConsumer()
    {
        ++_consumers;
        for (Entry& entry : _entries)
            entry.flags.append(false);
    }
    void consume(int consumer, int position) { _entries[position].flags[consumer] = true; }

    /// Removes the consumed files from `files`.
    Rescan rescan(Files& files)
    {
        Rescan result;
        QList<Entry> staying;
        for (Entry& entry : _entries) {
            const bool vanished = !files.contains(entry.name);
            const bool consumed = _consumers > 0 && !entry.flags.contains(false);
            if (vanished)
                result.deleted.append(entry.name);
            if (consumed) {
                ++result.consumed;
                if (files.value(entry.name) == entry.file)
                    files.remove(entry.name);
            }
            if (!vanished && !consumed) {
                entry.file = files.value(entry.name);
                staying.append(entry);
            }
        }
        for (auto file = files.cbegin(); file != files.cend(); ++file) {
            const auto isFile = [&](const Entry& entry) { return entry.name == file.key(); };
            if (std::none_of(staying.cbegin(), staying.cend(), isFile)) {
                staying.append({file.key(), QList<bool>(_consumers, false), file.value()});
                result.appended.append(file.key());
            }
        }
        _entries = staying;
        return result;
    }

private:
    int _consumers;
    QList<Entry> _entries;
};

} // namespace

class FilesQueueTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void refusesInvalidDirectory_data();
    void refusesInvalidDirectory();
    void refusesDirectoryWithoutPermissions();
    void failureHasNoParent();
    void acceptsLinkToDirectory();
    void acceptsRelativePath();
    void pathAnswersFromTheDirectoryAsItIs();
    void refusesDuplicateIdentifier_data();
    void refusesDuplicateIdentifier();
    void acceptsDistinctIdentifiers_data();
    void acceptsDistinctIdentifiers();
    void duplicateIsRefusedBeforeThePurge();
    void directoryIsCheckedBeforeIdentifiers();
    void keptFilesBecomeEntriesInNameOrder();
    void filesAreThoseThatQtLists();
    void nameThatBeginsWithAByteOrderMarkIsKept();
    void rescanWithoutDescriptorsChangesNothing();
    void directoryThatCannotBeListedIsRefused();
    void purgeDeletesFilesOnly();
    void purgeLeavesTargetsOfLinks();
    void purgeLeavesWhatMayNotBeUsed();
    void purgeIgnoresFailures();
    void constructionNeitherTracesNorWatches();
    void pathIsACopyWithFilterAndSorting();
    void parentOwnsTheQueue();

    void queriesOfAnEmptyQueue();
    void indexIsTheFirstExactMatch();
    void fileQueriesAreExact();
    void isConsumedFromAllOfUnknownFileThrows_data();
    void isConsumedFromAllOfUnknownFileThrows();

    void newFilesAreAppendedInNameOrder();
    void sortingIsByCodeUnit();
    void laterFilesGoToTheTail();
    void everyKindOfDirectoryEntry();
    void rejectedFilesAreTracedOnEveryRescan();
    void rejectionComesAmongTheAdditions();
    void filesWithoutPermissionNeverEnter();
    void hiddenFileEntersWhenRenamed();
    void entryThatIsAssignedStaysInTheQueue();
    void strangeNames_data();
    void strangeNames();
    void namesThatAreNotUtf8LeaveTheOthersAlone();
    void strangeDirectory_data();
    void strangeDirectory();
    void vanishedFilesLeaveInQueueOrder();
    void returningFileIsNewAtTheTail();
    void fileReplacedBetweenRescansStaysTheSame();
    void renamedFileIsDeletedAndNew();
    void rescanWithoutChangeOnlyTraces();
    void rescanSeesEveryChangeAtOnce();
    void removedDirectoryEmptiesTheQueue();

    void consumedFileGoesAtTheNextRescan();
    void consumedFilesAreNotAnnounced();
    void queueWithoutConsumersDeletesNothing();
    void vanishedAndConsumedCountTwice();
    void consumedFileReplacedByDirectoryIsDropped();
    void consumedFileReplacedByDanglingLinkIsDropped();
    void consumedLinkIsDeletedNotItsTarget();
    void deletionFailureDropsTheEntry();
    void consumedFileWithoutPermissionIsDeleted();
    void mixedRescan();

    void announcementComesBeforeTheSummary();
    void everyTraceIsAtDebugLevel();
    void rescanIsAPublicSlot();
    void slotThatThrowsLeavesTheQueueUsable();

    void destructorLeavesFilesAlone();
    void destructorWithoutProcess();
    void destructorTakesWatcherAndTimer();

    void followsTheModel_data();
    void followsTheModel();
};

void FilesQueueTest::refusesInvalidDirectory_data()
{
    QTest::addColumn<QString>("relative");
    QTest::newRow("absent") << QStringLiteral("/absent");
    QTest::newRow("regular file") << QStringLiteral("/file");
    QTest::newRow("below a regular file") << QStringLiteral("/file/below");
    QTest::newRow("fifo") << QStringLiteral("/fifo");
    QTest::newRow("broken link") << QStringLiteral("/broken");
    QTest::newRow("link to a file") << QStringLiteral("/link");
    QTest::newRow("place holders") << QStringLiteral("/%1%2");
    QTest::newRow("not normalised") << QStringLiteral("/./absent//");
    QTest::newRow("spaces and accents") << QStringLiteral("/l'été dernier");
}

void FilesQueueTest::refusesInvalidDirectory()
{
    QFETCH(QString, relative);
    const QueueDirectory directory;
    QVERIFY(directory.create("file"));
    QVERIFY(directory.makeFifo("fifo"));
    QVERIFY(directory.makeLink("broken", "nowhere"));
    QVERIFY(directory.makeLink("link", "file"));

    const QString path = directory.path() + relative;
    QCOMPARE(constructionFailure(path), invalidDirectory(path));
    QCOMPARE(constructionFailure(path, {}, false), invalidDirectory(path));
    QVERIFY(directory.exists("file"));
    QCOMPARE(constructionFailure(QString()),
             QStringLiteral("FilesQueue::FilesQueue(const QString&, QList<ConsumerEntry>, int, "
                            "QObject*) -> Le répertoire  est invalide"));
}

void FilesQueueTest::refusesDirectoryWithoutPermissions()
{
    const ChildResult child = runChild({"refusedDirectories"});
    QVERIFY2(child.exitCode == 0, child.err.constData());
}

void FilesQueueTest::failureHasNoParent()
{
    const QueueDirectory directory;
    for (const QString& path : {directory.path() + "/absent", directory.path()}) {
        try {
            const FilesQueue queue(path, entriesOf({"a", "a"}), true, 0);
            QFAIL("no exception");
        } catch (const Exception& failure) {
            QVERIFY(!failure.parent());
        }
    }
}

void FilesQueueTest::acceptsLinkToDirectory()
{
    const QueueDirectory directory;
    QVERIFY(directory.makeDirectory("real"));
    QVERIFY(directory.makeLink("link", "real"));
    QVERIFY(directory.create("real/a"));
    const FilesQueue queue(directory.filePath("link"), {}, true, 0);
    QCOMPARE(queue.fileIndex("a"), 0);
}

void FilesQueueTest::pathAnswersFromTheDirectoryAsItIs()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    const FilesQueue queue(directory.path(), {}, true, 0);
    QVERIFY(QFile::remove(directory.filePath("a")));
    QVERIFY(directory.create("b"));
    QCOMPARE(queue.path().entryList(), QStringList{"b"});
}

void FilesQueueTest::acceptsRelativePath()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(directory.path()));
    ConsumerAncestor consumer("c");
    {
        FilesQueue queue(".", {{"c", &consumer}}, true, 0);
        QCOMPARE(queue.size(), 2);
        queue.onConsumed("c", "a");
        queue.onDirectoryChanged();
    }
    QVERIFY(QDir::setCurrent(before));
    QCOMPARE(directory.names(), QStringList("b"));
}

void FilesQueueTest::refusesDuplicateIdentifier_data()
{
    QTest::addColumn<QStringList>("ids");
    QTest::addColumn<QString>("named");
    QTest::newRow("two alike") << QStringList{"a", "a"} << "a";
    QTest::newRow("first and last") << QStringList{"a", "b", "c", "a"} << "a";
    QTest::newRow("last two") << QStringList{"a", "b", "c", "c"} << "c";
    QTest::newRow("pair of the earlier consumer first") << QStringList{"a", "b", "b", "a"} << "a";
    QTest::newRow("one pair after the other") << QStringList{"x", "b", "b", "a", "a"} << "b";
    QTest::newRow("three alike") << QStringList{"x", "y", "y", "y"} << "y";
    QTest::newRow("empty ones") << QStringList{"", "a", ""} << "";
    QTest::newRow("place holders") << QStringList{"%1", "%1"} << "%1";
    QTest::newRow("accents") << QStringList{"été", "été"} << "été";
}

void FilesQueueTest::refusesDuplicateIdentifier()
{
    QFETCH(QStringList, ids);
    QFETCH(QString, named);
    const QueueDirectory directory;
    QCOMPARE(constructionFailure(directory.path(), entriesOf(ids)),
             ConstructorPrefix + "La liste des consommateurs comporte un doublon : ID = " + named);
}

void FilesQueueTest::acceptsDistinctIdentifiers_data()
{
    QTest::addColumn<QStringList>("ids");
    QTest::newRow("none") << QStringList();
    QTest::newRow("one empty") << QStringList("");
    QTest::newRow("case") << QStringList{"a", "A"};
    QTest::newRow("blanks") << QStringList{"a", "a ", " a"};
    QTest::newRow("accents composed and not") << QStringList{"\u00e9", "e\u0301"};
}

void FilesQueueTest::acceptsDistinctIdentifiers()
{
    QFETCH(QStringList, ids);
    const QueueDirectory directory;
    const FilesQueue queue(directory.path(), entriesOf(ids), true, 0);
    for (int i = 0; i < ids.size(); ++i)
        QCOMPARE(queue.index(ids.at(i)), i);
}

void FilesQueueTest::duplicateIsRefusedBeforeThePurge()
{
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    QVERIFY(!constructionFailure(directory.path(), entriesOf({"c", "c"}), false).isNull());
    QCOMPARE(directory.names(), QStringList({"a", "b"}));
}

void FilesQueueTest::directoryIsCheckedBeforeIdentifiers()
{
    const QueueDirectory directory;
    const QString path = directory.filePath("absent");
    QCOMPARE(constructionFailure(path, entriesOf({"c", "c"})), invalidDirectory(path));
}

void FilesQueueTest::filesAreThoseThatQtLists()
{
    const QueueDirectory directory;
    QVERIFY(
        directory.createAll({"b",         "a",      "B",         "10",         "9",
                             "a b",       "é",      "e\u0301",   "\ufb00",     "\U0001f600",
                             "%1",        "-",      "~",         ".hidden",    "..hidden",
                             "new\nline", "closed", "read-only", "write-only", QString(255, 'n')}));
    QVERIFY(directory.setMode("closed", 0) && directory.setMode("read-only", 0400) &&
            directory.setMode("write-only", 0200));
    QVERIFY(directory.makeDirectory("directory") && directory.makeFifo("fifo"));
    const QList<std::pair<QString, QString>> links{
        {"to a file", "a"},           {"to nothing", "nowhere"}, {"to a fifo", "fifo"},
        {"to a device", "/dev/null"}, {"to a directory", "."},   {"to itself", "to itself"},
        {"to a link", "to a file"},   {"to closed", "closed"}};
    for (const auto& [name, target] : links)
        QVERIFY(directory.makeLink(name, target));
    QByteArrayList notUtf8; // Qt cannot remove these
    for (const char* const name : {"invalid \xff", "cut off \xc3", "surrogate \xed\xa0\x80"}) {
        notUtf8.append(QFile::encodeName(directory.path()) + '/' + name);
        std::FILE* const stream = std::fopen(notUtf8.last().constData(), "w");
        QVERIFY(stream && std::fclose(stream) == 0);
    }

    QStringList wanted;
    const QFileInfoList listed =
        QDir(directory.path())
            .entryInfoList(QDir::Files | QDir::Readable | QDir::Writable | QDir::NoDotAndDotDot,
                           QDir::Name);
    for (const QFileInfo& file : listed) {
        if (file.isFile())
            wanted.append(file.fileName());
    }
    const TraceLog log;
    FilesQueue queue(directory.path(), {}, true, 0);
    QCOMPARE(queuedNames(queue, wanted), wanted);
    queue.onDirectoryChanged();
    QCOMPARE(log.texts(),
             QStringList({listingTrace(int(listed.size())), rejectionTrace("to a device"),
                          rejectionTrace("to a fifo"), summaryTrace(0, 0, 0, queue.size())}));
    for (const QByteArray& path : notUtf8)
        QCOMPARE(::unlink(path.constData()), 0);
}

void FilesQueueTest::nameThatBeginsWithAByteOrderMarkIsKept()
{
    const QueueDirectory directory;
    const QString name = QStringLiteral("\ufeffa");
    QVERIFY(directory.createAll({name, "a"}));
    const TraceLog log;
    FilesQueue queue(directory.path(), entriesOf({"x"}), true, 0);
    QCOMPARE(queuedNames(queue, {"a", name}), QStringList({"a", name}));
    queue.onConsumed("x", name);
    queue.onDirectoryChanged();
    QCOMPARE(directory.names().size(), 1);
    QVERIFY(directory.exists("a"));
}

void FilesQueueTest::directoryThatCannotBeListedIsRefused()
{
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    constructionFailure("/nowhere"); // once before: see DescriptorLimit
    QString failure;
    {
        const DescriptorLimit none(0);
        failure = constructionFailure(directory.path(), {}, false);
    }
    QCOMPARE(failure, invalidDirectory(directory.path()));
    QVERIFY(directory.exists("a"));
}

void FilesQueueTest::rescanWithoutDescriptorsChangesNothing()
{
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    TraceLog log;
    FilesQueue queue(directory.path(), entriesOf({"x"}), true, 0);
    QSignalSpy updates(&queue, &FilesQueue::queueUpdated);
    queue.onDirectoryChanged();
    QCOMPARE(updates.size(), 0);
    queue.onConsumed("x", "a");
    QVERIFY(directory.remove("b"));
    QVERIFY(directory.create("c"));
    log.take();
    {
        const DescriptorLimit none(0);
        queue.onDirectoryChanged();
    }
    QCOMPARE(updates.size(), 0);
    QCOMPARE(queuedNames(queue, {"a", "b", "c"}), QStringList({"a", "b"}));
    QVERIFY(queue.isConsumedFromAll("a"));
    QCOMPARE(log.texts(), QStringList());

    queue.onDirectoryChanged();
    QCOMPARE(queuedNames(queue, {"a", "b", "c"}), QStringList{"c"});
    QCOMPARE(directory.names(), QStringList{"c"});
}

void FilesQueueTest::keptFilesBecomeEntriesInNameOrder()
{
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"c.dat", "a.dat", "b.dat", ".hidden"}));
    QVERIFY(directory.makeDirectory("directory"));
    QVERIFY(directory.makeFifo("fifo"));
    QVERIFY(directory.makeLink("fifo.link", "fifo"));
    QVERIFY(directory.makeLink("broken", "nowhere"));
    QVERIFY(directory.makeLink("link", "a.dat"));

    const FilesQueue queue(directory.path(), entriesOf({"x", "y"}), true, 0);
    QCOMPARE(queuedNames(queue, {"a.dat", "b.dat", "c.dat", "link"}),
             QStringList({"a.dat", "b.dat", "c.dat", "link"}));
    for (const char* const name : {"a.dat", "b.dat", "c.dat", "link"}) {
        const FileEntry* const entry = queue.entryFromFileName(name);
        QVERIFY(!entry->isConsumed(0));
        QVERIFY(!entry->isConsumed(1));
        QVERIFY(!failureText([&] { entry->isConsumed(2); }).isNull());
    }
    QCOMPARE(directory.names().size(), 9);
}

void FilesQueueTest::purgeDeletesFilesOnly()
{
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b c", "é", ".hidden", "%1"}));
    QVERIFY(directory.makeDirectory("directory"));
    QVERIFY(directory.create("directory/inside"));
    QVERIFY(directory.makeFifo("fifo"));
    QVERIFY(directory.makeLink("broken", "nowhere"));

    const FilesQueue queue(directory.path(), {}, false, 0);
    QCOMPARE(queue.size(), 0);
    QCOMPARE(directory.names(), QStringList({".hidden", "broken", "directory", "fifo"}));
    QVERIFY(directory.exists("directory/inside"));
}

void FilesQueueTest::purgeLeavesTargetsOfLinks()
{
    const QueueDirectory elsewhere;
    QVERIFY(elsewhere.create("target", "precious"));
    const QueueDirectory directory;
    QVERIFY(directory.makeLink("link", elsewhere.filePath("target")));
    QVERIFY(directory.makeLink("directory.link", elsewhere.path()));

    const FilesQueue queue(directory.path(), {}, false, 0);
    QCOMPARE(directory.names(), QStringList("directory.link"));
    QVERIFY(elsewhere.exists("target"));
}

void FilesQueueTest::purgeLeavesWhatMayNotBeUsed()
{
    const ChildResult child = runChild({"purged"});
    QVERIFY2(child.exitCode == 0, child.err.constData());
}

void FilesQueueTest::purgeIgnoresFailures()
{
    const ChildResult child = runChild({"purgeFailure"});
    if (child.exitCode == NotForThisUser)
        QSKIP("needs files of two users");
    QVERIFY2(child.exitCode == 0, child.err.constData());
}

void FilesQueueTest::constructionNeitherTracesNorWatches()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    QVERIFY(directory.makeFifo("fifo"));
    QVERIFY(directory.makeLink("fifo.link", "fifo"));
    const FilesQueue queue(directory.path(), {}, true, 10);
    const FilesQueue purged(directory.path(), {}, false, 10);
    QCOMPARE(queue.scrutationIntervall(), 10);
    QVERIFY(queue.children().isEmpty());
    QVERIFY(purged.children().isEmpty());
    QTest::qWait(50);
    QCOMPARE(traces.texts(), QStringList());
}

void FilesQueueTest::pathIsACopyWithFilterAndSorting()
{
    const QueueDirectory directory;
    const FilesQueue queue(directory.path(), {}, true, 0);
    QDir path = queue.path();
    QCOMPARE(path.absolutePath(), directory.path());
    QCOMPARE(path.filter(),
             QDir::Filters(QDir::Files | QDir::Readable | QDir::Writable | QDir::NoDotAndDotDot));
    QCOMPARE(path.sorting(), QDir::SortFlags(QDir::Name));

    path.setFilter(QDir::Dirs);
    path.cdUp();
    QCOMPARE(queue.path().absolutePath(), directory.path());
    QVERIFY(queue.path().filter() & QDir::Files);
}

void FilesQueueTest::parentOwnsTheQueue()
{
    const QueueDirectory directory;
    QObject parent;
    QPointer<FilesQueue> owned;
    {
        QObject owner;
        owned = new FilesQueue(directory.path(), {}, true, 0, &owner);
        QCOMPARE(owned->parent(), &owner);
    }
    QVERIFY(!owned);
    const FilesQueue unowned(directory.path(), {}, true, 0);
    QVERIFY(!unowned.parent());
}

void FilesQueueTest::queriesOfAnEmptyQueue()
{
    const QueueDirectory directory;
    const FilesQueue queue(directory.path(), {}, true, 0);
    QCOMPARE(queue.size(), 0);
    QCOMPARE(queue.index(""), -1);
    QCOMPARE(queue.fileIndex(""), -1);
    QCOMPARE(queue.entryFromFileName(""), nullptr);
    QVERIFY(!queue.existsFileEntry(""));
}

void FilesQueueTest::indexIsTheFirstExactMatch()
{
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), entriesOf({"a", "B", ""}), true, 0);
    QCOMPARE(queue.index("a"), 0);
    QCOMPARE(queue.index("B"), 1);
    QCOMPARE(queue.index(""), 2);
    QCOMPARE(queue.index("A"), -1);
    QCOMPARE(queue.index("b"), -1);
    QCOMPARE(queue.index("a "), -1);

    ConsumerAncestor first("late");
    ConsumerAncestor second("late");
    ConsumerAncestor again("B");
    queue.appendConsumer(&first);
    queue.appendConsumer(&second);
    queue.appendConsumer(&again);
    QCOMPARE(queue.index("late"), 3);
    QCOMPARE(queue.index("B"), 1);
}

void FilesQueueTest::fileQueriesAreExact()
{
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"A", "a", "b"}));
    const FilesQueue queue(directory.path(), entriesOf({"c"}), true, 0);
    QCOMPARE(queue.size(), 3);
    QCOMPARE(queue.fileIndex("A"), 0);
    QCOMPARE(queue.fileIndex("a"), 1);
    QCOMPARE(queue.fileIndex("b"), 2);
    QCOMPARE(queue.entryFromFileName("a")->fileName(), QStringLiteral("a"));
    QVERIFY(queue.existsFileEntry("b"));
    QVERIFY(!queue.isConsumedFromAll("b"));
    for (const QString& unknown : {QString(), QStringLiteral("B"), QStringLiteral("b "),
                                   directory.filePath("b"), QStringLiteral("./b")}) {
        QCOMPARE(queue.fileIndex(unknown), -1);
        QCOMPARE(queue.entryFromFileName(unknown), nullptr);
        QVERIFY(!queue.existsFileEntry(unknown));
    }
}

void FilesQueueTest::isConsumedFromAllOfUnknownFileThrows_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("detail");
    QTest::newRow("plain") << "absent"
                           << "bool FilesQueue::allConsumed(const QString&) -> "
                              "Le fichier [absent] n'existe pas dans la file d'attente";
    QTest::newRow("empty") << ""
                           << "bool FilesQueue::allConsumed(const QString&) -> "
                              "Le fichier [] n'existe pas dans la file d'attente";
    QTest::newRow("place holder") << "%1 %2"
                                  << "bool FilesQueue::allConsumed(const QString&) -> "
                                     "Le fichier [%1 %2] n'existe pas dans la file d'attente";
    QTest::newRow("other case") << "A"
                                << "bool FilesQueue::allConsumed(const QString&) -> "
                                   "Le fichier [A] n'existe pas dans la file d'attente";
}

void FilesQueueTest::isConsumedFromAllOfUnknownFileThrows()
{
    QFETCH(QString, name);
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    const FilesQueue queue(directory.path(), {}, true, 0);
    try {
        queue.isConsumedFromAll(name);
        QFAIL("no exception");
    } catch (const Exception& failure) {
        QTEST(failure.detail(), "detail");
        QVERIFY(!failure.parent());
    }
}

void FilesQueueTest::newFilesAreAppendedInNameOrder()
{
    const TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 0);
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);

    QVERIFY(directory.createAll({"b.dat", "a.dat"}));
    queue.onDirectoryChanged();

    QCOMPARE(queuedNames(queue, {"a.dat", "b.dat"}), QStringList({"a.dat", "b.dat"}));
    QCOMPARE(updated.size(), 1);
    QCOMPARE(updated.at(0).at(0).value<QList<QString>>(), QList<QString>({"a.dat", "b.dat"}));
    QCOMPARE(updated.at(0).at(1).value<QList<QString>>(), QList<QString>());
    QCOMPARE(traces.texts(),
             QStringList({"> directoryChanged : Répertoire de la file d'attente modifié "
                          "(2 fichiers)",
                          "> directoryChanged : Ajoutés = 2, Supprimés = 0, consommés = 0, "
                          "taille de la file = 2"}));
}

void FilesQueueTest::sortingIsByCodeUnit()
{
    const TraceLog traces;
    const QueueDirectory directory;
    const QStringList sorted{" ", "-", "1", "10", "2", "A", "Z", "a", "a b", "ab", "z", "é", "Ω"};
    QStringList created = sorted;
    std::reverse(created.begin(), created.end());
    QVERIFY(directory.createAll(created));
    FilesQueue kept(directory.path(), {}, true, 0);
    QCOMPARE(queuedNames(kept, sorted), sorted);

    const QueueDirectory other;
    FilesQueue queue(other.path(), {}, true, 0);
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    QVERIFY(other.createAll(created));
    queue.onDirectoryChanged();
    QCOMPARE(queuedNames(queue, sorted), sorted);
    QCOMPARE(updated.at(0).at(0).value<QList<QString>>(), sorted);
}

void FilesQueueTest::laterFilesGoToTheTail()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"m", "n"}));
    FilesQueue queue(directory.path(), {}, true, 0);
    QVERIFY(directory.createAll({"z", "a"}));
    queue.onDirectoryChanged();
    QVERIFY(directory.create("b"));
    queue.onDirectoryChanged();
    QCOMPARE(queuedNames(queue, {"a", "b", "m", "n", "z"}), QStringList({"m", "n", "a", "z", "b"}));
}

void FilesQueueTest::everyKindOfDirectoryEntry()
{
    const TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 0);
    QVERIFY(directory.createAll({"file", ".hidden", "empty"}));
    QVERIFY(QFile::resize(directory.filePath("empty"), 0));
    QVERIFY(directory.makeDirectory("directory"));
    QVERIFY(directory.create("directory/inside"));
    QVERIFY(directory.makeFifo("fifo"));
    QVERIFY(directory.makeLink("link.file", "file"));
    QVERIFY(directory.makeLink("link.hidden", ".hidden"));
    QVERIFY(directory.makeLink("link.directory", "directory"));
    QVERIFY(directory.makeLink("link.fifo", "fifo"));
    QVERIFY(directory.makeLink("link.broken", "nowhere"));
    QVERIFY(directory.makeLink("link.loop", "link.loop"));
    queue.onDirectoryChanged();

    // A fifo is never listed. A link to a fifo is listed and then refused.
    QCOMPARE(queuedNames(queue, {"empty", "file", "link.file", "link.hidden"}),
             QStringList({"empty", "file", "link.file", "link.hidden"}));
    QCOMPARE(traces.texts(),
             QStringList({listingTrace(5), "onDirectoryChanged> Rejet du fichier link.fifo...",
                          summaryTrace(4, 0, 0, 4)}));
}

void FilesQueueTest::rejectedFilesAreTracedOnEveryRescan()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.makeFifo(".fifo"));
    QVERIFY(directory.makeLink("a %1 %2", ".fifo"));
    QVERIFY(directory.makeLink("b", "/dev/null"));
    FilesQueue queue(directory.path(), {}, true, 0);
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    for (int i = 0; i < 3; ++i) {
        queue.onDirectoryChanged();
        QCOMPARE(traces.take(), QStringList({listingTrace(2), rejectionTrace("a %1 %2"),
                                             rejectionTrace("b"), summaryTrace(0, 0, 0, 0)}));
    }
    QCOMPARE(updated.size(), 0);
}

void FilesQueueTest::rejectionComesAmongTheAdditions()
{
    const TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 0);
    QVERIFY(directory.createAll({"a", "c"}));
    QVERIFY(directory.makeLink("b", "/dev/null"));
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    queue.onDirectoryChanged();
    QCOMPARE(updated.size(), 1);
    QCOMPARE(updated.at(0).at(0).value<QList<QString>>(), QList<QString>({"a", "c"}));
    QCOMPARE(traces.texts(),
             QStringList({listingTrace(3), rejectionTrace("b"), summaryTrace(2, 0, 0, 2)}));
}

void FilesQueueTest::filesWithoutPermissionNeverEnter()
{
    const ChildResult child = runChild({"ignored"});
    QVERIFY2(child.exitCode == 0, child.err.constData());
}

void FilesQueueTest::hiddenFileEntersWhenRenamed()
{
    const TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 0);
    QVERIFY(directory.create(".a"));
    queue.onDirectoryChanged();
    QCOMPARE(queue.size(), 0);
    QVERIFY(QFile::rename(directory.filePath(".a"), directory.filePath("a")));
    queue.onDirectoryChanged();
    QCOMPARE(queue.fileIndex("a"), 0);
}

void FilesQueueTest::strangeNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("spaces") << QStringLiteral("  two words ");
    QTest::newRow("accents") << QStringLiteral("éàü œuvre");
    QTest::newRow("decomposed accent") << QStringLiteral("e\u0301");
    QTest::newRow("newline") << QStringLiteral("a\nb\r\n");
    QTest::newRow("first place holder") << QStringLiteral("%1");
    QTest::newRow("second place holder") << QStringLiteral("%2");
    QTest::newRow("many place holders") << QStringLiteral("%1%2%3%L1%99%");
    QTest::newRow("quotes and shell") << QStringLiteral("\"'`$(x);&|*?[]{}\\");
    QTest::newRow("outside the basic plane") << QStringLiteral("\U0001F4C1.txt");
    QTest::newRow("control characters") << QStringLiteral("\t\x01\x7f");
    QTest::newRow("longest") << QString(255, QLatin1Char('x'));
    QTest::newRow("only a dot inside") << QStringLiteral("a.");
    QTest::newRow("backup") << QStringLiteral("a~");
}

void FilesQueueTest::entryThatIsAssignedStaysInTheQueue()
{
    const TraceLog traces;
    const QueueDirectory directory;
    const QString name = QStringLiteral("a-name-that-has-memory-of-its-own");
    QVERIFY(directory.create(name));
    FilesQueue queue(directory.path(), {{"c", nullptr}}, true, 0);
    queue.onConsumed("c", name);
    *queue.entryFromFileName(name) = FileEntry(QString(name.constData(), name.size()), 1);
    QVERIFY(queue.existsFileEntry(name));
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    queue.onDirectoryChanged();
    QCOMPARE(updated.size(), 0);
    QVERIFY(!queue.isConsumedFromAll(name));
}

void FilesQueueTest::strangeNames()
{
    QFETCH(QString, name);
    TraceLog traces;
    const QueueDirectory directory;
    ConsumerAncestor consumer("c");
    FilesQueue queue(directory.path(), {{"c", &consumer}}, true, 0);
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    const QSignalSpy answered(&queue, &FilesQueue::filesNotConsumed);
    QVERIFY(directory.create(name));
    queue.onDirectoryChanged();
    QCOMPARE(updated.at(0).at(0).value<QList<QString>>(), QList<QString>(1, name));
    QCOMPARE(queue.entryFromFileName(name)->fileName(), name);

    queue.onRequestForFiles("c");
    QCOMPARE(answered.at(0).at(0).value<QList<QString>>(), QList<QString>(1, name));
    traces.take();
    queue.onConsumed("c", name);
    QCOMPARE(traces.take(),
             QStringList("> consummed : Fichier " + name + " utilisé par le consommateur c"));
    queue.onDirectoryChanged();
    QCOMPARE(queue.size(), 0);
    QCOMPARE(directory.names(), QStringList());
}

void FilesQueueTest::namesThatAreNotUtf8LeaveTheOthersAlone()
{
    const TraceLog traces;
    const QueueDirectory directory;
    const QByteArray hostile = QFile::encodeName(directory.path()) + "/\xff\xfe.dat";
    FILE* const stream = std::fopen(hostile.constData(), "w");
    QVERIFY(stream);
    std::fclose(stream);
    QVERIFY(directory.createAll({"a", "b"}));

    ConsumerAncestor consumer("c");
    FilesQueue queue(directory.path(), {{"c", &consumer}}, true, 0);
    queue.onConsumed("c", "a");
    queue.onDirectoryChanged();
    QVERIFY(!directory.exists("a"));
    QVERIFY(directory.exists("b"));
    QVERIFY(queue.existsFileEntry("b"));
    QVERIFY(!queue.existsFileEntry("a"));
    QCOMPARE(::unlink(hostile.constData()), 0);
    queue.onDirectoryChanged();
    QCOMPARE(queuedNames(queue, {"b"}), QStringList("b"));
}

void FilesQueueTest::strangeDirectory_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::newRow("spaces and accents") << QStringLiteral(" l'été ");
    QTest::newRow("separator's place holder") << QStringLiteral("%2");
    QTest::newRow("name's place holder") << QStringLiteral("%3");
    QTest::newRow("every place holder") << QStringLiteral("%1%2%3");
    QTest::newRow("newline") << QStringLiteral("\n");
}

void FilesQueueTest::strangeDirectory()
{
    QFETCH(QString, suffix);
    const TraceLog traces;
    const QueueDirectory directory(suffix);
    QVERIFY(directory.createAll({"a", "b%1", "%3"}));
    ConsumerAncestor consumer("c");
    FilesQueue queue(directory.path(), {{"c", &consumer}}, true, 0);
    QCOMPARE(queue.path().absolutePath(), directory.path());
    queue.onConsumed("c", "a");
    queue.onConsumed("c", "%3");
    queue.onDirectoryChanged();
    QCOMPARE(directory.names(), QStringList("b%1"));
    queue.onConsumed("c", "b%1");
    queue.onDirectoryChanged();
    QCOMPARE(directory.names(), QStringList());
    const FilesQueue purged(directory.path(), {}, false, 0);
    QCOMPARE(queue.size(), 0);
}

void FilesQueueTest::vanishedFilesLeaveInQueueOrder()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"m", "n"}));
    FilesQueue queue(directory.path(), entriesOf({"c"}), true, 0);
    QVERIFY(directory.createAll({"a", "b"}));
    queue.onDirectoryChanged();
    traces.take();

    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    QVERIFY(directory.remove("b"));
    QVERIFY(directory.remove("a"));
    QVERIFY(directory.remove("n"));
    queue.onDirectoryChanged();
    QCOMPARE(updated.size(), 1);
    QCOMPARE(updated.at(0).at(0).value<QList<QString>>(), QList<QString>());
    QCOMPARE(updated.at(0).at(1).value<QList<QString>>(), QList<QString>({"n", "a", "b"}));
    QCOMPARE(queuedNames(queue, {"m"}), QStringList("m"));
    QCOMPARE(traces.take(), QStringList({listingTrace(1), summaryTrace(0, 3, 0, 1)}));
}

void FilesQueueTest::returningFileIsNewAtTheTail()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), entriesOf({"c", "d"}), true, 0);
    queue.onConsumed("c", "a");
    QVERIFY(directory.remove("a"));
    queue.onDirectoryChanged();
    QVERIFY(!queue.existsFileEntry("a"));

    QVERIFY(directory.create("a"));
    queue.onDirectoryChanged();
    QCOMPARE(queuedNames(queue, {"a", "b"}), QStringList({"b", "a"}));
    QVERIFY(!queue.entryFromFileName("a")->isConsumed(0));
    QVERIFY(!queue.entryFromFileName("a")->isConsumed(1));
}

void FilesQueueTest::fileReplacedBetweenRescansStaysTheSame()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), entriesOf({"c", "d"}), true, 0);
    queue.onConsumed("c", "a");
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    QVERIFY(directory.remove("a"));
    QVERIFY(directory.create("a", "another"));
    queue.onDirectoryChanged();
    QCOMPARE(updated.size(), 0);
    QCOMPARE(queue.fileIndex("a"), 0);
    QVERIFY(queue.entryFromFileName("a")->isConsumed(0));
}

void FilesQueueTest::renamedFileIsDeletedAndNew()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), {}, true, 0);
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    QVERIFY(QFile::rename(directory.filePath("a"), directory.filePath("c")));
    queue.onDirectoryChanged();
    QCOMPARE(updated.size(), 1);
    QCOMPARE(updated.at(0).at(0).value<QList<QString>>(), QList<QString>({"c"}));
    QCOMPARE(updated.at(0).at(1).value<QList<QString>>(), QList<QString>({"a"}));
    QCOMPARE(queuedNames(queue, {"b", "c"}), QStringList({"b", "c"}));
    QCOMPARE(traces.take(), QStringList({listingTrace(2), summaryTrace(1, 1, 0, 2)}));
}

void FilesQueueTest::rescanWithoutChangeOnlyTraces()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), entriesOf({"c"}), true, 0);
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    for (int i = 0; i < 2; ++i) {
        queue.onDirectoryChanged();
        QCOMPARE(traces.take(), QStringList({listingTrace(2), summaryTrace(0, 0, 0, 2)}));
    }
    QCOMPARE(updated.size(), 0);
}

void FilesQueueTest::rescanSeesEveryChangeAtOnce()
{
    const TraceLog traces(LoggerLevel::fatal);
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 0);
    for (int i = 0; i < 50; ++i) {
        QVERIFY(directory.create("a"));
        queue.onDirectoryChanged();
        QCOMPARE(queue.size(), 1);
        QVERIFY(directory.remove("a"));
        queue.onDirectoryChanged();
        QCOMPARE(queue.size(), 0);
    }
}

void FilesQueueTest::removedDirectoryEmptiesTheQueue()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.makeDirectory("queue"));
    QVERIFY(directory.createAll({"queue/a", "queue/b"}));
    FilesQueue queue(directory.filePath("queue"), entriesOf({"c"}), true, 0);
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    queue.onConsumed("c", "a");
    QVERIFY(QDir(directory.filePath("queue")).removeRecursively());
    traces.take();
    queue.onDirectoryChanged();
    QCOMPARE(traces.take(), QStringList({listingTrace(0), summaryTrace(0, 2, 1, 0)}));
    QCOMPARE(updated.at(0).at(1).value<QList<QString>>(), QList<QString>({"a", "b"}));

    QVERIFY(directory.makeDirectory("queue"));
    QVERIFY(directory.create("queue/a"));
    queue.onDirectoryChanged();
    QCOMPARE(traces.take(), QStringList({listingTrace(1), summaryTrace(1, 0, 0, 1)}));
    QVERIFY(!queue.isConsumedFromAll("a"));
}

void FilesQueueTest::consumedFileGoesAtTheNextRescan()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), entriesOf({"c", "d"}), true, 0);
    queue.onConsumed("c", "a");
    QVERIFY(!queue.isConsumedFromAll("a"));
    queue.onDirectoryChanged();
    QVERIFY(queue.existsFileEntry("a"));
    traces.take();

    queue.onConsumed("d", "a");
    QCOMPARE(traces.take(), QStringList("> consummed : Fichier a utilisé par le consommateur d"));
    QVERIFY(queue.isConsumedFromAll("a"));
    QVERIFY(queue.existsFileEntry("a"));
    QCOMPARE(queue.size(), 2);
    QCOMPARE(directory.names(), QStringList({"a", "b"}));

    queue.onDirectoryChanged();
    QCOMPARE(traces.take(), QStringList({listingTrace(2), summaryTrace(0, 0, 1, 1)}));
    QCOMPARE(queuedNames(queue, {"b"}), QStringList("b"));
    QCOMPARE(directory.names(), QStringList("b"));
    QVERIFY(!failureText([&] { queue.isConsumedFromAll("a"); }).isNull());
}

void FilesQueueTest::consumedFilesAreNotAnnounced()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b", "d"}));
    FilesQueue queue(directory.path(), entriesOf({"c"}), true, 0);
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    queue.onConsumed("c", "a");
    traces.take();
    queue.onDirectoryChanged();
    QCOMPARE(traces.take(), QStringList({listingTrace(3), summaryTrace(0, 0, 1, 2)}));
    QCOMPARE(updated.size(), 0);

    queue.onConsumed("c", "b");
    QVERIFY(directory.create("e"));
    traces.take();
    queue.onDirectoryChanged();
    QCOMPARE(traces.take(), QStringList({listingTrace(3), summaryTrace(1, 0, 1, 2)}));
    QCOMPARE(updated.size(), 1);
    QCOMPARE(updated.at(0).at(0).value<QList<QString>>(), QList<QString>({"e"}));
    QCOMPARE(updated.at(0).at(1).value<QList<QString>>(), QList<QString>());
}

void FilesQueueTest::queueWithoutConsumersDeletesNothing()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), {}, true, 0);
    QVERIFY(queue.isConsumedFromAll("a"));
    queue.onDirectoryChanged();
    QCOMPARE(traces.take(), QStringList({listingTrace(2), summaryTrace(0, 0, 0, 2)}));
    QCOMPARE(directory.names(), QStringList({"a", "b"}));

    QVERIFY(directory.remove("a"));
    queue.onDirectoryChanged();
    QCOMPARE(traces.take(), QStringList({listingTrace(1), summaryTrace(0, 1, 0, 1)}));
}

void FilesQueueTest::vanishedAndConsumedCountTwice()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b", "d"}));
    FilesQueue queue(directory.path(), entriesOf({"c"}), true, 0);
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    queue.onConsumed("c", "a");
    queue.onConsumed("c", "b");
    QVERIFY(directory.remove("a"));
    QVERIFY(directory.remove("d"));
    traces.take();
    queue.onDirectoryChanged();
    QCOMPARE(traces.take(), QStringList({listingTrace(1), summaryTrace(0, 2, 2, 0)}));
    QCOMPARE(updated.size(), 1);
    QCOMPARE(updated.at(0).at(1).value<QList<QString>>(), QList<QString>({"a", "d"}));
    QCOMPARE(directory.names(), QStringList());
}

void FilesQueueTest::consumedFileReplacedByDirectoryIsDropped()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), entriesOf({"c"}), true, 0);
    queue.onConsumed("c", "a");
    QVERIFY(directory.remove("a"));
    QVERIFY(directory.makeDirectory("a"));
    QVERIFY(directory.create("a/inside"));
    traces.take();
    queue.onDirectoryChanged();
    QCOMPARE(traces.take(), QStringList({listingTrace(0), summaryTrace(0, 1, 1, 0)}));
    QVERIFY(directory.exists("a/inside"));
}

void FilesQueueTest::consumedFileReplacedByDanglingLinkIsDropped()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), entriesOf({"c"}), true, 0);
    queue.onConsumed("c", "a");
    QVERIFY(directory.remove("a"));
    QVERIFY(directory.makeLink("a", "nowhere"));
    queue.onDirectoryChanged();
    QCOMPARE(queue.size(), 0);
    // Only a file that exists is deleted. The target of this link does not exist.
    QCOMPARE(directory.names(), QStringList("a"));
}

void FilesQueueTest::consumedLinkIsDeletedNotItsTarget()
{
    const TraceLog traces;
    const QueueDirectory elsewhere;
    QVERIFY(elsewhere.create("target"));
    const QueueDirectory directory;
    QVERIFY(directory.makeLink("link", elsewhere.filePath("target")));
    FilesQueue queue(directory.path(), entriesOf({"c"}), true, 0);
    queue.onConsumed("c", "link");
    queue.onDirectoryChanged();
    QCOMPARE(directory.names(), QStringList());
    QVERIFY(elsewhere.exists("target"));
}

void FilesQueueTest::deletionFailureDropsTheEntry()
{
    const ChildResult child = runChild({"deletionFailure"});
    QVERIFY2(child.exitCode == 0, child.err.constData());
}

void FilesQueueTest::consumedFileWithoutPermissionIsDeleted()
{
    const ChildResult child = runChild({"withoutPermission"});
    QVERIFY2(child.exitCode == 0, child.err.constData());
}

void FilesQueueTest::mixedRescan()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"consumed", "stays", "vanished", "vanished.consumed"}));
    FilesQueue queue(directory.path(), entriesOf({"c", "d"}), true, 0);
    for (const char* const name : {"consumed", "vanished.consumed"}) {
        queue.onConsumed("c", name);
        queue.onConsumed("d", name);
    }
    queue.onConsumed("c", "stays");
    queue.onConsumed("d", "vanished");
    QVERIFY(directory.remove("vanished"));
    QVERIFY(directory.remove("vanished.consumed"));
    QVERIFY(directory.create("arrived"));
    QVERIFY(directory.makeLink("rejected", "/dev/null"));
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    traces.take();
    queue.onDirectoryChanged();

    QCOMPARE(traces.take(),
             QStringList({listingTrace(4), rejectionTrace("rejected"), summaryTrace(1, 2, 2, 2)}));
    QCOMPARE(updated.size(), 1);
    QCOMPARE(updated.at(0).at(0).value<QList<QString>>(), QList<QString>({"arrived"}));
    QCOMPARE(updated.at(0).at(1).value<QList<QString>>(),
             QList<QString>({"vanished", "vanished.consumed"}));
    QCOMPARE(queuedNames(queue, {"stays", "arrived"}), QStringList({"stays", "arrived"}));
    QVERIFY(queue.entryFromFileName("stays")->isConsumed(0));
    QVERIFY(!queue.entryFromFileName("stays")->isConsumed(1));
    QCOMPARE(directory.names(), QStringList({"arrived", "rejected", "stays"}));
}

void FilesQueueTest::announcementComesBeforeTheSummary()
{
    TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    FilesQueue queue(directory.path(), entriesOf({"c"}), true, 0);
    queue.onConsumed("c", "a");
    QVERIFY(directory.remove("b"));
    QVERIFY(directory.create("d"));
    traces.take();

    QList<Update> updates;
    connect(&queue, &FilesQueue::queueUpdated, &queue,
            [&](const QList<QString>& appended, const QList<QString>& deleted) {
                updates.append({appended, deleted, traces.texts(), queue.size()});
                QVERIFY(!directory.exists("a"));
            });
    queue.onDirectoryChanged();
    QCOMPARE(updates.size(), 1);
    QCOMPARE(updates.at(0).appended, QList<QString>({"d"}));
    QCOMPARE(updates.at(0).deleted, QList<QString>({"b"}));
    QCOMPARE(updates.at(0).tracesBefore, QStringList(listingTrace(2)));
    QCOMPARE(updates.at(0).sizeThen, 1);
    QCOMPARE(traces.take(), QStringList({listingTrace(2), summaryTrace(1, 1, 1, 1)}));
}

void FilesQueueTest::everyTraceIsAtDebugLevel()
{
    const QueueDirectory directory;
    QVERIFY(directory.makeLink("rejected", "/dev/null"));
    ConsumerAncestor consumer("c");
    for (const LoggerLevel::LogLevel filter : {LoggerLevel::debug, LoggerLevel::info}) {
        const TraceLog traces(filter);
        QVERIFY(directory.create("a"));
        FilesQueue queue(directory.path(), {{"c", &consumer}}, true, 0);
        queue.onProcess();
        queue.onRequestForFiles("c");
        queue.onConsumed("c", "a");
        queue.onDirectoryChanged();
        QCOMPARE(traces.texts().size(), filter == LoggerLevel::debug ? 6 : 0);
        for (const QString& text : traces.texts())
            QVERIFY2(!text.at(0).isDigit(), qUtf8Printable(text));
    }
}

void FilesQueueTest::rescanIsAPublicSlot()
{
    const TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 0);
    QVERIFY(directory.create("a"));
    QVERIFY(QMetaObject::invokeMethod(&queue, "onDirectoryChanged"));
    QCOMPARE(queue.size(), 1);
    const QMetaObject& meta = FilesQueue::staticMetaObject;
    for (const char* const slot : {"onDirectoryChanged()", "onConsumed(QString,QString)",
                                   "onRequestForFiles(QString)", "onProcess()", "onQuit()"}) {
        QVERIFY2(meta.indexOfSlot(slot) >= 0, slot);
        QCOMPARE(meta.method(meta.indexOfSlot(slot)).access(), QMetaMethod::Public);
    }
    for (const char* const signal :
         {"queueUpdated(QList<QString>,QList<QString>)", "filesNotConsumed(QList<QString>,bool)"})
        QVERIFY2(meta.indexOfSignal(QMetaObject::normalizedSignature(signal)) >= 0, signal);
}

void FilesQueueTest::slotThatThrowsLeavesTheQueueUsable()
{
    const TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 0);
    const QMetaObject::Connection connection =
        connect(&queue, &FilesQueue::queueUpdated, &queue, [] { throw Exception("slot"); });
    QVERIFY(directory.create("a"));
    QCOMPARE(failureText([&] { queue.onDirectoryChanged(); }), QStringLiteral("slot"));
    QVERIFY(disconnect(connection));

    ConsumerAncestor consumer("c");
    queue.appendConsumer(&consumer);
    queue.onConsumed("c", "a");
    queue.onDirectoryChanged();
    QCOMPARE(queue.size(), 0);
}

void FilesQueueTest::destructorLeavesFilesAlone()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    {
        FilesQueue queue(directory.path(), entriesOf({"c"}), true, 20);
        queue.onConsumed("c", "a");
    }
    QCOMPARE(directory.names(), QStringList({"a", "b"}));
}

void FilesQueueTest::destructorWithoutProcess()
{
    const QueueDirectory directory;
    auto queue = std::make_unique<FilesQueue>(directory.path(), QList<ConsumerEntry>(), true, 10);
    queue.reset();
    queue = std::make_unique<FilesQueue>(directory.path(), QList<ConsumerEntry>(), true, 10);
    QVERIFY(queue->enableScrutationMode());
    const QPointer<QTimer> timer = queue->findChild<QTimer*>();
    QVERIFY(timer);
    queue.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!timer);
}

void FilesQueueTest::destructorTakesWatcherAndTimer()
{
    const TraceLog traces;
    const QueueDirectory directory;
    auto queue = std::make_unique<FilesQueue>(directory.path(), QList<ConsumerEntry>(), true, 10);
    queue->onProcess();
    const QPointer<QFileSystemWatcher> watcher = queue->findChild<QFileSystemWatcher*>();
    const QPointer<QTimer> timer = queue->findChild<QTimer*>();
    QVERIFY(watcher);
    QVERIFY(timer);
    queue.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!watcher);
    QVERIFY(!timer);
}

void FilesQueueTest::followsTheModel_data()
{
    QTest::addColumn<quint32>("seed");
    for (quint32 seed = 1; seed <= 8; ++seed)
        QTest::addRow("seed %u", seed) << seed;
}

void FilesQueueTest::followsTheModel()
{
    QFETCH(quint32, seed);
    QRandomGenerator random(seed);
    TraceLog traces;
    const QueueDirectory directory;
    FilesQueue queue(directory.path(), {}, true, 0);
    QueueModel model(0);
    QueueModel::Files files;
    int lastFile = 0;
    std::vector<std::unique_ptr<ConsumerAncestor>> consumers;
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);

    // Removed files are kept elsewhere, so that their inode numbers are not used again.
    const QueueDirectory removed(QString(), QFileInfo(directory.path()).path());
    const auto moveAway = [&](const QString& name) {
        const QString target = removed.filePath(QString::number(files.value(name)));
        QVERIFY(QFile::rename(directory.filePath(name), target));
    };
    const auto addFile = [&] {
        const QString name = QStringLiteral("f%1").arg(random.bounded(40));
        if (!files.contains(name)) {
            QVERIFY(directory.create(name));
            files.insert(name, ++lastFile);
        }
    };
    const auto removeFile = [&](bool isReplaced) {
        if (files.isEmpty())
            return;
        const QString name = files.keys().at(random.bounded(int(files.size())));
        moveAway(name);
        files.remove(name);
        if (isReplaced) {
            QVERIFY(directory.deliver(name));
            files.insert(name, ++lastFile);
        }
    };
    const auto consume = [&] {
        if (consumers.empty() || model.entries().isEmpty())
            return;
        const int consumer = random.bounded(int(consumers.size()));
        const int position = random.bounded(int(model.entries().size()));
        queue.onConsumed(consumers.at(size_t(consumer))->id(), model.entries().at(position).name);
        model.consume(consumer, position);
    };
    const auto addConsumer = [&] {
        if (consumers.size() == 3)
            return;
        consumers.push_back(std::make_unique<ConsumerAncestor>(QString::number(consumers.size())));
        queue.appendConsumer(consumers.back().get());
        model.appendConsumer();
    };
    const auto rescan = [&] {
        traces.take();
        const qsizetype updatesBefore = updated.size();
        const int listed = int(files.size());
        queue.onDirectoryChanged();
        const QueueModel::Rescan expected = model.rescan(files);
        QCOMPARE(
            traces.take(),
            QStringList({listingTrace(listed),
                         summaryTrace(int(expected.appended.size()), int(expected.deleted.size()),
                                      expected.consumed, int(model.entries().size()))}));
        const bool isAnnounced = !expected.appended.isEmpty() || !expected.deleted.isEmpty();
        QCOMPARE(updated.size() - updatesBefore, isAnnounced ? 1 : 0);
        if (isAnnounced) {
            QCOMPARE(updated.last().at(0).value<QList<QString>>(), expected.appended);
            QCOMPARE(updated.last().at(1).value<QList<QString>>(), expected.deleted);
        }
    };

    for (int step = 0; step < 1500; ++step) {
        const quint32 dice = random.bounded(100U);
        if (dice < 30)
            addFile();
        else if (dice < 40)
            removeFile(dice < 35);
        else if (dice < 84)
            consume();
        else if (dice < 85)
            addConsumer();
        else
            rescan();
        if (QTest::currentTestFailed())
            return;

        QCOMPARE(queue.size(), int(model.entries().size()));
        for (int i = 0; i < model.entries().size(); ++i) {
            const QueueModel::Entry& entry = model.entries().at(i);
            QCOMPARE(queue.fileIndex(entry.name), i);
            QCOMPARE(queue.isConsumedFromAll(entry.name), !entry.flags.contains(false));
        }
    }
    QCOMPARE(directory.names(), QStringList(files.keys()));
}

KEZ_TEST_MAIN_WITH_CHILDREN(FilesQueueTest, childMain)
#include "tst_FilesQueue.moc"
