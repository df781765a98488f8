// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/descriptor_p.h"
#include "service/filestate_p.h"

#include <QByteArray>
#include <QThread>

namespace KezService {

/// Whether the thread is asked to end. Long copies stop then.
inline bool isInterrupted()
{
    return QThread::currentThread()->isInterruptionRequested();
}

/// A regular file that is open for reading. Anything else is refused without waiting for it: a fifo
/// without a writer would block, a device might do something.
///
/// *Threads*: one thread at a time per object.
/// *Owns*: its descriptor.
/// *Fails*: throws Refusal.
class SourceFile {
public:
    enum class Link { Followed, Refused };

    SourceFile(const QByteArray& path, Link link);

    const QByteArray& path() const { return _path; }
    int descriptor() const { return _file.get(); }

    /// As it was opened.
    const struct stat& status() const { return _status; }
    FileState state() const { return FileState(_status); }

    /// Writes the content into a new file at `path`, with the permissions of this one; its owner
    /// may always read and write it. Throws Refusal also if the source changes meanwhile, or if the
    /// thread is asked to end.
    void copyTo(int file, const QByteArray& path) const;

    /// Whether the path still leads to the file, and the file has not changed.
    bool isStillThere() const;

private:
    QByteArray _path;
    Descriptor _file;
    struct stat _status {};
};

} // namespace KezService
