// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "frame/failure_p.h"
#include "log/logline_p.h"
#include "log/logring_p.h"

#include <QDateTime>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <limits>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace {

// A buffer that a long line made larger than this is freed instead of kept.
constexpr qsizetype KeptBufferSize = 65536;

qint64 milliseconds(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<qint64>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

qint64 tooOldAt(const QFile& file, quint32 timeoutDays)
{
    QDateTime birth = file.fileTime(QFileDevice::FileBirthTime);
    if (!birth.isValid())
        birth = file.fileTime(QFileDevice::FileModificationTime);
    const QDateTime end = birth.addDays(timeoutDays);
    return end.isValid() ? end.toMSecsSinceEpoch() : std::numeric_limits<qint64>::max();
}

rlim_t processLimit()
{
    rlimit limit{};
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 ? limit.rlim_cur : RLIM_INFINITY;
}

/// In the language of the C library's locale; the texts of std::generic_category() are English.
QString systemText(int error)
{
    std::array<char, 256> buffer{};
    return QString::fromLocal8Bit(strerror_r(error, buffer.data(), buffer.size()));
}

[[noreturn]] void raiseDuplicationFailure(int error)
{
    Failure::raise("void Logger::duplicateLogFile()", systemText(error));
}

} // namespace

void Logger::Ring::setFile(std::shared_ptr<QFile> opened, quint32 timeoutDays)
{
    file = std::move(opened);
    _descriptor = file->handle();
    endsInsideLine = false;
    _tooOldAt = tooOldAt(*file, timeoutDays);
    _processLimit = processLimit();
}

std::shared_ptr<QFile> Logger::Ring::takeFile()
{
    _descriptor = -1;
    return std::exchange(file, nullptr);
}

void Logger::Ring::closeFile()
{
    _descriptor = -1;
    if (file)
        file->close();
}

qint64 Logger::Ring::size() const
{
    if (!hasOpenFile())
        return file->size();
    // Cheaper than fstat. It moves the position, which does not matter: every write appends.
    const off_t end = lseek(_descriptor, 0, SEEK_END);
    return end < 0 ? 0 : end;
}

bool Logger::Ring::isTooOldOrReaches(qint64 extraBytes, quint64 maxSize) const
{
    if (!file)
        return false;
    return isTooOld() || static_cast<quint64>(size() + extraBytes) >= maxSize;
}

bool Logger::Ring::isTooOld() const
{
    // The coarse clock costs a quarter of the exact one and is some milliseconds late.
    constexpr qint64 mostLate = 1000;
    return milliseconds(CLOCK_REALTIME_COARSE) >= _tooOldAt - mostLate &&
           milliseconds(CLOCK_REALTIME) >= _tooOldAt;
}

QString& Logger::Ring::freshLine()
{
    if (_line.capacity() > KeptBufferSize)
        _line = QString();
    _line.resize(0);
    return _line;
}

QByteArrayView Logger::Ring::encoded(const QString& line)
{
    if (_bytes.capacity() > KeptBufferSize)
        _bytes = QByteArray();
    const qsizetype most = 3 * line.size() + 1;
    if (_bytes.size() < most)
        _bytes.resize(most); // and stays so long: what follows the line does not matter
    char* const begin = _bytes.data();
    char* const end = putUtf8(begin, line);
    if (!end) { // a lone surrogate, which the encoder and QString replace differently
        _bytes = line.toUtf8() + '\n';
        return _bytes;
    }
    *end = '\n';
    return {begin, end + 1 - begin};
}

bool Logger::Ring::append(QByteArrayView line)
{
    if (exceedsProcessLimit(bytesFor(line.size())))
        return false;
    if (endsInsideLine && !writeAll("\n", 1))
        return false;
    return writeAll(line.data(), line.size());
}

void Logger::Ring::duplicate()
{
    if (streamIsOpen) {
        // A caller may hold the stream: it stays, and its descriptor changes files. What it still
        // buffers was written for the file before.
        std::fflush(stream);
        if (dup3(_descriptor, fileno(stream), O_CLOEXEC) < 0)
            raiseDuplicationFailure(errno);
        return;
    }
    const int copy = fcntl(_descriptor, F_DUPFD_CLOEXEC, 0);
    if (copy < 0)
        raiseDuplicationFailure(errno);
    stream = fdopen(copy, "r+");
    if (!stream) {
        const int error = errno;
        ::close(copy);
        raiseDuplicationFailure(error);
    }
    streamIsOpen = true;
}

void Logger::Ring::closeStream()
{
    if (!streamIsOpen)
        return;
    streamIsOpen = false;
    std::fclose(stream);
}

void Logger::Ring::openFilter(Logger& logger)
{
    const std::lock_guard<std::mutex> lock(_filtersLock);
    OpenedFilter& opened = _openedFilters[&logger];
    const LoggerLevel::LogLevel before = logger.setFilter(LoggerLevel::info);
    if (opened.banners++ == 0)
        opened.before = before;
}

void Logger::Ring::restoreFilter(Logger& logger)
{
    const std::lock_guard<std::mutex> lock(_filtersLock);
    const auto opened = _openedFilters.find(&logger);
    if (--opened->second.banners > 0)
        return;
    logger.setFilter(opened->second.before);
    _openedFilters.erase(opened);
}

/// A write beyond the process's limit must not be tried: its signal may end the process.
bool Logger::Ring::exceedsProcessLimit(qint64 extraBytes)
{
    if (_processLimit == RLIM_INFINITY)
        return false;
    const auto sizeAfter = static_cast<rlim_t>(size() + extraBytes);
    if (sizeAfter <= _processLimit)
        return false;
    _processLimit = processLimit();
    return sizeAfter > _processLimit;
}

bool Logger::Ring::writeAll(const char* data, qint64 length)
{
    while (length > 0) {
        const ssize_t written = write(_descriptor, data, static_cast<size_t>(length));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        data += written;
        length -= written;
        endsInsideLine = data[-1] != '\n';
        if (length > 0) { // cut short, perhaps by a limit that is newer than the file
            _processLimit = processLimit();
            if (exceedsProcessLimit(length))
                return false;
        }
    }
    return true;
}
