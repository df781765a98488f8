// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/pausedjobs_p.h"

#include "service/backoff_p.h"

#include <QRandomGenerator>

namespace KezService {

std::chrono::milliseconds jitteredPause(int failures, std::chrono::milliseconds first,
                                        std::chrono::milliseconds longest)
{
    const auto pause = doubledPause(failures, first, longest);
    constexpr int Percent = 100;
    constexpr int Jitter = 20;
    const int share = QRandomGenerator::global()->bounded(Percent - Jitter, Percent + Jitter + 1);
    // In this order: the product of a very long pause would not fit.
    return pause / Percent * share + pause % Percent * share / Percent;
}

std::vector<PausedJobs::ConsumersJob> PausedJobs::takeDue(Clock::time_point now)
{
    const auto end = _jobs.upper_bound(now);
    std::vector<ConsumersJob> due;
    for (auto job = _jobs.begin(); job != end; ++job)
        due.push_back(std::move(job->second));
    _jobs.erase(_jobs.begin(), end);
    return due;
}

} // namespace KezService
