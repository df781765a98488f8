// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"
#include "logger.h"
#include "loggerlevel.h"

#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

class Properties;

/// The process's logging: one default logger and further loggers by name.
///
/// *Threads*: any thread may log, and several threads that call initInstance() or getInstance() at
/// once get one instance. The constructors, the destructor and the functions that add or remove
/// named loggers are for one thread, at start-up and shut-down.
/// *Owns*: a share of its loggers.
/// *Fails*: the level methods throw Exception (LogNotInitialized) without a default logger; the
/// constructor with a file name throws as Logger's does.
class KEZ_EXPORT Log : public QObject {
    Q_OBJECT

public:
    /// Each constructor makes the new object the process's instance. The previous one is not
    /// destroyed. `tee` replaces the logger's own start value.
    Log();
    Log(const QString& fileName, bool tee, quint64 maxSize, quint32 kept, quint32 timeout,
        LoggerLevel::LogLevel filter, LogFormatter lineFormatter = nullptr);

    /// The default logger becomes a copy of `logger`: both write the same files, under the same
    /// lock, and follow each other's rotations. Settings changed later are each one's own.
    explicit Log(Logger& logger);

    /// If this was the process's instance, there is none afterwards.
    ~Log() override;

    /// The instance. If there is none, the constructor with the same arguments makes it; otherwise
    /// the arguments are ignored, the file name too. Call it before anything that logs: the first
    /// getInstance() makes an instance without a file, and Translator::setDefaultLang() and
    /// Logger::buildLog() call it.
    static Log* initInstance(const QString& fileName, bool tee, quint64 maxSize, quint32 kept,
                             quint32 timeout, LoggerLevel::LogLevel filter,
                             LogFormatter lineFormatter = nullptr);
    static Log* initInstance(Logger& logger);
    static Log* initInstance();

    /// Never null: if there is no instance, makes one that logs to Qt's message output. A message
    /// handler that calls it while the instance is being made gets such a one of its own.
    static Log* getInstance();

    /// The language codes of the bundles that are compiled in below ":resources/lang": "en_US",
    /// "fr_FR". An application's files there are listed too, whatever their module.
    static QStringList languages();

    /// The default logger.
    std::shared_ptr<Logger> log() const;
    std::shared_ptr<Logger> logger() const;

    /// The logger registered under `name`, or the default logger.
    std::shared_ptr<Logger> logger(const QString& name) const;
    bool containsLogger(const QString& name) const;

    /// The default logger's settings, as in Logger.
    LoggerLevel::LogLevel filter() const;
    LogFormatter formatter() const;
    bool isTeeEnabled() const;
    LoggerLevel::LogLevel setFilter(LoggerLevel::LogLevel filter);
    LogFormatter setFormatter(LogFormatter lineFormatter);
    void enableTee();
    void disableTee();

    /// Log through the default logger; `const char*` is UTF-8. critical() writes at level error.
    void debug(const QString& msg);
    void debug(const char* msg);
    void info(const QString& msg);
    void info(const char* msg);
    void warning(const QString& msg);
    void warning(const char* msg);
    void critical(const QString& msg);
    void critical(const char* msg);
    void fatal(const QString& msg);
    void fatal(const char* msg);

    /// The default logger's banner, as in Logger.
    void logBanner(const QString& title, const QString& version,
                   const Properties* properties = nullptr);
    void logBanner(const QString& title, const QString& version, const QMap<QString, QString>* map);

    /// Registers a logger; false when the name is empty or taken. The name has three g's, kept
    /// for compatibility.
    bool insertLoggger(const QString& name, std::shared_ptr<Logger> logger);

    /// Removes a named logger and returns it; an empty pointer when there is none.
    std::shared_ptr<Logger> removeLogger(const QString& name);

private:
    KEZ_HIDDEN void write(const char* signature, LoggerLevel::LogLevel level, const char* msg);
    KEZ_HIDDEN Logger& defaultLogger(const char* signature) const;

    std::shared_ptr<Logger> _spLogger;
    QMap<QString, std::shared_ptr<Logger>> _loggers;
};
