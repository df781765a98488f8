// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service_global.h"

#include <kez/loggerlevel.h>

#include <QMap>
#include <QString>
#include <QtGlobal>

#include <memory>

namespace KezService {

/// Takes Qt's messages (qDebug(), qCWarning() and the others) to the process's log as long as it
/// lives.
///
/// A message is a line "[category] text"; the category "default" is not shown. Levels: debug, info,
/// warning, critical as error, fatal as error too, since the tee of a fatal line would end the
/// process before the line is in the file. A fatal message is in the log when Qt ends the process.
/// The levels of the settings do not apply to it; if the logger's filter drops errors, it goes to
/// the standard error.
///
/// Categories are named as in Qt's logging rules: exactly, or as a pattern with a "*" at the end,
/// at the beginning or at both. Of several that fit, the exact one counts, then the longest
/// pattern, then the one with its "*" at the end.
///
/// A message that comes from inside the log (Logger::isWritingLine(): the tee, a line that the file
/// did not take, a formatter that calls qDebug()) goes to the standard error at once, as Qt would
/// print it: nothing recurs, and nobody waits. So does a message whose line fails.
///
/// Make the process's log and its named loggers first. The first message asks for the log, and a
/// log that is made by such a question has no file, however it is initialised afterwards.
///
/// *Threads*: any thread may send messages, also while the bridge is made or destroyed. Bridges and
/// other message handlers are installed and removed by one thread at a time.
/// *Owns*: Qt's message handler, and a share of each named logger of its settings.
/// *Fails*: the constructors throw Exception; messages never do.
class KEZ_SERVICE_EXPORT MessageBridge {
public:
    struct Settings {
        /// The lowest level that is logged, by category or pattern; debug for every other category.
        /// The line also has to pass the filter of its logger.
        QMap<QString, LoggerLevel::LogLevel> levels;

        /// The names of loggers in the process's log, by category or pattern. Every other category
        /// goes to the default logger.
        QMap<QString, QString> loggers;
    };

    /// Everything goes to the process's default logger.
    MessageBridge();

    /// Takes the named loggers now: one that is inserted or removed later changes nothing.
    ///
    /// Throws Exception: there is a bridge already; a pattern is empty or has a "*" inside; the
    /// process's log has no logger of that name.
    explicit MessageBridge(const Settings& settings);

    /// Puts the message handler back that was there before, and waits for the messages that other
    /// threads are just logging. A handler that was installed on top of the bridge stays; what it
    /// passes on to the bridge then goes to the handler before.
    ///
    /// A formatter or a message handler must not destroy the bridge.
    ~MessageBridge();

    Q_DISABLE_COPY_MOVE(MessageBridge)

private:
    struct KEZ_HIDDEN Private;
    std::unique_ptr<const Private> _d;
};

} // namespace KezService
