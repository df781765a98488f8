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
/// *Fails*: the constructor throws Exception.
class SpoolLock {
public:
    /// The hidden directory must be there.
    explicit SpoolLock(const QString& spool);

private:
    Descriptor _file;
};

} // namespace KezService
