// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

// Functions of the C library that take the place of the real ones, in the shared libraries too, in
// a program that is linked with ENABLE_EXPORTS. They behave like the real ones until a switch is
// set. The switches apply to the files of a ring "app-<n>.log" only. To be included in one source
// file of a program.

#include "support/interposed.h"

#include <QByteArray>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <dirent.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace LibcFaults {

/// The time of the real-time clocks in nanoseconds since 1970; 0 for the true time.
inline std::atomic<qint64> clock{0};

/// How many nanoseconds the coarse clock is late, while `clock` is set.
inline std::atomic<qint64> coarseDelay{0};

/// The error that the function returns; 0 for the true result.
inline std::atomic<int> createError{0};
inline std::atomic<int> listError{0}; // of any directory
inline std::atomic<int> renameError{0};
inline std::atomic<int> unlinkError{0};
inline std::atomic<int> fdopenError{0};
inline std::atomic<int> writeError{0};

/// How many more files are created before createError applies.
inline std::atomic<int> soundCreations{0};

/// When createError applies: always, until a ring file is closed (as if the process had no other
/// descriptor), or after that (as if another thread took the descriptor).
enum class Refusing { Always, UntilClosing, AfterClosing };
inline std::atomic<Refusing> refusing{Refusing::Always};
inline std::atomic<bool> hasClosed{false};

/// How many more writes fail with writeError; all of them if it is negative.
inline std::atomic<int> failingWrites{-1};

/// The next `shortWrites` writes, before any failing one, take at most `writeLimit` bytes.
inline std::atomic<int> shortWrites{0};
inline std::atomic<size_t> writeLimit{0};

/// Number of calls of write and lseek on ring files, and of renames.
inline std::atomic<int> writes{0};
inline std::atomic<int> seeks{0};
inline std::atomic<int> renames{0};

/// How many times this thread went to sleep in one of Qt's locks.
inline thread_local int waits = 0;

/// Whether statx returns no birth times.
inline std::atomic<bool> noBirthTime{false};

inline void reset()
{
    clock = coarseDelay = 0;
    createError = listError = renameError = unlinkError = fdopenError = writeError = 0;
    soundCreations = 0;
    refusing = Refusing::Always;
    hasClosed = false;
    failingWrites = -1;
    writeLimit = 0;
    shortWrites = 0;
    writes = seeks = renames = 0;
    waits = 0;
    noBirthTime = false;
}

inline bool isRingFile(const char* path)
{
    return path && strstr(path, "/app-");
}

inline bool isRingFile(int fd)
{
    char link[64];
    char path[4096];
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t size = readlink(link, path, sizeof path - 1);
    if (size < 0)
        return false;
    path[size] = '\0';
    return isRingFile(path);
}

inline bool isRefusedCreation(const char* path, int flags)
{
    if (createError == 0 || !(flags & O_CREAT) || !isRingFile(path))
        return false;
    if (refusing == (hasClosed ? Refusing::UntilClosing : Refusing::AfterClosing))
        return false;
    return --soundCreations < 0;
}

} // namespace LibcFaults

extern "C" {

#define KEZ_INTERPOSE_OPEN(name)                                                                   \
    int name(const char* path, int flags, ...)                                                     \
    {                                                                                              \
        static const auto original = interposed<int (*)(const char*, int, ...)>(#name);            \
        va_list arguments;                                                                         \
        va_start(arguments, flags);                                                                \
        const mode_t mode = (flags & O_CREAT) ? va_arg(arguments, mode_t) : 0;                     \
        va_end(arguments);                                                                         \
        if (LibcFaults::isRefusedCreation(path, flags)) {                                          \
            errno = LibcFaults::createError;                                                       \
            return -1;                                                                             \
        }                                                                                          \
        return original(path, flags, mode);                                                        \
    }
KEZ_INTERPOSE_OPEN(open)
KEZ_INTERPOSE_OPEN(open64)

#define KEZ_INTERPOSE_OPENAT(name)                                                                 \
    int name(int directory, const char* path, int flags, ...)                                      \
    {                                                                                              \
        static const auto original = interposed<int (*)(int, const char*, int, ...)>(#name);       \
        va_list arguments;                                                                         \
        va_start(arguments, flags);                                                                \
        const mode_t mode = (flags & O_CREAT) ? va_arg(arguments, mode_t) : 0;                     \
        va_end(arguments);                                                                         \
        if (LibcFaults::isRefusedCreation(path, flags)) {                                          \
            errno = LibcFaults::createError;                                                       \
            return -1;                                                                             \
        }                                                                                          \
        return original(directory, path, flags, mode);                                             \
    }
KEZ_INTERPOSE_OPENAT(openat)
KEZ_INTERPOSE_OPENAT(openat64)

int close(int fd)
{
    static const auto original = interposed<int (*)(int)>("close");
    if (LibcFaults::createError != 0 && LibcFaults::isRingFile(fd))
        LibcFaults::hasClosed = true;
    return original(fd);
}

DIR* opendir(const char* path)
{
    static const auto original = interposed<DIR* (*)(const char*)>("opendir");
    if (LibcFaults::listError != 0) {
        errno = LibcFaults::listError;
        return nullptr;
    }
    return original(path);
}

long syscall(long number, ...) noexcept
{
    static const auto original =
        interposed<long (*)(long, long, long, long, long, long, long)>("syscall");
    va_list arguments;
    va_start(arguments, number);
    long values[6];
    for (long& value : values)
        value = va_arg(arguments, long);
    va_end(arguments);
    const long command = values[1] & FUTEX_CMD_MASK;
    if (number == SYS_futex && (command == FUTEX_WAIT || command == FUTEX_WAIT_BITSET))
        ++LibcFaults::waits;
    return original(number, values[0], values[1], values[2], values[3], values[4], values[5]);
}

int rename(const char* from, const char* to) noexcept
{
    static const auto original = interposed<int (*)(const char*, const char*)>("rename");
    if (LibcFaults::isRingFile(from)) {
        ++LibcFaults::renames;
        if (LibcFaults::renameError != 0) {
            errno = LibcFaults::renameError;
            return -1;
        }
    }
    return original(from, to);
}

int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to,
              unsigned int flags) noexcept
{
    static const auto original =
        interposed<int (*)(int, const char*, int, const char*, unsigned int)>("renameat2");
    if (LibcFaults::isRingFile(from)) {
        ++LibcFaults::renames;
        if (LibcFaults::renameError != 0) {
            errno = LibcFaults::renameError;
            return -1;
        }
    }
    return original(fromDirectory, from, toDirectory, to, flags);
}

int unlink(const char* path) noexcept
{
    static const auto original = interposed<int (*)(const char*)>("unlink");
    if (LibcFaults::unlinkError != 0 && LibcFaults::isRingFile(path)) {
        errno = LibcFaults::unlinkError;
        return -1;
    }
    return original(path);
}

FILE* fdopen(int fd, const char* mode) noexcept
{
    static const auto original = interposed<FILE* (*)(int, const char*)>("fdopen");
    if (LibcFaults::fdopenError != 0) {
        errno = LibcFaults::fdopenError;
        return nullptr;
    }
    return original(fd, mode);
}

ssize_t write(int fd, const void* bytes, size_t size)
{
    static const auto original = interposed<ssize_t (*)(int, const void*, size_t)>("write");
    if (LibcFaults::isRingFile(fd)) {
        ++LibcFaults::writes;
        if (LibcFaults::shortWrites > 0) {
            --LibcFaults::shortWrites;
            return original(fd, bytes,
                            size < LibcFaults::writeLimit ? size : LibcFaults::writeLimit.load());
        }
        if (LibcFaults::writeError != 0 && LibcFaults::failingWrites != 0) {
            if (LibcFaults::failingWrites > 0)
                --LibcFaults::failingWrites;
            errno = LibcFaults::writeError;
            return -1;
        }
    }
    return original(fd, bytes, size);
}

#define KEZ_INTERPOSE_LSEEK(name)                                                                  \
    off_t name(int fd, off_t offset, int from) noexcept                                            \
    {                                                                                              \
        static const auto original = interposed<off_t (*)(int, off_t, int)>(#name);                \
        if (LibcFaults::isRingFile(fd))                                                            \
            ++LibcFaults::seeks;                                                                   \
        return original(fd, offset, from);                                                         \
    }
KEZ_INTERPOSE_LSEEK(lseek)
KEZ_INTERPOSE_LSEEK(lseek64)

int statx(int directory, const char* path, int flags, unsigned int mask,
          struct statx* result) noexcept
{
    static const auto original =
        interposed<int (*)(int, const char*, int, unsigned int, struct statx*)>("statx");
    const int status = original(directory, path, flags, mask, result);
    if (status == 0 && LibcFaults::noBirthTime) {
        result->stx_mask &= ~static_cast<unsigned int>(STATX_BTIME);
        result->stx_btime = {};
    }
    return status;
}

int clock_gettime(clockid_t id, struct timespec* result) noexcept
{
    static const auto original = interposed<int (*)(clockid_t, struct timespec*)>("clock_gettime");
    qint64 now = LibcFaults::clock;
    if (now == 0 || (id != CLOCK_REALTIME && id != CLOCK_REALTIME_COARSE))
        return original(id, result);
    if (id == CLOCK_REALTIME_COARSE)
        now -= LibcFaults::coarseDelay;
    result->tv_sec = now / 1000000000;
    result->tv_nsec = now % 1000000000;
    return 0;
}

int gettimeofday(struct timeval* result, void* zone) noexcept
{
    static const auto original = interposed<int (*)(struct timeval*, void*)>("gettimeofday");
    const qint64 now = LibcFaults::clock;
    if (now == 0)
        return original(result, zone);
    result->tv_sec = now / 1000000000;
    result->tv_usec = now % 1000000000 / 1000;
    return 0;
}

time_t time(time_t* result) noexcept
{
    static const auto original = interposed<time_t (*)(time_t*)>("time");
    const qint64 now = LibcFaults::clock;
    if (now == 0)
        return original(result);
    const time_t seconds = now / 1000000000;
    if (result)
        *result = seconds;
    return seconds;
}
}
