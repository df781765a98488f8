// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "support/files.h"

#include <kez/loggerlevel.h>

#include <QByteArrayList>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <QTemporaryDir>

/// The lines without their ends. What follows the last line end is a line too.
inline QByteArrayList linesIn(const QByteArray& bytes)
{
    QByteArrayList lines = bytes.split('\n');
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

/// A temporary directory for the ring "app-<n>.log".
class LogRing {
public:
    bool isValid() const { return _dir.isValid(); }
    QString path() const { return _dir.path(); }

    /// What a logger takes as its file name.
    QString name() const { return _dir.filePath(QStringLiteral("app")); }
    QString file(uint index) const { return name() + QStringLiteral("-%1.log").arg(index); }
    bool has(uint index) const { return QFileInfo::exists(file(index)); }
    QByteArray bytes(uint index) const { return readFile(file(index)); }
    QByteArrayList lines(uint index) const { return linesIn(bytes(index)); }
    bool put(uint index, const QByteArray& bytes) const { return writeFile(file(index), bytes); }
    bool append(uint index, const QByteArray& bytes) const
    {
        QFile log(file(index));
        return log.open(QIODevice::WriteOnly | QIODevice::Append) &&
               log.write(bytes) == bytes.size() && log.flush();
    }

    /// All names in the directory, hidden ones included.
    QStringList names() const
    {
        return QDir(path()).entryList(
            QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    }

    /// The lines of all ring files, oldest first.
    QByteArrayList allLines(uint kept) const
    {
        QByteArrayList lines;
        for (uint i = 0; i < kept; ++i)
            if (has(i))
                lines += this->lines(i);
        return lines;
    }

private:
    QTemporaryDir _dir;
};

/// A formatter whose line is the message alone, so that sizes are known to the byte. It copies the
/// characters: ThreadSanitizer does not see that Qt counts the users of a shared text atomically.
inline void plainFormatter(LoggerLevel::LogLevel, const QString& msg, QString& out)
{
    out.setUnicode(msg.constData(), msg.size());
}

/// A formatter that puts the number of the level and a colon before the message.
inline void levelFormatter(LoggerLevel::LogLevel level, const QString& msg, QString& out)
{
    out = QString::number(level) + QLatin1Char(':') + msg;
}
