// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service_global.h"

#include <kez/loggerlevel.h>

#include <QString>

#include <optional>

/// The names of log levels, for configuration files, command lines and displays.
///
/// *Threads*: any thread.
/// *Owns*: nothing.
/// *Fails*: never.
namespace KezService {

/// "debug", "info", "warning", "error" or "fatal": the names that "log.filter" takes. Empty for a
/// value outside of the enumeration.
KEZ_SERVICE_EXPORT QString levelName(LoggerLevel::LogLevel level);

/// The level that is called so; nothing for any other text. Blanks at both ends, and upper or lower
/// case, do not count. These are all names that a reader of the core knows:
///
/// | level   | names                  |
/// |---------|------------------------|
/// | debug   | debug, dbg, all        |
/// | info    | info, inf, information |
/// | warning | warning, warn, wrn     |
/// | error   | error, err             |
/// | fatal   | fatal, ftl             |
///
/// Each reader of the core knows a part of them, so write a level with levelName().
KEZ_SERVICE_EXPORT std::optional<LoggerLevel::LogLevel> levelFromName(const QString& name);

} // namespace KezService
