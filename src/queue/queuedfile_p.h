// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/FileEntry.h"
#include "queue/fileidentity_p.h"

#include <QHashFunctions>
#include <QStringView>

#include <cstring>

/// An entry of a queue, with what the queue remembers of its file. Every entry of a queue is one.
struct QueuedFile : FileEntry {
    QueuedFile(const QString& fileName, int consumers, int place, const ListedFileIdentity& file)
        : FileEntry(fileName, consumers),
          name(this->fileName()),
          hash(hashOf(name)),
          position(place),
          identity(file)
    {}

    /// qHash() takes several times as long for names of the usual length. The seed is another one
    /// in every process, and stays even if the application sets that of Qt's hashes.
    static size_t hashOf(QStringView name)
    {
        static const quint64 seed = QHashSeed::globalSeed();
        constexpr quint64 Odd = 0x9e3779b97f4a7c15;
        quint64 hash = seed ^ static_cast<quint64>(name.size());
        while (!name.isEmpty()) {
            const qsizetype count = qMin<qsizetype>(name.size(), 4);
            quint64 letters = 0;
            std::memcpy(&letters, name.utf16(), static_cast<size_t>(count) * sizeof(char16_t));
            hash = (hash ^ letters) * Odd;
            hash ^= hash >> 29;
            name = name.sliced(count);
        }
        return static_cast<size_t>((hash * Odd >> 32) ^ hash);
    }

    const QStringView name; ///< the entry's own text, without a copy
    const size_t hash;      ///< of the name
    int position;           ///< in the queue
    ListedFileIdentity identity;
};

/// The entry, as what it is.
inline QueuedFile* queuedFile(FileEntry* entry)
{
    return static_cast<QueuedFile*>(entry);
}
