// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QStringView>

/// Puts each character of `text` at `at` as one byte. False, and the bytes are not the text, if not
/// all of it is ASCII. Nearly every line of a log or a properties file is, and this loop, of which
/// the compiler makes vectors, is faster than an encoder.
inline bool putAscii(char* at, QStringView text)
{
    char16_t bits = 0;
    for (const QChar character : text) {
        bits |= character.unicode();
        *at++ = static_cast<char>(character.unicode());
    }
    return bits < 0x80;
}
