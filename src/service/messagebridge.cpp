// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/messagebridge.h"

#include "service/bridgedline_p.h"
#include "service/categorypattern_p.h"
#include "service/durablefiles_p.h"
#include "service/kittexts_p.h"

#include <kez/log.h>
#include <kez/logger.h>

#include <QMessageLogContext>
#include <QScopedValueRollback>
#include <QStringConverter>

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <shared_mutex>
#include <unistd.h>
#include <utility>
#include <vector>

namespace KezService {

namespace {

constexpr const char* DefaultCategory = "default";

LoggerLevel::LogLevel levelOf(QtMsgType type)
{
    switch (type) {
    case QtInfoMsg:
        return LoggerLevel::info;
    case QtWarningMsg:
        return LoggerLevel::warning;
    case QtCriticalMsg:
    case QtFatalMsg:
        return LoggerLevel::error;
    case QtDebugMsg:
        break;
    }
    return LoggerLevel::debug;
}

/// "[category] text", made in one piece.
QString lineUnder(QByteArrayView category, const QString& text)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString line(decoder.requiredSpace(category.size()) + 3 + text.size(), Qt::Uninitialized);
    QChar* const begin = line.data();
    QChar* at = begin;
    *at++ = u'[';
    at = decoder.appendToBuffer(at, category);
    *at++ = u']';
    *at++ = u' ';
    at = std::copy(text.cbegin(), text.cend(), at);
    line.truncate(at - begin);
    return line;
}

/// Prints the beginning of a message without any allocation.
void printWithoutMemory(QStringView text)
{
    constexpr qsizetype longest = 300;
    std::array<char, longest * 3 + 1> bytes{};
    QStringEncoder encoder(QStringEncoder::Utf8, QStringEncoder::Flag::Stateless);
    char* end = encoder.appendToBuffer(bytes.data(), text.first(std::min(text.size(), longest)));
    *end++ = '\n';
    writeAll(STDERR_FILENO, QByteArrayView(bytes.data(), end - bytes.data()));
}

/// Prints a message as Qt does by itself.
void print(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    try {
        const QString line = qFormatLogMessage(type, context, text);
        if (!line.isNull())
            writeAll(STDERR_FILENO, line.toLocal8Bit() + '\n');
    } catch (...) {
        printWithoutMemory(text);
    }
}

/// Values by category, the one that decides first.
template <typename Value>
class Rules {
public:
    void add(const QString& pattern, Value value)
    {
        const auto parsed = CategoryPattern::parsed(pattern);
        if (!parsed)
            raise("BridgePatternInvalid", shownName(pattern));
        const auto place = std::find_if(_rules.begin(), _rules.end(), [&](const Rule& rule) {
            return parsed->precedes(rule.first);
        });
        _rules.emplace(place, *parsed, std::move(value));
    }

    /// Null if there is none for that category.
    const Value* find(QByteArrayView category) const
    {
        const auto found = std::find_if(_rules.begin(), _rules.end(), [&](const Rule& rule) {
            return rule.first.matches(category);
        });
        return found == _rules.end() ? nullptr : &found->second;
    }

private:
    using Rule = std::pair<CategoryPattern, Value>;
    std::vector<Rule> _rules;
};

std::shared_ptr<Logger> namedLogger(const QString& name, const QString& pattern)
{
    const Log& log = *Log::getInstance();
    std::shared_ptr<Logger> logger = log.containsLogger(name) ? log.logger(name) : nullptr;
    if (!logger)
        raise("BridgeLoggerUnknown", shownName(name), shownName(pattern));
    return logger;
}

} // namespace

/// Qt has one message handler for the process, a plain function: what it needs to know is one for
/// the process, too.
struct MessageBridge::Private {
    explicit Private(const Settings& settings);

    LoggerLevel::LogLevel levelFor(const char* category) const;
    std::shared_ptr<Logger> loggerFor(const char* category) const;
    void log(QtMsgType type, const QMessageLogContext& context, const QString& text) const;

    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& text);
    static bool logWithBridge(QtMsgType type, const QMessageLogContext& context,
                              const QString& text);
    static void passOn(QtMsgType type, const QMessageLogContext& context, const QString& text);

    Rules<LoggerLevel::LogLevel> levels;
    Rules<std::shared_ptr<Logger>> loggers;

    static inline constinit std::atomic<const Private*> current = nullptr;
    static inline constinit std::atomic<QtMessageHandler> handlerBefore = nullptr;

    // Shared by the threads that are logging a message.
    static inline constinit std::shared_mutex inUse;
};

MessageBridge::Private::Private(const Settings& settings)
{
    for (auto rule = settings.levels.begin(); rule != settings.levels.end(); ++rule)
        levels.add(rule.key(), rule.value());
    for (auto rule = settings.loggers.begin(); rule != settings.loggers.end(); ++rule)
        loggers.add(rule.key(), namedLogger(rule.value(), rule.key()));
}

LoggerLevel::LogLevel MessageBridge::Private::levelFor(const char* category) const
{
    const LoggerLevel::LogLevel* const level = levels.find(category);
    return level ? *level : LoggerLevel::debug;
}

std::shared_ptr<Logger> MessageBridge::Private::loggerFor(const char* category) const
{
    if (const std::shared_ptr<Logger>* const logger = loggers.find(category))
        return *logger;
    return Log::getInstance()->logger();
}

void MessageBridge::Private::log(QtMsgType type, const QMessageLogContext& context,
                                 const QString& text) const
{
    const char* const category = context.category ? context.category : DefaultCategory;
    const LoggerLevel::LogLevel level = levelOf(type);
    if (type != QtFatalMsg && level < levelFor(category))
        return;
    const std::shared_ptr<Logger> logger = loggerFor(category);
    if (level < logger->filter()) {
        if (type == QtFatalMsg)
            print(type, context, text);
        return;
    }
    const bool hasHead = qstrcmp(category, DefaultCategory) != 0;
    const QString line = hasHead ? lineUnder(category, text) : text;
    const BridgedLine bridged(line, line.size() - text.size());
    logger->writeTrace(level, line);
}

/// The message handler. It throws nothing, since Qt would end the process.
void MessageBridge::Private::handle(QtMsgType type, const QMessageLogContext& context,
                                    const QString& text)
{
    if (current && Logger::isWritingLine())
        print(type, context, text);
    else if (!logWithBridge(type, context, text))
        passOn(type, context, text);
}

/// False if there is no bridge any more.
bool MessageBridge::Private::logWithBridge(QtMsgType type, const QMessageLogContext& context,
                                           const QString& text)
{
    const std::shared_lock lock(inUse);
    const Private* const bridge = current;
    if (!bridge)
        return false;
    try {
        bridge->log(type, context, text);
    } catch (...) {
        print(type, context, text);
    }
    return true;
}

/// For a handler that was installed on top of a bridge, and outlives it.
void MessageBridge::Private::passOn(QtMsgType type, const QMessageLogContext& context,
                                    const QString& text)
{
    // The handler before may be one that passes its messages on to this function.
    constinit thread_local bool isPassingOn = false;
    const QtMessageHandler before = handlerBefore;
    if (isPassingOn || !before) {
        print(type, context, text);
        return;
    }
    const QScopedValueRollback<bool> passing(isPassingOn, true);
    before(type, context, text);
}

MessageBridge::MessageBridge() : MessageBridge(Settings())
{}

MessageBridge::MessageBridge(const Settings& settings)
    : _d(std::make_unique<const Private>(settings))
{
    const Private* none = nullptr;
    if (!Private::current.compare_exchange_strong(none, _d.get()))
        raise("BridgeExists");
    const QtMessageHandler before = qInstallMessageHandler(&Private::handle);
    if (before != &Private::handle)
        Private::handlerBefore = before;
}

MessageBridge::~MessageBridge()
{
    const QtMessageHandler installed = qInstallMessageHandler(Private::handlerBefore);
    if (installed != &Private::handle)
        qInstallMessageHandler(installed); // another one, on top of the bridge
    Private::current = nullptr;
    const std::unique_lock lastMessagesAreLogged(Private::inUse);
}

} // namespace KezService
