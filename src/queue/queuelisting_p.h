// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QList>
#include <QString>

#include <optional>

/// A file that a queue's directory shows.
struct ListedFile {
    QString name;
    bool isRegular = true; ///< else a link to a fifo, a socket or a device
};

/// Whether the path, as Qt reads it, leads to a readable and writable directory.
bool isUsableDirectory(const QString& path);

/// The readable and writable files of a directory in the order of their names, as QDir lists them
/// with Files | Readable | Writable: links to files, but no hidden names, no names that are not
/// UTF-8, no directories, no fifos and the like, unless behind a link.
///
/// QDir itself takes three system calls and a file information object for each file, again with
/// every re-scan; this takes one call.
///
/// An empty list when there is no such directory; nothing when it may be there, but cannot be
/// listed at the moment, for want of descriptors, say.
std::optional<QList<ListedFile>> listQueueDirectory(const QString& path);
