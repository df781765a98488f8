// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QObject>

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>

/// Decides when a queue re-scans because its directory has changed.
///
/// The first change after a quiet moment is scanned at once. While changes keep coming, each
/// re-scan waits until three times the duration of the last one has passed since that one ended,
/// and covers all the changes until then: re-scans take at most a quarter of the thread's time,
/// apart from the traces and slots of the application.
///
/// It is a child of the queue, so that its timer goes with the queue to another thread.
class RescanPace : public QObject {
public:
    using Clock = std::chrono::steady_clock;

    /// `rescan` is called for changes that were held back.
    RescanPace(QObject* queue, std::function<void()> rescan)
        : QObject(queue), _rescan(std::move(rescan))
    {}

    /// The directory has changed: whether that is scanned later, through `rescan`. If this returns
    /// false, the caller re-scans.
    bool holdBack(Clock::time_point now)
    {
        const Clock::duration pause = _end + pauseAfter(_duration) - now;
        if (pause <= Clock::duration::zero())
            return false;
        if (!_isChangeHeld) {
            stop();
            _timer =
                startTimer(std::chrono::ceil<std::chrono::milliseconds>(pause), Qt::PreciseTimer);
            _isChangeHeld = _timer != 0;
        }
        return _isChangeHeld;
    }

    /// A re-scan has ended. If it has listed the directory, it has seen every change until then.
    /// The timer runs on and finds nothing to do.
    void noteRescan(Clock::time_point start, Clock::time_point end, bool hasListed)
    {
        _duration = end - start;
        _end = end;
        if (hasListed)
            _isChangeHeld = false;
    }

    bool isChangeHeld() const { return _isChangeHeld; }

    /// Forgets a change that is held back. For the thread that the queue lives in.
    void stop()
    {
        if (_timer != 0)
            killTimer(std::exchange(_timer, 0));
        _isChangeHeld = false;
    }

    /// The pause does not grow without end: the process may have been stopped during a re-scan.
    static Clock::duration pauseAfter(Clock::duration rescan)
    {
        return std::min<Clock::duration>(3 * rescan, std::chrono::minutes(1));
    }

protected:
    void timerEvent(QTimerEvent*) override
    {
        const bool wasChangeHeld = _isChangeHeld;
        stop();
        if (wasChangeHeld && !holdBack(Clock::now()))
            _rescan();
    }

private:
    std::function<void()> _rescan;
    Clock::duration _duration = Clock::duration::zero();
    Clock::time_point _end;
    int _timer = 0;             // 0: does not run
    bool _isChangeHeld = false; // only while the timer runs
};
