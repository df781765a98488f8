// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

#include <QByteArray>
#include <QRandomGenerator>
#include <QString>

/// A toolbox of random values: integers in a range, bytes, identifiers and keys.
///
/// It is a QRandomGenerator, seeded as its constructors say: equal seeds give equal values, and the
/// default seed is always the same. What must not be guessed starts from the system's generator:
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

    /// Goes on as `other` would.
    explicit RandomGenerator(const QRandomGenerator& other) : QRandomGenerator(other) {}

    using QRandomGenerator::bounded;
    using QRandomGenerator::fillRange;

    /// A value from `low` to below `high`, by one 32-bit draw. `low` must be below `high`; the
    /// range may be as wide as INT_MIN to INT_MAX.
    int bounded(int low, int high);

    /// A value from `low` to below `high`, by one 64-bit draw or more; a range of one value takes
    /// one draw too. `low` must be below `high`: equal to it, it is what comes out;
    /// above it, any value.
    qint64 bounded64(qint64 low, qint64 high);

    /// Replaces every byte, by one 32-bit draw each.
    ///
    /// `unique`: no byte comes twice and none is 0, with as many more draws as that takes. Only up
    /// to 255 bytes can differ so: larger arrays are filled as if it were false.
    void fillRange(QByteArray& bytes, bool unique);

    /// Replaces the first `length` bytes of `buffer`, which must hold as many; 0 or less does
    /// nothing. Bytes may repeat, whatever `unique` is.
    void fillRange(char* buffer, int length, bool unique);

    /// 16 different bytes, none of them 0. No version or variant bits are set.
    QByteArray uuid();

    /// `length` random bytes, all different and none 0 up to a `length` of 255, in hexadecimal.
    ///
    ///     4, true, ':'  ->  3a:9f:01:c4
    ///     4, false      ->  3A9F01C4
    QString key(int length, bool lowerCase, char separator = '\0');
};
