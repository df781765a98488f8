// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/lineformatters.h"

#include "config/numberproperty_p.h"
#include "frame/failure_p.h"
#include "log/loggerkeys_p.h"
#include "service/kittexts_p.h"

#include <kez/loggerconfigcontroller.h>
#include <kez/properties.h>

namespace KezService {

namespace {

// That of the core's builder: the same fault has the same text.
constexpr const char* Signature = "shared_ptr<Log> Config::buildFileSystemLogger(Config&)";

void check(const Properties& properties)
{
    Properties checked(properties);
    LoggerConfigController controller;
    if (!controller.isLegalConfiguration(&checked))
        Failure::raise(Signature, controller.errorsToString(QStringLiteral("\n")));
}

[[noreturn]] void raiseInvalid(const QString& key, const QString& value)
{
    Failure::raise(Signature, Failure::message("ConfParamInvalid", key + QLatin1Char('=') + value));
}

/// The level under a key that was checked.
LoggerLevel::LogLevel filterOf(const Properties& properties)
{
    if (!properties.contains(LoggerKeys::Filter))
        return LoggerKeys::ConfigDefaults.filter;
    return LoggerKeys::levelNamed(&LoggerKeys::LevelNames::config,
                                  properties.value(LoggerKeys::Filter))
        .value_or(LoggerLevel::debug);
}

bool asksForTee(const Properties& properties)
{
    return properties.contains(LoggerKeys::Tee) &&
           properties.value(LoggerKeys::Tee) == QLatin1String("1");
}

} // namespace

std::shared_ptr<Logger> buildLogger(const Properties& properties, LogFormatter formatter)
{
    check(properties);
    constexpr LoggerKeys::Defaults absent = LoggerKeys::ConfigDefaults;
    const quint64 maxSize = numberOr(properties, LoggerKeys::MaxSize, absent.maxSize, raiseInvalid);
    const quint32 kept = numberOr(properties, LoggerKeys::Kept, absent.kept, raiseInvalid);
    const quint32 timeout = numberOr(properties, LoggerKeys::Timeout, absent.timeout, raiseInvalid);

    const auto logger = std::make_shared<Logger>(properties.value(LoggerKeys::FileName), maxSize,
                                                 kept, timeout, filterOf(properties), formatter);
    logger->disableTee();
    if (asksForTee(properties))
        logger->warning(kitText("BridgeTeeStaysOff"));
    return logger;
}

} // namespace KezService
