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

    /// What follows the last "/", else the last "\"; without either, the path.
    ///
    ///     a/b/c.txt -> c.txt    c:\x\y -> y    plain -> plain    dir/ -> (empty)
    static QString fileName(const QString& path);

    /// Eleven characters: "l" for a symbolic link, "d" for a directory or "f", and what the user
    /// who runs the process, the group and the others may do: "-frw-r--r--".
    ///
    /// Throws Exception: FileDoesntExist.
    static QString permissionsMask(const QFileInfo& info);

    /// When the file was born, last modified and last read, in the locale's short format. Birth is
    /// empty on a file system that does not record it.
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

    /// The free bytes on the volume of a file or directory; of a link to a file, where the link is.
    ///
    /// Throws Exception: FileDoesntExist, NotFileOrDir.
    static quint64 freeSpace(const QString& path);

    /// Removes the subdirectories of a directory with all they hold, and fails at the first entry
    /// that is anything else: callers rely on plain files never being removed. Hidden entries are
    /// left alone; a symbolic link is never followed. What was removed before a failure stays
    /// removed.
    ///
    /// Throws Exception: DirDoesnExist, FileIsntDirectory, DirNotReadable (for a directory that
    /// cannot be written), CannotDeleteSubdir, CannotDeleteFile, both naming the directory.
    static void cleanDirectory(const QString& path);

    /// Loads a dynamic library, which stays loaded. What is neither a file nor a directory counts
    /// as not readable.
    ///
    /// Throws Exception: FileNotReadable, LibLoadingFailure with the loader's text.
    static void loadLibrary(const QString& path);

    /// Reads a properties file as Properties::loadProperties does, but for a key that comes again:
    /// its last value counts.
    ///
    /// Throws Exception: FileDoesntExist, FileNotReadable, FileNotWritable (for a file that cannot
    /// be opened).
    static Dictionnary loadProperties(const QString& path, qint64 maxLineLength = 0);
};
