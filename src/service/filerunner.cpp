// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/filerunner.h"

#include "frame/directories_p.h"
#include "service/kittexts_p.h"
#include "service/runnercore_p.h"

#include <kez/log.h>

#include <QCoreApplication>
#include <QThread>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <exception>
#include <future>
#include <mutex>
#include <optional>
#include <system_error>
#include <utility>

namespace KezService {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

namespace {

constexpr auto StopLimit = 10s;

// Longer ones count as this: their sum with a point in time fits.
constexpr std::chrono::milliseconds LongestTime = 24h * 365 * 10;

Clock::time_point deadlineAfter(std::chrono::milliseconds limit)
{
    return Clock::now() + std::clamp<std::chrono::milliseconds>(limit, 0ms, LongestTime);
}

/// Holds the queue's thread while the runner is paused.
class Gate {
public:
    /// For the queue's thread: waits until release().
    void enter()
    {
        std::unique_lock lock(_mutex);
        if (_isReleased)
            return;
        _isEntered = true;
        _changed.notify_all();
        _changed.wait(lock, [this] { return _isReleased; });
    }

    /// Whether the queue's thread has come before the deadline.
    bool waitUntilEntered(Clock::time_point deadline)
    {
        std::unique_lock lock(_mutex);
        return _changed.wait_until(lock, deadline, [this] { return _isEntered; });
    }

    void release()
    {
        const std::lock_guard lock(_mutex);
        _isReleased = true;
        _changed.notify_all();
    }

private:
    std::mutex _mutex;
    std::condition_variable _changed;
    bool _isEntered = false;
    bool _isReleased = false;
};

void checkSettings(const QString& id, const HandlerSettings& settings)
{
    const auto check = [&id](bool isRight, const char* what) {
        if (!isRight)
            raise("RunnerSettingInvalid", shownName(id), QString::fromLatin1(what));
    };
    check(settings.threads >= 1, "threads");
    check(settings.attempts >= 0, "attempts");
    check(settings.firstPause >= 0ms, "firstPause");
    check(settings.longestPause >= settings.firstPause, "longestPause");
    check(settings.slowAfter > 0ms, "slowAfter");
}

HandlerSettings bounded(HandlerSettings settings)
{
    for (auto* const time : {&settings.firstPause, &settings.longestPause, &settings.slowAfter})
        *time = std::min(*time, LongestTime);
    return settings;
}

} // namespace

/// The thread in which a runner's queue lives.
class FileRunner::QueueThread : public QThread {
public:
    QueueThread(const RunnerSettings& settings, const std::vector<ConsumerDescription>& consumers,
                FileRunner* runner)
        : _settings(settings), _consumers(consumers), _runner(runner)
    {
        setObjectName(QStringLiteral("kez-queue"));
    }

    /// Throws what the start of the work throws. Returns the core, which lives until the thread
    /// ends.
    RunnerCore* begin()
    {
        start();
        if (!isRunning() && !isFinished())
            throw std::system_error(EAGAIN, std::generic_category());
        return _begun.get_future().get();
    }

    /// Ends the thread. See RunnerCore::finish(), whose result this returns.
    RunnerProgress end(const LeftFiles& left)
    {
        _left.set_value(left);
        quit();
        wait();
        return _ended.get_future().get();
    }

protected:
    void run() override
    {
        std::optional<RunnerCore> core;
        try {
            core.emplace(_settings, _consumers);
            connect(&*core, &RunnerCore::progressed, _runner, &FileRunner::progressed,
                    Qt::DirectConnection);
            connect(&*core, &RunnerCore::quarantined, _runner, &FileRunner::quarantined,
                    Qt::DirectConnection);
            core->start();
        } catch (...) {
            core.reset(); // the spool is free when begin() throws
            _begun.set_exception(std::current_exception());
            return;
        }
        _begun.set_value(&*core);
        exec();
        _ended.set_value(core->finish(_left.get_future().get()));
    }

private:
    const RunnerSettings _settings;
    const std::vector<ConsumerDescription> _consumers;
    FileRunner* const _runner;
    std::promise<RunnerCore*> _begun;
    std::promise<LeftFiles> _left;
    std::promise<RunnerProgress> _ended;
};

struct FileRunner::Private {
    /// The thread cannot wait for itself.
    void refuseOwnThread() const
    {
        if (thread && QThread::currentThread() == thread.get())
            raise("RunnerOwnThread", shownName(settings.spool));
    }

    RunnerSettings settings;
    std::vector<ConsumerDescription> consumers;
    std::unique_ptr<QueueThread> thread;
    RunnerCore* core = nullptr; // while the thread runs
    std::shared_ptr<Gate> gate; // while the runner is paused
    RunnerProgress last;
    bool hasStarted = false;
};

FileRunner::FileRunner(const RunnerSettings& settings, QObject* parent)
    : QObject(parent), _d(std::make_unique<Private>())
{
    qRegisterMetaType<RunnerProgress>();
    _d->settings = settings;
    _d->settings.spool = absolutePath(settings.spool);
    if (!settings.quarantine.isEmpty())
        _d->settings.quarantine = absolutePath(settings.quarantine);
}

FileRunner::~FileRunner()
{
    end(StopLimit);
}

void FileRunner::addConsumer(const QString& id, Handler handler, const HandlerSettings& settings)
{
    const bool isTaken =
        std::any_of(_d->consumers.begin(), _d->consumers.end(),
                    [&id](const ConsumerDescription& consumer) { return consumer.id == id; });
    if (_d->hasStarted)
        raise("RunnerHasStarted", shownName(id));
    if (id.isEmpty() || isTaken)
        raise("RunnerIdInvalid", shownName(id));
    if (!handler)
        raise("RunnerNoHandler", shownName(id));
    checkSettings(id, settings);
    _d->consumers.push_back({id, std::move(handler), bounded(settings)});
}

void FileRunner::start()
{
    if (_d->hasStarted)
        raise("RunnerStartedTwice", shownName(_d->settings.spool));
    if (_d->consumers.empty())
        raise("RunnerNoConsumer", shownName(_d->settings.spool));
    auto thread = std::make_unique<QueueThread>(_d->settings, _d->consumers, this);
    try {
        _d->core = thread->begin();
    } catch (const std::system_error& failure) {
        thread->wait();
        raise("RunnerThreadFailed", shownName(_d->settings.spool),
              systemErrorText(failure.code().value()));
    } catch (...) {
        thread->wait();
        throw;
    }
    _d->hasStarted = true;
    _d->thread = std::move(thread);
    Log::getInstance()->info(kitText("RunnerStarted", shownName(_d->settings.spool),
                                     QString::number(_d->core->progress().files)));
}

bool FileRunner::isRunning() const
{
    return _d->core != nullptr;
}

bool FileRunner::isPaused() const
{
    return _d->gate != nullptr;
}

RunnerProgress FileRunner::progress() const
{
    return _d->core ? _d->core->progress() : _d->last;
}

bool FileRunner::pause(std::chrono::milliseconds limit)
{
    _d->refuseOwnThread();
    if (!_d->core || _d->gate)
        return true;
    const auto deadline = deadlineAfter(limit);
    const auto& pools = _d->core->pools();
    for (const auto& pool : pools)
        pool->hold();
    const bool isIdle = std::all_of(pools.begin(), pools.end(), [deadline](const auto& pool) {
        return pool->waitUntilIdle(deadline);
    });
    _d->gate = std::make_shared<Gate>();
    if (isIdle) {
        QMetaObject::invokeMethod(
            _d->core,
            [core = _d->core, gate = _d->gate] {
                core->announcePause(true);
                gate->enter();
                core->announcePause(false);
            },
            Qt::QueuedConnection);
        if (_d->gate->waitUntilEntered(deadline))
            return true;
    }
    resume();
    return false;
}

void FileRunner::resume()
{
    if (!_d->gate)
        return;
    std::exchange(_d->gate, nullptr)->release();
    for (const auto& pool : _d->core->pools())
        pool->resume();
}

StopReport FileRunner::stop(std::chrono::milliseconds limit)
{
    _d->refuseOwnThread();
    return end(limit);
}

StopReport FileRunner::end(std::chrono::milliseconds limit)
{
    StopReport report;
    if (!_d->core)
        return report;
    const auto deadline = deadlineAfter(limit);
    const auto& pools = _d->core->pools();
    for (const auto& pool : pools)
        pool->close();
    resume();

    LeftFiles left;
    for (const auto& pool : pools) {
        left.push_back(pool->join(deadline));
        for (const auto& file : left.back())
            report.left.append({pool->id(), file->name});
    }
    _d->core = nullptr;
    _d->last = _d->thread->end(left);
    _d->thread.reset();
    report.waiting = _d->last.files;

    Log& log = *Log::getInstance();
    for (const LeftHandler& handler : report.left)
        log.warning(
            kitText("RunnerLeftBehind", shownName(handler.consumer), shownName(handler.name)));
    log.info(
        kitText("RunnerStopped", shownName(_d->settings.spool), QString::number(report.waiting)));
    return report;
}

PausedRunner::PausedRunner(FileRunner& runner, std::chrono::milliseconds limit)
    : _runner(runner), _wasPaused(runner.isPaused())
{
    if (!runner.pause(limit))
        raise("RunnerNotPaused", shownName(runner._d->settings.spool),
              QString::number(limit.count()));
}

PausedRunner::~PausedRunner()
{
    if (!_wasPaused)
        _runner.resume();
}

} // namespace KezService
