// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/exception.h"
#include "kez/translator.h"

#include <QString>

/// How the library composes the text of a failure: the failing function's signature, then the
/// message with its arguments. All arguments are put in by one substitution, so that a "%2" inside
/// a value stays as it is.
namespace Failure {

/// `text` with its place markers replaced. A text without any, such as "[key]", stays as it is.
template <typename... Arguments>
QString completed(const QString& text, const Arguments&... arguments)
{
    if constexpr (sizeof...(arguments) == 0)
        return text;
    else
        return text.contains(QLatin1Char('%')) ? text.arg(arguments...) : text;
}

/// The completed text of a message key in the default language.
template <typename... Arguments>
QString message(const char* key, const Arguments&... arguments)
{
    return completed(Translator::getInstance()->string(QString::fromLatin1(key)), arguments...);
}

/// The same, from the library's own bundle only.
template <typename... Arguments>
QString libraryMessage(const char* key, const Arguments&... arguments)
{
    return completed(
        Translator::getInstance()->string(QString::fromLatin1(key), QStringLiteral("kez")),
        arguments...);
}

/// "signature -> message"
inline QString text(const char* signature, const QString& message)
{
    return QString::fromLatin1(signature) + QStringLiteral(" -> ") + message;
}

/// Throws "signature -> message" by value.
[[noreturn]] inline void raise(const char* signature, const QString& message)
{
    throw Exception(text(signature, message), nullptr);
}

} // namespace Failure
