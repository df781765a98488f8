// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/durablefiles_p.h"
#include "support/files.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace KezService;

class DurableFiles : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void renameTakesAFreeName();
    void renameNeverReplaces();
    void directoryOfAPath_data();
    void directoryOfAPath();
    void replacedFileKeepsItsMode();
    void newFileHasTheModeThatTheMaskLeaves();
    void failureLeavesTheOldFileAndNoTemporary();
    void temporaryIsNotFollowedIfItIsALink();
    void copyIsWhole_data();
    void copyIsWhole();
    void copyEndsWhenItIsCancelled();
    void descriptorIsClosedOnExec();

private:
    QByteArray path(const char* name) const
    {
        return QFile::encodeName(_directory->filePath(QString::fromLatin1(name)));
    }
    QByteArray content(const char* name) const
    {
        return readFile(_directory->filePath(QString::fromLatin1(name)));
    }
    bool write(const char* name, const QByteArray& bytes) const
    {
        return writeFile(_directory->filePath(QString::fromLatin1(name)), bytes);
    }
    mode_t modeOf(const char* name) const
    {
        struct stat info {};
        return ::stat(path(name).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
    }

    std::unique_ptr<QTemporaryDir> _directory;
};

void DurableFiles::init()
{
    _directory = std::make_unique<QTemporaryDir>();
    QVERIFY(_directory->isValid());
}

void DurableFiles::renameTakesAFreeName()
{
    QVERIFY(write("from", "order"));
    QCOMPARE(renameWithoutReplacing(path("from"), path("to")), 0);
    QCOMPARE(content("to"), QByteArray("order"));
    QVERIFY(!QFile::exists(_directory->filePath("from")));
}

void DurableFiles::renameNeverReplaces()
{
    QVERIFY(write("from", "new") && write("to", "old"));
    QCOMPARE(renameWithoutReplacing(path("from"), path("to")), EEXIST);
    QCOMPARE(content("from"), QByteArray("new"));
    QCOMPARE(content("to"), QByteArray("old"));
    QCOMPARE(renameWithoutReplacing(path("nowhere"), path("other")), ENOENT);
}

void DurableFiles::directoryOfAPath_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("directory");
    QTest::newRow("below a directory") << QByteArray("/a/b") << QByteArray("/a");
    QTest::newRow("below the root") << QByteArray("/a") << QByteArray("/");
    QTest::newRow("bare name") << QByteArray("a") << QByteArray(".");
}

void DurableFiles::directoryOfAPath()
{
    QFETCH(const QByteArray, path);
    QTEST(directoryOf(path), "directory");
}

void DurableFiles::replacedFileKeepsItsMode()
{
    QVERIFY(write("settings", "old"));
    QCOMPARE(::chmod(path("settings").constData(), 0640), 0);
    QCOMPARE(replaceFile(path("settings"), path(".new"), "new"), 0);
    QCOMPARE(content("settings"), QByteArray("new"));
    QCOMPARE(modeOf("settings"), mode_t(0640));
    QVERIFY(!QFile::exists(_directory->filePath(".new")));
}

void DurableFiles::newFileHasTheModeThatTheMaskLeaves()
{
    const mode_t mask = ::umask(027);
    const int error = replaceFile(path("settings"), path(".new"), "new");
    ::umask(mask);
    QCOMPARE(error, 0);
    QCOMPARE(modeOf("settings"), mode_t(0640));
}

void DurableFiles::failureLeavesTheOldFileAndNoTemporary()
{
    // A directory cannot be replaced by a file.
    QVERIFY(QDir(_directory->path()).mkpath("taken/below"));
    QVERIFY(replaceFile(path("taken"), path(".new"), "new") != 0);
    QVERIFY(QDir(_directory->filePath("taken/below")).exists());
    QVERIFY(!QFile::exists(_directory->filePath(".new")));
    QCOMPARE(replaceFile(path("nowhere/a"), path("nowhere/.new"), "new"), ENOENT);
}

void DurableFiles::temporaryIsNotFollowedIfItIsALink()
{
    QVERIFY(write("victim", "mine"));
    QVERIFY(QFile::link(_directory->filePath("victim"), _directory->filePath(".new")));
    QCOMPARE(replaceFile(path("settings"), path(".new"), "new"), ELOOP);
    QCOMPARE(content("victim"), QByteArray("mine"));
}

void DurableFiles::copyIsWhole_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("zeros") << QByteArray(10, '\0');
    QTest::newRow("one block") << QByteArray(65536, 'a');
    QTest::newRow("more") << QByteArray(200001, 'b');
}

void DurableFiles::copyIsWhole()
{
    QFETCH(const QByteArray, bytes);
    QVERIFY(write("from", bytes));
    const Descriptor from = openFile(path("from"), O_RDONLY);
    const Descriptor to = openFile(path("to"), O_WRONLY | O_CREAT | O_EXCL, 0600);
    QVERIFY(from.isOpen() && to.isOpen());
    QCOMPARE(copyBytes(from.get(), to.get()), 0);
    QCOMPARE(content("to"), bytes);
}

void DurableFiles::copyEndsWhenItIsCancelled()
{
    static int questions;
    questions = 0;
    QVERIFY(write("from", QByteArray(200001, 'b')));
    const Descriptor from = openFile(path("from"), O_RDONLY);
    const Descriptor to = openFile(path("to"), O_WRONLY | O_CREAT | O_EXCL, 0600);
    QCOMPARE(copyBytes(from.get(), to.get(), [] { return ++questions > 2; }), ECANCELED);
    QCOMPARE(content("to").size(), 131072);
}

void DurableFiles::descriptorIsClosedOnExec()
{
    const Descriptor file = openFile(path("file"), O_WRONLY | O_CREAT, 0600);
    QVERIFY(file.isOpen());
    QCOMPARE(::fcntl(file.get(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    QVERIFY(!openFile(path("nowhere/file"), O_RDONLY).isOpen());
    QCOMPARE(errno, ENOENT);
}

QTEST_GUILESS_MAIN(DurableFiles)
#include "tst_durablefiles.moc"
