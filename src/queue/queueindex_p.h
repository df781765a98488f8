// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "frame/hashing_p.h"
#include "queue/queuedfile_p.h"

#include <QList>

#include <utility>
#include <vector>

/// The entries of a queue by name.
///
/// Each report looks a name up, and each re-scan as many as there are files. With many files that
/// costs what the memory costs, so there is one table of hashes and pointers, and each entry has
/// its name and its hash: a name is found with about half of the accesses of a QHash, and the table
/// is built again without a look at the names.
class QueueIndex {
public:
    /// The entry of that name, or null.
    QueuedFile* find(QStringView name) const
    {
        if (_places.empty())
            return nullptr;
        const size_t hash = Hashing::hashOf(name);
        const size_t place = Hashing::search(_places, hash, [&](const Place& candidate) {
            return !candidate.file || (candidate.hash == hash && candidate.file->name == name);
        });
        return _places[place].file;
    }

    /// To be called with a name that is not there.
    void insert(QueuedFile* file)
    {
        reserve(_count + 1);
        put({file->hash, file});
    }

    void reserve(size_t count)
    {
        if (Hashing::placesFor(count) > _places.size())
            grow(count);
    }

    /// Forgets all others.
    void assign(const QList<FileEntry*>& entries)
    {
        QueueIndex index;
        index.reserve(static_cast<size_t>(entries.size()));
        for (FileEntry* const entry : entries)
            index.insert(queuedFile(entry));
        *this = std::move(index);
    }

private:
    struct Place {
        size_t hash = 0;
        QueuedFile* file = nullptr; // null: is free
    };

    void grow(size_t count)
    {
        const auto before = std::exchange(_places, std::vector<Place>(Hashing::placesFor(count)));
        _count = 0;
        for (const Place& place : before) {
            if (place.file)
                put(place);
        }
    }

    void put(const Place& place)
    {
        const auto isFree = [](const Place& candidate) { return !candidate.file; };
        _places[Hashing::search(_places, place.hash, isFree)] = place;
        ++_count;
    }

    std::vector<Place> _places; // none before the first entry
    size_t _count = 0;
};
