// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

#include <QString>

/// Who made the library and which version it is.
///
/// *Threads*: any thread, once set-up is done (see initlib.h). defaultCopyright() and
/// borderedTitle() look a text up: see Translator.
/// *Owns*: nothing.
/// *Fails*: never.
namespace Kez {

/// "1.6.3"
KEZ_EXPORT QString version();

/// Twelve digits, year to minute: "202610231919"
KEZ_EXPORT QString build();

/// "1.6.3 (202610231919)"
KEZ_EXPORT QString fullVersion();

/// "Vandrel", in every language.
KEZ_EXPORT QString defaultAuthor();

/// The text of the key "DefaultCopyright" in the default language: "(c) Vandrel".
KEZ_EXPORT QString defaultCopyright();

/// A framed title for a start-up banner. The title is trimmed. The line below the frame is
/// `copyright`, or defaultCopyright() if that is empty; there is none if it is exactly "-". The
/// block ends with an empty line.
///
///     borderedTitle(" Demo ", "")  ->  +------+
///                                      | Demo |
///                                      +------+
///                                      (c) Vandrel
///
KEZ_EXPORT QString borderedTitle(const QString& title, QString copyright = QString());

} // namespace Kez
