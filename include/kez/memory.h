// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

#include <QtCore/qglobal.h>

/// Searching bytes.
///
/// *Threads*: any thread.
/// *Owns*: nothing.
/// *Fails*: never.
class KEZ_EXPORT Memory {
public:
    Memory() = delete;

    /// The first position of the needle in the haystack, or -1. Lengths are in bytes; a haystack of
    /// negative length is empty. The search begins at the low 32 bits of `from`. No byte beyond
    /// either buffer is read. A needle of length 0 or less counts as one of length 1, so its buffer
    /// must hold a byte.
    static qint64 indexOf(const unsigned char* haystack, qint64 haystackLength,
                          const unsigned char* needle, qint64 needleLength, qint64 from = 0);
};
