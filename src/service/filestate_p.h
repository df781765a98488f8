// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <optional>

#include <sys/stat.h>

namespace KezService {

/// What tells one file from another, and one content of a file from the next.
class FileState {
public:
    explicit FileState(const struct stat& status)
        : _device(status.st_dev),
          _inode(status.st_ino),
          _size(status.st_size),
          _modified(status.st_mtim),
          _changed(status.st_ctim)
    {}

    bool isOfSameFile(const FileState& other) const
    {
        return _device == other._device && _inode == other._inode;
    }
    /// Whether the file and its content are the same, whoever linked it or changed its rights.
    bool hasContentOf(const FileState& other) const
    {
        return isOfSameFile(other) && _size == other._size &&
               isSameTime(_modified, other._modified);
    }
    bool operator==(const FileState& other) const
    {
        return hasContentOf(other) && isSameTime(_changed, other._changed);
    }

private:
    static bool isSameTime(const timespec& a, const timespec& b)
    {
        return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
    }

    dev_t _device;
    ino_t _inode;
    off_t _size;
    timespec _modified;
    timespec _changed;
};

/// The status of the file itself, not of what a link leads to. Nothing if the call fails: errno
/// says why.
inline std::optional<struct stat> statusOf(const QByteArray& path)
{
    struct stat status {};
    return ::lstat(path.constData(), &status) == 0 ? std::optional(status) : std::nullopt;
}

inline std::optional<struct stat> statusOf(int descriptor)
{
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 ? std::optional(status) : std::nullopt;
}

/// Whether both names belong to one existing file. Links are not followed.
inline bool areNamesOfOne(const QByteArray& a, const QByteArray& b)
{
    const auto first = statusOf(a);
    const auto second = statusOf(b);
    return first && second && FileState(*first).isOfSameFile(FileState(*second));
}

/// Whether the name, which is no link, still belongs to the open file. Nothing if the system does
/// not say: a directory on the way may be closed to the process.
inline std::optional<bool> isNameOf(const QByteArray& path, int descriptor)
{
    const auto opened = statusOf(descriptor);
    if (!opened)
        return false;
    const auto named = statusOf(path);
    if (!named && errno != ENOENT && errno != ENOTDIR)
        return std::nullopt;
    return named && FileState(*named).isOfSameFile(FileState(*opened));
}

/// Whether the last change is that long ago. Not the last modification, which anybody may set.
inline bool isOlderThan(const struct stat& status, std::chrono::seconds age)
{
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const auto elapsed = std::chrono::seconds(now.tv_sec - status.st_ctim.tv_sec) +
                         std::chrono::nanoseconds(now.tv_nsec - status.st_ctim.tv_nsec);
    return elapsed >= age;
}

/// Whether both paths, with links followed, lead to one existing file or directory.
inline bool leadToOne(const QByteArray& a, const QByteArray& b)
{
    struct stat first {};
    struct stat second {};
    return ::stat(a.constData(), &first) == 0 && ::stat(b.constData(), &second) == 0 &&
           FileState(first).isOfSameFile(FileState(second));
}

} // namespace KezService
