// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/timestamphelper.h"

#include <ctime>

QDateTime TimestampHelper::ctimeToDateTime(quint64 seconds)
{
    const auto time = static_cast<std::time_t>(seconds);
    std::tm local{};
    tzset(); // localtime_r() does not notice a change of the time zone by itself
    if (!localtime_r(&time, &local))
        return QDateTime();
    const QString text =
        QStringLiteral("%1/%2/%3 - %4:%5:%6")
            .arg(QString::number(local.tm_mday),
                 QString::number(local.tm_mon), // from 0: see the declaration
                 QString::number(qint64{1900} + local.tm_year), QString::number(local.tm_hour),
                 QString::number(local.tm_min), QString::number(local.tm_sec));
    return QDateTime::fromString(text, QStringLiteral("d/M/yyyy - h:m:s"));
}

QString TimestampHelper::timeWithoutDetail(const QString& timeFormat)
{
    QString result;
    bool isQuoted = false;
    for (const QChar c : timeFormat) {
        if (c == QLatin1Char('\''))
            isQuoted = !isQuoted;
        if (isQuoted || c != QLatin1Char('t'))
            result += c;
    }
    return result.simplified();
}

QString TimestampHelper::timestampShortLong(const QDateTime& dateTime, const QLocale& locale)
{
    return locale.toString(dateTime, locale.dateFormat(QLocale::ShortFormat) + QLatin1Char(' ') +
                                         timeWithoutDetail(locale.timeFormat(QLocale::LongFormat)));
}
