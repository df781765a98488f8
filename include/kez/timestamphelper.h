// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

#include <QDateTime>
#include <QLocale>
#include <QString>

/// Conversions of POSIX times and of a locale's time formats.
///
/// *Threads*: any thread.
/// *Owns*: nothing.
/// *Fails*: never; the QDateTime is invalid if there is no such date.
class KEZ_EXPORT TimestampHelper {
public:
    TimestampHelper() = delete;

    /// The local date and time of `seconds` since the epoch, ONE MONTH EARLY: the month is counted
    /// from 0, which is kept for compatibility. The result is invalid for a date in January, for a
    /// day that the month before does not have (31 March), and for a time that falls, one month
    /// early, into the hour that daylight saving skips.
    static QDateTime ctimeToDateTime(quint64 seconds);

    /// A time format without its time zone ("t" outside quotes), its white space reduced.
    ///
    ///     HH:mm:ss t -> HH:mm:ss    h 'at' t -> h 'at'
    static QString timeWithoutDetail(const QString& timeFormat);

    /// The locale's short date and its long time without the time zone.
    static QString timestampShortLong(const QDateTime& dateTime, const QLocale& locale = QLocale());
};
