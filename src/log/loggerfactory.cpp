// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "config/numberproperty_p.h"
#include "frame/failure_p.h"
#include "frame/qtmessage_p.h"
#include "kez/exception.h"
#include "kez/log.h"
#include "kez/logger.h"
#include "kez/properties.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>

#include <limits>
#include <optional>

// Stands apart from the rest of the class, since it falls back to the facade, which owns loggers.

namespace {

struct Settings {
    QString fileName;
    quint64 maxSize = 1048576;
    quint32 kept = 10;
    quint32 timeout = 7;
    LoggerLevel::LogLevel filter = LoggerLevel::warning;
    bool isTeeOn = false;
};

constexpr const char* PropertiesSignature =
    "shared_ptr<Logger> Logger::buildLog(const QMap<QString,QString>&)";
constexpr const char* JsonSignature = "shared_ptr<Logger> Logger::buildLog(const QJsonObject&)";

/// The process's default logger, told why it has to serve.
std::shared_ptr<Logger> defaultLoggerInstead(const QString& reason)
{
    reportCritical(reason);
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
    const QString name = valueOr(properties, QStringLiteral("log.filter"), QStringLiteral("warn"));
    if (name == QLatin1String("fatal"))
        return LoggerLevel::fatal;
    if (name == QLatin1String("error"))
        return LoggerLevel::error;
    if (name == QLatin1String("warn"))
        return LoggerLevel::warning;
    if (name == QLatin1String("info"))
        return LoggerLevel::info;
    return LoggerLevel::debug; // "warning" included: see the declaration
}

Settings settingsFrom(const Properties& properties)
{
    Settings settings;
    settings.fileName = properties.value(QStringLiteral("log.filename"));
    settings.isTeeOn =
        valueOr(properties, QStringLiteral("log.tee"), QStringLiteral("0")) != QLatin1String("0");
    // One byte by default, a new file before every line: see the declaration.
    settings.maxSize =
        numberOr<quint64>(properties, QStringLiteral("log.maxsize"), 1, raiseInvalid);
    settings.kept = numberOr(properties, QStringLiteral("log.kept"), settings.kept, raiseInvalid);
    settings.timeout =
        numberOr(properties, QStringLiteral("log.timeout"), settings.timeout, raiseInvalid);
    settings.filter = propertiesFilter(properties);
    return settings;
}

QString noFileName()
{
    return Failure::text(
        JsonSignature, Failure::message("InvalidParameter", QStringLiteral("fileName"), QString()));
}

struct JsonSettings : Settings {
    QString bannerTitle;
    bool recordsConfiguration = false;
};

/// The value as an integer of that type, if it is one.
template <typename Number>
std::optional<Number> integer(const QJsonValue& value)
{
    constexpr qint64 none = -1;
    const qint64 number = value.toInteger(none);
    const bool fits =
        number >= 0 && static_cast<quint64>(number) <= std::numeric_limits<Number>::max();
    return fits ? std::optional<Number>(static_cast<Number>(number)) : std::nullopt;
}

void applyJsonFilter(const QString& name, LoggerLevel::LogLevel& filter)
{
    static const QMap<QString, LoggerLevel::LogLevel> levels = {
        {QStringLiteral("inf"), LoggerLevel::info},
        {QStringLiteral("info"), LoggerLevel::info},
        {QStringLiteral("information"), LoggerLevel::info},
        {QStringLiteral("wrn"), LoggerLevel::warning},
        {QStringLiteral("warning"), LoggerLevel::warning},
        {QStringLiteral("err"), LoggerLevel::error},
        {QStringLiteral("error"), LoggerLevel::error},
        {QStringLiteral("ftl"), LoggerLevel::fatal},
        {QStringLiteral("fatal"), LoggerLevel::fatal},
        {QStringLiteral("dbg"), LoggerLevel::debug},
        {QStringLiteral("debug"), LoggerLevel::debug},
        {QStringLiteral("all"), LoggerLevel::debug},
    };
    filter = levels.value(name, filter);
}

void applyJsonBanner(const QJsonArray& banner, JsonSettings& settings)
{
    for (const QJsonValue& element : banner) {
        settings.bannerTitle = element[QLatin1String("title")].toString(settings.bannerTitle);
        settings.recordsConfiguration =
            element[QLatin1String("properties")].toBool(settings.recordsConfiguration);
    }
}

/// Members of another type leave the setting as it is.
void applyJson(const QJsonObject& members, JsonSettings& settings)
{
    settings.fileName = members[QLatin1String("fileName")].toString(settings.fileName);
    settings.maxSize =
        integer<quint64>(members[QLatin1String("maxSize")]).value_or(settings.maxSize);
    settings.timeout =
        integer<quint32>(members[QLatin1String("timeout")]).value_or(settings.timeout);
    settings.kept = integer<quint32>(members[QLatin1String("kept")]).value_or(settings.kept);
    settings.isTeeOn = members[QLatin1String("tee")].toBool(settings.isTeeOn);
    applyJsonFilter(members[QLatin1String("filter")].toString(), settings.filter);
    applyJsonBanner(members[QLatin1String("banner")].toArray(), settings);
}

} // namespace

std::shared_ptr<Logger> Logger::buildLog(const Properties& properties)
{
    const Settings settings = settingsFrom(properties);
    const std::shared_ptr<Logger> logger = build(settings);
    setTee(*logger, settings.isTeeOn);
    const QString defaultTitle = Failure::message("DefaultLogBanner");
    logger->_bannerTitle = valueOr(properties, QStringLiteral("banner.title"), defaultTitle);
    const QString flagKey = QStringLiteral("banner.properties");
    if (properties.contains(flagKey)) {
        const QString flag = properties.value(flagKey).trimmed().toLower();
        logger->_recordConfigurationData =
            flag == QLatin1String("1") || flag == QLatin1String("true");
    } else {
        logger->_bannerTitle = defaultTitle; // the title counts together with the flag only
    }
    return logger;
}

std::shared_ptr<Logger> Logger::buildLog(const QJsonObject& json)
{
    const QJsonValue elements = json[QLatin1String("log")];
    if (!elements.isArray())
        return Log::getInstance()->log();

    JsonSettings settings;
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
