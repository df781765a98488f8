// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/randomgenerator.h"

#include "kez/text.h"

#include <bit>
#include <bitset>

namespace {

constexpr qsizetype MostUniqueBytes = 255;
constexpr qsizetype UuidSize = 16;

} // namespace

// Sums and differences are unsigned: a range wider than half that of the type would overflow.

int RandomGenerator::bounded(int low, int high)
{
    const quint32 span = static_cast<quint32>(high) - static_cast<quint32>(low);
    const quint64 product = quint64{generate()} * span;
    return static_cast<int>(static_cast<quint32>(low) + static_cast<quint32>(product >> 32));
}

qint64 RandomGenerator::bounded64(qint64 low, qint64 high)
{
    const quint64 span = static_cast<quint64>(high) - static_cast<quint64>(low);
    if (span <= 1) {
        generate64();
        return low;
    }
    const quint64 mask = ~quint64{0} >> std::countl_zero(span - 1);
    quint64 value = generate64() & mask;
    while (value >= span)
        value = generate64() & mask;
    return static_cast<qint64>(static_cast<quint64>(low) + value);
}

void RandomGenerator::fillRange(QByteArray& bytes, bool unique)
{
    const bool distinct = unique && bytes.size() <= MostUniqueBytes;
    // 0 counts as taken, as if the array was filled with zeros first.
    std::bitset<256> taken(1);
    for (char& byte : bytes) {
        auto value = static_cast<quint8>(bounded(0, 256));
        while (distinct && taken[value])
            value = static_cast<quint8>(bounded(0, 256));
        taken.set(value);
        byte = static_cast<char>(value);
    }
}

void RandomGenerator::fillRange(char* buffer, int length, [[maybe_unused]] bool unique)
{
    for (int i = 0; i < length; ++i)
        buffer[i] = static_cast<char>(bounded(0, 256));
}

QByteArray RandomGenerator::uuid()
{
    QByteArray bytes(UuidSize, '\0');
    fillRange(bytes, true);
    return bytes;
}

QString RandomGenerator::key(int length, bool lowerCase, char separator)
{
    QByteArray bytes(length, '\0');
    fillRange(bytes, true);
    return Text::toHexa(bytes, lowerCase, separator);
}
