// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

#include <QChar>
#include <QList>
#include <QRegularExpression>
#include <QString>

#include <utility>

/// A catalogue of regular expressions, and tests of code-point ranges. The patterns are part of the
/// interface and are kept as they are. So are their irregularities.
///
/// A pattern without options is compiled once in the life of the process. One with options is
/// compiled for each object that matches: keep the object for the next text.
///
/// *Threads*: any thread.
/// *Owns*: nothing.
/// *Fails*: never.
class KEZ_EXPORT RegexProvider {
public:
    using Options = QRegularExpression::PatternOptions;

    /// A text that contains a carriage return, a line feed or a vertical bar. If it contains
    /// another line feed, it does not match unless the options let "." match a line feed.
    static QRegularExpression
    regexForLineBreak(Options options = QRegularExpression::NoPatternOption);

    /// "#" and six letters or digits, which need not be hexadecimal digits.
    static QRegularExpression
    regexForHtmlColor(Options options = QRegularExpression::NoPatternOption);

    /// An address anywhere in a text; it matches lower case only, unless the options say otherwise.
    static QRegularExpression regexForEmail(Options options = QRegularExpression::NoPatternOption);

    /// Contains escapes that QRegularExpression does not know: it is not valid and matches nothing.
    static QRegularExpression
    regexForUrlStrict(Options options = QRegularExpression::NoPatternOption);

    /// With the groups "Protocol" and "Domain".
    static QRegularExpression
    regexForUrlWithoutDomain(Options options = QRegularExpression::NoPatternOption);

    /// The same pattern as regexForUrlWithoutDomain().
    static QRegularExpression
    regexForRelativeUrl(Options options = QRegularExpression::NoPatternOption);

    /// A web address anywhere in a text.
    static QRegularExpression
    regexForUrlLeak(Options options = QRegularExpression::NoPatternOption);
    static QRegularExpression regexForMime(Options options = QRegularExpression::NoPatternOption);
    static QRegularExpression
    regexForXmlComment(Options options = QRegularExpression::NoPatternOption);

    /// The UTF-16 code unit.
    static unsigned int codePoint(const QChar& c);

    /// Whether any UTF-16 code unit of the text lies in one of the ranges. The bounds belong to a
    /// range. The two halves of a surrogate pair are tested separately.
    static bool hasCodePoint(const QString& text,
                             const QList<std::pair<unsigned int, unsigned int>>& ranges);
    static bool hasCodePoint(const QString& text, unsigned int first, unsigned int last);
};
