// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QString>
#include <QStringView>

#include <utility>

namespace KezService {

/// Which line the message bridge writes in this thread: "[category] message", or the message alone
/// if its category is "default". A formatter is a plain function, and has no other way to learn it.
class BridgedLine {
public:
    /// Until it ends. `headLength` is what stands in front of the message.
    BridgedLine(const QString& line, qsizetype headLength)
        : _before(std::exchange(_current, {line.constData(), headLength}))
    {}
    ~BridgedLine() { _current = _before; }
    BridgedLine(const BridgedLine&) = delete;
    BridgedLine& operator=(const BridgedLine&) = delete;

    /// Whether it is this line. A formatter may write another one meanwhile, to another logger.
    static bool is(const QString& line) { return line.constData() == _current.characters; }

    /// The category of the line that it is.
    static QStringView categoryOf(const QString& line)
    {
        constexpr qsizetype brackets = 3; // "[" and "] "
        return _current.headLength == 0
                   ? QStringView(u"default")
                   : QStringView(line).sliced(1, _current.headLength - brackets);
    }

    /// What any line says after its category.
    static QStringView messageOf(const QString& line)
    {
        return QStringView(line).sliced(is(line) ? _current.headLength : 0);
    }

private:
    struct Known {
        const QChar* characters;
        qsizetype headLength;
    };
    static inline constinit thread_local Known _current{nullptr, 0};

    const Known _before;
};

} // namespace KezService
