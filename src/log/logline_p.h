// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/loggerlevel.h"
#include "log/loggerkeys_p.h"

#include <QByteArrayView>
#include <QString>
#include <QStringView>

#include <array>

/// Puts `text` at `at` in UTF-8. Three bytes for each character must be free there. Returns the
/// end, or null if there is a lone surrogate, which has no UTF-8.
char* putUtf8(char* at, QStringView text);

/// A line as Logger::formatter makes it, in UTF-8 and with its line feed.
///
/// It is made in two steps. The first one needs no lock. The time is asked for under the logger's
/// lock, so that the lines of a file are in the order of their times.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): to clear the bytes would take time
class DefaultLine {
public:
    static constexpr qsizetype TimeLength = 23; ///< "dd/MM/yyyy HH:mm:ss,zzz"
    static constexpr qsizetype HeadLength = TimeLength + 2 + LoggerKeys::TagLength + 2;
    static constexpr qsizetype LongestMessage = 500; ///< in characters

    /// False if the message is too long for this place, or has no UTF-8.
    bool set(LoggerLevel::LogLevel level, const QString& msg);

    /// Puts the present time at the beginning.
    void setTime();

    qsizetype size() const { return _size; }
    QByteArrayView bytes() const { return {_bytes.data(), _size}; }

    /// Without the line feed.
    QString text() const { return QString::fromUtf8(_bytes.data(), _size - 1); }

private:
    std::array<char, HeadLength + 3 * LongestMessage + 1> _bytes;
    qsizetype _size = 0;
};
