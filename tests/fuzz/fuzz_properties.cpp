// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Reads the input as a properties file, the first byte being the limit of the line length, and
// checks that what was read survives saving and loading.

#include <kez/exception.h>
#include <kez/initlib.h>
#include <kez/properties.h>

#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

void require(bool condition)
{
    if (!condition)
        std::abort();
}

void writeFile(const QString& path, const uint8_t* data, size_t size)
{
    QFile file(path);
    require(file.open(QIODevice::WriteOnly));
    const auto length = static_cast<qint64>(size);
    require(file.write(reinterpret_cast<const char*>(data), length) == length);
}

/// Null when a key comes twice.
std::shared_ptr<Properties> load(const QString& path, qint64 maxLineLength)
{
    try {
        return Properties::loadProperties(path, maxLineLength);
    } catch (const Exception& e) {
        require(e.detail().startsWith(
            QStringLiteral("void Properties::insert(const QString&, const QString&) -> ")));
        return nullptr;
    }
}

/// Halves of a character pair, which a limit can separate, are not saved as they are, and a byte
/// order mark in front is taken for the file's own.
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
        require(!it.key().contains(QLatin1Char('=')));
        require(!it.key().startsWith(QLatin1Char('#')));
        require(!it.key().contains(QLatin1Char('\n')) && !it.value().contains(QLatin1Char('\n')));
        require(it.key().isEmpty() || !it.key().front().isSpace());
        require(it.value().isEmpty() || !it.value().back().isSpace());
        const qint64 length = it.key().size() + 1 + it.value().size();
        require(maxLineLength == 0 || length <= maxLineLength);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const QTemporaryDir directory;
    static const bool isSetUp = (kezEnsureInit(), directory.isValid());
    require(isSetUp);
    if (size == 0)
        return 0;

    const qint64 maxLineLength = data[0];
    const QString source = directory.filePath(QStringLiteral("source"));
    writeFile(source, data + 1, size - 1);
    const auto properties = load(source, maxLineLength);
    if (!properties)
        return 0;
    const Dictionnary& map = *properties->toDictionnary();
    checkEntries(map, maxLineLength);

    const QString copy = directory.filePath(QStringLiteral("copy"));
    properties->saveProperties(copy, true);
    if (survivesSaving(map)) {
        const auto again = load(copy, 0);
        require(again && *again->toDictionnary() == map);
    }
    return 0;
}
