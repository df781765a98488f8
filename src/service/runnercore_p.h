// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/service/filerunner.h"
#include "service/finishedfiles_p.h"
#include "service/handlerpool_p.h"
#include "service/jobdispatcher_p.h"
#include "service/pausedjobs_p.h"
#include "service/progressreport_p.h"
#include "service/runnerfiles_p.h"
#include "service/spoolaccess_p.h"
#include "service/strayfiles_p.h"

#include <kez/ConsumerAncestor.h>
#include <kez/FilesQueue.h>

#include <QObject>
#include <QStringList>
#include <QTimer>

#include <chrono>
#include <memory>
#include <span>
#include <vector>

namespace KezService {

/// A consumer as it was added to a runner.
struct ConsumerDescription {
    QString id;
    Handler handler;
    HandlerSettings settings;
};

/// Per consumer, the files of handlers that still run after a stop.
using LeftFiles = std::vector<std::vector<std::shared_ptr<QueuedFile>>>;

/// What happens in a runner's queue thread: it takes the files from the queue, gives them to the
/// pools, takes back how the work ended, and hands over to the queue the files that all consumers
/// are done with.
///
/// The queue knows one consumer only, this one. So a file is handed over once, after one look at
/// whether it still is the file that the handlers saw.
///
/// Jobs begin in two places, enter() and resumeDue(); each has them dispatched at its end.
///
/// While the spool is out of reach, or another process has taken it, no work begins, and nothing is
/// forgotten: the files come back with it.
///
/// *Threads*: the object's thread, except pools() and progress(): any thread.
/// *Owns*: the queue, the pools, what they share.
/// *Fails*: the constructor and start() throw Exception or std::system_error.
class RunnerCore : public QObject {
    Q_OBJECT

public:
    RunnerCore(const RunnerSettings& settings, const std::vector<ConsumerDescription>& consumers);
    ~RunnerCore() override;

    const std::vector<std::unique_ptr<HandlerPool>>& pools() const;
    RunnerProgress progress() const;

    void start();

    /// Says in the status file that the runner rests, or works again.
    void announcePause(bool isPaused);

    /// The last steps, after the pools were joined. Returns what remains.
    RunnerProgress finish(const LeftFiles& left);

Q_SIGNALS:
    void progressed(const KezService::RunnerProgress& progress);
    void quarantined(const QString& consumer, const QString& name, const QString& nameThere);

private:
    using Clock = std::chrono::steady_clock;
    using FilePointer = RunnerFiles::FilePointer;

    std::unique_ptr<FilesQueue> openQueue();
    void connectTimers();
    QStringList namesInQueue();
    void enterPresent();

    void onQueueUpdated(const QStringList& appended, const QStringList& deleted);
    void enter(const QStringList& names);
    bool isKnown(const QString& name, const FileStamp& stamp) const;
    void enterTogether(std::span<const QString> names);
    void enterFile(const Journal::Entry& entry);
    void lose(const QStringList& names);
    void forgetLost(const QStringList& names);

    void takeEnded();
    void handleEnded(const Ended& ended);
    void announceQuarantined(const Ended& ended);
    void settle(int consumer, const FilePointer& file);
    void retry(const Ended& ended);
    void retryQuarantine(const Ended& ended);
    void retryInReach(const Ended& ended);
    void pause(int consumer, const Job& job, std::chrono::milliseconds pause);
    void resumeDue();

    void finishFile(const FilePointer& file);

    void tick();
    void reportSlowHandlers();
    bool checkSpool();
    void returnToSpool();
    void unbar();
    RunnerProgress currentProgress();

    const RunnerSettings _settings;
    const std::vector<ConsumerDescription> _consumers;
    const std::shared_ptr<Workplace> _workplace;
    const std::vector<std::unique_ptr<HandlerPool>> _pools;
    ConsumerAncestor _agent;
    Clock::duration _listingTime{}; // of the spool, by the queue
    const std::unique_ptr<FilesQueue> _queue;
    SpoolAccess _spool;

    RunnerFiles _files;
    QStringList _unstamped; // names of files that were not there at a second look
    JobDispatcher _dispatcher;
    FinishedFiles _finished;
    PausedJobs _paused;
    Backoff _quarantineFailures;
    StrayFiles _strays;
    ProgressReport _report;

    QTimer _drainTimer;
    QTimer _retryTimer;
    QTimer _tickTimer;
};

} // namespace KezService
