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

/// Makes the paths absolute (a relative one starts at `directory`) and the language that of the
/// configuration; then checks the service's own keys. LoggerConfigController comes after it.
class IntakeConfigController : public IConfigController {
    Q_OBJECT

public:
    explicit IntakeConfigController(const QString& directory) : _directory(directory) {}
    bool isLegalConfiguration(Properties* properties) override;

private:
    QString _directory;
};

} // namespace intake
