// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/runnercore_p.h"

#include "frame/directories_p.h"
#include "service/kittexts_p.h"
#include "service/signalguard_p.h"
#include "service/spoolplaces_p.h"

#include <kez/exception.h>
#include <kez/log.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace KezService {

using namespace std::chrono_literals;

namespace {

// Results are taken together, so that a busy pool does not wake the queue's thread for each file.
constexpr auto DrainPause = 5ms;

// So many files enter at a time: handlers begin with the first ones while others still enter.
constexpr qsizetype FilesTogether = 256;

// A file whose work was interrupted so often by the death of the process is quarantined.
constexpr int MostStrikes = 2;

// Counts of attempts stay there: one more still fits.
constexpr int MostAttempts = std::numeric_limits<int>::max() - 1;

// Before the next attempt if the file, or the quarantine, was out of reach.
constexpr auto FirstPlacePause = 1s;
constexpr auto LongestPlacePause = 5min;

constexpr auto AgentId = QLatin1String("kez-runner");

template <typename Duration>
int timerInterval(Duration pause)
{
    const auto interval = std::chrono::ceil<std::chrono::milliseconds>(pause).count();
    return static_cast<int>(std::clamp<qint64>(interval, 0, std::numeric_limits<int>::max()));
}

QStringList idsOf(const std::vector<ConsumerDescription>& consumers)
{
    QStringList ids;
    for (const ConsumerDescription& consumer : consumers)
        ids.append(consumer.id);
    return ids;
}

/// Makes the spool's hidden directory, and takes the spool.
std::shared_ptr<Workplace> openWorkplace(const RunnerSettings& settings,
                                         const std::vector<ConsumerDescription>& consumers)
{
    if (!isUsableDirectory(settings.spool))
        raise("RunnerSpoolUnusable", shownName(settings.spool));
    const QString hidden = SpoolPlaces::hidden(settings.spool);
    if (const int error = SpoolPlaces::makePlace(hidden, settings.spool); error != 0)
        raise("RunnerPlaceFailed", shownName(hidden), systemErrorText(error));
    return std::make_shared<Workplace>(settings, idsOf(consumers));
}

std::vector<std::unique_ptr<HandlerPool>>
makePools(const std::vector<ConsumerDescription>& consumers,
          const std::shared_ptr<Workplace>& workplace)
{
    std::vector<std::unique_ptr<HandlerPool>> pools;
    pools.reserve(consumers.size());
    for (const ConsumerDescription& consumer : consumers)
        pools.push_back(std::make_unique<HandlerPool>(static_cast<int>(pools.size()), consumer.id,
                                                      consumer.handler, consumer.settings,
                                                      workplace));
    return pools;
}

} // namespace

RunnerCore::RunnerCore(const RunnerSettings& settings,
                       const std::vector<ConsumerDescription>& consumers)
    : _settings(settings),
      _consumers(consumers),
      _workplace(openWorkplace(settings, consumers)),
      _pools(makePools(consumers, _workplace)),
      _agent(AgentId),
      _queue(openQueue()),
      _spool(settings.spool, _workplace->lock),
      _files(idsOf(consumers)),
      _dispatcher(_pools, _workplace->journal),
      _finished(_agent, *_queue, _workplace->journal, _spool, _listingTime),
      _strays(settings.spool,
              [this](const QString& name) {
                  return _queue->existsFileEntry(name) || _files.find(name) ||
                         _finished.isKnown(name);
              }),
      _report(
          settings.spool, [this] { return currentProgress(); }, [this] { return checkSpool(); })
{
    connect(&_report, &ProgressReport::progressed, this, &RunnerCore::progressed);
    // Queued: the signal is emitted in the middle of a re-scan.
    connect(_queue.get(), &FilesQueue::queueUpdated, this, &RunnerCore::onQueueUpdated,
            Qt::QueuedConnection);
    _workplace->inbox.connect(
        [this] { QMetaObject::invokeMethod(&_drainTimer, "start", Qt::QueuedConnection); });
    connectTimers();
}

RunnerCore::~RunnerCore()
{
    _workplace->inbox.disconnect();
}

const std::vector<std::unique_ptr<HandlerPool>>& RunnerCore::pools() const
{
    return _pools;
}

RunnerProgress RunnerCore::progress() const
{
    return _report.progress();
}

void RunnerCore::start()
{
    _queue->onProcess();
    for (const auto& pool : _pools)
        pool->start();
    enterPresent();
    _workplace->journal.forgetAbsent();
    _finished.scheduleRescan(); // for what came before the watch was set
    _tickTimer.start();
    _report.announce();
}

void RunnerCore::connectTimers()
{
    _drainTimer.setInterval(DrainPause);
    _tickTimer.setInterval(1s);
    for (QTimer* const timer : {&_drainTimer, &_retryTimer})
        timer->setSingleShot(true);
    connect(&_drainTimer, &QTimer::timeout, this, &RunnerCore::takeEnded);
    connect(&_retryTimer, &QTimer::timeout, this, &RunnerCore::resumeDue);
    connect(&_tickTimer, &QTimer::timeout, this, &RunnerCore::tick);
}

std::unique_ptr<FilesQueue> RunnerCore::openQueue()
{
    const auto start = Clock::now();
    auto queue = std::make_unique<FilesQueue>(
        _settings.spool, QList<ConsumerEntry>{{_agent.id(), &_agent}},
        _settings.present == PresentFiles::Handle, timerInterval(_settings.period));
    _listingTime = Clock::now() - start;
    return queue;
}

QStringList RunnerCore::namesInQueue()
{
    QStringList names;
    const auto connection = connect(_queue.get(), &FilesQueue::filesNotConsumed, this,
                                    [&names](const QStringList& files, bool error) {
                                        if (!error)
                                            names = files;
                                    });
    _queue->onRequestForFiles(_agent.id());
    disconnect(connection);
    return names;
}

/// Takes in the files that are there at the start.
void RunnerCore::enterPresent()
{
    QStringList names = namesInQueue();
    _workplace->journal.sortByEntry(names);
    _files.reserve(names.size());
    _finished.reserve(names.size());
    _workplace->journal.reserve(names.size());
    if (_workplace->journal.hasStrikes())
        _dispatcher.hold(); // any file may be a suspect, and those come first
    enter(names);
    _dispatcher.release();
}

void RunnerCore::onQueueUpdated(const QStringList& appended, const QStringList& deleted)
{
    lose(deleted);
    enter(appended);
    _report.noteChange();
}

/// Takes in files that are new in the queue, and has them handled.
void RunnerCore::enter(const QStringList& names)
{
    for (qsizetype first = 0; first < names.size(); first += FilesTogether) {
        enterTogether(std::span(names).subspan(
            static_cast<size_t>(first),
            static_cast<size_t>(std::min(FilesTogether, names.size() - first))));
        _dispatcher.dispatch();
    }
}

void RunnerCore::enterTogether(std::span<const QString> names)
{
    std::vector<Journal::NamedStamp> files;
    files.reserve(names.size());
    for (const QString& name : names) {
        const std::optional<FileStamp> stamp = _spool.stampOf(name);
        if (!stamp)
            _unstamped.append(name);
        else if (!isKnown(name, *stamp) && !_finished.keepIfOfferedAgain(name, *stamp))
            files.emplace_back(name, *stamp);
    }
    for (const Journal::Entry& entry : _workplace->journal.enter(files))
        enterFile(entry);
}

/// Whether the queue offers a file again that was out of its reach for a while.
bool RunnerCore::isKnown(const QString& name, const FileStamp& stamp) const
{
    const FilePointer known = _files.find(name);
    return known && stamp.hasContentOf(known->stamp);
}

void RunnerCore::enterFile(const Journal::Entry& entry)
{
    const FilePointer file = _files.enter(entry);
    for (size_t i = 0; i < entry.works.size(); ++i) {
        const WorkRecord& work = entry.works[i];
        if (work.state == WorkRecord::State::Settled)
            continue;
        Job job;
        job.file = file;
        job.tries = work.tries;
        job.isEarly = work.tries > 0;
        if (work.strikes >= MostStrikes) {
            job.verdict = kitText("RunnerProcessDied", QString::number(work.strikes));
            job.tries += work.strikes;
        }
        if (work.strikes > 0 && job.verdict.isEmpty())
            _dispatcher.addSuspect(static_cast<int>(i), job);
        else
            _dispatcher.add(static_cast<int>(i), job);
    }
    if (file->unended == 0)
        finishFile(file);
}

/// Files have left the queue, and not through the runner. If the spool itself is out of reach, its
/// files come back with it.
void RunnerCore::lose(const QStringList& names)
{
    if (checkSpool())
        forgetLost(names);
}

void RunnerCore::forgetLost(const QStringList& names)
{
    std::vector<quint64> numbers;
    for (const QString& name : names) {
        if (_queue->existsFileEntry(name)) // it is back, or another one has its name
            continue;
        const std::optional<FileStamp> stamp = _spool.stampOf(name);
        if (!stamp && !_spool.isDeleted(name)) // and will be back
            continue;
        const bool isUsable = stamp && _spool.mayReadAndWrite(name);
        const FilePointer file = _files.find(name);
        if (file && !(isUsable && stamp->hasContentOf(file->stamp))) {
            numbers.push_back(file->number);
            _files.drop(file);
        }
        const std::vector<quint64> lost = _finished.lose(name, stamp);
        numbers.insert(numbers.end(), lost.begin(), lost.end());
    }
    _workplace->journal.forget(numbers);
}

void RunnerCore::takeEnded()
{
    bool isInReach = true;
    for (const Ended& ended : _workplace->inbox.take()) {
        handleEnded(ended);
        isInReach = isInReach && ended.how != Ended::How::OutOfReach;
    }
    if (!isInReach && checkSpool())
        unbar();
    _report.noteChange();
}

void RunnerCore::handleEnded(const Ended& ended)
{
    const FilePointer& file = ended.job.file;
    if (!file->isGone) {
        switch (ended.how) {
        case Ended::How::Done:
            _files.countDone(ended.consumer);
            settle(ended.consumer, file);
            break;
        case Ended::How::Quarantined:
            settle(ended.consumer, file);
            break;
        case Ended::How::Retry:
            retry(ended);
            break;
        case Ended::How::NotQuarantined:
            retryQuarantine(ended);
            break;
        case Ended::How::OutOfReach:
            retryInReach(ended);
            break;
        }
    }
    _dispatcher.noteEnded(ended.consumer, file->number);
    if (ended.how == Ended::How::Quarantined)
        announceQuarantined(ended);
}

void RunnerCore::announceQuarantined(const Ended& ended)
{
    const QString& consumer = _consumers[static_cast<size_t>(ended.consumer)].id;
    const QString& name = ended.job.file->name;
    if (_quarantineFailures.succeed())
        Log::getInstance()->info(
            kitText("RunnerQuarantineBack", shownName(_workplace->quarantine.directory())));
    Log::getInstance()->critical(kitText("RunnerQuarantined", shownName(name), shownName(consumer),
                                         shownName(ended.job.verdict), shownName(ended.text)));
    _files.countQuarantined(ended.consumer);
    withSlots([&] { Q_EMIT quarantined(consumer, name, ended.text); });
}

void RunnerCore::settle(int consumer, const FilePointer& file)
{
    if (_files.settle(consumer, *file))
        finishFile(file);
}

/// The handler asks for a further attempt. The first failure of a file is said aloud.
void RunnerCore::retry(const Ended& ended)
{
    Job job = ended.job;
    const ConsumerDescription& consumer = _consumers[static_cast<size_t>(ended.consumer)];
    const HandlerSettings& settings = consumer.settings;
    const QString text = kitText("RunnerRetry", shownName(job.file->name), shownName(consumer.id),
                                 QString::number(job.tries + 1), shownName(ended.text));
    if (job.tries > 0)
        Log::getInstance()->debug(text);
    else
        Log::getInstance()->warning(text);
    if (!std::exchange(job.isEarly, false))
        job.tries = std::min(job.tries + 1, MostAttempts);
    pause(ended.consumer, job,
          jitteredPause(job.tries, settings.firstPause, settings.longestPause));
}

/// The file could not be put into quarantine. If that is due to the directory, it is said once, not
/// for each file.
void RunnerCore::retryQuarantine(const Ended& ended)
{
    Job job = ended.job;
    job.failures = std::min(job.failures + 1, MostAttempts);
    const int error = _workplace->quarantine.error();
    const QString lost =
        kitText("RunnerQuarantineLost", shownName(_workplace->quarantine.directory()),
                systemErrorText(error));
    if (error != 0 && checkSpool() && _quarantineFailures.fail(lost))
        Log::getInstance()->critical(lost);
    if (error != 0 || job.failures > 1)
        Log::getInstance()->debug(ended.text);
    else
        Log::getInstance()->critical(ended.text);
    pause(ended.consumer, job, jitteredPause(job.failures, FirstPlacePause, LongestPlacePause));
}

/// The file was out of reach when its handler failed. It will soon be known whether it is deleted,
/// or where it was.
void RunnerCore::retryInReach(const Ended& ended)
{
    Job job = ended.job;
    job.failures = std::min(job.failures + 1, MostAttempts);
    pause(ended.consumer, job, jitteredPause(job.failures, FirstPlacePause, LongestPlacePause));
}

void RunnerCore::pause(int consumer, const Job& job, std::chrono::milliseconds pause)
{
    _files.pause(consumer, *job.file);
    _paused.add(consumer, job, Clock::now() + pause);
    _retryTimer.start(timerInterval(_paused.firstDue() - Clock::now()));
}

void RunnerCore::resumeDue()
{
    for (const auto& [consumer, job] : _paused.takeDue(Clock::now())) {
        if (job.file->isGone)
            continue;
        _files.resume(consumer, *job.file);
        _dispatcher.add(consumer, job);
    }
    _dispatcher.dispatch();
    if (!_paused.isEmpty())
        _retryTimer.start(timerInterval(_paused.firstDue() - Clock::now()));
    _report.noteChange();
}

/// All consumers are done.
void RunnerCore::finishFile(const FilePointer& file)
{
    _files.drop(file);
    if (!_finished.handOver(*file))
        enter({file->name});
}

void RunnerCore::tick()
{
    if (checkSpool()) {
        enter(std::exchange(_unstamped, {}));
        _unstamped.removeIf([this](const QString& name) { return !_queue->existsFileEntry(name); });
        enter(_finished.handOverDue());
        _workplace->journal.sync();
        _strays.look(Clock::now());
    }
    reportSlowHandlers();
    _report.catchUp();
}

void RunnerCore::reportSlowHandlers()
{
    for (const auto& pool : _pools) {
        for (const HandlerPool::Running& slow : pool->takeSlow()) {
            const auto seconds =
                std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - slow.since);
            Log::getInstance()->warning(kitText("RunnerSlow", shownName(slow.file->name),
                                                shownName(pool->id()),
                                                QString::number(seconds.count())));
        }
    }
}

/// Whether the spool can be worked on. While it cannot, no work begins.
bool RunnerCore::checkSpool()
{
    switch (_spool.look()) {
    case SpoolAccess::State::Usable:
        return true;
    case SpoolAccess::State::Regained:
        returnToSpool();
        return true;
    case SpoolAccess::State::Unusable:
        break;
    }
    for (const auto& pool : _pools)
        pool->bar(true);
    return false;
}

void RunnerCore::returnToSpool()
{
    _workplace->journal.compact();
    _queue->onDirectoryChanged();
    enter(_finished.handOverAgain());
    _finished.rescan();
    enter(namesInQueue());
    forgetLost(_files.names());
    unbar();
    _report.noteChange();
}

void RunnerCore::unbar()
{
    for (const auto& pool : _pools)
        pool->bar(false);
}

void RunnerCore::announcePause(bool isPaused)
{
    if (isPaused && _spool.isUsable())
        _workplace->journal.sync();
    _report.announcePause(isPaused);
}

RunnerProgress RunnerCore::currentProgress()
{
    std::vector<qint64> running;
    for (const auto& pool : _pools)
        running.push_back(pool->runningCount());
    RunnerProgress progress = _files.progress(running);
    progress.strays = _strays.count();
    return progress;
}

RunnerProgress RunnerCore::finish(const LeftFiles& left)
{
    takeEnded();
    std::vector<Journal::Step> steps;
    for (size_t i = 0; i < left.size(); ++i) {
        for (const FilePointer& file : left[i])
            steps.push_back({Journal::Step::Left, file->number, static_cast<int>(i)});
    }
    _workplace->journal.record(steps);
    _spool.skipPause();
    const bool isOurs = checkSpool();
    _finished.rescan();
    if (isOurs)
        _workplace->journal.compact();
    return _report.finish(isOurs);
}

} // namespace KezService
