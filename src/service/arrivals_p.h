// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/backoff_p.h"
#include "service/filestate_p.h"

#include <QByteArray>
#include <QHash>
#include <QSet>

#include <chrono>
#include <optional>
#include <set>
#include <utility>

namespace KezService {

/// A file that has arrived, and what the gate knows of it.
struct Arrival {
    using Clock = std::chrono::steady_clock;

    Clock::time_point due;
    std::optional<FileState> seen;   ///< as it was when the gate last looked
    std::optional<FileState> copied; ///< the queue has this state; the file itself could not go
    std::optional<FileState> marker; ///< vouches for it, and has no room for the name of a claim
    Backoff backoff;
};

/// The files that a gate waits for, each with the time at which it is looked at next. The cost of
/// each function is logarithmic in their number, that of keepOnly() linear.
class Arrivals {
public:
    using Clock = Arrival::Clock;

    qsizetype size() const { return _arrivals.size(); }
    bool contains(const QByteArray& name) const { return _arrivals.contains(name); }

    /// The file that is due first, and when.
    std::optional<std::pair<Clock::time_point, QByteArray>> first() const;

    /// The arrival must be there. The reference is good until another one is added or removed.
    Arrival& operator[](const QByteArray& name);

    void add(const QByteArray& name, Clock::time_point due);
    void reschedule(const QByteArray& name, Clock::time_point due);
    void remove(const QByteArray& name);
    void keepOnly(const QSet<QByteArray>& names);

private:
    QHash<QByteArray, Arrival> _arrivals;
    std::set<std::pair<Clock::time_point, QByteArray>> _order;
};

} // namespace KezService
