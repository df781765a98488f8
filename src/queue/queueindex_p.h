// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "queue/queuedfile_p.h"

#include <QList>

#include <utility>
#include <vector>

/// The entries of a queue by name.
///
/// Each report looks a name up, and each re-scan as many as there are files. With many files that
/// costs what the memory costs, so there is one table of hashes and pointers, and each entry has
/// its name and its hash: a name is found with about half of the accesses of a QHash, and the table
/// is built again without a look at the names. An entry that is in none of its first places is in
/// one of the next ones.
class QueueIndex {
public:
    /// The entry of that name, or null.
    QueuedFile* find(QStringView name) const
    {
        const size_t hash = QueuedFile::hashOf(name);
        for (size_t i = hash; !_places.empty(); ++i) {
            const Place& place = _places[i & (_places.size() - 1)];
            if (!place.file || (place.hash == hash && place.file->name == name))
                return place.file;
        }
        return nullptr;
    }

    /// To be called with a name that is not there.
    void insert(QueuedFile* file)
    {
        if (!hasRoomFor(_count + 1))
            grow(_count + 1);
        put({file->hash, file});
    }

    void reserve(size_t count)
    {
        if (!hasRoomFor(count))
            grow(count);
    }

    /// Forgets all others.
    void assign(const QList<FileEntry*>& entries)
    {
        _places.clear();
        _count = 0;
        reserve(static_cast<size_t>(entries.size()));
        for (FileEntry* const entry : entries)
            insert(queuedFile(entry));
    }

private:
    struct Place {
        size_t hash = 0;
        QueuedFile* file = nullptr; // null: is free
    };

    /// Some places stay free, so that every search ends soon.
    bool hasRoomFor(size_t count) const { return count <= _places.size() / 8 * 7; }

    void grow(size_t count)
    {
        size_t size = 16;
        while (count > size / 8 * 7)
            size *= 2;
        const std::vector<Place> before = std::exchange(_places, std::vector<Place>(size));
        _count = 0;
        for (const Place& place : before) {
            if (place.file)
                put(place);
        }
    }

    void put(const Place& place)
    {
        size_t i = place.hash;
        while (_places[i & (_places.size() - 1)].file)
            ++i;
        _places[i & (_places.size() - 1)] = place;
        ++_count;
    }

    std::vector<Place> _places; // as many as a power of two, or none
    size_t _count = 0;
};
