// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/quarantine_p.h"

#include "runnerfixture.h"
#include "service/kittexts_p.h"
#include "support/childoutput.h"
#include "support/failuretext.h"
#include "support/interposed.h"

#include <kez/properties.h>

#include <QFileInfo>
#include <QtTest>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

using namespace KezService;

namespace {

/// What the functions below do besides.
namespace Faults {

int linkError = 0;            // what linkat() answers; 0 for the true answer
int syncError = 0;            // what fsync() answers for directories
std::optional<int> callsLeft; // before the process ends
QStringList* calls = nullptr;

/// The last part of the path of an open file.
QString nameOf(int descriptor)
{
    const QByteArray link = "/proc/self/fd/" + QByteArray::number(descriptor);
    std::array<char, 4096> path{};
    const ssize_t size = ::readlink(link.constData(), path.data(), path.size());
    return QString::fromUtf8(path.data(), qMax<ssize_t>(size, 0)).section('/', -1);
}

void note(const char* call, const QString& name)
{
    if (callsLeft && --*callsLeft < 0)
        ::_exit(9);
    if (calls)
        calls->append(QString(call) + ' ' + name);
}

void note(const char* call, const char* path)
{
    note(call, QString::fromUtf8(path).section('/', -1));
}

} // namespace Faults

} // namespace

extern "C" {

int linkat(int fromDirectory, const char* from, int toDirectory, const char* to, int flags) noexcept
{
    static const auto original =
        interposed<int (*)(int, const char*, int, const char*, int)>("linkat");
    if (Faults::linkError == 0) {
        Faults::note("link", to);
        return original(fromDirectory, from, toDirectory, to, flags);
    }
    errno =
        ::faccessat(toDirectory, to, F_OK, AT_SYMLINK_NOFOLLOW) == 0 ? EEXIST : Faults::linkError;
    return -1;
}

int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to,
              unsigned int flags) noexcept
{
    static const auto original =
        interposed<int (*)(int, const char*, int, const char*, unsigned int)>("renameat2");
    Faults::note("rename", to);
    return original(fromDirectory, from, toDirectory, to, flags);
}

int fsync(int descriptor)
{
    static const auto original = interposed<int (*)(int)>("fsync");
    struct stat info {};
    if (Faults::syncError != 0 && ::fstat(descriptor, &info) == 0 && S_ISDIR(info.st_mode)) {
        errno = Faults::syncError;
        return -1;
    }
    Faults::note("sync", Faults::nameOf(descriptor));
    return original(descriptor);
}

ssize_t write(int descriptor, const void* bytes, size_t size)
{
    static const auto original = interposed<ssize_t (*)(int, const void*, size_t)>("write");
    if (Faults::callsLeft) {
        // Ends in the middle of what it writes.
        if (Faults::callsLeft == 0)
            (void)!original(descriptor, bytes, size / 2);
        Faults::note("write", QString());
    }
    return original(descriptor, bytes, size);
}
}

namespace {

const QString Key = "0123456789abcdef0123456789abcdef";

QuarantineNote noteFor(const QString& consumer, const QString& reason = "no XML")
{
    return {consumer, reason, 3, Key};
}

/// The default quarantine.
QString directoryOf(const Spool& spool)
{
    return spool.pathOf(".kez/quarantine");
}

/// Every name in it.
QStringList allNames(const Spool& spool)
{
    return QDir(directoryOf(spool))
        .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

quint64 inodeOf(const QString& path)
{
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_ino : 0;
}

Quarantine defaultFor(const Spool& spool)
{
    QDir(spool.path()).mkdir(".kez");
    return {spool.path(), QString()};
}

} // namespace

class TestQuarantine : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { Faults::linkError = Faults::syncError = 0; }
    void fileIsLinked();
    void fileIsCopiedIfItCannotBeLinked_data();
    void fileIsCopiedIfItCannotBeLinked();
    void fileIsCopiedToAnotherFileSystem();
    void everythingIsOnTheDiskInOrder();
    void textIsReadAsProperties();
    void takenNameGetsANumber();
    void takenTextGetsANumber();
    void eachConsumerHasItsOwn();
    void nameThereFitsInto255Bytes_data();
    void nameThereFitsInto255Bytes();
    void interruptionLeavesNoDuplicate_data();
    void interruptionLeavesNoDuplicate();
    void failedSyncLeavesNoDuplicate_data();
    void failedSyncLeavesNoDuplicate();
    void foreignFileIsNotTakenForTheCopy();
    void linkedFileIsKept_data();
    void linkedFileIsKept();
    void vanishedFileFails();
    void removedDirectoryIsMadeAgain();
    void otherDirectoryIsNotMade();
    void directoryThatCannotBeUsedIsRefused();
    void missingRightsRefuseOrFail();

private:
    std::unique_ptr<Spool> _spool;
};

void TestQuarantine::init()
{
    _spool = std::make_unique<Spool>();
}

void TestQuarantine::fileIsLinked()
{
    QVERIFY(_spool->put("order.xml", "<nonsense"));
    const Quarantine quarantine = defaultFor(*_spool);
    QCOMPARE(quarantine.put("order.xml", noteFor("ledger")), QString("order.xml"));
    QCOMPARE(allNames(*_spool), QStringList({"order.xml", "order.xml.txt"}));
    QCOMPARE(inodeOf(_spool->pathOf(".kez/quarantine/order.xml")),
             inodeOf(_spool->pathOf("order.xml")));
}

void TestQuarantine::fileIsCopiedIfItCannotBeLinked_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("another file system") << EXDEV << QByteArray("<nonsense");
    QTest::newRow("links are not allowed") << EPERM << QByteArray();
    QTest::newRow("too many links") << EMLINK << QByteArray(200000, 'x');
}

void TestQuarantine::fileIsCopiedIfItCannotBeLinked()
{
    QFETCH(const int, error);
    QFETCH(const QByteArray, bytes);
    QVERIFY(_spool->put("order.xml", bytes));
    const Quarantine quarantine = defaultFor(*_spool);
    Faults::linkError = error;
    QCOMPARE(quarantine.put("order.xml", noteFor("ledger")), QString("order.xml"));
    QCOMPARE(allNames(*_spool), QStringList({"order.xml", "order.xml.txt"}));
    const QString copy = _spool->pathOf(".kez/quarantine/order.xml");
    QCOMPARE(readFile(copy), bytes);
    QVERIFY(inodeOf(copy) != inodeOf(_spool->pathOf("order.xml")));
}

void TestQuarantine::fileIsCopiedToAnotherFileSystem()
{
    const QTemporaryDir other("/dev/shm/kez-XXXXXX");
    struct stat here {};
    struct stat there {};
    if (!other.isValid() || ::stat(QFile::encodeName(other.path()).constData(), &there) != 0 ||
        ::stat(QFile::encodeName(_spool->path()).constData(), &here) != 0 ||
        here.st_dev == there.st_dev)
        QSKIP("no second file system: /dev/shm is absent, or holds the temporary files");
    QVERIFY(_spool->put("order.xml", "<nonsense"));
    const Quarantine quarantine(_spool->path(), other.path());
    for (int time = 0; time < 2; ++time)
        QCOMPARE(quarantine.put("order.xml", noteFor("ledger")), QString("order.xml"));
    QCOMPARE(readFile(other.filePath("order.xml")), QByteArray("<nonsense"));
    QCOMPARE(QDir(other.path()).entryList(QDir::Files | QDir::Hidden),
             QStringList({"order.xml", "order.xml.txt"}));
    QVERIFY(_spool->holds("order.xml"));
}

void TestQuarantine::everythingIsOnTheDiskInOrder()
{
    for (const bool isCopied : {false, true}) {
        Faults::linkError = isCopied ? EXDEV : 0;
        const Spool spool;
        QVERIFY(spool.put("order"));
        const Quarantine quarantine = defaultFor(spool);
        QStringList calls;
        Faults::calls = &calls;
        quarantine.put("order", noteFor("ledger"));
        Faults::calls = nullptr;
        const QString growing = calls.value(0).mid(5);
        QVERIFY2(growing.startsWith(".growing-" + Key), qPrintable(growing));
        QStringList expected{"sync " + growing, "rename order.txt", "sync order"};
        if (isCopied)
            expected += {"sync " + growing, "rename order"};
        else
            expected += "link order";
        QCOMPARE(calls, expected + QStringList{"sync quarantine"});
    }
}

void TestQuarantine::textIsReadAsProperties()
{
    const QString name = "a=b # c.xml";
    QVERIFY(_spool->put(name));
    const QDateTime before = QDateTime::currentDateTimeUtc().addMSecs(-1);
    defaultFor(*_spool).put(name, {"led\nger=é", "time=1\nkey=2 %1 %2", 3, Key});
    const QString path = _spool->pathOf(".kez/quarantine/" + name + ".txt");
    const auto text = Properties::loadProperties(path);
    QCOMPARE(text->value("consumer"), QString("led\\nger=é"));
    QCOMPARE(text->value("file"), name);
    QCOMPARE(text->value("key"), Key);
    QCOMPARE(text->value("reason"), QString("time=1\\nkey=2 %1 %2"));
    QCOMPARE(text->value("tries"), QString("3"));
    const QDateTime time = QDateTime::fromString(text->value("time"), Qt::ISODateWithMs);
    QVERIFY(time.isValid() && time >= before && time <= QDateTime::currentDateTimeUtc());
    QVERIFY(readFile(path).startsWith("# " + kitText("QuarantineTextHead").toUtf8() + '\n'));
}

void TestQuarantine::takenNameGetsANumber()
{
    QVERIFY(_spool->put("order.xml", "the third"));
    const Quarantine quarantine = defaultFor(*_spool);
    QVERIFY(writeFile(_spool->pathOf(".kez/quarantine/order.xml"), "the first"));
    QVERIFY(QFile::link("nowhere", _spool->pathOf(".kez/quarantine/order~2.xml")));
    QCOMPARE(quarantine.put("order.xml", noteFor("ledger")), QString("order~3.xml"));
    QCOMPARE(allNames(*_spool),
             QStringList({"order.xml", "order~2.xml", "order~3.xml", "order~3.xml.txt"}));
    QCOMPARE(readFile(_spool->pathOf(".kez/quarantine/order~3.xml")), QByteArray("the third"));
}

void TestQuarantine::takenTextGetsANumber()
{
    QVERIFY(_spool->put("order", "file"));
    QVERIFY(_spool->put("order.txt", "its namesake"));
    const Quarantine quarantine = defaultFor(*_spool);
    QuarantineNote other = noteFor("ledger");
    other.key = QString(32, 'a');
    QCOMPARE(quarantine.put("order.txt", noteFor("ledger")), QString("order.txt"));
    QCOMPARE(quarantine.put("order", other), QString("order~2"));
    QCOMPARE(allNames(*_spool),
             QStringList({"order.txt", "order.txt.txt", "order~2", "order~2.txt"}));
    QCOMPARE(readFile(_spool->pathOf(".kez/quarantine/order.txt")), QByteArray("its namesake"));
}

void TestQuarantine::eachConsumerHasItsOwn()
{
    QVERIFY(_spool->put("order"));
    const Quarantine quarantine = defaultFor(*_spool);
    for (int time = 0; time < 2; ++time) {
        QCOMPARE(quarantine.put("order", noteFor("ledger")), QString("order"));
        QCOMPARE(quarantine.put("order", noteFor("archive")), QString("order~2"));
    }
    QCOMPARE(allNames(*_spool), QStringList({"order", "order.txt", "order~2", "order~2.txt"}));
    QVERIFY(_spool->quarantineText("order").contains("\nconsumer=ledger\n"));
    QVERIFY(_spool->quarantineText("order~2").contains("\nconsumer=archive\n"));
}

void TestQuarantine::nameThereFitsInto255Bytes_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("second");
    const QString box = QString::fromUtf8("\xF0\x9F\x93\xA6"); // four bytes, two characters
    QTest::newRow("251 bytes") << QString(247, 'x') + ".xml" << QString(247, 'x') + ".xml"
                               << QString(245, 'x') + "~2.xml";
    QTest::newRow("255 bytes") << QString(251, 'x') + ".xml" << QString(247, 'x') + ".xml"
                               << QString(245, 'x') + "~2.xml";
    QTest::newRow("without an ending")
        << QString(255, 'x') << QString(251, 'x') << QString(249, 'x') + "~2";
    QTest::newRow("two bytes each")
        << QString(125, u'é') + ".xml" + 'x' << QString(123, u'é') + ".xmlx"
        << QString(122, u'é') + "~2.xmlx";
    QTest::newRow("four bytes each")
        << box.repeated(62) + ".xml" << box.repeated(61) + ".xml" << box.repeated(61) + "~2.xml";
    QTest::newRow("a long ending")
        << "a." + QString(253, 'x') << "a." + QString(249, 'x') << "a." + QString(247, 'x') + "~2";
    QTest::newRow("nearly only an ending")
        << "a." + QString(60, 'x') << "a." + QString(60, 'x') << "a~2." + QString(60, 'x');
}

void TestQuarantine::nameThereFitsInto255Bytes()
{
    QFETCH(const QString, name);
    QVERIFY(_spool->put(name, "content"));
    const Quarantine quarantine = defaultFor(*_spool);
    for (const bool isCopied : {false, true}) {
        Faults::linkError = isCopied ? EXDEV : 0;
        QTEST(quarantine.put(name, noteFor("ledger")), "first");
        QTEST(quarantine.put(name, noteFor("archive")), "second");
    }
    QCOMPARE(allNames(*_spool).size(), qsizetype(4));
    QFETCH(const QString, second);
    QCOMPARE(readFile(_spool->pathOf(".kez/quarantine/" + second)), QByteArray("content"));
    QVERIFY(_spool->quarantineText(second).contains("\nfile=" + name.toUtf8() + '\n'));
}

void TestQuarantine::interruptionLeavesNoDuplicate_data()
{
    QTest::addColumn<int>("linkError");
    QTest::newRow("linked") << 0;
    QTest::newRow("copied") << EXDEV;
}

void TestQuarantine::interruptionLeavesNoDuplicate()
{
    QFETCH(const int, linkError);
    int step = 0;
    for (bool isInterrupted = true; isInterrupted; ++step) {
        const Spool spool;
        QVERIFY(spool.put("order.xml", "<nonsense"));
        const Quarantine quarantine = defaultFor(spool);
        const ChildResult child =
            runChild({"put", spool.path(), QString::number(linkError), QString::number(step)});
        QVERIFY2(child.exitCode == 9 || child.exitCode == 0, child.err.constData());
        isInterrupted = child.exitCode == 9;

        // Nobody sees a half-written file.
        const QString path = spool.pathOf(".kez/quarantine/order.xml");
        QVERIFY(!QFile::exists(path) || readFile(path) == "<nonsense");
        QVERIFY(!QFile::exists(path + ".txt") || readFile(path + ".txt").endsWith("tries=3\n"));
        QVERIFY(!QFile::exists(path) || QFile::exists(path + ".txt"));

        Faults::linkError = linkError;
        QCOMPARE(quarantine.put("order.xml", noteFor("ledger")), QString("order.xml"));
        QCOMPARE(allNames(spool), QStringList({"order.xml", "order.xml.txt"}));
        QCOMPARE(readFile(path), QByteArray("<nonsense"));
        QVERIFY(spool.quarantineText("order.xml").endsWith("\ntries=3\n"));
    }
    QVERIFY2(step > 6, QByteArray::number(step));
}

void TestQuarantine::failedSyncLeavesNoDuplicate_data()
{
    interruptionLeavesNoDuplicate_data();
}

void TestQuarantine::failedSyncLeavesNoDuplicate()
{
    QFETCH(const int, linkError);
    QVERIFY(_spool->put("order"));
    const Quarantine quarantine = defaultFor(*_spool);
    Faults::linkError = linkError;
    Faults::syncError = EIO;
    for (int time = 0; time < 2; ++time) {
        const QString failure = failureText([&] { quarantine.put("order", noteFor("ledger")); });
        QCOMPARE(failure, kitText("QuarantineFailed", QString("order"), directoryOf(*_spool),
                                  systemErrorText(EIO)));
    }
    Faults::syncError = 0;
    QCOMPARE(quarantine.put("order", noteFor("ledger")), QString("order"));
    QCOMPARE(allNames(*_spool), QStringList({"order", "order.txt"}));
}

void TestQuarantine::foreignFileIsNotTakenForTheCopy()
{
    QVERIFY(_spool->put("order", "mine"));
    const Quarantine quarantine = defaultFor(*_spool);
    Faults::linkError = EXDEV;
    quarantine.put("order", noteFor("ledger"));
    QVERIFY(writeFile(_spool->pathOf(".kez/quarantine/order"), "his."));
    QCOMPARE(quarantine.put("order", noteFor("ledger")), QString("order~2"));
    QCOMPARE(readFile(_spool->pathOf(".kez/quarantine/order")), QByteArray("his."));
    QCOMPARE(readFile(_spool->pathOf(".kez/quarantine/order~2")), QByteArray("mine"));
}

void TestQuarantine::linkedFileIsKept_data()
{
    interruptionLeavesNoDuplicate_data();
}

void TestQuarantine::linkedFileIsKept()
{
    QFETCH(const int, linkError);
    QVERIFY(writeFile(_spool->beside("target"), "content"));
    QVERIFY(QFile::link(_spool->beside("target"), _spool->pathOf("order")));
    const Quarantine quarantine = defaultFor(*_spool);
    Faults::linkError = linkError;
    QCOMPARE(quarantine.put("order", noteFor("ledger")), QString("order"));
    const QFileInfo there(_spool->pathOf(".kez/quarantine/order"));
    QVERIFY(!there.isSymLink()); // the content stays when the link's target goes
    QVERIFY(QFile::remove(_spool->beside("target")));
    QCOMPARE(readFile(there.filePath()), QByteArray("content"));
}

void TestQuarantine::vanishedFileFails()
{
    const Quarantine quarantine = defaultFor(*_spool);
    QVERIFY(QFile::link("nowhere", _spool->pathOf("dangling")));
    for (const QString name : {"gone", "dangling"}) {
        const QString failure = failureText([&] { quarantine.put(name, noteFor("ledger")); });
        QCOMPARE(failure,
                 kitText("QuarantineFailed", name, directoryOf(*_spool), systemErrorText(ENOENT)));
    }
    QCOMPARE(allNames(*_spool), QStringList());
}

void TestQuarantine::removedDirectoryIsMadeAgain()
{
    QVERIFY(_spool->put("order"));
    const Quarantine quarantine = defaultFor(*_spool);
    QVERIFY(QDir(directoryOf(*_spool)).removeRecursively());
    QCOMPARE(quarantine.put("order", noteFor("ledger")), QString("order"));
    QCOMPARE(allNames(*_spool), QStringList({"order", "order.txt"}));
}

void TestQuarantine::otherDirectoryIsNotMade()
{
    QVERIFY(_spool->put("order"));
    const QString directory = _spool->beside("bad");
    QVERIFY(QDir().mkdir(directory));
    const Quarantine quarantine(_spool->path(), directory);
    QVERIFY(QDir().rmdir(directory)); // perhaps a file system that is not mounted
    QCOMPARE(failureText([&] { quarantine.put("order", noteFor("ledger")); }),
             kitText("QuarantineFailed", QString("order"), directory, systemErrorText(ENOENT)));
    QVERIFY(!QFile::exists(directory));
    QVERIFY(QDir().mkdir(directory));
    QCOMPARE(quarantine.put("order", noteFor("ledger")), QString("order"));
}

void TestQuarantine::directoryThatCannotBeUsedIsRefused()
{
    const auto refusal = [this](const QString& directory) {
        return failureText([&] { Quarantine(_spool->path(), directory); });
    };
    const QString absent = _spool->beside("absent");
    QCOMPARE(refusal(absent), kitText("QuarantineUnusable", absent, systemErrorText(ENOTDIR)));
    const QString file = _spool->beside("file");
    QVERIFY(writeFile(file, "x"));
    QCOMPARE(refusal(file), kitText("QuarantineUnusable", file, systemErrorText(ENOTDIR)));
    // What is put there would enter the queue again.
    QCOMPARE(refusal(_spool->path()), kitText("QuarantineIsSpool", _spool->path()));
    const QString link = _spool->beside("link");
    QVERIFY(QFile::link(_spool->path(), link));
    QCOMPARE(refusal(link), kitText("QuarantineIsSpool", link));
    QCOMPARE(refusal(QString()), // ".kez" is not there
             kitText("QuarantineUnusable", directoryOf(*_spool), systemErrorText(ENOENT)));
}

void TestQuarantine::missingRightsRefuseOrFail()
{
    const ChildResult child = runChild({"rights"});
    COMPARE_CHILD(child, "refused\nfailed\nempty\nput\n");
}

namespace {

/// Rights of the quarantine are missing at the beginning, and while it is used.
int loseRights()
{
    if (!becomeOrdinaryUser())
        return 1;
    const Spool spool;
    spool.put("order");
    const QString directory = spool.beside("bad");
    QDir().mkdir(directory);
    const auto allow = [&directory](mode_t mode) {
        ::chmod(QFile::encodeName(directory).constData(), mode);
    };
    const QString denied = systemErrorText(EACCES);
    allow(0500);
    if (failureText([&] { Quarantine(spool.path(), directory); }) ==
        kitText("QuarantineUnusable", directory, denied))
        say(QString("refused"));
    allow(0700);
    const Quarantine quarantine(spool.path(), directory);
    allow(0500);
    if (failureText([&] { quarantine.put("order", noteFor("ledger")); }) ==
        kitText("QuarantineFailed", QString("order"), directory, denied))
        say(QString("failed"));
    if (QDir(directory).entryList(QDir::Files | QDir::Hidden).isEmpty())
        say(QString("empty"));
    allow(0700);
    if (quarantine.put("order", noteFor("ledger")) == "order")
        say(QString("put"));
    return 0;
}

int childMain(const QStringList& arguments)
{
    if (arguments.at(0) == "rights")
        return loseRights();
    const Quarantine quarantine(arguments.at(1), QString());
    Faults::linkError = arguments.at(2).toInt();
    Faults::callsLeft = arguments.at(3).toInt();
    quarantine.put("order.xml", noteFor("ledger"));
    return 0;
}

} // namespace

KEZ_TEST_MAIN_WITH_CHILDREN(TestQuarantine, childMain)
#include "tst_quarantine.moc"
