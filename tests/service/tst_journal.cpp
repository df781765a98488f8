// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/journal_p.h"

#include "runnerfixture.h"
#include "service/kittexts_p.h"
#include "support/childoutput.h"
#include "support/failuretext.h"
#include "support/tracelog.h"

#include <QtTest>

#include <array>
#include <atomic>
#include <csignal>
#include <limits>
#include <memory>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace KezService;
using namespace std::chrono_literals;

using State = WorkRecord::State;
using Step = Journal::Step;
using Entries = std::vector<Journal::Entry>;

Q_DECLARE_METATYPE(FileStamp)

namespace {

const QStringList TwoConsumers{"ledger", "archive"};

FileStamp stampOfNumber(quint64 number)
{
    FileStamp stamp;
    stamp.inode = 1000 + number;
    stamp.birth = 1'700'000'000'000'000'000 + qint64(number);
    stamp.size = 5;
    stamp.modified = 1'700'000'000'000'000'100;
    stamp.changed = 1'700'000'000'000'000'200;
    return stamp;
}

/// The line with its checksum and its end.
QByteArray sealed(const QByteArray& line)
{
    const quint16 sum = qChecksum(QByteArrayView(line), Qt::ChecksumIso3309);
    return line + ' ' + QByteArray::number(sum, 16) + '\n';
}

const QByteArray Header = "kez-journal 1\n";
const QByteArray Key = "=0123456789abcdef0123456789abcdef";

QByteArray fileLine(const QByteArray& number, const QByteArray& name = "=order")
{
    return sealed("F " + number + ' ' + Key + " 1001 1700000000000000001 5 1700000000000000100 " +
                  "1700000000000000200 0 " + name);
}

/// While it lives, files of the process cannot grow beyond `size` bytes, as on a full disk.
class FileSizeLimit {
public:
    explicit FileSizeLimit(qint64 size)
    {
        ::getrlimit(RLIMIT_FSIZE, &_before);
        _action = std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{rlim_t(size), _before.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        ::setrlimit(RLIMIT_FSIZE, &_before);
        std::signal(SIGXFSZ, _action);
    }

private:
    rlimit _before{};
    void (*_action)(int) = nullptr;
};

/// Where a journal is kept, and journals on it, one after the other.
class Place {
public:
    Place() { QDir(spool.path()).mkdir(".kez"); }

    QString path() const { return spool.pathOf(".kez/journal"); }
    QString hidden() const { return spool.pathOf(".kez"); }
    QByteArray text() const { return readFile(path()); }

    /// The journal after a restart.
    Journal& open(const QStringList& consumers = TwoConsumers, bool isKept = true)
    {
        _journal.reset();
        _journal = std::make_unique<Journal>(spool.path(), consumers, isKept);
        return *_journal;
    }

    Journal& openText(const QByteArray& text)
    {
        _journal.reset();
        writeFile(path(), text);
        return open();
    }

    QStringList putAside() const
    {
        return QDir(hidden()).entryList({"journal.aside-*"},
                                        QDir::AllEntries | QDir::Hidden | QDir::System);
    }

    const Spool spool{Spool::fastParent()};

private:
    std::unique_ptr<Journal> _journal;
};

Journal::Entry entered(Journal& journal, const QString& name, const FileStamp& stamp)
{
    return journal.enter({{name, stamp}}).front();
}

void record(Journal& journal, quint64 number, const char* kinds, int consumer = 0)
{
    for (const char* kind = kinds; *kind != '\0'; ++kind) {
        const Step step{static_cast<Step::Kind>(*kind), number, consumer};
        journal.record({&step, 1});
    }
}

} // namespace

class TestJournal : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void nameComesBack_data();
    void nameComesBack();
    void stampComesBack_data();
    void stampComesBack();
    void workComesBack_data();
    void workComesBack();
    void interruptedWorkGetsAStrike();
    void verdictOutlivesAFailedQuarantine();
    void workUnderSuspicionIsTheCause_data();
    void workUnderSuspicionIsTheCause();
    void companyCountsUntilTheNextStart();
    void replacedFileIsANewOne_data();
    void replacedFileIsANewOne();
    void newestEntryOfANameCounts();
    void consumersComeAndGo();
    void forgottenFileIsANewOne();
    void journalCutOffAnywhereIsUsed();
    void changedByteIsNoticed();
    void damagedJournalIsPutAside_data();
    void damagedJournalIsPutAside();
    void oddJournalIsUsed_data();
    void oddJournalIsUsed();
    void whatIsNoFileIsPutAside_data();
    void whatIsNoFileIsPutAside();
    void unreadableJournalRefusesTheStart();
    void compactionKeepsEverything();
    void longJournalIsCompactedBySync();
    void fullDiskIsSaidOnce();
    void journalThatCannotBeCompactedGoesOn();
    void startThatCannotWriteAnewGoesOn();
    void consumersOfAFileThatGoesOnAreTold();
    void fileStaysShortEnoughToBeRead();
    void removedJournalIsWrittenAnew();
    void removedDirectoryIsSaidOnce();
    void temporaryFileHoldsNothingUp();
    void nothingIsWrittenWithoutAJournal();
    void threadsRecordWhileAnotherSyncs();
};

void TestJournal::nameComesBack_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("ordinary") << "order-1.xml";
    QTest::newRow("blanks") << " a  b ";
    QTest::newRow("line feed") << "a\nX 1\n";
    QTest::newRow("percent") << "%41%";
    QTest::newRow("equals") << "=a=";
    QTest::newRow("accents") << "commande n° 1 — été.xml";
    QTest::newRow("beyond 16 bits") << QString::fromUtf8("\xF0\x9F\x93\xA6");
    QTest::newRow("255 bytes") << QString(255, 'x');
    QTest::newRow("255 line feeds") << QString(255, '\n');
    QTest::newRow("a mark of byte order") << QString(QChar(0xfeff)) + "a";
}

void TestJournal::nameComesBack()
{
    QFETCH(const QString, name);
    Place place;
    const Journal::Entry first = entered(place.open(), name, stampOfNumber(1));
    QCOMPARE(first.name, name);
    QVERIFY(first.number != 0);
    QCOMPARE(first.key.size(), qsizetype(32));
    const Journal::Entry again = entered(place.open(), name, stampOfNumber(1));
    QCOMPARE(again.name, name);
    QCOMPARE(again.key, first.key);
    QCOMPARE(again.number, first.number);
    QVERIFY(entered(place.open(), "other", stampOfNumber(1)).key != first.key);
}

void TestJournal::stampComesBack_data()
{
    QTest::addColumn<FileStamp>("stamp");
    QTest::newRow("ordinary") << stampOfNumber(1);
    FileStamp stamp = stampOfNumber(1);
    stamp.birth.reset();
    QTest::newRow("without birth") << stamp;
    stamp.birth = -1;
    stamp.modified = stamp.changed = std::numeric_limits<qint64>::min();
    QTest::newRow("before 1970") << stamp;
    stamp.inode = std::numeric_limits<quint64>::max();
    stamp.size = stamp.modified = stamp.changed = std::numeric_limits<qint64>::max();
    stamp.birth = std::numeric_limits<qint64>::max();
    QTest::newRow("largest") << stamp;
    QTest::newRow("zero") << FileStamp();
}

void TestJournal::stampComesBack()
{
    QFETCH(const FileStamp, stamp);
    Place place;
    const QString key = entered(place.open(), "order", stamp).key;
    const Journal::Entry again = entered(place.open(), "order", stamp);
    QCOMPARE(again.key, key);
    QVERIFY(again.stamp == stamp);
}

void TestJournal::workComesBack_data()
{
    QTest::addColumn<QByteArray>("steps");
    QTest::addColumn<int>("state");
    QTest::addColumn<int>("tries");
    QTest::addColumn<int>("strikes");
    constexpr int Waiting = int(State::Waiting);
    constexpr int Settled = int(State::Settled);
    QTest::newRow("nothing") << QByteArray() << Waiting << 0 << 0;
    QTest::newRow("begun") << QByteArray("B") << Waiting << 0 << 1;
    QTest::newRow("begun, with company") << QByteArray("BJ") << Waiting << 0 << 1;
    QTest::newRow("done") << QByteArray("BD") << Settled << 0 << 0;
    QTest::newRow("retried") << QByteArray("BR") << Waiting << 1 << 0;
    QTest::newRow("retried often") << QByteArray("BRBRBR") << Waiting << 3 << 0;
    QTest::newRow("begun again") << QByteArray("BRBRB") << Waiting << 2 << 1;
    QTest::newRow("done at last") << QByteArray("BRBRBD") << Settled << 2 << 0;
    QTest::newRow("left at a stop") << QByteArray("BL") << Waiting << 0 << 0;
    QTest::newRow("ended while it was left") << QByteArray("BLD") << Settled << 0 << 0;
    QTest::newRow("left as it ended") << QByteArray("BDL") << Settled << 0 << 0;
    QTest::newRow("quarantined without work") << QByteArray("D") << Settled << 0 << 0;
    QTest::newRow("company for nobody") << QByteArray("JBDJ") << Settled << 0 << 0;
}

void TestJournal::workComesBack()
{
    QFETCH(const QByteArray, steps);
    Place place;
    Journal& journal = place.open();
    const quint64 number = entered(journal, "order", stampOfNumber(1)).number;
    record(journal, number, steps.constData(), 1);
    for (int start = 0; start < 3; ++start) { // as it was appended, and as it was written anew
        const Journal::Entry again = entered(place.open(), "order", stampOfNumber(1));
        QTEST(int(again.works[1].state), "state");
        QTEST(int(again.works[1].tries), "tries");
        QTEST(int(again.works[1].strikes), "strikes");
        QVERIFY(again.works[0].state == State::Waiting);
        QCOMPARE(int(again.works[0].strikes), 0);
    }
}

void TestJournal::interruptedWorkGetsAStrike()
{
    Place place;
    quint64 number = 0;
    for (int strikes = 0; strikes < 4; ++strikes) {
        Journal& journal = place.open();
        const Journal::Entry entry = entered(journal, "order", stampOfNumber(1));
        QCOMPARE(int(entry.works[0].strikes), strikes);
        number = entry.number;
        record(journal, number, "B");
        if (strikes % 2 == 1)
            journal.compact();
    }
    record(place.open(), number, "BR");
    const Journal::Entry entry = entered(place.open(), "order", stampOfNumber(1));
    QCOMPARE(int(entry.works[0].strikes), 0);
    QCOMPARE(int(entry.works[0].tries), 1);
}

void TestJournal::verdictOutlivesAFailedQuarantine()
{
    Place place;
    quint64 number = 0;
    for (int start = 0; start < 2; ++start) {
        Journal& journal = place.open();
        number = entered(journal, "order", stampOfNumber(1)).number;
        record(journal, number, "B");
    }
    record(place.open(), number, "L");
    QCOMPARE(int(entered(place.open(), "order", stampOfNumber(1)).works[0].strikes), 2);
}

void TestJournal::workUnderSuspicionIsTheCause_data()
{
    QTest::addColumn<QByteArray>("first");
    QTest::addColumn<QByteArray>("second");
    QTest::addColumn<QByteArray>("innocent");
    QTest::addColumn<QList<int>>("strikes");
    QTest::newRow("the first") << QByteArray("B") << QByteArray() << QByteArray()
                               << QList<int>{2, 1, 0};
    QTest::newRow("the second") << QByteArray("BD") << QByteArray("B") << QByteArray()
                                << QList<int>{0, 2, 0};
    QTest::newRow("the second, beside the first")
        << QByteArray("BJ") << QByteArray("B") << QByteArray() << QList<int>{1, 2, 0};
    QTest::newRow("begun again") << QByteArray("BJRB") << QByteArray("BJ") << QByteArray()
                                 << QList<int>{1, 2, 0};
    QTest::newRow("unknown") << QByteArray("BJ") << QByteArray("BJ") << QByteArray("B")
                             << QList<int>{2, 2, 1};
    QTest::newRow("the second, while the first waits")
        << QByteArray("J") << QByteArray("B") << QByteArray() << QList<int>{1, 2, 0};
    QTest::newRow("unknown, the first began late")
        << QByteArray("JB") << QByteArray() << QByteArray("B") << QList<int>{2, 1, 1};
    QTest::newRow("none of them") << QByteArray("BD") << QByteArray("BR") << QByteArray("B")
                                  << QList<int>{0, 0, 1};
}

void TestJournal::workUnderSuspicionIsTheCause()
{
    QFETCH(const QByteArray, first);
    QFETCH(const QByteArray, second);
    QFETCH(const QByteArray, innocent);
    QFETCH(const QList<int>, strikes);
    const std::vector<Journal::NamedStamp> files{
        {"a", stampOfNumber(1)}, {"b", stampOfNumber(2)}, {"c", stampOfNumber(3)}};
    for (const bool isCompacted : {false, true}) {
        Place place;
        Journal* journal = &place.open();
        Entries entries = journal->enter(files);
        record(*journal, entries[0].number, "B");
        record(*journal, entries[1].number, "B", 1);
        journal = &place.open();
        entries = journal->enter(files);
        QCOMPARE(int(entries[0].works[0].strikes), 1);
        QCOMPARE(int(entries[1].works[1].strikes), 1);
        record(*journal, entries[0].number, first);
        record(*journal, entries[1].number, second, 1);
        record(*journal, entries[2].number, innocent);
        if (isCompacted)
            journal->compact();
        entries = place.open().enter(files);
        const bool wasBegunAgain = first == "BJRB";
        QCOMPARE(int(entries[0].works[0].strikes), wasBegunAgain ? 1 : strikes[0]);
        QCOMPARE(int(entries[1].works[1].strikes), strikes[1]);
        QCOMPARE(int(entries[2].works[0].strikes), strikes[2]);
    }
}

void TestJournal::companyCountsUntilTheNextStart()
{
    for (const bool isCompacted : {false, true}) {
        Place place;
        const std::vector<Journal::NamedStamp> files{{"a", stampOfNumber(1)},
                                                     {"b", stampOfNumber(2)}};
        Journal* journal = &place.open();
        record(*journal, journal->enter(files)[0].number, "B");
        journal = &place.open();
        record(*journal, journal->enter(files)[0].number, "J");
        journal = &place.open();
        if (isCompacted)
            journal->compact();
        const Entries entries = journal->enter(files);
        record(*journal, entries[0].number, "B"); // alone again
        record(*journal, entries[1].number, "B", 1);
        const Entries last = place.open().enter(files);
        QCOMPARE(int(last[0].works[0].strikes), 2);
        QCOMPARE(int(last[1].works[1].strikes), 0);
    }
}

void TestJournal::replacedFileIsANewOne_data()
{
    QTest::addColumn<FileStamp>("stamp");
    QTest::addColumn<bool>("isLinked");
    QTest::addColumn<bool>("isSame");
    const FileStamp stamp = stampOfNumber(1);
    QTest::newRow("the same") << stamp << false << true;
    QTest::newRow("the same, linked") << stamp << true << true;
    FileStamp other = stamp;
    other.changed += 1;
    QTest::newRow("another change") << other << false << false;
    QTest::newRow("another change, linked") << other << true << true;
    for (const bool isLinked : {false, true}) {
        const QByteArray end = isLinked ? ", linked" : "";
        other = stamp;
        other.inode += 1;
        QTest::newRow("another inode" + end) << other << isLinked << false;
        other = stamp;
        *other.birth += 1;
        QTest::newRow("another birth" + end) << other << isLinked << false;
        other.birth.reset();
        QTest::newRow("no birth" + end) << other << isLinked << false;
        other = stamp;
        other.size += 1;
        QTest::newRow("another size" + end) << other << isLinked << false;
        other = stamp;
        other.modified += 1;
        QTest::newRow("another content" + end) << other << isLinked << false;
    }
}

void TestJournal::replacedFileIsANewOne()
{
    QFETCH(const FileStamp, stamp);
    QFETCH(const bool, isLinked);
    QFETCH(const bool, isSame);
    for (const bool isRestarted : {false, true}) {
        Place place;
        Journal* journal = &place.open();
        const Journal::Entry before = entered(*journal, "order", stampOfNumber(1));
        record(*journal, before.number, "BRBD");
        if (isLinked)
            journal->recordLink(before.number);
        if (isRestarted)
            journal = &place.open();
        Journal::Entry after = entered(*journal, "order", stamp);
        for (int start = 0; start < 2; ++start) {
            QCOMPARE(after.key == before.key, isSame);
            QCOMPARE(after.number == before.number, isSame);
            QCOMPARE(after.works[0].state == State::Settled, isSame);
            QCOMPARE(int(after.works[0].tries), isSame ? 1 : 0);
            record(*journal, before.number, "D"); // of the file before: not of this one
            journal = &place.open();
            after = entered(*journal, "order", stamp);
        }
    }
}

void TestJournal::newestEntryOfANameCounts()
{
    Place place;
    Journal& journal = place.openText(Header + sealed("C 0 =ledger") + fileLine("9") +
                                      sealed("D 9 0") + fileLine("3") + sealed("B 3 0"));
    const Journal::Entry entry = entered(journal, "order", stampOfNumber(1));
    QCOMPARE(entry.number, quint64(9));
    QVERIFY(entry.works[0].state == State::Settled);
    journal.forgetAbsent();
    journal.compact();
    QVERIFY2(!place.text().contains("\nF 3 "), place.text());
    QVERIFY2(place.text().contains("\nF 9 "), place.text());
    QCOMPARE(entered(place.open(), "order", stampOfNumber(1)).number, quint64(9));
    QCOMPARE(entered(place.open(), "next", stampOfNumber(2)).number, quint64(10));
}

void TestJournal::consumersComeAndGo()
{
    Place place;
    Journal* journal = &place.open({"a", "b b", "c\n"});
    const quint64 number = entered(*journal, "order", stampOfNumber(1)).number;
    record(*journal, number, "BD", 0);
    record(*journal, number, "BR", 1);
    record(*journal, number, "B", 2);

    journal = &place.open({"c\n", "new", "a"}); // another order, one is gone, one is new
    std::vector<WorkRecord> works = entered(*journal, "order", stampOfNumber(1)).works;
    QCOMPARE(works.size(), size_t(3));
    QCOMPARE(int(works[0].strikes), 1);
    QVERIFY(works[1].state == State::Waiting);
    QCOMPARE(int(works[1].strikes), 0);
    QVERIFY(works[2].state == State::Settled);

    journal = &place.open({"A", "a ", "b b"}); // other names
    works = entered(*journal, "order", stampOfNumber(1)).works;
    for (const WorkRecord& work : works) {
        QVERIFY(work.state == State::Waiting);
        QCOMPARE(int(work.tries) + work.strikes, 0);
    }
}

void TestJournal::forgottenFileIsANewOne()
{
    Place place;
    Journal& journal = place.open();
    const std::vector<Journal::NamedStamp> files{
        {"a", stampOfNumber(1)}, {"b", stampOfNumber(2)}, {"c", stampOfNumber(3)}};
    const Entries before = journal.enter(files);
    for (const Journal::Entry& entry : before)
        record(journal, entry.number, "BD");
    journal.forget({before[0].number, 0, 4711});
    Journal& again = place.open();
    const Entries some = again.enter({files[0], files[1]});
    QVERIFY(some[0].key != before[0].key);
    QVERIFY(some[0].works[0].state == State::Waiting);
    QCOMPARE(some[1].key, before[1].key);
    again.forgetAbsent();
    const Entries all = place.open().enter(files);
    QCOMPARE(all[0].key, some[0].key);
    QCOMPARE(all[1].key, before[1].key);
    QVERIFY(all[1].works[0].state == State::Settled);
    QVERIFY(all[2].key != before[2].key);
    QVERIFY(all[2].works[0].state == State::Waiting);
}

namespace {

/// A journal with each kind of line, and the files that it is about.
struct Sample {
    Sample()
    {
        Place place;
        Journal& journal = place.open();
        const Entries entries = journal.enter(files);
        record(journal, entries[0].number, "BD", 0);
        record(journal, entries[0].number, "BJR", 1);
        record(journal, entries[1].number, "BRBL", 0);
        journal.recordLink(entries[1].number);
        record(journal, entries[2].number, "BD", 1);
        journal.forget({entries[3].number});
        text = place.text() + sealed("T 2 1 3 1");
    }

    /// Whether no more is settled than was.
    static bool isFaithful(const Entries& entries)
    {
        for (size_t file = 0; file < entries.size(); ++file) {
            for (size_t consumer = 0; consumer < 2; ++consumer) {
                const bool isDone = (file == 0 && consumer == 0) || (file == 2 && consumer == 1);
                if (entries[file].works[consumer].state == State::Settled && !isDone)
                    return false;
            }
        }
        return true;
    }

    static int settledCount(const Entries& entries)
    {
        int count = 0;
        for (const Journal::Entry& entry : entries) {
            for (const WorkRecord& work : entry.works)
                count += work.state == State::Settled ? 1 : 0;
        }
        return count;
    }

    const std::vector<Journal::NamedStamp> files{{"a", stampOfNumber(1)},
                                                 {"b b", stampOfNumber(2)},
                                                 {"c", stampOfNumber(3)},
                                                 {"d", stampOfNumber(4)}};
    QByteArray text;
};

} // namespace

void TestJournal::journalCutOffAnywhereIsUsed()
{
    const Sample sample;
    const TraceLog log;
    Place place;
    int settled = 0;
    for (qsizetype length = Header.size(); length <= sample.text.size(); ++length) {
        const Entries entries = place.openText(sample.text.first(length)).enter(sample.files);
        QVERIFY2(Sample::isFaithful(entries), QByteArray::number(length));
        const int now = Sample::settledCount(entries);
        QVERIFY2(now >= settled, QByteArray::number(length)); // more of the text, more is known
        settled = now;
    }
    QCOMPARE(settled, 2);
    QCOMPARE(place.putAside(), QStringList());
    QCOMPARE(log.texts(), QStringList());
    for (qsizetype length = 0; length < Header.size(); ++length) {
        const Entries entries = place.openText(sample.text.first(length)).enter(sample.files);
        QCOMPARE(Sample::settledCount(entries), 0);
        QCOMPARE(place.putAside().size(), length + 1);
    }
}

void TestJournal::changedByteIsNoticed()
{
    const Sample sample;
    TraceLog log;
    Place place;
    constexpr std::array Bits{0x01, 0x20, 0xff};
    for (qsizetype position = 0; position < sample.text.size(); ++position) {
        const int bits = Bits[size_t(position) % Bits.size()];
        QByteArray text = sample.text;
        text[position] = static_cast<char>(text[position] ^ bits);
        const QByteArray where = QByteArray::number(position) + ' ' + QByteArray::number(bits);
        const Entries entries = place.openText(text).enter(sample.files);
        QVERIFY2(Sample::isFaithful(entries), where);
        const QStringList aside = place.putAside();
        const QStringList said = log.take();
        if (aside.isEmpty()) { // an upper-case digit of a checksum, or the end of the last line
            const bool isOnlyCase =
                bits == 0x20 && QByteArrayView("abcdef").contains(sample.text[position]);
            QVERIFY2(isOnlyCase || position == sample.text.size() - 1, where);
            QCOMPARE(Sample::settledCount(entries), 2);
            QCOMPARE(said, QStringList());
            continue;
        }
        QCOMPARE(aside.size(), qsizetype(1));
        const QString path = place.hidden() + '/' + aside.first();
        QCOMPARE(readFile(path), text);
        QCOMPARE(said.size(), qsizetype(1));
        QVERIFY2(said.first().contains('[' + path + ']'), qPrintable(said.first()));
        QCOMPARE(Sample::settledCount(entries), 0);
        QVERIFY(QFile::remove(path));
    }
}

void TestJournal::damagedJournalIsPutAside_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("another text") << QByteArray("Dear Sir,\n");
    QTest::newRow("a later version") << QByteArray("kez-journal 2\n");
    QTest::newRow("zeros") << QByteArray(4096, '\0');
    QTest::newRow("an empty line") << Header + "\n";
    QTest::newRow("zeros in the middle") << Header + QByteArray(20, '\0') + '\n';
    QTest::newRow("no checksum") << Header + "X 1\n";
    QTest::newRow("a wrong checksum") << Header + "X 1 0\n";
    QTest::newRow("a damaged line before a torn one") << Header + "X 1 0\nX";
    QTest::newRow("unknown kind") << Header + sealed("Q 1 2");
    QTest::newRow("no kind") << Header + sealed(" 1 2");
    QTest::newRow("long kind") << Header + sealed("DD 1 0");
    QTest::newRow("a field too few") << Header + sealed("D 1");
    QTest::newRow("a field too many") << Header + sealed("D 1 0 0");
    QTest::newRow("two blanks") << Header + sealed("D  1 0");
    QTest::newRow("no number") << Header + sealed("D x 0");
    QTest::newRow("a negative number") << Header + sealed("D -1 0");
    QTest::newRow("too large a number") << Header + sealed("D 18446744073709551616 0");
    QTest::newRow("a consumer without a mark") << Header + sealed("C 0 ledger");
    QTest::newRow("a file of number 0") << Header + fileLine("0");
    QTest::newRow("the last number of all") << Header + fileLine("18446744073709551615");
    QTest::newRow("a name without a mark") << Header + fileLine("1", "order");
    QTest::newRow("a key that is a path")
        << Header + sealed("F 1 =../../../../../../../../../../../x 1001 - 5 1 2 0 =order");
    QTest::newRow("a birth that is none") << Header + sealed("F 1 " + Key + " 1 x 5 1 2 0 =order");
}

void TestJournal::damagedJournalIsPutAside()
{
    QFETCH(const QByteArray, text);
    const TraceLog log;
    Place place;
    const QByteArray start = text.startsWith(Header) ? Header + sealed("C 0 =ledger") +
                                                           fileLine("4611686018427387904", "=big") +
                                                           fileLine("7") + sealed("D 7 0")
                                                     : QByteArray();
    Journal& journal = place.openText(start + text.mid(start.isEmpty() ? 0 : Header.size()));
    const QStringList aside = place.putAside();
    QCOMPARE(aside.size(), qsizetype(1));
    QCOMPARE(log.texts().size(), qsizetype(1));
    QVERIFY(log.texts().first().contains(aside.first()));
    const Journal::Entry entry = entered(journal, "order", stampOfNumber(1));
    QVERIFY(entry.works[0].state == State::Waiting);
    QCOMPARE(entry.number, quint64(1));
    QCOMPARE(entered(place.open(), "order", stampOfNumber(1)).key, entry.key); // it works again
    QCOMPARE(place.putAside(), aside);
}

void TestJournal::oddJournalIsUsed_data()
{
    QTest::addColumn<QByteArray>("lines");
    QTest::addColumn<int>("tries");
    QTest::newRow("nothing more") << QByteArray() << 0;
    QTest::newRow("unknown files") << sealed("D 99 0") + sealed("K 99") + sealed("X 99") +
                                          sealed("T 99 0 1 1") + sealed("B 0 0")
                                   << 0;
    QTest::newRow("unknown consumers")
        << sealed("D 7 5") + sealed("B 7 18446744073709551615") + sealed("C 5 =gone") << 0;
    QTest::newRow("a consumer twice") << sealed("C 0 =ledger") + sealed("C 1 =ledger") << 0;
    QTest::newRow("huge counts") << sealed("T 7 0 18446744073709551615 65536") << 65535;
    QTest::newRow("a file twice") << sealed("T 7 0 5 0") + fileLine("7") << 0;
    QTest::newRow("zeros at the end") << QByteArray(4096, '\0') << 0;
    QTest::newRow("a torn line") << QByteArray("D 7 0") << 0;
    QTest::newRow("a whole line without its end") << sealed("D 7 0").chopped(1) << 0;
}

void TestJournal::oddJournalIsUsed()
{
    QFETCH(const QByteArray, lines);
    Place place;
    Journal& journal = place.openText(Header + sealed("C 0 =ledger") + fileLine("7") + lines);
    const Journal::Entry entry = entered(journal, "order", stampOfNumber(1));
    QCOMPARE(place.putAside(), QStringList());
    QCOMPARE(entry.number, quint64(7));
    QVERIFY(entry.works[0].state == State::Waiting);
    QTEST(int(entry.works[0].tries), "tries");
}

void TestJournal::whatIsNoFileIsPutAside_data()
{
    QTest::addColumn<QByteArray>("kind");
    for (const char* const kind : {"directory", "full directory", "fifo", "dangling link", "link"})
        QTest::newRow(kind) << QByteArray(kind);
}

void TestJournal::whatIsNoFileIsPutAside()
{
    QFETCH(const QByteArray, kind);
    const TraceLog log;
    Place place;
    const QByteArray path = QFile::encodeName(place.path());
    const QByteArray other = QFile::encodeName(place.spool.beside("other"));
    const QByteArray sound = Header + sealed("C 0 =ledger");
    if (kind == "link")
        QVERIFY(writeFile(place.spool.beside("other"), sound));
    if (kind.endsWith("directory"))
        QCOMPARE(::mkdir(path.constData(), 0700), 0);
    else if (kind == "fifo")
        QCOMPARE(::mkfifo(path.constData(), 0600), 0);
    else
        QCOMPARE(::symlink(other.constData(), path.constData()), 0);
    if (kind == "full directory")
        QVERIFY(writeFile(place.path() + "/inside", "x"));
    Journal& journal = place.open();
    QCOMPARE(place.putAside().size(), qsizetype(1));
    QCOMPARE(log.texts().size(), qsizetype(1));
    const QString key = entered(journal, "order", stampOfNumber(1)).key;
    QCOMPARE(entered(place.open(), "order", stampOfNumber(1)).key, key);
    if (kind == "link")
        QCOMPARE(readFile(place.spool.beside("other")), sound);
}

void TestJournal::unreadableJournalRefusesTheStart()
{
    const Place place;
    QVERIFY(writeFile(place.path(), Header));
    QVERIFY(QFile::setPermissions(place.path(), QFile::WriteOwner));
    QVERIFY(openToEverybody(QFileInfo(place.spool.path()).path()));
    QVERIFY(openToEverybody(place.spool.path()) && openToEverybody(place.hidden()));
    const ChildResult child = runChild({"unreadable", place.spool.path()});
    COMPARE_CHILD(child, place.path().toUtf8() + '\n');
    QVERIFY(QFile::exists(place.path()));
}

void TestJournal::compactionKeepsEverything()
{
    Place place;
    Journal* journal = &place.open();
    std::vector<Journal::NamedStamp> files;
    for (quint64 i = 1; i <= 50; ++i)
        files.emplace_back(QStringLiteral("order %1").arg(i), stampOfNumber(i));
    Entries entries = journal->enter(files);
    std::vector<quint64> numbers;
    for (size_t i = 0; i < files.size(); ++i) {
        const quint64 number = entries[i].number;
        constexpr std::array Steps{"BD", "BR", "BRBRB", "", "BL"};
        record(*journal, number, Steps[i % Steps.size()], int(i % 2));
        for (int again = 0; again < 20; ++again)
            record(*journal, number, "BL", 1 - int(i % 2));
        if (i % 3 == 0)
            journal->recordLink(number);
        if (i % 7 == 0)
            numbers.push_back(number);
    }
    journal->forget(numbers);
    const qsizetype longSize = place.text().size();
    journal->compact();
    const QByteArray compacted = place.text();
    QVERIFY2(compacted.size() * 3 < longSize, QByteArray::number(compacted.size()));
    journal->compact();
    QCOMPARE(place.text(), compacted);

    // A linked file is known after a change of its time of change; another one is not.
    for (auto& file : files)
        file.second.changed += 1;
    entries = place.open().enter(files);
    for (size_t i = 0; i < files.size(); ++i) {
        const WorkRecord& work = entries[i].works[i % 2];
        const bool isKnown = i % 3 == 0 && i % 7 != 0;
        constexpr std::array Tries{0, 1, 2, 0, 0};
        QCOMPARE(work.state == State::Settled, isKnown && i % 5 == 0);
        QCOMPARE(int(work.tries), isKnown ? Tries[i % 5] : 0);
        QCOMPARE(int(work.strikes), isKnown && i % 5 == 2 ? 1 : 0);
    }
}

void TestJournal::longJournalIsCompactedBySync()
{
    Place place;
    Journal& journal = place.open();
    const quint64 number = entered(journal, "order", stampOfNumber(1)).number;
    const std::vector<Step> steps(1000, Step{Step::Begun, number, 0});
    constexpr qsizetype Bound = 1 << 20;
    while (place.text().size() <= Bound) {
        const qsizetype before = place.text().size();
        journal.record(steps);
        journal.sync();
        if (place.text().size() < before)
            break;
    }
    QVERIFY2(place.text().size() < 1000, QByteArray::number(place.text().size()));
    record(journal, number, "D");
    QVERIFY(entered(place.open(), "order", stampOfNumber(1)).works[0].state == State::Settled);
}

void TestJournal::fullDiskIsSaidOnce()
{
    Place place;
    Journal& journal = place.open();
    const quint64 number = entered(journal, "order", stampOfNumber(1)).number;
    TraceLog log;
    {
        const FileSizeLimit limit(place.text().size() + 10); // in the middle of a line
        record(journal, number, "BR");
        record(journal, number, "B");
        journal.sync();
        QTest::qWait(1100); // its next attempt fails, too
        journal.sync();
        record(journal, number, "D");
    }
    QCOMPARE(log.take(),
             QStringList{"3" + kitText("JournalNotWritten", place.path(), systemErrorText(EFBIG))});
    QTRY_VERIFY((journal.sync(), place.text().contains("\nD ")));
    QCOMPARE(log.take(), QStringList{"1" + kitText("JournalWrittenAgain", place.path())});
    record(journal, entered(journal, "next", stampOfNumber(2)).number, "BD");
    Journal& again = place.open();
    QVERIFY(entered(again, "order", stampOfNumber(1)).works[0].state == State::Settled);
    QVERIFY(entered(again, "next", stampOfNumber(2)).works[0].state == State::Settled);
    QCOMPARE(log.texts(), QStringList());
}

void TestJournal::journalThatCannotBeCompactedGoesOn()
{
    Place place;
    Journal& journal = place.open();
    const quint64 number = entered(journal, "order", stampOfNumber(1)).number;
    const TraceLog log;
    QVERIFY(QDir(place.hidden()).mkpath("journal.new/inside"));
    journal.compact();
    record(journal, number, "BD");
    journal.compact();
    QVERIFY(QDir(place.hidden() + "/journal.new").removeRecursively());
    QCOMPARE(log.texts(), QStringList());
    QVERIFY(entered(place.open(), "order", stampOfNumber(1)).works[0].state == State::Settled);
}

void TestJournal::startThatCannotWriteAnewGoesOn()
{
    Place place;
    Journal& first = place.open();
    record(first, entered(first, "order", stampOfNumber(1)).number, "B");
    QVERIFY(writeFile(place.path(), place.text() + "D 1 0"));
    QVERIFY(QDir(place.hidden()).mkpath("journal.new/inside"));
    const TraceLog log;
    for (int strikes = 1; strikes < 4; ++strikes) {
        Journal& journal = place.open();
        const Journal::Entry entry = entered(journal, "order", stampOfNumber(1));
        QCOMPARE(int(entry.works[0].strikes), strikes);
        record(journal, entry.number, "B");
    }
    QVERIFY(QDir(place.hidden() + "/journal.new").removeRecursively());
    QCOMPARE(int(entered(place.open(), "order", stampOfNumber(1)).works[0].strikes), 4);
    QCOMPARE(log.texts(), QStringList());
    QCOMPARE(place.putAside(), QStringList());
}

void TestJournal::consumersOfAFileThatGoesOnAreTold()
{
    Place place;
    entered(place.open({"ledger", "archive"}), "order", stampOfNumber(1));
    QVERIFY(QDir(place.hidden()).mkpath("journal.new/inside"));
    Journal& journal = place.open({"archive", "ledger"});
    record(journal, entered(journal, "order", stampOfNumber(1)).number, "BD", 0);
    const Journal::Entry entry =
        entered(place.open({"ledger", "archive"}), "order", stampOfNumber(1));
    QVERIFY(entry.works[0].state == State::Waiting);
    QVERIFY(entry.works[1].state == State::Settled);
}

void TestJournal::fileStaysShortEnoughToBeRead()
{
    constexpr qint64 Mebibyte = 1 << 20;
    QCOMPARE(Journal::longestBefore(0), Mebibyte);
    QCOMPARE(Journal::longestBefore(10 * Mebibyte), 40 * Mebibyte);
    QCOMPARE(Journal::longestBefore(300 * Mebibyte), 512 * Mebibyte);
    QCOMPARE(Journal::longestBefore(800 * Mebibyte), 1000 * Mebibyte);
}

void TestJournal::removedJournalIsWrittenAnew()
{
    Place place;
    Journal& journal = place.open();
    const quint64 number = entered(journal, "order", stampOfNumber(1)).number;
    TraceLog log;
    for (const bool isReplaced : {false, true}) {
        QVERIFY(QFile::remove(place.path()));
        if (isReplaced)
            QVERIFY(writeFile(place.path(), "nonsense"));
        record(journal, number, "BR");
        journal.sync();
        journal.sync();
        QCOMPARE(log.take(), QStringList{"2" + kitText("JournalRemoved", place.path())});
    }
    QCOMPARE(int(entered(place.open(), "order", stampOfNumber(1)).works[0].tries), 2);
}

void TestJournal::removedDirectoryIsSaidOnce()
{
    Place place;
    Journal& journal = place.open();
    const quint64 number = entered(journal, "order", stampOfNumber(1)).number;
    TraceLog log;
    QVERIFY(QDir(place.hidden()).removeRecursively());
    journal.sync();
    record(journal, number, "BD");
    journal.sync();
    QCOMPARE(log.take(), QStringList({"2" + kitText("JournalRemoved", place.path()),
                                      "3" + kitText("JournalNotWritten", place.path(),
                                                    systemErrorText(ENOENT))}));
    QVERIFY(QDir(place.spool.path()).mkdir(".kez"));
    QTRY_VERIFY((journal.sync(), QFile::exists(place.path())));
    QCOMPARE(log.take(), QStringList{"1" + kitText("JournalWrittenAgain", place.path())});
    QVERIFY(entered(place.open(), "order", stampOfNumber(1)).works[0].state == State::Settled);
}

void TestJournal::temporaryFileHoldsNothingUp()
{
    Place place;
    const QByteArray growing = QFile::encodeName(place.path()) + ".new";
    QCOMPARE(::mkfifo(growing.constData(), 0600), 0);
    Journal& journal = place.open(); // does not wait for a reader
    record(journal, entered(journal, "order", stampOfNumber(1)).number, "BD");
    QTRY_VERIFY((journal.sync(), QFile::exists(place.path())));
    QVERIFY(entered(place.open(), "order", stampOfNumber(1)).works[0].state == State::Settled);
}

void TestJournal::nothingIsWrittenWithoutAJournal()
{
    Place place;
    Journal* journal = &place.open(TwoConsumers, false);
    const Journal::Entry entry = entered(*journal, "order", stampOfNumber(1));
    record(*journal, entry.number, "BRBD");
    journal->recordLink(entry.number);
    QVERIFY(entered(*journal, "order", stampOfNumber(1)).works[0].state == State::Settled);
    journal->sync();
    journal->compact();
    QVERIFY(!QFile::exists(place.path()));
    journal = &place.open(TwoConsumers, false);
    QVERIFY(entered(*journal, "order", stampOfNumber(1)).key != entry.key);
}

void TestJournal::threadsRecordWhileAnotherSyncs()
{
    constexpr int Threads = 4;
    constexpr int Files = 200;
    Place place;
    Journal& journal = place.open();
    std::atomic<int> ended = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < Threads; ++thread) {
        threads.emplace_back([&journal, &ended, thread] {
            for (int i = 0; i < Files; ++i) {
                const quint64 id = quint64(thread * Files + i);
                const quint64 number =
                    entered(journal, QString::number(id), stampOfNumber(id)).number;
                record(journal, number, "BRBD", 0);
                journal.recordLink(number);
                record(journal, number, "BR", 1);
                if (i % 4 == 0)
                    journal.forget({number});
            }
            ++ended;
        });
    }
    while (ended < Threads) {
        journal.sync();
        journal.compact();
    }
    for (std::thread& thread : threads)
        thread.join();
    Journal& again = place.open();
    QCOMPARE(place.putAside(), QStringList());
    for (int id = 0; id < Threads * Files; ++id) {
        const Journal::Entry entry =
            entered(again, QString::number(id), stampOfNumber(quint64(id)));
        const bool isKnown = id % Files % 4 != 0;
        QCOMPARE(entry.works[0].state == State::Settled, isKnown);
        QCOMPARE(int(entry.works[0].tries), isKnown ? 1 : 0);
        QCOMPARE(int(entry.works[1].tries), isKnown ? 1 : 0);
        QCOMPARE(entry.isLinked, isKnown);
    }
}

namespace {

int childMain(const QStringList& arguments)
{
    if (!becomeOrdinaryUser())
        return 1;
    const QString spool = arguments.at(1);
    const QString failure = failureText([&] { Journal(spool, TwoConsumers, true); });
    say(failure.section('[', 1).section(']', 0, 0));
    return 0;
}

} // namespace

KEZ_TEST_MAIN_WITH_CHILDREN(TestJournal, childMain)
#include "tst_journal.moc"
