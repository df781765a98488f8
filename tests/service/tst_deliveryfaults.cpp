// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/kittexts_p.h"
#include "support/childprocess.h"
#include "support/failuretext.h"
#include "support/spool.h"
#include "support/spoolfaults.h"

#include <kez/service/delivery.h>

#include <QtTest>

#include <cerrno>
#include <memory>
#include <optional>
#include <thread>

#include <sys/wait.h>

using namespace KezService;
using namespace std::chrono_literals;

namespace {

using NameTaken = Delivery::NameTaken;
using Parcel = Delivery::Parcel;
using SpoolFaults::Call;

/// The error that a call meets.
using Fault = int (*)(const Call&);

const QByteArray Content = QByteArray(150000, 'x') + "end";

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

QString systemFailure(const QString& path, int error)
{
    return kitText("SystemFailure", path, systemErrorText(error));
}

/// A file system that cannot rename without replacing.
int withoutNoReplace(const Call& call)
{
    return call.function == "renameat2" ? EINVAL : 0;
}

/// The source is on a file system of its own.
int fromElsewhere(const Call& call)
{
    return call.function == "renameat2" && !call.path.contains("/.kez/") ? EXDEV : 0;
}

/// A user that owns nothing; 0 for the true one.
uid_t stranger = 0;

/// A directory such as /tmp, on another file system: only the owners remove files there.
int childBesideOthers()
{
    if (!becomeOrdinaryUser())
        return 1;
    const Spool spool;
    const QString source = spool.beside("drop/a");
    if (!QDir().mkdir(spool.beside("drop")) || !writeFile(source, "x") ||
        ::chmod(QFile::encodeName(spool.beside("drop")).constData(), 01777) != 0)
        return 2;
    const Delivery delivery(spool.path());
    SpoolFaults::watch(QFile::encodeName(spool.beside(".")).chopped(2));
    SpoolFaults::before = [copied = false](const Call& call, qsizetype) mutable {
        copied = copied || call.function == "create";
        return copied ? 0 : fromElsewhere(call);
    };
    stranger = ::geteuid() + 1;
    const QString text = failureText([&] { delivery.moveIn(source); });
    if (text != kitText("DeliveryFailed", "a", spool.path(), kitText("DeliverySourceSticky")))
        return 3;
    if (!spool.visible().isEmpty() || !spool.growing().isEmpty() || readFile(source) != "x" ||
        !SpoolFaults::summary({"create"}).isEmpty())
        return 4;
    stranger = 0;
    if (delivery.moveIn(source) != "a" || QFile::exists(source))
        return 5;
    return 0;
}

int childMain(const QStringList&)
{
    return childBesideOthers();
}

} // namespace

extern "C" uid_t geteuid() noexcept
{
    static const auto original = interposed<uid_t (*)()>("geteuid");
    return stranger != 0 ? stranger : original();
}

class TestDeliveryFaults : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void dataAreSyncedBeforeTheRename();
    void manyFilesCostOneSyncOfTheDirectory();
    void movedFileIsSyncedBeforeTheRename();
    void killedProducerLeavesNothingHalf_data();
    void killedProducerLeavesNothingHalf();
    void failedCallLeavesNothing_data();
    void failedCallLeavesNothing();
    void interruptedAndShortWritesGoOn();
    void visibleFileIsSaidIfTheDirectoryCannotBeSynced();
    void firstFilesAreSaidIfALaterOneCannotEnter();
    void linkTakesTheRenamesPlace();
    void linkIsTakenBackIfTheSourceStays();
    void linkOfAnotherIsNotTakenBack();
    void linkStaysIfAnotherHasRemovedTheSource();
    void fileFromAnotherFileSystemIsSyncedBeforeItsSourceGoes();
    void sourceThatCannotBeRemovedIsSaid();
    void sourceThatChangesWhileItIsCopiedIsRefused_data();
    void sourceThatChangesWhileItIsCopiedIsRefused();
    void sourceThatIsReplacedBeforeTheRenameIsRefused();
    void sourceThatIsReplacedAtTheRenameIsTakenBack();
    void newSourceIsNotRemovedInsteadOfTheCopiedOne();
    void newSourceIsNotRemovedAtTheLastMoment();
    void sourceThatChangesAfterTheCopyIsSaid();
    void sourceWhoseRightsChangeAfterTheCopyGoes();
    void stickyDirectoryIsRefusedBeforeTheCopy();
    void copyEndsIfTheThreadIsAskedToEnd();
    void lockThatIsTakenIsMadeAnew_data();
    void lockThatIsTakenIsMadeAnew();
    void fileSystemWithoutLocksWorks();
    void leftoverThatCannotBeRemovedIsSaid();
    void lockThatCannotBeProbedIsSaid();
    void leftoversThatCannotBeListedAreSaid();

private:
    QByteArray root() const { return QFile::encodeName(_spool->beside(".")).chopped(2); }
    QString failed(const QString& name, const QString& reason) const
    {
        return kitText("DeliveryFailed", name, _spool->path(), reason);
    }
    bool runKilled(const std::function<void()>& action, qsizetype at,
                   const std::function<int(const Call&)>& fault) const;

    std::unique_ptr<Spool> _spool;
};

void TestDeliveryFaults::init()
{
    _spool = std::make_unique<Spool>();
    QVERIFY(_spool->isValid());
}

void TestDeliveryFaults::cleanup()
{
    SpoolFaults::reset();
}

void TestDeliveryFaults::dataAreSyncedBeforeTheRename()
{
    const Delivery delivery(_spool->path());
    delivery.deliver("first", "makes the hidden directories");
    SpoolFaults::watch(root());
    delivery.deliver("order.xml", "x");
    SpoolFaults::watched.clear();
    QByteArrayList calls = SpoolFaults::summary({"create", "write", "fsync", "renameat2", "link"});
    QCOMPARE(calls.size(), 6);
    const QByteArray lock = calls.takeFirst();
    QVERIFY2(lock.startsWith("create ") && lock.endsWith(".lock"), lock.constData());
    const QByteArray temporary = lock.mid(7).chopped(5) + ".0";
    QCOMPARE(calls, QByteArrayList({"create " + temporary, "write " + temporary,
                                    "fsync " + temporary, "renameat2 order.xml", "fsync spool"}));
}

void TestDeliveryFaults::manyFilesCostOneSyncOfTheDirectory()
{
    std::vector<Parcel> parcels;
    for (int i = 0; i < 100; ++i)
        parcels.emplace_back(QString::number(i), QByteArray("x"));
    SpoolFaults::watch(root());
    Delivery(_spool->path()).deliverAll(parcels);
    SpoolFaults::watched.clear();
    const QByteArrayList calls = SpoolFaults::summary({"fsync", "renameat2"});
    QCOMPARE(calls.size(), 201);
    for (int i = 0; i < 100; ++i) {
        QVERIFY2(calls.at(i).startsWith("fsync ") &&
                     calls.at(i).endsWith('.' + QByteArray::number(i)),
                 calls.at(i).constData());
        QCOMPARE(calls.at(100 + i), "renameat2 " + QByteArray::number(i));
    }
    QCOMPARE(calls.last(), QByteArray("fsync spool"));
}

void TestDeliveryFaults::movedFileIsSyncedBeforeTheRename()
{
    QVERIFY(QDir().mkdir(_spool->beside("outbox")) && writeFile(_spool->beside("outbox/a"), "x"));
    const Delivery delivery(_spool->path());
    SpoolFaults::watch(root());
    delivery.moveIn(_spool->beside("outbox/a"), "b");
    SpoolFaults::watched.clear();
    QCOMPARE(SpoolFaults::summary({"create", "write", "fsync", "renameat2", "unlink"}),
             QByteArrayList({"fsync a", "renameat2 b", "fsync spool", "fsync outbox"}));
}

/// Runs the action in a child that is killed before its call of that number. False if it came to
/// its end before.
bool TestDeliveryFaults::runKilled(const std::function<void()>& action, qsizetype at,
                                   const std::function<int(const Call&)>& fault) const
{
    const pid_t child = ::fork();
    if (child == 0) {
        SpoolFaults::watch(root());
        SpoolFaults::before = [&](const Call& call, qsizetype number) {
            if (number == at)
                ::kill(::getpid(), SIGKILL);
            return fault ? fault(call) : 0;
        };
        const QString failure = failureText(action);
        ::_exit(failure.isNull() ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!WIFSIGNALED(status) && WEXITSTATUS(status) != 0)
        qFatal("the child failed at call %d", int(at));
    return WIFSIGNALED(status);
}

void TestDeliveryFaults::killedProducerLeavesNothingHalf_data()
{
    QTest::addColumn<bool>("isMove");
    QTest::addColumn<int>("files");
    QTest::addColumn<Fault>("fault");
    const auto row = [](const char* name, bool isMove, int files, Fault fault) {
        QTest::newRow(name) << isMove << files << fault;
    };
    row("one file", false, 1, nullptr);
    row("three files", false, 3, nullptr);
    row("three files, by links", false, 3, &withoutNoReplace);
    row("move", true, 1, nullptr);
    row("move by a link", true, 1, &withoutNoReplace);
    row("move from another file system", true, 1, &fromElsewhere);
}

/// The kill comes before each call that changes something, one after the other.
void TestDeliveryFaults::killedProducerLeavesNothingHalf()
{
    QFETCH(const bool, isMove);
    QFETCH(const int, files);
    QFETCH(const Fault, fault);
    // The fault of another file system is the source's only: a copy is renamed in its own.
    bool isCopied = false;
    const auto faultOfCall = [&](const Call& call) {
        isCopied = isCopied || call.function == "create";
        return !fault || (isCopied && fault == &fromElsewhere) ? 0 : fault(call);
    };
    const QString source = _spool->beside("a");
    const Delivery delivery(_spool->path(), NameTaken::FreshName);
    const auto act = [&] {
        if (isMove) {
            delivery.moveIn(source);
            return;
        }
        std::vector<Parcel> parcels;
        for (int i = 0; i < files; ++i)
            parcels.emplace_back("a", Content);
        delivery.deliverAll(parcels);
    };
    qsizetype at = 1;
    for (bool isKilled = true; isKilled; ++at) {
        QVERIFY(QDir(_spool->path()).removeRecursively() && QDir().mkdir(_spool->path()));
        if (isMove)
            QVERIFY(writeFile(source, Content));
        isCopied = false;
        isKilled = runKilled(act, at, faultOfCall);
        const QStringList visible = _spool->visible();
        for (const QString& name : visible)
            QVERIFY2(_spool->content(name) == Content, qPrintable(QString::number(at)));
        QVERIFY(visible.size() <= files);
        if (isMove) {
            QVERIFY2(QFile::exists(source) || visible.size() == 1, "the file is lost");
            if (QFile::exists(source))
                QVERIFY(readFile(source) == Content);
        }
        delivery.removeLeftovers(0s);
        QCOMPARE(_spool->growing(), QStringList());
        QCOMPARE(_spool->visible(), visible);
        if (!isKilled)
            QCOMPARE(visible.size(), files);
        if (isMove && QFile::exists(source)) {
            delivery.moveIn(source);
            QVERIFY(!QFile::exists(source));
            // A copy is on its own; a second name of the file is not.
            if (fault != &fromElsewhere)
                QCOMPARE(_spool->visible(), QStringList("a"));
        }
    }
    QVERIFY2(at > (isMove ? 3 : 8), qPrintable(QString::number(at)));
}

void TestDeliveryFaults::failedCallLeavesNothing_data()
{
    QTest::addColumn<QByteArray>("function");
    QTest::addColumn<int>("error");
    const auto row = [](const char* name, const char* function, int error) {
        QTest::newRow(name) << QByteArray(function) << error;
    };
    row("full disk", "write", ENOSPC);
    row("quota", "write", EDQUOT);
    row("full disk when it is synced", "fsync", ENOSPC);
    row("broken disk", "fsync", EIO);
    row("full disk at the rename", "renameat2", ENOSPC);
    row("no descriptor", "create", EMFILE);
    row("no rights", "create", EACCES);
    row("no directory can be made", "mkdir", ENOSPC);
    row("no lock at all", "flock", EBADF);
}

void TestDeliveryFaults::failedCallLeavesNothing()
{
    QFETCH(const QByteArray, function);
    QFETCH(const int, error);
    const Delivery delivery(_spool->path());
    SpoolFaults::watch(root());
    SpoolFaults::before = [&](const Call& call, qsizetype) {
        return call.function == function ? error : 0;
    };
    QString text;
    const auto delivered = deliveredInFailure([&] {
        try {
            delivery.deliver("a", Content);
        } catch (const Exception& failure) {
            text = failure.detail();
            throw;
        }
    });
    SpoolFaults::reset();
    QVERIFY(delivered == QStringList());
    const int shown = function == "flock" ? EBUSY : error;
    QVERIFY2(text.startsWith(kitText("DeliveryFailed", QString("a"), _spool->path(), QString())) &&
                 text.endsWith(systemErrorText(shown)),
             qPrintable(text));
    QCOMPARE(_spool->visible(), QStringList());
    QCOMPARE(_spool->growing(), QStringList());
    QCOMPARE(delivery.deliver("a", Content), QString("a"));
}

void TestDeliveryFaults::interruptedAndShortWritesGoOn()
{
    const Delivery delivery(_spool->path());
    SpoolFaults::watch(root());
    SpoolFaults::writeLimit = 1000;
    SpoolFaults::before = [interrupted = QByteArray()](const Call& call, qsizetype) mutable {
        const bool isFirst = call.function != interrupted;
        interrupted = call.function;
        const bool isLong = QByteArrayList({"write", "fsync", "create"}).contains(call.function);
        return isFirst && isLong ? EINTR : 0;
    };
    delivery.deliver("a", Content);
    SpoolFaults::reset();
    QCOMPARE(_spool->content("a"), Content);
}

void TestDeliveryFaults::visibleFileIsSaidIfTheDirectoryCannotBeSynced()
{
    const Delivery delivery(_spool->path());
    QVERIFY(writeFile(_spool->beside("c"), "x"));
    SpoolFaults::watch(root());
    SpoolFaults::before = [](const Call& call, qsizetype) {
        return call.function == "fsync" && call.path.endsWith("/spool") ? EIO : 0;
    };
    const auto deliver = [&] { delivery.deliver("a", "x"); };
    const auto deliverOther = [&] { delivery.deliver("b", "x"); };
    const auto move = [&] { delivery.moveIn(_spool->beside("c")); };
    QCOMPARE(failureText(deliver),
             kitText("DeliveryNotSynced", QString("a"), _spool->path(), systemErrorText(EIO)));
    QVERIFY(deliveredInFailure(deliverOther) == QStringList("b"));
    QVERIFY(deliveredInFailure(move) == QStringList("c"));
    SpoolFaults::reset();
    QCOMPARE(_spool->visible(), QStringList({"a", "b", "c"}));
    QCOMPARE(_spool->growing(), QStringList());
}

void TestDeliveryFaults::firstFilesAreSaidIfALaterOneCannotEnter()
{
    const Delivery delivery(_spool->path());
    SpoolFaults::watch(root());
    SpoolFaults::before = [this](const Call& call, qsizetype) {
        // Another producer takes the name at the last moment.
        if (call.function == "renameat2" && call.path.endsWith("/b"))
            writeFile(_spool->path("b"), "other");
        return 0;
    };
    QStringList delivered;
    const QString text = failureText([&] {
        try {
            delivery.deliverAll(
                {{"a", QByteArray("1")}, {"b", QByteArray("2")}, {"c", QByteArray("3")}});
        } catch (const DeliveryFailure& failure) {
            delivered = failure.delivered();
            throw;
        }
    });
    SpoolFaults::watched.clear();
    QCOMPARE(text, failed("b", kitText("DeliveryNameTaken")) + ' ' +
                       kitText("DeliveryFailedAmong", QString("1"), QString("3")));
    QCOMPARE(delivered, QStringList("a"));
    QCOMPARE(SpoolFaults::summary({"fsync"}).last(), QByteArray("fsync spool"));
    QCOMPARE(_spool->visible(), QStringList({"a", "b"}));
    QCOMPARE(_spool->content("b"), QByteArray("other"));
    QCOMPARE(_spool->growing(), QStringList());
}

void TestDeliveryFaults::linkTakesTheRenamesPlace()
{
    const Delivery delivery(_spool->path());
    SpoolFaults::watch(root());
    SpoolFaults::before = [](const Call& call, qsizetype) { return withoutNoReplace(call); };
    QCOMPARE(delivery.deliver("a", "1"), QString("a"));
    const QString text = failureText([&] { delivery.deliver("a", "2"); });
    SpoolFaults::reset();
    QCOMPARE(text, failed("a", kitText("DeliveryNameTaken")));
    QCOMPARE(_spool->content("a"), QByteArray("1"));
    QCOMPARE(_spool->growing(), QStringList());
}

void TestDeliveryFaults::linkIsTakenBackIfTheSourceStays()
{
    QVERIFY(writeFile(_spool->beside("a"), "x"));
    const Delivery delivery(_spool->path());
    SpoolFaults::watch(root());
    SpoolFaults::before = [this](const Call& call, qsizetype) {
        const bool isSource = QFile::decodeName(call.path) == _spool->beside("a");
        return call.function == "unlink" && isSource ? EACCES : withoutNoReplace(call);
    };
    const QString text = failureText([&] { delivery.moveIn(_spool->beside("a")); });
    SpoolFaults::reset();
    QCOMPARE(text, failed("a", systemFailure(_spool->path("a"), EACCES)));
    QCOMPARE(_spool->visible(), QStringList());
    QCOMPARE(readFile(_spool->beside("a")), QByteArray("x"));
}

/// A consumer was faster, and another producer has delivered under that name since.
void TestDeliveryFaults::linkOfAnotherIsNotTakenBack()
{
    QVERIFY(writeFile(_spool->beside("a"), "mine") && writeFile(_spool->beside("b"), "other"));
    const Delivery delivery(_spool->path());
    SpoolFaults::watch(root());
    SpoolFaults::before = [this](const Call& call, qsizetype) {
        if (call.function != "unlink" || QFile::decodeName(call.path) != _spool->beside("a"))
            return withoutNoReplace(call);
        QFile::remove(_spool->path("a"));
        QFile::rename(_spool->beside("b"), _spool->path("a"));
        return EACCES;
    };
    QVERIFY(!failureText([&] { delivery.moveIn(_spool->beside("a")); }).isNull());
    SpoolFaults::reset();
    QCOMPARE(_spool->content("a"), QByteArray("other"));
    QCOMPARE(readFile(_spool->beside("a")), QByteArray("mine"));
}

void TestDeliveryFaults::linkStaysIfAnotherHasRemovedTheSource()
{
    QVERIFY(writeFile(_spool->beside("a"), "x"));
    const Delivery delivery(_spool->path());
    SpoolFaults::watch(root());
    SpoolFaults::before = [this](const Call& call, qsizetype) {
        if (call.function == "unlink")
            QFile::remove(_spool->beside("a"));
        return withoutNoReplace(call);
    };
    QCOMPARE(delivery.moveIn(_spool->beside("a")), QString("a"));
    SpoolFaults::reset();
    QCOMPARE(_spool->content("a"), QByteArray("x"));
}

void TestDeliveryFaults::fileFromAnotherFileSystemIsSyncedBeforeItsSourceGoes()
{
    QVERIFY(QDir().mkdir(_spool->beside("outbox")) && writeFile(_spool->beside("outbox/a"), "x"));
    const Delivery delivery(_spool->path());
    delivery.deliver("first", "makes the hidden directories");
    SpoolFaults::watch(root());
    SpoolFaults::before = [copied = false](const Call& call, qsizetype) mutable {
        copied = copied || call.function == "create";
        return copied ? 0 : fromElsewhere(call);
    };
    QCOMPARE(delivery.moveIn(_spool->beside("outbox/a")), QString("a"));
    SpoolFaults::watched.clear();
    QByteArrayList calls =
        SpoolFaults::summary({"create", "fsync", "renameat2", "rename", "unlink"});
    QCOMPARE(calls.mid(0, 2), QByteArrayList({"fsync a", "renameat2 a"}));
    QVERIFY(calls.at(2).endsWith(".lock"));
    const QByteArray stem = calls.at(2).mid(7).chopped(5);
    for (QByteArray& call : calls) // the number in the hidden name of the source
        if (call.endsWith(".moved"))
            call = call.first(call.indexOf(' ') + 1) + 'a';
    QCOMPARE(calls.mid(3),
             QByteArrayList({"create " + stem + ".0", "fsync " + stem + ".0", "renameat2 a",
                             "fsync spool", "rename a", "unlink a", "unlink " + stem + ".lock",
                             "fsync spool", "fsync outbox"}));
}

void TestDeliveryFaults::sourceThatCannotBeRemovedIsSaid()
{
    const QString source = _spool->beside("a");
    QVERIFY(writeFile(source, "x"));
    const Delivery delivery(_spool->path());
    SpoolFaults::watch(root());
    SpoolFaults::before = [&, copied = false](const Call& call, qsizetype) mutable {
        copied = copied || call.function == "create";
        if (call.function == "rename" && call.path.startsWith(root() + "/.a."))
            return EPERM;
        return copied ? 0 : fromElsewhere(call);
    };
    QStringList delivered;
    const QString text = failureText([&] {
        try {
            delivery.moveIn(source);
        } catch (const DeliveryFailure& failure) {
            delivered = failure.delivered();
            throw;
        }
    });
    SpoolFaults::reset();
    QCOMPARE(text, kitText("DeliverySourceStays", QString("a"), _spool->path(), source,
                           systemErrorText(EPERM)));
    QCOMPARE(delivered, QStringList("a"));
    QCOMPARE(_spool->content("a"), QByteArray("x"));
    QCOMPARE(readFile(source), QByteArray("x"));
}

void TestDeliveryFaults::sourceThatChangesWhileItIsCopiedIsRefused_data()
{
    QTest::addColumn<bool>("isMove");
    QTest::newRow("copy") << false;
    QTest::newRow("move") << true;
}

void TestDeliveryFaults::sourceThatChangesWhileItIsCopiedIsRefused()
{
    QFETCH(const bool, isMove);
    const QString source = _spool->beside("a");
    QVERIFY(writeFile(source, Content));
    const Delivery delivery(_spool->path());
    SpoolFaults::watch(root());
    SpoolFaults::before = [&, copied = false](const Call& call, qsizetype) mutable {
        if (call.function == "write" && !copied) {
            copied = true;
            QFile file(source);
            if (!file.open(QIODevice::Append) || file.write("more") != 4)
                qFatal("the test cannot write");
        }
        return copied ? 0 : fromElsewhere(call);
    };
    const QString text = failureText([&] {
        if (isMove)
            delivery.moveIn(source);
        else
            delivery.deliverFile(source);
    });
    SpoolFaults::reset();
    QCOMPARE(text, failed("a", kitText("DeliverySourceChanged")));
    QCOMPARE(_spool->visible(), QStringList());
    QCOMPARE(_spool->growing(), QStringList());
    QCOMPARE(readFile(source), Content + "more");
}

void TestDeliveryFaults::sourceThatIsReplacedBeforeTheRenameIsRefused()
{
    const QString source = _spool->beside("a");
    QVERIFY(writeFile(source, "old") && writeFile(_spool->beside("b"), "new"));
    const Delivery delivery(_spool->path());
    SpoolFaults::watch(root());
    SpoolFaults::before = [&](const Call& call, qsizetype) {
        if (call.function == "fsync")
            QFile::remove(source), QFile::rename(_spool->beside("b"), source);
        return 0;
    };
    const QString text = failureText([&] { delivery.moveIn(source); });
    SpoolFaults::watched.clear();
    QCOMPARE(text, failed("a", kitText("DeliverySourceChanged")));
    QCOMPARE(SpoolFaults::summary({"renameat2"}), QByteArrayList());
    QCOMPARE(readFile(source), QByteArray("new"));
}

void TestDeliveryFaults::sourceThatIsReplacedAtTheRenameIsTakenBack()
{
    const QString source = _spool->beside("a");
    QVERIFY(writeFile(source, "old") && writeFile(_spool->beside("b"), "new"));
    const Delivery delivery(_spool->path());
    SpoolFaults::watch(root());
    SpoolFaults::before = [&](const Call& call, qsizetype) {
        if (call.function == "renameat2" && QFile::remove(source))
            QFile::rename(_spool->beside("b"), source);
        return 0;
    };
    const QString text = failureText([&] { delivery.moveIn(source, "c"); });
    SpoolFaults::reset();
    QCOMPARE(text, failed("c", kitText("DeliverySourceChanged")));
    QCOMPARE(_spool->visible(), QStringList());
    QCOMPARE(readFile(source), QByteArray("new"));
}

void TestDeliveryFaults::newSourceIsNotRemovedInsteadOfTheCopiedOne()
{
    const QString source = _spool->beside("a");
    QVERIFY(writeFile(source, "old") && writeFile(_spool->beside("b"), "new"));
    const Delivery delivery(_spool->path());
    SpoolFaults::watch(root());
    SpoolFaults::before = [&, copied = false](const Call& call, qsizetype) mutable {
        copied = copied || call.function == "create";
        if (call.function == "fsync" && call.path.endsWith("/spool") &&
            QFile::exists(_spool->beside("b")))
            QFile::remove(source), QFile::rename(_spool->beside("b"), source);
        return copied ? 0 : fromElsewhere(call);
    };
    QCOMPARE(delivery.moveIn(source), QString("a"));
    SpoolFaults::reset();
    QCOMPARE(_spool->content("a"), QByteArray("old"));
    QCOMPARE(readFile(source), QByteArray("new"));
}

/// It takes the name between the last look at the source and its removal.
void TestDeliveryFaults::newSourceIsNotRemovedAtTheLastMoment()
{
    const QString source = _spool->beside("a");
    QVERIFY(writeFile(source, "old") && writeFile(_spool->beside("b"), "new"));
    const Delivery delivery(_spool->path());
    SpoolFaults::watch(root());
    SpoolFaults::before = [&, copied = false](const Call& call, qsizetype) mutable {
        copied = copied || call.function == "create";
        const bool isRemoval = call.function == "unlink" || call.function == "rename";
        if (isRemoval && !call.path.contains("/.kez/"))
            QFile::remove(source), QFile::rename(_spool->beside("b"), source);
        return copied ? 0 : fromElsewhere(call);
    };
    QCOMPARE(delivery.moveIn(source), QString("a"));
    SpoolFaults::reset();
    QCOMPARE(_spool->content("a"), QByteArray("old"));
    QCOMPARE(readFile(source), QByteArray("new"));
    QCOMPARE(QDir(_spool->beside(".")).entryList(QDir::Files | QDir::Hidden), QStringList("a"));
}

void TestDeliveryFaults::sourceThatChangesAfterTheCopyIsSaid()
{
    const QString source = _spool->beside("a");
    QVERIFY(writeFile(source, "old"));
    const Delivery delivery(_spool->path());
    SpoolFaults::watch(root());
    SpoolFaults::before = [&, copied = false](const Call& call, qsizetype) mutable {
        copied = copied || call.function == "create";
        if (call.function == "fsync" && call.path.endsWith("/spool") && readFile(source) == "old")
            writeFile(source, "longer");
        return copied ? 0 : fromElsewhere(call);
    };
    QStringList delivered;
    const QString text = failureText([&] {
        try {
            delivery.moveIn(source);
        } catch (const DeliveryFailure& failure) {
            delivered = failure.delivered();
            throw;
        }
    });
    SpoolFaults::reset();
    QCOMPARE(text, kitText("DeliverySourceStays", QString("a"), _spool->path(), source,
                           kitText("DeliverySourceChanged")));
    QCOMPARE(delivered, QStringList("a"));
    QCOMPARE(_spool->content("a"), QByteArray("old"));
    QCOMPARE(readFile(source), QByteArray("longer"));
}

void TestDeliveryFaults::sourceWhoseRightsChangeAfterTheCopyGoes()
{
    const QString source = _spool->beside("a");
    QVERIFY(writeFile(source, "x"));
    const Delivery delivery(_spool->path());
    SpoolFaults::watch(root());
    SpoolFaults::before = [&, copied = false](const Call& call, qsizetype) mutable {
        copied = copied || call.function == "create";
        if (call.function == "fsync" && call.path.endsWith("/spool"))
            ::chmod(QFile::encodeName(source).constData(), 0640);
        return copied ? 0 : fromElsewhere(call);
    };
    QCOMPARE(delivery.moveIn(source), QString("a"));
    SpoolFaults::reset();
    QVERIFY(!QFile::exists(source));
}

void TestDeliveryFaults::stickyDirectoryIsRefusedBeforeTheCopy()
{
    const ChildResult child = runChild({"sticky"});
    QVERIFY(child.finished && !child.crashed);
    QCOMPARE(child.exitCode, 0);
}

void TestDeliveryFaults::copyEndsIfTheThreadIsAskedToEnd()
{
    const QString source = _spool->beside("a");
    QVERIFY(writeFile(source, Content));
    const Delivery delivery(_spool->path());
    QString text;
    qsizetype writes = 0;
    const std::unique_ptr<QThread> thread(QThread::create([&] {
        SpoolFaults::watch(root());
        SpoolFaults::before = [](const Call& call, qsizetype) {
            if (call.function == "write")
                QThread::currentThread()->requestInterruption();
            return 0;
        };
        text = failureText([&] { delivery.deliverFile(source); });
        writes = SpoolFaults::summary({"write"}).size();
        SpoolFaults::reset();
    }));
    thread->start();
    QVERIFY(thread->wait(60000));
    QCOMPARE(text, failed("a", kitText("DeliveryInterrupted")));
    QCOMPARE(writes, qsizetype(1));
    QCOMPARE(_spool->visible(), QStringList());
    QCOMPARE(_spool->growing(), QStringList());
}

void TestDeliveryFaults::lockThatIsTakenIsMadeAnew_data()
{
    QTest::addColumn<QByteArray>("function");
    QTest::addColumn<int>("error");
    QTest::newRow("name is taken") << QByteArray("create") << EEXIST;
    QTest::newRow("somebody removes leftovers") << QByteArray("flock") << EWOULDBLOCK;
    QTest::newRow("somebody has removed it") << QByteArray("flock") << 0;
}

void TestDeliveryFaults::lockThatIsTakenIsMadeAnew()
{
    QFETCH(const QByteArray, function);
    QFETCH(const int, error);
    const Delivery delivery(_spool->path());
    delivery.deliver("first", "x");
    SpoolFaults::watch(root());
    SpoolFaults::before = [&, done = false](const Call& call, qsizetype) mutable {
        if (done || call.function != function)
            return 0;
        done = true;
        if (error == 0)
            ::unlink(call.path.constData());
        return error;
    };
    QCOMPARE(delivery.deliver("a", "x"), QString("a"));
    SpoolFaults::watched.clear();
    QCOMPARE(SpoolFaults::summary({"create"}).size(), 3);
    QCOMPARE(_spool->growing(), QStringList());
}

/// The age alone decides about leftovers then.
void TestDeliveryFaults::fileSystemWithoutLocksWorks()
{
    const Delivery delivery(_spool->path());
    SpoolFaults::watch(root());
    SpoolFaults::before = [](const Call& call, qsizetype) {
        return call.function == "flock" ? ENOLCK : 0;
    };
    QCOMPARE(delivery.deliver("a", "x"), QString("a"));
    QVERIFY(writeFile(_spool->incoming() + "/1-f.lock", {}));
    QVERIFY(writeFile(_spool->incoming() + "/1-f.0", "x"));
    QCOMPARE(delivery.removeLeftovers(1h), 0);
    QCOMPARE(delivery.removeLeftovers(0s), 1);
    SpoolFaults::reset();
    QCOMPARE(_spool->growing(), QStringList());
}

void TestDeliveryFaults::leftoverThatCannotBeRemovedIsSaid()
{
    const Delivery delivery(_spool->path());
    delivery.deliver("a", "x");
    for (const char* name : {"1", "2", "3"})
        QVERIFY(writeFile(_spool->incoming() + '/' + name, "x"));
    SpoolFaults::watch(root());
    SpoolFaults::before = [](const Call& call, qsizetype) {
        return call.function == "unlink" && call.path.endsWith("/2") ? EPERM : 0;
    };
    const QString text = failureText([&] { delivery.removeLeftovers(0s); });
    SpoolFaults::reset();
    QCOMPARE(text, kitText("DeliveryLeftovers", _spool->path(),
                           systemFailure(_spool->incoming() + "/2", EPERM)));
    QCOMPARE(_spool->growing(), QStringList("2"));
}

void TestDeliveryFaults::lockThatCannotBeProbedIsSaid()
{
    const Delivery delivery(_spool->path());
    delivery.deliver("a", "x");
    QVERIFY(writeFile(_spool->incoming() + "/1-f.lock", {}));
    QVERIFY(writeFile(_spool->incoming() + "/1-f.0", "x"));
    QVERIFY(writeFile(_spool->incoming() + "/2-f.0", "x"));
    SpoolFaults::watch(root());
    SpoolFaults::before = [](const Call& call, qsizetype) {
        return call.function == "open" && call.path.endsWith(".lock") && call.path.contains("1-f")
                   ? EACCES
                   : 0;
    };
    const QString young = failureText([&] { delivery.removeLeftovers(1h); });
    const QString text = failureText([&] { delivery.removeLeftovers(0s); });
    SpoolFaults::reset();
    QCOMPARE(young, QString());
    QCOMPARE(text, kitText("DeliveryLeftovers", _spool->path(),
                           systemFailure(_spool->incoming() + "/1-f.lock", EACCES)));
    QCOMPARE(_spool->growing(), QStringList({"1-f.0", "1-f.lock"}));
}

void TestDeliveryFaults::leftoversThatCannotBeListedAreSaid()
{
    const Delivery delivery(_spool->path());
    delivery.deliver("a", "x");
    SpoolFaults::watch(root());
    SpoolFaults::before = [](const Call& call, qsizetype) {
        return call.function == "readdir" ? EIO : 0;
    };
    const QString text = failureText([&] { delivery.removeLeftovers(0s); });
    SpoolFaults::reset();
    QCOMPARE(text,
             kitText("DeliveryLeftovers", _spool->path(), systemFailure(_spool->incoming(), EIO)));
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestDeliveryFaults, childMain)
#include "tst_deliveryfaults.moc"
