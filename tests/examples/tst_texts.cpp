// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "texts.h"

#include <kez/translator.h>

#include <QTest>

using namespace Qt::StringLiterals;

class TestTexts : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void numbersAndTimesReadInTheLanguage_data();
    void numbersAndTimesReadInTheLanguage();
    void largestAmountsKeepTheirCents();
};

void TestTexts::initTestCase()
{
    intake::loadTexts();
}

void TestTexts::numbersAndTimesReadInTheLanguage_data()
{
    QTest::addColumn<QString>("lang");
    QTest::addColumn<QString>("count");
    QTest::addColumn<QString>("amount");
    QTest::addColumn<QString>("moment");
    QTest::newRow("French") << u"fr_FR"_s << u"12\u202f345"_s << u"-1\u202f234,05 EUR"_s
                            << u"09/03/2026 à 08:05:04"_s;
    QTest::newRow("English") << u"en_US"_s << u"12,345"_s << u"-1,234.05 EUR"_s
                             << u"2026-03-09 08:05:04"_s;
}

void TestTexts::numbersAndTimesReadInTheLanguage()
{
    QFETCH(const QString, lang);
    Translator::getInstance()->setDefaultLang(lang);
    QTEST(intake::countText(12345), "count");
    QTEST(intake::amountText(-123405, u"EUR"_s), "amount");
    QTEST(intake::momentText(QDateTime(QDate(2026, 3, 9), QTime(8, 5, 4, 7))), "moment");
}

void TestTexts::largestAmountsKeepTheirCents()
{
    Translator::getInstance()->setDefaultLang(u"en_US"_s);
    QCOMPARE(intake::amountText(999'999'999'999'999, u"EUR"_s), u"9,999,999,999,999.99 EUR"_s);
}

QTEST_GUILESS_MAIN(TestTexts)
#include "tst_texts.moc"
