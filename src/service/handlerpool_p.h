// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/service/filerunner.h"
#include "service/workplace_p.h"

#include <QString>

#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace KezService {

/// The threads that handle the files of one consumer.
///
/// *Threads*: any thread; it is destroyed where it was made.
/// *Owns*: its threads. Those that do not end in time are left behind, with all that they use.
/// *Fails*: start() throws std::system_error.
class HandlerPool {
public:
    using Clock = std::chrono::steady_clock;

    /// A handler at work.
    struct Running {
        std::shared_ptr<QueuedFile> file;
        Clock::time_point since;
        bool isReported = false;
    };

    HandlerPool(int consumer, const QString& id, Handler handler, const HandlerSettings& settings,
                std::shared_ptr<Workplace> workplace);
    HandlerPool(const HandlerPool&) = delete;
    HandlerPool& operator=(const HandlerPool&) = delete;
    ~HandlerPool();

    const QString& id() const;
    qint64 runningCount() const;

    /// The handlers that have just become slow; each is told once.
    std::vector<Running> takeSlow();

    void start();

    /// Adds jobs in queue order.
    void add(std::vector<Job> jobs);

    /// Takes no job until resume(). Waits until the handlers at work have ended; false at the
    /// deadline.
    void hold();
    bool waitUntilIdle(Clock::time_point deadline) const;
    void resume();

    /// With true, takes no job until it is called with false. Does not depend on hold().
    void bar(bool isBarred);

    /// Takes no job any more. join() then ends the threads; those that are still at work at the
    /// deadline are left behind. Returns their files.
    void close();
    std::vector<std::shared_ptr<QueuedFile>> join(Clock::time_point deadline);

private:
    struct Shared;

    static void work(Shared& shared, size_t thread);

    const std::shared_ptr<Shared> _shared;
    std::vector<std::thread> _threads;
};

} // namespace KezService
