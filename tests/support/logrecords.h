// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "support/files.h"

#include <QList>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

/// One line of a log file in the default format.
struct LogRecord {
    QString tag;
    QString message;

    friend bool operator==(const LogRecord& a, const LogRecord& b)
    {
        return a.tag == b.tag && a.message == b.message;
    }
};

/// The lines of a log file. A line in another format is returned whole, without a tag.
inline QList<LogRecord> logRecords(const QString& path)
{
    static const QRegularExpression format(
        R"(^\d\d/\d\d/\d{4} \d\d:\d\d:\d\d,\d{3} <(DEBUG|INFOR|WARNG|ERROR|FATAL)> (.*)$)");
    QStringList lines = QString::fromUtf8(readFile(path)).split('\n');
    if (lines.last().isEmpty())
        lines.removeLast();
    QList<LogRecord> records;
    for (const QString& line : lines) {
        const QRegularExpressionMatch match = format.match(line);
        records.append(match.hasMatch() ? LogRecord{match.captured(1), match.captured(2)}
                                        : LogRecord{QString(), line});
    }
    return records;
}

/// The messages of a log file whose lines should all have this tag. A line with another tag reads
/// as
/// "<TAG> message".
inline QStringList logMessages(const QString& path, const QString& tag)
{
    QStringList messages;
    for (const LogRecord& record : logRecords(path)) {
        messages.append(record.tag == tag ? record.message
                                          : '<' + record.tag + "> " + record.message);
    }
    return messages;
}
