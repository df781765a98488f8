// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QIODevice>
#include <QString>
#include <QTextStream>

#include <limits>

/// Hands each line of a UTF-8 text to `take`, without its line end. A read error counts as the end.
///
/// `maxLength`: the most characters taken as one line; the rest is a line of its own. 0 for no
/// limit.
template <typename TakeLine>
void forEachLine(QIODevice& device, qint64 maxLength, TakeLine take)
{
    // The stream narrows the limit to an int, which could turn it into a small or negative number.
    const bool isLimit = maxLength > 0 && maxLength <= std::numeric_limits<int>::max();
    QTextStream stream(&device);
    QString line;
    while (stream.readLineInto(&line, isLimit ? maxLength : 0))
        take(line);
}
