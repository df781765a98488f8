// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/ringlogger_p.h"

#include "config/loggerfromkeys_p.h"
#include "log/ringname_p.h"
#include "service/kittexts_p.h"
#include "service/processlock_p.h"

#include <kez/configuration.h>

#include <algorithm>
#include <cerrno>
#include <list>
#include <mutex>
#include <unistd.h>
#include <utility>

namespace KezService {

namespace {

/// Others must not be able to open the file: whoever holds it keeps the service from starting.
constexpr mode_t OnlyOwner = 0600;

/// The rings that this process holds. The process is the holder, whatever becomes of its loggers,
/// since copies of a logger may be anywhere: so this is one for the process, too.
class HeldRings {
public:
    /// Takes the lock on that file, or has it already. The system's error number, or 0; EWOULDBLOCK
    /// if another process holds it, and who that is.
    std::pair<int, QString> hold(const QString& path)
    {
        const std::lock_guard<std::mutex> guard(_mutex);
        // A forked process has descriptors of the locks, but it is not their holder.
        const auto isInherited = [&](const Held& held) {
            return held.process != ::getpid() && held.lock.isOn(path);
        };
        _held.remove_if(isInherited);
        const auto isHeld = [&](const Held& held) { return held.lock.isOn(path); };
        if (std::any_of(_held.begin(), _held.end(), isHeld))
            return {0, QString()};
        ProcessLock lock(path, OnlyOwner);
        if (const int error = lock.take(); error != 0)
            return {error, lock.holder()};
        _held.push_back({std::move(lock), ::getpid()});
        return {0, QString()};
    }

private:
    struct Held {
        ProcessLock lock;
        pid_t process;
    };
    std::mutex _mutex;
    std::list<Held> _held;
};

/// Throws if another process holds the ring. The result says why it could not be held, if so.
QStringList holdRing(const QString& fileName)
{
    static HeldRings rings;
    const QString pattern = RingName::absolutePattern(RingName::pattern(fileName));
    const QString head = RingName::head(pattern); // "app-"
    const QString directory = pattern.left(pattern.lastIndexOf(QLatin1Char('/')) + 1);
    const QString path = directory + QLatin1Char('.') + head.chopped(1) + QStringLiteral(".lock");
    const auto [error, holder] = rings.hold(path);
    if (error == EWOULDBLOCK)
        raise("FrameRingTaken", shownName(directory + head + QStringLiteral("*.log")), holder);
    if (error != 0)
        return {kitText("FrameRingNotHeld", shownName(path), systemErrorText(error))};
    return {};
}

/// Builds by `build`, on a ring that is held and checked.
template <typename Build>
RingLogger builtBy(Build build, const Properties& properties)
{
    const LoggerFromKeys::Settings settings = LoggerFromKeys::read(properties);
    const QStringList texts = holdRing(settings.fileName);
    RingReport report = checkLogRing(settings.fileName, settings.kept);
    report.texts = texts + report.texts;
    return {build(), report};
}

} // namespace

RingLogger buildRingLogger(const Properties& properties)
{
    return builtBy([&] { return Config::buildFileSystemLogger(properties); }, properties);
}

RingLogger buildRingLogger(const Properties& properties, LogFormatter formatter)
{
    RingLogger built =
        builtBy([&] { return LoggerFromKeys::build(properties, formatter); }, properties);
    built.logger->disableTee();
    if (LoggerFromKeys::asksForTee(properties))
        built.report.texts.prepend(kitText("BridgeTeeStaysOff"));
    return built;
}

} // namespace KezService
