// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/logger.h"
#include "kez/properties.h"
#include "log/logring_p.h"

#include <QString>

#include <algorithm>
#include <mutex>

/// Lets the lines of a banner, which are written at level info, through a logger's filter.
///
/// The banners of a logger and its copies are written one after the other: of two at once, the
/// second would restore the filter that the first one had set.
class BannerFilter {
public:
    explicit BannerFilter(Logger& logger)
        : _oneAtATime(logger._spRing->banners),
          _logger(logger),
          _previous(logger.setFilter(LoggerLevel::info))
    {}
    ~BannerFilter() { _logger.setFilter(_previous); }
    BannerFilter(const BannerFilter&) = delete;
    BannerFilter& operator=(const BannerFilter&) = delete;

private:
    const std::lock_guard<std::recursive_mutex> _oneAtATime;
    Logger& _logger;
    LoggerLevel::LogLevel _previous;
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
    qsizetype width = 0;
    for (auto it = properties.keyBegin(); it != properties.keyEnd(); ++it)
        width = std::max(width, it->size());
    for (auto it = properties.begin(); it != properties.end(); ++it)
        logger.info(pad(it.key(), width) + QStringLiteral(" = ") + it.value());
}
