// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "iconfigcontroller.h"
#include "kez_global.h"
#include "logger.h"
#include "properties.h"

#include <QObject>
#include <QString>

#include <memory>

class QDataStream;

/// An application's configuration: its properties, its version under "app.version" and, once one is
/// attached, its file logger.
///
/// *Threads*: one thread at a time; the logger has its own locking.
/// *Owns*: shares its properties and its logger, with its copies too.
/// *Fails*: throws Exception, as said at each function.
class KEZ_EXPORT Config : public QObject {
    Q_OBJECT

public:
    /// Holds "app.version" alone: `version`, or "0.0.0" when that is empty.
    explicit Config(const QString& version = QString(), QObject* parent = nullptr);

    /// Shares the properties and the logger of `other`; neither is copied.
    Config(const Config& other, QObject* parent = nullptr);
    ~Config() override;

    /// Reads a configuration file (UTF-8): `key=value` lines, lines that begin with "#" skipped.
    ///
    /// Not the reader of Properties::loadProperties, and callers rely on the differences: nothing
    /// is trimmed, so an indented "#" is part of a key; the first of repeated keys counts; an
    /// "app.version" line is always ignored.
    ///
    /// "app.version" becomes `version`, or "0.0.0" when that is empty. No logger is built.
    ///
    /// Throws Exception: FileDoesntExist, FileNotReadable.
    static std::shared_ptr<Config> load(const QString& path, const QString& version = QString());

    /// Copies `properties`, which must not hold "app.version": throws Exception
    /// (DuplicateProperty).
    static std::shared_ptr<Config> load(const Properties& properties,
                                        const QString& version = QString());

    /// A new file logger as the "log.*" keys describe it. The configuration that holds `properties`
    /// is not touched: attach the logger with setLogger().
    ///
    /// Throws Exception: with one line per fault that LoggerConfigController finds, or
    /// ConfParamInvalid, or as Logger's constructor does.
    static std::shared_ptr<Logger> buildFileSystemLogger(const Properties& properties);

    /// The user's home directory.
    static QString homePath();

    /// `USER`, else `USERNAME`, else empty.
    static QString userAccount();

    /// Never null.
    std::shared_ptr<Properties> properties() const;

    /// Null until one is attached.
    std::shared_ptr<Logger> logger() const;

    /// Throws Exception (PropertyNotFound).
    QString value(const QString& key) const;
    bool existsKey(const QString& key) const;

    /// The trimmed value of "log.banner.title"; the text of the key "DefaultLogTitle" when that is
    /// absent or blank.
    QString logBannerTitle() const;

    /// False when "log.banner.properties" is "0", "false" or "faux" (in any case, blanks around
    /// ignored), true for everything else, its absence included.
    bool displayPropertiesWithinBanner() const;

    /// The attached logger, or a new one. A new one is not kept: every call builds another.
    /// Throws as buildFileSystemLogger() does.
    std::shared_ptr<Logger> getOrbuildFileSystemLogger() const;

    /// Writes the start banner to the attached logger, whatever its filter; does nothing without a
    /// logger. `titleArgument` replaces the place marker of `titleFormat`. Keys are padded on the
    /// left.
    ///
    ///     +-------+
    ///     | Start |
    ///     +-------+
    ///     <trailer>
    ///     app.version = 2.1
    void logBanner(const QString& titleFormat, const QString& titleArgument, bool withProperties,
                   const QString& trailer) const;

    /// What `controller` answers for the properties; false without a controller.
    virtual bool isLegalConfiguration(IConfigController* controller);

    /// Attaches a logger.
    void setLogger(std::shared_ptr<Logger> logger);

    /// Lets go of the attached logger.
    void forgetLogger();

private:
    friend KEZ_EXPORT QDataStream& operator>>(QDataStream& stream, Config& config);
    KEZ_HIDDEN void setVersion(const QString& version);

    std::shared_ptr<Properties> _properties;
    std::shared_ptr<Logger> _logger;
};

/// Writes one "key=value" text per property, in key order, and nothing else: no count, no end. So a
/// configuration must be the last thing in a stream.
KEZ_EXPORT QDataStream& operator<<(QDataStream& stream, const Config& config);

/// Reads to the end of the stream and replaces the properties, and the logger by the one that they
/// describe (an empty Logger without "log.filename"). A corrupt stream leaves the configuration as
/// it was and says so by its status. Throws as Config::buildFileSystemLogger does; the properties
/// are the new ones then, and the logger is the one before.
KEZ_EXPORT QDataStream& operator>>(QDataStream& stream, Config& config);
