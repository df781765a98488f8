// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "frame/keyvalue_p.h"
#include "frame/lines_p.h"
#include "kez/properties.h"

#include <QIODevice>
#include <QString>

/// Adds the entries of a configuration, whose device is open as a text, with the rules that
/// Config::load() states. A key that `properties` hold already keeps its value.
inline void readConfiguration(QIODevice& device, Properties& properties)
{
    forEachLine(device, 0, [&properties](const QString& line) {
        if (line.startsWith(QLatin1Char('#')))
            return;
        const auto pair = splitAtFirstEquals(line);
        if (!pair)
            return;
        const QString key = pair->key.toString();
        if (!properties.contains(key))
            properties.insert(key, pair->value.toString(), false);
    });
}
