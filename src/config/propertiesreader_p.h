// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "frame/failure_p.h"
#include "frame/keyvalue_p.h"
#include "frame/lines_p.h"

#include <QFile>
#include <QFileInfo>
#include <QString>

/// Reads a properties file and hands each key with its value to `store`. Its callers differ in what
/// they do with a key that comes twice, and in the signature that their failures name.
template <typename Store>
void readPropertiesFile(const QString& path, qint64 maxLineLength, const char* signature,
                        Store store)
{
    QFile file(path);
    if (!QFile::exists(path))
        Failure::raise(signature, Failure::libraryMessage("FileDoesntExist", path));
    if (!QFileInfo(path).isReadable())
        Failure::raise(signature, Failure::libraryMessage("FileNotReadable", path));
    // Not FileNotReadable: kept for compatibility.
    if (!file.open(QIODevice::ReadOnly))
        Failure::raise(signature, Failure::libraryMessage("FileNotWritable", path));

    forEachLine(file, maxLineLength, [&store](QStringView line) {
        line = line.trimmed();
        if (line.startsWith(QLatin1Char('#')))
            return;
        if (const auto pair = splitAtFirstEquals(line))
            store(pair->key, pair->value);
    });
}
