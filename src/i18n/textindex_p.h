// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "frame/hashing_p.h"
#include "kez/dictionnary.h"

#include <QString>

#include <vector>

/// A key with its hash, which is taken once for all the bundles that are searched.
class TextKey {
public:
    TextKey() = default;
    explicit TextKey(QStringView text) : _text(text), _hash(Hashing::hashOf(text)) {}

    quint64 hash() const { return _hash; }

    bool operator==(const TextKey& other) const
    {
        return _hash == other._hash && Hashing::isSame(_text, other._text);
    }

private:
    QStringView _text;
    quint64 _hash = 0;
};

/// Finds texts of a dictionary by the hash of their key. It refers to the dictionary's own keys and
/// texts: a text that is changed in place is found as it is then, but no key may come or go.
class TextIndex {
public:
    explicit TextIndex(const Dictionnary& texts)
        : _places(Hashing::placesFor(static_cast<std::size_t>(texts.size())))
    {
        for (auto text = texts.cbegin(); text != texts.cend(); ++text) {
            const TextKey key(text.key());
            _places[placeOf(key)] = {key, &text.value()};
        }
    }

    /// A null pointer if there is no such key.
    const QString* find(const TextKey& key) const { return _places[placeOf(key)].text; }

private:
    struct Place {
        TextKey key;
        const QString* text = nullptr; // null: is free
    };

    /// Where the key is, or else the free place that it would take.
    std::size_t placeOf(const TextKey& key) const
    {
        return Hashing::search(_places, key.hash(), [&key](const Place& place) {
            return !place.text || place.key == key;
        });
    }

    std::vector<Place> _places;
};
