// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "texts.h"

#include <kez/text.h>
#include <kez/translator.h>

#include <QLocale>

using namespace intake;
using namespace Qt::StringLiterals;

namespace {

bool isFrench()
{
    return Translator::getInstance()->defaultLang() == u"fr_FR";
}

} // namespace

void intake::loadTexts()
{
    auto* const translator = Translator::getInstance();
    translator->insertBundle(u":/intake/lang"_s, u"intake"_s, translator->defaultLang());
}

QString intake::text(QLatin1String key)
{
    return Translator::getInstance()->string(key, u"intake"_s);
}

QString intake::printable(const QString& name)
{
    QString result;
    for (const QChar each : name) {
        if (each.category() == QChar::Other_Control || each == u';' || each == u'%')
            result += u"%%1"_s.arg(each.unicode(), 2, 16, QLatin1Char('0')).toUpper();
        else
            result += each;
    }
    return result;
}

QString intake::countText(qint64 count)
{
    return isFrench() ? Text::frenchIntegerFormat(count)
                      : QLocale(QLocale::English).toString(count);
}

QString intake::amountText(qint64 hundredths, const QString& currency)
{
    const double units = static_cast<double>(hundredths) / 100; // exact up to 15 digits
    const QString amount = isFrench() ? Text::frenchDecimalFormat(units, 2)
                                      : QLocale(QLocale::English).toString(units, 'f', 2);
    return amount + u' ' + currency;
}

QString intake::momentText(const QDateTime& moment)
{
    return isFrench() ? Text::frenchDateTime(moment, u" 'à' "_s, true, true)
                      : moment.toString(u"yyyy-MM-dd HH:mm:ss"_s);
}
