// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/backoff_p.h"
#include "service/descriptor_p.h"

#include <QByteArray>
#include <QString>

#include <chrono>

namespace KezService {

class SpoolLock;

/// Knows whether a runner can work on its spool: the directory is in reach, and the lock on it is
/// the runner's.
///
/// *Threads*: one thread.
/// *Owns*: nothing.
/// *Fails*: never: the log says once that the spool cannot be worked on, and why.
class SpoolAccess {
public:
    enum class State {
        Usable,
        Unusable,
        Regained, ///< usable, but others could change it since the last look: it or its lock was
                  ///< away
    };

    /// `lock` is that on the spool.
    SpoolAccess(const QString& spool, SpoolLock& lock);

    QByteArray pathOf(const QString& name) const;

    /// The directory, for calls such as fstatat(); not open if it is out of reach.
    Descriptor open() const;

    /// Whether the spool has no such file: false if it is only out of reach.
    bool isDeleted(const QString& name) const;

    /// At the last look.
    bool isUsable() const;

    /// Takes the lock again if its file was removed. After a failure, the next real look comes
    /// after a pause.
    State look();
    void skipPause();

private:
    QString regain();

    const QString _spool;
    SpoolLock& _lock;
    Backoff _failures;
    std::chrono::steady_clock::time_point _nextLook{};
};

} // namespace KezService
