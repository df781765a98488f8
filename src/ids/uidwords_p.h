// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QtGlobal>

/// The number of 32-bit words that are drawn for an identifier of `size` bytes: the whole words of
/// the size, and one more if their number is not a multiple of 4 or if they do not cover the size.
constexpr qsizetype uidWords(unsigned char size)
{
    const int wholeWords = size / 4;
    return wholeWords % 4 != 0 || size % 4 != 0 ? wholeWords + 1 : wholeWords;
}
