// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/progressreport_p.h"

#include "service/signalguard_p.h"

#include <utility>

namespace KezService {

using namespace std::chrono_literals;

constexpr auto AnnouncementPause = 100ms;
constexpr auto StatusPause = 1s;

ProgressReport::ProgressReport(const QString& spool, std::function<RunnerProgress()> current,
                               std::function<bool()> canWrite)
    : _current(std::move(current)), _canWrite(std::move(canWrite)), _status(spool)
{
    _timer.setInterval(AnnouncementPause);
    _timer.setSingleShot(true);
    connect(&_timer, &QTimer::timeout, this, &ProgressReport::announce);
}

RunnerProgress ProgressReport::progress() const
{
    const std::lock_guard lock(_mutex);
    return _progress;
}

void ProgressReport::noteChange()
{
    _isStatusOld = true;
    if (!_timer.isActive())
        _timer.start();
}

void ProgressReport::announce()
{
    const RunnerProgress progress = look();
    withSlots([&] { Q_EMIT progressed(progress); });
    if (Clock::now() - _lastStatus >= StatusPause)
        writeStatus(progress);
}

void ProgressReport::catchUp()
{
    if (_isStatusOld && !_timer.isActive())
        announce();
}

void ProgressReport::announcePause(bool isPaused)
{
    _isPaused = isPaused;
    noteChange();
    writeStatus(look());
}

RunnerProgress ProgressReport::finish(bool canWrite)
{
    const RunnerProgress last = look();
    withSlots([&] { Q_EMIT progressed(last); });
    if (canWrite)
        _status.write(last, "stopped");
    return last;
}

RunnerProgress ProgressReport::look()
{
    const RunnerProgress current = _current();
    const std::lock_guard lock(_mutex);
    _progress = current;
    return current;
}

void ProgressReport::writeStatus(const RunnerProgress& progress)
{
    if (!_canWrite())
        return;
    _lastStatus = Clock::now();
    _isStatusOld = false;
    _status.write(progress, _isPaused ? "paused" : "running");
}

} // namespace KezService
