// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/properties.h"

#include <QString>

#include <type_traits>

/// The number under `key`, in base 10, or `fallback` if the key is absent. Calls
/// `fail(key, value)`, which must throw, for a value that is not such a number.
template <typename Number, typename Fail>
Number numberOr(const Properties& properties, const QString& key, Number fallback, Fail fail)
{
    if (!properties.contains(key))
        return fallback;
    const QString value = properties.value(key);
    bool isNumber = false;
    Number number = 0;
    if constexpr (std::is_same_v<Number, quint64>)
        number = value.toULongLong(&isNumber, 10);
    else
        number = value.toUInt(&isNumber, 10);
    if (!isNumber)
        fail(key, value);
    return number;
}
