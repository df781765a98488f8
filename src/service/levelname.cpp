// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/levelname.h"

#include "log/loggerkeys_p.h"

namespace KezService {

namespace {

using LoggerKeys::LevelNames;

bool isKnownAs(const LevelNames& names, const QString& name)
{
    const auto isSame = [&name](std::string_view known) { return LoggerKeys::isName(known, name); };
    return isSame(names.factory) || isSame(names.config) || isSame(names.validator) ||
           std::any_of(names.json.begin(), names.json.end(), isSame);
}

} // namespace

QString levelName(LoggerLevel::LogLevel level)
{
    const LevelNames& names = LoggerKeys::Levels[LoggerKeys::rowOf(level)];
    if (names.level != level)
        return QString();
    return QString::fromLatin1(names.config.data(), static_cast<qsizetype>(names.config.size()));
}

std::optional<LoggerLevel::LogLevel> levelFromName(const QString& name)
{
    const QString known = name.trimmed().toLower();
    for (const LevelNames& names : LoggerKeys::Levels) {
        if (isKnownAs(names, known))
            return names.level;
    }
    return std::nullopt;
}

} // namespace KezService
