// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

#include <algorithm>
#include <chrono>
#include <utility>

namespace KezService {

/// Counts failures in a row, and says how long to wait after each.
class Backoff {
public:
    using Period = std::chrono::milliseconds;

    bool hasFailed() const { return _failures > 0; }

    /// The pause after the last failure: the first one, doubled with each further failure.
    Period pause(Period first, Period longest) const
    {
        Period pause = std::min(first, longest);
        for (int failure = 1; failure < _failures && pause < longest; ++failure)
            pause = std::min(2 * pause, longest);
        return pause;
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
