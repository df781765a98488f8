// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/timehelper.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QThread>
#include <QThreadStorage>
#include <QTimer>

#include <memory>
#include <vector>

namespace {

/// The event loops of a thread's pauses, one per pause within a pause. They stay allocated for the
/// next ones.
struct PauseLoops {
    std::vector<std::unique_ptr<QEventLoop>> loops;
    size_t running = 0;
};

PauseLoops& pauseLoops()
{
    static QThreadStorage<PauseLoops*> storage;
    if (!storage.hasLocalData())
        storage.setLocalData(new PauseLoops);
    return *storage.localData();
}

} // namespace

void TimeHelper::pause(int milliseconds)
{
    // An event loop that is made now prints a warning, and running it can take for ever.
    if (!QCoreApplication::instance()) {
        QThread::msleep(static_cast<unsigned long>(qMax(milliseconds, 0)));
        return;
    }

    PauseLoops& pauses = pauseLoops();
    if (pauses.running == pauses.loops.size())
        pauses.loops.push_back(std::make_unique<QEventLoop>());
    QEventLoop& loop = *pauses.loops[pauses.running];

    // A timer of this pause alone: one that is left over from a pause would end a later one.
    QTimer timer;
    timer.setSingleShot(true);
    timer.setTimerType(milliseconds < 2000 ? Qt::PreciseTimer : Qt::CoarseTimer);
    QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    timer.start(qMax(milliseconds, 0));

    ++pauses.running;
    loop.exec();
    --pauses.running;
}
