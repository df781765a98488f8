// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Reads the input as a properties file and checks that what was read survives saving and loading.
// The first byte is the limit of the line length.

#include "fuzz/inputfile.h"

#include <kez/exception.h>
#include <kez/properties.h>

#include <algorithm>

namespace {

/// Null if a key comes twice.
std::shared_ptr<Properties> load(const QString& path, qint64 maxLineLength)
{
    try {
        return Properties::loadProperties(path, maxLineLength);
    } catch (const Exception& e) {
        require(e.detail().startsWith(
                    QStringLiteral("void Properties::insert(const QString&, const QString&) -> ")),
                "only a key that comes twice is a failure");
        return nullptr;
    }
}

/// A limit can separate the halves of a surrogate pair, which are then not saved as they are. A
/// byte order mark in front is taken for the file's own.
bool survivesSaving(const Dictionnary& map)
{
    if (!map.isEmpty() && map.firstKey().startsWith(QChar(QChar::ByteOrderMark)))
        return false;
    return std::all_of(map.keyValueBegin(), map.keyValueEnd(), [](const auto& entry) {
        return entry.first.isValidUtf16() && entry.second.isValidUtf16();
    });
}

void checkEntries(const Dictionnary& map, qint64 maxLineLength)
{
    for (auto it = map.begin(); it != map.end(); ++it) {
        const QString& key = it.key();
        const QString& value = it.value();
        require(!key.contains(QLatin1Char('=')), "the first = separates");
        require(!key.startsWith(QLatin1Char('#')), "a comment is not an entry");
        require(!key.contains(QLatin1Char('\n')) && !value.contains(QLatin1Char('\n')),
                "an entry is one line");
        require(key.isEmpty() || !key.front().isSpace(), "a line is trimmed at its beginning");
        require(value.isEmpty() || !value.back().isSpace(), "a line is trimmed at its end");
        require(maxLineLength == 0 || key.size() + 1 + value.size() <= maxLineLength,
                "a line is cut at the limit");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    prepare();
    if (size == 0)
        return 0;

    const qint64 maxLineLength = data[0];
    const auto properties =
        load(InputDirectory::write(QStringLiteral("source"), inputBytes(data + 1, size - 1)),
             maxLineLength);
    if (!properties)
        return 0;
    const Dictionnary& map = *properties->toDictionnary();
    checkEntries(map, maxLineLength);

    const QString copy = InputDirectory::path(QStringLiteral("copy"));
    properties->saveProperties(copy, true);
    if (survivesSaving(map)) {
        const auto again = load(copy, 0);
        require(again && *again->toDictionnary() == map, "what is saved is what is loaded");
    }
    return 0;
}
