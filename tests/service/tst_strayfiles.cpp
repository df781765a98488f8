// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/strayfiles_p.h"

#include "runnerfixture.h"
#include "service/kittexts_p.h"
#include "support/tracelog.h"

#include <QtTest>

#include <sys/stat.h>

using namespace KezService;
using namespace std::chrono_literals;

class TestStrayFiles : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void fileThatIsNotTakenIsSaidOnce();
    void fileThatHasJustComeIsNotSaid();
    void furtherFilesAreSaid();
    void nameThatIsNotUtf8IsFound();
    void onlyVisibleFilesCount();
    void missingSpoolIsNoFault();
    void numberIsBounded();

private:
    QString said(int count, const QString& name) const
    {
        return "2" + kitText("RunnerStrays", _spool->path(), QString::number(count), name);
    }

    /// Two looks, as they come once a minute.
    void lookTwice()
    {
        _now += 2min;
        _strays->look(_now);
        _now += 1s;
        _strays->look(_now);
    }

    std::unique_ptr<Spool> _spool;
    std::unique_ptr<TraceLog> _log;
    std::unique_ptr<StrayFiles> _strays;
    QStringList _known;
    StrayFiles::Clock::time_point _now = StrayFiles::Clock::now();
};

void TestStrayFiles::init()
{
    _spool = std::make_unique<Spool>(Spool::fastParent());
    _log = std::make_unique<TraceLog>(LoggerLevel::info);
    _known.clear();
    _strays = std::make_unique<StrayFiles>(
        _spool->path(), [this](const QString& name) { return _known.contains(name); });
}

void TestStrayFiles::cleanup()
{
    _strays.reset();
    _log.reset();
    _spool.reset();
}

void TestStrayFiles::fileThatIsNotTakenIsSaidOnce()
{
    QVERIFY(_spool->put("taken") && _spool->put("stray\n"));
    _known = QStringList{"taken"};
    for (int time = 0; time < 3; ++time) {
        lookTwice();
        QCOMPARE(_strays->count(), qint64(1));
        QCOMPARE(_log->texts(), QStringList{said(1, "stray\\n")});
    }
    QVERIFY(QFile::remove(_spool->pathOf("stray\n")));
    lookTwice();
    QCOMPARE(_strays->count(), qint64(0));
    QVERIFY(_spool->put("stray\n"));
    lookTwice();
    QCOMPARE(_log->texts().size(), qsizetype(2)); // a new one
}

void TestStrayFiles::fileThatHasJustComeIsNotSaid()
{
    _strays->look(_now);
    QVERIFY(_spool->put("new"));
    _now += 1s;
    _strays->look(_now);
    QCOMPARE(_strays->count(), qint64(0));
    QVERIFY(QFile::remove(_spool->pathOf("new")));
    QVERIFY(_spool->put("other"));
    _strays->look(_now); // too early
    _now += 2min;
    _strays->look(_now);
    _known = QStringList{"other"};
    _now += 1s;
    _strays->look(_now);
    QCOMPARE(_strays->count(), qint64(0));
    QCOMPARE(_log->texts(), QStringList());
}

void TestStrayFiles::furtherFilesAreSaid()
{
    QVERIFY(_spool->put("a"));
    lookTwice();
    QVERIFY(_spool->put("b"));
    lookTwice();
    QCOMPARE(_strays->count(), qint64(2));
    QCOMPARE(_log->texts().size(), qsizetype(2));
    QVERIFY(QFile::remove(_spool->pathOf("a")));
    lookTwice();
    QCOMPARE(_strays->count(), qint64(1));
    QCOMPARE(_log->texts().size(), qsizetype(2)); // fewer is no news
}

void TestStrayFiles::nameThatIsNotUtf8IsFound()
{
    const QByteArray path = QFile::encodeName(_spool->path()) + "/a\xff.xml";
    QVERIFY(::mkfifo((path + "x").constData(), 0600) == 0); // no file
    FILE* const file = std::fopen(path.constData(), "w");
    QVERIFY(file);
    std::fclose(file);
    lookTwice();
    QCOMPARE(_strays->count(), qint64(1));
    QCOMPARE(_log->texts().size(), qsizetype(1));
    QVERIFY(_log->texts().first().contains("[a"));
}

void TestStrayFiles::onlyVisibleFilesCount()
{
    QVERIFY(_spool->put(".hidden"));
    QVERIFY(QDir(_spool->path()).mkdir("directory"));
    QVERIFY(QFile::link("nothing", _spool->pathOf("link")));
    lookTwice();
    QCOMPARE(_strays->count(), qint64(0));
}

void TestStrayFiles::missingSpoolIsNoFault()
{
    QVERIFY(_spool->put("stray"));
    lookTwice();
    QVERIFY(QDir(_spool->path()).removeRecursively());
    lookTwice();
    QCOMPARE(_strays->count(), qint64(0));
    QCOMPARE(_log->texts().size(), qsizetype(1));
}

void TestStrayFiles::numberIsBounded()
{
    QVERIFY(_spool->putMany(1100));
    lookTwice();
    QCOMPARE(_strays->count(), qint64(1000));
}

QTEST_GUILESS_MAIN(TestStrayFiles)
#include "tst_strayfiles.moc"
