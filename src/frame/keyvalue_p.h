// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QStringView>

#include <optional>

/// The two sides of a `key=value` line.
struct KeyValue {
    QStringView key;
    QStringView value;
};

/// Splits a line at its first "=". Nothing if there is none.
inline std::optional<KeyValue> splitAtFirstEquals(QStringView line)
{
    const qsizetype equals = line.indexOf(QLatin1Char('='));
    if (equals < 0)
        return std::nullopt;
    return KeyValue{line.first(equals), line.sliced(equals + 1)};
}
