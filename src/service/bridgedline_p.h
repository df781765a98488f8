// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

#include <utility>

namespace KezService {

/// What the message bridge knows of the line that it writes in this thread. A formatter is a plain
/// function, and has no other way to learn it.
class BridgedLine {
public:
    /// Of this line until it ends. `line` begins with the category if `headLength` is not 0.
    BridgedLine(const QString& line, const char* category, qsizetype headLength)
        : _before(std::exchange(_current, {line.constData(), category, headLength}))
    {}
    ~BridgedLine() { _current = _before; }
    BridgedLine(const BridgedLine&) = delete;
    BridgedLine& operator=(const BridgedLine&) = delete;

    /// The category of `line` in UTF-8; null if the line does not come from the bridge.
    static const char* categoryOf(const QString& line)
    {
        return isCurrent(line) ? _current.category : nullptr;
    }

    /// What `line` says after its category.
    static QStringView messageOf(const QString& line)
    {
        return QStringView(line).sliced(isCurrent(line) ? _current.headLength : 0);
    }

private:
    struct Known {
        const QChar* characters;
        const char* category;
        qsizetype headLength;
    };

    /// A formatter may write another line, to another logger.
    static bool isCurrent(const QString& line) { return line.constData() == _current.characters; }

    static inline constinit thread_local Known _current{nullptr, nullptr, 0};

    const Known _before;
};

} // namespace KezService
