// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <kez/iconfigcontroller.h>

namespace intake {

/// Checks the service's own keys; LoggerConfigController checks those of the log.
///
/// "queue.path", "archive.path" and "setaside.path" must name three different directories that
/// exist and are readable and writable. "ledger.path" must name a readable and writable file, or
/// one that can be created. Neither the ledger nor the log may be in the spool. "setaside.path",
/// "queue.period" (milliseconds, 0 or more), "queue.keep" (0, 1, false, true) and "lang" (fr_FR,
/// en_US) may be absent.
///
/// *Threads*: one thread at a time.
/// *Owns*: its list of errors.
/// *Fails*: never; there is one error text per fault.
class IntakeConfigController : public IConfigController {
    Q_OBJECT

public:
    using IConfigController::IConfigController;

    bool isLegalConfiguration(Properties* properties) override;

private:
    bool checkDirectory(const Properties& properties, const QString& key);
    void checkLedger(const Properties& properties);
    void checkDirectoriesDiffer(const Properties& properties, const QStringList& keys);
    void checkOutsideSpool(const Properties& properties, const QString& key);
    void checkPeriod(const Properties& properties);
    void checkKeep(const Properties& properties);
    void checkLanguage(const Properties& properties);
    void insertInvalid(const Properties& properties, const QString& key, QLatin1String reason);
};

} // namespace intake
