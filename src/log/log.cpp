// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/log.h"
#include "frame/failure_p.h"
#include "kez/properties.h"

#include <QDir>

#include <atomic>
#include <mutex>

namespace {

constinit std::atomic<Log*> currentInstance = nullptr;

// Recursive: a message handler may ask for the instance while its own thread makes it.
constinit std::recursive_mutex creation;

/// The instance. If there is none, `make` makes it, and only once for threads that ask together.
template <typename Make>
Log* instanceOr(Make make)
{
    if (Log* const instance = currentInstance)
        return instance;
    const std::lock_guard<std::recursive_mutex> lock(creation);
    Log* const instance = currentInstance;
    return instance ? instance : make();
}

} // namespace

Log::Log() : _spLogger(std::make_shared<Logger>())
{
    currentInstance = this;
}

Log::Log(const QString& fileName, bool tee, quint64 maxSize, quint32 kept, quint32 timeout,
         LoggerLevel::LogLevel filter, LogFormatter lineFormatter)
    : _spLogger(std::make_shared<Logger>(fileName, maxSize, kept, timeout, filter, lineFormatter))
{
    if (tee)
        _spLogger->enableTee();
    else
        _spLogger->disableTee();
    currentInstance = this;
}

Log::Log(Logger& logger) : _spLogger(new Logger(logger))
{
    currentInstance = this;
}

Log::~Log()
{
    Log* self = this;
    currentInstance.compare_exchange_strong(self, nullptr);
}

Log* Log::initInstance(const QString& fileName, bool tee, quint64 maxSize, quint32 kept,
                       quint32 timeout, LoggerLevel::LogLevel filter, LogFormatter lineFormatter)
{
    return instanceOr(
        [&] { return new Log(fileName, tee, maxSize, kept, timeout, filter, lineFormatter); });
}

Log* Log::initInstance(Logger& logger)
{
    return instanceOr([&] { return new Log(logger); });
}

Log* Log::initInstance()
{
    return instanceOr([] { return new Log; });
}

Log* Log::getInstance()
{
    return initInstance();
}

QStringList Log::languages()
{
    QStringList codes;
    const QDir bundles(QStringLiteral(":resources/lang/"));
    for (const QString& name : bundles.entryList({QStringLiteral("*.lang")})) {
        const QString base = name.left(name.lastIndexOf(QLatin1Char('.')));
        codes.append(base.sliced(base.indexOf(QLatin1Char('_')) + 1));
    }
    return codes;
}

std::shared_ptr<Logger> Log::log() const
{
    return _spLogger;
}

std::shared_ptr<Logger> Log::logger() const
{
    return _spLogger;
}

std::shared_ptr<Logger> Log::logger(const QString& name) const
{
    return _loggers.value(name, _spLogger);
}

bool Log::containsLogger(const QString& name) const
{
    return _loggers.contains(name);
}

LoggerLevel::LogLevel Log::filter() const
{
    return _spLogger->filter();
}

LogFormatter Log::formatter() const
{
    return _spLogger->formatter();
}

bool Log::isTeeEnabled() const
{
    return _spLogger->isTeeEnabled();
}

LoggerLevel::LogLevel Log::setFilter(LoggerLevel::LogLevel filter)
{
    return _spLogger->setFilter(filter);
}

LogFormatter Log::setFormatter(LogFormatter lineFormatter)
{
    return _spLogger->setFormatter(lineFormatter);
}

void Log::enableTee()
{
    _spLogger->enableTee();
}

void Log::disableTee()
{
    _spLogger->disableTee();
}

void Log::debug(const QString& msg)
{
    defaultLogger("void Log::debug(QString&)").debug(msg);
}

void Log::debug(const char* msg)
{
    write("void Log::debug(const char*)", LoggerLevel::debug, msg);
}

void Log::info(const QString& msg)
{
    defaultLogger("void Log::info(QString&)").info(msg);
}

void Log::info(const char* msg)
{
    write("void Log::info(const char*)", LoggerLevel::info, msg);
}

void Log::warning(const QString& msg)
{
    defaultLogger("void Log::warning(QString&)").warning(msg);
}

void Log::warning(const char* msg)
{
    write("void Log::warning(const char*)", LoggerLevel::warning, msg);
}

void Log::critical(const QString& msg)
{
    defaultLogger("void Log::critical(QString&)").critical(msg);
}

void Log::critical(const char* msg)
{
    write("void Log::critical(const char*)", LoggerLevel::error, msg);
}

void Log::fatal(const QString& msg)
{
    defaultLogger("void Log::fatal(QString&)").fatal(msg);
}

void Log::fatal(const char* msg)
{
    write("void Log::fatal(const char*)", LoggerLevel::fatal, msg);
}

void Log::logBanner(const QString& title, const QString& version, const Properties* properties)
{
    _spLogger->logBanner(title, version, properties);
}

void Log::logBanner(const QString& title, const QString& version, const QMap<QString, QString>* map)
{
    if (map) {
        const Properties properties(*map);
        logBanner(title, version, &properties);
    } else {
        logBanner(title, version, static_cast<const Properties*>(nullptr));
    }
}

bool Log::insertLoggger(const QString& name, std::shared_ptr<Logger> logger)
{
    if (name.isEmpty() || _loggers.contains(name))
        return false;
    _loggers.insert(name, logger);
    return true;
}

std::shared_ptr<Logger> Log::removeLogger(const QString& name)
{
    return _loggers.take(name);
}

/// Does not decode a text that the filter drops.
void Log::write(const char* signature, LoggerLevel::LogLevel level, const char* msg)
{
    Logger& logger = defaultLogger(signature);
    if (level >= logger.filter())
        logger.writeTrace(level, QString::fromUtf8(msg));
}

/// The logger behind the level methods, which `signature` names.
Logger& Log::defaultLogger(const char* signature) const
{
    if (!_spLogger)
        Failure::raise(signature, Failure::libraryMessage("LogNotInitialized"));
    return *_spLogger;
}
