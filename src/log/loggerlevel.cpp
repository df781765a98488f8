// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/loggerlevel.h"

#include <QDataStream>

namespace {

const int logLevelMetaType = qRegisterMetaType<LoggerLevel::LogLevel>("LoggerLevel::LogLevel");

} // namespace

QDataStream& operator<<(QDataStream& stream, LoggerLevel::LogLevel level)
{
    return stream << static_cast<qint32>(level);
}

QDataStream& operator>>(QDataStream& stream, LoggerLevel::LogLevel& level)
{
    qint32 value = 0;
    stream >> value;
    level = static_cast<LoggerLevel::LogLevel>(value);
    return stream;
}
