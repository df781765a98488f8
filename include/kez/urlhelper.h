// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

#include <QString>

/// Validity tests of e-mail addresses and URLs. An empty text is never valid.
///
/// *Threads*: any thread.
/// *Owns*: nothing.
/// *Fails*: never.
class KEZ_EXPORT UrlHelper {
public:
    /// Whether the text is or contains an address. Meant for short texts: the time grows with the
    /// square of the length of a run of dotted words, and a run of tens of thousands of characters
    /// is not searched to its end.
    static bool isEmailValid(const QString& text);

    /// Whether the text begins with "http://" or "https://", in lower case, and is a URL.
    static bool isHttpUrlValid(const QString& text);

    /// Whether the text is a URL. A text that begins with "mailto:" is one only if `acceptMailto`.
    static bool isUrlValid(const QString& text, bool acceptMailto = false);

    /// Whether the text has no scheme.
    static bool isRelativeUrl(const QString& text);
};
