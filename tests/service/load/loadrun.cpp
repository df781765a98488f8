// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "loadrun.h"

#include "service/kittexts_p.h"
#include "service/spoolplaces_p.h"

#include <QDir>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <numeric>
#include <utility>

#include <sys/prctl.h>

using namespace KezService;

namespace {

constexpr qint64 LongestStandstill = 60'000; // milliseconds
constexpr int EndLimit = 60'000;             // milliseconds
constexpr int KillsBetweenEarlyOnes = 4;

const QString ServiceLog = QStringLiteral("service.log");
const QString ServiceLogFile = QStringLiteral("/service-0.log");
const QString ServiceErrors = QStringLiteral("/service.err");

/// Nothing stays if this process dies.
void dieWithParent(QProcess& process)
{
    process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
}

qsizetype fileCount(const QString& directory)
{
    return static_cast<qsizetype>(QDir(directory).entryList(QDir::Files).size());
}

} // namespace

LoadRun::LoadRun(const LoadPlan& plan, const QString& directory, SmallDisk& disk)
    : _plan(plan),
      _directory(directory),
      _disk(disk),
      _random(plan.seed),
      _tally(directory + QStringLiteral("/record")),
      _log(directory + ServiceLogFile)
{
    dieWithParent(_service);
    for (QProcess& producer : _producers)
        dieWithParent(producer);
    if (!_disk.isMounted())
        _diskPhase = DiskPhase::Over;
}

LoadRun::~LoadRun()
{
    for (QProcess& producer : _producers) {
        producer.kill();
        producer.waitForFinished();
    }
    _service.kill();
    _service.waitForFinished();
}

QString LoadRun::run()
{
    QElapsedTimer timer;
    timer.start();
    if (!QDir().mkpath(spool()) || !QDir().mkpath(incoming()))
        return QStringLiteral("the directories cannot be made");
    startService();
    startProducers();
    _progressTimer.start();
    while (_problem.isEmpty() && !isOver())
        step();
    if (_problem.isEmpty())
        stopService();
    _seconds = static_cast<double>(timer.elapsed()) / 1000;
    return _problem;
}

void LoadRun::step()
{
    QTest::qWait(5);
    _tally.readOn();
    readLog();
    listenToProducers();
    feedProducers();
    watchService();
    fillDisk();
    if (_problem.isEmpty() && isTimeToKill())
        killService();
    checkProgress();
}

void LoadRun::startService()
{
    _tally.readOn();
    _begunBefore = _tally.begunCount();
    _service.setStandardErrorFile(_directory + ServiceErrors, QIODevice::Append);
    _service.start(LOAD_SERVICE,
                   {_directory + QStringLiteral("/disk"), _directory + QStringLiteral("/record"),
                    _directory + QLatin1Char('/') + ServiceLog, QString::number(_plan.seed)});
    if (!_service.waitForStarted())
        fail(QStringLiteral("the service cannot be started"));
}

void LoadRun::startProducers()
{
    for (QProcess& producer : _producers) {
        producer.start(LOAD_PRODUCER, {incoming(), QStringLiteral("0.03"), QStringLiteral("0.25")});
        if (!producer.waitForStarted())
            fail(QStringLiteral("a producer cannot be started"));
    }
}

/// Gives the producers as many names as may be under way.
void LoadRun::feedProducers()
{
    if (_fed == _plan.names.size())
        return;
    const bool isHeldBack = _diskPhase != DiskPhase::Over;
    const qsizetype done = _tally.handlings() / loadConsumers().size();
    const qsizetype end =
        std::min({_plan.names.size(), isHeldBack ? _plan.namesBeforeFullDisk() : _plan.names.size(),
                  done + _plan.window()});
    for (; _fed < end; ++_fed)
        _producers[static_cast<size_t>(_fed) % _producers.size()].write(_plan.names[_fed] + '\n');
    if (_fed < _plan.names.size())
        return;
    for (QProcess& producer : _producers)
        producer.closeWriteChannel();
}

void LoadRun::listenToProducers()
{
    for (QProcess& producer : _producers) {
        while (producer.canReadLine()) {
            if (producer.readLine().startsWith("again "))
                ++_begunAnew;
        }
        const bool hasEnded = producer.state() == QProcess::NotRunning;
        if (hasEnded && (producer.exitCode() != 0 || _fed < _plan.names.size()))
            fail(QStringLiteral("a producer has failed: ") + producer.readAllStandardError());
    }
}

/// Starts the service again if a deadly file has ended it.
void LoadRun::watchService()
{
    if (_service.state() != QProcess::NotRunning)
        return;
    const qsizetype expected = 2 * _plan.namesOf(LoadFile::Deadly).size();
    if (_service.exitStatus() != QProcess::CrashExit || _service.exitCode() != SIGABRT) {
        fail(QStringLiteral("the service has ended (%1)").arg(_service.exitCode()));
        return;
    }
    if (++_crashCount > expected)
        fail(QStringLiteral("the deadly files have ended the service too often"));
    startService();
}

/// A file that was at work when the process died is suspected of having killed it. It is then
/// handled alone, and goes to quarantine if the process dies again: a kill at that moment looks as
/// if the file was deadly. There are at most as many such files as threads; once another one has
/// begun, they have all ended.
bool LoadRun::mayKill() const
{
    const QList<int> threads = loadConsumers().values();
    const int mostSuspects = std::accumulate(threads.begin(), threads.end(), 0);
    return (_diskPhase == DiskPhase::Before || _diskPhase == DiskPhase::Over) &&
           _tally.begunCount() - _begunBefore > mostSuspects;
}

/// Whether the next moment of the plan has come and a short random time has passed. Some kills come
/// as soon as possible after the one before.
bool LoadRun::isTimeToKill()
{
    if (_killTimer.isValid())
        return _killTimer.elapsed() >= _killDelay && mayKill();
    if (_nextKill < _plan.kills.size() && _tally.handlings() >= _plan.kills[_nextKill]) {
        ++_nextKill;
        _killDelay = _random.bounded(20);
        _killTimer.start();
    }
    return false;
}

void LoadRun::killService()
{
    _killTimer.invalidate();
    _service.kill();
    _service.waitForFinished();
    if (_service.exitCode() != SIGKILL) {
        watchService(); // it was faster
        return;
    }
    ++_killCount;
    startService();
    if (_killCount % KillsBetweenEarlyOnes == 0) {
        _killDelay = 0;
        _killTimer.start();
    }
}

/// The service is stopped until many files wait, so that it meets the full disk in the middle of
/// its work. The disk stays full until the journal and a producer have met it.
void LoadRun::fillDisk()
{
    const auto process = static_cast<pid_t>(_service.processId());
    switch (_diskPhase) {
    case DiskPhase::Before:
        if (_tally.handlings() >= _plan.fullDiskAt() && isFirstDeadlySettled() &&
            !_killTimer.isValid() && process > 0) {
            ::kill(process, SIGSTOP);
            _diskPhase = DiskPhase::Gathering;
        }
        break;
    case DiskPhase::Gathering:
        if (fileCount(incoming()) + fileCount(spool()) >= _plan.window() * 3 / 4) {
            _disk.fill();
            _begunAnewBefore = _begunAnew;
            ::kill(process, SIGCONT);
            _diskPhase = DiskPhase::Full;
        }
        break;
    case DiskPhase::Full:
        _disk.fill();
        if (_begunAnew > _begunAnewBefore && _isShortOfSpace) {
            _disk.giveBack();
            _diskPhase = DiskPhase::Recovering;
        }
        break;
    case DiskPhase::Recovering:
        if (_journalReturns == _journalFailures)
            _diskPhase = DiskPhase::Over;
        break;
    case DiskPhase::Over:
        break;
    }
}

bool LoadRun::isFirstDeadlySettled() const
{
    const QString name = QString::fromUtf8(_plan.namesOf(LoadFile::Deadly).constFirst());
    return QFile::exists(SpoolPlaces::quarantine(spool()) + QLatin1Char('/') + name);
}

void LoadRun::readLog()
{
    const QString journal = shownName(SpoolPlaces::journal(spool()));
    const QString noSpace = systemErrorText(ENOSPC);
    const QByteArray failure = kitText("JournalNotWritten", journal, noSpace).toUtf8();
    const QByteArray end = kitText("JournalWrittenAgain", journal).toUtf8();
    for (const QByteArray& line : _log.newLines()) {
        _isShortOfSpace = _isShortOfSpace || line.contains(noSpace.toUtf8());
        if (line.contains(failure))
            ++_journalFailures;
        if (line.contains(end))
            ++_journalReturns;
    }
}

void LoadRun::checkProgress()
{
    const qint64 progress = _tally.recordCount() + deaths() + static_cast<qint64>(_diskPhase);
    if (std::exchange(_progress, progress) != progress)
        _progressTimer.start();
    if (_progressTimer.elapsed() > LongestStandstill)
        fail(QStringLiteral("nothing happens any more; handlings: %1 of %2, phase of the disk: %3")
                 .arg(_tally.handlings())
                 .arg(_plan.handlings())
                 .arg(static_cast<int>(_diskPhase)));
}

bool LoadRun::isOver() const
{
    const auto hasEnded = [](const QProcess& producer) {
        return producer.state() == QProcess::NotRunning;
    };
    return _fed == _plan.names.size() && _nextKill == _plan.kills.size() && !_killTimer.isValid() &&
           std::all_of(_producers.begin(), _producers.end(), hasEnded) &&
           _diskPhase == DiskPhase::Over && fileCount(incoming()) + fileCount(spool()) == 0;
}

void LoadRun::stopService()
{
    _service.terminate();
    if (!_service.waitForFinished(EndLimit))
        fail(QStringLiteral("the service does not stop"));
    else if (_service.exitStatus() != QProcess::NormalExit || _service.exitCode() != 0)
        fail(QStringLiteral("the service has not stopped well (%1)").arg(_service.exitCode()));
    _tally.readOn();
}

void LoadRun::fail(const QString& problem)
{
    if (_problem.isEmpty())
        _problem = problem;
}

QString LoadRun::logTail() const
{
    QString text;
    for (const QString& name : {ServiceLogFile, ServiceErrors}) {
        QFile file(_directory + name);
        if (file.open(QIODevice::ReadOnly)) {
            file.seek(std::max<qint64>(0, file.size() - 4000));
            text += QString::fromUtf8(file.readAll());
        }
    }
    return text;
}
