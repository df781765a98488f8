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

/// The event loops of a thread's pauses, one for each pause within a pause. They stay allocated for
/// later pauses.
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
    // Without an application object an event loop prints a warning and may never end.
    if (!QCoreApplication::instance()) {
        QThread::msleep(static_cast<unsigned long>(qMax(milliseconds, 0)));
        return;
    }

    PauseLoops& pauses = pauseLoops();
    if (pauses.running == pauses.loops.size())
        pauses.loops.push_back(std::make_unique<QEventLoop>());
    QEventLoop& loop = *pauses.loops[pauses.running];

    // Each pause has its own timer: one that is left over would end a later pause.
    QTimer timer;
    timer.setSingleShot(true);
    timer.setTimerType(milliseconds < 2000 ? Qt::PreciseTimer : Qt::CoarseTimer);
    QObject::connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
    timer.start(qMax(milliseconds, 0));

    ++pauses.running;
    loop.exec();
    --pauses.running;
}
