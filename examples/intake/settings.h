// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

class Properties;

namespace intake {

/// The service's own settings, from a configuration that IntakeConfigController has accepted.
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

/// Makes the paths in `properties` absolute, that of the log, too. A relative one starts at
/// `directory`, that of the properties file, not at the working directory.
void resolvePaths(Properties& properties, const QString& directory);

/// The value without blanks around it; an empty text if the key is absent.
QString trimmedValue(const Properties& properties, const QString& key);

/// How `queue.keep` is written.
bool isYes(const QString& value);
bool isNo(const QString& value);

} // namespace intake
