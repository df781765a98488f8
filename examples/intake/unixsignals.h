// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QObject>
#include <QString>

namespace intake {

/// Turns the signals that operators send into Qt signals.
///
/// They are blocked for good and read from a descriptor, so that no code runs in a signal handler.
/// To be built before any thread is started: threads inherit the blocking.
///
/// *Threads*: the object's thread.
/// *Owns*: its descriptor.
/// *Fails*: the constructor throws std::system_error.
class UnixSignals : public QObject {
    Q_OBJECT

public:
    explicit UnixSignals(QObject* parent = nullptr);
    ~UnixSignals() override;

    /// Begins to tell signals; those that came before are told first.
    void listen();

Q_SIGNALS:
    void terminateReceived(const QString& name); // SIGTERM, SIGINT
    void hangUpReceived();                       // SIGHUP

private:
    void readOne();

    int _descriptor = -1;
};

} // namespace intake
