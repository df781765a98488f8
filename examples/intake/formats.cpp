// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "formats.h"

#include <kez/text.h>
#include <kez/translator.h>

#include <QLocale>

using namespace Qt::StringLiterals;

namespace intake {

namespace {

constexpr int Decimals = 2;

bool isFrench()
{
    return Translator::getInstance()->defaultLang() == u"fr_FR";
}

QLocale english()
{
    return {QLocale::English, QLocale::UnitedStates};
}

} // namespace

QString countText(qint64 count)
{
    return isFrench() ? Text::frenchIntegerFormat(count) : english().toString(count);
}

QString amountText(qint64 hundredths, const QString& currency)
{
    // A double distinguishes amounts of up to 15 digits.
    const double units = static_cast<double>(hundredths) / 100;
    return (isFrench() ? Text::frenchDecimalFormat(units, Decimals)
                       : english().toString(units, 'f', Decimals)) +
           u' ' + currency;
}

QString momentText(const QDateTime& moment)
{
    return isFrench() ? Text::frenchDateTime(moment, u" 'à' "_s, true, true)
                      : moment.toString(u"yyyy-MM-dd HH:mm:ss"_s);
}

} // namespace intake
