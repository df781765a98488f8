// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/spoolaccess_p.h"

#include "runnerfixture.h"
#include "service/kittexts_p.h"
#include "service/spoollock_p.h"
#include "support/tracelog.h"

#include <QtTest>

#include <memory>

using namespace KezService;
using State = SpoolAccess::State;

Q_DECLARE_METATYPE(State)

class TestSpoolAccess : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void quietWhileAllIsWell();
    void lostSpoolIsSaidOnce();
    void lookAfterAFailureComesAfterAPause();
    void removedLockIsTakenAgain();
    void anotherCauseIsSaidToo();
    void otherDirectoryInThePlaceOfTheSpoolIsLeftAlone();
    void nameIsDeletedOnlyFromASpoolInReach();

private:
    void loseSpool() const { QVERIFY(QDir().rename(_spool->path(), _spool->beside("away"))); }
    void bringBackSpool() const { QVERIFY(QDir().rename(_spool->beside("away"), _spool->path())); }

    State lookNow()
    {
        _access->skipPause();
        return _access->look();
    }

    std::unique_ptr<Spool> _spool;
    std::unique_ptr<TraceLog> _log;
    std::unique_ptr<SpoolLock> _lock;
    std::unique_ptr<SpoolAccess> _access;
};

void TestSpoolAccess::init()
{
    _spool = std::make_unique<Spool>();
    QVERIFY(QDir(_spool->path()).mkdir(".kez"));
    _log = std::make_unique<TraceLog>(LoggerLevel::info);
    _lock = std::make_unique<SpoolLock>(_spool->path());
    _access = std::make_unique<SpoolAccess>(_spool->path(), *_lock);
}

void TestSpoolAccess::cleanup()
{
    _access.reset();
    _lock.reset();
    _log.reset();
    _spool.reset();
}

void TestSpoolAccess::quietWhileAllIsWell()
{
    QVERIFY(_access->isUsable());
    QCOMPARE(_access->look(), State::Usable);
    QCOMPARE(_access->look(), State::Usable);
    QVERIFY(_access->isUsable());
    QCOMPARE(_log->texts(), QStringList());
}

void TestSpoolAccess::lostSpoolIsSaidOnce()
{
    loseSpool();
    QCOMPARE(lookNow(), State::Unusable);
    QCOMPARE(lookNow(), State::Unusable);
    QVERIFY(!_access->isUsable());
    bringBackSpool();
    QCOMPARE(lookNow(), State::Regained);
    QVERIFY(_access->isUsable());
    QCOMPARE(lookNow(), State::Usable);
    QCOMPARE(_log->texts(), QStringList({"3" + kitText("RunnerSpoolLost", _spool->path()),
                                         "1" + kitText("RunnerSpoolBack", _spool->path())}));
}

void TestSpoolAccess::lookAfterAFailureComesAfterAPause()
{
    loseSpool();
    QCOMPARE(_access->look(), State::Unusable);
    bringBackSpool();
    QCOMPARE(_access->look(), State::Unusable);
    QCOMPARE(lookNow(), State::Regained);
}

void TestSpoolAccess::removedLockIsTakenAgain()
{
    const QString hidden = _spool->pathOf(".kez");
    QVERIFY(QDir(hidden).removeRecursively());
    QCOMPARE(_access->look(), State::Regained);
    QVERIFY(_lock->isInPlace());
    QCOMPARE(_access->look(), State::Usable);
    QCOMPARE(_log->texts(), QStringList{"2" + kitText("RunnerLockRemoved", hidden)});
}

void TestSpoolAccess::anotherCauseIsSaidToo()
{
    loseSpool();
    QCOMPARE(lookNow(), State::Unusable);
    QVERIFY(QDir(_spool->beside("away")).removeRecursively());
    QVERIFY(QDir().mkdir(_spool->path()));
    QVERIFY(QDir(_spool->path()).mkdir(".kez"));
    {
        const SpoolLock theirs(_spool->path());
        QCOMPARE(lookNow(), State::Unusable);
        QCOMPARE(lookNow(), State::Unusable);
    }
    QCOMPARE(lookNow(), State::Regained);
    const QString process = QString::number(QCoreApplication::applicationPid());
    QCOMPARE(_log->texts(), QStringList({"3" + kitText("RunnerSpoolLost", _spool->path()),
                                         "3" + kitText("RunnerSpoolTaken", _spool->path(), process),
                                         "1" + kitText("RunnerSpoolBack", _spool->path())}));
}

void TestSpoolAccess::otherDirectoryInThePlaceOfTheSpoolIsLeftAlone()
{
    loseSpool();
    QVERIFY(QDir().mkdir(_spool->path()));
    QCOMPARE(_access->look(), State::Unusable);
    QCOMPARE(lookNow(), State::Unusable);
    QVERIFY(!QFile::exists(_spool->pathOf(".kez")));
    QVERIFY(QDir().rmdir(_spool->path()));
    bringBackSpool();
    QCOMPARE(lookNow(), State::Regained);
    QCOMPARE(_log->texts(), QStringList({"3" + kitText("RunnerSpoolReplaced", _spool->path()),
                                         "1" + kitText("RunnerSpoolBack", _spool->path())}));
}

void TestSpoolAccess::nameIsDeletedOnlyFromASpoolInReach()
{
    QVERIFY(_spool->put("order"));
    QVERIFY(!_access->isDeleted("order"));
    QVERIFY(_access->isDeleted("other"));
    loseSpool();
    QVERIFY(!_access->isDeleted("order"));
    QVERIFY(QDir().mkdir(_spool->path())); // another directory, without the file
    QVERIFY(!_access->isDeleted("order"));
    QVERIFY(_access->stampOf("order"));
    QVERIFY(QDir(_spool->path()).removeRecursively());
    bringBackSpool();
    QVERIFY(QFile::remove(_spool->pathOf("order")));
    QVERIFY(_access->isDeleted("order"));
    QVERIFY(!_access->stampOf("order"));
}

QTEST_GUILESS_MAIN(TestSpoolAccess)
#include "tst_spoolaccess.moc"
