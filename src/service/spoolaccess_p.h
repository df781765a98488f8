// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/backoff_p.h"
#include "service/descriptor_p.h"
#include "service/filestamp_p.h"

#include <QString>

#include <chrono>
#include <optional>

namespace KezService {

class SpoolLock;

/// Knows whether a runner can work on its spool: the directory is in reach, it is the one with
/// which the runner began, and the lock on it is the runner's.
///
/// If another directory stands in the place of the spool, it is left alone: what is known of the
/// files holds for the first one, which may come back. Only if that one was deleted, the runner
/// goes on with the other one.
///
/// *Threads*: one thread.
/// *Owns*: a descriptor of the directory.
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

    /// The stamp of a file in the spool. Nothing if there is none, or if it is out of reach.
    std::optional<FileStamp> stampOf(const QString& name) const;

    /// Whether the spool has no such file: false if it is only out of reach.
    bool isDeleted(const QString& name) const;

    bool mayReadAndWrite(const QString& name) const;

    /// Whether the path leads to it now.
    bool isInPlace() const;

    /// At the last look.
    bool isUsable() const;

    /// Takes the lock again if its file was removed. After a failure, the next real look comes
    /// after a pause.
    State look();
    void skipPause();

private:
    QString regain();
    bool isDirectoryDeleted() const;

    const QString _spool;
    SpoolLock& _lock;
    Descriptor _directory;
    FileStamp _stamp; // of the directory
    Backoff _failures;
    std::chrono::steady_clock::time_point _nextLook{};
};

} // namespace KezService
