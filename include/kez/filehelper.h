// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "dictionnary.h"
#include "kez_global.h"

#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QStorageInfo>
#include <QString>

class QTextStream;

/// Functions about files and directories.
///
/// *Threads*: any thread.
/// *Owns*: nothing.
/// *Fails*: throws Exception, as said at each function.
class KEZ_EXPORT FileHelper {
public:
    FileHelper() = delete;

    static bool canRead(const QString& path);
    static bool canRead(const QFile& file);
    static bool canWrite(const QString& path);
    static bool canWrite(const QFile& file);
    static bool canExec(const QString& path);
    static bool canExec(const QFile& file);

    /// What follows the last "/"; without "/", what follows the last "\"; without either, the path.
    ///
    ///     a/b/c.txt -> c.txt    c:\x\y -> y    plain -> plain    dir/ -> (empty)
    static QString fileName(const QString& path);

    /// Eleven characters, such as "-frw-r--r--": "l" for a symbolic link or "-", "d" for a
    /// directory or "f", then what the user who runs the process, the group and others may do.
    ///
    /// Throws Exception: FileDoesntExist.
    static QString permissionsMask(const QFileInfo& info);

    /// When the file was created, last modified and last read, in the locale's short format. The
    /// first is empty on a file system that does not record it.
    ///
    /// Throw Exception: FileDoesntExist.
    static QString createdToString(const QFileInfo& info, QLocale locale = QLocale());
    static QString updatedToString(const QFileInfo& info, QLocale locale = QLocale());
    static QString readToString(const QFileInfo& info, QLocale locale = QLocale());

    /// A listing line: permissionsMask(), owner, group, size in bytes, updatedToString(), name.
    ///
    /// Throws Exception: FileDoesntExist.
    static QString toConsole(const QFileInfo& info, QLocale locale = QLocale());

    /// Writes the boxed caption, the library's copyright line and an empty line.
    static void writeCaption(const QString& caption, QTextStream& stream);

    /// The volume of a directory. Throws Exception: NotDirectory.
    static QStorageInfo device(const QString& path);

    /// The free bytes on the volume of a file or directory; for a link to a file, on the volume
    /// that the link is on.
    ///
    /// Throws Exception: FileDoesntExist, NotFileOrDir.
    static quint64 freeSpace(const QString& path);

    /// Removes the subdirectories of a directory with everything in them, and then fails at the
    /// first other entry: plain files are never removed, which is kept for compatibility. Hidden
    /// entries are left alone, and no symbolic link is followed. What was removed before a failure
    /// stays removed.
    ///
    /// Throws Exception: DirDoesnExist, FileIsntDirectory, DirNotReadable (for a directory that
    /// cannot be written), CannotDeleteSubdir and CannotDeleteFile, which both name the directory.
    static void cleanDirectory(const QString& path);

    /// Loads a dynamic library, which stays loaded. A relative path, with or without "/", starts at
    /// the working directory: neither the system's directories nor other names are searched. Links
    /// are followed. A fifo, a socket, a device or a Qt resource is not opened and counts as not
    /// readable; a directory is given to the loader, which refuses it.
    ///
    /// Throws Exception: FileNotReadable, LibLoadingFailure with the loader's text.
    static void loadLibrary(const QString& path);

    /// Reads a properties file as Properties::loadProperties does, except that a key may come more
    /// than once: its last value counts.
    ///
    /// Throws Exception: FileDoesntExist, FileNotReadable, FileNotWritable (for a file that cannot
    /// be opened).
    static Dictionnary loadProperties(const QString& path, qint64 maxLineLength = 0);
};
