// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "support/files.h"

#include <kez/service/filerunner.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <QTemporaryDir>

#include <chrono>
#include <map>
#include <mutex>

/// A spool in a temporary directory.
class Spool {
public:
    explicit Spool(const QString& parent = QDir::tempPath())
        : _directory(parent + QStringLiteral("/kez-spool-XXXXXX"))
    {
        QDir(_directory.path()).mkdir(QStringLiteral("spool"));
    }

    /// Where to put one that is written often: on a disk, each sync takes milliseconds.
    static QString fastParent()
    {
        const QString memory = QStringLiteral("/dev/shm");
        return QFileInfo(memory).isWritable() ? memory : QDir::tempPath();
    }

    QString path() const { return _directory.filePath(QStringLiteral("spool")); }
    QString pathOf(const QString& name) const { return path() + QLatin1Char('/') + name; }

    /// A path beside the spool.
    QString beside(const QString& name) const { return _directory.filePath(name); }

    /// Puts a file there as a producer should.
    bool put(const QString& name, const QByteArray& bytes = "order") const
    {
        const QString growing = _directory.filePath(QStringLiteral("growing"));
        return writeFile(growing, bytes) && QFile::rename(growing, pathOf(name));
    }

    bool putMany(int count) const
    {
        for (int i = 0; i < count; ++i) {
            if (!put(QStringLiteral("order-%1").arg(i, 6, 10, QLatin1Char('0'))))
                return false;
        }
        return true;
    }

    bool holds(const QString& name) const { return QFile::exists(pathOf(name)); }

    QStringList names() const { return QDir(path()).entryList(QDir::Files); }

    /// The names in the default quarantine, without the texts.
    QStringList quarantined() const
    {
        QStringList names =
            QDir(path() + QStringLiteral("/.kez/quarantine")).entryList(QDir::Files);
        names.removeIf([](const QString& name) { return name.endsWith(QLatin1String(".txt")); });
        return names;
    }

    QByteArray quarantineText(const QString& name) const
    {
        return readFile(path() + QStringLiteral("/.kez/quarantine/") + name +
                        QStringLiteral(".txt"));
    }

private:
    QTemporaryDir _directory;
};

/// What handlers were given, for any thread.
class Calls {
public:
    void note(const QString& name)
    {
        const std::lock_guard lock(_mutex);
        _names.append(name);
    }

    void forget(const QString& name)
    {
        const std::lock_guard lock(_mutex);
        _names.removeAll(name);
    }

    QStringList names() const
    {
        const std::lock_guard lock(_mutex);
        return _names;
    }

    qsizetype count() const { return names().size(); }
    qsizetype count(const QString& name) const { return names().count(name); }

private:
    mutable std::mutex _mutex;
    QStringList _names;
};

/// Retries after some milliseconds, so that tests need not wait.
inline KezService::HandlerSettings quickSettings()
{
    KezService::HandlerSettings settings;
    settings.firstPause = std::chrono::milliseconds(2);
    settings.longestPause = std::chrono::milliseconds(10);
    return settings;
}

inline KezService::RunnerSettings settingsFor(const Spool& spool)
{
    KezService::RunnerSettings settings;
    settings.spool = spool.path();
    return settings;
}
