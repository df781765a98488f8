// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "frame/hashing_p.h"
#include "kez/FileEntry.h"
#include "queue/fileidentity_p.h"

#include <QStringView>

/// An entry of a queue, with what the queue remembers of its file. Every entry of a queue is one.
struct QueuedFile : FileEntry {
    QueuedFile(const QString& fileName, int consumers, int place, const ListedFileIdentity& file)
        : FileEntry(fileName, consumers),
          name(fileName),
          hash(Hashing::hashOf(name)),
          position(place),
          identity(file)
    {}

    // As the base class's functions, but inline, for loops over all entries.
    bool isConsumedBy(int consumer) const
    {
        return consumer < _uptakeFlags.size() ? _uptakeFlags[consumer] : isConsumed(consumer);
    }
    const QString& text() const { return _fileName; }

    const QString name; ///< stays if the application assigns another entry
    const size_t hash;  ///< of the name
    int position;       ///< in the queue
    ListedFileIdentity identity;
};

/// The entry, as what it is.
inline QueuedFile* queuedFile(FileEntry* entry)
{
    return static_cast<QueuedFile*>(entry);
}
inline const QueuedFile* queuedFile(const FileEntry* entry)
{
    return static_cast<const QueuedFile*>(entry);
}
