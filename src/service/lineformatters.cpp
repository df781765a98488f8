// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/lineformatters.h"

#include "log/loggerkeys_p.h"
#include "service/bridgedline_p.h"
#include "service/escapedtext_p.h"

#include <kez/logger.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <limits>
#include <pthread.h>
#include <unistd.h>

namespace KezService {

namespace {

constexpr std::size_t LongestName = 15;  // bytes; the kernel's limit
constexpr std::size_t LongestEscape = 6; // "\u001b"

constexpr std::array<char16_t, 23> ZeroTime = {u'y', u'y', u'y', u'y', u'-', u'M', u'M', u'-',
                                               u'd', u'd', u'T', u'H', u'H', u':', u'm', u'm',
                                               u':', u's', u's', u'.', u'z', u'z', u'z'};

/// What the lines of one second and one thread share. It has no destructor: a thread may log until
/// its very end.
struct Rendered {
    std::time_t second = std::numeric_limits<std::time_t>::min();
    std::array<char16_t, 23> time = ZeroTime; // the milliseconds are those of the last line
    std::array<char16_t, LongestName * LongestEscape> thread{};
    qsizetype threadLength = 0;
};
constinit thread_local Rendered rendered;

void putNumber(std::size_t at, long value, int digits)
{
    for (int i = digits - 1; i >= 0; --i, value /= 10)
        rendered.time[at + static_cast<std::size_t>(i)] = static_cast<char16_t>(u'0' + value % 10);
}

void renderTime(std::time_t second)
{
    std::tm utc{};
    gmtime_r(&second, &utc);
    putNumber(0, utc.tm_year + 1900, 4);
    putNumber(5, utc.tm_mon + 1, 2);
    putNumber(8, utc.tm_mday, 2);
    putNumber(11, utc.tm_hour, 2);
    putNumber(14, utc.tm_min, 2);
    putNumber(17, utc.tm_sec, 2);
}

/// The calling thread's name, or its number if it has no other name than the program's.
QString threadName()
{
    std::array<char, LongestName + 1> name{};
    const bool isNamed = pthread_getname_np(pthread_self(), name.data(), name.size()) == 0 &&
                         name.front() != '\0' &&
                         std::strncmp(name.data(), program_invocation_short_name, LongestName) != 0;
    return isNamed ? QString::fromUtf8(name.data()) : QString::number(gettid());
}

void renderThread()
{
    QString name;
    appendEscaped<EscapedFor::Json>(name, threadName());
    std::copy_n(reinterpret_cast<const char16_t*>(name.constData()), name.size(),
                rendered.thread.begin());
    rendered.threadLength = name.size();
}

void render()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != rendered.second) {
        renderTime(now.tv_sec);
        renderThread();
        rendered.second = now.tv_sec;
    }
    putNumber(20, now.tv_nsec / 1000000, 3);
}

QLatin1String nameOf(LoggerLevel::LogLevel level)
{
    const std::string_view name = LoggerKeys::Levels[LoggerKeys::rowOf(level)].validator;
    return QLatin1String(name.data(), static_cast<qsizetype>(name.size()));
}

} // namespace

void jsonLine(LoggerLevel::LogLevel level, const QString& msg, QString& out)
{
    if (&msg == &out) {
        const QString copy = msg;
        jsonLine(level, copy, out);
        return;
    }
    render();
    out.resize(0); // keeps the buffer
    out += QLatin1String(R"({"time":")");
    out += QStringView(rendered.time);
    out += QLatin1String(R"(Z","level":")");
    out += nameOf(level);
    out += QLatin1String(R"(","message":")");
    appendEscaped<EscapedFor::Json>(out, BridgedLine::messageOf(msg));
    out += QLatin1String(R"(","thread":")");
    out += QStringView(rendered.thread.data(), rendered.threadLength);
    if (BridgedLine::is(msg)) {
        out += QLatin1String(R"(","category":")");
        appendEscaped<EscapedFor::Json>(out, BridgedLine::categoryOf(msg));
    }
    out += QLatin1String(R"("})");
}

void escapedLine(LoggerLevel::LogLevel level, const QString& msg, QString& out)
{
    const bool isPlain = std::none_of(msg.cbegin(), msg.cend(), [](QChar character) {
        return isEscaped<EscapedFor::Line>(character.unicode());
    });
    if (isPlain) {
        Logger::formatter(level, msg, out);
        return;
    }
    QString escaped;
    appendEscaped<EscapedFor::Line>(escaped, msg);
    Logger::formatter(level, escaped, out);
}

} // namespace KezService
