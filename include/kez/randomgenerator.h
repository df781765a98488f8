// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

#include <QByteArray>
#include <QRandomGenerator>
#include <QString>

/// A toolbox of random values: integers in a range, bytes, identifiers and keys.
///
/// It is a QRandomGenerator and is seeded by its constructors: equal seeds give equal values, and
/// the default seed is always the same. For values that nobody must be able to guess, start from
/// the system's generator:
///
///     RandomGenerator random(QRandomGenerator::securelySeeded());
///     const QString password = random.key(16, true);
///
/// *Threads*: one thread at a time.
/// *Owns*: nothing.
/// *Fails*: never.
class KEZ_EXPORT RandomGenerator : public QRandomGenerator {
public:
    using QRandomGenerator::QRandomGenerator;
    RandomGenerator() = default;

    /// Continues with the values that `other` would give next.
    explicit RandomGenerator(const QRandomGenerator& other) : QRandomGenerator(other) {}

    using QRandomGenerator::bounded;
    using QRandomGenerator::fillRange;

    /// A value from `low` to below `high`, by one 32-bit draw. `low` must be below `high`; the
    /// range may be as wide as INT_MIN to INT_MAX.
    int bounded(int low, int high);

    /// A value from `low` to below `high`, by one or more 64-bit draws; a range of one value takes
    /// one draw. `low` must be below `high`. If they are equal, the result is `low`; if `low` is
    /// above `high`, it is any value.
    qint64 bounded64(qint64 low, qint64 high);

    /// Replaces every byte, by one 32-bit draw each.
    ///
    /// `unique`: no byte comes twice and no byte is 0, which takes as many more draws as needed.
    /// This is possible for up to 255 bytes: larger arrays are filled as if it were false.
    void fillRange(QByteArray& bytes, bool unique);

    /// Replaces the first `length` bytes of `buffer`, which must have room for them; a length of 0
    /// or less does nothing. `unique` is ignored: bytes may repeat.
    void fillRange(char* buffer, int length, bool unique);

    /// 16 different bytes, none of them 0. No version or variant bits are set.
    QByteArray uuid();

    /// `length` random bytes in hexadecimal. Up to a `length` of 255 they all differ and none is 0.
    ///
    ///     4, true, ':'  ->  3a:9f:01:c4
    ///     4, false      ->  3A9F01C4
    QString key(int length, bool lowerCase, char separator = '\0');
};
