// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QIODevice>
#include <QString>
#include <QTextStream>

/// Hands each line of a UTF-8 text to `take`, without its line end. `maxLength`: the most
/// characters taken as one line, the rest coming as a line of its own; 0 for no limit.
template <typename TakeLine>
void forEachLine(QIODevice& device, qint64 maxLength, TakeLine take)
{
    QTextStream stream(&device);
    QString line;
    while (stream.readLineInto(&line, maxLength))
        take(line);
}
