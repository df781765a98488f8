// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QDir>
#include <QFileInfo>
#include <QString>

/// Whether the path, as Qt reads it, leads to a readable and writable directory.
inline bool isUsableDirectory(const QString& path)
{
    const QFileInfo directory(path);
    return directory.isDir() && directory.isReadable() && directory.isWritable();
}

/// `path` with its search prefix, if it has one, resolved, and made absolute. Nothing is cleaned: a
/// ".." after a link means the directory above the link's target. Empty if the path is relative and
/// the working directory was removed.
inline QString absolutePath(const QString& path)
{
    const QFileInfo info(path);
    if (path.isEmpty() || !info.isRelative())
        return info.filePath();
    const QString current = QDir::currentPath();
    return current.isEmpty() ? QString() : current + QLatin1Char('/') + info.filePath();
}
