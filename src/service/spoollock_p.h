// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/processlock_p.h"

#include <QString>

namespace KezService {

/// Holds a spool for one runner, by a lock on the file "lock" in the hidden directory.
///
/// *Threads*: one thread at a time.
/// *Owns*: the lock.
/// *Fails*: the constructor and takeAgain() throw Exception.
class SpoolLock {
public:
    /// The hidden directory must be there.
    explicit SpoolLock(const QString& spool);

    /// False if the file was removed or replaced: then another process can take the lock, too.
    bool isInPlace() const { return _lock.isInPlace(); }

    /// Takes the lock on the file that is there now. Throws if another process was faster.
    void takeAgain();

private:
    const QString _spool;
    ProcessLock _lock;
};

} // namespace KezService
