// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/logger.h"
#include "log/loggerkeys_p.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <limits>
#include <string_view>

namespace {

/// "dd/MM/yyyy HH:mm:ss," of one second, which many lines share.
struct RenderedSecond {
    std::time_t second = std::numeric_limits<std::time_t>::min();
    std::array<char16_t, 20> text{};
};

// Rendering asks the C library for the time zone, which costs more than the rest of a line.
constinit thread_local RenderedSecond renderedSecond;

char16_t* put(char16_t* at, std::u16string_view text)
{
    return std::copy(text.begin(), text.end(), at);
}

char16_t* putNumber(char16_t* at, int value, int digits)
{
    for (int i = digits - 1; i >= 0; --i, value /= 10)
        at[i] = static_cast<char16_t>(u'0' + value % 10);
    return at + digits;
}

void render(std::time_t second, RenderedSecond& rendered)
{
    std::tm local{};
    tzset(); // localtime_r alone does not see a change of the time zone
    localtime_r(&second, &local);

    char16_t* at = putNumber(rendered.text.data(), local.tm_mday, 2);
    at = putNumber(put(at, u"/"), local.tm_mon + 1, 2);
    at = putNumber(put(at, u"/"), local.tm_year + 1900, 4);
    at = putNumber(put(at, u" "), local.tm_hour, 2);
    at = putNumber(put(at, u":"), local.tm_min, 2);
    at = putNumber(put(at, u":"), local.tm_sec, 2);
    put(at, u",");
    rendered.second = second;
}

} // namespace

void Logger::formatter(LoggerLevel::LogLevel level, const QString& msg, QString& out)
{
    if (&msg == &out) {
        const QString copy = msg;
        formatter(level, copy, out);
        return;
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != renderedSecond.second)
        render(now.tv_sec, renderedSecond);

    constexpr qsizetype headLength = 23 + 2 + 5 + 2; // date, " <", tag, "> "
    out.resize(headLength + msg.size());
    auto* at = reinterpret_cast<char16_t*>(out.data());
    at = std::copy(renderedSecond.text.begin(), renderedSecond.text.end(), at);
    at = putNumber(at, static_cast<int>(now.tv_nsec / 1000000), 3);
    at = put(put(put(at, u" <"), LoggerKeys::tag(level)), u"> ");
    // Not utf16(): it reallocates a text that does not own its characters, even a const one.
    std::copy_n(reinterpret_cast<const char16_t*>(msg.constData()), msg.size(), at);
}
