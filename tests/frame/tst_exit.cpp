// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/childoutput.h"
#include "support/failuretext.h"
#include "support/logrecords.h"

#include <kez/initlib.h>
#include <kez/langbundle.h>
#include <kez/log.h>
#include <kez/loggerconfigcontroller.h>
#include <kez/metatypes.h>
#include <kez/properties.h>
#include <kez/translator.h>
#include <kez/urlhelper.h>

#include <QDir>
#include <QMetaType>
#include <QTemporaryDir>
#include <QTest>

namespace {

using Step = void (*)();

constinit Step stepAtExit = nullptr;

/// An application's static object: it is built before main() and destroyed after it.
const struct StaticObject {
    ~StaticObject()
    {
        if (stepAtExit)
            stepAtExit();
    }
} staticObject;

void nothing()
{}

void runAnApplication()
{
    int argc = 1;
    char name[] = "child";
    char* argv[] = {name, nullptr};
    const QCoreApplication application(argc, argv);
}

void registerAClass()
{
    MetaTypes::getInstance()->insertMetaType(QStringLiteral("QString"), QMetaType::QString);
}

void meetAFailure()
{
    say(failureText([] { Properties().value(QStringLiteral("k")); }));
}

void lookATextUp()
{
    say(Translator::getInstance()->string(QStringLiteral("Yes")));
}

void loadABundle()
{
    const auto bundle = LangBundle::load(QStringLiteral(":resources/lang"), QStringLiteral("kez"),
                                         QStringLiteral("en_US"));
    say(bundle->text(QStringLiteral("Yes")));
}

void setUpAndLookATextUp()
{
    kezEnsureInit();
    lookATextUp();
}

void logToAFile()
{
    Log::initInstance(qEnvironmentVariable("LOG_FILE"), false, 0, 0, 1, LoggerLevel::debug);
    Log::getInstance()->warning("at exit");
    say(Log::getInstance()->logger()->toString().contains(QStringLiteral("Ouvert")));
}

void logABanner()
{
    Log::initInstance(qEnvironmentVariable("LOG_FILE"), false, 0, 0, 1, LoggerLevel::debug);
    const Properties properties;
    Log::getInstance()->logBanner(QStringLiteral("Demo"), QStringLiteral("1"), &properties);
}

void findTheClass()
{
    say(MetaTypes::getInstance()->classNameFromType(QMetaType::QString));
    say(MetaTypes::getInstance()->removeMetaType(QStringLiteral("QString")).className());
}

void checkAnAddress()
{
    say(UrlHelper::isEmailValid(QStringLiteral("a@b.org")));
}

void checkABannerTitle()
{
    Properties properties(
        {{"log.filename", QDir::tempPath() + "/app"}, {"log.banner.title", "App %1"}});
    say(LoggerConfigController().isLegalConfiguration(&properties));
}

struct NamedStep {
    const char* name;
    Step step;
};

constexpr NamedStep StepsInMain[] = {
    {"nothing", nothing},         {"kezInit", kezInit},        {"application", runAnApplication},
    {"register", registerAClass}, {"address", checkAnAddress}, {"title", checkABannerTitle}};

constexpr NamedStep StepsAtExit[] = {
    {"failure", meetAFailure},       {"text", lookATextUp},       {"bundle", loadABundle},
    {"set-up", setUpAndLookATextUp}, {"log", logToAFile},         {"banner", logABanner},
    {"class", findTheClass},         {"address", checkAnAddress}, {"title", checkABannerTitle}};

int child(const QStringList& arguments)
{
    named(StepsInMain, arguments.at(0)).step();
    stepAtExit = named(StepsAtExit, arguments.at(1)).step;
    return 0;
}

} // namespace

/// What the destructors of an application's static objects can use. They run after main(), when
/// what was built after those objects is gone.
class TestExit : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void staticObjectsFindTheTexts_data();
    void staticObjectsFindTheTexts();
    void staticObjectsCanLog();
    void staticObjectsFindTheRegisteredClasses();
    void staticObjectsCanCheckTexts_data();
    void staticObjectsCanCheckTexts();
};

void TestExit::staticObjectsFindTheTexts_data()
{
    QTest::addColumn<QString>("inMain");
    QTest::addColumn<QString>("atExit");
    QTest::addColumn<QByteArray>("expected");

    const QByteArray failure = "QString Properties::value(const QString&) -> ";
    for (const char* inMain : {"kezInit", "application"}) {
        const auto row = [inMain](const char* atExit, const QByteArray& expected) {
            QTest::addRow("%s after %s", atExit, inMain)
                << QString::fromLatin1(inMain) << QString::fromLatin1(atExit) << expected + '\n';
        };
        row("failure", failure + "La propriété [k] n'existe pas");
        row("text", "oui");
    }
    const auto row = [](const char* atExit, const QByteArray& expected) {
        QTest::addRow("%s without set-up", atExit)
            << QStringLiteral("nothing") << QString::fromLatin1(atExit) << expected + '\n';
    };
    row("failure", failure + "[PropertyNotFound]");
    row("bundle", "yes");
    row("set-up", "oui");
}

void TestExit::staticObjectsFindTheTexts()
{
    QFETCH(QString, inMain);
    QFETCH(QString, atExit);
    QFETCH(QByteArray, expected);
    COMPARE_CHILD(runChild({inMain, atExit}, strictEnvironment()), expected);
}

void TestExit::staticObjectsCanLog()
{
    const QTemporaryDir directory;
    QVERIFY(directory.isValid());
    QProcessEnvironment environment = strictEnvironment();
    environment.insert(QStringLiteral("LOG_FILE"), directory.filePath(QStringLiteral("app")));
    const QString file = directory.filePath(QStringLiteral("app-0.log"));

    COMPARE_CHILD(runChild({"application", "log"}, environment), "true\n");
    QCOMPARE(logMessages(file, QStringLiteral("WARNG")), QStringList{"at exit"});

    QVERIFY(QFile::remove(file));
    COMPARE_CHILD(runChild({"application", "banner"}, environment), "");
    QVERIFY(logMessages(file, QStringLiteral("INFOR")).contains(QStringLiteral("(c) Vandrel")));
}

void TestExit::staticObjectsFindTheRegisteredClasses()
{
    COMPARE_CHILD(runChild({"register", "class"}, strictEnvironment()), "QString\nQString\n");
}

void TestExit::staticObjectsCanCheckTexts_data()
{
    QTest::addColumn<QString>("step");
    QTest::newRow("an e-mail address") << "address";
    QTest::newRow("a banner title") << "title";
}

void TestExit::staticObjectsCanCheckTexts()
{
    // In main() as well: what is built there is destroyed before the static object.
    QFETCH(QString, step);
    COMPARE_CHILD(runChild({step, step}, strictEnvironment()), "true\ntrue\n");
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestExit, child)
#include "tst_exit.moc"
