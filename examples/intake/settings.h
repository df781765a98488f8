// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

class Properties;

namespace intake {

/// The service's own settings, read from a configuration that IntakeConfigController found legal.
struct Settings {
    static constexpr int DefaultPeriod = 1000;

    QString spool;              // queue.path: the watched directory
    int period = DefaultPeriod; // queue.period: milliseconds between re-scans, 0 for none
    bool keep = true; // queue.keep: whether files found at start-up are handled or deleted
    QString archive;  // archive.path
    QString ledger;   // ledger.path
    QString setAside; // setaside.path

    static Settings fromProperties(const Properties& properties);
};

/// Makes the paths in `properties`, the log's included, absolute: a relative one counts from
/// `directory`, the properties file's, and not from where the service happens to be started.
void resolvePaths(Properties& properties, const QString& directory);

/// The value without blanks around it, or an empty text when the key is absent.
QString trimmedValue(const Properties& properties, const QString& key);

/// How `queue.keep` is written.
bool isYes(const QString& value);
bool isNo(const QString& value);

} // namespace intake
