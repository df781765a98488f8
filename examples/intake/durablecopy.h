// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

namespace intake {

/// Keeps a copy of the file `source` in `directory`, under the file's own name. When it returns,
/// the copy survives a power failure: it is written under a hidden name, synced and renamed, and
/// the directory is synced.
///
/// No file is overwritten. A file of that name with the same content is the copy of an earlier run,
/// and no other is made. If its content differs, the copy is named `<name>.1`, and so on.
///
/// *Threads*: one thread at a time for each directory.
/// *Fails*: throws Exception; the directory then holds no new visible file.
void keepCopy(const QString& source, const QString& directory);

/// Makes the new names in `directory` durable. Throws Exception.
void syncDirectory(const QString& directory);

} // namespace intake
