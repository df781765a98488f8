// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/statusfile_p.h"

#include "runnerfixture.h"
#include "service/kittexts_p.h"
#include "support/tracelog.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <atomic>
#include <cerrno>
#include <memory>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace KezService;

class TestStatusFile : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void textShowsTheProgress();
    void emptyProgressIsWritten();
    void fileIsReplacedAtOnce();
    void failureIsSaidOnce();
    void whatIsInTheWay_data();
    void whatIsInTheWay();

private:
    static RunnerProgress sample();
    static QJsonObject parsed(const QByteArray& text)
    {
        return QJsonDocument::fromJson(text).object();
    }
    QString path() const { return _spool->pathOf(".kez/status.json"); }

    std::unique_ptr<Spool> _spool;
};

void TestStatusFile::init()
{
    _spool = std::make_unique<Spool>();
    QVERIFY(QDir(_spool->path()).mkdir(".kez"));
}

RunnerProgress TestStatusFile::sample()
{
    ConsumerProgress first;
    first.id = "led\"ger\n";
    first.done = qint64(1) << 40;
    first.quarantined = 2;
    first.waiting = 3;
    first.running = 4;
    first.retrying = 5;
    first.oldest = "commande n° 1.xml";
    first.oldestSince = QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5, 6), Qt::OffsetFromUTC, 3600);
    ConsumerProgress second;
    second.id = "archive";
    RunnerProgress progress;
    progress.files = 12;
    progress.consumers = {first, second};
    return progress;
}

void TestStatusFile::textShowsTheProgress()
{
    StatusFile status(_spool->path());
    const QDateTime before = QDateTime::currentDateTimeUtc().addMSecs(-1);
    status.write(sample(), "running");
    const QJsonObject object = parsed(readFile(path()));
    QCOMPARE(object.value("state").toString(), QString("running"));
    QCOMPARE(object.value("process").toInteger(), qint64(::getpid()));
    QCOMPARE(object.value("spool").toString(), _spool->path());
    QCOMPARE(object.value("files").toInteger(), qint64(12));
    const QDateTime time =
        QDateTime::fromString(object.value("time").toString(), Qt::ISODateWithMs);
    QVERIFY(time >= before && time <= QDateTime::currentDateTimeUtc());
    QCOMPARE(object.value("consumers").toArray().size(), qsizetype(2));
    const QJsonObject first = object.value("consumers").toArray().at(0).toObject();
    const QJsonObject expected{{"id", "led\"ger\n"},
                               {"done", qint64(1) << 40},
                               {"quarantined", 2},
                               {"waiting", 3},
                               {"running", 4},
                               {"retrying", 5},
                               {"oldest", "commande n° 1.xml"},
                               {"oldestSince", "2026-01-02T02:04:05.006Z"}};
    QCOMPARE(first, expected);
    const QJsonObject second = object.value("consumers").toArray().at(1).toObject();
    QVERIFY(!second.contains("oldest") && !second.contains("oldestSince"));
}

void TestStatusFile::emptyProgressIsWritten()
{
    StatusFile status(_spool->path());
    status.write({}, "stopped");
    const QJsonObject object = parsed(readFile(path()));
    QCOMPARE(object.value("state").toString(), QString("stopped"));
    QVERIFY(object.value("consumers").isArray());
    QCOMPARE(QDir(_spool->pathOf(".kez")).entryList(QDir::Files), QStringList{"status.json"});
}

void TestStatusFile::fileIsReplacedAtOnce()
{
    StatusFile status(_spool->path());
    RunnerProgress progress = sample();
    for (int i = 0; i < 200; ++i)
        progress.consumers.append(progress.consumers.first());
    status.write(progress, "running");
    std::atomic<bool> isOver = false;
    std::atomic<int> reads = 0;
    std::atomic<int> faults = 0;
    std::thread reader([&, file = path()] {
        while (!isOver) {
            const QJsonArray consumers = parsed(readFile(file)).value("consumers").toArray();
            faults += consumers.size() != 202 ? 1 : 0;
            ++reads;
        }
    });
    for (int time = 0; time < 300 || reads < 20; ++time)
        status.write(progress, "running");
    isOver = true;
    reader.join();
    QCOMPARE(int(faults), 0);
}

void TestStatusFile::failureIsSaidOnce()
{
    StatusFile status(_spool->path());
    TraceLog log;
    const QString hidden = _spool->pathOf(".kez");
    for (int period = 0; period < 2; ++period) {
        QVERIFY(QDir(hidden).removeRecursively());
        for (int time = 0; time < 3; ++time)
            status.write(sample(), "running");
        QCOMPARE(log.take(), QStringList{"2" + kitText("RunnerStatusNotWritten", path(),
                                                       systemErrorText(ENOENT))});
        QVERIFY(QDir().mkdir(hidden));
        status.write(sample(), "running");
        QVERIFY(QFile::exists(path()));
        QCOMPARE(log.take(), QStringList());
    }
}

void TestStatusFile::whatIsInTheWay_data()
{
    QTest::addColumn<QByteArray>("kind");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("isWritten");
    QTest::newRow("a link to a file") << QByteArray("link") << "status.json" << true;
    QTest::newRow("a fifo") << QByteArray("fifo") << "status.json" << true;
    QTest::newRow("a directory") << QByteArray("directory") << "status.json" << false;
    QTest::newRow("growing: a link to a file") << QByteArray("link") << "status.json.new" << true;
    QTest::newRow("growing: a fifo") << QByteArray("fifo") << "status.json.new" << true;
    QTest::newRow("growing: a directory") << QByteArray("directory") << "status.json.new" << false;
    QTest::newRow("growing: an old one") << QByteArray("file") << "status.json.new" << true;
}

void TestStatusFile::whatIsInTheWay()
{
    QFETCH(const QByteArray, kind);
    QFETCH(const QString, name);
    QFETCH(const bool, isWritten);
    const QByteArray place = QFile::encodeName(_spool->pathOf(".kez/" + name));
    const QString target = _spool->beside("target");
    QVERIFY(writeFile(target, "mine"));
    if (kind == "link")
        QCOMPARE(::symlink(QFile::encodeName(target).constData(), place.constData()), 0);
    else if (kind == "fifo")
        QCOMPARE(::mkfifo(place.constData(), 0600), 0);
    else if (kind == "directory")
        QCOMPARE(::mkdir(place.constData(), 0700), 0);
    else
        QVERIFY(writeFile(_spool->pathOf(".kez/" + name), QByteArray(100000, 'x')));
    const TraceLog log;
    StatusFile status(_spool->path());
    status.write(sample(), "running");
    QCOMPARE(readFile(target), QByteArray("mine"));
    QCOMPARE(parsed(readFile(path())).value("files").toInteger(-1), qint64(isWritten ? 12 : -1));
    QCOMPARE(log.texts().size(), qsizetype(isWritten ? 0 : 1));
    const QStringList left =
        QDir(_spool->pathOf(".kez")).entryList(QDir::Files | QDir::Hidden | QDir::System);
    QCOMPARE(left, isWritten ? QStringList{"status.json"} : QStringList());
}

QTEST_GUILESS_MAIN(TestStatusFile)
#include "tst_statusfile.moc"
