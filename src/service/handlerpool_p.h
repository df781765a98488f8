// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/service/filerunner.h"
#include "service/filestamp_p.h"
#include "service/journal_p.h"
#include "service/quarantine_p.h"
#include "service/spoollock_p.h"

#include <QString>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace KezService {

/// A file of the spool that not all consumers are done with.
struct QueuedFile {
    QString name;
    FileStamp stamp;
    quint64 number = 0; ///< that of the journal: the order of the queue
    QString key;
    std::atomic<bool> isGone = false; ///< nobody needs to handle it
    std::atomic<int> unended = 0;     ///< consumers whose work has not ended

    /// What the last worker found in its place, when it had ended. It writes this before it puts
    /// its result into the inbox.
    std::optional<FileStamp> found;
};

/// One file to be handled.
struct Job {
    std::shared_ptr<QueuedFile> file;
    int tries = 0;    ///< attempts before this one that ended with "retry"
    QString verdict;  ///< if not empty: why it goes to quarantine without being handled
    int failures = 0; ///< attempts to put it there that failed
};

/// How a job ended.
struct Ended {
    enum class How { Done, Quarantined, Retry, NotQuarantined };

    int consumer = 0;
    Job job;
    How how = How::Done;
    QString text; ///< the reason; the name in quarantine
};

/// Where workers put what has ended, and the queue's thread takes it.
class Inbox {
public:
    /// `wake` is called in the thread that puts, if nobody was told since the last take(). After
    /// disconnect() it is not called any more.
    void connect(std::function<void()> wake);
    void disconnect();

    void put(Ended ended);
    std::vector<Ended> take();

private:
    std::mutex _mutex;
    std::vector<Ended> _ended;
    std::function<void()> _wake;
    bool _isTold = false;
};

/// What the workers of all consumers share. A worker that is left behind keeps it, and with it the
/// lock on the spool.
struct Workplace {
    Workplace(const RunnerSettings& settings, const QStringList& consumers)
        : spool(settings.spool),
          lock(spool),
          quarantine(spool, settings.quarantine),
          journal(spool, consumers, settings.journal)
    {}

    const QString spool;
    SpoolLock lock;
    const Quarantine quarantine;
    Journal journal;
    Inbox inbox;
};

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
    const HandlerSettings& settings() const;
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
