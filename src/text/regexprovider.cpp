// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/regexprovider.h"

#include <algorithm>

namespace {

// The patterns are part of the interface: even their mistakes must not be fixed.

constexpr char LineBreak[] = "^.*[\r|\n].*$";

// clang-format off
constexpr char HtmlColor[] =
    R"re(^\x23[0-9a-zA-Z]{6}$)re";

constexpr char Email[] =
    R"re((?:[a-z0-9!#$%&'*+\/=?^_`{|}~-]+(?:\.[a-z0-9!#$%&'*+\/=?^_`{|}~-)re"
    R"re(]+)*|\"(?:[\x01-\x08\x0b\x0c\x0e-\x1f\x21\x23-\x5b\x5d-\x7f]|\[\)re"
    R"re(x01-\\x09\\x0b\\x0c\\x0e-\\x7f])*\")@(?:(?:[a-z0-9À-ÿ](?:[-a-z0-)re"
    R"re(9]*[a-z0-9])?\.)+[a-z0-9](?:[-a-z0-9]*[a-z0-9])?|\[(?:(?:25[0-5])re"
    R"re(|2[0-4][0-9]|[01]?[0-9][0-9]?)\.){3}(?:25[0-5]|2[0-4][0-9]|[01]?)re"
    R"re([0-9][0-9]?|[a-z0-9-]*[a-z0-9]:(?:[\x01-\x08\x0b\x0c\x0e-\x1f\x2)re"
    R"re(1-\x5a\x53-\x7f]|\[\x01-\x09\x0b\x0c\x0e-\x7f])+)\]))re";

constexpr char UrlStrict[] =
    R"re(^(?:(?:https?|ftps?):\/\/)(?:\S+(?::\S*)?@)?(?:(?!(?:10|127)(?:\)re"
    R"re(.\d{1,3}){3})(?!(?:169\.254|192\.168)(?:\.\d{1,3}){2})(?!172\.(?)re"
    R"re(:1[6-9]|2\d|3[0-1])(?:\.\d{1,3}){2})(?:[1-9]\d?|1\d\d|2[01]\d|22)re"
    R"re([0-3])(?:\.(?:1?\d{1,2}|2[0-4]\d|25[0-5])){2}(?:\.(?:[1-9]\d?|1\)re"
    R"re(d\d|2[0-4]\d|25[0-4]))|(?:(?:[a-z\u00a1-\uffff0-9]-*)*[a-z\u00a1)re"
    R"re(-\uffff0-9]+)(?:\.(?:[a-z\u00a1-\uffff0-9]-*)*[a-z\u00a1-\uffff0)re"
    R"re(-9]+)*(?:\.(?:[a-z\u00a1-\uffff]{2,}))\.?)(?::\d{2,5})?(?:[/?#]\)re"
    R"re(S*)?$)re";

constexpr char UrlWithoutDomain[] =
    R"re(((?<Protocol>\w+):\/\/(?<Domain>[\w@][\w.:@]+)\/?)?[\w\.?=%&=\-@)re"
    R"re(/$,\s\+\#]*)re";

constexpr char UrlLeak[] =
    R"re(https?:\/\/(www\.)?[-a-zA-Z0-9@:%._\+~#=]{1,256}\.[a-zA-Z0-9À-ÿ()re"
    R"re()]{1,6}\b([-a-zA-Z0-9À-ÿ()@:%_\+.~#?&//=]*))re";

constexpr char Mime[] =
    R"re(^([a-z]+)/([a-z]+)(\+([a-z]+))?(; *?charset=""?([a-z0-9\-]+)""?))re"
    R"re(?$)re";

constexpr char XmlComment[] =
    R"re(<!--[\s\S\n]*?-->)re";
// clang-format on

/// Without options, all callers share one expression, so that it is compiled once.
template <const char* Pattern>
QRegularExpression regex(RegexProvider::Options options)
{
    // Never destroyed: the destructors of static objects may come here.
    static const auto& plain = *new QRegularExpression(QString::fromUtf8(Pattern));
    QRegularExpression result = plain;
    result.setPatternOptions(options);
    return result;
}

bool isWithin(QChar c, unsigned int first, unsigned int last)
{
    return first <= c.unicode() && c.unicode() <= last;
}

} // namespace

QRegularExpression RegexProvider::regexForLineBreak(Options options)
{
    return regex<LineBreak>(options);
}

QRegularExpression RegexProvider::regexForHtmlColor(Options options)
{
    return regex<HtmlColor>(options);
}

QRegularExpression RegexProvider::regexForEmail(Options options)
{
    return regex<Email>(options);
}

QRegularExpression RegexProvider::regexForUrlStrict(Options options)
{
    return regex<UrlStrict>(options);
}

QRegularExpression RegexProvider::regexForUrlWithoutDomain(Options options)
{
    return regex<UrlWithoutDomain>(options);
}

QRegularExpression RegexProvider::regexForRelativeUrl(Options options)
{
    return regex<UrlWithoutDomain>(options);
}

QRegularExpression RegexProvider::regexForUrlLeak(Options options)
{
    return regex<UrlLeak>(options);
}

QRegularExpression RegexProvider::regexForMime(Options options)
{
    return regex<Mime>(options);
}

QRegularExpression RegexProvider::regexForXmlComment(Options options)
{
    return regex<XmlComment>(options);
}

unsigned int RegexProvider::codePoint(const QChar& c)
{
    return c.unicode();
}

bool RegexProvider::hasCodePoint(const QString& text,
                                 const QList<std::pair<unsigned int, unsigned int>>& ranges)
{
    return std::any_of(text.begin(), text.end(), [&ranges](QChar c) {
        return std::any_of(ranges.begin(), ranges.end(), [c](const auto& range) {
            return isWithin(c, range.first, range.second);
        });
    });
}

bool RegexProvider::hasCodePoint(const QString& text, unsigned int first, unsigned int last)
{
    return std::any_of(text.begin(), text.end(),
                       [first, last](QChar c) { return isWithin(c, first, last); });
}
