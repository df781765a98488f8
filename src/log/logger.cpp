// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/logger.h"
#include "frame/directories_p.h"
#include "frame/failure_p.h"
#include "frame/qtmessage_p.h"
#include "log/loggerkeys_p.h"
#include "log/logline_p.h"
#include "log/logring_p.h"
#include "log/ringname_p.h"

#include <QDebug>
#include <QFile>
#include <QMutex>
#include <QScopedValueRollback>

namespace {

constexpr const char* ConstructorSignature =
    "Logger::Logger(const QString&, quint64, quint32, quint32, LogLevel, LogFormatter)";

LogFormatter orDefault(LogFormatter formatter)
{
    return formatter ? formatter : static_cast<LogFormatter>(&Logger::formatter);
}

/// The ring's pattern as given. Throws if its directory cannot be used.
QString checkedPattern(const QString& fileName)
{
    const QString directory = RingName::directory(fileName);
    const QString checked = directory.isEmpty() ? QStringLiteral("/") : directory;
    if (!isUsableDirectory(checked))
        Failure::raise(ConstructorSignature, Failure::message("DirAccessFailure", checked));
    return RingName::pattern(fileName);
}

/// Whether this thread formats a line that did not get the lock.
constinit thread_local bool isDegrading = false;

/// Shows a line whose thread did not get the lock.
void showDegraded(LogFormatter formatter, LoggerLevel::LogLevel level, const QString& msg)
{
    // A formatter that logs comes here again for its own line; the default one ends this.
    const LogFormatter used = isDegrading ? orDefault(nullptr) : formatter;
    QString line;
    {
        const QScopedValueRollback<bool> degrading(isDegrading, true);
        used(level, msg, line);
    }
    qtMessages().debug().noquote().nospace() << "Logger::writeTrace DEADLOCK >> stdout - " << line;
}

} // namespace

Logger::Logger()
    : _formatter(orDefault(nullptr)),
      _spMutex(std::make_shared<QMutex>()),
      _spRing(std::make_shared<Ring>(_spMutex))
{}

Logger::Logger(const QString& fileName, quint64 maxSize, quint32 kept, quint32 timeout,
               LoggerLevel::LogLevel filter, LogFormatter lineFormatter)
    : _formatter(orDefault(lineFormatter)),
      _spFileName(std::make_shared<QString>(checkedPattern(fileName))),
      _maxSize(maxSize == 0 ? LoggerKeys::MaxSizeForZero : maxSize),
      _timeout(timeout),
      _kept(kept == 0 ? LoggerKeys::KeptForZero : kept),
      _filter(filter),
      _spMutex(std::make_shared<QMutex>()),
      _spRing(std::make_shared<Ring>(_spMutex, RingName::absolutePattern(*_spFileName)))
{
    try {
        openNewestFile();
    } catch (...) {
        _spRing->closeStream(); // no caller has it
        throw;
    }
}

Logger::Logger(const Logger& other)
    : _formatter(other._formatter.load()),
      _spFileName(other._spFileName),
      _maxSize(other._maxSize),
      _timeout(other._timeout),
      _kept(other._kept),
      _tee(other._tee.load()),
      _filter(other._filter.load()),
      _spMutex(other._spMutex),
      _bannerTitle(other._bannerTitle),
      _recordConfigurationData(other._recordConfigurationData),
      _spRing(other._spRing)
{}

Logger::~Logger()
{
    // A thread that writes through this object is done with it when it releases the lock.
    const RingLock lock(*_spRing, RingLock::Wait::Unlimited);
}

bool Logger::isWritingLine()
{
    return InsideLog::isThisThread();
}

LoggerLevel::LogLevel Logger::filter() const
{
    return _filter.load(std::memory_order_relaxed);
}

LogFormatter Logger::formatter() const
{
    return _formatter.load(std::memory_order_relaxed);
}

bool Logger::isTeeEnabled() const
{
    return _tee.load(std::memory_order_relaxed);
}

QString Logger::bannerTitle() const
{
    return _bannerTitle;
}

bool Logger::recordConfigurationData() const
{
    return _recordConfigurationData;
}

void Logger::writeTrace(LoggerLevel::LogLevel level, const QString& msg)
{
    if (level < filter())
        return;
    DefaultLine ready; // most lines need the lock for their time and the file only
    const bool isReady =
        formatter() == orDefault(nullptr) && !isTeeEnabled() && ready.set(level, msg);
    RingLock lock(*_spRing);
    if (!lock.isHeld()) {
        showDegraded(formatter(), level, msg);
        return;
    }
    // The tee may have been enabled while the line waited.
    if (isReady && !isTeeEnabled() && _spRing->takes(ready.size(), _maxSize)) {
        ready.setTime();
        if (!_spRing->append(ready.bytes()))
            showLostLine(lock, level, ready.text());
        return;
    }
    QString& line = _spRing->freshLine();
    formatter()(level, msg, line);
    if (!_spRing->hasOpenFile()) {
        writeConsole(level, line);
        return;
    }
    const bool isTeed = isTeeEnabled();
    if (isTeed) {
        line += QStringLiteral(" [Tee]"); // the file receives it too
        writeConsole(level, line);
    }
    writeToFile(lock, level, line, isTeed);
}

void Logger::debug(const QString& msg)
{
    writeTrace(LoggerLevel::debug, msg);
}

void Logger::info(const QString& msg)
{
    writeTrace(LoggerLevel::info, msg);
}

void Logger::warning(const QString& msg)
{
    writeTrace(LoggerLevel::warning, msg);
}

void Logger::critical(const QString& msg)
{
    writeTrace(LoggerLevel::error, msg);
}

void Logger::fatal(const QString& msg)
{
    writeTrace(LoggerLevel::fatal, msg);
}

void Logger::writeConsole(LoggerLevel::LogLevel level, const QString& line) const
{
    const InsideLog inside;
    switch (level) {
    case LoggerLevel::info:
        qtMessages().info() << line;
        return;
    case LoggerLevel::warning:
        qtMessages().warning() << line;
        return;
    case LoggerLevel::error:
        qtMessages().critical() << line;
        return;
    case LoggerLevel::fatal: {
        QString quoted;
        QDebug(&quoted).nospace() << line; // fatal messages have no stream before Qt 6.5
        qtMessages().fatal("%s", qUtf8Printable(quoted));
    }
    case LoggerLevel::debug:
        break;
    }
    qtMessages().debug() << line;
}

LoggerLevel::LogLevel Logger::setFilter(LoggerLevel::LogLevel filter)
{
    return _filter.exchange(filter);
}

LogFormatter Logger::setFormatter(LogFormatter lineFormatter)
{
    // Only resets to the default: see the declaration.
    return lineFormatter ? formatter() : _formatter.exchange(orDefault(nullptr));
}

void Logger::enableTee()
{
    _tee = true;
}

void Logger::disableTee()
{
    _tee = false;
}

void Logger::close()
{
    _spRing->exclusively("close", [this] {
        _spRing->closeFile();
        _spRing->closeStream();
    });
}

void Logger::duplicateLogFile()
{
    _spRing->exclusively("duplicateLogFile", [this] {
        if (_spRing->file)
            _spRing->duplicate();
    });
}

FILE* Logger::duplicatedDescriptor() const
{
    return _spRing->stream;
}

void Logger::closeDuplicatedHandle()
{
    _spRing->exclusively("closeDuplicatedHandle", [this] { _spRing->closeStream(); });
}

void Logger::openNewestFile()
{
    const std::optional<unsigned int> newest = newestIndex();
    const unsigned int index = newest ? resumeAt(*newest) : 0;
    _spRing->last = index;
    if (!_spRing->file && !QFile::exists(ringFileName(index))) {
        if (!openRingFile(index, QIODevice::NewOnly))
            raiseOpenFailure("FileCreatingFailure", index);
        return;
    }
    if (!_spRing->file && !openRingFile(index, QIODevice::NotOpen))
        raiseOpenFailure("FileAppendFailure", index);
    _spRing->duplicate();
    if (needsRotate())
        _spRing->last = rotation(index);
}

/// Opens the newest file or, if it is full, the next one. Returns its index.
unsigned int Logger::resumeAt(unsigned int newest)
{
    // A full one is opened, too: with this descriptor in hand a rotation finds one for the next
    // file, and deletes no file before that is certain.
    const bool isOpen = openRingFile(newest, QIODevice::NotOpen);
    const unsigned int index = isOpen || !_spRing->lacksDescriptor ? resumeIndex(newest) : newest;
    if (!_spRing->file && _spRing->lacksDescriptor)
        raiseOpenFailure("FileAppendFailure", newest);
    return index;
}

void Logger::raiseOpenFailure(const char* key, unsigned int index) const
{
    Failure::raise(ConstructorSignature, Failure::message(key, shownFileName(index)));
}

/// A line that does not reach the file is shown with a marker, unless the tee has shown it already.
void Logger::writeToFile(RingLock& lock, LoggerLevel::LogLevel level, QString& line, bool isTeed)
{
    const auto showUnlessTeed = [&] {
        if (!isTeed)
            showLostLine(lock, level, line);
        lock.release();
    };
    try {
        if (!appendToFile(level, line))
            showUnlessTeed();
    } catch (const Exception& e) {
        showUnlessTeed();
        throw Exception(e);
    } catch (...) {
        showUnlessTeed();
        Failure::raise("void Logger::writeTrace(LogLevel, const QString&)",
                       QStringLiteral("catch(...) ?"));
    }
}

/// Shows a line that the file did not take.
void Logger::showLostLine(RingLock& lock, LoggerLevel::LogLevel level, const QString& line) const
{
    const QString lost = line + QStringLiteral(" [>>]");
    lock.release(); // other writers do not wait for the message handler
    writeConsole(level, lost);
}

/// False if the file did not take the line. After a rotation that leaves no file the line is shown
/// with that reason, and the result is true.
bool Logger::appendToFile(LoggerLevel::LogLevel level, QString& line)
{
    const QByteArrayView bytes = _spRing->encoded(line);
    if (_spRing->isTooOldOrReaches(_spRing->bytesFor(bytes.size()), _maxSize))
        _spRing->last = rotation(_spRing->last);
    if (_spRing->file)
        return _spRing->append(bytes);
    line += QLatin1Char(' ') + Failure::message("LogRotationFailure");
    writeConsole(level, line);
    return true;
}
