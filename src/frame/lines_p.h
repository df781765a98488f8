// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QIODevice>
#include <QString>
#include <QTextStream>

#include <limits>

/// Hands each line of a UTF-8 text to `take`, without its line end. `maxLength`: the most
/// characters taken as one line, the rest coming as a line of its own; 0 for no limit.
template <typename TakeLine>
void forEachLine(QIODevice& device, qint64 maxLength, TakeLine take)
{
    // The stream cuts the limit down to an int, which would make a small or a negative one of it.
    const bool isLimit = maxLength > 0 && maxLength <= std::numeric_limits<int>::max();
    QTextStream stream(&device);
    QString line;
    while (stream.readLineInto(&line, isLimit ? maxLength : 0))
        take(line);
}
