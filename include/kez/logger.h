// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"
#include "loggerlevel.h"

#include <QIODevice>
#include <QString>

#include <atomic>
#include <cstdio>
#include <memory>
#include <optional>

class BannerScope;
class QFile;
class QJsonDocument;
class QJsonObject;
class QMutex;
class Properties;

/// One log destination: a ring of numbered files. The tee echoes every line to Qt's message output,
/// which also takes each line that the file cannot take.
///
///     app-0.log  app-1.log  app-2.log   the highest index is the newest, and the one written to
///     app-0.log <- app-1.log <- new     a full ring drops its oldest file and moves the others
///     down
///
/// A line is in the kernel, by one write, when the call that logs it returns. The logger leaves a
/// file before the line that would make it reach the size limit, and when it is as old as the age
/// limit.
///
/// A line that the file does not take (full disk, I/O error, the process's size limit) goes to Qt's
/// message output with the marker " [>>]", unless the tee has shown it already. The logger keeps
/// its file, and the next line that the file takes begins on a line of its own. If a rotation
/// fails, file logging ends: that line goes to Qt's message output with the text
/// "LogRotationFailure", and all later lines go there without a marker.
///
/// A ring with a gap (app-0.log, app-2.log) makes the rotation of a full ring fail. It comes from a
/// file that was deleted from outside, or from a rotation that failed. A logger that is built then,
/// and has to rotate at once, takes the failure's status for an index: it writes to a file with a
/// number such as 4294967293, outside the ring. To repair a ring, stop the program and rename the
/// files so that their indexes begin at 0 and none is missing.
///
/// One ring is for one logger and its copies. Two loggers on one ring, in one process or in two,
/// keep their lines whole. But when one of them rotates, the other one's next file is there
/// already, which ends the file logging of the other one. In a full ring each of them rotates, so
/// that files are dropped twice as fast.
///
/// The logger asks for the process's limit of file size when it opens a file, and again when a
/// write is cut short. If the limit is lowered below the file's size meanwhile, the next write
/// raises SIGXFSZ, which ends a process that does not ignore it.
///
/// *Threads*: any thread may write, change settings, close the logger and use its handles. Each
/// waits at most 300 ms for another one. After that a line goes to Qt's debug output instead of the
/// file, a banner mixes with the other one, toString() shows no file, and close() and the functions
/// of the handles do nothing; these report it on Qt's message output. A formatter or a message
/// handler that uses the logger whose line it is called for does not wait: all this happens to it
/// at once, except that toString() shows the file. The rotation functions take no lock: they are
/// for one thread, while no other thread uses the logger. The factories are for one thread at a
/// time.
/// *Owns*: its file. The stream of duplicatedDescriptor() outlives the logger.
/// *Fails*: the constructor and duplicateLogFile() throw Exception. A file that does not take a
/// line throws nothing. An exception of the formatter goes on to the caller; any other failure
/// while a line is written (memory exhaustion) is thrown as Exception. A message handler must not
/// throw: Qt ends the process.
class KEZ_EXPORT Logger {
public:
    /// A logger without a file: every line goes to Qt's message output.
    Logger();

    /// Opens the ring `<directory>/<base>-<n>.log` and goes on with its newest file.
    ///
    /// - `fileName`: directory and base name, with or without ".log". A name without "/" is in the
    ///   home directory. A relative directory is resolved here, once: the ring stays where it is
    ///   when the working directory changes.
    /// - `maxSize`: a file stays smaller than that many bytes; 0 means 1048576. A line that is not
    ///   smaller itself gets a file of its own.
    /// - `kept`: number of files; 0 means 5.
    /// - `timeout`: days after which a file is left. With 0, each line begins a new file.
    /// - `lineFormatter`: null means Logger::formatter.
    ///
    /// The tee is ON afterwards.
    ///
    /// If the directory cannot be listed since no descriptor is free, the newest file is searched
    /// by its index, from 0 upwards; the search ends where 65536 indexes in a row have no file.
    ///
    /// Throws Exception: DirAccessFailure, FileAppendFailure, FileCreatingFailure.
    Logger(const QString& fileName, quint64 maxSize, quint32 kept, quint32 timeout,
           LoggerLevel::LogLevel filter, LogFormatter lineFormatter = nullptr);

    /// Waits, without limit, for the line that another thread is writing. Then it closes the file,
    /// unless a copy of the logger that the facade made still uses it.
    ///
    /// A logger must not be destroyed by its own formatter, by a message handler that shows its
    /// line, or during a banner. A child process that was forked while another thread wrote must
    /// not destroy it (it leaves by _exit()): the lock stays locked there.
    ~Logger();

    Logger& operator=(const Logger&) = delete;

    /// A logger as the "log.*" and "banner.*" keys describe it; "log.filename" must be there. By
    /// default it has the filter warning, 10 files, 7 days, no tee, and a limit of 1 byte.
    ///
    /// With that limit each line begins a new file, as it does with "log.timeout=0" or any
    /// "log.maxsize" that is smaller than the lines. "warn" is the filter's name for warnings, and
    /// unknown names mean debug. "banner.title" applies only together with "banner.properties".
    /// All three are kept for compatibility. A "log.filename" without "/" is in the home directory.
    ///
    /// If the file cannot be opened, the message is printed and written to the process's default
    /// logger, and that logger is returned.
    ///
    /// Throws Exception: InvalidParameter for a number that does not parse or is out of range; "-1"
    /// is one, although LoggerConfigController passes it.
    static std::shared_ptr<Logger> buildLog(const Properties& properties);

    /// A logger as the objects in the array `"log"` describe it: "fileName", "maxSize", "timeout",
    /// "kept", "filter", "tee", "banner". Later objects override earlier ones; a member of another
    /// JSON type, or out of range, is ignored. By default it has the filter warning, 10 files,
    /// 7 days, no tee, and a limit of 1 MiB.
    ///
    /// Returns the process's default logger if there is no such array; also if the file cannot be
    /// opened or has no name, and then with a message.
    static std::shared_ptr<Logger> buildLog(const QJsonObject& json);

    /// The default formatter: "dd/MM/yyyy HH:mm:ss,zzz <LEVEL> message" in local time, the level as
    /// DEBUG, INFOR, WARNG, ERROR or FATAL.
    static void formatter(LoggerLevel::LogLevel level, const QString& msg, QString& out);

    /// Whether the calling thread is inside the log: it writes a line of some logger, or a logger
    /// reports something on Qt's message output. A message handler that logs asks this first; what
    /// reaches it then must go somewhere else.
    static bool isWritingLine();

    LoggerLevel::LogLevel filter() const;
    LogFormatter formatter() const;
    bool isTeeEnabled() const;

    /// What the factories stored for logBanner(): the title, and whether to list the configuration.
    QString bannerTitle() const;
    bool recordConfigurationData() const;

    /// The settings in eleven lines, for diagnostics.
    QString toString() const;

    /// Writes one line if `level` is at least the filter; otherwise costs one comparison.
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

    /// Writes a boxed title, the library's notice line and, padded on the right, the properties.
    /// `version` replaces "%1" in `title`; without a "%1", it follows the title after " v".
    ///
    /// The filter is info meanwhile, for other lines too. Banners of a logger and its copies are
    /// written one after the other.
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

    /// Returns the previous filter.
    LoggerLevel::LogLevel setFilter(LoggerLevel::LogLevel filter);

    /// Returns the previous formatter. Null resets to the default. Any other value changes nothing:
    /// a logger's own formatter is fixed when it is built. Kept for compatibility.
    LogFormatter setFormatter(LogFormatter lineFormatter);
    void enableTee();
    void disableTee();

    /// Closes the file and the duplicated stream. Later lines go to Qt's message output.
    void close();

    /// Opens a stdio stream ("r+") on a copy of the file's descriptor, closed on exec. If there is
    /// one already, makes it write to the current file. Does nothing if there is no file.
    ///
    /// Throws Exception with the system's error text, also after close().
    void duplicateLogFile();

    /// A second handle on the log file, for code that writes through stdio. It is null until the
    /// logger opens an existing file or rotates, or duplicateLogFile() is called. It follows the
    /// rotations: the same stream then writes to the new file. It is for writing, since each line
    /// moves the position that it would read from.
    ///
    /// While the logger lives, only close() and closeDuplicatedHandle() may close it. The
    /// destructor leaves it open: call one of the two before, or close it afterwards. A program
    /// that makes loggers again and again runs out of descriptors otherwise.
    FILE* duplicatedDescriptor() const;

    /// Closes that stream. The pointer is not reset: it must not be used afterwards.
    void closeDuplicatedHandle();

    /// Whether the current file is full or too old; false without a file. A file is too old if it
    /// was born `timeout` days ago or more. On a file system that records no birth, the time of the
    /// last change before the logger opened the file takes its place.
    bool needsRotate() const;

    /// The same; also true if `text` would make the file reach the size limit.
    bool needsRotate(const QString& text) const;

    /// Leaves the current file for the one after index `last`. Returns the new file's index, from
    /// which the next rotation goes on, or a negative status converted to unsigned: -1 the next
    /// file cannot be created, -2 the oldest cannot be deleted, -3 a rename failed (for instance at
    /// a gap in the ring), -4 the newest cannot be created, -5 there is no file name. After a
    /// failure there is no current file.
    unsigned int rotation(unsigned int last);

    /// The index to go on with after a start: that of the newest file, or 0 if there is none. If
    /// the newest file is full, rotates first and returns what rotation() returns.
    unsigned int lookForLastFile();

private:
    friend class BannerScope;
    friend class Log;
    struct KEZ_HIDDEN Ring;
    class KEZ_HIDDEN RingLock;

    KEZ_HIDDEN Logger(const Logger& other);

    KEZ_HIDDEN void openNewestFile();
    KEZ_HIDDEN unsigned int resumeAt(unsigned int newest);
    [[noreturn]] KEZ_HIDDEN void raiseOpenFailure(const char* key, unsigned int index) const;
    KEZ_HIDDEN void writeToFile(RingLock& lock, LoggerLevel::LogLevel level, QString& line,
                                bool isTeed);
    KEZ_HIDDEN void showLostLine(RingLock& lock, LoggerLevel::LogLevel level,
                                 const QString& line) const;
    KEZ_HIDDEN bool appendToFile(LoggerLevel::LogLevel level, QString& line);
    KEZ_HIDDEN QString ringFileName(unsigned int index) const;
    KEZ_HIDDEN QString shownFileName(unsigned int index) const;
    KEZ_HIDDEN bool openRingFile(unsigned int index, QIODevice::OpenMode mode);
    KEZ_HIDDEN bool openInPlaceOf(std::shared_ptr<QFile> before, unsigned int index);
    KEZ_HIDDEN unsigned int startRingFile(unsigned int index, std::shared_ptr<QFile> before,
                                          unsigned int statusOnFailure);
    KEZ_HIDDEN unsigned int shiftRing() const;
    KEZ_HIDDEN unsigned int resumeIndex(unsigned int newest);
    KEZ_HIDDEN std::optional<unsigned int> newestIndex() const;
    KEZ_HIDDEN std::optional<unsigned int> newestIndexTried() const;

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
