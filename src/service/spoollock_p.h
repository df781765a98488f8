// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/descriptor_p.h"

#include <QString>

namespace KezService {

/// Holds a spool for one runner: a lock on the file "lock" in the hidden directory (flock). The
/// system releases it when the process ends, however it ends. The file stays: its text, the
/// process's id, only helps operators.
///
/// *Threads*: one thread at a time.
/// *Owns*: the lock.
/// *Fails*: the constructor and takeAgain() throw Exception.
class SpoolLock {
public:
    /// The hidden directory must be there.
    explicit SpoolLock(const QString& spool);

    /// False if the file was removed or replaced: then another process can take the lock, too.
    bool isInPlace() const;

    /// Takes the lock on the file that is there now. Throws if another process was faster.
    void takeAgain();

private:
    const QString _spool;
    Descriptor _file;
};

} // namespace KezService
