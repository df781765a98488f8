// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArrayView>
#include <QChar>

#include <algorithm>
#include <array>

/// The two hexadecimal digits of every byte. Copying a pair is one store.
using HexaPairs = std::array<std::array<QChar, 2>, 256>;

constexpr HexaPairs hexaPairs(const char (&digits)[17])
{
    HexaPairs pairs{};
    for (std::size_t byte = 0; byte < pairs.size(); ++byte)
        pairs[byte] = {QLatin1Char(digits[byte / 16]), QLatin1Char(digits[byte % 16])};
    return pairs;
}

inline constexpr HexaPairs LowerCaseHexa = hexaPairs("0123456789abcdef");
inline constexpr HexaPairs UpperCaseHexa = hexaPairs("0123456789ABCDEF");

/// Returns the place after the digits.
inline QChar* writeHexa(const HexaPairs& pairs, char byte, QChar* out)
{
    const auto& pair = pairs[static_cast<unsigned char>(byte)];
    return std::copy(pair.begin(), pair.end(), out);
}

inline QChar* writeHexa(const HexaPairs& pairs, QByteArrayView bytes, QChar* out)
{
    for (const char byte : bytes)
        out = writeHexa(pairs, byte, out);
    return out;
}
