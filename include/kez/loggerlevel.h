// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

#include <QDebug> // for the meta-type to know how to print a level
#include <QMetaType>
#include <QObject>
#include <QString>

class QDataStream;

/// Carries the enumeration of log levels.
///
/// *Threads*: any thread. *Owns*: nothing. *Fails*: never.
class KEZ_EXPORT LoggerLevel {
    Q_GADGET

public:
    /// A line is written if its level is greater than or equal to the logger's filter.
    enum LogLevel : int {
        debug = 0,
        info = 1,
        warning = 2,
        error = 3,
        fatal = 4,
    };
    Q_ENUM(LogLevel)
};

/// The level as a signed 32-bit integer; reading does not check the range.
KEZ_EXPORT QDataStream& operator<<(QDataStream& stream, LoggerLevel::LogLevel level);
KEZ_EXPORT QDataStream& operator>>(QDataStream& stream, LoggerLevel::LogLevel& level);

/// Writes one whole log line, without a line end, into `out` and drops its earlier content.
///
/// It is usually called with the logger's lock held, so it should not wait for a thread that may
/// log. A line that did not get the lock is formatted without it: the function must be safe in
/// several threads at once.
using LogFormatter = void (*)(LoggerLevel::LogLevel level, const QString& msg, QString& out);
