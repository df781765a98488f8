// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service_global.h"

#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>

namespace KezService {

/// Tells the init system how the service does: ready, reloading, stopping, alive.
///
/// The init system says in the environment where it listens (NOTIFY_SOCKET) and how often it wants
/// to hear that the service is alive (WATCHDOG_USEC, WATCHDOG_PID). Without that, for instance in a
/// terminal, every function does nothing. A value that cannot be used is said in the log and
/// ignored.
///
/// Texts are sent in UTF-8, without control characters: a line feed in a text cannot begin another
/// assignment. They are cut after 2048 bytes, since the init system drops long messages.
///
/// *Threads*: any thread reports; the constructor, the destructor and the watchdog's functions are
/// for the object's thread.
/// *Owns*: its socket.
/// *Fails*: never. The first message of a row that cannot be sent is said in the log.
class KEZ_SERVICE_EXPORT ServiceNotifier : public QObject {
    Q_OBJECT

public:
    /// What becomes of the three variables once they are read. If they stay, programs that the
    /// service starts inherit them, and may speak in its name.
    enum class Environment { Remove, Keep };

    /// Reads the environment. To remove a variable is safe only while no other thread reads the
    /// environment: build it before any thread is started.
    explicit ServiceNotifier(Environment environment = Environment::Remove,
                             QObject* parent = nullptr);
    ~ServiceNotifier() override;

    /// Whether there is an init system that listens.
    bool isListenedTo() const;

    /// After how long without a beat the init system ends the service; 0 if it does not watch it.
    std::chrono::microseconds watchdogTimeout() const;

    /// The service works; `status` is one line for operators.
    void ready(const QString& status = QString());

    /// The service reads its configuration again. Call ready() when it has.
    void reloading();

    /// The service ends its work.
    void stopping(const QString& status = QString());

    void status(const QString& text);

    /// Asks for more time: the start, the reload or the stop lasts `time` longer, counted from now.
    void extendTimeout(std::chrono::microseconds time);

    /// Beats now and then at half the timeout, from the event loop of this object's thread: if that
    /// thread hangs, the beats end, and the init system acts. With `isHealthy`, a beat is sent only
    /// if that answers true. Does nothing if the service is not watched.
    void startWatchdog(std::function<bool()> isHealthy = {});
    void stopWatchdog();

private:
    struct KEZ_HIDDEN Private;
    std::unique_ptr<Private> _d;
};

} // namespace KezService
