// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/service/filerunner.h"
#include "service/filestamp_p.h"
#include "service/journal_p.h"
#include "service/quarantine_p.h"
#include "service/spoollock_p.h"

#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace KezService {

/// A file of the spool that not all consumers are done with, as the threads share it.
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
    int tries = 0;        ///< attempts before this one that ended with "retry"
    bool isEarly = false; ///< a restart has cut its pause short: this attempt does not count
    QString verdict;      ///< if not empty: why it goes to quarantine without being handled
    int failures = 0;     ///< attempts that failed since it, or the quarantine, was out of reach
};

/// How a job ended.
struct Ended {
    enum class How { Done, Quarantined, Retry, NotQuarantined, OutOfReach };

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
///
/// *Fails*: the constructor throws Exception.
struct Workplace {
    Workplace(const RunnerSettings& settings, const QStringList& consumers);

    const QString spool;
    SpoolLock lock;
    const Quarantine quarantine;
    Journal journal;
    Inbox inbox;
};

} // namespace KezService
