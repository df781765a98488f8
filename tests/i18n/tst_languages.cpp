// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/childoutput.h"
#include "support/environmentguard.h"
#include "support/files.h"

#include <kez/initlib.h>
#include <kez/log.h>

#include <QDir>
#include <QResource>
#include <QTemporaryDir>
#include <QTest>

namespace {

const QString MoreLanguages = QStringLiteral(MORE_LANGUAGES);
const QStringList OwnLanguages{QStringLiteral("en_US"), QStringLiteral("fr_FR")};

void sayLanguages()
{
    say(Log::languages().join(QLatin1Char('|')));
}

void sayLanguagesWithoutResources()
{
    qCleanupResources_kez();
    sayLanguages();
    qInitResources_kez();
    sayLanguages();
}

/// Creates the log in `directory`, which only works if there is none yet.
void logAfterAsking(const QString& directory)
{
    Log::languages();
    Log::initInstance(directory + QStringLiteral("/app"), false, 0, 0, 1, LoggerLevel::debug);
}

int child(const QStringList& arguments)
{
    const QString& what = arguments.at(0);
    if (what == QLatin1String("before set-up"))
        sayLanguages();
    if (what == QLatin1String("without resources"))
        sayLanguagesWithoutResources();
    if (what == QLatin1String("log"))
        logAfterAsking(arguments.at(1));
    return 0;
}

} // namespace

class TestLanguages : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void answersTheEmbeddedBundlesInNameOrder();
    void answersTheSameEachTime();
    void answersBeforeSetUp();
    void answersWhateverTheUsersLanguage_data();
    void answersWhateverTheUsersLanguage();
    void answersWhateverTheWorkingDirectory();
    void cutsNamesAtTheFirstUnderscoreAndTheLastDot();
    void answersNothingWithoutResources();
    void needsNoLog();
};

void TestLanguages::cleanup()
{
    QResource::unregisterResource(MoreLanguages);
}

void TestLanguages::answersTheEmbeddedBundlesInNameOrder()
{
    QCOMPARE(Log::languages(), OwnLanguages);
}

void TestLanguages::answersTheSameEachTime()
{
    for (int i = 0; i < 3; ++i)
        QCOMPARE(Log::languages(), OwnLanguages);
}

void TestLanguages::answersBeforeSetUp()
{
    QCOMPARE(runChild({"before set-up"}).out, QByteArray("en_US|fr_FR\n"));
}

void TestLanguages::answersWhateverTheUsersLanguage_data()
{
    QTest::addColumn<QByteArray>("lang");
    QTest::newRow("French") << QByteArray("fr_FR.UTF-8");
    QTest::newRow("German") << QByteArray("de_DE.UTF-8");
    QTest::newRow("C") << QByteArray("C");
    QTest::newRow("unset") << QByteArray();
}

void TestLanguages::answersWhateverTheUsersLanguage()
{
    QFETCH(QByteArray, lang);
    const EnvironmentGuard guard("LANG", lang);
    QCOMPARE(Log::languages(), OwnLanguages);
}

void TestLanguages::answersWhateverTheWorkingDirectory()
{
    QTemporaryDir directory;
    QVERIFY(QDir(directory.path()).mkpath(QStringLiteral("resources/lang")));
    QVERIFY(writeFile(directory.filePath(QStringLiteral("resources/lang/kez_es_ES.lang")),
                      QByteArray()));

    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(directory.path()));
    const QStringList languages = Log::languages();
    QVERIFY(QDir::setCurrent(before));
    QCOMPARE(languages, OwnLanguages);
}

void TestLanguages::cutsNamesAtTheFirstUnderscoreAndTheLastDot()
{
    // alone.lang, kez_de_DE.lang, kez_en_US.lang, kez_fr_FR.lang, kez_xx_YY.lang and
    // shop_it.IT.lang; notes.txt is not a bundle.
    QVERIFY(QResource::registerResource(MoreLanguages));
    QCOMPARE(Log::languages(), QStringList({"alone", "de_DE", "en_US", "fr_FR", "xx_YY", "it.IT"}));

    QVERIFY(QResource::unregisterResource(MoreLanguages));
    QCOMPARE(Log::languages(), OwnLanguages);
}

void TestLanguages::answersNothingWithoutResources()
{
    QCOMPARE(runChild({"without resources"}).out, QByteArray("\nen_US|fr_FR\n"));
}

void TestLanguages::needsNoLog()
{
    QTemporaryDir directory;
    const ChildResult result = runChild({"log", directory.path()});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(QDir(directory.path()).entryList(QDir::Files), QStringList{"app-0.log"});
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestLanguages, child)
#include "tst_languages.moc"
