// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/text.h"

#include <QStringView>

#include <algorithm>
#include <array>
#include <string_view>

namespace {

struct Row {
    char16_t codePoint = 0;
    std::u16string_view entity;
};

// Some of these are not the entities of the HTML standard: see the comment of LATIN.
constexpr std::array<Row, 100> Rows{{
    {34, u"&quot;"},    {38, u"&amp;"},     {39, u"&apos;"},    {60, u"&lt;"},
    {62, u"&gt;"},      {161, u"&iexcl;"},  {162, u"&cent;"},   {163, u"&pound;"},
    {164, u"&curren;"}, {165, u"&yen;"},    {166, u"&brvbar;"}, {167, u"&sect;"},
    {168, u"&uml;"},    {169, u"&copy;"},   {170, u"&ordf;"},   {171, u"&laquo;"},
    {172, u"&not;"},    {173, u"&shy;"},    {174, u"&reg;"},    {175, u"&macr;"},
    {176, u"&deg;"},    {177, u"&plusmn;"}, {178, u"&sup2;"},   {179, u"&sup3;"},
    {180, u"&acute;"},  {181, u"&micro;"},  {182, u"&para;"},   {183, u"&middot;"},
    {184, u"&cedil;"},  {185, u"&sup1;"},   {186, u"&ordm;"},   {187, u"&raquo;"},
    {188, u"&frac14;"}, {189, u"&frac12;"}, {190, u"&frac34;"}, {191, u"&iquest;"},
    {192, u"&Agrave;"}, {193, u"&Aacute;"}, {194, u"&Acirc;"},  {195, u"&Atilde;"},
    {196, u"&Auml;"},   {197, u"&Aring;"},  {198, u"&Aelig;"},  {199, u"&Ccedil;"},
    {200, u"&Egrave;"}, {201, u"&Eacute;"}, {202, u"&Ecirc;"},  {203, u"&Euml;"},
    {204, u"&lgrave;"}, {205, u"&lacute;"}, {206, u"&lcirc;"},  {207, u"&luml;"},
    {208, u"&ETH;"},    {209, u"&Ntilde;"}, {210, u"&Ograve;"}, {211, u"&Oacute;"},
    {212, u"&Ocirc;"},  {213, u"&Otilde;"}, {214, u"&Ouml;"},   {215, u"&times;"},
    {216, u"&Oslash;"}, {217, u"&Ugrave;"}, {218, u"&Uacute;"}, {219, u"&Ucirc;"},
    {220, u"&Uuml;"},   {221, u"&Yacute;"}, {222, u"&THORN;"},  {223, u"&szlig;"},
    {224, u"&agrav;"},  {225, u"&aacute;"}, {226, u"&acirc;"},  {227, u"&atilde;"},
    {228, u"&auml;"},   {229, u"&aring;"},  {230, u"&aelig;"},  {231, u"&ccedil;"},
    {232, u"&egrave;"}, {233, u"&eacute;"}, {234, u"&ecirc;"},  {235, u"&euml;"},
    {236, u"&igrave;"}, {237, u"&iacute;"}, {238, u"&icirc;"},  {239, u"&iuml;"},
    {240, u"&eth;"},    {241, u"&ntilde;"}, {242, u"&ograve;"}, {243, u"&oacute;"},
    {244, u"&ocirc;"},  {245, u"&otilde;"}, {246, u"&ouml;"},   {247, u"&otilde;"},
    {248, u"&oslash;"}, {249, u"&ugrave;"}, {250, u"&uacute;"}, {251, u"&ucirc;"},
    {252, u"&uuml;"},   {253, u"&yacut;"},  {254, u"&thorn;"},  {255, u"&yuml;"},
}};

constexpr std::size_t LongestEntity = 8;
constexpr qsizetype ChunkSize = 256;

/// What stands for a Latin-1 character: its entity, or itself.
struct Replacement {
    std::array<QChar, LongestEntity> text{};
    quint8 size = 1;
};

constexpr std::array<Replacement, 256> replacementsByCodePoint()
{
    std::array<Replacement, 256> result{};
    for (std::size_t codePoint = 0; codePoint < result.size(); ++codePoint)
        result[codePoint].text[0] = static_cast<char16_t>(codePoint);
    for (const Row& row : Rows) {
        Replacement& replacement = result[row.codePoint];
        std::copy(row.entity.begin(), row.entity.end(), replacement.text.begin());
        replacement.size = static_cast<quint8>(row.entity.size());
    }
    return result;
}

// A constant, so that escaping needs no search in a map and works before LATIN is built.
constexpr std::array<Replacement, 256> Replacements = replacementsByCodePoint();

bool hasEntity(QChar unit)
{
    return unit.unicode() < Replacements.size() && Replacements[unit.unicode()].size > 1;
}

QMap<int, QString> latinMap()
{
    QMap<int, QString> result;
    for (const Row& row : Rows)
        result.insert(row.codePoint, QStringView(row.entity).toString());
    return result;
}

/// Grows the result by what the text needs at most, for a moment: a replacement is copied whole,
/// which is faster than to look at its size first.
void appendEscaped(QStringView text, QString& result)
{
    const qsizetype size = result.size();
    result.resize(size + qsizetype{LongestEntity} * text.size());
    QChar* out = result.data() + size;
    for (const QChar unit : text) {
        if (unit.unicode() >= Replacements.size()) {
            *out++ = unit;
            continue;
        }
        const Replacement& replacement = Replacements[unit.unicode()];
        std::copy(replacement.text.begin(), replacement.text.end(), out);
        out += replacement.size;
    }
    result.truncate(out - result.constData());
}

} // namespace

const QMap<int, QString> LATIN = latinMap();

QString Text::latinToEscapedHtml(const QString& text)
{
    if (std::none_of(text.begin(), text.end(), hasEntity))
        return text;
    QString result;
    result.reserve(text.size() + qsizetype{LongestEntity} * qMin(text.size(), ChunkSize));
    for (qsizetype i = 0; i < text.size(); i += ChunkSize)
        appendEscaped(QStringView(text).mid(i, ChunkSize), result);
    if (result.capacity() > 2 * result.size())
        result.squeeze();
    return result;
}
