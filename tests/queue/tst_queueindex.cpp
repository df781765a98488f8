// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/listednames_p.h"
#include "queue/queueindex_p.h"

#include <kez/FileEntry.h>

#include <QHash>
#include <QMap>
#include <QRandomGenerator>
#include <QSet>
#include <QTest>

#include <algorithm>
#include <memory>
#include <vector>

namespace {

/// Entries, owned by the test.
class Entries {
public:
    Entries() = default;
    ~Entries()
    {
        for (FileEntry* const entry : std::as_const(list))
            delete queuedFile(entry);
    }
    Entries(const Entries&) = delete;
    Entries& operator=(const Entries&) = delete;

    QueuedFile* append(const QString& name)
    {
        auto* const file = new QueuedFile(name, 1, int(list.size()), {0, DirectoryState()});
        list.append(file);
        return file;
    }

    QList<FileEntry*> list;
};

size_t hashOf(QStringView name)
{
    return Hashing::hashOf(name);
}

/// Names that differ in their letters, their lengths and nothing else that counts.
QString randomName(QRandomGenerator& random)
{
    static const QString letters =
        QStringLiteral("ab.-09é\u00ff\u0100\u20ac\ud7ff\ue000\uffff\ufeff\U00010000\U0010ffff");
    QString name;
    const int size = random.bounded(1, 7);
    for (int i = 0; i < size; ++i)
        name += letters.at(random.bounded(int(letters.size())));
    return name;
}

QueueListing listingOf(const QStringList& names)
{
    QueueListing listing;
    for (const QString& name : names) {
        listing.files.push_back({listing.names.size(), name.size(),
                                 quint64(listing.files.size() + 1), ListedFile::Kind::Regular});
        listing.names += name;
    }
    return listing;
}

QStringList namesOf(const QueueListing& listing, const std::vector<ListedFile>& files)
{
    QStringList names;
    for (const ListedFile& file : files)
        names.append(listing.nameOf(file).toString());
    return names;
}

QStringList sortedByQt(const QStringList& names)
{
    const QSet<QString> once(names.begin(), names.end());
    QStringList result(once.begin(), once.end());
    std::sort(result.begin(), result.end());
    return result;
}

/// All names have the same hash.
size_t sameHash(QStringView)
{
    return 7;
}

} // namespace

class QueueIndexTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void emptyIndexFindsNothing();
    void indexFindsWhatAHashFinds();
    void indexGrowsAndShrinks();
    void entryKnowsItsOwnName();
    void newSeedOfQtChangesNothing();
    void namesSpreadOverTheTable();

    void listingIsSortedAsQtSorts_data();
    void listingIsSortedAsQtSorts();
    void randomListingsAreSortedAsQtSorts();

    void emptyListingHasNoNames();
    void namesAreTakenOnce_data();
    void namesAreTakenOnce();
    void randomNamesAreTakenAsFromAMap();
};

void QueueIndexTest::emptyIndexFindsNothing()
{
    QueueIndex index;
    QVERIFY(!index.find(u"a"));
    QVERIFY(!index.find(QStringView()));
    index.assign({});
    QVERIFY(!index.find(u"a"));
    index.reserve(100);
    QVERIFY(!index.find(u"a"));
}

void QueueIndexTest::indexFindsWhatAHashFinds()
{
    QRandomGenerator random(20261122);
    for (int round = 0; round < 30; ++round) {
        Entries entries;
        QHash<QString, QueuedFile*> expected;
        QueueIndex index;
        for (int i = 0; i < 400; ++i) {
            const QString name = randomName(random);
            QCOMPARE(index.find(name), expected.value(name));
            if (expected.contains(name))
                continue;
            QueuedFile* const file = entries.append(name);
            expected.insert(name, file);
            index.insert(file);
        }
        for (auto entry = expected.cbegin(); entry != expected.cend(); ++entry)
            QCOMPARE(index.find(entry.key()), entry.value());

        // Some of them leave.
        QList<FileEntry*> staying;
        for (FileEntry* const entry : std::as_const(entries.list)) {
            if (random.bounded(2) == 0)
                staying.append(entry);
            else
                expected.remove(entry->fileName());
        }
        index.assign(staying);
        for (const FileEntry* const entry : std::as_const(entries.list))
            QCOMPARE(index.find(entry->fileName()), expected.value(entry->fileName()));
    }
}

void QueueIndexTest::indexGrowsAndShrinks()
{
    // Around every size at which the table gets another one.
    for (int count = 0; count <= 300; ++count) {
        Entries entries;
        QueueIndex index;
        if (count % 2)
            index.reserve(size_t(count));
        for (int i = 0; i < count; ++i)
            index.insert(entries.append(QString::number(i)));
        for (int i = 0; i < count; ++i)
            QCOMPARE(index.find(QString::number(i)), queuedFile(entries.list.at(i)));
        QVERIFY(!index.find(QString::number(count)));
        index.assign(entries.list.mid(count / 2));
        for (int i = 0; i < count; ++i)
            QCOMPARE(index.find(QString::number(i)) != nullptr, i >= count / 2);
    }
}

void QueueIndexTest::entryKnowsItsOwnName()
{
    Entries entries;
    std::vector<QueuedFile*> files;
    for (int i = 0; i < 100; ++i) {
        QString name = QString::number(i);
        files.push_back(entries.append(name));
        name[0] = QLatin1Char('x'); // its text is another one from now on
    }
    for (int i = 0; i < 100; ++i) {
        QCOMPARE(files[size_t(i)]->name, QString::number(i));
        QCOMPARE(files[size_t(i)]->fileName(), QString::number(i));
        QCOMPARE(files[size_t(i)]->hash, hashOf(QString::number(i)));
    }
}

void QueueIndexTest::newSeedOfQtChangesNothing()
{
    Entries entries;
    QueueIndex index;
    for (int i = 0; i < 100; ++i)
        index.insert(entries.append(QString::number(i)));
    QHashSeed::setDeterministicGlobalSeed();
    bool areFound = true;
    for (int i = 0; i < 100; ++i)
        areFound = areFound && index.find(QString::number(i));
    QHashSeed::resetRandomGlobalSeed();
    for (int i = 0; i < 100; ++i)
        areFound = areFound && index.find(QString::number(i));
    QVERIFY(areFound);
}

void QueueIndexTest::namesSpreadOverTheTable()
{
    // Neither the first nor the last letters of alike names may decide alone.
    constexpr int Count = 4096;
    for (const QString& pattern :
         QStringList{"order-%1.xml", "%1", "a%1", "%1-a-very-long-name-that-ends.xml"}) {
        QSet<size_t> low;
        QSet<size_t> all;
        for (int i = 0; i < Count; ++i) {
            const size_t hash = hashOf(pattern.arg(i, 6, 10, QLatin1Char('0')));
            low.insert(hash % (16 * Count));
            all.insert(hash);
        }
        QCOMPARE(all.size(), Count);
        QVERIFY2(low.size() > Count * 9 / 10, qPrintable(pattern)); // by chance: 97 of 100
    }
}

void QueueIndexTest::listingIsSortedAsQtSorts_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::newRow("nothing") << QStringList();
    QTest::newRow("one") << QStringList("a");
    QTest::newRow("one, twice") << QStringList({"a", "a"});
    QTest::newRow("one is how the others begin") << QStringList({"abc", "ab", "abcd", "abcdefgh"});
    QTest::newRow("equal in the first four") << QStringList({"abcdz", "abcdy", "abcd", "abcdx"});
    QTest::newRow("nothing shared") << QStringList({"b", "a", "c"});
    QTest::newRow("shared, then nothing") << QStringList({"order-2", "order-", "order-1"});
    QTest::newRow("numbers") << QStringList({"f-10", "f-9", "f-1", "f-100"});
    QTest::newRow("beyond the first plane") << QStringList(
        {QStringLiteral("\uffff"), QStringLiteral("\U00010000"), QStringLiteral("\ue000"),
         QStringLiteral("\ud7ff"), QStringLiteral("\U0010ffff"), "z"});
    QTest::newRow("half of a pair is shared")
        << QStringList({QStringLiteral("a\U00010001"), QStringLiteral("a\U00010000")});
    QTest::newRow("control characters") << QStringList({"a\x01", "a", "a\n", "a\x01\x01"});
}

void QueueIndexTest::listingIsSortedAsQtSorts()
{
    QFETCH(QStringList, names);
    const QueueListing listing = listingOf(names);
    QCOMPARE(namesOf(listing, listing.sorted(listing.files)), sortedByQt(names));
}

void QueueIndexTest::randomListingsAreSortedAsQtSorts()
{
    QRandomGenerator random(5);
    for (int round = 0; round < 300; ++round) {
        QStringList names;
        const QString shared = round % 3 ? randomName(random) : QString();
        const int count = random.bounded(60);
        for (int i = 0; i < count; ++i)
            names.append(shared + randomName(random));
        const QueueListing listing = listingOf(names);
        QCOMPARE(namesOf(listing, listing.sorted(listing.files)), sortedByQt(names));
    }
}

void QueueIndexTest::emptyListingHasNoNames()
{
    const QueueListing listing;
    ListedNames names(listing, &hashOf);
    QVERIFY(!names.take(u"a", hashOf(u"a")));
    QVERIFY(names.rest().empty());
}

void QueueIndexTest::namesAreTakenOnce_data()
{
    QTest::addColumn<bool>("isOneHash");
    QTest::newRow("each its hash") << false;
    QTest::newRow("one hash for all") << true;
}

void QueueIndexTest::namesAreTakenOnce()
{
    QFETCH(bool, isOneHash);
    size_t (*const hash)(QStringView) = isOneHash ? &sameHash : &hashOf;
    const QueueListing listing = listingOf({"a", "b", "a", "d", "b", "a", "e"});
    ListedNames names(listing, hash);
    const ListedFile* const a = names.take(u"a", hash(u"a"));
    QCOMPARE(a, &listing.files.front());
    QVERIFY(!names.take(u"a", hash(u"a")));
    QVERIFY(!names.take(u"c", hash(u"c")));
    QVERIFY(names.take(u"e", hash(u"e")));
    QCOMPARE(namesOf(listing, names.rest()), QStringList({"b", "d"}));
}

void QueueIndexTest::randomNamesAreTakenAsFromAMap()
{
    QRandomGenerator random(17);
    for (int round = 0; round < 200; ++round) {
        QStringList listed;
        const int count = random.bounded(130);
        for (int i = 0; i < count; ++i)
            listed.append(randomName(random));
        const QueueListing listing = listingOf(listed);
        ListedNames names(listing, &hashOf);
        QMap<QString, quint64> expected;
        for (const ListedFile& file : listing.files) {
            const QString name = listing.nameOf(file).toString();
            if (!expected.contains(name))
                expected.insert(name, file.inode);
        }
        for (int i = 0; i < 100; ++i) {
            const QString name = randomName(random);
            const ListedFile* const file = names.take(name, hashOf(name));
            QCOMPARE(file ? file->inode : 0, expected.take(name));
        }
        QStringList rest = namesOf(listing, names.rest());
        rest.sort();
        QCOMPARE(rest, QStringList(expected.keys()));
    }
}

QTEST_APPLESS_MAIN(QueueIndexTest)
#include "tst_queueindex.moc"
