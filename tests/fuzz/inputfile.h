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

/// Ends the run as a finding if `holds` is false.
inline void require(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "not so: %s\n", what);
    std::abort();
}

/// Sets the library up and silences its messages.
inline void prepare()
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    kezEnsureInit();
}

/// A directory for the input and for what is made of it, which is removed when the process ends.
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
