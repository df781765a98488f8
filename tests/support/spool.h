// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "support/files.h"

#include <QDir>
#include <QStringList>
#include <QTemporaryDir>

#include <sys/stat.h>

/// A queue's directory below a temporary one, which is for the sources.
class Spool {
public:
    Spool() { QDir(_directory.path()).mkdir(QStringLiteral("spool")); }

    bool isValid() const { return QDir(path()).exists(); }
    QString path() const { return _directory.filePath(QStringLiteral("spool")); }
    QString path(const QString& name) const { return path() + QLatin1Char('/') + name; }
    QString incoming() const { return path(QStringLiteral(".kez/incoming")); }

    /// A path beside the queue's directory.
    QString beside(const QString& name) const { return _directory.filePath(name); }

    /// What a queue sees; also what it would not take.
    QStringList visible() const
    {
        return QDir(path()).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    }
    QByteArray content(const QString& name) const { return readFile(path(name)); }

    /// What grows there, or was left there.
    QStringList growing() const
    {
        return QDir(incoming())
            .entryList(QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot);
    }

    static mode_t modeOf(const QString& path)
    {
        struct stat info {};
        return ::lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
    }

private:
    QTemporaryDir _directory;
};
