// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "iconfigcontroller.h"
#include "kez_global.h"

/// Checks the "log.*" keys of a configuration.
///
/// "log.filename" must be there and its directory readable and writable; "log.maxsize", "log.kept",
/// "log.timeout", "log.tee" and "log.banner.properties" must be integers where present,
/// "log.banner.title" must hold no place marker but "%1" (the version), and "log.filter" must be
/// one of debug, info, warning, error, fatal.
///
/// Logger::buildLog reads other spellings of some of these (a tee that is any text, a filter
/// "warn", banner keys without "log."); callers rely on both as they are.
///
/// *Threads*: one thread at a time.
/// *Owns*: its list of errors.
/// *Fails*: never; one error text per fault.
class KEZ_EXPORT LoggerConfigController : public IConfigController {
    Q_OBJECT

public:
    explicit LoggerConfigController(QObject* parent = nullptr);
    ~LoggerConfigController() override;

    /// True when this run found no fault, whatever earlier runs recorded.
    bool isLegalConfiguration(Properties* properties) override;

private:
    bool checkFileName(const Properties& properties);
    bool checkIntegers(const Properties& properties);
    bool checkBannerTitle(const Properties& properties);
    bool checkFilter(const Properties& properties);
    void insertInvalid(const QString& key, const QString& value, const QString& hint = QString());
};
