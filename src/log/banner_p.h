// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/logger.h"
#include "kez/properties.h"
#include "log/logring_p.h"

#include <QString>

#include <algorithm>
#include <chrono>
#include <memory>

/// Lets the lines of a banner, which are written at level info, through a logger's filter.
///
/// The banners of a logger and its copies are written one after the other. A banner waits for
/// another one as long as a line does for another line; then their lines mix.
class BannerScope {
public:
    explicit BannerScope(Logger& logger) : _logger(logger), _ring(logger._spRing)
    {
        // The holder of the lock must not wait: the lines of the other banner wait for it.
        const auto limit =
            _ring->isHeldByThisThread() ? std::chrono::milliseconds(0) : Logger::RingLock::Limit;
        _hasTurn = _ring->banners.tryLock(static_cast<int>(limit.count()));
        _ring->openFilter(_logger);
    }
    ~BannerScope()
    {
        _ring->restoreFilter(_logger);
        if (_hasTurn)
            _ring->banners.unlock();
    }
    BannerScope(const BannerScope&) = delete;
    BannerScope& operator=(const BannerScope&) = delete;

private:
    Logger& _logger;
    const std::shared_ptr<Logger::Ring> _ring;
    bool _hasTurn = false;
};

/// Three records: the heading in its box.
inline void writeBannerBox(Logger& logger, const QString& heading)
{
    const QString border =
        QLatin1Char('+') + QString(heading.size() + 2, QLatin1Char('-')) + QLatin1Char('+');
    logger.info(border);
    logger.info(QStringLiteral("| ") + heading + QStringLiteral(" |"));
    logger.info(border);
}

/// One record per property: the key as `pad(key, width of the longest key)` makes it, " = ", value.
template <typename Pad>
void writeBannerProperties(Logger& logger, const Properties& properties, Pad pad)
{
    const Dictionnary entries = *properties.toDictionnary(); // a message handler may change them
    qsizetype width = 0;
    for (auto it = entries.keyBegin(); it != entries.keyEnd(); ++it)
        width = std::max(width, it->size());
    for (auto it = entries.begin(); it != entries.end(); ++it)
        logger.info(pad(it.key(), width) + QStringLiteral(" = ") + it.value());
}
