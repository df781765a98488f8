// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

/// Waiting while the thread's events are processed.
///
/// *Threads*: any thread that may run an event loop.
/// *Owns*: event loops, one for each pause within a pause, kept for the thread's next pauses.
/// *Fails*: never.
class KEZ_EXPORT TimeHelper {
public:
    TimeHelper() = delete;

    /// Waits while the calling thread's timers and queued signals are processed; 0 or less
    /// processes one round of events. Returns early if the thread's event loops are told to quit.
    /// A slot that runs during a pause may call it again. The outer pause then ends after the inner
    /// one. Without an application object no events are processed: the thread sleeps.
    static void pause(int milliseconds);
};
