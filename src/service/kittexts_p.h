// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <kez/exception.h>

#include <QString>

/// The kit's own texts, for its log lines and failures.
///
/// They are in French if the language of the process's texts is French, otherwise in English. The
/// kit keeps its two bundles to itself: a switch of the application's language needs no bundle of
/// the kit, and Log::languages() does not list them.
namespace KezService {

/// The text of `key`, with its place markers; "[key]" if there is none.
QString kitText(const char* key);

/// The text of `key`. All arguments are put in by one substitution, so that a "%2" inside a value
/// stays as it is.
template <typename... Arguments>
QString kitText(const char* key, const Arguments&... arguments)
{
    const QString text = kitText(key);
    return text.contains(QLatin1Char('%')) ? text.arg(arguments...) : text;
}

/// Throws an Exception with that text.
template <typename... Arguments>
[[noreturn]] void raise(const char* key, const Arguments&... arguments)
{
    throw Exception(kitText(key, arguments...));
}

/// The system's text for an error number, in the language of the C library's locale.
QString systemErrorText(int error);

/// A file name as one line of a log can show it: escaped as appendEscaped() does for a line ("\n",
/// "\x1b", and a backslash doubled).
QString shownName(const QString& name);

} // namespace KezService
