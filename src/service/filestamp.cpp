// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/filestamp_p.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace KezService {

namespace {

qint64 nanoseconds(const struct statx_timestamp& time)
{
    constexpr quint64 PerSecond = 1'000'000'000;
    // Unsigned: a time far outside of what 64 bits hold wraps, and is still told from others.
    return static_cast<qint64>(static_cast<quint64>(time.tv_sec) * PerSecond + time.tv_nsec);
}

} // namespace

std::optional<FileStamp> stampOf(const QByteArray& path)
{
    return stampIn(AT_FDCWD, path);
}

std::optional<FileStamp> stampIn(int directory, const QByteArray& name)
{
    struct statx info {};
    constexpr unsigned int wanted =
        STATX_INO | STATX_SIZE | STATX_MTIME | STATX_CTIME | STATX_BTIME;
    if (::statx(directory, name.constData(), AT_EMPTY_PATH, wanted, &info) != 0)
        return std::nullopt;
    FileStamp stamp;
    stamp.inode = info.stx_ino;
    if ((info.stx_mask & STATX_BTIME) != 0)
        stamp.birth = nanoseconds(info.stx_btime);
    stamp.size = static_cast<qint64>(info.stx_size);
    stamp.modified = nanoseconds(info.stx_mtime);
    stamp.changed = nanoseconds(info.stx_ctime);
    return stamp;
}

} // namespace KezService
