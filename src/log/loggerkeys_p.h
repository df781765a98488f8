// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/loggerlevel.h"

#include <QLatin1String>
#include <QString>

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <optional>
#include <string_view>

/// How a logger is described: the keys, the defaults and the names of the levels. The builders and
/// the validator differ on purpose, so their tables stand side by side.
namespace LoggerKeys {

// In properties, for Logger::buildLog ("factory"), Config::buildFileSystemLogger and the validator.
inline constexpr QLatin1String FileName("log.filename");
inline constexpr QLatin1String MaxSize("log.maxsize");
inline constexpr QLatin1String Kept("log.kept");
inline constexpr QLatin1String Timeout("log.timeout");
inline constexpr QLatin1String Filter("log.filter");
inline constexpr QLatin1String Tee("log.tee");
inline constexpr QLatin1String FactoryBannerTitle("banner.title");
inline constexpr QLatin1String FactoryBannerProperties("banner.properties");
inline constexpr QLatin1String ConfigBannerTitle("log.banner.title"); // the validator's, too
inline constexpr QLatin1String ConfigBannerProperties("log.banner.properties");

// In JSON, for Logger::buildLog.
inline constexpr QLatin1String JsonLog("log");
inline constexpr QLatin1String JsonFileName("fileName");
inline constexpr QLatin1String JsonMaxSize("maxSize");
inline constexpr QLatin1String JsonKept("kept");
inline constexpr QLatin1String JsonTimeout("timeout");
inline constexpr QLatin1String JsonFilter("filter");
inline constexpr QLatin1String JsonTee("tee");
inline constexpr QLatin1String JsonBanner("banner");
inline constexpr QLatin1String JsonBannerTitle("title");
inline constexpr QLatin1String JsonBannerProperties("properties");

/// What a builder takes for a key that is absent. The tee is off then.
struct Defaults {
    quint64 maxSize = 0; ///< bytes
    quint32 kept = 0;    ///< files
    quint32 timeout = 0; ///< days
    LoggerLevel::LogLevel filter = LoggerLevel::debug;
};

inline constexpr Defaults FactoryDefaults{1, 10, 7, LoggerLevel::warning}; // one file per line
inline constexpr Defaults JsonDefaults{1048576, 10, 7, LoggerLevel::warning};
inline constexpr Defaults ConfigDefaults{1048576, 10, 7, LoggerLevel::warning};

// What Logger's constructor takes for a 0.
inline constexpr quint64 MaxSizeForZero = 1048576;
inline constexpr quint32 KeptForZero = 5;

/// The names of one level, one for each place that reads or writes it.
struct LevelNames {
    LoggerLevel::LogLevel level;
    std::u16string_view tag;  ///< in a line; all of one width, so that the messages align
    std::string_view factory; ///< Logger::buildLog(Properties); any other text means debug
    std::array<std::string_view, 3> json; ///< Logger::buildLog(JSON); others change nothing
    std::string_view config;    ///< Config, read in lower case; any other text means debug
    std::string_view validator; ///< LoggerConfigController; refuses any other text
};

// clang-format off
inline constexpr LevelNames Levels[] = {
    //                     line      factory  JSON                            Config     validator
    {LoggerLevel::debug,   u"DEBUG", "debug", {"dbg", "debug",   "all"},         "debug",   "debug"},
    {LoggerLevel::info,    u"INFOR", "info",  {"inf", "info",    "information"}, "info",    "info"},
    {LoggerLevel::warning, u"WARNG", "warn",  {"wrn", "warning", {}},            "warning", "warning"},
    {LoggerLevel::error,   u"ERROR", "error", {"err", "error",   {}},            "error",   "error"},
    {LoggerLevel::fatal,   u"FATAL", "fatal", {"ftl", "fatal",   {}},            "fatal",   "fatal"},
};
// clang-format on

// A level that is not listed here, or has no row, or lacks one of its names does not compile.
#pragma GCC diagnostic push
#pragma GCC diagnostic error "-Wswitch"
/// The row of a level; values outside the enumeration have that of debug.
constexpr std::size_t rowOf(LoggerLevel::LogLevel level)
{
    switch (level) {
    case LoggerLevel::debug:
        return 0;
    case LoggerLevel::info:
        return 1;
    case LoggerLevel::warning:
        return 2;
    case LoggerLevel::error:
        return 3;
    case LoggerLevel::fatal:
        return 4;
    }
    return 0;
}
#pragma GCC diagnostic pop

constexpr bool areRowsComplete()
{
    for (std::size_t i = 0; i < std::size(Levels); ++i) {
        const LevelNames& names = Levels[i];
        if (rowOf(names.level) != i || names.tag.size() != Levels[0].tag.size() ||
            names.factory.empty() || names.json.front().empty() || names.config.empty() ||
            names.validator.empty())
            return false;
    }
    return rowOf(LoggerLevel::fatal) + 1 == std::size(Levels);
}
static_assert(areRowsComplete(), "every level needs a row, with a name in every column");

inline constexpr std::size_t TagLength = Levels[0].tag.size();

constexpr std::u16string_view tag(LoggerLevel::LogLevel level)
{
    return Levels[rowOf(level)].tag;
}

inline bool isName(std::string_view name, const QString& text)
{
    return !name.empty() && text == QLatin1String(name.data(), static_cast<qsizetype>(name.size()));
}

/// The level that is called `text` in one column, for instance `&LevelNames::config`.
inline std::optional<LoggerLevel::LogLevel> levelNamed(std::string_view LevelNames::*column,
                                                       const QString& text)
{
    const auto* const row = std::find_if(
        std::begin(Levels), std::end(Levels),
        [column, &text](const LevelNames& names) { return isName(names.*column, text); });
    return row == std::end(Levels) ? std::nullopt : std::optional(row->level);
}

inline std::optional<LoggerLevel::LogLevel> levelNamedInJson(const QString& text)
{
    for (const LevelNames& names : Levels) {
        for (const std::string_view name : names.json) {
            if (isName(name, text))
                return names.level;
        }
    }
    return std::nullopt;
}

} // namespace LoggerKeys
