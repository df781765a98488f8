// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <optional>

namespace KezService {

/// What tells one file, and one content of it, from another under the same name. Inode numbers are
/// used again, often at once: the time of birth tells such files apart. Times are nanoseconds since
/// 1970.
struct FileStamp {
    quint64 inode = 0;
    std::optional<qint64> birth; ///< not every file system keeps it
    qint64 size = 0;
    qint64 modified = 0; ///< of the content (mtime)
    qint64 changed = 0;  ///< of the content, the rights, the number of links (ctime)

    /// Also false if only the rights or the links have changed.
    bool operator==(const FileStamp&) const = default;

    bool isOfSameFile(const FileStamp& other) const
    {
        return inode == other.inode && birth == other.birth;
    }

    /// Whether the file and its content are the same, whoever linked it or changed its rights.
    bool hasContentOf(const FileStamp& other) const
    {
        return isOfSameFile(other) && size == other.size && modified == other.modified;
    }
};

/// The stamp of the file that `path` leads to; links are followed. Nothing if there is none: errno
/// says why.
std::optional<FileStamp> stampOf(const QByteArray& path);

/// The same of a name in a directory that is open; of the directory itself if the name is empty.
std::optional<FileStamp> stampIn(int directory, const QByteArray& name);

} // namespace KezService
