// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/descriptor_p.h"

#include <QByteArray>

#include <chrono>
#include <sys/types.h>

namespace KezService {

/// A new, empty file under a name that is the same for all who want to replace one file. One of
/// them has it at a time; it is locked as long as its owner lives. What a killed owner left behind
/// is removed: at once, or a minute after its last change if no lock can tell (the file system has
/// none, or another user's file cannot be opened).
///
/// Functions return the system's error number, or 0.
class SoleTemporary {
public:
    /// `path` as the system takes it.
    explicit SoleTemporary(const QByteArray& path) : _path(path) {}

    /// Removes the file, unless it was renamed.
    ~SoleTemporary();
    SoleTemporary(const SoleTemporary&) = delete;
    SoleTemporary& operator=(const SoleTemporary&) = delete;

    int descriptor() const { return _file.get(); }

    /// Makes the file. Waits for the one who has it; EWOULDBLOCK if that takes longer than
    /// `patience`.
    int create(mode_t mode, std::chrono::milliseconds patience);

    /// EBUSY, and nothing is renamed, if the file was taken for one left behind.
    int renameTo(const QByteArray& path);

private:
    bool isInPlace() const;
    bool isOld() const;
    int tryToCreate(mode_t mode);
    int removeLeftover() const;
    int lock(int descriptor) const;

    QByteArray _path;
    Descriptor _file;
};

} // namespace KezService
