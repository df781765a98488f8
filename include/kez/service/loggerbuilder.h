// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service_global.h"

#include <kez/logger.h>

#include <memory>

class Properties;

/// A logger that has a formatter, from a configuration.
///
/// *Threads*: one thread at a time per ring of files.
/// *Owns*: nothing; the logger is the caller's.
/// *Fails*: throws Exception, as said at the function.
namespace KezService {

/// A logger as Config::buildFileSystemLogger() makes it of the "log.*" keys, with the same
/// defaults, but with a formatter such as jsonLine() (null means the default one) and without the
/// tee: its marker would stand behind the formatted line. "log.tee=1" is answered by a warning in
/// the new log.
///
/// The ring of files is held for this process and then repaired, as openLog() does. The new log
/// says what was done. No other logger of this process may use the ring at that time.
///
/// Throws Exception if another process holds the ring; as Config::buildFileSystemLogger() and
/// checkLogRing() do.
KEZ_SERVICE_EXPORT std::shared_ptr<Logger> buildLogger(const Properties& properties,
                                                       LogFormatter formatter);

} // namespace KezService
