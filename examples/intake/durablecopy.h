// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

namespace intake {

/// Keeps a copy of the file `source` in `directory`, under the file's own name, and returns once it
/// would survive a power failure: written under a hidden name, synced, renamed, directory synced.
///
/// Nothing that is there is overwritten. A file of that name with the same content is the copy of
/// an earlier run, and enough; next to one with another content the copy is named `<name>.1` and so
/// on.
///
/// *Threads*: one thread at a time for each directory.
/// *Fails*: throws Exception, and the directory holds no new visible file.
void keepCopy(const QString& source, const QString& directory);

/// Makes names that were created in `directory` durable. Throws Exception.
void syncDirectory(const QString& directory);

} // namespace intake
