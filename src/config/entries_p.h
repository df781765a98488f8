// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QString>
#include <QStringView>

#include <map>
#include <utility>

/// What a reader collects; a Dictionnary takes it over without a copy. QMap itself cannot add an
/// entry that may be there already with a single look-up.
using Entries = std::map<QString, QString>;

/// Adds the entry unless the key is there. Returns the key's entry, and whether it is new. The hint
/// spares the look-up if keys come in order, as they do from a file that was saved.
inline std::pair<Entries::iterator, bool> addEntry(Entries& entries, QStringView key,
                                                   QStringView value)
{
    const std::size_t before = entries.size();
    const auto entry = entries.emplace_hint(entries.cend(), key.toString(), value.toString());
    return {entry, entries.size() > before};
}
