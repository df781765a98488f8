// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <cerrno>

#include <sys/file.h>

namespace KezService {

/// Locks an open file (flock) without waiting for it. Returns the system's error number, or 0;
/// EWOULDBLOCK if somebody else has the lock.
inline int lockFile(int descriptor)
{
    while (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EINTR)
            return errno;
    }
    return 0;
}

/// Whether the error of a lock only says that the file system has none. Then nothing tells whether
/// the owner of a file lives, and the file's age decides.
inline bool knowsNoLocks(int error)
{
    return error == ENOLCK || error == ENOSYS || error == EOPNOTSUPP;
}

} // namespace KezService
