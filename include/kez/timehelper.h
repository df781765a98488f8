// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

/// Waiting without holding up the thread's events.
///
/// *Threads*: any thread that may run an event loop.
/// *Owns*: event loops, one per pause within a pause, kept for the thread's next ones.
/// *Fails*: never.
class KEZ_EXPORT TimeHelper {
public:
    TimeHelper() = delete;

    /// Waits while the calling thread's timers and queued signals are processed; 0 or less for one
    /// round of events. Returns early when the thread's event loops are told to quit. May be called
    /// again from a slot that runs meanwhile: the outer pause then ends after the inner one.
    /// Without an application object there are no events, and the thread sleeps.
    static void pause(int milliseconds);
};
