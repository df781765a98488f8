// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <kez/iconfigcontroller.h>
#include <kez/service/filerunner.h>

namespace intake {

/// The service's own settings; the file intake.properties says what its keys mean.
struct Settings {
    KezService::RunnerSettings runner; // queue.path, queue.period, queue.keep, setaside.path
    QString archive;                   // archive.path
    QString ledger;                    // ledger.path
    QString lang;                      // lang; without it, the user's
    static Settings of(const Properties& properties);
};

/// Makes the paths in `properties` absolute. A relative one starts at `directory`.
void resolvePaths(Properties& properties, const QString& directory);

/// Checks the service's own keys; LoggerConfigController checks those of the log.
class IntakeConfigController : public IConfigController {
    Q_OBJECT

public:
    bool isLegalConfiguration(Properties* properties) override;
};

} // namespace intake
