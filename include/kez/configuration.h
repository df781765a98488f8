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

/// An application's configuration: its properties, its version under "app.version" and its file
/// logger, if one is attached.
///
/// *Threads*: one thread at a time; the logger has its own locking.
/// *Owns*: shares its properties and its logger, also with its copies.
/// *Fails*: throws Exception, as said at each function.
class KEZ_EXPORT Config : public QObject {
    Q_OBJECT

public:
    /// Holds only "app.version": `version`, or "0.0.0" if that is empty.
    explicit Config(const QString& version = QString(), QObject* parent = nullptr);

    /// Shares the properties and the logger of `other`; neither is copied.
    Config(const Config& other, QObject* parent = nullptr);
    ~Config() override;

    /// Reads a configuration file (UTF-8): `key=value` lines; lines that begin with "#" are
    /// skipped.
    ///
    /// The rules differ from those of Properties::loadProperties. The differences are kept for
    /// compatibility: nothing is trimmed, so an indented "#" is part of a key; the first of
    /// repeated keys counts; an "app.version" line is always ignored. A read error ends the file as
    /// its end would.
    ///
    /// "app.version" becomes `version`, or "0.0.0" if that is empty. No logger is built.
    ///
    /// Throws Exception: FileDoesntExist, FileNotReadable.
    static std::shared_ptr<Config> load(const QString& path, const QString& version = QString());

    /// Copies `properties`. Throws Exception (DuplicateProperty) if they hold "app.version".
    static std::shared_ptr<Config> load(const Properties& properties,
                                        const QString& version = QString());

    /// A new file logger as the "log.*" keys describe it. "log.filename" must be there. Without
    /// the other keys: filter `warning`, 10 files of less than 1048576 bytes, a new one after 7
    /// days, no tee.
    ///
    /// A "log.filename" without "/" means a file in the home directory, although the directory that
    /// is checked for it is the working directory.
    ///
    /// The configuration that holds `properties` is not changed: attach the logger with
    /// setLogger().
    ///
    /// Throws Exception: with one line per fault that LoggerConfigController finds; or
    /// ConfParamInvalid for a number that the setting cannot hold; or as Logger's constructor does.
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

    /// The trimmed value of "log.banner.title". If that is absent or blank: the text of the key
    /// "DefaultLogTitle", which the library's own bundles do not hold.
    QString logBannerTitle() const;

    /// False if "log.banner.properties" is "0", "false" or "faux", in upper or lower case, with or
    /// without blanks around it. True for every other value, and if the key is absent.
    bool displayPropertiesWithinBanner() const;

    /// The attached logger, or a new one. The new one is not kept: every call builds another.
    /// Throws as buildFileSystemLogger() does.
    std::shared_ptr<Logger> getOrbuildFileSystemLogger() const;

    /// Writes the start banner to the attached logger, also past its filter; does nothing without a
    /// logger. `titleArgument` replaces the lowest-numbered place marker of `titleFormat`. Keys are
    /// padded on the left.
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

    /// Releases this object's share of the attached logger.
    void forgetLogger();

private:
    friend KEZ_EXPORT QDataStream& operator>>(QDataStream& stream, Config& config);
    KEZ_HIDDEN void setVersion(const QString& version);

    std::shared_ptr<Properties> _properties;
    std::shared_ptr<Logger> _logger;
};

/// Writes one "key=value" text per property, in key order, and nothing else: no count, no end mark.
/// So a configuration must be the last thing in a stream.
KEZ_EXPORT QDataStream& operator<<(QDataStream& stream, const Config& config);

/// Reads to the end of the stream and replaces the properties. The logger is replaced by the one
/// that they describe, or by a Logger without a file if they hold no "log.filename".
///
/// If the stream failed before or fails now, the configuration does not change. Check the stream's
/// status. Throws as Config::buildFileSystemLogger does: the properties are then the new
/// ones, and the logger is the one before.
KEZ_EXPORT QDataStream& operator>>(QDataStream& stream, Config& config);
