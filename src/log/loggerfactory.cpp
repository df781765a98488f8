// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "config/numberproperty_p.h"
#include "frame/failure_p.h"
#include "frame/qtmessage_p.h"
#include "kez/exception.h"
#include "kez/log.h"
#include "kez/logger.h"
#include "kez/properties.h"
#include "log/loggerkeys_p.h"
#include "log/logring_p.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>

#include <limits>
#include <optional>

// In a file of its own: it falls back to the facade, which stands above the rest of the class.

namespace {

struct Settings : LoggerKeys::Defaults {
    explicit Settings(const LoggerKeys::Defaults& defaults) : LoggerKeys::Defaults(defaults) {}

    QString fileName;
    bool isTeeOn = false;
};

constexpr const char* PropertiesSignature =
    "shared_ptr<Logger> Logger::buildLog(const QMap<QString,QString>&)";
constexpr const char* JsonSignature = "shared_ptr<Logger> Logger::buildLog(const QJsonObject&)";

/// The process's default logger, after it has logged the reason.
std::shared_ptr<Logger> defaultLoggerInstead(const QString& reason)
{
    {
        const InsideLog inside; // a handler that logs would write the reason twice
        reportCritical(reason);
    }
    const std::shared_ptr<Logger> logger = Log::getInstance()->log();
    logger->critical(reason);
    return logger;
}

std::shared_ptr<Logger> build(const Settings& settings)
{
    try {
        return std::make_shared<Logger>(settings.fileName, settings.maxSize, settings.kept,
                                        settings.timeout, settings.filter, nullptr);
    } catch (const Exception& e) {
        return defaultLoggerInstead(e.detail());
    }
}

void setTee(Logger& logger, bool isOn)
{
    if (isOn)
        logger.enableTee();
    else
        logger.disableTee();
}

QString valueOr(const Properties& properties, const QString& key, const QString& fallback)
{
    return properties.contains(key) ? properties.value(key) : fallback;
}

[[noreturn]] void raiseInvalid(const QString& key, const QString& value)
{
    Failure::raise(PropertiesSignature, Failure::message("InvalidParameter", key, value));
}

LoggerLevel::LogLevel propertiesFilter(const Properties& properties)
{
    if (!properties.contains(LoggerKeys::Filter))
        return LoggerKeys::FactoryDefaults.filter;
    return LoggerKeys::levelNamed(&LoggerKeys::LevelNames::factory,
                                  properties.value(LoggerKeys::Filter))
        .value_or(LoggerLevel::debug); // "warning" included: see the declaration
}

Settings settingsFrom(const Properties& properties)
{
    Settings settings(LoggerKeys::FactoryDefaults);
    settings.fileName = properties.value(LoggerKeys::FileName);
    settings.isTeeOn =
        valueOr(properties, LoggerKeys::Tee, QStringLiteral("0")) != QLatin1String("0");
    settings.maxSize = numberOr(properties, LoggerKeys::MaxSize, settings.maxSize, raiseInvalid);
    settings.kept = numberOr(properties, LoggerKeys::Kept, settings.kept, raiseInvalid);
    settings.timeout = numberOr(properties, LoggerKeys::Timeout, settings.timeout, raiseInvalid);
    settings.filter = propertiesFilter(properties);
    return settings;
}

QString noFileName()
{
    return Failure::text(
        JsonSignature,
        Failure::message("InvalidParameter", QString(LoggerKeys::JsonFileName), QString()));
}

struct JsonSettings : Settings {
    using Settings::Settings;

    QString bannerTitle;
    bool recordsConfiguration = false;
};

/// The value as an integer of that type, if it is one and in range.
template <typename Number>
std::optional<Number> integer(const QJsonValue& value)
{
    constexpr qint64 none = -1;
    const qint64 number = value.toInteger(none);
    const bool fits =
        number >= 0 && static_cast<quint64>(number) <= std::numeric_limits<Number>::max();
    return fits ? std::optional<Number>(static_cast<Number>(number)) : std::nullopt;
}

void applyJsonBanner(const QJsonArray& banner, JsonSettings& settings)
{
    for (const QJsonValue& element : banner) {
        settings.bannerTitle = element[LoggerKeys::JsonBannerTitle].toString(settings.bannerTitle);
        settings.recordsConfiguration =
            element[LoggerKeys::JsonBannerProperties].toBool(settings.recordsConfiguration);
    }
}

/// Members of another type leave the setting as it is, and so does an unknown filter.
void applyJson(const QJsonObject& members, JsonSettings& settings)
{
    settings.fileName = members[LoggerKeys::JsonFileName].toString(settings.fileName);
    settings.maxSize =
        integer<quint64>(members[LoggerKeys::JsonMaxSize]).value_or(settings.maxSize);
    settings.timeout =
        integer<quint32>(members[LoggerKeys::JsonTimeout]).value_or(settings.timeout);
    settings.kept = integer<quint32>(members[LoggerKeys::JsonKept]).value_or(settings.kept);
    settings.isTeeOn = members[LoggerKeys::JsonTee].toBool(settings.isTeeOn);
    settings.filter = LoggerKeys::levelNamedInJson(members[LoggerKeys::JsonFilter].toString())
                          .value_or(settings.filter);
    applyJsonBanner(members[LoggerKeys::JsonBanner].toArray(), settings);
}

} // namespace

std::shared_ptr<Logger> Logger::buildLog(const Properties& properties)
{
    const Settings settings = settingsFrom(properties);
    const std::shared_ptr<Logger> logger = build(settings);
    setTee(*logger, settings.isTeeOn);
    const QString defaultTitle = Failure::message("DefaultLogBanner");
    logger->_bannerTitle = valueOr(properties, LoggerKeys::FactoryBannerTitle, defaultTitle);
    if (properties.contains(LoggerKeys::FactoryBannerProperties)) {
        const QString flag =
            properties.value(LoggerKeys::FactoryBannerProperties).trimmed().toLower();
        logger->_recordConfigurationData =
            flag == QLatin1String("1") || flag == QLatin1String("true");
    } else {
        logger->_bannerTitle = defaultTitle; // a title without the flag does not apply
    }
    return logger;
}

std::shared_ptr<Logger> Logger::buildLog(const QJsonObject& json)
{
    const QJsonValue elements = json[LoggerKeys::JsonLog];
    if (!elements.isArray())
        return Log::getInstance()->log();

    JsonSettings settings(LoggerKeys::JsonDefaults);
    settings.bannerTitle = Failure::message("LogBannerTitle");
    for (const QJsonValue& element : elements.toArray())
        applyJson(element.toObject(), settings);

    const std::shared_ptr<Logger> logger =
        settings.fileName.isEmpty() ? defaultLoggerInstead(noFileName()) : build(settings);
    setTee(*logger, settings.isTeeOn);
    logger->_bannerTitle = settings.bannerTitle;
    logger->_recordConfigurationData = settings.recordsConfiguration;
    return logger;
}
