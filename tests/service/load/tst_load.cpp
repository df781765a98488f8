// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// The service kit under load. Shell scripts write files slowly and in full view into a directory. A
// gate hands them on to a spool, where three consumers handle them. Some handlers fail, some files
// are bad, and one kind of them ends the process. The service is killed at random moments, and its
// disk is full once. Nothing is lost, nothing partial is seen, and hardly anything is done twice.
//
//     KEZ_LOAD_FILES=20000 KEZ_LOAD_KILLS=100 KEZ_LOAD_SEED=4711 tst_load

#include "loadplan.h"
#include "loadrun.h"
#include "smalldisk.h"

#include "service/kittexts_p.h"
#include "service/spoolplaces_p.h"
#include "support/files.h"

#include <QCoreApplication>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMultiHash>
#include <QSet>
#include <QTemporaryDir>
#include <QtTest>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <tuple>

using namespace KezService;

namespace {

constexpr int SmallestRun = 200; // so that there are enough files under way at each moment
constexpr int DiskMegabytes = 32;

/// Why the process has no mounts of its own; empty if it has.
QString mountProblem; // NOLINT: set in main(), before the test exists

int numberFrom(const char* variable, int otherwise)
{
    bool isNumber = false;
    const int number = qEnvironmentVariableIntValue(variable, &isNumber);
    return isNumber ? number : otherwise;
}

/// What the text beside a file in quarantine says.
struct QuarantinedFile {
    QString consumer;
    QString reason;
    bool isWhole = false;
};

} // namespace

class TestLoad : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void serviceWasKilledOften();
    void nothingPartialWasSeen();
    void everyFileWasHandledByEveryConsumer();
    void handlingsWereRepeatedAtMostOncePerDeathAndThread();
    void badFilesAreInQuarantineWithTheirReasons();
    void nothingElseIsInQuarantine();
    void filesKeptTheirKeys();
    void nothingIsLeft();
    void cleanupTestCase();

private:
    void readQuarantine();
    QString quarantine() const { return SpoolPlaces::quarantine(_run->spool()); }
    QuarantinedFile quarantinedFor(const QString& consumer, const QByteArray& name) const;

    QTemporaryDir _directory;
    SmallDisk _disk;
    std::unique_ptr<LoadPlan> _plan;
    std::unique_ptr<LoadRun> _run;
    QMultiHash<QByteArray, QuarantinedFile> _quarantined; // by name in the spool
};

void TestLoad::initTestCase()
{
    const int files = numberFrom("KEZ_LOAD_FILES", 2000);
    const auto seed = static_cast<quint32>(numberFrom(
        "KEZ_LOAD_SEED", static_cast<int>(QRandomGenerator::global()->bounded(1 << 30))));
    QVERIFY2(files >= SmallestRun, "too few files");
    _plan = std::make_unique<LoadPlan>(files, numberFrom("KEZ_LOAD_KILLS", 24), seed);
    std::printf("%d files, seed %u\n", files, seed);
    std::fflush(stdout);

    const QString disk = _directory.filePath(QStringLiteral("disk"));
    QVERIFY(QDir().mkdir(disk));
    if (mountProblem.isEmpty() && !_disk.mount(disk, DiskMegabytes))
        mountProblem = QString::fromLocal8Bit(std::strerror(errno));
    if (!mountProblem.isEmpty())
        qWarning("without the full disk: no small one can be mounted here (%ls)",
                 qUtf16Printable(mountProblem));

    _run = std::make_unique<LoadRun>(*_plan, _directory.path(), _disk);
    const QString problem = _run->run();
    QVERIFY2(problem.isEmpty(), qPrintable(problem + QLatin1Char('\n') + _run->logTail()));
    readQuarantine();
}

void TestLoad::readQuarantine()
{
    const QString suffix = QStringLiteral(".txt");
    const QStringList names = QDir(quarantine()).entryList(QDir::Files | QDir::Hidden);
    for (const QString& name : names) {
        if (!name.endsWith(suffix + suffix))
            continue;
        const QString path = quarantine() + QLatin1Char('/') + name;
        QHash<QString, QString> fields;
        for (const QString& line : QString::fromUtf8(readFile(path)).split(QLatin1Char('\n')))
            fields.insert(line.section(QLatin1Char('='), 0, 0), line.section(QLatin1Char('='), 1));
        const QByteArray file = fields.value(QStringLiteral("file")).toUtf8();
        const QByteArray bytes = readFile(path.chopped(suffix.size()));
        _quarantined.insert(file,
                            {fields.value(QStringLiteral("consumer")),
                             fields.value(QStringLiteral("reason")), isWholeFile(bytes, file)});
    }
    QCOMPARE(names.size(), 2 * _quarantined.size());
}

void TestLoad::serviceWasKilledOften()
{
    // A deadly file may have ended the service just before a kill.
    QVERIFY(_run->kills() >= _plan->kills.size() - _run->crashes());
    QVERIFY(_run->crashes() > 0);
}

void TestLoad::nothingPartialWasSeen()
{
    QCOMPARE(_run->tally().partial, QList<QByteArray>());
    for (const QuarantinedFile& file : std::as_const(_quarantined))
        QVERIFY(file.isWhole);
}

void TestLoad::everyFileWasHandledByEveryConsumer()
{
    for (auto consumer = loadConsumers().begin(); consumer != loadConsumers().end(); ++consumer) {
        const ConsumerTally& tally = _run->tally().of(consumer.key());
        QList<QByteArray> missing = _plan->names;
        missing.removeIf([&](const QByteArray& name) {
            return tally.ended.contains(name) ||
                   !quarantinedFor(QString::fromUtf8(consumer.key()), name).consumer.isEmpty();
        });
        QCOMPARE(missing, QList<QByteArray>());
        QList<QByteArray> unknown = tally.ended.keys();
        const QSet<QByteArray> known(_plan->names.begin(), _plan->names.end());
        unknown.removeIf([&](const QByteArray& name) { return known.contains(name); });
        QCOMPARE(unknown, QList<QByteArray>());
    }
}

/// A thread of a consumer has one file at work. If the process dies after the handler has finished
/// its work, and before the journal has the answer, this work is done again. So a death repeats at
/// most one handling per thread.
void TestLoad::handlingsWereRepeatedAtMostOncePerDeathAndThread()
{
    for (auto consumer = loadConsumers().begin(); consumer != loadConsumers().end(); ++consumer) {
        const int repetitions = _run->tally().of(consumer.key()).repetitions();
        QVERIFY2(repetitions <= _run->deaths() * consumer.value(),
                 qPrintable(QStringLiteral("%1: %2 repetitions")
                                .arg(QString::fromUtf8(consumer.key()))
                                .arg(repetitions)));
    }
}

void TestLoad::badFilesAreInQuarantineWithTheirReasons()
{
    const std::array<std::tuple<const char*, QString, QString>, 3> expected{{
        {LoadFile::Rejected, "ledger", LoadFile::RejectReason},
        {LoadFile::Stubborn, "archive", LoadFile::StubbornReason},
        {LoadFile::Deadly, "index", kitText("RunnerProcessDied", QString::number(2))},
    }};
    for (const auto& [kind, consumer, reason] : expected) {
        for (const QByteArray& name : _plan->namesOf(kind)) {
            const QuarantinedFile file = quarantinedFor(consumer, name);
            QVERIFY2(!file.consumer.isEmpty(), name.constData());
            QCOMPARE(file.reason, reason);
        }
    }
}

void TestLoad::nothingElseIsInQuarantine()
{
    const qsizetype badCount = _plan->namesOf(LoadFile::Rejected).size() +
                               _plan->namesOf(LoadFile::Stubborn).size() +
                               _plan->namesOf(LoadFile::Deadly).size();
    QCOMPARE(_quarantined.size(), badCount);
}

void TestLoad::filesKeptTheirKeys()
{
    QCOMPARE(_run->tally().rekeyed, QList<QByteArray>());
}

void TestLoad::nothingIsLeft()
{
    const auto everything = QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot;
    QCOMPARE(QDir(_run->incoming()).entryList(everything), QStringList());
    QCOMPARE(QDir(_run->spool()).entryList(everything), QStringList{".kez"});
    QCOMPARE(QDir(SpoolPlaces::incoming(_run->spool())).entryList(everything), QStringList());
    const QJsonObject status =
        QJsonDocument::fromJson(readFile(SpoolPlaces::status(_run->spool()))).object();
    QCOMPARE(status.value("state").toString(), QString("stopped"));
    QCOMPARE(status.value("files").toInt(-1), 0);
}

void TestLoad::cleanupTestCase()
{
    if (!_run)
        return;
    std::printf("%lld files in %.1f s; %d kills, %d deaths by a file; %s\n",
                static_cast<long long>(_plan->names.size()), _run->seconds(), _run->kills(),
                _run->crashes(),
                _disk.isMounted() ? "the disk was full once" : "without a full disk");
    for (auto consumer = loadConsumers().begin(); consumer != loadConsumers().end(); ++consumer) {
        const ConsumerTally& tally = _run->tally().of(consumer.key());
        std::printf("%s: %lld files done, %d attempts failed, %d repetitions of %d allowed\n",
                    consumer.key().constData(), static_cast<long long>(tally.ended.size()),
                    tally.failed, tally.repetitions(), _run->deaths() * consumer.value());
    }
    std::printf("%lld in quarantine; %d begun anew for lack of space\n",
                static_cast<long long>(_quarantined.size()), _run->begunAnew());
    std::fflush(stdout);
    _run.reset();
}

/// What is in quarantine for that consumer; without a consumer if there is nothing.
QuarantinedFile TestLoad::quarantinedFor(const QString& consumer, const QByteArray& name) const
{
    for (const QuarantinedFile& file : _quarantined.values(name)) {
        if (file.consumer == consumer)
            return file;
    }
    return {};
}

int main(int argc, char* argv[])
{
    if (!SmallDisk::makeMountsPrivate()) // while there is one thread
        mountProblem = QString::fromLocal8Bit(std::strerror(errno));
    QCoreApplication application(argc, argv);
    TestLoad test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_load.moc"
