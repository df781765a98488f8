// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service_global.h"

#include <kez/loggerlevel.h>

#include <QString>

/// Formatters for a logger whose messages come from anywhere: whatever a message holds, it stays on
/// one line, and the line says what was logged.
///
/// A logger takes its formatter when it is built: give one of these to buildLogger(), to Logger's
/// constructor, or to Log::initInstance().
///
/// *Threads*: any thread.
/// *Owns*: nothing.
/// *Fails*: throws std::bad_alloc only.
namespace KezService {

/// One JSON object (RFC 8259), its members in this order:
///
///     {"time":"2026-11-21T18:03:04.123Z","level":"warning","message":"...","thread":"worker"}
///
/// - `time`: UTC, with milliseconds.
/// - `level`: debug, info, warning, error or fatal.
/// - `message`: the text as it was logged. Half of a surrogate pair becomes U+FFFD.
/// - `thread`: the name that the system shows for the thread (QThread gives it the first 15 bytes
///   of its object name), or the system's number of the thread if it has no other name than the
///   program's. A new name shows within a second.
/// - `category`: only in lines that MessageBridge writes; it is then not in `message`.
///
/// Control characters are escaped, also those that JSON allows (DEL, C1, U+2028, U+2029).
///
/// The tee's marker and that of a line that the file did not take would stand behind the object:
/// disable the tee of such a logger, as buildLogger() does.
KEZ_SERVICE_EXPORT void jsonLine(LoggerLevel::LogLevel level, const QString& msg, QString& out);

/// The default line (Logger::formatter) with the message's control characters escaped, so that a
/// message with line feeds forges no line and a terminal obeys nothing in it.
///
/// `\n`, `\r`, `\t`; `\x1b` for the other control characters (C0, DEL, C1); `\u2028`, `\u2029`. A
/// backslash is doubled, so that a line feed and a backslash with an "n" read differently.
KEZ_SERVICE_EXPORT void escapedLine(LoggerLevel::LogLevel level, const QString& msg, QString& out);

} // namespace KezService
