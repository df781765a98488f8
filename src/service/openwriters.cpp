// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/openwriters_p.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>

namespace KezService {

/// The system gives a read lease only while nobody can write. It is given back at once.
///
/// If a process opens the file for writing in between, it waits for that instant, and the system
/// tells the holder of the lease by a signal. By default that is SIGIO, which ends a process that
/// does not expect it. SIGURG is ignored by default. It is no real-time signal either: these become
/// SIGIO when their queue is full.
OpenWriters openWritersOf(int descriptor)
{
    // NOLINTBEGIN(*-vararg)
    if (::fcntl(descriptor, F_SETSIG, SIGURG) != 0)
        return OpenWriters::Unknown;
    if (::fcntl(descriptor, F_SETLEASE, F_RDLCK) == 0) {
        ::fcntl(descriptor, F_SETLEASE, F_UNLCK);
        return OpenWriters::None;
    }
    // NOLINTEND(*-vararg)
    // EACCES: another user's file. EINVAL: the file system has no leases.
    return errno == EAGAIN ? OpenWriters::Some : OpenWriters::Unknown;
}

} // namespace KezService
