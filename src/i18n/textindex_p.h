// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/dictionnary.h"

#include <QHash>
#include <QString>

#include <algorithm>
#include <bit>
#include <cstring>
#include <vector>

/// Like `==`, whose call into Qt costs more than it takes to compare texts that are this short.
inline bool isSame(QStringView left, QStringView right)
{
    return std::equal(left.utf16(), left.utf16() + left.size(), right.utf16(),
                      right.utf16() + right.size());
}

/// A key with its hash, which is taken once for all the bundles that are searched.
class TextKey {
public:
    TextKey() = default;
    explicit TextKey(QStringView text) : _text(text), _hash(hashOf(text)) {}

    quint64 hash() const { return _hash; }

    bool operator==(const TextKey& other) const
    {
        return _hash == other._hash && isSame(_text, other._text);
    }

private:
    // Qt's hash of a text is not used: on some processors its instructions make the whole look-up
    // three times as slow as the search of a QMap.
    static quint64 hashOf(QStringView text)
    {
        const quint64 secret = processSecret();
        const char16_t* next = text.utf16();
        qsizetype left = text.size();
        quint64 hash = secret ^ static_cast<quint64>(left);
        for (; left > 8; next += 8, left -= 8)
            hash = folded(fourAt(next) ^ secret, fourAt(next + 4) ^ hash);
        if (left >= 4) // the two may overlap
            return folded(fourAt(next) ^ secret, fourAt(next + left - 4) ^ hash);
        quint64 rest = 0;
        for (; left > 0; --left)
            rest = rest << 16 | next[left - 1];
        return folded(rest ^ secret, hash);
    }

    /// Whoever writes a bundle cannot know which keys have the same hash.
    static quint64 processSecret()
    {
        static const quint64 secret = 0x9e3779b97f4a7c15 ^ QHashSeed::globalSeed();
        return secret;
    }

    static quint64 fourAt(const char16_t* characters)
    {
        quint64 four = 0;
        std::memcpy(&four, characters, sizeof(four));
        return four;
    }

    /// Both halves of the product: each bit depends on all bits of both factors.
    static quint64 folded(quint64 left, quint64 right)
    {
#ifdef __SIZEOF_INT128__
        __extension__ using Product = unsigned __int128;
        const Product product = static_cast<Product>(left) * right;
        return static_cast<quint64>(product) ^ static_cast<quint64>(product >> 64);
#else
        const quint64 product = left * right;
        return product ^ product >> 32;
#endif
    }

    QStringView _text;
    quint64 _hash = 0;
};

/// Finds texts of a dictionary by the hash of their key. It refers to the dictionary's own keys and
/// texts: a text that is changed in place is found as it is then, but no key may come or go.
class TextIndex {
public:
    explicit TextIndex(const Dictionnary& texts)
        : _slots(std::bit_ceil(2 * static_cast<std::size_t>(texts.size()) + 1))
    {
        for (auto text = texts.cbegin(); text != texts.cend(); ++text) {
            const TextKey key(text.key());
            _slots[slotOf(key)] = {key, &text.value()};
        }
    }

    /// A null pointer if there is no such key.
    const QString* find(const TextKey& key) const { return _slots[slotOf(key)].text; }

private:
    struct Slot {
        TextKey key;
        const QString* text = nullptr;
    };

    /// Where the key is, or else the free slot that it would take. At least half of them are free.
    std::size_t slotOf(const TextKey& key) const
    {
        const std::size_t last = _slots.size() - 1; // of a power of two: a mask
        std::size_t slot = key.hash() & last;
        while (_slots[slot].text && !(_slots[slot].key == key))
            slot = (slot + 1) & last;
        return slot;
    }

    std::vector<Slot> _slots;
};
