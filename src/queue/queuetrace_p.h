// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "frame/failure_p.h"
#include "frame/qtmessage_p.h"
#include "kez/exception.h"
#include "kez/log.h"

#include <QString>

#include <exception>
#include <memory>

namespace QueueTrace {

/// Writes one line on Qt's message output in place of a trace. It does not use a debug stream,
/// whose destructor ends the process if a message handler throws.
inline void reportLost(const QString& reason) noexcept
{
    try {
        qtMessages().warning("FilesQueue: a trace could not be written: %ls",
                             qUtf16Printable(reason));
    } catch (...) { // NOLINT(bugprone-empty-catch): nothing is left to tell it to
    }
}

inline const QString& shown(const QString& text)
{
    return text;
}
inline QString shown(qsizetype number)
{
    return QString::number(number);
}

/// Writes a trace at debug level; its text is composed only if the log's filter lets it pass. It
/// does not throw, even if the application's formatter does: a queue's work does not depend on its
/// traces.
template <typename... Arguments>
void trace(const QString& text, const Arguments&... arguments) noexcept
{
    try {
        Log* const log = Log::getInstance();
        if (log->filter() <= LoggerLevel::debug)
            log->debug(Failure::completed(text, shown(arguments)...));
    } catch (const Exception& e) {
        reportLost(e.detail());
    } catch (const std::exception& e) {
        reportLost(QString::fromLocal8Bit(e.what()));
        // NOLINTNEXTLINE(misc-throw-by-value-catch-by-reference): some of the library throws it so
    } catch (Exception* e) {
        reportLost(std::unique_ptr<Exception>(e)->detail());
    } catch (...) {
        reportLost(QStringLiteral("?"));
    }
}

} // namespace QueueTrace
