// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "config/numberproperty_p.h"
#include "frame/failure_p.h"
#include "kez/logger.h"
#include "kez/loggerconfigcontroller.h"
#include "log/loggerkeys_p.h"

#include <memory>

/// How a logger is built from the "log.*" keys of a configuration.
namespace LoggerFromKeys {

inline constexpr const char* Signature = "shared_ptr<Log> Config::buildFileSystemLogger(Config&)";

[[noreturn]] inline void raiseInvalid(const QString& key, const QString& value)
{
    Failure::raise(Signature, Failure::message("ConfParamInvalid", key + QLatin1Char('=') + value));
}

inline void check(const Properties& properties)
{
    Properties checked(properties);
    LoggerConfigController controller;
    if (!controller.isLegalConfiguration(&checked))
        Failure::raise(Signature, controller.errorsToString(QStringLiteral("\n")));
}

inline LoggerLevel::LogLevel filter(const Properties& properties)
{
    if (!properties.contains(LoggerKeys::Filter))
        return LoggerKeys::ConfigDefaults.filter;
    return LoggerKeys::levelNamed(&LoggerKeys::LevelNames::config,
                                  properties.value(LoggerKeys::Filter).toLower())
        .value_or(LoggerLevel::debug);
}

inline bool asksForTee(const Properties& properties)
{
    return properties.contains(LoggerKeys::Tee) &&
           properties.value(LoggerKeys::Tee) == QLatin1String("1");
}

struct Settings {
    QString fileName;
    quint64 maxSize;
    quint32 kept;
    quint32 timeout;
    LoggerLevel::LogLevel filter;
};

/// Throws as Config::buildFileSystemLogger() does for the keys.
inline Settings read(const Properties& properties)
{
    check(properties);
    constexpr LoggerKeys::Defaults absent = LoggerKeys::ConfigDefaults;
    return {properties.value(LoggerKeys::FileName),
            numberOr(properties, LoggerKeys::MaxSize, absent.maxSize, raiseInvalid),
            numberOr(properties, LoggerKeys::Kept, absent.kept, raiseInvalid),
            numberOr(properties, LoggerKeys::Timeout, absent.timeout, raiseInvalid),
            filter(properties)};
}

/// The tee is on, as in every new logger.
inline std::shared_ptr<Logger> build(const Properties& properties, LogFormatter formatter)
{
    const Settings settings = read(properties);
    return std::make_shared<Logger>(settings.fileName, settings.maxSize, settings.kept,
                                    settings.timeout, settings.filter, formatter);
}

} // namespace LoggerFromKeys
