// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "support/files.h"

#include <kez/FilesQueue.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QStringList>
#include <QTemporaryDir>

#include <sys/stat.h>
#include <unistd.h>

/// A directory for a queue, and the ways to make, change and remove its files.
class QueueDirectory {
public:
    /// `suffix` becomes part of the directory's name.
    explicit QueueDirectory(const QString& suffix = QString(),
                            const QString& parent = QDir::tempPath())
        : _directory(parent + QStringLiteral("/queue-XXXXXX") + suffix)
    {}

    /// A place where many files cost little: in memory, if the system has one.
    static QString fastParent()
    {
        const QString memory = QStringLiteral("/dev/shm");
        return QFileInfo(memory).isWritable() ? memory : QDir::tempPath();
    }

    QString path() const { return _directory.path(); }
    QString filePath(const QString& name) const { return path() + QLatin1Char('/') + name; }
    bool exists(const QString& name) const { return QFile::exists(filePath(name)); }

    /// All names in the directory, hidden and special files included, in name order.
    QStringList names() const
    {
        return QDir(path()).entryList(
            QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    }

    bool create(const QString& name, const QByteArray& content = "content") const
    {
        return writeFile(filePath(name), content);
    }
    bool createAll(const QStringList& names) const
    {
        bool done = true;
        for (const QString& name : names)
            done = create(name) && done;
        return done;
    }

    /// Makes a file as a producer does: under a hidden name, then renamed. An earlier file of that
    /// name is replaced.
    bool deliver(const QString& name, const QByteArray& content = "content") const
    {
        const QString hidden = QLatin1Char('.') + name;
        return create(hidden, content) && rename(hidden, name);
    }
    bool rename(const QString& from, const QString& to) const
    {
        return ::rename(native(from), native(to)) == 0;
    }
    QByteArray content(const QString& name) const { return readFile(filePath(name)); }

    bool remove(const QString& name) const { return ::unlink(native(name)) == 0; }
    bool makeDirectory(const QString& name) const { return ::mkdir(native(name), 0755) == 0; }
    bool makeFifo(const QString& name) const { return ::mkfifo(native(name), 0666) == 0; }
    bool makeLink(const QString& name, const QString& target) const
    {
        return ::symlink(QFile::encodeName(target).constData(), native(name)) == 0;
    }
    bool setMode(const QString& name, mode_t mode) const
    {
        return ::chmod(native(name), mode) == 0;
    }
    bool setOwnMode(mode_t mode) const
    {
        return ::chmod(QFile::encodeName(path()).constData(), mode) == 0;
    }

private:
    /// A path for the system. It is valid until the next call but one.
    const char* native(const QString& name) const
    {
        static thread_local QByteArray paths[2];
        static thread_local int turn = 0;
        turn = 1 - turn;
        paths[turn] = QFile::encodeName(filePath(name));
        return paths[turn].constData();
    }

    QTemporaryDir _directory;
};

/// The names in a queue, found by its queries alone: those of `candidates` that it has, in its
/// order.
/// "?" stands for any other name.
inline QStringList queuedNames(const FilesQueue& queue, const QStringList& candidates)
{
    QStringList result(queue.size(), QStringLiteral("?"));
    for (const QString& name : candidates) {
        const int position = queue.fileIndex(name);
        if (position >= 0 && position < result.size())
            result[position] = name;
    }
    return result;
}

/// While it lives, `path` is the process's working directory.
class WorkingDirectory {
public:
    explicit WorkingDirectory(const QString& path) : _isSet(QDir::setCurrent(path)) {}
    ~WorkingDirectory() { QDir::setCurrent(_before); }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

    bool isSet() const { return _isSet; }

private:
    QString _before = QDir::currentPath();
    bool _isSet;
};

/// The first trace of every re-scan.
inline QString listingTrace(int listed)
{
    return QStringLiteral(
               "> directoryChanged : Répertoire de la file d'attente modifié (%1 fichiers)")
        .arg(listed);
}

/// The last trace of every re-scan.
inline QString summaryTrace(int appended, int deleted, int consumed, int size)
{
    return QStringLiteral("> directoryChanged : Ajoutés = %1, Supprimés = %2, consommés = %3, "
                          "taille de la file = %4")
        .arg(appended)
        .arg(deleted)
        .arg(consumed)
        .arg(size);
}

inline QString rejectionTrace(const QString& name)
{
    return QStringLiteral("onDirectoryChanged> Rejet du fichier ") + name + QStringLiteral("...");
}
