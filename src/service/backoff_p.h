// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

#include <algorithm>
#include <chrono>
#include <utility>

namespace KezService {

/// How long to wait after so many failures in a row (1 or more): the first pause, doubled with each
/// further failure, up to the longest one.
inline std::chrono::milliseconds doubledPause(int failures, std::chrono::milliseconds first,
                                              std::chrono::milliseconds longest)
{
    std::chrono::milliseconds pause = std::min(first, longest);
    for (int failure = 1; failure < failures && pause.count() > 0 && pause < longest; ++failure)
        pause = pause > longest / 2 ? longest : pause * 2;
    return pause;
}

/// Counts failures in a row, and says how long to wait after each.
class Backoff {
public:
    using Period = std::chrono::milliseconds;

    bool hasFailed() const { return _failures > 0; }

    /// The pause after the last failure.
    Period pause(Period first, Period longest) const
    {
        return doubledPause(_failures, first, longest);
    }

    /// True if the cause is another one than that of the failure before.
    bool fail(const QString& cause)
    {
        const bool isNew = !hasFailed() || cause != _cause;
        ++_failures;
        _cause = cause;
        return isNew;
    }

    /// Returns whether there was a failure.
    bool succeed()
    {
        _cause.clear();
        return std::exchange(_failures, 0) > 0;
    }

private:
    int _failures = 0;
    QString _cause;
};

} // namespace KezService
