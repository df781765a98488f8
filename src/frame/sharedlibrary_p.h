// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "failure_p.h"

#include <QFileInfo>
#include <QLibrary>

/// Loads the shared library `path` for good, or throws with the caller's signature.
/// `message(key, argument)` is the caller's way to look up the text of a key.
template <typename Message>
void loadSharedLibrary(const QString& path, const char* signature, Message message)
{
    const QFileInfo info(path);
    // Opening a fifo would wait for somebody to write to it.
    if ((!info.isFile() && !info.isDir()) || !info.isReadable())
        Failure::raise(signature, message("FileNotReadable", path));
    QLibrary library(path);
    if (!library.isLoaded() && !library.load())
        Failure::raise(signature, message("LibLoadingFailure",
                                          path + QStringLiteral(" - ") + library.errorString()));
}
