// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service_global.h"

#include <kez/loggerlevel.h>

class Config;

namespace KezService {

/// Opens the log that a configuration describes, as a service does at its start: takes the ring of
/// files for this process and checks it, builds the logger and attaches it to `config`, makes it
/// the process's log, writes the banner, and then what the check has repaired.
///
/// The banner's title is that of "log.banner.title"; without it, the application's name and the
/// version. If something has logged before, and so made a log without a file, that log is replaced;
/// loggers that were registered there by name are not in the new one.
///
/// A ring is for one process. The first one holds a lock on a hidden file beside the ring,
/// ".app.lock" for app-0.log, until it ends; it may open the ring again. Another process is
/// refused, and changes nothing of the ring. Programs that the holder starts do not keep the lock;
/// a forked process that starts no program does, as it keeps the log file open. If there can be no
/// lock (a file system without locks, a hidden file of another user), the log is opened all the
/// same: a second process is not noticed, and a warning in the log says so.
///
/// `formatter` renders the lines, as that of buildLogger() does, and without the tee: pass
/// escapedLine() or jsonLine() if messages come from anywhere. Null means the default one, whose
/// log can be forged by a message with a line feed; the tee is as configured then.
///
/// A configuration that has a logger keeps it, with its formatter, and its ring is neither locked
/// nor checked.
///
/// *Threads*: one thread, at start-up.
/// *Owns*: nothing; the log serves until the process ends, and `config` shares its logger.
/// *Fails*: throws Exception if another process holds the ring, with its id; as
/// Config::buildFileSystemLogger() and checkLogRing() do.
KEZ_SERVICE_EXPORT void openLog(Config& config, LogFormatter formatter = nullptr);

} // namespace KezService
