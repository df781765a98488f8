// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

/// Writes a file with these bytes; replaces one that is there. False if that fails.
inline bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush();
}

/// A file's bytes; empty if it cannot be read.
inline QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Lets every user enter a directory or read a file, for children that give up root's rights.
inline bool openToEverybody(const QString& path)
{
    return QFile::setPermissions(path, QFile::permissions(path) | QFile::ReadGroup |
                                           QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther);
}
