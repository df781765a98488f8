// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QtGlobal>

#include <optional>
#include <utility>

/// Seconds and nanoseconds since 1970.
using Moment = std::pair<qint64, qint64>;

/// What statx() tells of a file. Inode numbers are used again, often at once: the birth tells such
/// files apart. Not every file system keeps births.
struct FileIdentity {
    quint64 inode = 0;
    std::optional<Moment> birth;

    bool operator==(const FileIdentity&) const = default;
};

/// What a queue remembers of the file that a listing showed, to tell later whether a name still
/// belongs to that file. It takes no system call: a listing shows inode numbers, but no births.
///
/// A file system may show other numbers in a listing than statx() tells, and a birth may lie in the
/// future (if the clock was set back). The queue then takes a file for another one, once: the file
/// enters again, with what statx() told of it, which decides from then on. In the worst case every
/// file of such a file system is handled twice. No file stays for ever.
///
/// Two files of one inode number are not told apart if the file system keeps no births, or if the
/// second is born in the same tick of the clock in which the first was listed.
class ListedFileIdentity {
public:
    ListedFileIdentity(quint64 inode, const Moment& listed) : _inode(inode), _listed(listed) {}

    /// A later listing shows the name. From now on this is about that file, even if it is another
    /// one.
    void showAgain(quint64 inode, const Moment& listed)
    {
        const bool isAnotherFile = _exact && _exact->inode == _inode && _inode != inode;
        if (isAnotherFile)
            _exact.reset();
        _inode = inode;
        _listed = listed;
    }

    /// The file was `file` when it entered the queue.
    void setExact(const FileIdentity& file) { _exact = file; }

    bool isOf(const FileIdentity& file) const
    {
        if (_exact == file)
            return true;
        if (_inode != UnknownInode && _inode != file.inode)
            return false;
        return !file.birth || *file.birth <= _listed;
    }

private:
    /// What file systems in user space list for every file if they have no inode numbers.
    static constexpr quint64 UnknownInode = 0xffffffff;

    quint64 _inode;
    Moment _listed;
    std::optional<FileIdentity> _exact;
};
