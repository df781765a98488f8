// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "frame/hashing_p.h"
#include "queue/queuelisting_p.h"

#include <QStringView>

#include <limits>
#include <vector>

/// The files of a listing by name.
///
/// A re-scan looks each entry up in the listing, not each listed file in the queue: the entries lie
/// in memory in the order of the queue, the files are listed in no order, and the names of a
/// listing are close together. With many files this is several times as fast.
class ListedNames {
public:
    /// `hashOf` is a function of a name. The listing has to outlive this object.
    template <typename Hash>
    ListedNames(const QueueListing& listing, Hash hashOf)
        : _listing(listing),
          _isTaken(listing.files.size()),
          _places(Hashing::placesFor(listing.files.size()))
    {
        for (size_t i = 0; i < listing.files.size(); ++i)
            insert(hashOf(listing.nameOf(listing.files[i])), static_cast<quint32>(i));
    }

    /// The file of that name, which is taken out; null if there is none.
    const ListedFile* take(QStringView name, size_t hash)
    {
        const Place& place = _places[placeOf(name, hash)];
        if (place.file == None || _isTaken[place.file])
            return nullptr;
        _isTaken[place.file] = true;
        return &_listing.files[place.file];
    }

    /// The files that were not taken, each once.
    std::vector<ListedFile> rest() const
    {
        std::vector<ListedFile> files;
        for (size_t i = 0; i < _listing.files.size(); ++i) {
            if (!_isTaken[i])
                files.push_back(_listing.files[i]);
        }
        return files;
    }

private:
    static constexpr quint32 None = std::numeric_limits<quint32>::max();

    struct Place {
        quint32 hash = 0; // a part of it
        quint32 file = None;
    };

    /// Where the name is, or the free place where it would be.
    size_t placeOf(QStringView name, size_t hash) const
    {
        const auto part = static_cast<quint32>(hash);
        return Hashing::search(_places, hash, [&](const Place& place) {
            return place.file == None ||
                   (place.hash == part && _listing.nameOf(_listing.files[place.file]) == name);
        });
    }

    void insert(size_t hash, quint32 file)
    {
        Place& place = _places[placeOf(_listing.nameOf(_listing.files[file]), hash)];
        if (place.file == None)
            place = {static_cast<quint32>(hash), file};
        else
            _isTaken[file] = true; // its name was read twice
    }

    const QueueListing& _listing;
    std::vector<bool> _isTaken;
    std::vector<Place> _places;
};
