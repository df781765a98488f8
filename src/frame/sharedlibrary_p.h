// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "failure_p.h"

#include <QDir>
#include <QFileInfo>
#include <QLibrary>

/// `path` with its search prefix, if it has one, resolved, and made absolute. Nothing is cleaned: a
/// ".." after a link means the directory above the link's target.
inline QString absolutePath(const QString& path)
{
    const QFileInfo info(path);
    if (path.isEmpty() || !info.isRelative())
        return info.filePath();
    const QString current = QDir::currentPath(); // empty if it was removed
    return current.isEmpty() ? QString() : current + QLatin1Char('/') + info.filePath();
}

/// Loads the shared library `path`, which stays loaded, or throws with the caller's signature.
/// `message(key, argument)` is how the caller looks up the text of a key.
template <typename Message>
void loadSharedLibrary(const QString& path, const char* signature, Message message)
{
    // By its absolute path: the loader searches the system for a name without "/", and tries other
    // prefixes and suffixes first for a relative path.
    const QFileInfo info(absolutePath(path));
    // Opening a fifo would wait until something writes to it.
    if ((!info.isFile() && !info.isDir()) || !info.isReadable() || !info.isNativePath())
        Failure::raise(signature, message("FileNotReadable", path));
    QLibrary library(info.filePath());
    if (!library.isLoaded() && !library.load())
        Failure::raise(signature, message("LibLoadingFailure",
                                          path + QStringLiteral(" - ") + library.errorString()));
}
