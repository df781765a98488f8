// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "support/files.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

/// A temporary directory of `.lang` files.
class BundleDirectory {
public:
    bool isValid() const { return _directory.isValid(); }
    QString path() const { return _directory.path(); }
    QString fileName(const QString& module, const QString& lang) const
    {
        return path() + QLatin1Char('/') + module + QLatin1Char('_') + lang +
               QStringLiteral(".lang");
    }

    /// Writes the file as given.
    bool writeRaw(const QString& module, const QString& lang, const QByteArray& bytes) const
    {
        return writeFile(fileName(module, lang), bytes);
    }

    /// Writes the header that belongs to the file, then `body`.
    bool write(const QString& module, const QString& lang, const QByteArray& body) const
    {
        const QString header = QStringLiteral("module=") + module + QStringLiteral(";lang=") + lang;
        return writeRaw(module, lang, header.toUtf8() + '\n' + body);
    }

    bool remove(const QString& module, const QString& lang) const
    {
        return QFile::remove(fileName(module, lang));
    }

private:
    QTemporaryDir _directory;
};
