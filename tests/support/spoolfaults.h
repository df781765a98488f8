// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

// The functions of the C library by which files get into a spool. In a program that is linked with
// ENABLE_EXPORTS they take precedence over the real ones, for the shared libraries too. They answer
// as the real ones until something is set here. For one source file of a program.

#include "support/interposed.h"

#include <QByteArray>
#include <QByteArrayList>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <functional>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace SpoolFaults {

/// A call of a function and the path that it is about; for descriptors, that of the open file.
struct Call {
    QByteArray function;
    QByteArray path;
};

/// Calls count only in this thread, and only if their path contains this text.
inline thread_local QByteArray watched;

/// The calls so far.
inline thread_local QList<Call> calls;

/// Called before each call, with its number, which begins at 1. What it returns is the error of the
/// call; 0 for the true answer.
inline thread_local std::function<int(const Call&, qsizetype)> before;

/// How many bytes a write takes at most; 0 for all.
inline thread_local size_t writeLimit = 0;

inline void reset()
{
    watched.clear();
    calls.clear();
    before = nullptr;
    writeLimit = 0;
}

/// Begins to count the calls below a directory.
inline void watch(const QByteArray& path)
{
    reset();
    watched = path;
}

inline QByteArray pathOf(int descriptor)
{
    char path[4096];
    const QByteArray link = "/proc/self/fd/" + QByteArray::number(descriptor);
    const ssize_t size = ::readlink(link.constData(), path, sizeof path);
    return size < 0 ? QByteArray() : QByteArray(path, size);
}

/// Whether the call has to fail; sets errno.
inline bool isRefused(const char* function, const QByteArray& path)
{
    if (watched.isEmpty() || !path.contains(watched))
        return false;
    const QByteArray before_watched = watched;
    watched.clear(); // what the test does now does not count
    calls.append({function, path});
    const int error = before ? before(calls.last(), calls.size()) : 0;
    watched = before_watched;
    errno = error != 0 ? error : errno;
    return error != 0;
}

inline bool isRefused(const char* function, int descriptor)
{
    return !watched.isEmpty() && isRefused(function, pathOf(descriptor));
}

/// The calls that are of interest, as "function name".
inline QByteArrayList summary(const QByteArrayList& functions)
{
    QByteArrayList result;
    for (const Call& call : calls)
        if (functions.contains(call.function))
            result.append(call.function + ' ' + call.path.mid(call.path.lastIndexOf('/') + 1));
    return result;
}

} // namespace SpoolFaults

extern "C" {

#define KEZ_INTERPOSE_OPEN(name)                                                                   \
    int name(const char* path, int flags, ...)                                                     \
    {                                                                                              \
        static const auto original = interposed<int (*)(const char*, int, ...)>(#name);            \
        va_list arguments;                                                                         \
        va_start(arguments, flags);                                                                \
        const mode_t mode = (flags & O_CREAT) ? va_arg(arguments, mode_t) : 0;                     \
        va_end(arguments);                                                                         \
        const char* const function = (flags & O_CREAT) ? "create" : "open";                        \
        return SpoolFaults::isRefused(function, path) ? -1 : original(path, flags, mode);          \
    }
KEZ_INTERPOSE_OPEN(open)
KEZ_INTERPOSE_OPEN(open64)

// The functions with one path or one descriptor, which return 0 or -1.
#define KEZ_INTERPOSE(name, parameters, arguments, subject)                                        \
    int name parameters                                                                            \
    {                                                                                              \
        static const auto original = interposed<int(*) parameters>(#name);                         \
        return SpoolFaults::isRefused(#name, subject) ? -1 : original arguments;                   \
    }
KEZ_INTERPOSE(fsync, (int file), (file), file)
KEZ_INTERPOSE(unlink, (const char* path) noexcept, (path), path)
KEZ_INTERPOSE(mkdir, (const char* path, mode_t mode) noexcept, (path, mode), path)
KEZ_INTERPOSE(chmod, (const char* path, mode_t mode) noexcept, (path, mode), path)
KEZ_INTERPOSE(fchmod, (int file, mode_t mode) noexcept, (file, mode), file)
KEZ_INTERPOSE(futimens, (int file, const timespec times[2]) noexcept, (file, times), file)
KEZ_INTERPOSE(flock, (int file, int operation) noexcept, (file, operation), file)
KEZ_INTERPOSE(link, (const char* from, const char* to) noexcept, (from, to), to)
KEZ_INTERPOSE(rename, (const char* from, const char* to) noexcept, (from, to), to)

int renameat2(int fromDirectory, const char* from, int toDirectory, const char* to,
              unsigned int flags) noexcept
{
    static const auto original =
        interposed<int (*)(int, const char*, int, const char*, unsigned int)>("renameat2");
    if (SpoolFaults::isRefused("renameat2", to))
        return -1;
    return original(fromDirectory, from, toDirectory, to, flags);
}

struct dirent* readdir(DIR* directory)
{
    static const auto original = interposed<struct dirent* (*)(DIR*)>("readdir");
    return SpoolFaults::isRefused("readdir", dirfd(directory)) ? nullptr : original(directory);
}

ssize_t write(int file, const void* bytes, size_t size)
{
    static const auto original = interposed<ssize_t (*)(int, const void*, size_t)>("write");
    if (SpoolFaults::isRefused("write", file))
        return -1;
    const bool isCut = !SpoolFaults::watched.isEmpty() && SpoolFaults::writeLimit > 0 &&
                       size > SpoolFaults::writeLimit;
    return original(file, bytes, isCut ? SpoolFaults::writeLimit : size);
}
}
