// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/text.h"

#include <QStringView>

#include <algorithm>
#include <array>

namespace {

struct Row {
    char16_t codePoint = 0;
    QStringView entity;
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

constexpr std::array<QStringView, 256> entitiesByCodePoint()
{
    std::array<QStringView, 256> result{};
    for (const Row& row : Rows)
        result[row.codePoint] = row.entity;
    return result;
}

// A constant, so that escaping needs no search in a map and works before LATIN is built.
constexpr std::array<QStringView, 256> Entities = entitiesByCodePoint();

constexpr QStringView entityOf(char16_t unit)
{
    return unit < Entities.size() ? Entities[unit] : QStringView();
}

QMap<int, QString> latinMap()
{
    QMap<int, QString> result;
    for (const Row& row : Rows)
        result.insert(row.codePoint, row.entity.toString());
    return result;
}

qsizetype escapedSize(QStringView text)
{
    qsizetype size = text.size();
    for (const QChar unit : text) {
        const QStringView entity = entityOf(unit.unicode());
        size += entity.isEmpty() ? 0 : entity.size() - 1;
    }
    return size;
}

} // namespace

const QMap<int, QString> LATIN = latinMap();

QString Text::latinToEscapedHtml(const QString& text)
{
    const qsizetype size = escapedSize(text);
    if (size == text.size())
        return text;
    QString result(size, Qt::Uninitialized);
    QChar* out = result.data();
    for (const QChar unit : text) {
        const QStringView entity = entityOf(unit.unicode());
        if (entity.isEmpty())
            *out++ = unit;
        else
            out = std::copy(entity.begin(), entity.end(), out);
    }
    return result;
}
