// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/spoollock_p.h"

#include "runnerfixture.h"
#include "service/kittexts_p.h"
#include "support/childoutput.h"
#include "support/failuretext.h"

#include <QtTest>

#include <cerrno>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace KezService;

class TestSpoolLock : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void textIsTheProcess();
    void secondOneIsRefused();
    void otherProcessIsRefused();
    void killedProcessHoldsNothing();
    void textOfTheHolderIsOnlyText_data();
    void textOfTheHolderIsOnlyText();
    void whatIsThereCounts_data();
    void whatIsThereCounts();
    void directoryMustBeThere();
    void removedLockIsTakenAgain_data();
    void removedLockIsTakenAgain();
    void removedLockMayBeTakenByAnother();
    void childDoesNotInheritIt();

private:
    QString lockPath() const { return _spool->pathOf(".kez/lock"); }
    QString refusal() const
    {
        return failureText([this] { SpoolLock(_spool->path()); });
    }

    std::unique_ptr<Spool> _spool;
};

void TestSpoolLock::init()
{
    _spool = std::make_unique<Spool>();
    QVERIFY(QDir(_spool->path()).mkdir(".kez"));
}

void TestSpoolLock::textIsTheProcess()
{
    const QByteArray id = QByteArray::number(::getpid()) + '\n';
    QVERIFY(writeFile(lockPath(), "a much longer text than that"));
    {
        const SpoolLock lock(_spool->path());
        QVERIFY(lock.isInPlace());
        QCOMPARE(readFile(lockPath()), id);
    }
    QCOMPARE(readFile(lockPath()), id); // the file stays
    QCOMPARE(refusal(), QString());
}

void TestSpoolLock::secondOneIsRefused()
{
    std::optional<SpoolLock> lock(std::in_place, _spool->path());
    const QString expected =
        kitText("RunnerSpoolTaken", _spool->path(), QString::number(::getpid()));
    QCOMPARE(refusal(), expected);
    QCOMPARE(refusal(), expected);
    lock.reset();
    QCOMPARE(refusal(), QString());
}

void TestSpoolLock::otherProcessIsRefused()
{
    const SpoolLock lock(_spool->path());
    const ChildResult child = runChild({"take", _spool->path()}, environmentUnder("en_US.UTF-8"));
    QCOMPARE(child.exitCode, 0);
    const QByteArray expected = "[" + _spool->path().toUtf8() +
                                "] is at work already, in the process " +
                                QByteArray::number(::getpid());
    QVERIFY2(child.out.contains(expected), child.out.constData());
}

void TestSpoolLock::killedProcessHoldsNothing()
{
    QProcess process;
    process.start(QCoreApplication::applicationFilePath(), {"--child", "hold", _spool->path()});
    QVERIFY(process.waitForReadyRead(30000));
    QCOMPARE(process.readLine().trimmed(), QByteArray("held"));
    QCOMPARE(refusal(),
             kitText("RunnerSpoolTaken", _spool->path(), QString::number(process.processId())));
    process.kill();
    QVERIFY(process.waitForFinished(30000));
    QCOMPARE(refusal(), QString());
}

void TestSpoolLock::textOfTheHolderIsOnlyText_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("shown");
    QTest::newRow("empty") << QByteArray() << QString();
    QTest::newRow("long") << QByteArray(100000, '7') << QString(20, '7');
    QTest::newRow("control characters") << QByteArray("\x1b[2J\n1\n") << "\\x1b[2J\\n1";
    QTest::newRow("zeros") << QByteArray(3, '\0') << "\\x00\\x00\\x00";
    QTest::newRow("no text") << QByteArray("\xff\xfe%1") << "ÿþ%1";
}

void TestSpoolLock::textOfTheHolderIsOnlyText()
{
    QFETCH(const QByteArray, text);
    QFETCH(const QString, shown);
    std::optional<SpoolLock> lock(std::in_place, _spool->path());
    QVERIFY(writeFile(lockPath(), text));
    QCOMPARE(refusal(), kitText("RunnerSpoolTaken", _spool->path(), shown));
    lock.reset();
    QCOMPARE(refusal(), QString());
    QCOMPARE(readFile(lockPath()), QByteArray::number(::getpid()) + '\n');
}

void TestSpoolLock::whatIsThereCounts_data()
{
    QTest::addColumn<QByteArray>("kind");
    QTest::addColumn<int>("error");
    QTest::newRow("directory") << QByteArray("directory") << EISDIR;
    QTest::newRow("link") << QByteArray("link") << ELOOP;
    QTest::newRow("dangling link") << QByteArray("dangling link") << ELOOP;
    QTest::newRow("fifo") << QByteArray("fifo") << 0; // it locks as well as any other file
}

void TestSpoolLock::whatIsThereCounts()
{
    QFETCH(const QByteArray, kind);
    QFETCH(const int, error);
    const QByteArray path = QFile::encodeName(lockPath());
    const QByteArray target = QFile::encodeName(_spool->beside("target"));
    if (kind == "directory")
        QCOMPARE(::mkdir(path.constData(), 0700), 0);
    else if (kind == "fifo")
        QCOMPARE(::mkfifo(path.constData(), 0600), 0);
    else
        QCOMPARE(::symlink(target.constData(), path.constData()), 0);
    if (kind == "link")
        QVERIFY(writeFile(_spool->beside("target"), "mine"));
    if (error != 0) {
        QCOMPARE(refusal(), kitText("RunnerLockFailed", lockPath(), systemErrorText(error)));
    } else {
        const SpoolLock lock(_spool->path());
        QCOMPARE(refusal(), kitText("RunnerSpoolTaken", _spool->path(), QString()));
    }
    QCOMPARE(readFile(_spool->beside("target")), QByteArray(kind == "link" ? "mine" : ""));
    QCOMPARE(QFile::exists(_spool->beside("target")), kind == "link");
}

void TestSpoolLock::directoryMustBeThere()
{
    QVERIFY(QDir(_spool->path()).rmdir(".kez"));
    QCOMPARE(refusal(), kitText("RunnerLockFailed", lockPath(), systemErrorText(ENOENT)));
}

void TestSpoolLock::removedLockIsTakenAgain_data()
{
    QTest::addColumn<bool>("isReplaced");
    QTest::newRow("removed") << false;
    QTest::newRow("replaced") << true;
}

void TestSpoolLock::removedLockIsTakenAgain()
{
    QFETCH(const bool, isReplaced);
    SpoolLock lock(_spool->path());
    QVERIFY(QFile::remove(lockPath()));
    if (isReplaced)
        QVERIFY(writeFile(lockPath(), ""));
    QVERIFY(!lock.isInPlace());
    lock.takeAgain();
    QVERIFY(lock.isInPlace());
    QVERIFY(refusal().contains(QString::number(::getpid())));
}

void TestSpoolLock::removedLockMayBeTakenByAnother()
{
    SpoolLock lock(_spool->path());
    QVERIFY(QFile::remove(lockPath()));
    {
        const SpoolLock other(_spool->path());
        for (int time = 0; time < 2; ++time) {
            QVERIFY(failureText([&] { lock.takeAgain(); }).contains(_spool->path()));
            QVERIFY(!lock.isInPlace()); // although there is a file
        }
        QVERIFY(other.isInPlace());
    }
    lock.takeAgain();
    QVERIFY(lock.isInPlace());
    QVERIFY(QDir(_spool->pathOf(".kez")).removeRecursively());
    QVERIFY(!lock.isInPlace());
    QVERIFY(!failureText([&] { lock.takeAgain(); }).isNull());
}

void TestSpoolLock::childDoesNotInheritIt()
{
    std::optional<SpoolLock> lock(std::in_place, _spool->path());
    QProcess process;
    process.start("cat", {});
    QVERIFY(process.waitForStarted(30000));
    lock.reset();
    QCOMPARE(refusal(), QString());
    process.closeWriteChannel();
    QVERIFY(process.waitForFinished(30000));
}

namespace {

int childMain(const QStringList& arguments)
{
    const QString spool = arguments.at(1);
    if (arguments.at(0) == "take") {
        say(failureText([&] { const SpoolLock lock(spool); }));
        return 0;
    }
    const SpoolLock lock(spool);
    say(QString("held"));
    std::fflush(stdout);
    while (true)
        ::pause();
}

} // namespace

KEZ_TEST_MAIN_WITH_CHILDREN(TestSpoolLock, childMain)
#include "tst_spoollock.moc"
