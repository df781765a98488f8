// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/bundledirectory.h"
#include "support/childoutput.h"
#include "support/failuretext.h"

#include <kez/identity.h>
#include <kez/initlib.h>
#include <kez/log.h>
#include <kez/translator.h>

#include <QFile>
#include <QResource>
#include <QTest>

#include <atomic>
#include <thread>
#include <vector>

namespace {

const QString Resource = QStringLiteral(":resources/lang/kez_fr_FR.lang");

Translator& translator()
{
    return *Translator::getInstance();
}

// --- what the children do ------------------------------------------------------------------------

void sayState()
{
    say(translator().defaultBundleKey());
    say(translator().toString().trimmed());
    say(translator().string(QStringLiteral("Yes")));
}

bool registerMoreLanguages()
{
    return QResource::registerResource(QStringLiteral(MORE_LANGUAGES));
}

using SetUp = void (*)();

void constructApplication()
{
    int argc = 1;
    char name[] = "child";
    char* argv[] = {name, nullptr};
    const QCoreApplication application(argc, argv);
}

SetUp setUpNamed(const QString& name)
{
    if (name == QLatin1String("kezInit"))
        return kezInit;
    if (name == QLatin1String("KezAutoInit"))
        return KezAutoInit;
    if (name == QLatin1String("kezEnsureInit"))
        return kezEnsureInit;
    return constructApplication;
}

void setUpOnce(SetUp setUp)
{
    setUp();
    sayState();
    say(Kez::defaultCopyright());
}

void useUndecodableLang()
{
    qputenv("LANG", "fr_\xff\xfe.UTF-8");
    kezEnsureInit();
    sayState();
}

void useMoreLanguages()
{
    say(registerMoreLanguages());
    kezEnsureInit();
    sayState();
}

void everythingAgain(SetUp first)
{
    first();
    sayState();
    const auto bundle = translator().defaultBundle();
    qputenv("LANG", "en_US.UTF-8");
    for (const SetUp again : {kezEnsureInit, kezEnsureInit, kezInit, KezAutoInit})
        again();
    constructApplication();
    kezEnsureInit();
    sayState();
    say(translator().defaultBundle() == bundle);
}

void cleanUpThenInit()
{
    kezCleanup();
    say(translator().toString().trimmed());
    kezInit();
    sayState();
    kezCleanup();
    kezCleanup();
    qputenv("LANG", "en_US.UTF-8");
    kezInit();
    kezEnsureInit();
    constructApplication();
    sayState();
    say(QFile::exists(Resource));
    translator().setDefaultBundleKey(QStringLiteral("own"), QStringLiteral("own"));
    kezInit();
    say(translator().defaultBundleKey());
}

void watchResources()
{
    say(QFile::exists(Resource));
    say(Log::languages().join(QLatin1Char(' ')));
    say(translator().toString().isEmpty());
    kezInit();
    say(QFile::exists(Resource));
    kezCleanup();
    say(QFile::exists(Resource));
}

void unregisterBeforeSetUp()
{
    say(qCleanupResources_kez() == 1);
    say(QFile::exists(Resource));
    kezInit();
    say(QFile::exists(Resource));
    sayState();
}

void registerByHand()
{
    say(qCleanupResources_kez() == 1);
    say(QFile::exists(Resource));
    say(qInitResources_kez() == 1);
    say(QFile::exists(Resource));
    say(qInitResources_kez() == 1);
    say(QFile::exists(Resource));
}

void insertOwnBundleBeforeSetUp()
{
    BundleDirectory directory;
    directory.write(QStringLiteral("kez"), QStringLiteral("fr_FR"), "Yes=ouais\n");
    say(translator().insertBundle(directory.path(), QStringLiteral("kez"),
                                  QStringLiteral("fr_FR")));
    kezInit();
    sayState();
}

void setUpFromThreads()
{
    std::atomic<int> waiting = 8;
    std::atomic<int> answered = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            --waiting;
            while (waiting > 0)
                std::this_thread::yield();
            kezInit();
            if (translator().string(QStringLiteral("Yes")) == QLatin1String("oui"))
                ++answered;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    say(QString::number(answered));
    sayState();
}

/// The first attempt reads a bundle whose header names another language than its file name.
void failFirst(SetUp attempt)
{
    registerMoreLanguages();
    say(pointerFailureText(attempt));
    say(translator().defaultBundleKey());
    say(translator().toString().isEmpty());
    say(translator().string(QStringLiteral("Yes")));
    qputenv("LANG", "fr_FR.UTF-8");
}

void sayYes()
{
    say(translator().string(QStringLiteral("Yes")));
}

void setUpAndSayYes()
{
    kezEnsureInit();
    sayYes();
}

/// Q_COREAPP_STARTUP_FUNCTION makes the same call in a static constructor.
void runStartUpFunction(QtStartUpFunction function)
{
    qAddPreRoutine(function);
    constructApplication();
    sayYes();
}

void failWithoutACatch(SetUp attempt)
{
    registerMoreLanguages();
    attempt();
}

void tryAgainThroughInit(SetUp attempt)
{
    failFirst(attempt);
    kezInit();
    sayState();
}

void tryAgainThroughEnsure(SetUp attempt)
{
    failFirst(attempt);
    kezEnsureInit();
    sayState();
}

struct Task {
    const char* name;
    void (*run)(SetUp setUp);
};

constexpr Task Tasks[] = {
    {"nothing", [](SetUp) {}},
    {"setUp", setUpOnce},
    {"untouched", [](SetUp) { sayState(); }},
    {"undecodable", [](SetUp) { useUndecodableLang(); }},
    {"moreLanguages", [](SetUp) { useMoreLanguages(); }},
    {"everythingAgain", everythingAgain},
    {"cleanUpThenInit", [](SetUp) { cleanUpThenInit(); }},
    {"watchResources", [](SetUp) { watchResources(); }},
    {"unregisterBeforeSetUp", [](SetUp) { unregisterBeforeSetUp(); }},
    {"registerByHand", [](SetUp) { registerByHand(); }},
    {"ownBundle", [](SetUp) { insertOwnBundleBeforeSetUp(); }},
    {"threads", [](SetUp) { setUpFromThreads(); }},
    {"startUp", [](SetUp) { runStartUpFunction(sayYes); }},
    {"startUpWithSetUp", [](SetUp) { runStartUpFunction(setUpAndSayYes); }},
    {"fail", failWithoutACatch},
    {"failThenInit", tryAgainThroughInit},
    {"failThenEnsure", tryAgainThroughEnsure},
};

int child(const QStringList& arguments)
{
    named(Tasks, arguments.at(0)).run(setUpNamed(arguments.value(1)));
    return 0;
}

// --- how the parent starts them ------------------------------------------------------------------

ChildResult childUnder(const QString& lang, const QStringList& arguments,
                       const QString& all = QString())
{
    return runChild(arguments, environmentUnder(lang, all));
}

const QString French = QStringLiteral("fr_FR.UTF-8");

QByteArray stateIn(const QByteArray& lang)
{
    const QByteArray yes = lang == "fr_FR" ? "oui\n" : "yes\n";
    return "kez." + lang + "\nkez." + lang + " : 67\n" + yes;
}

} // namespace

class TestInitLib : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void languageFollowsLang_data();
    void languageFollowsLang();
    void startUpFunctionsRunBeforeSetUp();
    void languageFollowsTheSystemWithoutLang_data();
    void languageFollowsTheSystemWithoutLang();
    void undecodableLangFallsBackToEnglish();
    void languagesAreTheOnesThatHaveABundle();
    void eachEntryPointSetsUp_data();
    void eachEntryPointSetsUp();
    void nothingIsSetUpBeforeTheFirstCall();
    void applicationObjectSetsUpByItself();
    void laterCallsChangeNothing_data();
    void laterCallsChangeNothing();
    void cleanUpReleasesNothingAndSetUpStaysSpent();
    void resourcesAreThereFromTheStart();
    void setUpRegistersTheResourcesAgain();
    void resourceFunctionsAnswerOne();
    void bundleInsertedBeforeSetUpStays();
    void concurrentCallersWaitForTheBundle();
    void failedLoadLeavesSetUpAsAPointer_data();
    void failedLoadLeavesSetUpAsAPointer();
    void uncaughtFailureEndsTheProcessWithoutItsText();
    void ensureSpendsItsFlagEvenWhenSetUpFails();
    void initStillHelpsAfterAFailedEnsure();
    void processEndsCleanlyWithoutSetUp();
};

void TestInitLib::languageFollowsLang_data()
{
    QTest::addColumn<QString>("lang");
    QTest::addColumn<QByteArray>("expected");

    const auto row = [](const char* name, const char* lang, const char* expected) {
        QTest::newRow(name) << QString::fromUtf8(lang) << QByteArray(expected);
    };
    row("French with encoding", "fr_FR.UTF-8", "fr_FR");
    row("French with another encoding", "fr_FR.ISO-8859-1", "fr_FR");
    row("French without encoding", "fr_FR", "fr_FR");
    row("French with an empty encoding", "fr_FR.", "fr_FR");
    row("French with a modifier after the encoding", "fr_FR.UTF-8@euro", "fr_FR");
    row("French with a modifier and no encoding", "fr_FR@euro", "en_US");
    row("only the last dot counts", "fr_FR.UTF-8.x", "en_US");
    row("English with encoding", "en_US.UTF-8", "en_US");
    row("English without encoding", "en_US", "en_US");
    row("British English", "en_GB.UTF-8", "en_US");
    row("German", "de_DE.UTF-8", "en_US");
    row("Belgian French", "fr_BE.UTF-8", "en_US");
    row("C", "C", "en_US");
    row("C with encoding", "C.UTF-8", "en_US");
    row("POSIX", "POSIX", "en_US");
    row("language without country", "fr", "en_US");
    row("lower-case country", "fr_fr.UTF-8", "en_US");
    row("hyphen", "fr-FR.UTF-8", "en_US");
    row("blank in front", " fr_FR.UTF-8", "en_US");
    row("nothing before the dot", ".UTF-8", "en_US");
    row("a blank", " ", "en_US");
    row("a path", "../../etc/kez_fr_FR", "en_US");
    row("very long", QByteArray(100'000, 'f').constData(), "en_US");
}

void TestInitLib::languageFollowsLang()
{
    QFETCH(QString, lang);
    QFETCH(QByteArray, expected);
    // The system locale is another one, to show that it does not count.
    const QString system = QStringLiteral("fr_FR.UTF-8");
    COMPARE_CHILD(childUnder(lang, {"setUp", "kezEnsureInit"}, system),
                  stateIn(expected) + "(c) Vandrel\n");
}

void TestInitLib::languageFollowsTheSystemWithoutLang_data()
{
    QTest::addColumn<QString>("lang");
    QTest::addColumn<QString>("system");
    QTest::addColumn<QByteArray>("expected");

    const QString empty(u""_qs);
    QTest::newRow("unset, French system")
        << QString() << QStringLiteral("fr_FR.UTF-8") << QByteArray("fr_FR");
    QTest::newRow("empty, French system")
        << empty << QStringLiteral("fr_FR.UTF-8") << QByteArray("fr_FR");
    QTest::newRow("unset, American system")
        << QString() << QStringLiteral("en_US.UTF-8") << QByteArray("en_US");
    QTest::newRow("empty, German system")
        << empty << QStringLiteral("de_DE.UTF-8") << QByteArray("en_US");
    QTest::newRow("unset, no system locale") << QString() << QString() << QByteArray("en_US");
    QTest::newRow("empty, no system locale") << empty << QString() << QByteArray("en_US");
}

void TestInitLib::languageFollowsTheSystemWithoutLang()
{
    QFETCH(QString, lang);
    QFETCH(QString, system);
    QFETCH(QByteArray, expected);
    COMPARE_CHILD(childUnder(lang, {"setUp", "kezEnsureInit"}, system),
                  stateIn(expected) + "(c) Vandrel\n");
}

void TestInitLib::startUpFunctionsRunBeforeSetUp()
{
    COMPARE_CHILD(childUnder(French, {"startUp"}), "[Yes]\noui\n");
    COMPARE_CHILD(childUnder(French, {"startUpWithSetUp"}), "oui\noui\n");
}

void TestInitLib::undecodableLangFallsBackToEnglish()
{
    COMPARE_CHILD(childUnder(French, {"undecodable"}), stateIn("en_US"));
}

void TestInitLib::languagesAreTheOnesThatHaveABundle()
{
    COMPARE_CHILD(childUnder(QStringLiteral("de_DE.UTF-8"), {"moreLanguages"}),
                  "true\nkez.de_DE\nkez.de_DE : 2\nja\n");
}

void TestInitLib::eachEntryPointSetsUp_data()
{
    QTest::addColumn<QString>("entry");
    for (const char* entry : {"kezInit", "KezAutoInit", "kezEnsureInit", "application"})
        QTest::newRow(entry) << QString::fromLatin1(entry);
}

void TestInitLib::eachEntryPointSetsUp()
{
    QFETCH(QString, entry);
    COMPARE_CHILD(childUnder(French, {"setUp", entry}), stateIn("fr_FR") + "(c) Vandrel\n");
    COMPARE_CHILD(childUnder(QStringLiteral("C"), {"setUp", entry}),
                  stateIn("en_US") + "(c) Vandrel\n");
}

void TestInitLib::nothingIsSetUpBeforeTheFirstCall()
{
    COMPARE_CHILD(childUnder(French, {"untouched"}), "kez.fr_FR\n\n[Yes]\n");
    COMPARE_CHILD(childUnder(QStringLiteral("de_DE.UTF-8"), {"untouched"}), "kez.de_DE\n\n[Yes]\n");
}

void TestInitLib::applicationObjectSetsUpByItself()
{
    // This process has an application object and calls none of the start-up functions.
    QVERIFY(translator().bundle(QStringLiteral("kez"), translator().defaultLang()) != nullptr);
    QCOMPARE(translator().size(), 1);
}

void TestInitLib::laterCallsChangeNothing_data()
{
    eachEntryPointSetsUp_data();
}

void TestInitLib::laterCallsChangeNothing()
{
    QFETCH(QString, entry);
    COMPARE_CHILD(childUnder(French, {"everythingAgain", entry}),
                  stateIn("fr_FR") + stateIn("fr_FR") + "true\n");
}

void TestInitLib::cleanUpReleasesNothingAndSetUpStaysSpent()
{
    COMPARE_CHILD(childUnder(French, {"cleanUpThenInit"}),
                  "\n" + stateIn("fr_FR") + stateIn("fr_FR") + "true\nown.own\n");
}

void TestInitLib::resourcesAreThereFromTheStart()
{
    COMPARE_CHILD(childUnder(French, {"watchResources"}), "true\nen_US fr_FR\ntrue\ntrue\ntrue\n");
}

void TestInitLib::setUpRegistersTheResourcesAgain()
{
    COMPARE_CHILD(childUnder(French, {"unregisterBeforeSetUp"}),
                  "true\nfalse\ntrue\n" + stateIn("fr_FR"));
}

void TestInitLib::resourceFunctionsAnswerOne()
{
    COMPARE_CHILD(childUnder(French, {"registerByHand"}), "true\nfalse\ntrue\ntrue\ntrue\ntrue\n");
}

void TestInitLib::bundleInsertedBeforeSetUpStays()
{
    COMPARE_CHILD(childUnder(French, {"ownBundle"}), "true\nkez.fr_FR\nkez.fr_FR : 1\nouais\n");
}

void TestInitLib::concurrentCallersWaitForTheBundle()
{
    COMPARE_CHILD(childUnder(French, {"threads"}), "8\n" + stateIn("fr_FR"));
}

// Under ThreadSanitizer call_once never returns after an exception.
#if defined(__SANITIZE_THREAD__)
#define SKIP_WITHOUT_ONCE_RETRY() QSKIP("call_once cannot be retried under this sanitizer")
#else
#define SKIP_WITHOUT_ONCE_RETRY()
#endif

const QByteArray FailedState =
    "shared_ptr<LangBundle> LangBundle::load(const QString&, const QString&, const QString&) -> "
    "Nom de langue attendu xx_YY, lu dans le fichier : yy_XX\n"
    "kez.xx_YY\ntrue\n[Yes]\n";

void TestInitLib::failedLoadLeavesSetUpAsAPointer_data()
{
    eachEntryPointSetsUp_data();
}

void TestInitLib::failedLoadLeavesSetUpAsAPointer()
{
    SKIP_WITHOUT_ONCE_RETRY();
    QFETCH(QString, entry);
    COMPARE_CHILD(childUnder(QStringLiteral("xx_YY.UTF-8"), {"failThenInit", entry}),
                  FailedState + stateIn("fr_FR"));
}

void TestInitLib::uncaughtFailureEndsTheProcessWithoutItsText()
{
    const ChildResult result = childUnder(QStringLiteral("xx_YY.UTF-8"), {"fail", "application"});
    QVERIFY(result.finished);
    QVERIFY(result.crashed);
    QVERIFY2(!result.err.contains("Nom de langue"), result.err.constData());
}

void TestInitLib::ensureSpendsItsFlagEvenWhenSetUpFails()
{
    SKIP_WITHOUT_ONCE_RETRY();
    COMPARE_CHILD(childUnder(QStringLiteral("xx_YY.UTF-8"), {"failThenEnsure", "kezEnsureInit"}),
                  FailedState + "kez.xx_YY\n\n[Yes]\n");
}

void TestInitLib::initStillHelpsAfterAFailedEnsure()
{
    SKIP_WITHOUT_ONCE_RETRY();
    COMPARE_CHILD(childUnder(QStringLiteral("xx_YY.UTF-8"), {"failThenEnsure", "kezInit"}),
                  FailedState + stateIn("fr_FR"));
}

void TestInitLib::processEndsCleanlyWithoutSetUp()
{
    COMPARE_CHILD(childUnder(French, {"nothing"}), "");
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestInitLib, child)
#include "tst_initlib.moc"
