// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/logger.h"

#include <QByteArray>
#include <QFile>
#include <QString>

#include <chrono>
#include <cstdio>
#include <memory>

#include <sys/resource.h>

/// The open end of a ring of log files: what a logger and its copies share, so that all of them
/// follow a rotation that one of them makes. Guarded by the loggers' mutex.
struct Logger::Ring {
    /// How long to wait for the mutex.
    static constexpr std::chrono::milliseconds LockWait{300};

    /// `absolutePattern`: the files' names as absolute paths, with "%d" for the index.
    explicit Ring(const QString& absolutePattern = QString()) : pattern(absolutePattern) {}

    /// Closes the file. The stream stays open for its holder.
    ~Ring() = default;

    /// Makes `opened` the current file and learns what cannot change while it is open.
    void setFile(std::shared_ptr<QFile> opened, quint32 timeoutDays);

    /// The file's size in the file system at this moment: others may append to it.
    qint64 size() const;

    /// Whether there is a current file that must be left before `extraBytes` are appended: it is as
    /// old as the age limit, or would reach `maxSize`.
    bool isTooOldOrReaches(qint64 extraBytes, quint64 maxSize) const;

    /// An empty text to format a line into.
    QString& freshLine();

    /// `line` in UTF-8 with a line feed.
    const QByteArray& encoded(const QString& line);

    /// Hands `line` to the kernel; false when the file system did not take all of it.
    bool append(const QByteArray& line);

    /// Makes the stream, or makes the one that is there write to the current file.
    void duplicate();
    void closeStream();

    const QString pattern;

    std::shared_ptr<QFile> file; ///< null if there is none
    unsigned int last = 0;       ///< its index, or the status of the rotation that left none
    FILE* stream = nullptr;
    bool streamIsOpen = false;
    bool endsInsideLine = false; ///< a write was cut short

private:
    bool exceedsProcessLimit(qint64 extraBytes);
    bool writeAll(const char* data, qint64 length);

    qint64 _tooOldAt = 0; // milliseconds since the epoch
    rlim_t _processLimit = RLIM_INFINITY;
    QString _line;
    QByteArray _bytes;
};
