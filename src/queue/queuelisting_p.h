// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "queue/fileidentity_p.h"

#include <QByteArray>
#include <QString>
#include <QStringView>

#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <dirent.h>

/// A file that a queue's directory shows.
struct ListedFile {
    enum class Kind {
        Regular,
        Refused, ///< a link to a fifo, a socket or a device
        Unknown, ///< the system cannot tell at the moment
    };

    qsizetype nameStart = 0;
    qsizetype nameSize = 0;
    quint64 inode = 0; ///< of a link: its own
    Kind kind = Kind::Regular;
};

/// What a directory shows. Most files of a re-scan are known: their names only serve to find them,
/// and get no text of their own.
struct QueueListing {
    QStringView nameOf(const ListedFile& file) const
    {
        return QStringView(names).sliced(file.nameStart, file.nameSize);
    }

    /// In the order of their names, each once.
    std::vector<ListedFile> sorted(const std::vector<ListedFile>& unsorted) const;

    /// In no order. A name may be read twice if it is renamed while the directory is read.
    std::vector<ListedFile> files;
    QString names; ///< all of them, one after the other
    DirectoryState directory;
};

/// Device and inode of a directory.
using DirectoryIdentity = std::pair<quint64, quint64>;

/// Nothing if there is no such directory.
std::optional<DirectoryIdentity> directoryIdentity(const QString& path);

/// A queue's directory, open for one re-scan.
class OpenQueueDirectory {
public:
    /// A directory that is absent or may not be read is empty. Nothing if it may be there, but
    /// cannot be opened at the moment (no descriptor is free, for example).
    static std::optional<OpenQueueDirectory> open(const QString& path);

    std::optional<DirectoryIdentity> identity() const;

    /// The readable and writable files, as QDir lists them with Files | Readable | Writable: links
    /// to files are listed; hidden names, names that are not UTF-8, directories, and fifos and the
    /// like are not, except behind a link.
    ///
    /// QDir takes three system calls and a file information object for each file, again with every
    /// re-scan; this takes one call. Nothing if the reading fails. To be called once.
    std::optional<QueueListing> list() const;

    /// What to remember of a file that `listing` shows.
    ListedFileIdentity identify(const ListedFile& file, const QueueListing& listing) const;

    /// Deletes a file of any kind.
    void remove(const QString& name) const;

    /// Deletes the file of that name if it is the file that `known` describes. Another file stays
    /// and is returned.
    std::optional<FileIdentity> removeKnown(const QString& name,
                                            const ListedFileIdentity& known) const;

private:
    explicit OpenQueueDirectory(const QString& path);

    int descriptor() const;
    std::optional<FileIdentity> identityOf(const QByteArray& path) const;
    QByteArray systemName(QStringView name) const;

    QByteArray _path;
    std::unique_ptr<DIR, int (*)(DIR*)> _stream;
    std::optional<DirectoryIdentity> _identity;
};
