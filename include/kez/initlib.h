// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

/// Start-up of the library.
///
/// A process with a core application object calls none of these: set-up runs by itself when that
/// object is constructed, or at once if the library is loaded later. A process without one calls
/// kezEnsureInit() before its first use of the library. Code that runs before set-up calls it too:
/// static constructors, and functions registered with Q_COREAPP_STARTUP_FUNCTION, which Qt runs
/// before the library's own. Until then every text reads as "[key]".
///
/// Set-up runs once per process. It picks the language of the messages, makes module "kez" in that
/// language the translator's default and loads the library's own bundle.
///
/// The language is the environment variable LANG up to its last "."; LC_ALL, LC_MESSAGES and
/// LANGUAGE do not count. If LANG is unset or empty, it is the language of QLocale::system(), which
/// looks at these three. If the library has no bundle for the result, it is "en_US". So a service
/// that is started without any of them speaks English.
///
/// An Exception on the way is reported on Qt's critical message channel, and set-up goes on.
/// LangBundle::load throws a pointer, which reaches the caller; a later kezInit() then tries again.
///
/// An application must not compile its own bundles into ":resources/lang". If it has a bundle there
/// in a language that the library lacks, and the user has that language, set-up picks it, does not
/// find the library's own bundle and throws a pointer. If the application object's constructor
/// throws it, the process ends without a text that names the cause.
///
/// *Threads*: kezInit, KezAutoInit: any thread, callers wait for the one that runs set-up.
/// kezEnsureInit, kezCleanup: one thread at a time.
/// *Owns*: nothing.
/// *Fails*: throws a pointer (see LangBundle::load), throws std::system_error.

KEZ_EXPORT void kezInit();

/// kezInit() in the form that Qt calls when the core application object is constructed.
KEZ_EXPORT void KezAutoInit();

/// kezInit() on the first call; nothing on later calls, even if the first one failed.
KEZ_EXPORT void kezEnsureInit();

/// Only clears an internal flag: nothing is released, and set-up never runs again.
KEZ_EXPORT void kezCleanup();

/// Registers the compiled-in bundles below ":resources/lang". Loading the library does so.
/// Always 1.
KEZ_EXPORT int qInitResources_kez();

/// Undoes one registration. Always 1.
KEZ_EXPORT int qCleanupResources_kez();
