// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "frame/qtmessage_p.h"
#include "kez/logger.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QFile>
#include <QMutex>
#include <QString>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include <sys/resource.h>

/// While one lives, its thread is inside the log: Logger::isWritingLine().
class InsideLog {
public:
    InsideLog() : _depth(_depthOfThread) { ++_depth; }
    ~InsideLog() { --_depth; }
    InsideLog(const InsideLog&) = delete;
    InsideLog& operator=(const InsideLog&) = delete;

    static bool isThisThread() { return _depthOfThread > 0; }

private:
    static inline constinit thread_local int _depthOfThread = 0;
    int& _depth; // in a shared library, each look at the thread's variable is a call
};

/// The open end of a ring of log files. A logger and its copies share it, so that all of them
/// follow a rotation that one of them makes. Guarded by their mutex.
struct Logger::Ring {
    /// `absolutePattern`: the files' names as absolute paths, with "%d" for the index.
    explicit Ring(std::shared_ptr<QMutex> sharedMutex, const QString& absolutePattern = QString())
        : pattern(absolutePattern), mutex(std::move(sharedMutex))
    {}

    /// Closes the file. The stream stays open for its holder.
    ~Ring() = default;

    /// Makes `opened` the current file and learns what cannot change while it is open.
    void setFile(std::shared_ptr<QFile> opened, quint32 timeoutDays);

    /// Leaves no current file. The result is still open.
    std::shared_ptr<QFile> takeFile();

    /// Keeps the file, closed.
    void closeFile();

    bool hasOpenFile() const { return _descriptor >= 0; }

    /// The file's size in the file system at this moment: others may append to it.
    qint64 size() const;

    /// Whether there is a current file that must be left before `extraBytes` are appended: it is as
    /// old as the age limit, or would reach `maxSize`.
    bool isTooOldOrReaches(qint64 extraBytes, quint64 maxSize) const;

    /// Whether the current file is open and need not be left before a line of `size` bytes.
    bool takes(qint64 size, quint64 maxSize) const
    {
        return hasOpenFile() && !isTooOldOrReaches(bytesFor(size), maxSize);
    }

    /// An empty text to format a line into.
    QString& freshLine();

    /// `line` in UTF-8 with a line feed.
    QByteArrayView encoded(const QString& line);

    /// How many bytes append() adds to the file for a line of `size` bytes.
    qint64 bytesFor(qint64 size) const { return size + (endsInsideLine ? 1 : 0); }

    /// Hands `line` to the kernel; false if the file system did not take all of it.
    bool append(QByteArrayView line);

    /// Opens the stream. If it is open already, makes it write to the current file.
    void duplicate();
    void closeStream();

    /// Whether the calling thread holds the mutex, through a RingLock.
    bool isHeldByThisThread() const
    {
        return _holder.load(std::memory_order_relaxed) == std::this_thread::get_id();
    }

    /// Says on Qt's message output that `Logger::function` did not get the lock, and the result.
    static void reportDeadlock(const char* function, const char* result)
    {
        qtMessages().warning().noquote().nospace()
            << "Logger::" << function << " DEADLOCK >> " << result;
    }

    /// Runs `action` under the lock. If another thread keeps the lock for too long, or the calling
    /// one holds it, reports that for `Logger::function` instead.
    template <typename Action>
    void exclusively(const char* function, Action action);

    const QString pattern;
    const std::shared_ptr<QMutex> mutex;
    QRecursiveMutex banners; ///< recursive: a formatter may write a banner inside a banner

    /// Sets the filter to info until every banner of that logger has called restoreFilter().
    void openFilter(Logger& logger);
    void restoreFilter(Logger& logger);

    std::shared_ptr<QFile> file;        ///< null if there is none
    unsigned int last = 0;              ///< its index, or the status of the rotation that left none
    std::atomic<FILE*> stream{nullptr}; ///< read without the lock
    bool streamIsOpen = false;
    bool endsInsideLine = false;  ///< a write was cut short
    bool lacksDescriptor = false; ///< no descriptor was free for the last file to be opened

private:
    friend class Logger::RingLock;

    bool exceedsProcessLimit(qint64 extraBytes);
    bool writeAll(const char* data, qint64 length);
    bool isTooOld() const;

    struct OpenedFilter {
        int banners = 0;
        LoggerLevel::LogLevel before = LoggerLevel::debug;
    };
    std::mutex _filtersLock;
    std::map<const Logger*, OpenedFilter> _openedFilters;

    // The thread that has the lock. No order is needed: a thread only looks for its own id, which
    // no other thread stores or clears.
    std::atomic<std::thread::id> _holder{};

    int _descriptor = -1; // of the file, while it is open
    qint64 _tooOldAt = 0; // milliseconds since the epoch
    rlim_t _processLimit = RLIM_INFINITY;
    QString _line;
    QByteArray _bytes;
};

/// Holds a ring's mutex for a scope. It does not get the mutex if the thread holds it already (a
/// formatter or a message handler that uses the logger): such a thread would wait for itself.
///
/// With or without the mutex, the thread is inside the log for that scope.
class Logger::RingLock {
public:
    enum class Wait { Limited, Unlimited };

    /// How long a limited wait lasts.
    static constexpr std::chrono::milliseconds Limit{300};

    explicit RingLock(Ring& ring, Wait wait = Wait::Limited) : _ring(ring), _isHeld(acquire(wait))
    {
        if (_isHeld)
            _ring._holder.store(std::this_thread::get_id(), std::memory_order_relaxed);
    }
    ~RingLock() { release(); }
    RingLock(const RingLock&) = delete;
    RingLock& operator=(const RingLock&) = delete;

    bool isHeld() const { return _isHeld; }

    void release()
    {
        if (!_isHeld)
            return;
        _isHeld = false;
        _ring._holder.store(std::thread::id(), std::memory_order_relaxed);
        _ring.mutex->unlock();
    }

private:
    bool acquire(Wait wait)
    {
        if (_ring.isHeldByThisThread())
            return false;
        if (wait == Wait::Limited)
            return _ring.mutex->try_lock_for(Limit);
        _ring.mutex->lock();
        return true;
    }

    const InsideLog _inside;
    Ring& _ring;
    bool _isHeld;
};

template <typename Action>
void Logger::Ring::exclusively(const char* function, Action action)
{
    const RingLock lock(*this);
    if (lock.isHeld())
        action();
    else
        reportDeadlock(function, "nothing done");
}
