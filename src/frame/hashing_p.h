// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArrayView>
#include <QHashFunctions>
#include <QStringView>

#include <algorithm>
#include <bit>
#include <cstring>

/// A hash for short texts and identifiers, and what tables with open addressing share.
///
/// qHash() is not used for them: on some processors its wide instructions make a whole look-up
/// three times as slow as the search of a QMap, since they also slow down what follows.
namespace Hashing {

/// Both halves of the product: each bit depends on all bits of both factors.
inline quint64 folded(quint64 left, quint64 right)
{
#ifdef __SIZEOF_INT128__
    __extension__ using Product = unsigned __int128;
    const Product product = static_cast<Product>(left) * right;
    return static_cast<quint64>(product) ^ static_cast<quint64>(product >> 64);
#else
    constexpr quint64 Low = 0xffffffff;
    const quint64 low = (left & Low) * (right & Low);
    const quint64 middle = (left >> 32) * (right & Low) + (low >> 32);
    const quint64 crossed = (left & Low) * (right >> 32) + (middle & Low);
    const quint64 high = (left >> 32) * (right >> 32) + (middle >> 32) + (crossed >> 32);
    return high ^ (crossed << 32 | (low & Low));
#endif
}

/// Another number in every process, unless QT_HASH_SEED is set: whoever chooses keys does not know
/// which have the same hash. It stays if the application sets the seed of Qt's hashes.
inline quint64 processSecret()
{
    static const quint64 secret = 0x9e3779b97f4a7c15 ^ QHashSeed::globalSeed();
    return secret;
}

inline quint64 eightBytesAt(const char* bytes)
{
    quint64 eight = 0;
    std::memcpy(&eight, bytes, sizeof(eight));
    return eight;
}

/// The hash of the bytes in this process.
inline quint64 hashOf(QByteArrayView bytes)
{
    const quint64 secret = processSecret();
    const char* next = bytes.data();
    qsizetype left = bytes.size();
    quint64 hash = secret ^ static_cast<quint64>(left);
    for (; left > 16; next += 16, left -= 16)
        hash = folded(eightBytesAt(next) ^ secret, eightBytesAt(next + 8) ^ hash);
    if (left >= 8) // the two may overlap
        return folded(eightBytesAt(next) ^ secret, eightBytesAt(next + left - 8) ^ hash);
    quint64 rest = 0;
    for (; left > 0; --left)
        rest = rest << 8 | static_cast<unsigned char>(next[left - 1]);
    return folded(rest ^ secret, hash);
}

inline quint64 hashOf(QStringView text)
{
    return hashOf(QByteArrayView(reinterpret_cast<const char*>(text.utf16()), 2 * text.size()));
}

/// Like `==`, whose call into Qt costs more than it takes to compare short texts.
inline bool isSame(QStringView left, QStringView right)
{
    return std::equal(left.utf16(), left.utf16() + left.size(), right.utf16(),
                      right.utf16() + right.size());
}

/// How many places a table for `count` entries has: a power of two, and enough that a quarter of
/// them stays free, so that every search ends soon.
inline std::size_t placesFor(std::size_t count)
{
    return std::bit_ceil(std::max<std::size_t>(count + count / 3 + 1, 16));
}

/// The index of the first place, from the hash's own one onwards, that `isEnd` accepts: the one
/// searched for, or a free one. An entry whose place is taken is in one of the next ones.
template <typename Places, typename IsEnd>
std::size_t search(const Places& places, std::size_t hash, IsEnd isEnd)
{
    const std::size_t last = places.size() - 1;
    std::size_t place = hash & last;
    while (!isEnd(places[place]))
        place = (place + 1) & last;
    return place;
}

} // namespace Hashing
