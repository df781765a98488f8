// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/descriptor_p.h"

#include <QByteArray>
#include <QByteArrayView>

#include <sys/types.h>

/// How the kit writes files that survive a power failure, and names that appear all at once.
///
/// Paths are as the system takes them (QFile::encodeName()). Functions that return an int return
/// the system's error number, or 0; an interrupted call is made again.
namespace KezService {

/// As open(2), and closed on exec. If it is not open, errno says why.
Descriptor openFile(const QByteArray& path, int flags, mode_t mode = 0);

int writeAll(int descriptor, QByteArrayView bytes);

/// Appends what `from` holds from its position on. ECANCELED if `isCancelled`, which is asked again
/// and again, says so.
int copyBytes(int from, int to, bool (*isCancelled)() = nullptr);

/// Waits until the file's data are on the disk.
int syncFile(int descriptor);

/// Waits until the names in the directory are on the disk.
int syncDirectory(const QByteArray& path);

/// Renames, and never replaces: EEXIST if `to` is taken. On a file system that cannot do this in
/// one step, both names lead to the file for a moment, also if `from` cannot be removed: then `to`
/// is removed again. EXDEV between two file systems.
int renameWithoutReplacing(const QByteArray& from, const QByteArray& to);

/// Puts a whole file in the place of `path`, or leaves what is there: written beside it under the
/// name `temporary`, synced, renamed, the directory synced. A new file has the mode `mode`, except
/// what the process's mask takes away; one that is replaced passes on its own mode.
int replaceFile(const QByteArray& path, const QByteArray& temporary, QByteArrayView bytes,
                mode_t mode = 0666);

/// The directory part of a path: "." if it has none.
QByteArray directoryOf(const QByteArray& path);

} // namespace KezService
