// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/kittexts_p.h"
#include "support/failuretext.h"

#include <kez/langbundle.h>
#include <kez/translator.h>

#include <QRegularExpression>
#include <QtTest>

#include <cerrno>
#include <memory>

using namespace KezService;

class KitTexts : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void bothLanguagesHaveTheSameKeysAndMarkers();
    void languageFollowsThatOfTheProcess_data();
    void languageFollowsThatOfTheProcess();
    void languagesOfTheApplicationAreNotChanged();
    void markerInsideAValueStays();
    void controlCharactersOfANameAreEscaped_data();
    void controlCharactersOfANameAreEscaped();
    void systemErrorIsSaid();

private:
    static std::shared_ptr<LangBundle> bundle(const char* lang)
    {
        return LangBundle::load(QStringLiteral(":/kezservice"), QStringLiteral("kezservice"),
                                QString::fromLatin1(lang));
    }

    static QStringList markers(const QString& text)
    {
        static const QRegularExpression marker(QStringLiteral("%\\d+"));
        QStringList found;
        for (auto match = marker.globalMatch(text); match.hasNext();)
            found.append(match.next().captured());
        found.sort();
        return found;
    }
};

void KitTexts::bothLanguagesHaveTheSameKeysAndMarkers()
{
    const auto french = bundle("fr_FR");
    const auto english = bundle("en_US");
    QVERIFY(french->size() > 0);
    QCOMPARE(QStringList(french->keyBegin(), french->keyEnd()),
             QStringList(english->keyBegin(), english->keyEnd()));
    for (auto key = french->keyBegin(); key != french->keyEnd(); ++key) {
        const QStringList expected = markers(french->text(*key));
        QVERIFY2(markers(english->text(*key)) == expected, qPrintable(*key));
    }
}

void KitTexts::languageFollowsThatOfTheProcess_data()
{
    QTest::addColumn<QString>("lang");
    QTest::addColumn<QString>("expected");
    QTest::newRow("French") << "fr_FR" << bundle("fr_FR")->text("SystemFailure");
    QTest::newRow("French of Belgium") << "fr_BE" << bundle("fr_FR")->text("SystemFailure");
    QTest::newRow("English") << "en_US" << bundle("en_US")->text("SystemFailure");
    QTest::newRow("another one") << "de_DE" << bundle("en_US")->text("SystemFailure");
}

void KitTexts::languageFollowsThatOfTheProcess()
{
    QFETCH(const QString, lang);
    QFETCH(const QString, expected);
    auto* const translator = Translator::getInstance();
    const QString before = translator->defaultLang();
    translator->setDefaultBundleKey("kez", lang);
    const QString text = kitText("SystemFailure");
    translator->setDefaultBundleKey("kez", before);
    QCOMPARE(text, expected);
}

void KitTexts::languagesOfTheApplicationAreNotChanged()
{
    kitText("SystemFailure");
    const auto* const translator = Translator::getInstance();
    QVERIFY(std::none_of(translator->keyBegin(), translator->keyEnd(),
                         [](const QString& key) { return key.startsWith("kezservice"); }));
}

void KitTexts::markerInsideAValueStays()
{
    const QString text = kitText("SystemFailure", QStringLiteral("a%2b"), QStringLiteral("c%1d"));
    QVERIFY2(text.contains("a%2b") && text.contains("c%1d"), qPrintable(text));
    QCOMPARE(failureText([] { raise("Nowhere", QStringLiteral("x")); }), QString("[Nowhere]"));
}

void KitTexts::controlCharactersOfANameAreEscaped_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("shown");
    QTest::newRow("ordinary") << "commande n° 1.xml"
                              << "commande n° 1.xml";
    QTest::newRow("line feed") << "a\nb"
                               << "a\\nb";
    QTest::newRow("backslash") << "a\\nb"
                               << "a\\\\nb";
    QTest::newRow("line separator") << QString(QChar(0x2028)) << "\\u2028";
    QTest::newRow("escape") << QString(QChar(27)) << "\\x1b";
    QTest::newRow("C1") << QString(QChar(0x85)) << "\\x85";
    QTest::newRow("empty") << ""
                           << "";
}

void KitTexts::controlCharactersOfANameAreEscaped()
{
    QFETCH(const QString, name);
    QTEST(shownName(name), "shown");
}

void KitTexts::systemErrorIsSaid()
{
    QVERIFY(!systemErrorText(ENOSPC).isEmpty());
    QVERIFY(systemErrorText(ENOSPC) != systemErrorText(EACCES));
}

QTEST_GUILESS_MAIN(KitTexts)
#include "tst_kittexts.moc"
