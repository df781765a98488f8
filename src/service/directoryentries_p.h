// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>

#include <cerrno>
#include <memory>

#include <dirent.h>

namespace KezService {

/// Calls `use` with each entry of a directory, except "." and "..". Returns the system's error
/// number, or 0; also an error in the middle.
template <typename Use>
int forEachEntry(const QByteArray& path, Use use)
{
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(path.constData()), &::closedir);
    if (!directory)
        return errno;
    while (true) {
        errno = 0;
        const dirent* const entry = ::readdir(directory.get());
        if (!entry)
            return errno;
        if (qstrcmp(entry->d_name, ".") != 0 && qstrcmp(entry->d_name, "..") != 0)
            use(*entry);
    }
}

} // namespace KezService
