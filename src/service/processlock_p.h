// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/descriptor_p.h"

#include <QString>

#include <sys/types.h>

namespace KezService {

/// A lock on a file (flock), for one process. The system releases it when the process ends, however
/// it ends. The file stays: its text, the process's id, only helps operators.
///
/// *Threads*: one thread at a time.
/// *Owns*: the lock.
/// *Fails*: take() returns the system's error number.
class ProcessLock {
public:
    /// Takes nothing yet. A file that is not there gets the mode `mode`, except what the process's
    /// mask takes away.
    ProcessLock(const QString& path, mode_t mode) : _path(path), _mode(mode) {}

    /// Whether it holds the lock on the file that `path` names now.
    bool isOn(const QString& path) const;

    /// False if the file was removed or replaced: then another process can take the lock, too.
    bool isInPlace() const { return isOn(_path); }

    /// Takes the lock on the file that is there now. EWOULDBLOCK if it is taken.
    int take();

    /// The text of the one who had the lock when take() wanted it, as a log can show it.
    QString holder() const { return _holder; }

private:
    QString _path;
    mode_t _mode;
    Descriptor _file;
    QString _holder;
};

} // namespace KezService
