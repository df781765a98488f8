// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/xmlcharacters_p.h"

#include <QList>
#include <QXmlStreamReader>

#include <algorithm>
#include <array>
#include <cstdint>

namespace KezService {

namespace {

struct Range {
    char32_t first;
    char32_t last;
};

/// Characters that a local name begins with, and what else is in it.
constexpr Range NameStarts[] = {
    {'A', 'Z'},       {'_', '_'},       {'a', 'z'},       {0xC0, 0xD6},     {0xD8, 0xF6},
    {0xF8, 0x2FF},    {0x370, 0x37D},   {0x37F, 0x1FFF},  {0x200C, 0x200D}, {0x2070, 0x218F},
    {0x2C00, 0x2FEF}, {0x3001, 0xD7FF}, {0xF900, 0xFDCF}, {0xFDF0, 0xFFFD}, {0x10000, 0xEFFFF},
};
constexpr Range NameOthers[] = {
    {'-', '.'}, {'0', '9'}, {0xB7, 0xB7}, {0x300, 0x36F}, {0x203F, 0x2040},
};

template <std::size_t Size>
constexpr bool isIn(const Range (&ranges)[Size], char32_t character)
{
    return std::any_of(std::begin(ranges), std::end(ranges), [character](const Range& range) {
        return character >= range.first && character <= range.last;
    });
}

constexpr bool isNameStart(char32_t character)
{
    return isIn(NameStarts, character);
}

constexpr bool isInName(char32_t character)
{
    return isNameStart(character) || isIn(NameOthers, character);
}

/// Line ends, and tabs in attributes, would be read as other blanks.
constexpr QStringView reference(char16_t character, XmlPlace place)
{
    const bool isInAttribute = place == XmlPlace::Attribute;
    switch (character) {
    case u'&':
        return u"&amp;";
    case u'<':
        return u"&lt;";
    case u'>': // "]]>" must not stand in a text
        return u"&gt;";
    case u'\r':
        return u"&#13;";
    case u'"':
        return isInAttribute ? QStringView(u"&quot;") : QStringView();
    case u'\n':
        return isInAttribute ? QStringView(u"&#10;") : QStringView();
    case u'\t':
        return isInAttribute ? QStringView(u"&#9;") : QStringView();
    default:
        return QStringView();
    }
}

constexpr bool isPlain(char16_t character, XmlPlace place)
{
    const bool isHeld = character >= u' ' || character == u'\t' || character == u'\n';
    return isHeld && reference(character, place).isEmpty();
}

enum Kind : std::uint8_t { PlainInContent = 1, PlainInAttribute = 2, StartsName = 4, InName = 8 };

constexpr std::array<std::uint8_t, 128> kindsOfAscii()
{
    std::array<std::uint8_t, 128> kinds{};
    for (char16_t c = 0; c < 128; ++c) {
        kinds[c] = static_cast<std::uint8_t>(
            (isPlain(c, XmlPlace::Content) ? PlainInContent : 0) |
            (isPlain(c, XmlPlace::Attribute) ? PlainInAttribute : 0) |
            (isNameStart(c) ? StartsName : 0) | (isInName(c) ? InName : 0));
    }
    return kinds;
}

constexpr std::array<std::uint8_t, 128> Kinds = kindsOfAscii();

bool isOfKind(QChar character, Kind kind)
{
    return character.unicode() < Kinds.size() && (Kinds[character.unicode()] & kind) != 0;
}

/// Nearly all names: short ones in ASCII.
bool isCommonName(QStringView name)
{
    constexpr qsizetype Longest = 256;
    return !name.isEmpty() && name.size() <= Longest && isOfKind(name.front(), StartsName) &&
           std::all_of(name.begin(), name.end(), [](QChar c) { return isOfKind(c, InName); });
}

bool isLocalName(QStringView name)
{
    if (name.isEmpty() || !name.isValidUtf16())
        return false;
    const QList<uint> characters = name.toUcs4();
    return isNameStart(characters.first()) &&
           std::all_of(characters.cbegin(), characters.cend(), isInName);
}

/// Whether the name of an element or of an attribute comes out of the document.
bool isRead(const QString& name, const QString& document)
{
    QXmlStreamReader reader(document.toUtf8());
    if (!reader.readNextStartElement())
        return false;
    return reader.attributes().isEmpty() ? reader.name() == name
                                         : reader.attributes().constFirst().name() == name;
}

} // namespace

qsizetype xmlPlainLength(QStringView text, XmlPlace place)
{
    const Kind kind = place == XmlPlace::Content ? PlainInContent : PlainInAttribute;
    const char16_t* const begin = text.utf16();
    const char16_t* const end = begin + text.size();
    const char16_t* at = begin;
    while (at != end) {
        const char16_t c = *at;
        if (c < Kinds.size()) {
            if ((Kinds[c] & kind) == 0)
                break;
        } else if (QChar::isSurrogate(c)) {
            if (QChar::isLowSurrogate(c) || end - at == 1 || !QChar::isLowSurrogate(at[1]))
                break;
            ++at;
        } else if (c >= 0xFFFE) {
            break;
        }
        ++at;
    }
    return at - begin;
}

QStringView xmlReference(QChar character, XmlPlace place)
{
    return reference(character.unicode(), place);
}

bool isXmlBlank(QStringView text)
{
    return std::all_of(text.begin(), text.end(),
                       [](QChar c) { return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r'; });
}

/// An attribute "xmlns" declares a namespace: the reader does not list it.
bool XmlNames::isOfAttribute(const QString& name)
{
    return name != QLatin1String("xmlns") && isName(name, _attributes, "<a %1=''/>");
}

bool XmlNames::isName(const QString& name, QSet<QString>& known, const char* document)
{
    constexpr qsizetype MostKnown = 256;
    if (isCommonName(name) || known.contains(name))
        return true;
    if (!isLocalName(name) || !isRead(name, QString::fromLatin1(document).arg(name)))
        return false;
    if (known.size() == MostKnown)
        known.clear();
    known.insert(name);
    return true;
}

} // namespace KezService
