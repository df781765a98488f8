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

/// `moment` minus `nanoseconds`, which is less than one second.
constexpr Moment earlier(const Moment& moment, qint64 nanoseconds)
{
    return moment.second >= nanoseconds
               ? Moment(moment.first, moment.second - nanoseconds)
               : Moment(moment.first - 1, moment.second + 1000000000 - nanoseconds);
}

/// The clock that gives births and times of change moves in ticks, of up to 10 ms. Two moments that
/// are closer than this may be in the wrong order.
constexpr qint64 ClockDoubt = 20000000; // nanoseconds

/// What a queue remembers of the file that a listing showed, to tell later whether a name still
/// belongs to that file.
///
/// A listing shows inode numbers, but no births. In a directory that has been left alone for a
/// while this is enough: a file that comes later is born later. In one that has just changed, the
/// queue asks for the exact identity of each new file.
///
/// A file system may show other inode numbers in a listing than statx() tells, and a birth may lie
/// in the future (if the clock was set back). The queue may then take a file for another one, once:
/// the file enters again, with its exact identity. In the worst case such a file is handled twice.
/// Every consumed file is deleted in the end.
///
/// Two files of one inode number are not told apart if the file system keeps no births, or gives
/// both the same one.
class ListedFileIdentity {
public:
    ListedFileIdentity(quint64 inode, const Moment& listed,
                       const std::optional<FileIdentity>& exact = std::nullopt)
        : _inode(inode), _listed(listed), _exact(exact)
    {}

    /// Whether a later listing with this inode number for the name shows another file. Numbers that
    /// differ from those of statx() say nothing.
    bool isReplacedBy(quint64 inode) const
    {
        return inode != _inode && (!_exact || _exact->inode == _inode);
    }

    /// A later listing shows the name. From now on this object describes the file that had the name
    /// then.
    void showAgain(quint64 inode, const Moment& listed)
    {
        _inode = inode;
        _listed = listed;
    }

    bool isOf(const FileIdentity& file) const
    {
        if (_exact == file)
            return true;
        const quint64 inode = _exact ? _exact->inode : _inode;
        if (inode != UnknownInode && inode != file.inode)
            return false;
        return !file.birth || *file.birth < earlier(_listed, ClockDoubt);
    }

private:
    /// What file systems in user space list for every file if they have no inode numbers.
    static constexpr quint64 UnknownInode = 0xffffffff;

    quint64 _inode;
    Moment _listed;
    std::optional<FileIdentity> _exact;
};
