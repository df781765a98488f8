// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "frame/failure_p.h"
#include "log/logring_p.h"

#include <QDateTime>
#include <QStringConverter>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <limits>

#include <fcntl.h>
#include <unistd.h>

namespace {

// A buffer that a long line made larger than this is freed instead of kept.
constexpr qsizetype KeptBufferSize = 65536;

qint64 millisecondsNow()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
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
    endsInsideLine = false;
    _tooOldAt = tooOldAt(*file, timeoutDays);
    _processLimit = processLimit();
}

qint64 Logger::Ring::size() const
{
    if (!file->isOpen())
        return file->size();
    // Cheaper than fstat. It moves the position, which does not matter: every write appends.
    const off_t end = lseek(file->handle(), 0, SEEK_END);
    return end < 0 ? 0 : end;
}

bool Logger::Ring::isTooOldOrReaches(qint64 extraBytes, quint64 maxSize) const
{
    if (!file)
        return false;
    return millisecondsNow() >= _tooOldAt || static_cast<quint64>(size() + extraBytes) >= maxSize;
}

QString& Logger::Ring::freshLine()
{
    if (_line.capacity() > KeptBufferSize)
        _line = QString();
    _line.resize(0);
    return _line;
}

const QByteArray& Logger::Ring::encoded(const QString& line)
{
    if (_bytes.capacity() > KeptBufferSize)
        _bytes = QByteArray();
    QStringEncoder encoder(QStringEncoder::Utf8, QStringEncoder::Flag::Stateless);
    _bytes.resize(encoder.requiredSpace(line.size()) + 1);
    char* end = encoder.appendToBuffer(_bytes.data(), line);
    if (encoder.hasError()) { // a lone surrogate, which the encoder and QString replace differently
        _bytes = line.toUtf8() + '\n';
        return _bytes;
    }
    *end++ = '\n';
    _bytes.resize(end - _bytes.constData());
    return _bytes;
}

bool Logger::Ring::append(const QByteArray& line)
{
    if (exceedsProcessLimit(line.size() + (endsInsideLine ? 1 : 0)))
        return false;
    if (endsInsideLine && !writeAll("\n", 1))
        return false;
    return writeAll(line.constData(), line.size());
}

void Logger::Ring::duplicate()
{
    const int descriptor = file->handle();
    if (streamIsOpen) {
        // A caller may hold the stream: it stays, and its descriptor changes files. What it still
        // buffers was written for the file before.
        std::fflush(stream);
        if (dup3(descriptor, fileno(stream), O_CLOEXEC) < 0)
            raiseDuplicationFailure(errno);
        return;
    }
    const int copy = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
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
        const ssize_t written = write(file->handle(), data, static_cast<size_t>(length));
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
