// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/service/logringcheck.h"

#include <kez/loggerlevel.h>

#include <memory>

class Logger;
class Properties;

/// The loggers of the kit, from the "log.*" keys of a configuration.
///
/// The ring of files is held before anything of it is read or changed: by a lock on ".app.lock"
/// beside app-0.log, until the process ends. Then it is checked, then opened.
///
/// *Threads*: any thread; one at a time per ring.
/// *Owns*: the locks are the process's.
/// *Fails*: throws Exception: if another process holds the ring; as Config::buildFileSystemLogger()
/// and checkLogRing() do. A fault in the keys is found before the lock is taken.
namespace KezService {

struct RingLogger {
    std::shared_ptr<Logger> logger;
    RingReport report; ///< for the new log; also why the ring could not be held
};

/// With the core's formatter, and with the tee if the keys ask for it.
RingLogger buildRingLogger(const Properties& properties);

/// With that formatter, and without the tee. The report says so if the keys ask for it.
RingLogger buildRingLogger(const Properties& properties, LogFormatter formatter);

} // namespace KezService
