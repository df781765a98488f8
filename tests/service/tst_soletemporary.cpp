// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/durablefiles_p.h"
#include "service/soletemporary_p.h"
#include "support/files.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

using namespace KezService;
using namespace std::chrono_literals;

class TestSoleTemporary : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void fileIsNewAndEmpty();
    void fileIsRemovedUnlessRenamed();
    void oneHasItAtATime();
    void leftoverIsRemoved_data();
    void leftoverIsRemoved();
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

QTEST_GUILESS_MAIN(TestSoleTemporary)
#include "tst_soletemporary.moc"
