// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "directories_p.h"
#include "failure_p.h"

#include <QFileInfo>
#include <QLibrary>

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
