// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QtGlobal>

/// The number of 32-bit words that are drawn for an identifier of `size` bytes: a word more than
/// the whole words of the size where these are no multiple of 4, and always enough to cover it.
constexpr qsizetype uidWords(unsigned char size)
{
    const int wholeWords = size / 4;
    return wholeWords % 4 != 0 || size % 4 != 0 ? wholeWords + 1 : wholeWords;
}
