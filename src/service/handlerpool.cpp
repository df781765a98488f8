// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/handlerpool_p.h"

#include "service/caughtexception_p.h"
#include "service/kittexts_p.h"

#include <QFile>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cxxabi.h>
#include <deque>
#include <optional>
#include <pthread.h>
#include <utility>

namespace KezService {

using Step = Journal::Step;

constexpr std::chrono::seconds EndLimit{1};

/// What the threads of one consumer share, and what those that are left behind keep.
struct HandlerPool::Shared {
    struct Slot {
        std::optional<Running> running;
        bool isFinished = false; ///< its thread is about to end
    };

    Shared(int position, const QString& identifier, Handler function, const HandlerSettings& wanted,
           std::shared_ptr<Workplace> place)
        : consumer(position),
          id(identifier),
          handler(std::move(function)),
          settings(wanted),
          workplace(std::move(place)),
          slots(static_cast<size_t>(wanted.threads))
    {}

    std::optional<Job> take(size_t thread, bool waits);
    void bar(bool wanted);
    void rest(size_t thread);
    void finish(size_t thread);

    const int consumer;
    const QString id;
    const Handler handler;
    const HandlerSettings settings;
    const std::shared_ptr<Workplace> workplace;

    std::mutex mutex; // guards the rest
    std::condition_variable jobsChanged;
    std::condition_variable workEnded;
    std::deque<Job> ready; // in queue order
    std::vector<Slot> slots;
    bool isHeld = false;
    bool isBarred = false;
    bool isClosed = false;
};

/// Nothing if the pool is closed; without `waits` also if there is no job.
std::optional<Job> HandlerPool::Shared::take(size_t thread, bool waits)
{
    std::unique_lock lock(mutex);
    while (true) {
        while (!ready.empty() && ready.front().file->isGone)
            ready.pop_front();
        if (isClosed)
            return std::nullopt;
        if (!isHeld && !isBarred && !ready.empty())
            break;
        if (!waits)
            return std::nullopt;
        jobsChanged.wait(lock);
    }
    Job job = std::move(ready.front());
    ready.pop_front();
    slots[thread].running = Running{job.file, Clock::now()};
    return job;
}

void HandlerPool::Shared::bar(bool wanted)
{
    const std::lock_guard lock(mutex);
    isBarred = wanted;
    jobsChanged.notify_all();
}

void HandlerPool::Shared::rest(size_t thread)
{
    const std::lock_guard lock(mutex);
    slots[thread].running.reset();
    workEnded.notify_all();
}

void HandlerPool::Shared::finish(size_t thread)
{
    const std::lock_guard lock(mutex);
    slots[thread].isFinished = true;
    workEnded.notify_all();
}

namespace {

QString reasonOr(const QString& reason, const char* key)
{
    return reason.isEmpty() ? kitText(key) : reason;
}

/// Performs the jobs of one thread.
class Worker {
public:
    Worker(int consumer, const QString& id, const Handler& handler, const HandlerSettings& settings,
           Workplace& workplace)
        : _consumer(consumer),
          _id(id),
          _handler(handler),
          _settings(settings),
          _workplace(workplace)
    {}

    Ended perform(Job job) const
    {
        Ended ended = endOf(std::move(job));
        const bool isSettled =
            ended.how == Ended::How::Done || ended.how == Ended::How::Quarantined;
        QueuedFile& file = *ended.job.file;
        if (isSettled && --file.unended == 0)
            file.found = stampOf(QFile::encodeName(pathOf(file)));
        return ended;
    }

    std::optional<Step> begin(const Job& job) const
    {
        if (!job.verdict.isEmpty())
            return std::nullopt;
        return Step{Step::Begun, job.file->number, _consumer};
    }

    Step end(const Ended& ended) const
    {
        Step::Kind kind = Step::Done;
        if (ended.how == Ended::How::Retry && !ended.job.isEarly)
            kind = Step::Retried;
        else if (ended.how != Ended::How::Done && ended.how != Ended::How::Quarantined)
            kind = Step::Left;
        return {kind, ended.job.file->number, _consumer};
    }

private:
    QString pathOf(const QueuedFile& file) const
    {
        return _workplace.spool + QLatin1Char('/') + file.name;
    }

    /// Otherwise a failure may be due to that.
    bool isInReach(const QueuedFile& file) const
    {
        return stampOf(QFile::encodeName(pathOf(file))).has_value();
    }

    Ended endOf(Job job) const
    {
        if (!job.verdict.isEmpty())
            return quarantine(job, job.verdict, job.tries);
        const Outcome outcome = handle(job);
        if (outcome.kind() != Outcome::Kind::Done && !isInReach(*job.file))
            return {_consumer, std::move(job), Ended::How::OutOfReach, {}};
        const bool isLast =
            !job.isEarly && _settings.attempts != 0 && job.tries + 1 >= _settings.attempts;
        switch (outcome.kind()) {
        case Outcome::Kind::Done:
            break;
        case Outcome::Kind::Retry:
            if (!isLast)
                return {_consumer, std::move(job), Ended::How::Retry,
                        reasonOr(outcome.reason(), "RunnerNoReason")};
            [[fallthrough]];
        case Outcome::Kind::Reject:
            return quarantine(job, reasonOr(outcome.reason(), "RunnerNoReason"), job.tries + 1);
        }
        return {_consumer, std::move(job), Ended::How::Done, {}};
    }

    Outcome handle(const Job& job) const
    {
        try {
            return _handler({pathOf(*job.file), job.file->name, job.file->key, job.tries + 1});
        } catch (const abi::__forced_unwind&) { // the thread is being cancelled
            throw;
        } catch (...) {
            return Outcome::retry(caughtText());
        }
    }

    Ended quarantine(const Job& job, const QString& reason, int tries) const
    {
        Ended ended{_consumer, job, Ended::How::Quarantined, {}};
        ended.job.verdict = reason;
        ended.job.tries = tries;
        _workplace.journal.recordLink(job.file->number);
        try {
            ended.text =
                _workplace.quarantine.put(job.file->name, {_id, reason, tries, job.file->key});
        } catch (const Exception& failure) {
            if (!isInReach(*job.file))
                return {_consumer, job, Ended::How::OutOfReach, {}};
            ended.how = Ended::How::NotQuarantined;
            ended.text = failure.detail();
        }
        return ended;
    }

    const int _consumer;
    const QString& _id;
    const Handler& _handler;
    const HandlerSettings& _settings;
    Workplace& _workplace;
};

/// Tools such as top show the first 15 bytes.
void nameThread(const QString& id)
{
    QByteArray name = id.toUtf8();
    name.truncate(15);
    ::pthread_setname_np(::pthread_self(), name.constData());
}

} // namespace

void HandlerPool::work(Shared& shared, size_t thread)
{
    const Worker worker(shared.consumer, shared.id, shared.handler, shared.settings,
                        *shared.workplace);
    std::optional<Ended> ended;
    while (true) {
        std::optional<Job> job = shared.take(thread, !ended);
        // One record for the end of one job and the begin of the next: one system call.
        std::array<Step, 2> steps{};
        size_t count = 0;
        if (ended)
            steps[count++] = worker.end(*ended);
        if (const std::optional<Step> begin = job ? worker.begin(*job) : std::nullopt)
            steps[count++] = *begin;
        shared.workplace->journal.record({steps.data(), count});
        if (ended)
            shared.workplace->inbox.put(*std::exchange(ended, std::nullopt));
        else if (!job)
            return;
        if (!job) {
            shared.rest(thread);
            continue;
        }
        ended = worker.perform(*std::move(job));
        if (ended->how == Ended::How::OutOfReach)
            shared.bar(true); // other files, too, until somebody has looked at the spool
    }
}

HandlerPool::HandlerPool(int consumer, const QString& id, Handler handler,
                         const HandlerSettings& settings, std::shared_ptr<Workplace> workplace)
    : _shared(std::make_shared<Shared>(consumer, id, std::move(handler), settings,
                                       std::move(workplace)))
{}

HandlerPool::~HandlerPool()
{
    close();
    join(Clock::now() + EndLimit); // at once, unless the start of other threads has failed
}

const QString& HandlerPool::id() const
{
    return _shared->id;
}

qint64 HandlerPool::runningCount() const
{
    const std::lock_guard lock(_shared->mutex);
    const std::vector<Shared::Slot>& slots = _shared->slots;
    return std::count_if(slots.begin(), slots.end(),
                         [](const Shared::Slot& slot) { return slot.running.has_value(); });
}

std::vector<HandlerPool::Running> HandlerPool::takeSlow()
{
    const std::lock_guard lock(_shared->mutex);
    std::vector<Running> slow;
    for (Shared::Slot& slot : _shared->slots) {
        if (slot.running && !slot.running->isReported &&
            Clock::now() - slot.running->since >= _shared->settings.slowAfter) {
            slot.running->isReported = true;
            slow.push_back(*slot.running);
        }
    }
    return slow;
}

void HandlerPool::start()
{
    for (size_t thread = 0; thread < _shared->slots.size(); ++thread) {
        _threads.emplace_back([shared = _shared, thread] {
            nameThread(shared->id);
            work(*shared, thread);
            shared->finish(thread);
        });
    }
}

void HandlerPool::add(std::vector<Job> jobs)
{
    const std::lock_guard lock(_shared->mutex);
    std::deque<Job>& ready = _shared->ready;
    for (Job& job : jobs) {
        const auto isBefore = [](quint64 number, const Job& other) {
            return number < other.file->number;
        };
        const bool isLast = ready.empty() || ready.back().file->number <= job.file->number;
        const auto place =
            isLast ? ready.end()
                   : std::upper_bound(ready.begin(), ready.end(), job.file->number, isBefore);
        ready.insert(place, std::move(job));
    }
    _shared->jobsChanged.notify_all();
}

void HandlerPool::hold()
{
    const std::lock_guard lock(_shared->mutex);
    _shared->isHeld = true;
}

bool HandlerPool::waitUntilIdle(Clock::time_point deadline) const
{
    std::unique_lock lock(_shared->mutex);
    const std::vector<Shared::Slot>& slots = _shared->slots;
    return _shared->workEnded.wait_until(lock, deadline, [&slots] {
        return std::none_of(slots.begin(), slots.end(),
                            [](const Shared::Slot& slot) { return slot.running.has_value(); });
    });
}

void HandlerPool::resume()
{
    const std::lock_guard lock(_shared->mutex);
    _shared->isHeld = false;
    _shared->jobsChanged.notify_all();
}

void HandlerPool::bar(bool isBarred)
{
    _shared->bar(isBarred);
}

void HandlerPool::close()
{
    const std::lock_guard lock(_shared->mutex);
    _shared->isClosed = true;
    _shared->jobsChanged.notify_all();
}

std::vector<std::shared_ptr<QueuedFile>> HandlerPool::join(Clock::time_point deadline)
{
    std::vector<std::shared_ptr<QueuedFile>> left;
    std::unique_lock lock(_shared->mutex);
    for (size_t thread = 0; thread < _threads.size(); ++thread) {
        const Shared::Slot& slot = _shared->slots[thread];
        const bool hasEnded =
            _shared->workEnded.wait_until(lock, deadline, [&slot] { return slot.isFinished; });
        if (hasEnded) {
            lock.unlock(); // the thread still has to leave the lock
            _threads[thread].join();
            lock.lock();
        } else {
            if (slot.running)
                left.push_back(slot.running->file);
            _threads[thread].detach();
        }
    }
    _threads.clear();
    return left;
}

} // namespace KezService
