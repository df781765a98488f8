// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/handlerpool_p.h"

#include <QObject>
#include <QTimer>

#include <deque>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace KezService {

/// Gives jobs to the pools. After a death of the process, those that were at work then come first,
/// one by one, so that a second death tells which of them it is. The other jobs wait for the last
/// of them, or for a while.
///
/// *Threads*: the object's thread.
/// *Owns*: the jobs that no pool has.
/// *Fails*: never.
class JobDispatcher : public QObject {
    Q_OBJECT

public:
    using Pools = std::vector<std::unique_ptr<HandlerPool>>;

    /// `pools`: by consumer.
    JobDispatcher(const Pools& pools, Journal& journal);

    /// Keeps the job until dispatch(), or for its turn.
    void add(int consumer, const Job& job);
    void addSuspect(int consumer, const Job& job);

    /// Gives the pools what may go to them. Between hold() and release(), nothing may.
    void dispatch();
    void hold();
    void release();

    /// The work of that consumer on the file of that number has ended.
    void noteEnded(int consumer, quint64 number);

private:
    using ConsumersJob = std::pair<int, Job>;

    bool beginSuspect();
    void leaveSuspect();
    void endSuspicion();

    const Pools& _pools;
    Journal& _journal;
    std::vector<std::vector<Job>> _waiting; // by consumer
    std::deque<ConsumersJob> _suspects;
    std::optional<std::pair<int, quint64>> _alone; // the suspect at work; the timer runs
    bool _isHeld = false;
    QTimer _aloneTimer;
};

} // namespace KezService
