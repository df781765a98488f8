// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <kez/logger.h>

#include <QRegularExpression>
#include <QString>

/// A number that the logger's description shows ("_maxSize", "_kept", "_timeout", "_last"); -1 if
/// it shows none.
inline qint64 shownNumber(const Logger& logger, const QString& field)
{
    const QRegularExpression pattern("^ *" + field + " : (\\d+)",
                                     QRegularExpression::MultilineOption);
    const QRegularExpressionMatch match = pattern.match(logger.toString());
    return match.hasMatch() ? static_cast<qint64>(match.captured(1).toULongLong()) : -1;
}
