// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

#include <QChar>
#include <QList>
#include <QRegularExpression>
#include <QString>

#include <utility>

/// A catalogue of regular expressions, and tests of code-point ranges. The patterns are interface,
/// irregularities included.
///
/// *Threads*: any thread.
/// *Owns*: nothing.
/// *Fails*: never.
class KEZ_EXPORT RegexProvider {
public:
    using Options = QRegularExpression::PatternOptions;

    /// A text with one carriage return, line feed or vertical bar in it; a further line feed keeps
    /// it from matching, unless the options let "." match it.
    static QRegularExpression
    regexForLineBreak(Options options = QRegularExpression::NoPatternOption);

    /// "#" and six letters or digits, not only hexadecimal ones.
    static QRegularExpression
    regexForHtmlColor(Options options = QRegularExpression::NoPatternOption);

    /// An address anywhere in a text, in lower case unless the options say otherwise.
    static QRegularExpression regexForEmail(Options options = QRegularExpression::NoPatternOption);

    /// Holds escapes that QRegularExpression does not know: not valid, and matches nothing.
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

    /// Whether a UTF-16 code unit of the text lies in one of the ranges, bounds included. The
    /// halves of a surrogate pair are tested one by one.
    static bool hasCodePoint(const QString& text,
                             const QList<std::pair<unsigned int, unsigned int>>& ranges);
    static bool hasCodePoint(const QString& text, unsigned int first, unsigned int last);
};
