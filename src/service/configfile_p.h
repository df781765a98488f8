// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/filestate_p.h"

#include <kez/dictionnary.h>

#include <QByteArray>
#include <QString>

#include <optional>

namespace KezService {

/// What is at a path: two equal ones mean that nothing has changed.
struct ConfigFileState {
    int error = 0; ///< why there is no file, as the system's error number
    bool isRegular = false;
    std::optional<FileState> file;

    friend bool operator==(const ConfigFileState&, const ConfigFileState&) = default;
};

ConfigFileState configFileStateOf(const QString& path);

/// What a configuration file holds, or why it cannot be read.
struct ConfigFile {
    ConfigFileState state;
    bool isStable = true; ///< whether nobody changed the file while it was read
    QString fault;        ///< empty if it was read
    Dictionnary entries;  ///< as Config::load() reads them, without "app.version"
};

/// Reads at most `maxSize` bytes; never waits for a fifo or a device.
ConfigFile readConfigFile(const QString& path, qint64 maxSize);

} // namespace KezService
