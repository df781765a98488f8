// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service_global.h"

class Config;

namespace KezService {

/// Opens the log that a configuration describes, as a service does at its start: checks the ring of
/// files, builds the logger and attaches it to `config`, makes it the process's log, writes the
/// banner, and then what the check has repaired.
///
/// The banner's title is that of "log.banner.title"; without it, the application's name and the
/// version. If something has logged before, and so made a log without a file, that log is replaced;
/// loggers that were registered there by name are not in the new one.
///
/// A configuration that has a logger keeps it, and its ring is not checked.
///
/// *Threads*: one thread, at start-up.
/// *Owns*: nothing; the log serves until the process ends, and `config` shares its logger.
/// *Fails*: throws Exception as Config::buildFileSystemLogger() and checkLogRing() do.
KEZ_SERVICE_EXPORT void openLog(Config& config);

} // namespace KezService
