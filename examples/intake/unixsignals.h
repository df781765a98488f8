// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QObject>
#include <QString>

namespace intake {

/// Turns the signals that operators send into Qt signals.
///
/// They stay blocked and are read from a descriptor, so that no code runs in a signal handler.
/// Build it before any thread is started: threads inherit the blocked signals.
///
/// *Threads*: the object's thread.
/// *Owns*: its descriptor.
/// *Fails*: the constructor throws std::system_error.
class UnixSignals : public QObject {
    Q_OBJECT

public:
    explicit UnixSignals(QObject* parent = nullptr);
    ~UnixSignals() override;

    /// Begins to emit signals, first those that came before.
    void listen();

Q_SIGNALS:
    void terminateReceived(const QString& name); // SIGTERM, SIGINT
    void hangUpReceived();                       // SIGHUP

private:
    void readOne();

    int _descriptor = -1;
};

} // namespace intake
