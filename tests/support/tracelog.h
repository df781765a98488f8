// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <kez/log.h>

#include <QList>
#include <QMutex>
#include <QStringList>
#include <QTemporaryDir>

/// While it lives, it is the process's log and keeps the messages that pass its filter. There can
/// be one at a time, made before the threads that log.
class TraceLog {
public:
    explicit TraceLog(LoggerLevel::LogLevel filter = LoggerLevel::debug)
        : _before(Log::getInstance()),
          _log(_directory.filePath("trace"), false, quint64(1) << 30, 2, 365, filter,
               &TraceLog::format)
    {
        const QMutexLocker lock(&s_mutex);
        s_messages.clear();
    }
    TraceLog(const TraceLog&) = delete;
    TraceLog& operator=(const TraceLog&) = delete;

    /// The messages so far, as they were logged. A message that is not at level debug has the
    /// number of its level in front.
    QStringList texts() const
    {
        const QMutexLocker lock(&s_mutex);
        return s_messages;
    }

    /// The same; also forgets them.
    QStringList take()
    {
        const QMutexLocker lock(&s_mutex);
        QStringList result;
        result.swap(s_messages);
        return result;
    }

private:
    static void format(LoggerLevel::LogLevel level, const QString& message, QString& out)
    {
        const QString prefix =
            level == LoggerLevel::debug ? QString() : QString::number(int(level));
        out = prefix + message;
        const QMutexLocker lock(&s_mutex);
        s_messages.append(out);
    }

    static inline QMutex s_mutex;
    static inline QStringList s_messages;

    /// The instances that this one and others replaced: nobody deletes what the log made by itself,
    /// and LeakSanitizer must not take it for a leak.
    class Replaced {
    public:
        explicit Replaced(Log* log)
        {
            const QMutexLocker lock(&s_mutex);
            static auto& logs = *new QList<Log*>; // is there when LeakSanitizer looks
            logs.append(log);
        }
    };

    Replaced _before;
    QTemporaryDir _directory;
    Log _log;
};
