// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/datewatcher.h"

#include <QMetaType>

#include <algorithm>

namespace {

constexpr qint64 LongestWait = 60000; // milliseconds

const int dateWatcherMetaType = qRegisterMetaType<DateWatcher>();

} // namespace

DateWatcher::DateWatcher(QObject* parent) : QObject(parent), _timer(this)
{
    _timer.setSingleShot(true);
    _timer.setTimerType(Qt::PreciseTimer);
    connect(&_timer, &QTimer::timeout, this, &DateWatcher::check);
}

DateWatcher::~DateWatcher() = default;

void DateWatcher::watch(const QDateTime& target)
{
    _timer.stop();
    _target = target;
    check();
}

void DateWatcher::check()
{
    if (!_target.isValid())
        return;
    // The difference of two moments can overflow: they are compared first.
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    const qint64 wanted = _target.toMSecsSinceEpoch();
    if (wanted > now) {
        const qint64 next = std::min(wanted, now + LongestWait);
        _timer.start(static_cast<int>(next - now));
        return;
    }
    const QDateTime reached = _target;
    _target = QDateTime();
    Q_EMIT timestampReached(reached);
}
