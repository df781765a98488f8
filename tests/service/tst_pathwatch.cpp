// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/pathwatch_p.h"
#include "support/files.h"
#include "support/opendescriptors.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <cstdio>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

using namespace KezService;

using Change = std::function<bool(const QString&)>;
Q_DECLARE_METATYPE(Change)

namespace {

bool renameTo(const QString& from, const QString& to)
{
    return ::rename(qPrintable(from), qPrintable(to)) == 0;
}

bool linkTo(const QString& target, const QString& name)
{
    return ::symlink(qPrintable(target), qPrintable(name)) == 0;
}

/// Replaces a link in one step.
bool exchangeLink(const QString& target, const QString& name)
{
    return linkTo(target, name + ".new") && renameTo(name + ".new", name);
}

bool appendTo(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::Append) && file.write("x") == 1 && file.flush();
}

} // namespace

class TestPathWatch : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void changeIsNoticed_data();
    void changeIsNoticed();
    void otherFilesDoNotCount();
    void newFileIsWatchedToo();
    void brokenPathsAreFollowedAsFarAsTheyGo_data();
    void brokenPathsAreFollowedAsFarAsTheyGo();
    void stopEndsIt();
    void descriptorsAreGivenBack();
    void changeIsNoticedAmongTooManyEvents();

private:
    QString root() const { return _directory->path(); }
    static QByteArray bytes(const QString& path) { return QFile::encodeName(path); }

    std::unique_ptr<QTemporaryDir> _directory;
};

/// The tree of each row:
///
///     etc/app.conf                          a plain file
///     links/app.conf -> ../etc/app.conf     a link to it
///     mounted/app.conf -> ..data/app.conf   as a container platform mounts configurations
///     mounted/..data -> ..1                 and exchanges them
///     mounted/..1/app.conf
///     release/current -> ../etc             a directory that is a link
void TestPathWatch::init()
{
    _directory = std::make_unique<QTemporaryDir>();
    QVERIFY(_directory->isValid());
    const QDir directory(root());
    for (const char* name : {"etc", "links", "mounted/..1", "mounted/..2", "release", "other"})
        QVERIFY(directory.mkpath(name));
    for (const char* name : {"etc/app.conf", "mounted/..1/app.conf", "mounted/..2/app.conf",
                             "other/app.conf", "etc/neighbour"})
        QVERIFY(writeFile(root() + '/' + name, name));
    QVERIFY(linkTo("../etc/app.conf", root() + "/links/app.conf"));
    QVERIFY(linkTo("..data/app.conf", root() + "/mounted/app.conf"));
    QVERIFY(linkTo("..1", root() + "/mounted/..data"));
    QVERIFY(linkTo(root() + "/etc", root() + "/release/current"));
}

void TestPathWatch::changeIsNoticed_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<Change>("change");
    const auto row = [](const char* name, const char* path, const Change& change) {
        QTest::newRow(name) << QString(path) << change;
    };
    const auto append = [](const QString& root) { return appendTo(root + "/etc/app.conf"); };
    const auto replace = [](const QString& root) {
        return writeFile(root + "/etc/new", "new") &&
               renameTo(root + "/etc/new", root + "/etc/app.conf");
    };
    row("written in place", "etc/app.conf", append);
    row("truncated", "etc/app.conf",
        [](const QString& root) { return ::truncate(qPrintable(root + "/etc/app.conf"), 0) == 0; });
    row("replaced", "etc/app.conf", replace);
    row("removed", "etc/app.conf",
        [](const QString& root) { return QFile::remove(root + "/etc/app.conf"); });
    row("renamed", "etc/app.conf", [](const QString& root) {
        return renameTo(root + "/etc/app.conf", root + "/etc/app.old");
    });
    row("made", "etc/later.conf",
        [](const QString& root) { return writeFile(root + "/etc/later.conf", ""); });
    row("linked", "etc/later.conf", [](const QString& root) {
        return ::link(qPrintable(root + "/etc/app.conf"), qPrintable(root + "/etc/later.conf")) ==
               0;
    });
    row("rights changed", "etc/app.conf",
        [](const QString& root) { return ::chmod(qPrintable(root + "/etc/app.conf"), 0600) == 0; });
    row("written under another name", "etc/app.conf", [](const QString& root) {
        const QString name = root + "/other/hard";
        return ::link(qPrintable(root + "/etc/app.conf"), qPrintable(name)) == 0 && appendTo(name);
    });
    row("written behind a link", "links/app.conf", append);
    row("replaced behind a link", "links/app.conf", replace);
    row("link exchanged", "links/app.conf", [](const QString& root) {
        return exchangeLink("../other/app.conf", root + "/links/app.conf");
    });
    row("link of a directory exchanged", "release/current/app.conf",
        [](const QString& root) { return exchangeLink("../other", root + "/release/current"); });
    row("written below a link of a directory", "release/current/app.conf", append);
    row("mounted configuration exchanged", "mounted/app.conf",
        [](const QString& root) { return exchangeLink("..2", root + "/mounted/..data"); });
    row("directory replaced", "etc/app.conf", [](const QString& root) {
        return renameTo(root + "/etc", root + "/gone") && renameTo(root + "/other", root + "/etc");
    });
    row("directory removed", "etc/app.conf",
        [](const QString& root) { return QDir(root + "/etc").removeRecursively(); });
    row("directory made", "later/app.conf",
        [](const QString& root) { return QDir(root).mkdir("later"); });
    row("missing target made", "dangling",
        [](const QString& root) { return linkTo("etc/later.conf", root + "/dangling"); });
    row("way back in the path", "other/../etc/./app.conf", append);
}

void TestPathWatch::changeIsNoticed()
{
    QFETCH(const QString, path);
    QFETCH(const Change, change);
    PathWatch watch(bytes(root() + '/' + path));
    QSignalSpy touched(&watch, &PathWatch::touched);
    QCOMPARE(watch.follow(), 0);
    QVERIFY(change(root()));
    QTRY_VERIFY(!touched.isEmpty());
}

void TestPathWatch::otherFilesDoNotCount()
{
    PathWatch watch(bytes(root() + "/mounted/app.conf"));
    PathWatch plain(bytes(root() + "/etc/app.conf"));
    QSignalSpy touched(&watch, &PathWatch::touched);
    QSignalSpy plainTouched(&plain, &PathWatch::touched);
    QCOMPARE(watch.follow(), 0);
    QCOMPARE(plain.follow(), 0);
    QVERIFY(appendTo(root() + "/etc/neighbour"));
    QVERIFY(writeFile(root() + "/etc/made", "x"));
    QVERIFY(QFile::remove(root() + "/etc/neighbour"));
    QVERIFY(writeFile(root() + "/mounted/made", "x"));
    QVERIFY(appendTo(root() + "/mounted/..2/app.conf"));
    readFile(root() + "/etc/app.conf");
    readFile(root() + "/mounted/app.conf");
    // An event that counts comes after all the others.
    QVERIFY(appendTo(root() + "/mounted/..1/app.conf"));
    QTRY_COMPARE(touched.size(), 1);
    QVERIFY(plainTouched.isEmpty());
}

void TestPathWatch::newFileIsWatchedToo()
{
    PathWatch watch(bytes(root() + "/mounted/app.conf"));
    QSignalSpy touched(&watch, &PathWatch::touched);
    QCOMPARE(watch.follow(), 0);
    for (int i = 0; i < 5; ++i) {
        const QString target = i % 2 == 0 ? "..2" : "..1";
        touched.clear();
        QVERIFY(exchangeLink(target, root() + "/mounted/..data"));
        QTRY_VERIFY(!touched.isEmpty());
        touched.clear();
        QVERIFY(appendTo(root() + "/mounted/" + target + "/app.conf"));
        QTRY_VERIFY(!touched.isEmpty());
    }
}

void TestPathWatch::brokenPathsAreFollowedAsFarAsTheyGo_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("root") << QByteArray("/");
    QTest::newRow("above the root") << QByteArray("/../../..");
    QTest::newRow("nowhere") << QByteArray("/nowhere/at/all");
    QTest::newRow("too long a name") << QByteArray("/tmp/" + QByteArray(300, 'n'));
    QTest::newRow("links in a circle") << QByteArray("circle/a");
    QTest::newRow("below a file") << QByteArray("etc/app.conf/below");
}

void TestPathWatch::brokenPathsAreFollowedAsFarAsTheyGo()
{
    QFETCH(QByteArray, path);
    QVERIFY(QDir(root()).mkdir("circle"));
    QVERIFY(linkTo("b", root() + "/circle/a") && linkTo("a", root() + "/circle/b"));
    if (!path.startsWith('/'))
        path.prepend(bytes(root()) + '/');
    PathWatch watch(path);
    QCOMPARE(watch.follow(), 0);
    QCOMPARE(watch.follow(), 0);
}

void TestPathWatch::stopEndsIt()
{
    PathWatch watch(bytes(root() + "/etc/app.conf"));
    QSignalSpy touched(&watch, &PathWatch::touched);
    QCOMPARE(watch.follow(), 0);
    watch.stop();
    QVERIFY(appendTo(root() + "/etc/app.conf"));
    QTest::qWait(50);
    QVERIFY(touched.isEmpty());
    QCOMPARE(watch.follow(), 0);
    QVERIFY(appendTo(root() + "/etc/app.conf"));
    QTRY_VERIFY(!touched.isEmpty());
}

void TestPathWatch::descriptorsAreGivenBack()
{
    const int before = openDescriptors();
    for (int i = 0; i < 5; ++i) {
        PathWatch watch(bytes(root() + "/etc/app.conf"));
        QCOMPARE(watch.follow(), 0);
        QCOMPARE(openDescriptors(), before + 1);
    }
    QCOMPARE(openDescriptors(), before);
}

void TestPathWatch::changeIsNoticedAmongTooManyEvents()
{
    PathWatch watch(bytes(root() + "/etc/app.conf"));
    QSignalSpy touched(&watch, &PathWatch::touched);
    QCOMPARE(watch.follow(), 0);
    // More than the system queues: it says so, and drops the rest.
    for (int i = 0; i < 9000; ++i) {
        QVERIFY(writeFile(root() + "/etc/a", ""));
        QVERIFY(QFile::remove(root() + "/etc/a"));
    }
    QVERIFY(appendTo(root() + "/etc/app.conf"));
    QTRY_VERIFY(!touched.isEmpty());
}

QTEST_GUILESS_MAIN(TestPathWatch)
#include "tst_pathwatch.moc"
