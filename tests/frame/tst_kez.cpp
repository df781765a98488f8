// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/language.h"

#include <kez/identity.h>
#include <kez/translator.h>

#include <QTest>

class TestKez : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void versionHasThreeParts();
    void buildIsTwelveDigits();
    void fullVersionHoldsVersionAndBuild();
    void authorIsNeverTranslated();
    void copyrightIsTranslated_data();
    void copyrightIsTranslated();
    void copyrightWithoutBundleIsTheBracketedKey();
    void borderedTitle_data();
    void borderedTitle();
    void borderedTitleWithoutCopyrightArgumentShowsTheDefault();
    void borderedTitleAsksForTheCopyrightOnlyWhenItIsEmpty();
};

void TestKez::init()
{
    useLanguage(QStringLiteral("fr_FR"));
}

void TestKez::versionHasThreeParts()
{
    QCOMPARE(Kez::version(), QStringLiteral("1.6.3"));
}

void TestKez::buildIsTwelveDigits()
{
    QCOMPARE(Kez::build(), QStringLiteral("202610231919"));
}

void TestKez::fullVersionHoldsVersionAndBuild()
{
    QCOMPARE(Kez::fullVersion(), QStringLiteral("1.6.3 (202610231919)"));
}

void TestKez::authorIsNeverTranslated()
{
    Translator::getInstance()->setDefaultBundleKey(QStringLiteral("kez"),
                                                   QStringLiteral("tst_kez"));
    QCOMPARE(Kez::defaultAuthor(), QStringLiteral("Vandrel"));
}

void TestKez::copyrightIsTranslated_data()
{
    QTest::addColumn<QString>("lang");
    QTest::newRow("French") << QStringLiteral("fr_FR");
    QTest::newRow("English") << QStringLiteral("en_US");
}

void TestKez::copyrightIsTranslated()
{
    QFETCH(QString, lang);
    useLanguage(lang);
    QCOMPARE(Kez::defaultCopyright(), QStringLiteral("(c) Vandrel"));
}

void TestKez::copyrightWithoutBundleIsTheBracketedKey()
{
    Translator::getInstance()->setDefaultBundleKey(QStringLiteral("kez"),
                                                   QStringLiteral("tst_kez"));
    QCOMPARE(Kez::defaultCopyright(), QStringLiteral("[DefaultCopyright]"));
}

void TestKez::borderedTitle_data()
{
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("copyright");
    QTest::addColumn<QString>("block");

    const auto row = [](const char* name, QStringView title, QStringView copyright,
                        QStringView block) {
        QTest::newRow(name) << title.toString() << copyright.toString() << block.toString();
    };
    row("blanks around the title", u" Demo ", u"",
        u"+------+\n| Demo |\n+------+\n(c) Vandrel\n\n");
    row("own copyright", u"Demo", u"(c) Us", u"+------+\n| Demo |\n+------+\n(c) Us\n\n");
    row("a dash leaves the copyright out", u"Demo", u"-", u"+------+\n| Demo |\n+------+\n\n");
    row("empty title", u"", u"-", u"+--+\n|  |\n+--+\n\n");
    row("empty title with the default copyright", u"", u"", u"+--+\n|  |\n+--+\n(c) Vandrel\n\n");
    row("title of white space", u" \t\n ", u"-", u"+--+\n|  |\n+--+\n\n");
    row("tabs and line ends around the title", u"\t\nDemo\r\n", u"-",
        u"+------+\n| Demo |\n+------+\n\n");
    row("blanks within the title stay", u"a  b", u"-", u"+------+\n| a  b |\n+------+\n\n");
    row("one character", u"x", u"-", u"+---+\n| x |\n+---+\n\n");
    row("accents count as one", u"été", u"-", u"+-----+\n| été |\n+-----+\n\n");
    row("dash with blanks is a copyright", u"x", u" - ", u"+---+\n| x |\n+---+\n - \n\n");
    row("two dashes are a copyright", u"x", u"--", u"+---+\n| x |\n+---+\n--\n\n");
    row("a blank is a copyright", u"x", u" ", u"+---+\n| x |\n+---+\n \n\n");
    row("place markers stay", u"%1", u"%2", u"+----+\n| %1 |\n+----+\n%2\n\n");
}

void TestKez::borderedTitle()
{
    QFETCH(QString, title);
    QFETCH(QString, copyright);
    QFETCH(QString, block);
    QCOMPARE(Kez::borderedTitle(title, copyright), block);
}

void TestKez::borderedTitleWithoutCopyrightArgumentShowsTheDefault()
{
    QCOMPARE(Kez::borderedTitle(QStringLiteral("x")),
             QStringLiteral("+---+\n| x |\n+---+\n(c) Vandrel\n\n"));
    QCOMPARE(Kez::borderedTitle(QStringLiteral("x"), QString()),
             QStringLiteral("+---+\n| x |\n+---+\n(c) Vandrel\n\n"));
}

void TestKez::borderedTitleAsksForTheCopyrightOnlyWhenItIsEmpty()
{
    Translator::getInstance()->setDefaultBundleKey(QStringLiteral("kez"),
                                                   QStringLiteral("tst_kez"));
    QCOMPARE(Kez::borderedTitle(QStringLiteral("x"), QString()),
             QStringLiteral("+---+\n| x |\n+---+\n[DefaultCopyright]\n\n"));
    QCOMPARE(Kez::borderedTitle(QStringLiteral("x"), QStringLiteral("us")),
             QStringLiteral("+---+\n| x |\n+---+\nus\n\n"));
}

QTEST_GUILESS_MAIN(TestKez)
#include "tst_kez.moc"
