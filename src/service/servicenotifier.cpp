// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/servicenotifier.h"

#include "service/descriptor_p.h"
#include "service/escapedtext_p.h"
#include "service/kittexts_p.h"

#include <kez/log.h>

#include <QTimer>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <limits>
#include <optional>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace KezService {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr const char* SocketVariable = "NOTIFY_SOCKET";
constexpr const char* TimeoutVariable = "WATCHDOG_USEC";
constexpr const char* ProcessVariable = "WATCHDOG_PID";

constexpr qsizetype LongestText = 2048; // bytes

/// How long a message that must not be lost waits for an init system that is busy.
constexpr timeval LongestWait{1, 0};

enum class Urgency { MayBeLost, MustArrive };

struct Address {
    sockaddr_un address{};
    socklen_t size = 0;

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address); }
};

/// The address "/path" or "@name in the abstract namespace".
std::optional<Address> parsedAddress(const QByteArray& text)
{
    Address parsed;
    const bool isAbstract = text.startsWith('@');
    const auto length = static_cast<std::size_t>(text.size());
    if ((!isAbstract && !text.startsWith('/')) || length < 2 ||
        length >= sizeof parsed.address.sun_path)
        return std::nullopt;
    parsed.address.sun_family = AF_UNIX;
    std::memcpy(parsed.address.sun_path, text.constData(), length);
    if (isAbstract)
        parsed.address.sun_path[0] = '\0';
    // The path includes its final zero, an abstract name has none.
    parsed.size =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length + (isAbstract ? 0 : 1));
    return parsed;
}

/// The variable's value; null if it is not set.
QByteArray taken(const char* variable, ServiceNotifier::Environment environment)
{
    if (!qEnvironmentVariableIsSet(variable))
        return {};
    QByteArray value = qgetenv(variable);
    if (environment == ServiceNotifier::Environment::Remove)
        qunsetenv(variable);
    return value.isNull() ? QByteArray("") : value;
}

QString shownValue(const QByteArray& value)
{
    return shownName(QString::fromLocal8Bit(value));
}

/// A positive number in digits alone; nothing, and a line in the log, for any other value.
std::optional<qint64> positiveNumber(const char* variable, const QByteArray& value)
{
    bool isNumber = false;
    const qint64 number = value.toLongLong(&isNumber);
    const bool isPlain =
        std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (isNumber && isPlain && number > 0)
        return number;
    Log::getInstance()->warning(
        kitText("FrameWatchdogValue", QString::fromLatin1(variable), shownValue(value)));
    return std::nullopt;
}

/// Zero if the service is not watched, or another process is meant.
microseconds timeoutIn(const QByteArray& timeout, const QByteArray& process)
{
    if (timeout.isNull())
        return microseconds::zero();
    if (!process.isNull()) {
        const auto number = positiveNumber(ProcessVariable, process);
        if (number != qint64{::getpid()})
            return microseconds::zero();
    }
    return microseconds(positiveNumber(TimeoutVariable, timeout).value_or(0));
}

QByteArray oneLine(const QString& text)
{
    return utf8Beginning(shownName(text).toUtf8(), LongestText);
}

QByteArray withStatus(const QByteArray& message, const QString& status)
{
    return status.isEmpty() ? message : message + "\nSTATUS=" + oneLine(status);
}

QByteArray monotonicTime()
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return QByteArray::number(qint64{now.tv_sec} * 1000000 + now.tv_nsec / 1000);
}

} // namespace

struct ServiceNotifier::Private {
    std::optional<Address> address;
    Descriptor socket;
    microseconds timeout{0};
    QTimer timer;
    std::function<bool()> isHealthy;
    bool wasHealthy = true;
    std::atomic<bool> hasFailed = false;

    explicit Private(Environment environment);
    void open(const QByteArray& text);
    void send(const QByteArray& message, Urgency urgency);
    void beat();
};

ServiceNotifier::Private::Private(Environment environment)
{
    const QByteArray text = taken(SocketVariable, environment);
    const QByteArray watched = taken(TimeoutVariable, environment);
    const QByteArray process = taken(ProcessVariable, environment);
    if (text.isEmpty())
        return;
    open(text);
    if (socket.isOpen())
        timeout = timeoutIn(watched, process);
    QObject::connect(&timer, &QTimer::timeout, &timer, [this] { beat(); });
}

void ServiceNotifier::Private::open(const QByteArray& text)
{
    address = parsedAddress(text);
    if (!address) {
        Log::getInstance()->warning(kitText("FrameNotifyAddress", shownValue(text)));
        return;
    }
    socket = Descriptor(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket.isOpen() || ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &LongestWait,
                                         sizeof LongestWait) != 0) {
        Log::getInstance()->warning(kitText("FrameNotifyFailed", systemErrorText(errno)));
        socket.close();
    }
}

void ServiceNotifier::Private::send(const QByteArray& message, Urgency urgency)
{
    if (!socket.isOpen())
        return;
    const int flags = MSG_NOSIGNAL | (urgency == Urgency::MayBeLost ? MSG_DONTWAIT : 0);
    ssize_t sent = 0;
    do
        sent = ::sendto(socket.get(), message.constData(), static_cast<std::size_t>(message.size()),
                        flags, address->get(), address->size);
    while (sent < 0 && errno == EINTR);
    const int error = errno;
    if (!hasFailed.exchange(sent < 0) && sent < 0)
        Log::getInstance()->warning(kitText("FrameNotifyFailed", systemErrorText(error)));
}

void ServiceNotifier::Private::beat()
{
    const bool isHealthyNow = !isHealthy || isHealthy();
    if (std::exchange(wasHealthy, isHealthyNow) != isHealthyNow) {
        if (isHealthyNow)
            Log::getInstance()->info(kitText("FrameWatchdogHealthy"));
        else
            Log::getInstance()->warning(kitText("FrameWatchdogUnhealthy"));
    }
    if (isHealthyNow)
        send("WATCHDOG=1", Urgency::MayBeLost);
}

ServiceNotifier::ServiceNotifier(Environment environment, QObject* parent)
    : QObject(parent), _d(std::make_unique<Private>(environment))
{
    _d->timer.setParent(this);
}

ServiceNotifier::~ServiceNotifier() = default;

bool ServiceNotifier::isListenedTo() const
{
    return _d->socket.isOpen();
}

microseconds ServiceNotifier::watchdogTimeout() const
{
    return _d->timeout;
}

void ServiceNotifier::ready(const QString& status)
{
    _d->send(withStatus("READY=1", status), Urgency::MustArrive);
}

void ServiceNotifier::reloading()
{
    _d->send("RELOADING=1\nMONOTONIC_USEC=" + monotonicTime(), Urgency::MustArrive);
}

void ServiceNotifier::stopping(const QString& status)
{
    _d->send(withStatus("STOPPING=1", status), Urgency::MustArrive);
}

void ServiceNotifier::status(const QString& text)
{
    _d->send("STATUS=" + oneLine(text), Urgency::MayBeLost);
}

void ServiceNotifier::extendTimeout(microseconds time)
{
    _d->send("EXTEND_TIMEOUT_USEC=" + QByteArray::number(qint64{time.count()}),
             Urgency::MustArrive);
}

void ServiceNotifier::startWatchdog(std::function<bool()> isHealthy)
{
    if (_d->timeout == microseconds::zero())
        return;
    _d->isHealthy = std::move(isHealthy);
    const auto half = std::chrono::duration_cast<milliseconds>(_d->timeout / 2);
    _d->timer.start(
        std::clamp(half, milliseconds(1), milliseconds(std::numeric_limits<int>::max())));
    _d->beat();
}

void ServiceNotifier::stopWatchdog()
{
    _d->timer.stop();
}

} // namespace KezService
