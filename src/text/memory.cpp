// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/memory.h"

#include <algorithm>
#include <cstring>

qint64 Memory::indexOf(const unsigned char* haystack, qint64 haystackLength,
                       const unsigned char* needle, qint64 needleLength, qint64 from)
{
    const qint64 length = std::max<qint64>(needleLength, 1);
    const qint64 start = static_cast<quint32>(from);
    if (haystackLength < length || haystackLength - length < start)
        return -1;
    const void* const found = memmem(haystack + start, static_cast<size_t>(haystackLength - start),
                                     needle, static_cast<size_t>(length));
    return found ? static_cast<const unsigned char*>(found) - haystack : -1;
}
