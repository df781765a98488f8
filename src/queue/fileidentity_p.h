// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QtGlobal>

#include <optional>
#include <utility>

/// Seconds and nanoseconds since 1970, as the file system stamps them.
using Moment = std::pair<qint64, qint64>;

/// What statx() tells of a file, and the device of its directory. Inode numbers are used again,
/// often at once: the birth tells such files apart. Not every file system keeps births.
struct FileIdentity {
    quint64 device = 0;
    quint64 inode = 0;
    std::optional<Moment> birth;

    bool operator==(const FileIdentity&) const = default;
};

/// The state of a directory when it was listed.
struct DirectoryState {
    /// Times of change may be as coarse as this many seconds (the births of files less so).
    static constexpr qint64 Coarseness = 2;

    quint64 device = 0;

    /// When a name was last added or removed. Every file that the listing shows was born before
    /// that or, in one tick of the clock, at that moment; every later file is not born before it.
    Moment lastChange;

    /// Whether that was so long ago that later files are certainly born later.
    bool isSettled = false;
};

/// What a queue remembers of the file that a listing showed, to tell later whether a name still
/// belongs to that file.
///
/// A listing shows inode numbers, but no births. If the directory had been left alone for some
/// seconds this is enough: a file that comes later is born later. If it had just changed, the queue
/// asks for the exact identity of each new file.
///
/// A file system may show other inode numbers in a listing than statx() tells, and a birth may be
/// later than the directory's last change (if the clock was set back). The queue may then take a
/// file for another one, once: the file enters again, with its exact identity. In the worst case
/// such a file is handled twice. Every consumed file is deleted in the end.
///
/// Two files of one inode number are not told apart if the file system keeps no births or gives
/// both the same one, if the clock was set back since the directory was listed, or if the second
/// one is born in the very tick of the clock in which the directory had changed and was listed.
class ListedFileIdentity {
public:
    ListedFileIdentity(quint64 inode, const DirectoryState& listed,
                       const std::optional<FileIdentity>& exact = std::nullopt)
        : _inode(inode), _entered(listed), _lastShown(listed.lastChange), _exact(exact)
    {}

    /// Whether a later listing with this inode number for the name shows another file. Numbers that
    /// differ from those of statx() say nothing.
    bool isReplacedBy(quint64 inode) const
    {
        return inode != _inode && (!_exact || _exact->inode == _inode);
    }

    /// A later listing shows the name. From now on this is also about the file that had the name
    /// then, if its inode number is the same.
    void showAgain(quint64 inode, const DirectoryState& listed)
    {
        _inode = inode;
        _lastShown = listed.lastChange;
    }

    bool isOf(const FileIdentity& file) const
    {
        if (_exact == file)
            return true;
        const quint64 inode = _exact ? _exact->inode : _inode;
        if (file.device != _entered.device || (inode != UnknownInode && inode != file.inode))
            return false;
        if (!file.birth)
            return true;
        const bool wasThere = *file.birth <= _lastShown; // and took the name of the first one
        if (_exact)
            return wasThere && _exact->birth < file.birth;
        const Moment end(_entered.lastChange.first + DirectoryState::Coarseness,
                         _entered.lastChange.second);
        return wasThere || *file.birth < end;
    }

private:
    /// What file systems in user space list for every file if they have no inode numbers.
    static constexpr quint64 UnknownInode = 0xffffffff;

    quint64 _inode;
    DirectoryState _entered;
    Moment _lastShown;
    std::optional<FileIdentity> _exact;
};
