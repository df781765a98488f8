// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service_global.h"

#include <QObject>
#include <QString>

#include <memory>

namespace KezService {

/// Turns SIGTERM, SIGINT and SIGHUP into Qt signals, while it lives.
///
/// Build it first in main(), and call listen() when the service can stop: a signal that came
/// earlier is kept, and emitted then. Without such an object, SIGTERM, SIGINT and SIGHUP end the
/// process at once.
///
/// The handlers only write the signal's number into a pipe. They are the process's, so it does not
/// matter which threads run already, and a program that the service starts has the system's usual
/// handlers again. A system call that a signal interrupts is made again, except those that never
/// are: a sleep may end early. The pipe holds 65536 signals; one that comes while it is full is
/// lost.
///
/// In a child that was forked and goes on without another program, the parent's object receives
/// nothing: there the three signals end the process, until the child builds an object of its own.
///
/// *Threads*: the object's thread.
/// *Owns*: the handlers of the three signals. The destructor puts the previous ones back.
/// *Fails*: the constructor throws Exception: if the process has such an object already, or if it
/// has no free descriptor.
class KEZ_SERVICE_EXPORT UnixSignals : public QObject {
    Q_OBJECT

public:
    explicit UnixSignals(QObject* parent = nullptr);

    /// A signal that was received and not emitted yet is lost.
    ~UnixSignals() override;

    /// Begins to emit, from the event loop. The first call counts.
    void listen();

Q_SIGNALS:
    /// The first SIGTERM or SIGINT; `name` says which.
    void stopRequested(const QString& name);

    /// Each further one. Somebody is in a hurry: the service may leave by QCoreApplication::exit()
    /// or std::_Exit() instead of waiting for the end of its work.
    void stopRequestedAgain(const QString& name);

    /// SIGHUP: by custom, a request to read the configuration again.
    void hangUpReceived();

private:
    struct KEZ_HIDDEN Private;

    KEZ_HIDDEN void readOne();

    std::unique_ptr<Private> _d;
};

} // namespace KezService
