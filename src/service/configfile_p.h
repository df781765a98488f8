// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <kez/dictionnary.h>

#include <QByteArray>
#include <QString>

#include <cstdint>

namespace KezService {

/// What tells a file from another one, and from itself before a change.
struct FileState {
    int error = 0; ///< why there is no file, as the system's error number
    bool isRegular = false;
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::int64_t size = 0;
    std::int64_t modified = 0; ///< nanoseconds
    std::int64_t changed = 0;  ///< nanoseconds; also of its rights and names

    friend bool operator==(const FileState&, const FileState&) = default;
};

FileState fileStateOf(const QString& path);

/// What a configuration file holds, or why it cannot be read.
struct ConfigFile {
    FileState state;
    bool isStable = true; ///< whether nobody changed the file while it was read
    QString fault;        ///< empty if it was read
    Dictionnary entries;  ///< as Config::load() reads them, without "app.version"
};

/// Reads at most `maxSize` bytes; never waits for a fifo or a device.
ConfigFile readConfigFile(const QString& path, qint64 maxSize);

} // namespace KezService
