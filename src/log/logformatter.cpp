// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "frame/ascii_p.h"
#include "kez/logger.h"
#include "log/loggerkeys_p.h"
#include "log/logline_p.h"

#include <QStringConverter>

#include <algorithm>
#include <array>
#include <ctime>
#include <limits>
#include <string_view>

namespace {

/// "dd/MM/yyyy HH:mm:ss," of one second, which many lines share.
struct RenderedSecond {
    std::time_t second = std::numeric_limits<std::time_t>::min();
    std::array<char, 20> text{};
};

// Rendering asks the C library for the time zone, which costs more than the rest of a line.
constinit thread_local RenderedSecond renderedSecond;

// These put ASCII characters, into UTF-8 or UTF-16.
template <typename Char, std::size_t size>
Char* put(Char* at, std::array<char, size> text) // by value: a call of memmove costs more
{
    return std::copy(text.begin(), text.end(), at);
}

template <typename Char>
Char* put(Char* at, char character)
{
    *at = static_cast<Char>(character);
    return at + 1;
}

template <typename Char>
Char* putNumber(Char* at, int value, int digits)
{
    for (int i = digits - 1; i >= 0; --i, value /= 10)
        at[i] = static_cast<Char>('0' + value % 10);
    return at + digits;
}

void render(std::time_t second, RenderedSecond& rendered)
{
    std::tm local{};
    tzset(); // localtime_r alone does not see a change of the time zone
    localtime_r(&second, &local);

    char* at = putNumber(rendered.text.data(), local.tm_mday, 2);
    at = putNumber(put(at, '/'), local.tm_mon + 1, 2);
    at = putNumber(put(at, '/'), local.tm_year + 1900, 4);
    at = putNumber(put(at, ' '), local.tm_hour, 2);
    at = putNumber(put(at, ':'), local.tm_min, 2);
    at = putNumber(put(at, ':'), local.tm_sec, 2);
    put(at, ',');
    rendered.second = second;
}

/// Puts the present time, 23 characters.
template <typename Char>
Char* putTime(Char* at)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    RenderedSecond& rendered = renderedSecond;
    if (now.tv_sec != rendered.second)
        render(now.tv_sec, rendered);
    return putNumber(put(at, rendered.text), static_cast<int>(now.tv_nsec / 1000000), 3);
}

/// Puts " <LEVEL> ", 9 characters.
template <typename Char>
Char* putTag(Char* at, LoggerLevel::LogLevel level)
{
    const std::u16string_view tag = LoggerKeys::tag(level);
    at = put(put(at, ' '), '<');
    for (std::size_t i = 0; i < LoggerKeys::TagLength; ++i)
        at = put(at, static_cast<char>(tag[i]));
    return put(put(at, '>'), ' ');
}

} // namespace

void Logger::formatter(LoggerLevel::LogLevel level, const QString& msg, QString& out)
{
    if (&msg == &out) {
        const QString copy = msg;
        formatter(level, copy, out);
        return;
    }
    out.resize(DefaultLine::HeadLength + msg.size());
    char16_t* const at = putTag(putTime(reinterpret_cast<char16_t*>(out.data())), level);
    // Not utf16(): it reallocates a text that does not own its characters, even a const one.
    std::copy_n(reinterpret_cast<const char16_t*>(msg.constData()), msg.size(), at);
}

char* putUtf8(char* at, QStringView text)
{
    if (putAscii(at, text))
        return at + text.size();
    QStringEncoder encoder(QStringEncoder::Utf8, QStringEncoder::Flag::Stateless);
    char* const end = encoder.appendToBuffer(at, text);
    return encoder.hasError() ? nullptr : end;
}

bool DefaultLine::set(LoggerLevel::LogLevel level, const QString& msg)
{
    if (msg.size() > LongestMessage)
        return false;
    char* const end = putUtf8(putTag(_bytes.data() + TimeLength, level), msg);
    if (!end)
        return false;
    *end = '\n';
    _size = end + 1 - _bytes.data();
    return true;
}

void DefaultLine::setTime()
{
    putTime(_bytes.data());
}
