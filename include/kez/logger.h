// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"
#include "loggerlevel.h"

#include <QIODevice>
#include <QList>
#include <QString>

#include <atomic>
#include <cstdio>
#include <memory>

class QJsonDocument;
class QJsonObject;
class QMutex;
class Properties;

/// One log destination: a ring of numbered files, with an optional echo of every line to Qt's
/// message output ("tee"), and that output as the fall-back whenever the file cannot take a line.
///
///     app-0.log  app-1.log  app-2.log   the highest index is the newest, and the one written to
///     app-0.log <- app-1.log <- new     a full ring drops its oldest file and moves the others
///     down
///
/// A line is in the kernel, by one write, when the call that logs it returns. A file is left before
/// the line that would make it reach the size limit, and once it is as old as the age limit.
///
/// A line that the file does not take (full disk, I/O error, the process's size limit) goes to Qt's
/// message output with the marker " [>>]", unless the tee has shown it already; the logger keeps
/// its file, and the next line that the file takes begins on a line of its own. After a rotation
/// that failed, the line goes there with the text "LogRotationFailure", and so do all later ones,
/// plainly.
///
/// The process's limit of file size is learnt when a file is opened, and again when a write is cut
/// short. Lowered in between to less than the file holds already, it ends the process by its
/// signal, unless the process ignores SIGXFSZ.
///
/// *Threads*: any thread may write and change settings. A writer waits at most 300 ms for another
/// one; then its line goes to Qt's debug output instead of the file. close(), the file handles and
/// the rotation functions are for one thread, while nobody writes.
/// *Owns*: its file. The stream of duplicatedDescriptor() outlives the logger.
/// *Fails*: the constructor and duplicateLogFile() throw Exception. A file that does not take a
/// line is never thrown; what a formatter throws passes, and what else goes wrong while a line is
/// written (memory exhaustion) is thrown as Exception.
class KEZ_EXPORT Logger {
public:
    /// A logger without a file: every line goes to Qt's message output.
    Logger();

    /// Opens the ring `<directory>/<base>-<n>.log` and goes on with its newest file.
    ///
    /// `fileName`: directory and base name, with or without ".log"; in the home directory when it
    /// holds no "/".
    /// `maxSize`: bytes that no file reaches; 0 means 1048576.
    /// `kept`: number of files; 0 means 5.
    /// `timeout`: days after which a file is left; 0 means before every line.
    /// `lineFormatter`: null means Logger::formatter.
    ///
    /// The tee is ON afterwards.
    ///
    /// Throws Exception: DirAccessFailure, FileAppendFailure, FileCreatingFailure.
    Logger(const QString& fileName, quint64 maxSize, quint32 kept, quint32 timeout,
           LoggerLevel::LogLevel filter, LogFormatter lineFormatter = nullptr);

    /// Closes the file, unless a copy of the logger that the facade made still writes to it.
    ~Logger();

    Logger& operator=(const Logger&) = delete;

    /// A logger as the "log.*" and "banner.*" keys describe it; "log.filename" must be there.
    ///
    /// Without "log.maxsize" the limit is 1 byte, a new file before every line. "warn" is the
    /// filter's name for warnings, unknown names mean debug. "banner.title" only counts together
    /// with "banner.properties". Callers rely on all three.
    ///
    /// When the file cannot be opened, the message is printed, written to the process's default
    /// logger, and that logger is returned.
    ///
    /// Throws Exception: InvalidParameter for a number that does not parse.
    static std::shared_ptr<Logger> buildLog(const Properties& properties);

    /// A logger as the objects in the array `"log"` describe it, later ones overriding earlier
    /// ones: "fileName", "maxSize", "timeout", "kept", "filter", "tee", "banner". A member of
    /// another JSON type, or out of range, is ignored. The process's default logger when there is
    /// no such array, and, with a message, when the file cannot be opened or is not named.
    static std::shared_ptr<Logger> buildLog(const QJsonObject& json);

    /// The default formatter: "dd/MM/yyyy HH:mm:ss,zzz <LEVEL> message" in local time, the level as
    /// DEBUG, INFOR, WARNG, ERROR or FATAL.
    static void formatter(LoggerLevel::LogLevel level, const QString& msg, QString& out);

    LoggerLevel::LogLevel filter() const;
    LogFormatter formatter() const;
    bool isTeeEnabled() const;

    /// What the factories stored for logBanner(): the title, and whether to list the configuration.
    QString bannerTitle() const;
    bool recordConfigurationData() const;

    /// The settings in eleven lines, for diagnostics.
    QString toString() const;

    /// Writes one line when `level` is at least the filter; otherwise costs one comparison.
    void writeTrace(LoggerLevel::LogLevel level, const QString& msg);

    /// writeTrace() at the level of the same name; critical() at the level error. A fatal line that
    /// reaches Qt's message output, by the tee for instance, ends the process.
    void debug(const QString& msg);
    void info(const QString& msg);
    void warning(const QString& msg);
    void critical(const QString& msg);
    void fatal(const QString& msg);

    /// Sends a formatted line to Qt's message output, as a debug, info, warning, critical or fatal
    /// message of the category "default".
    void writeConsole(LoggerLevel::LogLevel level, const QString& line) const;

    /// Writes a boxed title, the library's notice line and, padded on the right, the properties,
    /// whatever the filter. `version` replaces "%1" in `title`, or follows it after " v".
    ///
    ///     +----------+
    ///     | App v1.2 |
    ///     +----------+
    ///     (c) Vandrel
    ///     a        = 1
    ///     long.key = 2
    void logBanner(const QString& title, const QString& version,
                   const Properties* properties = nullptr);

    /// The same with an indented JSON document after its caption, one record per line.
    void logBanner(const QString& title, const QString& version, const QJsonDocument* json);

    /// Returns the filter before.
    LoggerLevel::LogLevel setFilter(LoggerLevel::LogLevel filter);

    /// Returns the formatter before. Null resets to the default; any other value changes nothing:
    /// a logger's own formatter is fixed when it is built, and callers rely on that.
    LogFormatter setFormatter(LogFormatter lineFormatter);
    void enableTee();
    void disableTee();

    /// Closes the file and the duplicated stream. Later lines go to Qt's message output.
    void close();

    /// Opens a stdio stream ("r+") on a copy of the file's descriptor, closed on exec; when there
    /// is one already, makes it write to the current file. Does nothing without a file.
    ///
    /// Throws Exception with the system's error text.
    void duplicateLogFile();

    /// A second handle on the log file, for code that writes through stdio; null until the logger
    /// opened an existing file, rotated, or was asked by duplicateLogFile(). It follows the
    /// rotations: the same stream then writes to the new file. It is for writing: each line moves
    /// the position that it would read from.
    ///
    /// While the logger lives, only close() and closeDuplicatedHandle() may close it; afterwards
    /// its holder does.
    FILE* duplicatedDescriptor() const;

    /// Closes that stream. The pointer is not reset: it must not be used afterwards.
    void closeDuplicatedHandle();

    /// Whether the current file is full or too old; false without a file. Too old means: born
    /// `timeout` days ago or more; on a file system that records no birth, last modified then when
    /// it was opened.
    bool needsRotate() const;

    /// The same, or whether `text` would make the file reach the size limit.
    bool needsRotate(const QString& text) const;

    /// Leaves the current file for the one after index `last`. Returns the new file's index, or a
    /// negative status converted to unsigned: -1 the next file cannot be created, -2 the oldest
    /// cannot be deleted, -3 a rename failed, -4 the newest cannot be created, -5 no file name.
    unsigned int rotation(unsigned int last);

    /// The index to go on with after a start: the newest file's, after a rotation if it is full.
    unsigned int lookForLastFile();

private:
    friend class Log;
    struct Ring;

    Logger(const Logger& other);

    void openNewestFile();
    bool appendToFile(LoggerLevel::LogLevel level, QString& line);
    QString ringFileName(unsigned int index) const;
    bool openRingFile(unsigned int index, QIODevice::OpenMode mode);
    unsigned int startRingFile(unsigned int index, unsigned int statusOnFailure);
    unsigned int shiftRing() const;
    QList<unsigned int> indexesDownwards() const;
    bool isTooOldOrReaches(qint64 extraBytes) const;

    std::atomic<LogFormatter> _formatter;
    std::shared_ptr<QString> _spFileName;
    quint64 _maxSize = 0;
    quint32 _timeout = 0;
    quint32 _kept = 0;
    std::atomic<bool> _tee = true;
    std::atomic<LoggerLevel::LogLevel> _filter = LoggerLevel::debug;
    std::shared_ptr<QMutex> _spMutex;
    QString _bannerTitle;
    bool _recordConfigurationData = false;

    std::shared_ptr<Ring> _spRing; // what a logger and its copies share, guarded by the mutex
};
