// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "iconfigcontroller.h"
#include "kez_global.h"

/// Checks the "log.*" keys of a configuration.
///
/// "log.filename" must be there, and its directory must be readable and writable. The other keys
/// are checked if they are there: "log.maxsize", "log.kept", "log.timeout", "log.tee" and
/// "log.banner.properties" must be integers, "log.banner.title" must hold no place marker except
/// "%1" (the version), and "log.filter" must be one of debug, info, warning, error, fatal.
///
/// Some of what passes here is refused when the logger is built, or means something else there:
/// - "-1", or any integer that is out of range for its key: Logger::buildLog and
///   Config::buildFileSystemLogger throw.
/// - a "log.filename" without "/": checked in the working directory, written in the home directory.
/// - Logger::buildLog also reads a tee that is any text, a filter "warn", and banner keys without
///   "log."; its filter "warning" means debug. These differences are kept for compatibility.
///
/// *Threads*: one thread at a time.
/// *Owns*: its list of errors.
/// *Fails*: never; one error text per fault.
class KEZ_EXPORT LoggerConfigController : public IConfigController {
    Q_OBJECT

public:
    explicit LoggerConfigController(QObject* parent = nullptr);
    ~LoggerConfigController() override;

    /// True if this run found no fault; earlier runs do not count.
    bool isLegalConfiguration(Properties* properties) override;

private:
    KEZ_HIDDEN bool checkFileName(const Properties& properties);
    KEZ_HIDDEN bool checkIntegers(const Properties& properties);
    KEZ_HIDDEN bool checkBannerTitle(const Properties& properties);
    KEZ_HIDDEN bool checkFilter(const Properties& properties);
    KEZ_HIDDEN void insertInvalid(const QString& key, const QString& value,
                                  const QString& hint = QString());
};
