// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QChar>
#include <QString>
#include <QStringView>

/// How the kit keeps a text on one line, without anything that a terminal obeys, and short.
namespace KezService {

/// Where an escaped text stands: in a line of text, or between the quotes of a JSON string.
enum class EscapedFor { Line, Json };

/// Whether the character is written as an escape: control characters, the line and the paragraph
/// separator, and what the escapes themselves are made of.
template <EscapedFor place>
constexpr bool isEscaped(char16_t character)
{
    if (character < u' ' || character == u'\\')
        return true;
    if (place == EscapedFor::Json && character == u'"')
        return true;
    return (character >= 0x7f && character < 0xa0) || character == 0x2028 || character == 0x2029;
}

/// Whether `text` has half of a surrogate pair at `index`. UTF-8 cannot hold one.
inline bool isLoneSurrogate(QStringView text, qsizetype index)
{
    const QChar character = text[index];
    if (character.isHighSurrogate())
        return index + 1 == text.size() || !text[index + 1].isLowSurrogate();
    return character.isLowSurrogate() && (index == 0 || !text[index - 1].isHighSurrogate());
}

template <EscapedFor place>
void appendEscape(QString& out, char16_t character)
{
    out += u'\\';
    switch (character) {
    case u'\n':
        out += u'n';
        return;
    case u'\r':
        out += u'r';
        return;
    case u'\t':
        out += u't';
        return;
    case u'\\':
    case u'"':
        out += character;
        return;
    default:
        break;
    }
    const bool isShort = place == EscapedFor::Line && character < 0x100;
    out += isShort ? u'x' : u'u';
    for (int shift = isShort ? 4 : 12; shift >= 0; shift -= 4)
        out += u"0123456789abcdef"[(character >> shift) & 0xf];
}

/// Appends `text`. A line feed, a carriage return, a tab and a backslash become `\n`, `\r`, `\t`
/// and `\\`; other escaped characters become `\x1b` or, from U+0100 on and always in JSON,
/// `\u2028`. So a reader can tell every text. In JSON, half of a surrogate pair becomes U+FFFD.
template <EscapedFor place>
void appendEscaped(QString& out, QStringView text)
{
    qsizetype copied = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t character = text[i].unicode();
        const bool isHalf =
            place == EscapedFor::Json && QChar::isSurrogate(character) && isLoneSurrogate(text, i);
        if (!isHalf && !isEscaped<place>(character))
            continue;
        out += text.sliced(copied, i - copied);
        copied = i + 1;
        if (isHalf)
            out += QChar(QChar::ReplacementCharacter);
        else
            appendEscape<place>(out, character);
    }
    out += text.sliced(copied);
}

/// The longest beginning of a text in UTF-8 that has at most `size` bytes and ends with a whole
/// character.
inline QByteArray utf8Beginning(const QByteArray& text, qsizetype size)
{
    if (text.size() <= size)
        return text;
    while (size > 0 && (static_cast<unsigned char>(text.at(size)) & 0xC0U) == 0x80U)
        --size;
    return text.left(size);
}

} // namespace KezService
