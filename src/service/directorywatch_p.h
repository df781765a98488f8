// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/descriptor_p.h"

#include <QByteArray>

#include <functional>

namespace KezService {

/// Tells of names in a directory that somebody has made, closed after writing, renamed or changed
/// in their rights; not of each write, of which there are many.
///
/// *Threads*: one thread at a time.
/// *Owns*: its descriptor.
/// *Fails*: never; without a watch nothing is told.
class DirectoryWatch {
public:
    DirectoryWatch();

    /// Is readable when there is something to read; -1 if the system refuses one.
    int descriptor() const { return _events.get(); }
    bool isWatching() const { return _watch >= 0; }

    /// Watches the directory that has this path now, and no other one. Returns the system's error
    /// number, or 0.
    int set(const QByteArray& path);

    /// Passes on the names of files. True if the directory has to be listed: it is another one, it
    /// has other rights, or events were lost.
    bool read(const std::function<void(const QByteArray&)>& onName);

private:
    Descriptor _events;
    int _watch = -1;
};

} // namespace KezService
