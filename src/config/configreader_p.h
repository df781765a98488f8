// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "config/entries_p.h"
#include "frame/keyvalue_p.h"
#include "frame/lines_p.h"

#include <QIODevice>

/// Adds the entries of a configuration, whose device is open as a text, with the rules that
/// Config::load() states. A key that is among the entries already keeps its value.
inline void readConfiguration(QIODevice& device, Entries& entries)
{
    forEachLine(device, 0, [&entries](QStringView line) {
        if (line.startsWith(QLatin1Char('#')))
            return;
        if (const auto pair = splitAtFirstEquals(line))
            addEntry(entries, pair->key, pair->value);
    });
}
