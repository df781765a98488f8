// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/gatekeeper_p.h"
#include "service/growingfiles_p.h"
#include "service/kittexts_p.h"
#include "support/childprocess.h"
#include "support/spool.h"
#include "support/spoolfaults.h"

#include <QScopeGuard>
#include <QThread>
#include <QtTest>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <memory>
#include <optional>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

using namespace KezService;
using namespace std::chrono_literals;

namespace {

using Kind = GateReport::Kind;
using Completeness = ArrivalGate::Completeness;
using SpoolFaults::Call;

/// While a gate is tested, the monotonic clock of its thread stands still at this time.
thread_local std::optional<std::chrono::nanoseconds> now;

/// So much is the wall clock of the thread ahead of the time of files.
thread_local std::chrono::seconds ageOfFiles(0);

/// The error that inotify_add_watch() answers; 0 for the true answer.
int watchError = 0;

/// The error that leases meet; 0 for the true answer.
int leaseError = 0;

/// The number of files that were looked at.
int statusCalls = 0;

/// A gate, its two directories, and what it reports.
class Gate {
public:
    explicit Gate(Completeness completeness = Completeness::Quiet,
                  Delivery::NameTaken ifTaken = Delivery::NameTaken::FreshName)
    {
        now = std::chrono::hours(1);
        QDir().mkdir(incoming());
        settings.incoming = incoming();
        settings.queueDirectory = spool.path();
        settings.completeness = completeness;
        settings.ifTaken = ifTaken;
        start();
    }

    void start() { keeper = std::make_unique<Gatekeeper>(settings); }

    QString incoming() const { return spool.beside("in"); }
    QString incoming(const QString& name) const { return incoming() + '/' + name; }
    bool write(const QString& name, const QByteArray& bytes = "x") const
    {
        return writeFile(incoming(name), bytes);
    }
    bool has(const QString& name) const { return QFile::exists(incoming(name)); }

    /// What the gate does at this time, as short texts.
    QStringList run()
    {
        QStringList texts;
        do {
            keeper->readEvents();
            keeper->work();
            for (const GateReport& report : keeper->takeReports())
                texts.append(textOf(report));
        } while (keeper->idleTime() == 0ms);
        return texts;
    }
    QStringList runAfter(std::chrono::nanoseconds time)
    {
        *now += time;
        return run();
    }

    static QStringList handedOn(const QStringList& names)
    {
        QStringList texts;
        for (const QString& name : names)
            texts.append("handed on " + name + " as " + name);
        return texts;
    }

    Spool spool;
    ArrivalGate::Settings settings;
    std::unique_ptr<Gatekeeper> keeper;

private:
    static QString textOf(const GateReport& report)
    {
        switch (report.kind) {
        case Kind::HandedOn:
            return "handed on " + report.name + " as " + report.text;
        case Kind::Refused:
            return "refused " + report.name + ": " + report.text;
        case Kind::NameRefused:
            return "name refused " + report.name + ": " + report.text;
        case Kind::WatchRefused:
            return "watch refused: " + report.text;
        case Kind::LeftoversRemoved:
            return "leftovers removed: " + report.text;
        case Kind::LeftoversStay:
            return "leftovers stay: " + report.text;
        case Kind::Hindered:
            return "hindered: " + report.text;
        case Kind::Resumed:
            return "resumed";
        }
        return {};
    }
};

QString systemFailure(const QString& path, int error)
{
    return kitText("SystemFailure", path, systemErrorText(error));
}

bool setTimes(const QString& path, const QDateTime& modified)
{
    QFile file(path);
    return file.open(QIODevice::ReadWrite | QIODevice::ExistingOnly) &&
           file.setFileTime(modified, QFileDevice::FileModificationTime);
}

/// Waits until the clock of the file system is another one than the time of the file's last change.
void waitForNextTime(const QString& path)
{
    struct stat before {};
    ::stat(QFile::encodeName(path).constData(), &before);
    struct stat after = before;
    const QString other = path + ".part";
    while (after.st_ctim.tv_sec == before.st_ctim.tv_sec &&
           after.st_ctim.tv_nsec == before.st_ctim.tv_nsec) {
        writeFile(other, "x");
        ::stat(QFile::encodeName(other).constData(), &after);
    }
    QFile::remove(other);
}

/// The queue's directory is on another file system, within which a copy is renamed.
class OtherFileSystem {
public:
    int errorOf(const Call& call)
    {
        if (call.function == "create" && call.path.endsWith(".0"))
            _isCopying = true;
        if (call.function != "renameat2" || call.path.contains("/in/"))
            return 0;
        return std::exchange(_isCopying, false) ? 0 : EXDEV;
    }

private:
    bool _isCopying = false;
};

constexpr int NotForThisUser = 77;

#define EXPECT(condition)                                                                          \
    if (!(condition)) {                                                                            \
        fprintf(stderr, "line %d: %s\n", __LINE__, #condition);                                    \
        return 1;                                                                                  \
    }

/// A file that the process may not read is said once, and looked at again when it changes.
int childWithoutRightsOnFiles()
{
    EXPECT(becomeOrdinaryUser());
    for (const bool isByMarker : {false, true}) {
        Gate gate(isByMarker ? Completeness::Marker : Completeness::Quiet);
        const auto setMode = [&](mode_t mode) {
            return ::chmod(QFile::encodeName(gate.incoming("a")).constData(), mode) == 0;
        };
        EXPECT(gate.write("a") && gate.write("b") && setMode(0));
        EXPECT(!isByMarker || (gate.write("a.done") && gate.write("b.done")));
        QStringList texts = gate.run();
        texts += gate.runAfter(2s);
        texts.sort();
        const QString reason = kitText("DeliverySourceUnreadable", gate.incoming("a"));
        EXPECT(texts == Gate::handedOn({"b"}) + QStringList("refused a: " + reason));
        for (int second = 0; second < 100; ++second) {
            EXPECT(second != 50 || setMode(0200)); // a change that does not help
            EXPECT(gate.runAfter(1s).isEmpty());
        }
        EXPECT(gate.has("a") && gate.spool.visible() == QStringList("b"));
        EXPECT(setMode(0444)); // it helps, although a queue would not take the file as it is
        texts = gate.run();
        texts += gate.runAfter(2s);
        EXPECT(texts == Gate::handedOn({"a"}));
        EXPECT(QDir(gate.incoming()).entryList(QDir::Files).isEmpty());
        EXPECT(Spool::modeOf(gate.spool.path("a")) == 0644 && gate.spool.growing().isEmpty());
    }
    return 0;
}

/// Both gates have to copy, and the second one comes in while the first one has its copy ready.
int childWithTwoGates()
{
    constexpr int Count = 20;
    EXPECT(becomeOrdinaryUser());
    Gate gate;
    Gatekeeper other(gate.settings);
    for (int i = 0; i < Count; ++i) {
        const QString name = QString::number(i);
        EXPECT(gate.write(name));
        EXPECT(::chmod(QFile::encodeName(gate.incoming(name)).constData(), 0444) == 0);
    }
    gate.run();
    other.work();
    *now += 2s;
    SpoolFaults::watch(QFile::encodeName(gate.spool.path()));
    SpoolFaults::before = [&, calls = 0](const Call& call, qsizetype) mutable {
        if (call.function == "renameat2" && ++calls == Count / 2)
            other.work();
        return 0;
    };
    gate.run();
    SpoolFaults::reset();
    for (int second = 0; second < 10; ++second) {
        gate.runAfter(1s);
        other.work();
    }
    EXPECT(gate.spool.visible().size() == Count && gate.spool.growing().isEmpty());
    EXPECT(QDir(gate.incoming()).entryList(QDir::Files).isEmpty());
    return 0;
}

/// What the gate gets from a producer that is another user: root plays it. Before it ends, the
/// child acts as root again, to remove what it made.
int childBesideOthers()
{
    constexpr uid_t Nobody = 65534;
    if (::geteuid() != 0)
        return NotForThisUser;
    EXPECT(::seteuid(Nobody) == 0);
    Gate gate;
    const auto rootAgain = qScopeGuard([] { (void)!::seteuid(0); });
    const auto writeAsRoot = [&](const QString& name, mode_t mode) {
        const QByteArray path = QFile::encodeName(gate.incoming(name));
        return ::seteuid(0) == 0 && gate.write(name) && ::chmod(path.constData(), mode) == 0 &&
               ::seteuid(Nobody) == 0;
    };
    EXPECT(writeAsRoot("scan", 0644));
    gate.run();
    EXPECT(gate.runAfter(2s) == Gate::handedOn({"scan"}));
    struct stat status {};
    EXPECT(::stat(QFile::encodeName(gate.spool.path("scan")).constData(), &status) == 0);
    EXPECT(status.st_uid == Nobody && !gate.has("scan"));

    EXPECT(writeAsRoot("secret", 0600));
    gate.run();
    const QString secret = kitText("DeliverySourceUnreadable", gate.incoming("secret"));
    EXPECT(gate.runAfter(2s) == QStringList("refused secret: " + secret));

    // Copied again and again, if this were not seen before.
    EXPECT(writeAsRoot("stuck", 0644) && ::seteuid(0) == 0);
    const QByteArray directory = QFile::encodeName(gate.incoming());
    EXPECT(::chown(directory.constData(), 0, 0) == 0 && ::chmod(directory.constData(), 01777) == 0);
    EXPECT(::seteuid(Nobody) == 0);
    gate.run();
    EXPECT(gate.runAfter(2s) == QStringList("refused stuck: " + kitText("DeliverySourceSticky")));
    for (int second = 0; second < 30; ++second)
        EXPECT(gate.runAfter(1s).isEmpty());
    EXPECT(gate.spool.visible() == QStringList("scan"));
    return 0;
}

/// A user without rights on the directories.
int childWithoutRightsOnDirectories()
{
    EXPECT(becomeOrdinaryUser());
    Gate gate;
    EXPECT(gate.write("c") && gate.write("d"));
    EXPECT(::chmod(QFile::encodeName(gate.incoming()).constData(), 0500) == 0);
    gate.run();
    EXPECT(gate.runAfter(2s).size() == 1);
    EXPECT(gate.runAfter(1s).isEmpty() && gate.runAfter(2s).isEmpty());
    EXPECT(::chmod(QFile::encodeName(gate.incoming()).constData(), 0700) == 0);
    const QStringList texts = gate.runAfter(20s);
    EXPECT(texts.contains("resumed") && texts.size() == 3);

    EXPECT(::chmod(QFile::encodeName(gate.incoming()).constData(), 0300) == 0);
    EXPECT(gate.runAfter(20s) ==
           QStringList("hindered: " + systemFailure(gate.incoming(), EACCES)));
    EXPECT(gate.write("e") && gate.run().isEmpty());
    EXPECT(::chmod(QFile::encodeName(gate.incoming()).constData(), 0700) == 0);
    EXPECT(gate.runAfter(1s) == QStringList("resumed"));
    EXPECT(gate.runAfter(2s) == Gate::handedOn({"e"}));

    // Only the place where copies grow has lost its rights.
    EXPECT(gate.write("f") && gate.write("g") && gate.write("h"));
    gate.run();
    EXPECT(QDir().mkpath(gate.spool.incoming()));
    EXPECT(::chmod(QFile::encodeName(gate.spool.incoming()).constData(), 0500) == 0);
    SpoolFaults::watch(QFile::encodeName(gate.spool.path()));
    SpoolFaults::before = [fault = OtherFileSystem()](const Call& call, qsizetype) mutable {
        return fault.errorOf(call);
    };
    const QString place = "hindered: " + systemFailure(gate.spool.incoming(), EACCES);
    EXPECT(gate.runAfter(2s) == QStringList(place));
    EXPECT(gate.runAfter(1s).isEmpty() && gate.runAfter(2s).isEmpty());
    EXPECT(::chmod(QFile::encodeName(gate.spool.incoming()).constData(), 0700) == 0);
    QStringList others;
    for (int second = 0; second < 20; ++second)
        others += gate.runAfter(1s);
    EXPECT(others.size() == 4 && others.first() == "resumed");
    return 0;
}

int childMain(const QStringList& arguments)
{
    const QHash<QString, int (*)()> children = {{"files", childWithoutRightsOnFiles},
                                                {"two gates", childWithTwoGates},
                                                {"others", childBesideOthers},
                                                {"directories", childWithoutRightsOnDirectories}};
    return children.value(arguments.value(0))();
}

} // namespace

extern "C" {

int clock_gettime(clockid_t id, struct timespec* result) noexcept
{
    static const auto original = interposed<int (*)(clockid_t, struct timespec*)>("clock_gettime");
    const int status = original(id, result);
    if (now && id == CLOCK_MONOTONIC) {
        result->tv_sec = *now / 1s;
        result->tv_nsec = (*now % 1s).count();
    }
    if (id == CLOCK_REALTIME)
        result->tv_sec += ageOfFiles.count();
    return status;
}

int inotify_add_watch(int queue, const char* path, std::uint32_t mask) noexcept
{
    static const auto original =
        interposed<int (*)(int, const char*, std::uint32_t)>("inotify_add_watch");
    errno = watchError;
    return watchError != 0 ? -1 : original(queue, path, mask);
}

int lstat(const char* path, struct stat* result) noexcept
{
    static const auto original = interposed<int (*)(const char*, struct stat*)>("lstat");
    ++statusCalls;
    return original(path, result);
}

#define KEZ_INTERPOSE_FCNTL(name)                                                                  \
    int name(int file, int command, ...)                                                           \
    {                                                                                              \
        static const auto original = interposed<int (*)(int, int, ...)>(#name);                    \
        va_list arguments;                                                                         \
        va_start(arguments, command);                                                              \
        void* const argument = va_arg(arguments, void*);                                           \
        va_end(arguments);                                                                         \
        if (command == F_SETLEASE && leaseError != 0) {                                            \
            errno = leaseError;                                                                    \
            return -1;                                                                             \
        }                                                                                          \
        return original(file, command, argument);                                                  \
    }
KEZ_INTERPOSE_FCNTL(fcntl)
KEZ_INTERPOSE_FCNTL(fcntl64)
}

class TestGatekeeper : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void quietFileIsHandedOn();
    void changeBeginsThePeriodAnew_data();
    void changeBeginsThePeriodAnew();
    void fileThatSomebodyWritesWaits();
    void quietPeriodDecidesWhereLeasesDoNotWork_data();
    void quietPeriodDecidesWhereLeasesDoNotWork();
    void fileIsSyncedAndManyShareOneSync();
    void whatIsNotMeantForOthersIsLeftAlone_data();
    void whatIsNotMeantForOthersIsLeftAlone();
    void oddNamesAreHandedOn();
    void nameThatIsNotUtf8IsSaidOnce();
    void takenNameGetsANumber();
    void takenNameWaitsIfAsked();
    void pausesGrow();
    void helpedFileIsTriedAtOnce();
    void fileThatVanishesIsForgotten();
    void queueThatVanishesIsSaidOnce();
    void incomingThatVanishesIsSaidOnce();
    void incomingThatIsReplacedIsFollowed();
    void incomingThatBecomesTheQueueIsRefused();
    void fullDiskIsSaidOnceForAllFiles();
    void copyThatDoesNotFitLetsOthersPass();
    void sourceThatStaysIsHandedOnOnce();
    void newFileIsNotRemovedInsteadOfTheCopiedOne();
    void fileHiddenByACrashComesBack_data();
    void fileHiddenByACrashComesBack();
    void fileThatALivingProcessHidesStays();
    void handedOnIsSaidOnceItIsOnTheDisk();
    void oneEventCostsOneLook();
    void lostEventsAreMadeUpFor();
    void watchThatIsRefusedIsReplacedByLooks();
    void twoGatesHandOnEachFileOnce();
    void rightsDecide_data();
    void rightsDecide();
    void leftoversAreRemovedAtTheStart_data();
    void leftoversAreRemovedAtTheStart();
    void leftoversAreRemovedEveryHour();
    void leftoversThatStayAreSaidOnce();
    void interruptedThreadRests();
    void markedFileIsHandedOn();
    void markedFileMayBeThereBefore();
    void fileWithoutMarkerWaits();
    void markerWithoutFileWaits();
    void forgottenMarkerDoesNotVouchForTheNextFile();
    void markerThatIsTouchedCountsAgain();
    void markerCountsInSpiteOfOddTimes();
    void markerIsRemovedAfterACrash();
    void claimedMarkerStillCountsAfterACrash();
    void markerWithoutRoomForAClaim();
    void markerOfTheNextFileStaysWithoutRoomForAClaim();
    void markedTemporaryNameIsLeftAlone();
    void markerIsNotHandedOn();
    void markerStaysUntilTheFileIsHandedOn();
};

void TestGatekeeper::cleanup()
{
    SpoolFaults::reset();
    watchError = leaseError = 0;
    ageOfFiles = 0s;
    now.reset();
}

void TestGatekeeper::quietFileIsHandedOn()
{
    Gate gate;
    QVERIFY(gate.write("early"));
    QCOMPARE(gate.run(), QStringList());
    QVERIFY(gate.write("late"));
    QCOMPARE(gate.runAfter(1s), QStringList());
    QCOMPARE(gate.runAfter(1s), Gate::handedOn({"early"}));
    QVERIFY(!gate.has("early") && gate.has("late"));
    QCOMPARE(gate.runAfter(1s), Gate::handedOn({"late"}));
    QCOMPARE(gate.spool.visible(), QStringList({"early", "late"}));
    QCOMPARE(gate.runAfter(1h), QStringList());
}

void TestGatekeeper::changeBeginsThePeriodAnew_data()
{
    QTest::addColumn<QString>("change");
    for (const char* change : {"append", "touch", "replace", "rights", "remove and write"})
        QTest::newRow(change) << change;
}

/// Also where no event tells of it.
void TestGatekeeper::changeBeginsThePeriodAnew()
{
    QFETCH(const QString, change);
    for (const bool isWatching : {true, false}) {
        Gate gate;
        watchError = isWatching ? 0 : EINVAL;
        QVERIFY(gate.write("a", "old"));
        gate.run();
        for (int round = 0; round < 3; ++round) {
            *now += 1900ms;
            waitForNextTime(gate.incoming("a"));
            QFile file(gate.incoming("a"));
            if (change == "append")
                QVERIFY(file.open(QIODevice::Append) && file.write("x") == 1);
            else if (change == "touch")
                QVERIFY(setTimes(gate.incoming("a"), QDateTime::currentDateTime().addDays(-round)));
            else if (change == "replace")
                QVERIFY(gate.write(".a") && file.remove() &&
                        QFile::rename(gate.incoming(".a"), gate.incoming("a")));
            else if (change == "rights")
                QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::Permission(1 << round)));
            else
                QVERIFY(file.remove() && gate.write("a", "new"));
            file.close();
            QCOMPARE(gate.run(), QStringList());
            if (!isWatching) // it is seen at the end of the period
                QCOMPARE(gate.runAfter(100ms), QStringList());
        }
        QCOMPARE(gate.runAfter(1900ms), QStringList());
        QCOMPARE(gate.runAfter(100ms), Gate::handedOn({"a"}));
        cleanup();
    }
}

void TestGatekeeper::fileThatSomebodyWritesWaits()
{
    Gate gate;
    QFile file(gate.incoming("a"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    for (int second = 0; second < 100; ++second)
        QCOMPARE(gate.runAfter(1s), QStringList());
    QVERIFY(file.write("end") == 3);
    file.close();
    QCOMPARE(gate.run(), QStringList());
    QCOMPARE(gate.runAfter(2s), Gate::handedOn({"a"}));
    QCOMPARE(gate.spool.content("a"), QByteArray("end"));
}

void TestGatekeeper::quietPeriodDecidesWhereLeasesDoNotWork_data()
{
    QTest::addColumn<int>("error");
    QTest::newRow("another user's file") << EACCES;
    QTest::newRow("file system without leases") << EINVAL;
    QTest::newRow("no locks") << ENOLCK;
}

void TestGatekeeper::quietPeriodDecidesWhereLeasesDoNotWork()
{
    QFETCH(const int, error);
    leaseError = error;
    Gate gate;
    QFile file(gate.incoming("a"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    gate.run();
    QCOMPARE(gate.runAfter(1900ms), QStringList());
    QCOMPARE(gate.runAfter(100ms), Gate::handedOn({"a"}));
}

void TestGatekeeper::fileIsSyncedAndManyShareOneSync()
{
    Gate gate;
    for (int i = 0; i < 20; ++i)
        QVERIFY(gate.write(QString::number(i)));
    gate.run();
    SpoolFaults::watch(QFile::encodeName(gate.spool.beside(".")).chopped(2));
    QCOMPARE(gate.runAfter(2s).size(), 20);
    SpoolFaults::watched.clear();
    const QByteArrayList calls = SpoolFaults::summary({"fsync", "renameat2"});
    QCOMPARE(calls.count("fsync spool"), 1);
    QCOMPARE(calls.count("fsync in"), 1);
    for (int i = 0; i < 20; ++i) {
        const qsizetype sync = calls.indexOf("fsync " + QByteArray::number(i));
        QVERIFY(sync >= 0);
        QCOMPARE(calls.value(sync + 1), "renameat2 " + QByteArray::number(i));
        QVERIFY(calls.indexOf("fsync spool", sync) > sync);
    }
}

void TestGatekeeper::whatIsNotMeantForOthersIsLeftAlone_data()
{
    QTest::addColumn<bool>("isByMarker");
    QTest::newRow("quiet") << false;
    QTest::newRow("marker") << true;
}

void TestGatekeeper::whatIsNotMeantForOthersIsLeftAlone()
{
    QFETCH(const bool, isByMarker);
    Gate gate(isByMarker ? Completeness::Marker : Completeness::Quiet);
    const QStringList files = {".hidden", "a.part", "a.tmp", "a~"};
    const auto makeAll = [&](const QString& prefix) {
        for (const QString& name : files)
            if (!gate.write(name.startsWith('.') ? name + prefix : prefix + name))
                return false;
        const QByteArray fifo = QFile::encodeName(gate.incoming(prefix + "fifo"));
        return QDir().mkdir(gate.incoming(prefix + "directory")) &&
               QFile::link(gate.incoming("a~"), gate.incoming(prefix + "link")) &&
               ::mkfifo(fifo.constData(), 0600) == 0;
    };
    QVERIFY(makeAll("early"));
    QCOMPARE(gate.run(), QStringList());
    QVERIFY(makeAll("late"));
    if (isByMarker) {
        for (const char* name : {"latefifo", "latedirectory", "latelink", "latea.tmp"})
            QVERIFY(gate.write(QString(name) + ".done"));
    }
    for (int second = 0; second < 20; ++second)
        QCOMPARE(gate.runAfter(1s), QStringList());
    QCOMPARE(gate.spool.visible(), QStringList());
    QCOMPARE(QDir(gate.incoming())
                 .entryList(QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot)
                 .size(),
             14 + (isByMarker ? 4 : 0));
}

void TestGatekeeper::oddNamesAreHandedOn()
{
    const QStringList names = {
        "-rf", "a\nb", QString(255, 'n'), QString(127, QChar(0xE9)), QString(QChar(0xFEFF)) + "bom",
        "%1%2"};
    Gate gate;
    for (const QString& name : names)
        QVERIFY(gate.write(name));
    gate.run();
    QStringList texts = gate.runAfter(2s);
    QStringList expected = Gate::handedOn(names);
    texts.sort();
    expected.sort();
    QCOMPARE(texts, expected);
}

void TestGatekeeper::nameThatIsNotUtf8IsSaidOnce()
{
    Gate gate;
    const QByteArray path = QFile::encodeName(gate.incoming()) + "/\xE9t\xE9\n";
    const auto make = [&] {
        const int file = ::open(path.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        return file >= 0 && ::close(file) == 0;
    };
    QVERIFY(make());
    const QStringList said("name refused \\xe9t\\xe9\n: " + kitText("DeliveryNameNotUtf8"));
    QCOMPARE(gate.run(), said);
    QVERIFY(make());
    for (int round = 0; round < 3; ++round)
        QCOMPARE(gate.runAfter(10s), QStringList());
    QCOMPARE(::access(path.constData(), F_OK), 0);
    QCOMPARE(::unlink(path.constData()), 0);
    QCOMPARE(gate.runAfter(10s), QStringList());
    QVERIFY(make());
    QCOMPARE(gate.run(), said);
    QCOMPARE(::unlink(path.constData()), 0); // QTemporaryDir cannot remove it
}

void TestGatekeeper::takenNameGetsANumber()
{
    Gate gate;
    QVERIFY(writeFile(gate.spool.path("a.xml"), "old") && gate.write("a.xml", "new"));
    gate.run();
    QCOMPARE(gate.runAfter(2s), QStringList("handed on a.xml as a~2.xml"));
    QCOMPARE(gate.spool.content("a.xml"), QByteArray("old"));
    QCOMPARE(gate.spool.content("a~2.xml"), QByteArray("new"));
}

void TestGatekeeper::takenNameWaitsIfAsked()
{
    Gate gate(Completeness::Quiet, Delivery::NameTaken::Refuse);
    QVERIFY(writeFile(gate.spool.path("a"), "old") && gate.write("a", "new") && gate.write("b"));
    gate.run();
    QStringList texts = gate.runAfter(2s);
    texts.sort();
    QCOMPARE(texts,
             Gate::handedOn({"b"}) + QStringList("refused a: " + kitText("DeliveryNameTaken")));
    for (int second = 0; second < 20; ++second)
        QCOMPARE(gate.runAfter(1s), QStringList());
    QVERIFY(QFile::remove(gate.spool.path("a")));
    QCOMPARE(gate.runAfter(16s), Gate::handedOn({"a"}));
    QCOMPARE(gate.spool.content("a"), QByteArray("new"));
}

void TestGatekeeper::pausesGrow()
{
    Gate gate(Completeness::Quiet, Delivery::NameTaken::Refuse);
    gate.settings.lookPeriod = 24h;
    gate.start();
    QVERIFY(writeFile(gate.spool.path("a"), "old") && gate.write("a", "new"));
    gate.run();
    gate.runAfter(2s);
    for (const int seconds : {1, 2, 4, 8, 16, 32, 64, 128, 256, 300, 300}) {
        const auto idle = gate.keeper->idleTime();
        QCOMPARE(idle.count(), seconds * 1000LL);
        QCOMPARE(gate.runAfter(idle), QStringList());
    }
}

void TestGatekeeper::helpedFileIsTriedAtOnce()
{
    Gate gate(Completeness::Quiet, Delivery::NameTaken::Refuse);
    QVERIFY(writeFile(gate.spool.path("a"), "old") && gate.write("a", "new"));
    gate.run();
    for (int second = 0; second < 100; ++second)
        gate.runAfter(1s);
    QVERIFY(QFile::remove(gate.spool.path("a")) && gate.write("a", "newer"));
    gate.run();
    QCOMPARE(gate.runAfter(2s), Gate::handedOn({"a"}));
}

void TestGatekeeper::fileThatVanishesIsForgotten()
{
    Gate gate;
    QVERIFY(gate.write("a"));
    gate.run();
    QVERIFY(QFile::remove(gate.incoming("a")));
    QCOMPARE(gate.runAfter(2s), QStringList());
    QVERIFY(gate.write("a"));
    QCOMPARE(gate.run(), QStringList());
    QCOMPARE(gate.runAfter(2s), Gate::handedOn({"a"}));
}

void TestGatekeeper::queueThatVanishesIsSaidOnce()
{
    Gate gate;
    QVERIFY(QDir(gate.spool.path()).removeRecursively());
    for (int i = 0; i < 5; ++i)
        QVERIFY(gate.write(QString::number(i)));
    gate.run();
    const QStringList texts = gate.runAfter(2s);
    QCOMPARE(texts.size(), 1);
    QVERIFY2(texts.first().startsWith("hindered: " + gate.spool.path() + '/') &&
                 texts.first().endsWith(systemErrorText(ENOENT)),
             qPrintable(texts.first()));
    for (int second = 0; second < 30; ++second)
        QCOMPARE(gate.runAfter(1s), QStringList());
    QVERIFY(QDir().mkdir(gate.spool.path()));
    QStringList all;
    for (int second = 0; second < 64; ++second)
        all += gate.runAfter(1s);
    all.sort();
    QCOMPARE(all, Gate::handedOn({"0", "1", "2", "3", "4"}) + QStringList("resumed"));
}

void TestGatekeeper::incomingThatVanishesIsSaidOnce()
{
    Gate gate;
    QCOMPARE(gate.run(), QStringList());
    QVERIFY(QDir(gate.incoming()).removeRecursively());
    const QString gone = "hindered: " + systemFailure(gate.incoming(), ENOENT);
    QCOMPARE(gate.runAfter(200ms), QStringList(gone));
    for (int second = 0; second < 30; ++second)
        QCOMPARE(gate.runAfter(1s), QStringList());
    QVERIFY(QDir().mkdir(gate.incoming()) && gate.write("a"));
    QStringList texts;
    for (int second = 0; second < 34; ++second)
        texts += gate.runAfter(1s);
    QCOMPARE(texts, QStringList("resumed") + Gate::handedOn({"a"}));
    QVERIFY(gate.write("b"));
    gate.run();
    QCOMPARE(gate.runAfter(2s), Gate::handedOn({"b"}));
}

void TestGatekeeper::incomingThatIsReplacedIsFollowed()
{
    Gate gate;
    gate.run();
    QVERIFY(QDir().rename(gate.incoming(), gate.spool.beside("before")));
    QVERIFY(QDir().mkdir(gate.incoming()));
    QVERIFY(gate.write("a") && writeFile(gate.spool.beside("before/b"), "x"));
    QCOMPARE(gate.runAfter(200ms), QStringList());
    QCOMPARE(gate.runAfter(2s), Gate::handedOn({"a"}));
    QVERIFY(gate.write("c"));
    QVERIFY(writeFile(gate.spool.beside("before/d"), "x"));
    gate.run();
    QCOMPARE(gate.runAfter(2s), Gate::handedOn({"c"}));
    QCOMPARE(QDir(gate.spool.beside("before")).entryList(QDir::Files), QStringList({"b", "d"}));
}

void TestGatekeeper::incomingThatBecomesTheQueueIsRefused()
{
    Gate gate;
    QVERIFY(writeFile(gate.spool.path("a"), "x"));
    QVERIFY(QDir().rmdir(gate.incoming()) && QFile::link(gate.spool.path(), gate.incoming()));
    QCOMPARE(gate.run(), QStringList("hindered: " + kitText("GateSameDirectory", gate.incoming())));
    for (int second = 0; second < 10; ++second)
        QCOMPARE(gate.runAfter(1s), QStringList());
    QCOMPARE(gate.spool.visible(), QStringList("a"));
}

void TestGatekeeper::fullDiskIsSaidOnceForAllFiles()
{
    Gate gate;
    for (int i = 0; i < 50; ++i)
        QVERIFY(gate.write(QString::number(i)));
    gate.run();
    SpoolFaults::watch(QFile::encodeName(gate.spool.path()));
    bool isFull = true;
    SpoolFaults::before = [&](const Call& call, qsizetype) {
        return isFull && call.function == "renameat2" ? ENOSPC : 0;
    };
    QCOMPARE(gate.runAfter(2s).size(), 1);
    for (int second = 0; second < 30; ++second)
        QCOMPARE(gate.runAfter(1s), QStringList());
    // After 2, 3, 5, 9 and 17 seconds: one file each.
    QCOMPARE(SpoolFaults::summary({"renameat2"}).size(), 5);
    isFull = false;
    QStringList texts;
    for (int second = 0; second < 64; ++second)
        texts += gate.runAfter(1s);
    QCOMPARE(texts.size(), 51);
    QCOMPARE(texts.first(), QString("resumed"));
}

void TestGatekeeper::copyThatDoesNotFitLetsOthersPass()
{
    Gate gate;
    QVERIFY(gate.write("big", QByteArray(100000, 'b')));
    gate.run();
    *now += 1ms;
    QVERIFY(gate.write("small"));
    gate.run();
    SpoolFaults::watch(QFile::encodeName(gate.spool.path()));
    SpoolFaults::before = [fault = OtherFileSystem()](const Call& call, qsizetype) mutable {
        struct stat status {};
        ::stat(call.path.constData(), &status);
        return call.function == "write" && status.st_size > 60000 ? ENOSPC : fault.errorOf(call);
    };
    QStringList texts = gate.runAfter(2s);
    QCOMPARE(texts.size(), 1);
    QVERIFY2(texts.first().endsWith(systemErrorText(ENOSPC)), qPrintable(texts.first()));
    texts = gate.runAfter(1s);
    SpoolFaults::reset();
    QCOMPARE(texts.mid(0, 2), QStringList({"resumed"}) + Gate::handedOn({"small"}));
    QCOMPARE(gate.spool.visible(), QStringList("small"));
    QCOMPARE(gate.spool.growing(), QStringList());
    QVERIFY(gate.has("big"));
}

/// A copy was handed on, and its source cannot be removed.
void TestGatekeeper::sourceThatStaysIsHandedOnOnce()
{
    Gate gate;
    const QString path = gate.incoming("a");
    QVERIFY(gate.write("a"));
    gate.run();
    SpoolFaults::watch(QFile::encodeName(gate.spool.beside(".")).chopped(2));
    SpoolFaults::before = [&, fault = OtherFileSystem()](const Call& call, qsizetype) mutable {
        const bool isSource = call.path.contains("/in/.a.");
        return call.function == "rename" && isSource ? EPERM : fault.errorOf(call);
    };
    QStringList texts = gate.runAfter(2s);
    texts.sort();
    QCOMPARE(texts,
             Gate::handedOn({"a"}) + QStringList("refused a: " + systemFailure(path, EPERM)));
    for (int second = 0; second < 30; ++second) {
        if (second == 10) // the content is the same
            QCOMPARE(::chmod(QFile::encodeName(path).constData(), 0640), 0);
        QCOMPARE(gate.runAfter(1s), QStringList());
    }
    QVERIFY(gate.has("a"));
    SpoolFaults::reset();
    QCOMPARE(gate.runAfter(32s), QStringList());
    QVERIFY(!gate.has("a"));
    QCOMPARE(gate.spool.visible(), QStringList("a"));
}

/// It takes the name while the gate removes the source of a copy at last.
void TestGatekeeper::newFileIsNotRemovedInsteadOfTheCopiedOne()
{
    Gate gate;
    const QString path = gate.incoming("a");
    QVERIFY(gate.write("a", "old") && gate.write(".b", "new"));
    gate.run();
    SpoolFaults::watch(QFile::encodeName(gate.spool.beside(".")).chopped(2));
    bool isStuck = true;
    SpoolFaults::before = [&, fault = OtherFileSystem()](const Call& call, qsizetype) mutable {
        const bool isRemoval = call.function == "unlink" || call.function == "rename";
        if (isRemoval && call.path.contains("/in/")) {
            if (isStuck)
                return EPERM;
            QFile::remove(path), QFile::rename(gate.incoming(".b"), path);
        }
        return fault.errorOf(call);
    };
    QCOMPARE(gate.runAfter(2s).size(), 2);
    isStuck = false;
    QStringList texts = gate.runAfter(1s);
    SpoolFaults::reset();
    for (int second = 0; second < 5; ++second)
        texts += gate.runAfter(1s);
    QCOMPARE(texts, QStringList("handed on a as a~2"));
    QCOMPARE(gate.spool.content("a"), QByteArray("old"));
    QCOMPARE(gate.spool.content("a~2"), QByteArray("new"));
}

void TestGatekeeper::fileHiddenByACrashComesBack_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("hidden");
    QTest::addColumn<QString>("shown");
    QTest::addColumn<bool>("isTaken");
    QTest::newRow("usual") << "a.xml"
                           << ".a.xml.0123456789abcdef.moved"
                           << "a.xml" << false;
    QTest::newRow("name is taken") << "a.xml"
                                   << ".a.xml.0123456789abcdef.moved"
                                   << "a.xml" << true;
    QTest::newRow("not of this form") << "a.xml"
                                      << ".a.xml.0123456789abcde.moved"
                                      << "" << false;
    QTest::newRow("no number") << "a.xml"
                               << ".a.xml.0123456789abcdeg.moved"
                               << "" << false;
    QTest::newRow("no name") << "a.xml"
                             << "..0123456789abcdef.moved"
                             << "" << false;
    QTest::newRow("other temporary") << "a.xml"
                                     << ".a.xml.swp"
                                     << "" << false;
}

/// The process ended at the moment when it removed the source of a copy.
void TestGatekeeper::fileHiddenByACrashComesBack()
{
    QFETCH(const QString, hidden);
    QFETCH(const QString, shown);
    QFETCH(const bool, isTaken);
    for (const Completeness completeness : {Completeness::Quiet, Completeness::Marker}) {
        Gate gate(completeness);
        QVERIFY(gate.write(hidden, "old"));
        if (completeness == Completeness::Marker && !shown.isEmpty())
            QVERIFY(gate.write(shown + ".done~", {})); // claimed before the crash
        if (isTaken)
            QVERIFY(gate.write(shown, "new"));
        if (isTaken && completeness == Completeness::Marker)
            QVERIFY(gate.write(shown + ".done", {}));
        QStringList texts;
        for (int second = 0; second < 30; ++second)
            texts += gate.runAfter(1s);
        if (shown.isEmpty()) {
            QCOMPARE(texts, QStringList());
            QVERIFY(gate.has(hidden));
            continue;
        }
        QVERIFY(!gate.has(hidden));
        if (!isTaken)
            QCOMPARE(texts, Gate::handedOn({shown}));
        else if (completeness == Completeness::Quiet)
            QCOMPARE(texts, Gate::handedOn({"a.xml", "a~2.xml"}));
        else // the marker went with the new one: the old one is in sight and waits for another
            QCOMPARE(texts, Gate::handedOn({shown}));
        cleanup();
    }
}

void TestGatekeeper::fileThatALivingProcessHidesStays()
{
    const QString hidden = ".a.0123456789abcdef.moved";
    Gate gate;
    QVERIFY(gate.write(hidden));
    QFile file(gate.incoming(hidden));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(::flock(file.handle(), LOCK_EX), 0);
    QCOMPARE(gate.run(), QStringList());
    QCOMPARE(gate.runAfter(20s), QStringList());
    QVERIFY(gate.has(hidden));
    file.close();
    QStringList texts;
    for (int second = 0; second < 20; ++second)
        texts += gate.runAfter(1s);
    QCOMPARE(texts, Gate::handedOn({"a"}));
}

void TestGatekeeper::handedOnIsSaidOnceItIsOnTheDisk()
{
    Gate gate(Completeness::Marker);
    for (const char* name : {"a", "b"})
        QVERIFY(gate.write(name) && gate.write(QString(name) + ".done", {}));
    SpoolFaults::watch(QFile::encodeName(gate.spool.path()));
    bool isBroken = true;
    SpoolFaults::before = [&](const Call& call, qsizetype) {
        return isBroken && call.function == "fsync" && call.path.endsWith("/spool") ? EIO : 0;
    };
    const QString reason = systemFailure(gate.spool.path(), EIO);
    QCOMPARE(gate.run(), QStringList("hindered: " + reason));
    QVERIFY(gate.has("a.done~") && gate.has("b.done~"));
    QVERIFY(gate.write("c") && gate.write("c.done", {}));
    for (int second = 0; second < 30; ++second) {
        QCOMPARE(gate.runAfter(1s), QStringList());
        QVERIFY(gate.keeper->idleTime() > 0ms);
    }
    QVERIFY(gate.has("c")); // nothing goes on meanwhile
    // After 0, 1, 3, 7 and 15 seconds.
    QCOMPARE(SpoolFaults::summary({"fsync"}).count("fsync spool"), 5);
    isBroken = false;
    QStringList texts;
    for (int second = 0; second < 32; ++second)
        texts += gate.runAfter(1s);
    SpoolFaults::reset();
    QCOMPARE(texts.takeFirst(), QString("resumed"));
    texts.sort();
    QCOMPARE(texts, Gate::handedOn({"a", "b", "c"}));
    QCOMPARE(QDir(gate.incoming()).entryList(QDir::Files), QStringList());
}

void TestGatekeeper::oneEventCostsOneLook()
{
    constexpr int Count = 3000;
    Gate gate;
    gate.settings.quietPeriod = 1h;
    gate.start();
    for (int i = 0; i < Count; ++i)
        QVERIFY(gate.write(QString::number(i)));
    statusCalls = 0;
    gate.run();
    QVERIFY2(statusCalls < 3 * Count, qPrintable(QString::number(statusCalls)));
    statusCalls = 0;
    for (int event = 0; event < 10; ++event) {
        QVERIFY(gate.write("new"));
        gate.run();
    }
    gate.runAfter(30min); // lists the directory
    QVERIFY2(statusCalls < 100, qPrintable(QString::number(statusCalls)));
}

/// More events than the system keeps.
void TestGatekeeper::lostEventsAreMadeUpFor()
{
    Gate gate;
    gate.run();
    QFile limit("/proc/sys/fs/inotify/max_queued_events");
    const int count = limit.open(QIODevice::ReadOnly) ? limit.readAll().trimmed().toInt() : 16384;
    if (count > 200000)
        QSKIP("the system keeps very many events");
    QVERIFY(gate.write(".a") && gate.write(".b"));
    const QByteArray a = QFile::encodeName(gate.incoming(".a"));
    const QByteArray b = QFile::encodeName(gate.incoming(".b"));
    for (int i = 0; i < count / 2 + 10; ++i)
        QVERIFY(::chmod(a.constData(), 0600) == 0 && ::chmod(b.constData(), 0600) == 0);
    QVERIFY(gate.write("lost"));
    QCOMPARE(gate.runAfter(200ms), QStringList());
    QCOMPARE(gate.runAfter(2s), Gate::handedOn({"lost"}));
}

void TestGatekeeper::watchThatIsRefusedIsReplacedByLooks()
{
    watchError = ENOSPC;
    Gate gate;
    QCOMPARE(gate.run(), QStringList("watch refused: " + systemErrorText(ENOSPC)));
    QVERIFY(gate.write("a"));
    QCOMPARE(gate.runAfter(1s), QStringList());
    QCOMPARE(gate.runAfter(1s), QStringList()); // seen now
    QCOMPARE(gate.runAfter(2s), Gate::handedOn({"a"}));
    watchError = 0;
    QCOMPARE(gate.runAfter(2s), QStringList()); // watched from now on
    QVERIFY(gate.write("b"));
    gate.run();
    QCOMPARE(gate.runAfter(2s), Gate::handedOn({"b"}));
}

void TestGatekeeper::twoGatesHandOnEachFileOnce()
{
    Gate gate;
    Gatekeeper other(gate.settings);
    for (int i = 0; i < 100; ++i)
        QVERIFY(gate.write(QString::number(i)));
    gate.run();
    other.work();
    *now += 2s;
    std::vector<GateReport> reports;
    SpoolFaults::watch(QFile::encodeName(gate.spool.path()));
    // The other one comes in when this one has decided.
    bool isFirst = true;
    SpoolFaults::before = [&](const Call& call, qsizetype) {
        if (call.function == "renameat2" && std::exchange(isFirst, false))
            other.work();
        return 0;
    };
    QStringList texts = gate.run();
    SpoolFaults::reset();
    do {
        other.work();
        for (const GateReport& report : other.takeReports()) {
            QVERIFY(report.kind == Kind::HandedOn);
            texts.append("handed on " + report.name + " as " + report.text);
        }
    } while (other.idleTime() == 0ms);
    QCOMPARE(texts.size(), 100);
    QCOMPARE(gate.spool.visible().size(), 100);
    QVERIFY(std::none_of(texts.cbegin(), texts.cend(),
                         [](const QString& text) { return text.contains('~'); }));
}

void TestGatekeeper::rightsDecide_data()
{
    QTest::addColumn<QString>("rights");
    for (const char* rights : {"files", "two gates", "others", "directories"})
        QTest::newRow(rights) << rights;
}

void TestGatekeeper::rightsDecide()
{
    QFETCH(const QString, rights);
    const ChildResult child = runChild({rights});
    if (child.exitCode == NotForThisUser)
        QSKIP("only root has files of other users");
    QVERIFY2(child.exitCode == 0, child.err.constData());
}

void TestGatekeeper::leftoversAreRemovedAtTheStart_data()
{
    QTest::addColumn<std::chrono::seconds>("age");
    QTest::addColumn<bool>("isRemoved");
    QTest::newRow("young") << std::chrono::seconds(23h) << false;
    QTest::newRow("a day old") << std::chrono::seconds(24h) << true;
}

/// Those of a living producer stay, however old they are.
void TestGatekeeper::leftoversAreRemovedAtTheStart()
{
    QFETCH(const std::chrono::seconds, age);
    QFETCH(const bool, isRemoved);
    Gate gate;
    GrowingFiles living(gate.spool.path());
    living.create(0600);
    const QStringList ofTheLiving = gate.spool.growing();
    for (const char* name : {"1-f.lock", "1-f.0", "1-f.1", "by-hand"})
        QVERIFY(writeFile(gate.spool.incoming() + '/' + name, "x"));
    QVERIFY(writeFile(gate.spool.path("a"), "x") && gate.write("b"));
    const QStringList all = gate.spool.growing();
    ageOfFiles = age;
    QCOMPARE(gate.run(), isRemoved ? QStringList("leftovers removed: 3") : QStringList());
    QCOMPARE(gate.spool.growing(), isRemoved ? ofTheLiving : all);
    QVERIFY(gate.spool.visible() == QStringList("a") && gate.has("b"));
}

void TestGatekeeper::leftoversAreRemovedEveryHour()
{
    Gate gate;
    gate.settings.lookPeriod = 24h;
    gate.start();
    QCOMPARE(gate.run(), QStringList()); // the hidden directory is not there yet
    QCOMPARE(gate.keeper->idleTime().count(), std::chrono::milliseconds(1h).count());
    ageOfFiles = 24h;
    for (int hour = 0; hour < 3; ++hour) {
        QVERIFY(QDir().mkpath(gate.spool.incoming()));
        QVERIFY(writeFile(gate.spool.incoming() + "/1-f.0", "x"));
        QCOMPARE(gate.runAfter(59min), QStringList());
        QCOMPARE(gate.runAfter(1min), QStringList("leftovers removed: 1"));
    }
}

/// One of them cannot be removed for some hours. The gate goes on, and so does the cleaning.
void TestGatekeeper::leftoversThatStayAreSaidOnce()
{
    Gate gate;
    QVERIFY(QDir().mkpath(gate.spool.incoming()));
    const auto leave = [&](const QString& name) {
        return writeFile(gate.spool.incoming() + '/' + name, "x");
    };
    const QString stays("leftovers stay: " + systemFailure(gate.spool.incoming() + "/1", EPERM));
    ageOfFiles = 24h;
    for (int round = 0; round < 2; ++round) {
        SpoolFaults::watch(QFile::encodeName(gate.spool.incoming()));
        SpoolFaults::before = [](const Call& call, qsizetype) {
            return call.function == "unlink" && call.path.endsWith("/1") ? EPERM : 0;
        };
        QVERIFY(leave("1") && leave("2"));
        QCOMPARE(gate.runAfter(1h), QStringList(stays));
        for (int hour = 0; hour < 5; ++hour) {
            QVERIFY(leave("2") && gate.write("a" + QString::number(hour)));
            QCOMPARE(gate.runAfter(1h), QStringList());
            QCOMPARE(gate.runAfter(2s).size(), 1); // handed on
            QCOMPARE(gate.spool.growing(), QStringList("1"));
        }
        SpoolFaults::reset();
        QCOMPARE(gate.runAfter(1h), QStringList("leftovers removed: 1"));
    }
    QCOMPARE(gate.spool.visible().size(), 10);
}

/// A thread that is asked to end, and whose event loop still runs.
void TestGatekeeper::interruptedThreadRests()
{
    QStringList texts;
    qint64 idle = 0;
    const std::unique_ptr<QThread> thread(QThread::create([&] {
        Gate gate;
        gate.write("a");
        gate.run();
        QThread::currentThread()->requestInterruption();
        texts = gate.runAfter(2s);
        idle = gate.keeper->idleTime().count();
    }));
    thread->start();
    QVERIFY(thread->wait(60000));
    QCOMPARE(texts, QStringList());
    QCOMPARE(idle, 1000);
}

void TestGatekeeper::markedFileIsHandedOn()
{
    Gate gate(Completeness::Marker);
    QVERIFY(gate.write("a.xml"));
    QCOMPARE(gate.runAfter(1h), QStringList());
    QVERIFY(gate.write("a.xml.done", {}));
    QCOMPARE(gate.run(), Gate::handedOn({"a.xml"}));
    QCOMPARE(QDir(gate.incoming()).entryList(QDir::Files), QStringList());
    QCOMPARE(gate.spool.visible(), QStringList("a.xml"));
}

void TestGatekeeper::markedFileMayBeThereBefore()
{
    Gate gate(Completeness::Marker);
    gate.settings.markerSuffix = "_fini";
    gate.start();
    QVERIFY(gate.write("a") && gate.write("a_fini") && gate.write("b") && gate.write("c.done"));
    QCOMPARE(gate.run(), Gate::handedOn({"a"}));
    QCOMPARE(QDir(gate.incoming()).entryList(QDir::Files), QStringList({"b", "c.done"}));
}

void TestGatekeeper::fileWithoutMarkerWaits()
{
    Gate gate(Completeness::Marker);
    QVERIFY(gate.write("a") && gate.write("b"));
    for (int hour = 0; hour < 5; ++hour)
        QCOMPARE(gate.runAfter(1h), QStringList());
    QVERIFY(gate.write("a.done"));
    QCOMPARE(gate.run(), Gate::handedOn({"a"}));
}

void TestGatekeeper::markerWithoutFileWaits()
{
    Gate gate(Completeness::Marker);
    QVERIFY(gate.write("a.done"));
    for (int hour = 0; hour < 5; ++hour)
        QCOMPARE(gate.runAfter(1h), QStringList());
    QVERIFY(gate.has("a.done"));
    // The file was written before the marker, and comes to its place after it.
    QVERIFY(writeFile(gate.spool.beside("a"), "x"));
    QVERIFY(setTimes(gate.spool.beside("a"), QDateTime::currentDateTime().addSecs(-60)));
    QVERIFY(QFile::rename(gate.spool.beside("a"), gate.incoming("a")));
    QCOMPARE(gate.run(), Gate::handedOn({"a"}));
    QVERIFY(!gate.has("a.done"));
}

void TestGatekeeper::forgottenMarkerDoesNotVouchForTheNextFile()
{
    Gate gate(Completeness::Marker);
    QVERIFY(gate.write("a.done"));
    gate.run();
    waitForNextTime(gate.incoming("a.done"));
    QVERIFY(gate.write("a"));
    for (int hour = 0; hour < 5; ++hour)
        QCOMPARE(gate.runAfter(1h), QStringList());
    QVERIFY(gate.has("a.done") && gate.has("a"));
}

void TestGatekeeper::markerThatIsTouchedCountsAgain()
{
    Gate gate(Completeness::Marker);
    QVERIFY(gate.write("a.done", {}));
    waitForNextTime(gate.incoming("a.done"));
    QVERIFY(gate.write("a"));
    QCOMPARE(gate.runAfter(1h), QStringList());
    waitForNextTime(gate.incoming("a"));
    QCOMPARE(
        ::utimensat(AT_FDCWD, QFile::encodeName(gate.incoming("a.done")).constData(), nullptr, 0),
        0);
    QCOMPARE(gate.run(), Gate::handedOn({"a"}));
}

/// A file whose modification is in the future, and one whose rights were changed after the marker.
void TestGatekeeper::markerCountsInSpiteOfOddTimes()
{
    Gate gate(Completeness::Marker);
    QVERIFY(gate.write("future") &&
            setTimes(gate.incoming("future"), QDateTime::currentDateTime().addDays(1)));
    QVERIFY(gate.write("future.done"));
    QVERIFY(gate.write("rights") && gate.write("rights.done"));
    waitForNextTime(gate.incoming("rights.done"));
    QCOMPARE(::chmod(QFile::encodeName(gate.incoming("rights")).constData(), 0640), 0);
    QStringList texts = gate.run();
    texts.sort();
    QCOMPARE(texts, Gate::handedOn({"future", "rights"}));
}

/// The process ended after the file was handed on, and before the marker was removed.
void TestGatekeeper::markerIsRemovedAfterACrash()
{
    Gate gate(Completeness::Marker);
    QVERIFY(gate.write("a.done~") && gate.write("b.done"));
    QCOMPARE(gate.run(), QStringList());
    QCOMPARE(QDir(gate.incoming()).entryList(QDir::Files), QStringList("b.done"));
}

/// The process ended before the file was handed on.
void TestGatekeeper::claimedMarkerStillCountsAfterACrash()
{
    Gate gate(Completeness::Marker);
    QVERIFY(gate.write("a") && gate.write("a.done~"));
    QVERIFY(gate.write("b.done~"));
    waitForNextTime(gate.incoming("b.done~"));
    QVERIFY(gate.write("b")); // a new one since
    QCOMPARE(gate.run(), Gate::handedOn({"a"}));
    QVERIFY(!gate.has("a.done~"));
    QVERIFY(gate.has("b"));
    waitForNextTime(gate.incoming("b"));
    QVERIFY(gate.write("b.done"));
    QCOMPARE(gate.run(), Gate::handedOn({"b"}));
    QCOMPARE(QDir(gate.incoming()).entryList(QDir::Files), QStringList());
}

void TestGatekeeper::markerWithoutRoomForAClaim()
{
    Gate gate(Completeness::Marker);
    const QString name(250, 'n');
    QVERIFY(gate.write(name) && gate.write(name + ".done"));
    QCOMPARE(gate.run(), Gate::handedOn({name}));
    QCOMPARE(QDir(gate.incoming()).entryList(QDir::Files), QStringList());
}

/// The next file of that name and its marker come between the two steps.
void TestGatekeeper::markerOfTheNextFileStaysWithoutRoomForAClaim()
{
    Gate gate(Completeness::Marker);
    const QString name(250, 'n');
    QVERIFY(gate.write(name, "old") && gate.write(name + ".done"));
    SpoolFaults::watch(QFile::encodeName(gate.spool.path()));
    SpoolFaults::before = [&, isFirst = true](const Call& call, qsizetype) mutable {
        if (call.function == "fsync" && call.path.endsWith("/spool") &&
            std::exchange(isFirst, false))
            gate.write(name, "new"), gate.write(".done"),
                QFile::remove(gate.incoming(name + ".done")),
                QFile::rename(gate.incoming(".done"), gate.incoming(name + ".done"));
        return 0;
    };
    QStringList texts = gate.run();
    for (int second = 0; second < 12; ++second)
        texts += gate.runAfter(1s);
    SpoolFaults::reset();
    QCOMPARE(texts.size(), 2);
    QCOMPARE(QDir(gate.incoming()).entryList(QDir::Files), QStringList());
    QCOMPARE(gate.spool.visible().size(), 2);
}

void TestGatekeeper::markedTemporaryNameIsLeftAlone()
{
    Gate gate(Completeness::Marker);
    QVERIFY(gate.write("a.part") && gate.write("a.part.done"));
    QCOMPARE(gate.runAfter(1h), QStringList());
    QVERIFY(gate.has("a.part") && gate.has("a.part.done"));
}

void TestGatekeeper::markerIsNotHandedOn()
{
    Gate gate(Completeness::Marker);
    QVERIFY(gate.write("a.done") && gate.write("a.done.done") && gate.write(".done"));
    QCOMPARE(gate.run(), Gate::handedOn({"a.done"}));
    QVERIFY(gate.has(".done"));
}

void TestGatekeeper::markerStaysUntilTheFileIsHandedOn()
{
    Gate gate(Completeness::Marker, Delivery::NameTaken::Refuse);
    QVERIFY(writeFile(gate.spool.path("a"), "old") && gate.write("a") && gate.write("a.done"));
    QCOMPARE(gate.run(), QStringList("refused a: " + kitText("DeliveryNameTaken")));
    gate.start(); // another process goes on
    QCOMPARE(gate.run(), QStringList("refused a: " + kitText("DeliveryNameTaken")));
    QVERIFY(QFile::remove(gate.spool.path("a")));
    QCOMPARE(gate.runAfter(1s), Gate::handedOn({"a"}));
    QCOMPARE(QDir(gate.incoming()).entryList(QDir::Files), QStringList());
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestGatekeeper, childMain)
#include "tst_gatekeeper.moc"
