// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/exception.h"
#include "kez/translator.h"

#include <QString>
#include <QStringBuilder>
#include <QVarLengthArray>

#include <algorithm>
#include <cstring>

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

/// The usual case, "%1" alone, needs no search for more markers.
inline QString completed(const QString& text, const QString& argument)
{
    const qsizetype marker = text.indexOf(QLatin1Char('%'));
    if (marker < 0)
        return text;
    const QStringView after = QStringView(text).sliced(marker + 1);
    const bool isAlone = after.startsWith(QLatin1Char('1')) && !after.contains(QLatin1Char('%')) &&
                         (after.size() == 1 || after[1].digitValue() < 0);
    if (!isAlone)
        return text.arg(argument);
    return QStringView(text).first(marker) % argument % after.sliced(1);
}

/// A key as a text that takes no memory, for a look-up while this object lives.
class Key {
public:
    explicit Key(const char* key) : _characters(static_cast<qsizetype>(std::strlen(key)))
    {
        std::transform(key, key + _characters.size(), _characters.begin(),
                       [](char c) { return QLatin1Char(c); });
    }

    QString text() const
    {
        return QString::fromRawData(_characters.constData(), _characters.size());
    }

private:
    QVarLengthArray<QChar, 64> _characters;
};

/// The completed text of a message key in the default language.
template <typename... Arguments>
QString message(const char* key, const Arguments&... arguments)
{
    return completed(Translator::getInstance()->string(Key(key).text()), arguments...);
}

/// The same, from the library's own bundle only.
template <typename... Arguments>
QString libraryMessage(const char* key, const Arguments&... arguments)
{
    return completed(Translator::getInstance()->string(Key(key).text(), QStringLiteral("kez")),
                     arguments...);
}

/// "signature -> message"
inline QString text(const char* signature, const QString& message)
{
    return QLatin1String(signature) % QLatin1String(" -> ") % message;
}

/// What raise() throws. A function of its own keeps raise() small.
[[gnu::noinline]] inline Exception raised(const char* signature, const QString& message)
{
    return Exception(text(signature, message), nullptr);
}

/// Throws "signature -> message" by value. Inlined, since to unwind one more function takes a fifth
/// of a failure's time.
[[noreturn, gnu::always_inline]] inline void raise(const char* signature, const QString& message)
{
    throw raised(signature, message);
}

} // namespace Failure
