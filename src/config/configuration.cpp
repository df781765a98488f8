// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/configuration.h"
#include "config/configreader_p.h"
#include "config/loggerfromkeys_p.h"
#include "frame/failure_p.h"
#include "frame/keyvalue_p.h"
#include "log/banner_p.h"
#include "log/loggerkeys_p.h"

#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QMetaType>

namespace {

const int configMetaType = qRegisterMetaType<Config>();

QString versionKey()
{
    return QStringLiteral("app.version");
}

} // namespace

Config::Config(const QString& version, QObject* parent)
    : QObject(parent), _properties(std::make_shared<Properties>())
{
    setVersion(version.isEmpty() ? QStringLiteral("0.0.0") : version);
}

Config::Config(const Config& other, QObject* parent)
    : QObject(parent), _properties(other._properties), _logger(other._logger)
{}

Config::~Config() = default;

std::shared_ptr<Config> Config::load(const QString& path, const QString& version)
{
    constexpr const char* signature =
        "shared_ptr<Config> Config::load(const QString&, const QString&)";
    QFile file(path);
    if (!QFile::exists(path))
        Failure::raise(signature, Failure::message("FileDoesntExist", path));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text | QIODevice::ExistingOnly))
        Failure::raise(signature, Failure::message("FileNotReadable", path));

    auto config = std::make_shared<Config>();
    Dictionnary& held = *config->_properties->toDictionnary();
    Entries entries = std::move(held).toStdMap();
    readConfiguration(file, entries);
    held = Dictionnary(std::move(entries));
    if (!version.isEmpty())
        config->setVersion(version);
    return config;
}

std::shared_ptr<Config> Config::load(const Properties& properties, const QString& version)
{
    auto config = std::make_shared<Config>();
    for (auto it = properties.begin(); it != properties.end(); ++it)
        config->_properties->insert(it.key(), it.value(), false);
    if (!version.isEmpty())
        config->setVersion(version);
    return config;
}

std::shared_ptr<Logger> Config::buildFileSystemLogger(const Properties& properties)
{
    const std::shared_ptr<Logger> logger = LoggerFromKeys::build(properties, nullptr);
    if (LoggerFromKeys::asksForTee(properties))
        logger->enableTee();
    else
        logger->disableTee();
    return logger;
}

QString Config::homePath()
{
    return QDir::homePath();
}

QString Config::userAccount()
{
    const QString user = qEnvironmentVariable("USER");
    return user.isEmpty() ? qEnvironmentVariable("USERNAME") : user;
}

std::shared_ptr<Properties> Config::properties() const
{
    return _properties;
}

std::shared_ptr<Logger> Config::logger() const
{
    return _logger;
}

QString Config::value(const QString& key) const
{
    return _properties->value(key);
}

bool Config::existsKey(const QString& key) const
{
    return _properties->contains(key);
}

QString Config::logBannerTitle() const
{
    const QString key = LoggerKeys::ConfigBannerTitle;
    const QString title = existsKey(key) ? value(key).trimmed() : QString();
    return title.isEmpty() ? Failure::message("DefaultLogTitle") : title;
}

bool Config::displayPropertiesWithinBanner() const
{
    const QString key = LoggerKeys::ConfigBannerProperties;
    if (!existsKey(key))
        return true;
    const QString choice = value(key).trimmed().toLower();
    return choice != QLatin1String("0") && choice != QLatin1String("false") &&
           choice != QLatin1String("faux");
}

std::shared_ptr<Logger> Config::getOrbuildFileSystemLogger() const
{
    return _logger ? _logger : buildFileSystemLogger(*_properties);
}

void Config::logBanner(const QString& titleFormat, const QString& titleArgument,
                       bool withProperties, const QString& trailer) const
{
    const std::shared_ptr<Logger> logger = _logger; // a message handler may replace both
    const std::shared_ptr<const Properties> properties = _properties;
    if (!logger)
        return;
    const BannerScope banner(*logger);
    writeBannerBox(*logger, Failure::completed(titleFormat, titleArgument));
    logger->info(trailer);
    if (withProperties) {
        // Padded on the left, unlike the banner of Logger.
        writeBannerProperties(*logger, *properties, [](const QString& key, qsizetype width) {
            return key.rightJustified(width, QLatin1Char(' '));
        });
    }
}

bool Config::isLegalConfiguration(IConfigController* controller)
{
    const std::shared_ptr<Properties> held = _properties; // the controller may replace them
    return controller && controller->isLegalConfiguration(held.get());
}

void Config::setLogger(std::shared_ptr<Logger> logger)
{
    _logger = std::move(logger);
}

void Config::forgetLogger()
{
    _logger.reset();
}

void Config::setVersion(const QString& version)
{
    _properties->insert(versionKey(), version, true);
}

QDataStream& operator<<(QDataStream& stream, const Config& config)
{
    const std::shared_ptr<const Properties> properties = config.properties();
    for (auto it = properties->begin(); it != properties->end(); ++it)
        stream << QString(it.key() + QLatin1Char('=') + it.value());
    return stream;
}

QDataStream& operator>>(QDataStream& stream, Config& config)
{
    auto properties = std::make_shared<Properties>();
    while (stream.status() == QDataStream::Ok && !stream.atEnd()) {
        QString text;
        stream >> text;
        const auto pair = splitAtFirstEquals(text);
        if (pair)
            properties->insert(pair->key.toString(), pair->value.toString(), true);
        else
            properties->insert(text, QString(), true);
    }
    if (stream.status() != QDataStream::Ok)
        return stream;
    config._properties = properties;
    config._logger = properties->contains(LoggerKeys::FileName)
                         ? Config::buildFileSystemLogger(*properties)
                         : std::make_shared<Logger>();
    return stream;
}
