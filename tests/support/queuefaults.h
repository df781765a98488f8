// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

// The functions of the C library by which a queue looks at its directory. In a program that is
// linked with ENABLE_EXPORTS they take precedence over the real ones, for the shared libraries too.
// They answer as the real ones until something is set here. For one source file of a program, and
// for one thread.

#include "support/interposed.h"

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <functional>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>

namespace QueueFaults {

/// The error that opendir (after `soundOpens` more calls), readdir (after `soundEntries` more
/// entries), faccessat and inotify_add_watch answer; 0 for the true answer.
inline int openError = 0;
inline int soundOpens = 0;
inline int readError = 0;
inline int soundEntries = 0;
inline int accessError = 0;
inline int watchError = 0;

/// The inode number that a listing shows for a name, given the true one.
inline std::function<std::uint64_t(const char*, std::uint64_t)> listedInode;

/// Whether a listing shows every name twice.
inline bool areNamesListedTwice = false;

/// Called before statx looks at a file, and to change what it answers.
inline std::function<void(const char*)> beforeStatus;
inline std::function<void(const char*, struct statx&)> status;

/// The time of the real-time clock in nanoseconds since 1970; 0 for the true time.
inline std::int64_t clock = 0;

/// The device of open files; 0 for the true one.
inline std::uint64_t device = 0;

/// Number of calls on names.
inline int accessCalls = 0;
inline int statCalls = 0;
inline int statusCalls = 0;

inline void reset()
{
    openError = soundOpens = readError = soundEntries = accessError = watchError = 0;
    listedInode = nullptr;
    areNamesListedTwice = false;
    beforeStatus = nullptr;
    status = nullptr;
    clock = 0;
    device = 0;
    accessCalls = statCalls = statusCalls = 0;
}

/// The next entry, as `read` answers it, with the changes that are set.
template <typename Entry>
Entry* nextEntry(Entry* (*read)(DIR*), DIR* directory)
{
    static Entry* repeated = nullptr;
    if (repeated)
        return std::exchange(repeated, nullptr);
    Entry* const entry = read(directory);
    if (entry && listedInode && entry->d_name[0] != '.')
        entry->d_ino = listedInode(entry->d_name, entry->d_ino);
    if (areNamesListedTwice)
        repeated = entry;
    return entry;
}

/// Whether readdir has to fail now; sets errno.
inline bool isReadRefused()
{
    if (readError == 0 || soundEntries-- > 0)
        return false;
    errno = readError;
    return true;
}

} // namespace QueueFaults

extern "C" {

DIR* opendir(const char* path)
{
    static const auto original = interposed<DIR* (*)(const char*)>("opendir");
    if (QueueFaults::openError != 0 && --QueueFaults::soundOpens < 0) {
        errno = QueueFaults::openError;
        return nullptr;
    }
    return original(path);
}

struct dirent* readdir(DIR* directory)
{
    static const auto original = interposed<struct dirent* (*)(DIR*)>("readdir");
    return QueueFaults::isReadRefused() ? nullptr : QueueFaults::nextEntry(original, directory);
}

struct dirent64* readdir64(DIR* directory)
{
    static const auto original = interposed<struct dirent64* (*)(DIR*)>("readdir64");
    return QueueFaults::isReadRefused() ? nullptr : QueueFaults::nextEntry(original, directory);
}

int faccessat(int directory, const char* path, int mode, int flags) noexcept
{
    static const auto original = interposed<int (*)(int, const char*, int, int)>("faccessat");
    ++QueueFaults::accessCalls;
    if (QueueFaults::accessError != 0) {
        errno = QueueFaults::accessError;
        return -1;
    }
    return original(directory, path, mode, flags);
}

int fstatat(int directory, const char* path, struct stat* result, int flags) noexcept
{
    static const auto original =
        interposed<int (*)(int, const char*, struct stat*, int)>("fstatat");
    ++QueueFaults::statCalls;
    return original(directory, path, result, flags);
}

int fstat(int descriptor, struct stat* result) noexcept
{
    static const auto original = interposed<int (*)(int, struct stat*)>("fstat");
    const int status = original(descriptor, result);
    if (status == 0 && QueueFaults::device != 0)
        result->st_dev = QueueFaults::device;
    return status;
}

int statx(int directory, const char* path, int flags, unsigned int mask,
          struct statx* result) noexcept
{
    static const auto original =
        interposed<int (*)(int, const char*, int, unsigned int, struct statx*)>("statx");
    ++QueueFaults::statusCalls;
    if (QueueFaults::beforeStatus)
        QueueFaults::beforeStatus(path);
    const int error = original(directory, path, flags, mask, result);
    if (error == 0 && QueueFaults::status)
        QueueFaults::status(path, *result);
    return error;
}

int inotify_add_watch(int queue, const char* path, std::uint32_t mask) noexcept
{
    static const auto original =
        interposed<int (*)(int, const char*, std::uint32_t)>("inotify_add_watch");
    if (QueueFaults::watchError != 0) {
        errno = QueueFaults::watchError;
        return -1;
    }
    return original(queue, path, mask);
}

int clock_gettime(clockid_t id, struct timespec* result) noexcept
{
    static const auto original = interposed<int (*)(clockid_t, struct timespec*)>("clock_gettime");
    const std::int64_t now = QueueFaults::clock;
    if (now == 0 || id != CLOCK_REALTIME)
        return original(id, result);
    result->tv_sec = now / 1000000000;
    result->tv_nsec = now % 1000000000;
    return 0;
}
}
