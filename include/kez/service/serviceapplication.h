// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "exitcodes.h"
#include "service_global.h"

#include <QCoreApplication>

#include <memory>

namespace KezService {

/// An application object that survives what escapes an event handler: it logs an error with the
/// class and the name of the receiver, the type of the event and the text of the exception, counts
/// it, and goes on with the next event.
///
/// It guards every event that Qt delivers, in all threads: slots that are called by queued signals,
/// timers, socket notifiers, children's events. An Exception that was thrown as a pointer is
/// deleted. std::bad_alloc is an exception like the others: on Linux it means one request that was
/// too large, not the end of the memory.
///
/// It cannot catch what is thrown outside of an event handler: in main(), in QThread::run() before
/// exec(), in a std::thread. What a slot throws goes to the code that emitted the signal, if it was
/// called directly. What leaves a destructor or a noexcept function ends the process.
///
/// *Threads*: notify() and escapedCount() from any thread, the rest in the main thread.
/// *Owns*: nothing.
/// *Fails*: never. An exception that cannot be logged is only counted.
class KEZ_SERVICE_EXPORT ServiceApplication : public QCoreApplication {
    Q_OBJECT

public:
    /// As QCoreApplication: `argc` and `argv` must stay as long as the object.
    ServiceApplication(int& argc, char** argv);
    ~ServiceApplication() override;

    /// How many exceptions escaped so far.
    int escapedCount() const;

    /// After so many escaped exceptions, counted from the start, the event loop ends with
    /// `exitCode`. 0, as at the start, means that none ends it.
    void setEscapedLimit(int limit, int exitCode = ExitFailure);

    bool notify(QObject* receiver, QEvent* event) override;

private:
    struct KEZ_HIDDEN Private;
    std::unique_ptr<Private> _d;
};

} // namespace KezService
