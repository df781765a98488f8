// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/durablefiles_p.h"
#include "service/soletemporary_p.h"
#include "support/childprocess.h"
#include "support/files.h"
#include "support/interposed.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

using namespace KezService;
using namespace std::chrono_literals;

namespace {

/// How far the real-time clock is ahead.
std::chrono::seconds clockAhead(0);

/// The error that a lock meets; 0 for the true answer.
int lockError = 0;

} // namespace

extern "C" {

int clock_gettime(clockid_t id, struct timespec* result) noexcept
{
    static const auto original = interposed<int (*)(clockid_t, struct timespec*)>("clock_gettime");
    const int status = original(id, result);
    if (id == CLOCK_REALTIME)
        result->tv_sec += clockAhead.count();
    return status;
}

int flock(int file, int operation) noexcept
{
    static const auto original = interposed<int (*)(int, int)>("flock");
    errno = lockError;
    return lockError != 0 ? -1 : original(file, operation);
}
}

class TestSoleTemporary : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void fileIsNewAndEmpty();
    void fileIsRemovedUnlessRenamed();
    void oneHasItAtATime();
    void leftoverIsRemoved_data();
    void leftoverIsRemoved();
    void leftoverThatCannotBeOpenedIsRemovedByAge();
    void fileSystemWithoutLocksWorks_data();
    void fileSystemWithoutLocksWorks();
    void ownerThatWasTakenForDeadReplacesNothing();
    void whatIsNoLeftoverStays_data();
    void whatIsNoLeftoverStays();
    void missingDirectoryIsAnError();

private:
    QString shown() const { return _directory->filePath(".app.new"); }
    QByteArray path() const { return QFile::encodeName(shown()); }

    std::unique_ptr<QTemporaryDir> _directory;
};

void TestSoleTemporary::init()
{
    _directory = std::make_unique<QTemporaryDir>();
    QVERIFY(_directory->isValid());
}

void TestSoleTemporary::cleanup()
{
    clockAhead = 0s;
    lockError = 0;
}

void TestSoleTemporary::fileIsNewAndEmpty()
{
    SoleTemporary temporary(path());
    QVERIFY(!QFile::exists(shown()));
    QCOMPARE(temporary.create(0600, 0ms), 0);
    struct stat info {};
    QCOMPARE(::fstat(temporary.descriptor(), &info), 0);
    QCOMPARE(info.st_size, 0);
    QCOMPARE(info.st_mode & 07777, mode_t(0600));
    QCOMPARE(::fcntl(temporary.descriptor(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

void TestSoleTemporary::fileIsRemovedUnlessRenamed()
{
    {
        SoleTemporary temporary(path());
        QCOMPARE(temporary.create(0600, 0ms), 0);
        QCOMPARE(temporary.renameTo(path() + "/below"), ENOTDIR);
        QVERIFY(QFile::exists(shown()));
    }
    QVERIFY(!QFile::exists(shown()));

    const QString target = _directory->filePath("app");
    SoleTemporary temporary(path());
    QCOMPARE(temporary.create(0600, 0ms), 0);
    QCOMPARE(writeAll(temporary.descriptor(), "new"), 0);
    QCOMPARE(temporary.renameTo(QFile::encodeName(target)), 0);
    QCOMPARE(readFile(target), QByteArray("new"));
    QVERIFY(writeFile(shown(), "of somebody else"));
}

void TestSoleTemporary::oneHasItAtATime()
{
    auto first = std::make_unique<SoleTemporary>(path());
    QCOMPARE(first->create(0600, 0ms), 0);
    {
        SoleTemporary second(path());
        QCOMPARE(second.create(0600, 0ms), EWOULDBLOCK);
        QCOMPARE(second.create(0600, 20ms), EWOULDBLOCK);
    }
    QVERIFY(QFile::exists(shown())); // the second one did not remove what is not its own
    first.reset();
    SoleTemporary third(path());
    QCOMPARE(third.create(0600, 0ms), 0);
}

void TestSoleTemporary::leftoverIsRemoved_data()
{
    QTest::addColumn<uint>("mode");
    QTest::newRow("usual") << 0644U;
    QTest::newRow("only readable") << 0444U;
}

void TestSoleTemporary::leftoverIsRemoved()
{
    QFETCH(const uint, mode);
    QVERIFY(writeFile(shown(), "half"));
    QCOMPARE(::chmod(path().constData(), mode), 0);
    const Descriptor held = openFile(path(), O_RDONLY); // as a reader from before
    SoleTemporary temporary(path());
    QCOMPARE(temporary.create(0600, 1s), 0);
    QCOMPARE(writeAll(temporary.descriptor(), "new"), 0);
    QCOMPARE(readFile(shown()), QByteArray("new"));
    char first = 0;
    QCOMPARE(::read(held.get(), &first, 1), ssize_t(1));
    QCOMPARE(first, 'h');
}

void TestSoleTemporary::leftoverThatCannotBeOpenedIsRemovedByAge()
{
    const ChildResult child = runChild({});
    QVERIFY(child.finished && !child.crashed);
    QCOMPARE(child.exitCode, 0);
}

void TestSoleTemporary::fileSystemWithoutLocksWorks_data()
{
    QTest::addColumn<int>("error");
    QTest::newRow("no locks") << ENOLCK;
    QTest::newRow("not supported") << EOPNOTSUPP;
    QTest::newRow("no such call") << ENOSYS;
}

/// The age decides then.
void TestSoleTemporary::fileSystemWithoutLocksWorks()
{
    QFETCH(const int, error);
    lockError = error;
    SoleTemporary first(path());
    QCOMPARE(first.create(0600, 0ms), 0);
    {
        SoleTemporary second(path());
        QCOMPARE(second.create(0600, 20ms), EWOULDBLOCK);
    }
    QVERIFY(QFile::exists(shown()));
    QCOMPARE(first.renameTo(QFile::encodeName(_directory->filePath("app"))), 0);
    QVERIFY(writeFile(shown(), "half"));
    SoleTemporary third(path());
    clockAhead = 58s;
    QCOMPARE(third.create(0600, 0ms), EWOULDBLOCK);
    clockAhead = 61s;
    QCOMPARE(third.create(0600, 1s), 0);
    QCOMPARE(readFile(shown()), QByteArray());
}

void TestSoleTemporary::ownerThatWasTakenForDeadReplacesNothing()
{
    const QString target = _directory->filePath("app");
    lockError = ENOLCK;
    SoleTemporary second(path());
    {
        SoleTemporary first(path());
        QCOMPARE(first.create(0600, 0ms), 0);
        clockAhead = 61s;
        QCOMPARE(second.create(0600, 1s), 0);
        QCOMPARE(first.renameTo(QFile::encodeName(target)), EBUSY);
        QVERIFY(!QFile::exists(target));
    }
    QVERIFY(QFile::exists(shown())); // it is the second one's
    QCOMPARE(second.renameTo(QFile::encodeName(target)), 0);
    QVERIFY(QFile::exists(target));
}

void TestSoleTemporary::whatIsNoLeftoverStays_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("error");
    QTest::newRow("link") << "link" << ELOOP;
    QTest::newRow("directory") << "directory" << EISDIR;
}

void TestSoleTemporary::whatIsNoLeftoverStays()
{
    QFETCH(const QString, kind);
    const QString victim = _directory->filePath("victim");
    QVERIFY(writeFile(victim, "mine"));
    QVERIFY(kind == "link" ? QFile::link(victim, shown()) : QDir().mkdir(shown()));
    {
        SoleTemporary temporary(path());
        QTEST(temporary.create(0600, 0ms), "error");
    }
    QVERIFY(QFileInfo::exists(shown()));
    QCOMPARE(readFile(victim), QByteArray("mine"));
}

void TestSoleTemporary::missingDirectoryIsAnError()
{
    SoleTemporary temporary(QFile::encodeName(_directory->filePath("nowhere/.new")));
    QCOMPARE(temporary.create(0600, 1s), ENOENT);
}

namespace {

/// An ordinary user cannot open it: neither to write nor to read.
int childMain(const QStringList&)
{
    if (!becomeOrdinaryUser())
        return 1;
    const QTemporaryDir directory;
    const QString shown = directory.filePath(".app.new");
    const QByteArray path = QFile::encodeName(shown);
    if (!writeFile(shown, "half") || ::chmod(path.constData(), 0) != 0)
        return 2;
    SoleTemporary temporary(path);
    if (temporary.create(0600, 20ms) != EWOULDBLOCK || !QFile::exists(shown))
        return 3;
    clockAhead = 61s;
    ::chmod(QFile::encodeName(directory.path()).constData(), 0500);
    const int error = temporary.create(0600, 0ms);
    ::chmod(QFile::encodeName(directory.path()).constData(), 0700);
    if (error != EACCES)
        return 4;
    return temporary.create(0600, 1s) == 0 ? 0 : 5;
}

} // namespace

KEZ_TEST_MAIN_WITH_CHILDREN(TestSoleTemporary, childMain)
#include "tst_soletemporary.moc"
