// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/workplace_p.h"

#include <chrono>
#include <map>
#include <utility>
#include <vector>

namespace KezService {

/// doubledPause(), up to a fifth longer or shorter at random, so that files do not come back all at
/// once.
std::chrono::milliseconds jitteredPause(int failures, std::chrono::milliseconds first,
                                        std::chrono::milliseconds longest);

/// The jobs that wait for their next attempt.
class PausedJobs {
public:
    using Clock = std::chrono::steady_clock;
    using ConsumersJob = std::pair<int, Job>;

    void add(int consumer, const Job& job, Clock::time_point due)
    {
        _jobs.emplace(due, ConsumersJob(consumer, job));
    }

    bool isEmpty() const { return _jobs.empty(); }

    /// When the first one is due. There must be one.
    Clock::time_point firstDue() const { return _jobs.begin()->first; }

    /// Takes out those that are due.
    std::vector<ConsumersJob> takeDue(Clock::time_point now);

private:
    std::multimap<Clock::time_point, ConsumersJob> _jobs;
};

} // namespace KezService
