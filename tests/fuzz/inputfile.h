// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "support/files.h"

#include <kez/initlib.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

/// Ends the run as a finding unless `holds`.
inline void require(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "not so: %s\n", what);
    std::abort();
}

/// Sets the library up and silences what it prints for its users.
inline void prepare()
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    kezEnsureInit();
}

/// The bytes of one fuzz input, and of what is made of them, as files of a directory that is gone
/// with the process.
class InputDirectory {
public:
    static QString path(const QString& name)
    {
        static const QTemporaryDir directory;
        return directory.filePath(name);
    }

    /// Writes the file and returns its path.
    static QString write(const QString& name, const QByteArray& content)
    {
        const QString file = path(name);
        QFile::remove(file); // some file systems flush a file that is emptied and written again
        require(writeFile(file, content), "the input can be written");
        return file;
    }
};

inline QByteArray inputBytes(const std::uint8_t* data, std::size_t size)
{
    return QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
}
