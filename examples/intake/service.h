// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "unixsignals.h"
#include "workshop.h"

#include <QObject>

class Config;

namespace intake {

/// The running service: the worker thread, and the operators' signals.
///
/// *Threads*: the main thread. Build it before any other thread is started.
/// *Owns*: the worker thread.
/// *Fails*: the constructor throws std::system_error; run() throws Exception.
class Service : public QObject {
    Q_OBJECT

public:
    /// `config` is legal and has its logger, which is the process's.
    explicit Service(const Config& config);

    /// Serves until a signal ends it. If the work cannot begin, it logs the failure and throws
    /// Exception.
    void run();

private:
    void stop(const QString& signal);
    void switchLanguage();

    UnixSignals _signals;
    WorkerThread _worker;
};

} // namespace intake
