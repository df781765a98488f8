// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/kittexts_p.h"
#include "service/openwriters_p.h"
#include "support/childprocess.h"
#include "support/failuretext.h"
#include "support/opendescriptors.h"
#include "support/spool.h"
#include "support/tracelog.h"

#include <kez/FilesQueue.h>
#include <kez/service/arrivalgate.h>
#include <kez/translator.h>

#include <QScopeGuard>
#include <QSet>
#include <QSignalSpy>
#include <QThread>
#include <QtTest>

#include <cerrno>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

using namespace KezService;
using namespace std::chrono_literals;

namespace {

using Completeness = ArrivalGate::Completeness;

/// An incoming directory beside the queue's, and settings for a fast gate.
class Places {
public:
    Places()
    {
        QDir().mkdir(incoming());
        settings.incoming = incoming();
        settings.queueDirectory = spool.path();
        settings.quietPeriod = 50ms;
        settings.lookPeriod = 1h; // what is found is signalled
        settings.firstPause = 20ms;
        settings.longestPause = 50ms;
    }

    QString incoming() const { return spool.beside("in"); }
    QString incoming(const QString& name) const { return incoming() + '/' + name; }
    bool write(const QString& name, const QByteArray& bytes = "x") const
    {
        return writeFile(incoming(name), bytes);
    }

    Spool spool;
    ArrivalGate::Settings settings;
};

QStringList handedOn(const QString& queue, const QString& name)
{
    return QStringList(QString::number(int(LoggerLevel::info)) +
                       kitText("GateHandedOn", name, queue, name));
}

} // namespace

class TestArrivalGate : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { _log = std::make_unique<TraceLog>(LoggerLevel::info); }
    void cleanup() { _log.reset(); }
    void filesAreHandedOnAsTheyArrive();
    void markersAreHeeded();
    void problemsAreSaidAndSignalled();
    void leftoversThatStayAreALineOnly();
    void linesAreInTheLanguageOfTheProcess_data();
    void linesAreInTheLanguageOfTheProcess();
    void relativePathsAreResolvedOnce();
    void wrongSettingsAreRefused_data();
    void wrongSettingsAreRefused();
    void gateStopsAndStartsAgain();
    void stoppedGateLeavesNoDescriptor();
    void slotMayStopTheGate();
    void slotMayDestroyTheGate();
    void gateWorksInAThreadOfItsOwn();
    void interruptedThreadHandsOnNothing();
    void queueBehindTheGateSeesWholeFilesOnly();

private:
    std::unique_ptr<TraceLog> _log;
};

void TestArrivalGate::filesAreHandedOnAsTheyArrive()
{
    const Places places;
    QVERIFY(places.write("early", "1"));
    ArrivalGate gate(places.settings);
    const QSignalSpy handed(&gate, &ArrivalGate::handedOn);
    gate.start();
    QTRY_COMPARE(handed.size(), 1);
    QVERIFY(places.write("late\n", "2"));
    QTRY_COMPARE(handed.size(), 2);
    QCOMPARE(handed.at(0), QVariantList({"early", "early"}));
    QCOMPARE(handed.at(1), QVariantList({"late\n", "late\n"}));
    QCOMPARE(places.spool.content("early"), QByteArray("1"));
    QCOMPARE(places.spool.content("late\n"), QByteArray("2"));
    QCOMPARE(_log->texts(),
             handedOn(places.spool.path(), "early") + handedOn(places.spool.path(), "late\\n"));
}

void TestArrivalGate::markersAreHeeded()
{
    Places places;
    places.settings.completeness = Completeness::Marker;
    places.settings.markerSuffix = ".ok";
    places.settings.quietPeriod = 1h; // counts for nothing here
    ArrivalGate gate(places.settings);
    const QSignalSpy handed(&gate, &ArrivalGate::handedOn);
    gate.start();
    QVERIFY(places.write("a") && places.write("b") && places.write("a.ok"));
    QTRY_COMPARE(handed.size(), 1);
    QTRY_COMPARE(QDir(places.incoming()).entryList(QDir::Files), QStringList("b"));
    QCOMPARE(places.spool.visible(), QStringList("a"));
}

void TestArrivalGate::problemsAreSaidAndSignalled()
{
    Places places;
    places.settings.ifTaken = Delivery::NameTaken::Refuse;
    QVERIFY(places.write("a") && writeFile(places.spool.path("a"), "old"));
    ArrivalGate gate(places.settings);
    const QSignalSpy handed(&gate, &ArrivalGate::handedOn);
    const QSignalSpy refused(&gate, &ArrivalGate::refused);
    const QSignalSpy hindered(&gate, &ArrivalGate::hindered);
    const QSignalSpy resumed(&gate, &ArrivalGate::resumed);
    gate.start();
    QTRY_COMPARE(refused.size(), 1);
    const QString reason = kitText("DeliveryNameTaken");
    QCOMPARE(refused.at(0), QVariantList({"a", reason}));
    QVERIFY(QFile::remove(places.spool.path("a")));
    QTRY_COMPARE(handed.size(), 1);

    QVERIFY(QDir(places.incoming()).removeRecursively());
    QTRY_COMPARE(hindered.size(), 1);
    const QString gone = kitText("SystemFailure", places.incoming(), systemErrorText(ENOENT));
    QCOMPARE(hindered.at(0), QVariantList({gone}));
    QVERIFY(QDir().mkdir(places.incoming()));
    QTRY_COMPARE(resumed.size(), 1);

    const QString info = QString::number(int(LoggerLevel::info));
    const QString warning = QString::number(int(LoggerLevel::warning));
    const QString queue = places.spool.path();
    QCOMPARE(
        _log->texts(),
        QStringList(warning + kitText("GateRefused", QString("a"), places.incoming(), reason)) +
            handedOn(queue, "a") +
            QStringList(warning + kitText("GateHindered", places.incoming(), queue, gone)) +
            QStringList(info + kitText("GateResumed", places.incoming(), queue)));
    QCOMPARE(refused.size(), 1);
}

/// The place of the leftovers is no directory: files are still handed on.
void TestArrivalGate::leftoversThatStayAreALineOnly()
{
    const Places places;
    const QString queue = places.spool.path();
    QVERIFY(QDir().mkdir(queue + "/.kez") && writeFile(places.spool.incoming(), {}));
    QVERIFY(places.write("a"));
    ArrivalGate gate(places.settings);
    const QSignalSpy handed(&gate, &ArrivalGate::handedOn);
    gate.start();
    QTRY_COMPARE(handed.size(), 1);
    const QString reason =
        kitText("SystemFailure", places.spool.incoming(), systemErrorText(ENOTDIR));
    QCOMPARE(_log->texts(), QStringList(QString::number(int(LoggerLevel::warning)) +
                                        kitText("DeliveryLeftovers", queue, reason)) +
                                handedOn(queue, "a"));
}

void TestArrivalGate::linesAreInTheLanguageOfTheProcess_data()
{
    QTest::addColumn<QString>("lang");
    QTest::addColumn<QString>("beginning");
    QTest::newRow("French") << "fr_FR"
                            << "Fichier [a] transmis";
    QTest::newRow("English") << "en_US"
                             << "File [a] handed on";
}

void TestArrivalGate::linesAreInTheLanguageOfTheProcess()
{
    QFETCH(const QString, lang);
    QFETCH(const QString, beginning);
    auto* const translator = Translator::getInstance();
    const QString before = translator->defaultLang();
    translator->setDefaultBundleKey("kez", lang);
    const Places places;
    QVERIFY(places.write("a"));
    ArrivalGate gate(places.settings);
    gate.start();
    QTRY_COMPARE(_log->texts().size(), 1);
    translator->setDefaultBundleKey("kez", before);
    QVERIFY2(_log->texts().first().mid(1).startsWith(beginning), qPrintable(_log->texts().first()));
}

void TestArrivalGate::relativePathsAreResolvedOnce()
{
    Places places;
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(places.spool.beside(".")));
    places.settings.incoming = "in";
    places.settings.queueDirectory = "spool";
    ArrivalGate gate(places.settings);
    QDir::setCurrent(before);
    gate.start();
    QVERIFY(places.write("a"));
    QTRY_COMPARE(places.spool.visible(), QStringList("a"));
}

void TestArrivalGate::wrongSettingsAreRefused_data()
{
    QTest::addColumn<std::function<void(Places&)>>("change");
    QTest::addColumn<QString>("key");
    const auto row = [](const char* name, const char* key, std::function<void(Places&)> change) {
        QTest::newRow(name) << std::move(change) << QString(key);
    };
    row("no incoming", "GateNoDirectory", [](Places& p) { p.settings.incoming.clear(); });
    row("no queue", "GateNoDirectory", [](Places& p) { p.settings.queueDirectory.clear(); });
    row("zero in the incoming", "GatePathZero", [](Places& p) { p.settings.incoming += QChar(0); });
    row("zero in the queue", "GatePathZero",
        [](Places& p) { p.settings.queueDirectory += QChar(0) + QString("x"); });
    row("one directory", "GateSameDirectory",
        [](Places& p) { p.settings.incoming = p.settings.queueDirectory; });
    row("one directory that is missing", "GateSameDirectory",
        [](Places& p) { p.settings.incoming = p.settings.queueDirectory = "/nowhere"; });
    row("one directory, two paths", "GateSameDirectory",
        [](Places& p) { p.settings.incoming = p.settings.queueDirectory + "/../spool"; });
    row("negative quiet period", "GatePeriod", [](Places& p) { p.settings.quietPeriod = -1ms; });
    row("no look period", "GatePeriod", [](Places& p) { p.settings.lookPeriod = 0ms; });
    row("no pause", "GatePeriod", [](Places& p) { p.settings.firstPause = 0ms; });
    row("no longest pause", "GatePeriod", [](Places& p) { p.settings.longestPause = -5ms; });
    row("no marker", "GateMarker", [](Places& p) { p.settings.markerSuffix.clear(); });
    row("marker with a slash", "GateMarker", [](Places& p) { p.settings.markerSuffix = "/ok"; });
    row("temporary marker", "GateMarker", [](Places& p) { p.settings.markerSuffix = ".tmp"; });
}

void TestArrivalGate::wrongSettingsAreRefused()
{
    QFETCH(const std::function<void(Places&)>, change);
    QFETCH(const QString, key);
    Places places;
    change(places);
    ArrivalGate gate(places.settings);
    const QString value =
        key == "GateMarker" ? places.settings.markerSuffix : places.settings.incoming;
    const QString text = failureText([&] { gate.start(); });
    const QString expected = kitText(key.toLatin1().constData());
    QCOMPARE(text, expected.contains('%') ? expected.arg(value) : expected);
    QVERIFY(!gate.isRunning());
}

void TestArrivalGate::gateStopsAndStartsAgain()
{
    const Places places;
    ArrivalGate gate(places.settings);
    const QSignalSpy handed(&gate, &ArrivalGate::handedOn);
    gate.stop();
    gate.start();
    gate.start();
    QVERIFY(gate.isRunning());
    QVERIFY(places.write("a"));
    QTRY_COMPARE(handed.size(), 1);
    gate.stop();
    gate.stop();
    QVERIFY(!gate.isRunning());
    QVERIFY(places.write("b"));
    QTest::qWait(150);
    QCOMPARE(handed.size(), 1);
    gate.start();
    QTRY_COMPARE(handed.size(), 2);
}

void TestArrivalGate::stoppedGateLeavesNoDescriptor()
{
    const Places places;
    ArrivalGate gate(places.settings);
    gate.start();
    QVERIFY(places.write("a"));
    QTRY_COMPARE(places.spool.visible(), QStringList("a"));
    gate.stop();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    const auto before = openDescriptors();
    for (int round = 0; round < 10; ++round) {
        gate.start();
        gate.stop();
    }
    QCOMPARE(openDescriptors(), before);
}

void TestArrivalGate::slotMayStopTheGate()
{
    const Places places;
    for (int i = 0; i < 5; ++i)
        QVERIFY(places.write(QString::number(i)));
    ArrivalGate gate(places.settings);
    connect(&gate, &ArrivalGate::handedOn, &gate, &ArrivalGate::stop);
    const QSignalSpy handed(&gate, &ArrivalGate::handedOn);
    gate.start();
    QTRY_VERIFY(!gate.isRunning());
    QVERIFY(places.write("late"));
    QTest::qWait(150);
    QVERIFY(QFile::exists(places.incoming("late")));
    // What entered is told all the same.
    QCOMPARE(handed.size(), places.spool.visible().size());
}

void TestArrivalGate::slotMayDestroyTheGate()
{
    const Places places;
    for (int i = 0; i < 5; ++i)
        QVERIFY(places.write(QString::number(i)));
    auto gate = std::make_unique<ArrivalGate>(places.settings);
    connect(gate.get(), &ArrivalGate::handedOn, this, [&] { gate->deleteLater(); });
    const QSignalSpy destroyed(gate.get(), &QObject::destroyed);
    gate->start();
    QTRY_COMPARE(destroyed.size(), 1);
    gate.release();
}

void TestArrivalGate::gateWorksInAThreadOfItsOwn()
{
    const Places places;
    QThread thread;
    ArrivalGate gate(places.settings);
    gate.moveToThread(&thread);
    connect(&thread, &QThread::started, &gate, &ArrivalGate::start);
    QSignalSpy handed(&gate, &ArrivalGate::handedOn);
    thread.start();
    std::vector<std::thread> producers;
    for (int producer = 0; producer < 3; ++producer) {
        producers.emplace_back([&, producer] {
            for (int i = 0; i < 30; ++i) {
                const QString name = QString("%1-%2").arg(producer).arg(i);
                places.write(name + ".part");
                QFile::rename(places.incoming(name + ".part"), places.incoming(name));
            }
        });
    }
    for (std::thread& producer : producers)
        producer.join();
    QTRY_COMPARE_WITH_TIMEOUT(places.spool.visible().size(), 90, 60000);
    thread.quit();
    QVERIFY(thread.wait(60000));
    QVERIFY(!gate.isRunning());
    QCoreApplication::processEvents();
    QCOMPARE(handed.size(), 90);
}

/// A thread that is asked to end, and whose event loop still runs.
void TestArrivalGate::interruptedThreadHandsOnNothing()
{
    const Places places;
    QThread thread;
    ArrivalGate gate(places.settings);
    gate.moveToThread(&thread);
    connect(&thread, &QThread::started, &gate, &ArrivalGate::start);
    QVERIFY(places.write("a"));
    thread.start();
    QTRY_COMPARE(places.spool.visible(), QStringList("a"));
    thread.requestInterruption();
    QVERIFY(places.write("b"));
    QTest::qWait(200);
    QCOMPARE(places.spool.visible(), QStringList("a"));
    thread.quit();
    QVERIFY(thread.wait(60000));
}

/// A producer that writes in place, the gate, and a queue that takes whatever it sees.
void TestArrivalGate::queueBehindTheGateSeesWholeFilesOnly()
{
    constexpr int Count = 40;
    const QByteArray content(200000, 'x');
    const Places places;
    QFile probe(places.spool.beside("probe"));
    QVERIFY(probe.open(QIODevice::ReadWrite));
    if (openWritersOf(probe.handle()) != OpenWriters::Some)
        QSKIP("no leases here: a producer that pauses would look like one that is done");
    ArrivalGate gate(places.settings);
    FilesQueue queue(places.spool.path(), {}, true, 0);
    QSet<QString> seen;
    QStringList half;
    connect(&queue, &FilesQueue::queueUpdated, this, [&](const QList<QString>& appended) {
        for (const QString& name : appended) {
            seen.insert(name);
            if (places.spool.content(name) != content)
                half.append(name);
        }
    });
    queue.onProcess();
    gate.start();
    const std::unique_ptr<QThread> producer(QThread::create([&] {
        for (int i = 0; i < Count; ++i) {
            QFile file(places.incoming(QString::number(i)));
            if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
                return;
            for (qsizetype at = 0; at < content.size(); at += 20000)
                file.write(content.constData() + at, 20000);
        }
    }));
    const auto joined = qScopeGuard([&] { producer->wait(); });
    producer->start();
    QTRY_COMPARE_WITH_TIMEOUT(seen.size(), Count, 60000);
    QCOMPARE(half, QStringList());
}

QTEST_GUILESS_MAIN(TestArrivalGate)
#include "tst_arrivalgate.moc"
