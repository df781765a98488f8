// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service_global.h"

#include <QMap>
#include <QString>

/// Properties files that are replaced in one step.
///
/// *Threads*: any thread. Threads and processes that save the same file take turns; each waits at
/// most 10 s for the others.
/// *Owns*: nothing.
/// *Fails*: throws Exception; the file that was there is then whole and unchanged, except as said.
namespace KezService {

/// Saves `map` as Properties::saveProperties() does, with the same bytes, in place of the file at
/// `path`, if there is one. At every moment, also after a power failure, the name leads to the
/// whole old file or to the whole new one.
///
/// The new file is written beside the old one under a hidden name (".app.properties.new"), synced,
/// and renamed; then the directory is synced. A process that is killed meanwhile can leave the
/// hidden file behind, never more than one: the next save removes it. If no lock tells that its
/// process is dead (on a file system without locks, or if another user's file cannot be opened),
/// that takes a minute from its last change; until then a save fails as if the file was busy.
///
/// - A link stays: the file that it leads to is replaced, or made.
/// - The new file has the permission bits of the old one, and the owner, group and access list that
///   a new file gets. Other hard links to the old file keep the old content.
/// - Comments of the old file are gone, since `map` holds none.
///
/// Throws Exception:
/// - for an entry that does not survive loading, before anything is written: a key that is empty,
///   begins with "#" or a byte order mark, or holds "="; a key or a value with blanks at either
///   end, a line break, or half of a surrogate pair;
/// - if `path` leads to something that is not a regular file;
/// - if another process keeps saving the same file for 10 s;
/// - for a system error (full disk, missing rights). If only the last step fails, to sync the
///   directory, the text says that the new file is in place.
KEZ_SERVICE_EXPORT void saveAtomically(const QString& path, const QMap<QString, QString>& map);

} // namespace KezService
