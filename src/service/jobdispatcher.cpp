// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/jobdispatcher_p.h"

#include "service/kittexts_p.h"

#include <kez/log.h>

#include <utility>

namespace KezService {

using namespace std::chrono_literals;

constexpr auto AloneLimit = 5s;

JobDispatcher::JobDispatcher(const Pools& pools, Journal& journal)
    : _pools(pools), _journal(journal), _waiting(pools.size())
{
    _aloneTimer.setInterval(AloneLimit);
    _aloneTimer.setSingleShot(true);
    connect(&_aloneTimer, &QTimer::timeout, this, &JobDispatcher::leaveSuspect);
}

void JobDispatcher::add(int consumer, const Job& job)
{
    _waiting[static_cast<size_t>(consumer)].push_back(job);
}

void JobDispatcher::addSuspect(int consumer, const Job& job)
{
    _suspects.emplace_back(consumer, job);
}

void JobDispatcher::dispatch()
{
    if (_isHeld || _alone || beginSuspect())
        return;
    for (size_t i = 0; i < _pools.size(); ++i) {
        if (!_waiting[i].empty())
            _pools[i]->add(std::exchange(_waiting[i], {}));
    }
}

void JobDispatcher::hold()
{
    _isHeld = true;
}

void JobDispatcher::release()
{
    _isHeld = false;
    dispatch();
}

void JobDispatcher::noteEnded(int consumer, quint64 number)
{
    if (_alone == std::pair(consumer, number))
        endSuspicion();
}

/// False if there is no suspect any more.
bool JobDispatcher::beginSuspect()
{
    while (!_suspects.empty()) {
        const auto [consumer, job] = std::move(_suspects.front());
        _suspects.pop_front();
        if (job.file->isGone)
            continue;
        HandlerPool& pool = *_pools[static_cast<size_t>(consumer)];
        Log::getInstance()->warning(
            kitText("RunnerSuspect", shownName(job.file->name), shownName(pool.id())));
        _alone.emplace(consumer, job.file->number);
        pool.add({job});
        _aloneTimer.start();
        return true;
    }
    return false;
}

/// The suspect takes long: the others go on beside it.
void JobDispatcher::leaveSuspect()
{
    if (_alone) {
        const Journal::Step step{Journal::Step::Joined, _alone->second, _alone->first};
        _journal.record({&step, 1});
    }
    endSuspicion();
}

void JobDispatcher::endSuspicion()
{
    _alone.reset();
    _aloneTimer.stop();
    dispatch();
}

} // namespace KezService
