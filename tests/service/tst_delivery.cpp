// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/kittexts_p.h"
#include "support/childprocess.h"
#include "support/failuretext.h"
#include "support/spool.h"

#include <kez/service/delivery.h>

#include <QBuffer>
#include <QProcess>
#include <QScopeGuard>
#include <QSet>
#include <QtTest>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <optional>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace KezService;
using namespace std::chrono_literals;

namespace {

using NameTaken = Delivery::NameTaken;
using Parcel = Delivery::Parcel;

QString failed(const Spool& spool, const QString& name, const QString& reason)
{
    return kitText("DeliveryFailed", name, spool.path(), reason);
}

QString systemFailure(const QString& path, int error)
{
    return kitText("SystemFailure", path, systemErrorText(error));
}

/// What the failure of an action says about the files that entered; nothing without a failure.
template <typename Action>
std::optional<QStringList> deliveredInFailure(Action action)
{
    try {
        action();
    } catch (const DeliveryFailure& failure) {
        return failure.delivered();
    }
    return std::nullopt;
}

/// Gives these bytes piece by piece, then ends, or fails.
class PieceDevice : public QIODevice {
public:
    PieceDevice(const QByteArrayList& pieces, bool fails, bool isSequential)
        : _pieces(pieces), _fails(fails), _isSequential(isSequential)
    {
        open(ReadOnly | Unbuffered);
    }
    bool isSequential() const override { return _isSequential; }
    bool waitForReadyRead(int) override { return ++_waits < _pieces.size() || _fails; }

protected:
    qint64 readData(char* data, qint64 size) override
    {
        const QByteArray piece = _pieces.value(_next++);
        if (piece.isNull() && _fails) {
            setErrorString(QStringLiteral("out of paper"));
            return -1;
        }
        Q_ASSERT(piece.size() <= size);
        memcpy(data, piece.constData(), size_t(piece.size()));
        return piece.size();
    }
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    QByteArrayList _pieces;
    bool _fails;
    bool _isSequential;
    qsizetype _next = 0;
    qsizetype _waits = 0;
};

/// A sequential device that breaks off. Only the read after the last wait tells.
class BreakingDevice : public QIODevice {
public:
    explicit BreakingDevice(const QByteArray& beginning) : _rest(beginning)
    {
        open(ReadOnly | Unbuffered);
    }
    bool isSequential() const override { return true; }
    bool waitForReadyRead(int) override
    {
        _isBroken = true;
        return false;
    }

protected:
    qint64 readData(char* data, qint64 size) override
    {
        if (_isBroken) {
            setErrorString(QStringLiteral("the line is dead"));
            return -1;
        }
        const QByteArray piece = std::exchange(_rest, {});
        Q_ASSERT(piece.size() <= size);
        memcpy(data, piece.constData(), size_t(piece.size()));
        return piece.size();
    }
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    QByteArray _rest;
    bool _isBroken = false;
};

/// Calls a function before each read.
class WatchedBuffer : public QBuffer {
public:
    std::function<void()> onRead;

protected:
    qint64 readData(char* data, qint64 size) override
    {
        onRead();
        return QBuffer::readData(data, size);
    }
};

int childWithoutRights(const QString& directory)
{
    if (!becomeOrdinaryUser())
        return 1;
    const Delivery delivery(directory + "/spool");
    const auto refused = deliveredInFailure([&] { delivery.deliver("a", "x"); });
    if (refused != QStringList())
        return 2;
    const auto unreadable =
        deliveredInFailure([&] { delivery.deliverFile(directory + "/secret"); });
    if (unreadable != QStringList())
        return 3;
    // A directory that may be changed, but not listed.
    const Spool own;
    const QByteArray outbox = QFile::encodeName(own.beside("outbox"));
    if (!QDir().mkdir(own.beside("outbox")) || !writeFile(own.beside("outbox/a"), "x") ||
        ::chmod(outbox.constData(), 0300) != 0)
        return 4;
    const QString failure =
        failureText([&] { Delivery(own.path()).moveIn(own.beside("outbox/a")); });
    ::chmod(outbox.constData(), 0700);
    return failure.isNull() && own.content("a") == "x" ? 0 : 5;
}

/// The process may write only files that are this small.
int childWithSmallFiles(const QString& directory)
{
    struct rlimit limit = {1000, 1000};
    std::signal(SIGXFSZ, SIG_IGN);
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0)
        return 1;
    const Delivery delivery(directory + "/spool");
    delivery.deliver("small", QByteArray(1000, 's'));
    const QString text = failureText([&] { delivery.deliver("big", QByteArray(1001, 'b')); });
    if (!text.contains(systemErrorText(EFBIG)))
        return 2;
    const auto delivered = deliveredInFailure([&] {
        delivery.deliverAll({{"first", QByteArray("1")}, {"second", QByteArray(2000, '2')}});
    });
    return delivered == QStringList() ? 0 : 3;
}

int childMain(const QStringList& arguments)
{
    if (arguments.value(0) == "rights")
        return childWithoutRights(arguments.value(1));
    return childWithSmallFiles(arguments.value(1));
}

} // namespace

class TestDelivery : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void bytesArrive_data();
    void bytesArrive();
    void deviceArrives_data();
    void deviceArrives();
    void pipeIsReadToItsEnd();
    void pipeOfTheSystemIsReadToItsEnd();
    void processThatHasEndedIsRead();
    void processThatDoesNotStartDeliversNothing();
    void processThatFailsDeliversNothing_data();
    void processThatFailsDeliversNothing();
    void deviceThatBreaksOffDeliversNothing();
    void deviceThatFailsDeliversNothing_data();
    void deviceThatFailsDeliversNothing();
    void closedDeviceIsRefused();
    void fileIsCopied();
    void linkIsFollowedForACopy();
    void sourceThatIsNoRegularFileIsRefused_data();
    void sourceThatIsNoRegularFileIsRefused();
    void zeroInAPathIsRefused();
    void nameIsCheckedBeforeAnythingIsWritten();
    void unusualNamesWork();
    void takenNameIsRefused_data();
    void takenNameIsRefused();
    void freshNameIsFound();
    void freshNameOfALongOneIsFound();
    void freshNameNextToThousandsIsFoundFast();
    void racingProducersGetOneNameEach();
    void onlyOneRacingProducerGetsTheName();
    void newFileHasTheModeThatTheMaskLeaves();
    void hiddenDirectoryHasTheRightsOfTheSpool();
    void manyFilesArrive();
    void manyFilesComeFromAllSources();
    void oneBadFileAmongManyKeepsAllOut_data();
    void oneBadFileAmongManyKeepsAllOut();
    void noFilesAreNoDelivery();
    void fileIsMovedIn();
    void fileIsMovedInFromAnotherFileSystem();
    void linkIsNotMovedIn();
    void fileOfTheQueueIsNotMovedIntoIt();
    void specialFileIsNotMovedIn();
    void lockedFileIsNotCopiedFromAnotherFileSystem();
    void missingDirectoryIsRefused();
    void directoryThatVanishesIsSaid();
    void relativeDirectoryIsResolvedOnce();
    void leftoversOfTheDeadAreRemoved();
    void leftoversAreRemovedByAge();
    void filesOfTheLivingStay();
    void producersOfOtherUsersCanBeProbed();
    void whatIsNoFileStays();
    void missingRightsAreSaid();
    void fileThatDoesNotFitLeavesNothing();
    void failureSurvivesAnotherThread();
    void controlCharactersAreShownEscaped();

private:
    std::unique_ptr<Spool> _spool;
};

void TestDelivery::init()
{
    _spool = std::make_unique<Spool>();
    QVERIFY(_spool->isValid());
}

void TestDelivery::bytesArrive_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("zeros") << QByteArray(10, '\0');
    QTest::newRow("more than a block") << QByteArray(300001, 'x');
}

void TestDelivery::bytesArrive()
{
    QFETCH(const QByteArray, bytes);
    const Delivery delivery(_spool->path());
    QCOMPARE(delivery.deliver("order.xml", bytes), QString("order.xml"));
    QCOMPARE(_spool->content("order.xml"), bytes);
    QCOMPARE(_spool->visible(), QStringList("order.xml"));
    QCOMPARE(_spool->growing(), QStringList());
}

void TestDelivery::deviceArrives_data()
{
    QTest::addColumn<bool>("isSequential");
    QTest::newRow("sequential") << true;
    QTest::newRow("with positions") << false;
}

void TestDelivery::deviceArrives()
{
    QFETCH(const bool, isSequential);
    PieceDevice device({"one ", "two ", QByteArray(60000, '3')}, false, isSequential);
    QCOMPARE(Delivery(_spool->path()).deliver("a", device), QString("a"));
    QCOMPARE(_spool->content("a"), "one two " + QByteArray(60000, '3'));

    QBuffer buffer;
    buffer.setData(QByteArray(200000, 'b'));
    QVERIFY(buffer.open(QIODevice::ReadOnly) && buffer.seek(150000));
    Delivery(_spool->path()).deliver("b", buffer);
    QCOMPARE(_spool->content("b"), QByteArray(50000, 'b'));
}

/// The process writes its second line only after the first one was read.
void TestDelivery::pipeIsReadToItsEnd()
{
    QProcess process;
    process.start("/bin/sh", {"-c", "echo one; sleep 0.1; echo two"});
    QVERIFY(process.waitForStarted());
    Delivery(_spool->path()).deliver("a", process);
    QCOMPARE(_spool->content("a"), QByteArray("one\ntwo\n"));
}

void TestDelivery::pipeOfTheSystemIsReadToItsEnd()
{
    std::array<int, 2> ends{};
    QCOMPARE(::pipe(ends.data()), 0);
    std::thread writer([end = ends[1]] {
        for (int i = 0; i < 3; ++i) {
            if (::write(end, "line\n", 5) != 5)
                qFatal("the test cannot write");
            QThread::msleep(20);
        }
        ::close(end);
    });
    const auto joined = qScopeGuard([&] { writer.join(); });
    QFile file;
    QVERIFY(file.open(ends[0], QIODevice::ReadOnly, QFile::AutoCloseHandle));
    QVERIFY(file.isSequential());
    Delivery(_spool->path()).deliver("a", file);
    QCOMPARE(_spool->content("a"), QByteArray("line\nline\nline\n"));
}

void TestDelivery::processThatDoesNotStartDeliversNothing()
{
    QProcess process;
    process.start("/nowhere/program", {});
    const Delivery delivery(_spool->path());
    for (int time = 0; time < 2; ++time) {
        const QString text = failureText([&] { delivery.deliver("a", process); });
        QVERIFY(!process.errorString().isEmpty());
        QCOMPARE(text,
                 failed(*_spool, "a", kitText("DeliveryDeviceFailed", process.errorString())));
    }
    QCOMPARE(_spool->visible(), QStringList());
}

void TestDelivery::processThatHasEndedIsRead()
{
    QProcess process;
    process.start("/bin/sh", {"-c", "head -c 200000 /dev/zero"});
    QVERIFY(process.waitForFinished(60000));
    const Delivery delivery(_spool->path());
    delivery.deliver("a", process);
    QCOMPARE(_spool->content("a"), QByteArray(200000, '\0'));
    process.start("/bin/sh", {"-c", "exec >&-; sleep 0.1"}); // it closes the pipe and lives on
    delivery.deliver("b", process);
    QCOMPARE(process.state(), QProcess::NotRunning);
    QCOMPARE(_spool->content("b"), QByteArray());
    process.start("/bin/sh", {"-c", "sleep 0.1; exit 3"});
    process.closeReadChannel(QProcess::StandardOutput); // no wait for data any more
    QCOMPARE(failureText([&] { delivery.deliver("c", process); }),
             failed(*_spool, "c", kitText("DeliveryProcessFailed", QString("3"))));
}

void TestDelivery::processThatFailsDeliversNothing_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<bool>("hasEnded");
    QTest::addColumn<QString>("reason");
    const QString killed = kitText("DeliveryProcessCrashed");
    const QString failed = kitText("DeliveryProcessFailed", QString("3"));
    QTest::newRow("killed") << "printf 'half of '; kill -9 $$" << false << killed;
    QTest::newRow("killed before") << "printf 'half of '; kill -9 $$" << true << killed;
    QTest::newRow("exit code") << "printf 'half of '; exit 3" << false << failed;
    QTest::newRow("exit code before") << "printf 'half of '; exit 3" << true << failed;
    QTest::newRow("after it closed the pipe")
        << "printf 'half of '; exec >&-; sleep 0.1; exit 3" << false << failed;
    QTest::newRow("without a word") << "exit 3" << false << failed;
}

void TestDelivery::processThatFailsDeliversNothing()
{
    QFETCH(const QString, script);
    QFETCH(const bool, hasEnded);
    QFETCH(const QString, reason);
    QProcess process;
    process.start("/bin/sh", {"-c", script});
    QVERIFY(process.waitForStarted());
    if (hasEnded)
        QVERIFY(process.waitForFinished(60000));
    const Delivery delivery(_spool->path());
    QCOMPARE(failureText([&] { delivery.deliver("a", process); }), failed(*_spool, "a", reason));
    QCOMPARE(_spool->visible(), QStringList());
    QCOMPARE(_spool->growing(), QStringList());
}

void TestDelivery::deviceThatBreaksOffDeliversNothing()
{
    BreakingDevice device("half of ");
    const Delivery delivery(_spool->path());
    QCOMPARE(failureText([&] { delivery.deliver("a", device); }),
             failed(*_spool, "a", kitText("DeliveryDeviceFailed", QString("the line is dead"))));
    QCOMPARE(_spool->visible(), QStringList());
}

void TestDelivery::deviceThatFailsDeliversNothing_data()
{
    deviceArrives_data();
}

void TestDelivery::deviceThatFailsDeliversNothing()
{
    QFETCH(const bool, isSequential);
    PieceDevice device({"one ", "two "}, true, isSequential);
    const Delivery delivery(_spool->path());
    QCOMPARE(failureText([&] { delivery.deliver("a", device); }),
             failed(*_spool, "a", kitText("DeliveryDeviceFailed", QString("out of paper"))));
    QCOMPARE(_spool->visible(), QStringList());
    QCOMPARE(_spool->growing(), QStringList());
}

void TestDelivery::closedDeviceIsRefused()
{
    QFile file(_spool->beside("nowhere"));
    const Delivery delivery(_spool->path());
    QCOMPARE(failureText([&] { delivery.deliver("a", file); }),
             failed(*_spool, "a", kitText("DeliveryDeviceNotOpen")));
    QCOMPARE(_spool->growing(), QStringList());
}

void TestDelivery::fileIsCopied()
{
    const QString source = _spool->beside("order.xml");
    const QByteArray bytes(200001, 'x');
    QVERIFY(writeFile(source, bytes));
    QCOMPARE(::chmod(QFile::encodeName(source).constData(), 06640), 0);
    const Delivery delivery(_spool->path());
    QCOMPARE(delivery.deliverFile(source), QString("order.xml"));
    QCOMPARE(delivery.deliverFile(source, "other.xml"), QString("other.xml"));
    QCOMPARE(_spool->content("order.xml"), bytes);
    QCOMPARE(_spool->content("other.xml"), bytes);
    QCOMPARE(readFile(source), bytes);
    QCOMPARE(Spool::modeOf(_spool->path("order.xml")), mode_t(0640));
}

void TestDelivery::linkIsFollowedForACopy()
{
    QVERIFY(writeFile(_spool->beside("target"), "x"));
    QVERIFY(QFile::link("target", _spool->beside("link")));
    QCOMPARE(Delivery(_spool->path()).deliverFile(_spool->beside("link")), QString("link"));
    QVERIFY(!QFileInfo(_spool->path("link")).isSymLink());
    QCOMPARE(_spool->content("link"), QByteArray("x"));
}

void TestDelivery::sourceThatIsNoRegularFileIsRefused_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("reason");
    const QString special = kitText("DeliverySourceSpecial");
    QTest::newRow("fifo") << "fifo" << special;
    QTest::newRow("directory") << "directory" << special;
    QTest::newRow("device") << "/dev/zero" << special;
    QTest::newRow("link to a fifo") << "link" << special;
    QTest::newRow("nothing") << "nothing" << QString();
}

void TestDelivery::sourceThatIsNoRegularFileIsRefused()
{
    QFETCH(const QString, source);
    QFETCH(const QString, reason);
    const QString path = source.startsWith('/') ? source : _spool->beside(source);
    QCOMPARE(::mkfifo(QFile::encodeName(_spool->beside("fifo")).constData(), 0600), 0);
    QVERIFY(QDir().mkdir(_spool->beside("directory")));
    QVERIFY(QFile::link("fifo", _spool->beside("link")));
    const Delivery delivery(_spool->path());
    QCOMPARE(failureText([&] { delivery.deliverFile(path, "a"); }),
             failed(*_spool, "a", reason.isEmpty() ? systemFailure(path, ENOENT) : reason));
    QCOMPARE(_spool->visible(), QStringList());
    QCOMPARE(_spool->growing(), QStringList());
}

/// To the system a path ends there: another file would be taken.
void TestDelivery::zeroInAPathIsRefused()
{
    QVERIFY(writeFile(_spool->beside("aa"), "x"));
    const Delivery delivery(_spool->path());
    const QString refused = failed(*_spool, "b", kitText("DeliverySourceZero"));
    for (const QString& end : {QString(QChar(0)) + "b", QChar(0) + QString("/b")}) {
        const QString path = _spool->beside("aa") + end;
        QCOMPARE(failureText([&] { delivery.moveIn(path, "b"); }), refused);
        QCOMPARE(failureText([&] { delivery.deliverFile(path, "b"); }), refused);
    }
    QVERIFY(QFile::exists(_spool->beside("aa")));
    QCOMPARE(_spool->visible(), QStringList());
    QCOMPARE(failureText([&] { const Delivery other(_spool->path() + QChar(0) + "b"); }),
             kitText("DeliveryNoDirectory", _spool->path() + "\\x00b", systemErrorText(EINVAL)));
}

void TestDelivery::nameIsCheckedBeforeAnythingIsWritten()
{
    const Delivery delivery(_spool->path());
    const auto text = [&](const QString& name) {
        return failureText([&] { delivery.deliver(name, "x"); });
    };
    QCOMPARE(text("a/b"), failed(*_spool, "a/b", kitText("DeliveryNameSlash")));
    QCOMPARE(text("../a"), failed(*_spool, "../a", kitText("DeliveryNameHidden")));
    QCOMPARE(text(""), failed(*_spool, "", kitText("DeliveryNameEmpty")));
    QVERIFY(writeFile(_spool->beside(".a"), "x"));
    QCOMPARE(failureText([&] { delivery.moveIn(_spool->beside(".a")); }),
             failed(*_spool, ".a", kitText("DeliveryNameHidden")));
    QCOMPARE(delivery.moveIn(_spool->beside(".a"), "a"), QString("a"));
    QVERIFY(!QFile::exists(_spool->incoming()));
}

void TestDelivery::unusualNamesWork()
{
    const QString name = QString(127, QChar(0xE9)) + 'a';
    QVERIFY(writeFile(_spool->beside(name), "moved"));
    const Delivery delivery(_spool->path());
    QCOMPARE(delivery.moveIn(_spool->beside(name)), name);
    QCOMPARE(_spool->content(name), QByteArray("moved"));
    QVERIFY(QFile::remove(_spool->path(name)));
    QCOMPARE(delivery.deliver(name, "x"), name);
    QCOMPARE(_spool->content(name), QByteArray("x"));
    const QString mark = QChar(0xFEFF) + QString("x");
    QCOMPARE(delivery.deliver(mark, "x"), mark);
}

void TestDelivery::takenNameIsRefused_data()
{
    QTest::addColumn<QString>("by");
    QTest::newRow("file") << "file";
    QTest::newRow("directory") << "directory";
    QTest::newRow("link that leads nowhere") << "link";
}

void TestDelivery::takenNameIsRefused()
{
    QFETCH(const QString, by);
    if (by == "file")
        QVERIFY(writeFile(_spool->path("a"), "old"));
    else if (by == "directory")
        QVERIFY(QDir().mkdir(_spool->path("a")));
    else
        QVERIFY(QFile::link("nowhere", _spool->path("a")));
    QVERIFY(writeFile(_spool->beside("a"), "new"));
    const Delivery delivery(_spool->path());
    const QString taken = failed(*_spool, "a", kitText("DeliveryNameTaken"));
    QCOMPARE(failureText([&] { delivery.deliver("a", "new"); }), taken);
    QCOMPARE(failureText([&] { delivery.deliverFile(_spool->beside("a")); }), taken);
    QCOMPARE(failureText([&] { delivery.moveIn(_spool->beside("a")); }), taken);
    QCOMPARE(readFile(_spool->beside("a")), QByteArray("new"));
    if (by == "file")
        QCOMPARE(_spool->content("a"), QByteArray("old"));
    QCOMPARE(_spool->growing(), QStringList());
}

void TestDelivery::freshNameIsFound()
{
    const Delivery delivery(_spool->path(), NameTaken::FreshName);
    QStringList names;
    for (int i = 0; i < 6; ++i)
        names.append(delivery.deliver("order.xml", QByteArray::number(i)));
    QCOMPARE(names, QStringList({"order.xml", "order~2.xml", "order~3.xml", "order~4.xml",
                                 "order~5.xml", "order~6.xml"}));
    QCOMPARE(_spool->content("order~4.xml"), QByteArray("3"));
    QVERIFY(QFile::remove(_spool->path("order.xml")));
    QVERIFY(QFile::remove(_spool->path("order~2.xml")));
    QCOMPARE(delivery.deliver("order.xml", "x"), QString("order.xml"));
    QCOMPARE(delivery.deliver("order.xml", "x"), QString("order~2.xml"));
    QVERIFY(writeFile(_spool->beside("order.xml"), "moved"));
    QCOMPARE(delivery.moveIn(_spool->beside("order.xml")), QString("order~7.xml"));
}

void TestDelivery::freshNameOfALongOneIsFound()
{
    const QString name = QString(250, 'a') + ".xml!";
    const Delivery delivery(_spool->path(), NameTaken::FreshName);
    QCOMPARE(delivery.deliver(name, "x"), name);
    QCOMPARE(delivery.deliver(name, "x"), QString(248, 'a') + "~2.xml!");
}

/// The number of looks is not counted here, but a search one by one would take a million.
void TestDelivery::freshNameNextToThousandsIsFoundFast()
{
    constexpr int Count = 10000;
    for (int i = 1; i <= Count; ++i)
        QVERIFY(writeFile(_spool->path(i == 1 ? QString("a") : QString("a~%1").arg(i)), {}));
    const Delivery delivery(_spool->path(), NameTaken::FreshName);
    const std::vector<Parcel> parcels(100, Parcel("a", QByteArray("x")));
    const QStringList names = delivery.deliverAll(parcels);
    QCOMPARE(names.size(), 100);
    QCOMPARE(names.first(), QString("a~10001"));
    QCOMPARE(names.last(), QString("a~10100"));
}

void TestDelivery::racingProducersGetOneNameEach()
{
    constexpr int Producers = 4;
    constexpr int Each = 25;
    std::vector<std::thread> threads;
    std::atomic<int> failures = 0;
    for (int producer = 0; producer < Producers; ++producer) {
        threads.emplace_back([&, producer] {
            const Delivery delivery(_spool->path(), NameTaken::FreshName);
            for (int i = 0; i < Each; ++i) {
                const QByteArray bytes = QByteArray::number(producer * Each + i);
                if (!failureText([&] { delivery.deliver("a.xml", bytes); }).isNull())
                    ++failures;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    QCOMPARE(failures.load(), 0);
    QSet<QByteArray> contents;
    for (const QString& name : _spool->visible())
        contents.insert(_spool->content(name));
    QCOMPARE(contents.size(), Producers * Each);
    QCOMPARE(_spool->visible().size(), Producers * Each);
    QCOMPARE(_spool->growing(), QStringList());
}

void TestDelivery::onlyOneRacingProducerGetsTheName()
{
    constexpr int Names = 20;
    std::atomic<int> delivered = 0;
    const Delivery delivery(_spool->path());
    const auto produce = [&](const QByteArray& bytes) {
        for (int i = 0; i < Names; ++i)
            if (failureText([&] { delivery.deliver(QString::number(i), bytes); }).isNull())
                ++delivered;
    };
    std::thread other(produce, "other");
    produce("mine");
    other.join();
    QCOMPARE(delivered.load(), Names);
    QCOMPARE(_spool->visible().size(), Names);
}

void TestDelivery::newFileHasTheModeThatTheMaskLeaves()
{
    const mode_t mask = ::umask(026);
    const Delivery delivery(_spool->path());
    delivery.deliver("a", "x");
    ::umask(mask);
    QCOMPARE(Spool::modeOf(_spool->path("a")), mode_t(0640));
}

void TestDelivery::hiddenDirectoryHasTheRightsOfTheSpool()
{
    QCOMPARE(::chmod(QFile::encodeName(_spool->path()).constData(), 02770), 0);
    Delivery(_spool->path()).deliver("a", "x");
    QCOMPARE(Spool::modeOf(_spool->path(".kez")), mode_t(02770));
    QCOMPARE(Spool::modeOf(_spool->incoming()), mode_t(02770));
}

/// More than are open or synced at a time.
void TestDelivery::manyFilesArrive()
{
    std::vector<Parcel> parcels;
    QStringList names;
    for (int i = 0; i < 300; ++i) {
        names.append(QString("order-%1.xml").arg(i, 4, 10, QChar('0')));
        parcels.emplace_back(names.last(), QByteArray::number(i));
    }
    QCOMPARE(Delivery(_spool->path()).deliverAll(parcels), names);
    QCOMPARE(_spool->visible(), names);
    for (int i = 0; i < 300; ++i)
        QCOMPARE(_spool->content(names.at(i)), QByteArray::number(i));
    QCOMPARE(_spool->growing(), QStringList());
}

void TestDelivery::manyFilesComeFromAllSources()
{
    QVERIFY(writeFile(_spool->beside("file"), "from a file"));
    QBuffer buffer;
    buffer.setData("from a device");
    QVERIFY(buffer.open(QIODevice::ReadOnly));
    const QStringList names = Delivery(_spool->path(), NameTaken::FreshName)
                                  .deliverAll({{"a", QByteArray("from bytes")},
                                               {"b", buffer},
                                               Parcel::file(_spool->beside("file")),
                                               Parcel::file(_spool->beside("file"), "b")});
    QCOMPARE(names, QStringList({"a", "b", "file", "b~2"}));
    QCOMPARE(_spool->content("a"), QByteArray("from bytes"));
    QCOMPARE(_spool->content("b"), QByteArray("from a device"));
    QCOMPARE(_spool->content("file"), QByteArray("from a file"));
    QCOMPARE(_spool->content("b~2"), QByteArray("from a file"));
}

void TestDelivery::oneBadFileAmongManyKeepsAllOut_data()
{
    QTest::addColumn<QString>("bad");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no name") << ""
                             << "" << kitText("DeliveryNameEmpty");
    QTest::newRow("taken") << "taken"
                           << "taken" << kitText("DeliveryNameTaken");
    QTest::newRow("twice") << "a"
                           << "a" << kitText("DeliveryNameTwice");
    QTest::newRow("no source") << "/nowhere/x"
                               << "x" << systemFailure("/nowhere/x", ENOENT);
}

void TestDelivery::oneBadFileAmongManyKeepsAllOut()
{
    QFETCH(const QString, bad);
    QFETCH(const QString, name);
    QFETCH(const QString, reason);
    QVERIFY(writeFile(_spool->path("taken"), "old"));
    const Parcel badOne = bad.startsWith('/') ? Parcel::file(bad) : Parcel(bad, QByteArray("x"));
    const Delivery delivery(_spool->path());
    const auto deliver = [&] {
        delivery.deliverAll({{"a", QByteArray("x")}, badOne, {"c", QByteArray("x")}});
    };
    QCOMPARE(failureText(deliver), failed(*_spool, name, reason) + ' ' +
                                       kitText("DeliveryFailedAmong", QString("0"), QString("3")));
    QVERIFY(deliveredInFailure(deliver) == QStringList());
    QCOMPARE(_spool->visible(), QStringList("taken"));
    QCOMPARE(_spool->growing(), QStringList());
}

void TestDelivery::noFilesAreNoDelivery()
{
    QCOMPARE(Delivery(_spool->path()).deliverAll({}), QStringList());
    QVERIFY(!QFile::exists(_spool->incoming()));
}

void TestDelivery::fileIsMovedIn()
{
    const QString source = _spool->beside("order.xml");
    QVERIFY(writeFile(source, "x"));
    QCOMPARE(::chmod(QFile::encodeName(source).constData(), 0604), 0);
    QCOMPARE(Delivery(_spool->path()).moveIn(source), QString("order.xml"));
    QCOMPARE(_spool->content("order.xml"), QByteArray("x"));
    QCOMPARE(Spool::modeOf(_spool->path("order.xml")), mode_t(0604));
    QVERIFY(!QFile::exists(source));
    QVERIFY(writeFile(source, "y"));
    QCOMPARE(Delivery(_spool->path()).moveIn(source, "renamed"), QString("renamed"));
}

void TestDelivery::fileIsMovedInFromAnotherFileSystem()
{
    QTemporaryDir shared("/dev/shm/kez-XXXXXX");
    struct stat here {};
    struct stat there {};
    if (!shared.isValid() || ::stat(QFile::encodeName(shared.path()).constData(), &there) != 0 ||
        ::stat(QFile::encodeName(_spool->path()).constData(), &here) != 0 ||
        here.st_dev == there.st_dev)
        QSKIP("no second file system here; tst_deliveryfaults makes one up");
    const QString source = shared.filePath("order.xml");
    const QByteArray bytes(200001, 'x');
    QVERIFY(writeFile(source, bytes));
    QCOMPARE(::chmod(QFile::encodeName(source).constData(), 0604), 0);
    const QDateTime time(QDate(2001, 2, 3), QTime(4, 5, 6));
    QFile file(source);
    QVERIFY(file.open(QIODevice::ReadWrite) &&
            file.setFileTime(time, QFileDevice::FileModificationTime));
    file.close();
    QCOMPARE(Delivery(_spool->path()).moveIn(source), QString("order.xml"));
    QCOMPARE(_spool->content("order.xml"), bytes);
    QCOMPARE(Spool::modeOf(_spool->path("order.xml")), mode_t(0604));
    QCOMPARE(QFileInfo(_spool->path("order.xml")).lastModified(), time);
    QVERIFY(!QFile::exists(source));
    QCOMPARE(_spool->growing(), QStringList());
}

void TestDelivery::linkIsNotMovedIn()
{
    QVERIFY(writeFile(_spool->beside("target"), "x"));
    QVERIFY(QFile::link("target", _spool->beside("link")));
    QCOMPARE(failureText([&] { Delivery(_spool->path()).moveIn(_spool->beside("link")); }),
             failed(*_spool, "link", kitText("DeliverySourceLink")));
    QVERIFY(QFileInfo(_spool->beside("link")).isSymLink());
    QCOMPARE(_spool->visible(), QStringList());
}

/// Also through another path to the same directory; and a second name of a file is not the file.
void TestDelivery::fileOfTheQueueIsNotMovedIntoIt()
{
    const Delivery delivery(_spool->path(), NameTaken::FreshName);
    delivery.deliver("a", "x");
    QVERIFY(QFile::link("spool", _spool->beside("alias")));
    for (const QString& path : {_spool->path("a"), _spool->beside("alias/a")}) {
        QCOMPARE(failureText([&] { delivery.moveIn(path); }),
                 failed(*_spool, "a", kitText("DeliverySourceInQueue")));
        QCOMPARE(_spool->visible(), QStringList("a"));
        QCOMPARE(_spool->content("a"), QByteArray("x"));
    }
}

void TestDelivery::specialFileIsNotMovedIn()
{
    QCOMPARE(::mkfifo(QFile::encodeName(_spool->beside("fifo")).constData(), 0600), 0);
    const Delivery delivery(_spool->path());
    QCOMPARE(failureText([&] { delivery.moveIn(_spool->beside("fifo")); }),
             failed(*_spool, "fifo", kitText("DeliverySourceSpecial")));
    QCOMPARE(failureText([&] { delivery.moveIn(_spool->beside("nothing")); }),
             failed(*_spool, "nothing", systemFailure(_spool->beside("nothing"), ENOENT)));
}

void TestDelivery::lockedFileIsNotCopiedFromAnotherFileSystem()
{
    QTemporaryDir shared("/dev/shm/kez-XXXXXX");
    struct stat here {};
    struct stat there {};
    if (!shared.isValid() || ::stat(QFile::encodeName(shared.path()).constData(), &there) != 0 ||
        ::stat(QFile::encodeName(_spool->path()).constData(), &here) != 0 ||
        here.st_dev == there.st_dev)
        QSKIP("no second file system here");
    QFile source(shared.filePath("a"));
    QVERIFY(source.open(QIODevice::WriteOnly));
    QCOMPARE(::flock(source.handle(), LOCK_EX), 0);
    QCOMPARE(failureText([&] { Delivery(_spool->path()).moveIn(source.fileName()); }),
             failed(*_spool, "a", kitText("DeliverySourceLocked")));
    QVERIFY(source.exists());
    source.close();
    QCOMPARE(Delivery(_spool->path()).moveIn(source.fileName()), QString("a"));
}

void TestDelivery::missingDirectoryIsRefused()
{
    const QString nowhere = _spool->beside("nowhere");
    QCOMPARE(failureText([&] { const Delivery delivery(nowhere); }),
             kitText("DeliveryNoDirectory", nowhere, systemErrorText(ENOENT)));
    QVERIFY(writeFile(nowhere, "x"));
    QCOMPARE(failureText([&] { const Delivery delivery(nowhere); }),
             kitText("DeliveryNoDirectory", nowhere, systemErrorText(ENOTDIR)));
    QCOMPARE(failureText([&] { const Delivery delivery{QString()}; }),
             kitText("DeliveryNoDirectory", QString(), systemErrorText(ENOENT)));
}

void TestDelivery::directoryThatVanishesIsSaid()
{
    const Delivery delivery(_spool->path());
    delivery.deliver("a", "x");
    QVERIFY(QDir(_spool->path()).removeRecursively());
    QCOMPARE(failureText([&] { delivery.deliver("b", "x"); }),
             failed(*_spool, "b", systemFailure(_spool->incoming(), ENOENT)));
    QVERIFY(!QFile::exists(_spool->path()));
    QVERIFY(QDir().mkdir(_spool->path()));
    QCOMPARE(delivery.deliver("b", "x"), QString("b"));
}

void TestDelivery::relativeDirectoryIsResolvedOnce()
{
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(_spool->beside(".")));
    const Delivery delivery("spool");
    QDir::setCurrent(before);
    delivery.deliver("a", "x");
    QCOMPARE(_spool->visible(), QStringList("a"));
}

void TestDelivery::leftoversOfTheDeadAreRemoved()
{
    const Delivery delivery(_spool->path());
    QCOMPARE(delivery.removeLeftovers(0s), 0);
    delivery.deliver("a", "x");
    QCOMPARE(delivery.removeLeftovers(0s), 0);
    for (const char* name : {"1-f.0", "1-f.1", "1-f.lock", "by-hand", ".hidden", "a\nb"})
        QVERIFY(writeFile(_spool->incoming() + '/' + name, "x"));
    QCOMPARE(delivery.removeLeftovers(1h), 0);
    QCOMPARE(_spool->growing().size(), 6);
    QCOMPARE(delivery.removeLeftovers(0s), 5);
    QCOMPARE(_spool->growing(), QStringList());
    QCOMPARE(_spool->visible(), QStringList("a"));
}

/// The time of the last modification, which anybody may set, does not count.
void TestDelivery::leftoversAreRemovedByAge()
{
    const Delivery delivery(_spool->path());
    delivery.deliver("a", "x");
    QFile file(_spool->incoming() + "/1-f.0");
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(file.setFileTime(QDateTime::currentDateTime().addYears(-1),
                             QFileDevice::FileModificationTime));
    QCOMPARE(delivery.removeLeftovers(1h), 0);
    int removed = 0;
    QTRY_VERIFY((removed += delivery.removeLeftovers(1s)) > 0);
    QCOMPARE(removed, 1);
    QCOMPARE(_spool->growing(), QStringList());
}

void TestDelivery::filesOfTheLivingStay()
{
    const Delivery delivery(_spool->path());
    int removed = -1;
    QStringList growing;
    WatchedBuffer device;
    device.onRead = [&] {
        removed = delivery.removeLeftovers(0s);
        growing = _spool->growing();
    };
    device.setData("x");
    QVERIFY(device.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    const QStringList names = delivery.deliverAll({{"first", QByteArray("1")}, {"second", device}});
    QCOMPARE(removed, 0);
    QCOMPARE(growing.size(), 3);
    QCOMPARE(names, QStringList({"first", "second"}));
}

/// Whatever the mask of the producer: the lock says whether it lives.
void TestDelivery::producersOfOtherUsersCanBeProbed()
{
    mode_t lockMode = 0;
    mode_t fileMode = 0;
    WatchedBuffer device;
    device.onRead = [&] {
        for (const QString& name : _spool->growing())
            (name.endsWith(".lock") ? lockMode : fileMode) =
                Spool::modeOf(_spool->incoming() + '/' + name);
    };
    QVERIFY(device.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    const mode_t mask = ::umask(077);
    Delivery(_spool->path()).deliver("a", device);
    ::umask(mask);
    QCOMPARE(lockMode, mode_t(0666));
    QCOMPARE(fileMode, mode_t(0600));
}

void TestDelivery::whatIsNoFileStays()
{
    const Delivery delivery(_spool->path());
    delivery.deliver("a", "x");
    QVERIFY(QDir().mkdir(_spool->incoming() + "/directory"));
    QVERIFY(QFile::link(_spool->path("a"), _spool->incoming() + "/link"));
    QCOMPARE(::mkfifo(QFile::encodeName(_spool->incoming() + "/fifo").constData(), 0600), 0);
    QCOMPARE(delivery.removeLeftovers(0s), 0);
    QCOMPARE(_spool->growing(), QStringList({"directory", "fifo", "link"}));
}

void TestDelivery::missingRightsAreSaid()
{
    QVERIFY(openToEverybody(_spool->beside(".")) && openToEverybody(_spool->path()));
    QVERIFY(writeFile(_spool->beside("secret"), "x"));
    QCOMPARE(::chmod(QFile::encodeName(_spool->beside("secret")).constData(), 0), 0);
    QCOMPARE(::chmod(QFile::encodeName(_spool->path()).constData(), 0555), 0);
    const ChildResult child = runChild({"rights", _spool->beside(".")});
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(_spool->visible(), QStringList());
}

void TestDelivery::fileThatDoesNotFitLeavesNothing()
{
    const ChildResult child = runChild({"size", _spool->beside(".")});
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(_spool->visible(), QStringList("small"));
    QCOMPARE(_spool->growing(), QStringList());
}

void TestDelivery::failureSurvivesAnotherThread()
{
    const DeliveryFailure failure("text", {"a"});
    const std::unique_ptr<QException> copy(failure.clone());
    try {
        copy->raise();
        QFAIL("nothing was thrown");
    } catch (const DeliveryFailure& caught) {
        QCOMPARE(caught.detail(), QString("text"));
        QCOMPARE(caught.delivered(), QStringList("a"));
    }
}

void TestDelivery::controlCharactersAreShownEscaped()
{
    const Delivery delivery(_spool->path());
    QCOMPARE(delivery.deliver("a\nb", "x"), QString("a\nb"));
    QCOMPARE(failureText([&] { delivery.deliver("a\nb", "x"); }),
             failed(*_spool, "a\\nb", kitText("DeliveryNameTaken")));
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestDelivery, childMain)
#include "tst_delivery.moc"
