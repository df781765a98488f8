// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

#include <QDateTime>
#include <QObject>
#include <QTimer>

/// Signals when a date and time is reached. A long wait is checked again every minute, so that a
/// change of the system clock is noticed.
///
/// *Threads*: the object's thread.
/// *Owns*: its timer.
/// *Fails*: never.
class KEZ_EXPORT DateWatcher : public QObject {
    Q_OBJECT

public:
    explicit DateWatcher(QObject* parent = nullptr);
    ~DateWatcher() override;

    /// Watches for `target`, in place of the target before; an invalid one ends the watch. A target
    /// in the past is signalled at once. A local time inside the hour that daylight saving skips is
    /// invalid.
    void watch(const QDateTime& target);

public Q_SLOTS:
    /// Signals the target if it is reached, otherwise it waits on.
    void check();

Q_SIGNALS:
    /// Emitted once per target. The watcher is idle at that moment: a slot may set a new target.
    void timestampReached(const QDateTime& target);

private:
    QTimer _timer;
    QDateTime _target; // invalid while nothing is watched
};
