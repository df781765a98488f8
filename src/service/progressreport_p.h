// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/service/filerunner.h"
#include "service/statusfile_p.h"

#include <QObject>
#include <QTimer>

#include <chrono>
#include <functional>
#include <mutex>

namespace KezService {

/// Tells how far a runner is: ten times a second at most by a signal, and once a second at most in
/// the status file.
///
/// *Threads*: the object's thread, except progress(): any thread.
/// *Owns*: what it told last.
/// *Fails*: never; see StatusFile.
class ProgressReport : public QObject {
    Q_OBJECT

public:
    /// `current` says how far the runner is, and `canWrite` whether its spool can be written to.
    ProgressReport(const QString& spool, std::function<RunnerProgress()> current,
                   std::function<bool()> canWrite);

    /// As it was told last, or written to the status file for a pause.
    RunnerProgress progress() const;

    /// There is something to tell, soon.
    void noteChange();

    /// Tells it at once.
    void announce();

    /// Tells it at once if the status file is behind, and nothing else will be told soon.
    void catchUp();

    /// Writes at once to the status file that the runner rests, or works again.
    void announcePause(bool isPaused);

    /// Tells the last progress. Without `canWrite`, it leaves the status file alone.
    RunnerProgress finish(bool canWrite);

Q_SIGNALS:
    void progressed(const KezService::RunnerProgress& progress);

private:
    using Clock = std::chrono::steady_clock;

    RunnerProgress look();
    void writeStatus(const RunnerProgress& progress);

    const std::function<RunnerProgress()> _current;
    const std::function<bool()> _canWrite;
    StatusFile _status;
    QTimer _timer;
    Clock::time_point _lastStatus{};
    bool _isStatusOld = true;
    bool _isPaused = false;

    mutable std::mutex _mutex;
    RunnerProgress _progress;
};

} // namespace KezService
