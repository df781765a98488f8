// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

/// Start-up of the library.
///
/// A process with a core application object calls none of these: set-up runs by itself when that
/// object is constructed (or at once, when the library is loaded later). A process without one
/// calls kezEnsureInit() before its first use of the library.
///
/// Set-up runs once per process. It picks the language of the messages (`LANG` up to its last ".",
/// else the system locale, else "en_US" when the library has no such bundle), makes module "kez" in
/// that language the translator's default and loads the library's own bundle. An
/// Exception on the way is reported on Qt's critical message channel and set-up carries on; what
/// LangBundle::load throws, a pointer, travels on to the caller, and a later kezInit() then tries
/// again. Applications compile their own bundles into another directory than ":resources/lang": a
/// language that only they have there is chosen, and makes set-up throw.
///
/// *Threads*: kezInit, KezAutoInit: any thread, callers wait for the one that runs set-up.
/// kezEnsureInit, kezCleanup: one thread at a time.
/// *Owns*: nothing.
/// *Fails*: throws a pointer (see LangBundle::load), throws std::system_error.

KEZ_EXPORT void kezInit();

/// kezInit() in the form that Qt calls when the core application object is constructed.
KEZ_EXPORT void KezAutoInit();

/// kezInit() on the first call; nothing on later calls, even when the first one failed.
KEZ_EXPORT void kezEnsureInit();

/// Marks the library as no longer set up. Releases nothing, and set-up never runs again.
KEZ_EXPORT void kezCleanup();

/// Registers the compiled-in bundles below ":resources/lang"; done when the library is loaded.
/// Always 1.
KEZ_EXPORT int qInitResources_kez();

/// Undoes one registration. Always 1.
KEZ_EXPORT int qCleanupResources_kez();
