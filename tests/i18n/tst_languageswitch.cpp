// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/bundledirectory.h"
#include "support/childoutput.h"
#include "support/failuretext.h"
#include "support/files.h"

#include <kez/initlib.h>
#include <kez/log.h>
#include <kez/translator.h>

#include <QFile>
#include <QTest>

namespace {

const QString English = QStringLiteral("en_US");
const QString French = QStringLiteral("fr_FR");
const QString German = QStringLiteral("de_DE");

Translator& translator()
{
    return *Translator::getInstance();
}

// --- what the children do: one scenario each, in the directory given -----------------------------

/// The default language, then each bundle with its own language and its greeting.
void sayState()
{
    say(QStringLiteral("default ") + translator().defaultBundleKey());
    for (auto it = translator().begin(); it != translator().end(); ++it) {
        say(it.key() + QLatin1Char(' ') + (*it)->lang() + QLatin1Char(' ') +
            (*it)->text(QStringLiteral("Yes")));
    }
}

void insert(const QString& path, const QString& module, const QString& lang)
{
    if (!translator().insertBundle(path, module, lang))
        say(QStringLiteral("not inserted"));
}

void switchAll(const QString& path)
{
    kezEnsureInit();
    insert(path, QStringLiteral("shop"), French);
    insert(path, QStringLiteral("bank"), German);
    translator().setDefaultLang(English);
    sayState();
    say(translator().string(QStringLiteral("Yes")));
    say(translator().string(QStringLiteral("Yes"), QStringLiteral("shop")));
    translator().setDefaultLang(French);
    sayState();
}

void switchToTheSame(const QString& path)
{
    kezEnsureInit();
    insert(path, QStringLiteral("shop"), French);
    const auto before = translator().bundle(QStringLiteral("shop"), French);
    writeFile(path + QStringLiteral("/shop_fr_FR.lang"),
              "module=shop;lang=fr_FR\nYes=newly read\n");
    translator().setDefaultLang(French);
    sayState();
    say(translator().bundle(QStringLiteral("shop"), French) != before);
    say(before->text(QStringLiteral("Yes")));
}

void switchTwoOfOneModule(const QString& path, const QString& target)
{
    insert(path, QStringLiteral("shop"), German);
    insert(path, QStringLiteral("shop"), French);
    translator().setDefaultLang(target);
    sayState();
}

void switchNothing()
{
    translator().setDefaultLang(QStringLiteral("no such language"));
    sayState();
}

void switchPastAMissingFile(const QString& path)
{
    kezEnsureInit();
    for (const char* module : {"alpha", "beta", "zeta"})
        insert(path, QString::fromLatin1(module), French);
    say(pointerFailureText([] { translator().setDefaultLang(English); }));
    sayState();
}

void switchWhereNothingCanBe(const QString& path)
{
    insert(path, QStringLiteral("shop"), French);
    say(pointerFailureText([] { translator().setDefaultLang(QStringLiteral("xx_YY")); }));
    sayState();
}

/// Gives the inserted bundle another module and language, so that it stands under a wrong key.
void disguise(const QString& module)
{
    *translator().bundle(module, French) =
        LangBundle(QStringLiteral("/nowhere"), QStringLiteral("ghost ") + module, German);
}

void switchPastARefusal(const QString& path)
{
    for (const char* module : {"alpha", "beta", "zeta"})
        insert(path, QString::fromLatin1(module), French);
    disguise(QStringLiteral("beta"));
    translator().setDefaultLang(English);
    sayState();
}

void switchWhenEverythingIsRefused(const QString& path)
{
    for (const char* module : {"alpha", "beta"}) {
        insert(path, QString::fromLatin1(module), French);
        disguise(QString::fromLatin1(module));
    }
    translator().setDefaultLang(English);
    sayState();
}

void logToAFile(const QString& path)
{
    Log::initInstance(path + QStringLiteral("/app"), false, 0, 0, 1, LoggerLevel::debug);
}

void switchInALogThatKeepsFatalLinesOnly(const QString& path)
{
    logToAFile(path);
    Log::getInstance()->setFilter(LoggerLevel::fatal);
    switchPastARefusal(path);
}

void printMessages()
{
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& text) {
        say((type == QtCriticalMsg ? QStringLiteral("critical ") : QStringLiteral("other ")) +
            text.mid(text.indexOf(QLatin1Char('<'))));
    });
}

void switchManyBundles(const QString& path)
{
    for (int i = 0; i < 500; ++i)
        insert(path, QStringLiteral("m%1").arg(i), French);
    translator().setDefaultLang(English);
    int switched = 0;
    for (auto it = translator().begin(); it != translator().end(); ++it) {
        if (it.key().endsWith(QStringLiteral(".en_US")) && (*it)->lang() == English)
            ++switched;
    }
    say(QString::number(switched));
    say(QString::number(translator().size()));
}

void startTheLog(const QString& path)
{
    translator().setDefaultLang(English);
    logToAFile(path);
    say(QFile::exists(path + QStringLiteral("/app-0.log")));
}

int child(const QStringList& arguments)
{
    const QString& what = arguments.at(0);
    const QString& path = arguments.at(1);
    if (what == QLatin1String("all"))
        switchAll(path);
    if (what == QLatin1String("same"))
        switchToTheSame(path);
    if (what == QLatin1String("two"))
        switchTwoOfOneModule(path, arguments.at(2));
    if (what == QLatin1String("nothing"))
        switchNothing();
    if (what == QLatin1String("missing file"))
        switchPastAMissingFile(path);
    if (what == QLatin1String("no file"))
        switchWhereNothingCanBe(path);
    if (what == QLatin1String("refusal")) {
        logToAFile(path);
        switchPastARefusal(path);
    }
    if (what == QLatin1String("refusals")) {
        logToAFile(path);
        switchWhenEverythingIsRefused(path);
    }
    if (what == QLatin1String("refusal filtered"))
        switchInALogThatKeepsFatalLinesOnly(path);
    if (what == QLatin1String("refusal without log")) {
        printMessages();
        switchPastARefusal(path);
    }
    if (what == QLatin1String("many"))
        switchManyBundles(path);
    if (what == QLatin1String("log"))
        startTheLog(path);
    return 0;
}

// --- what the parent expects ---------------------------------------------------------------------

QByteArray refusalOf(const QByteArray& module)
{
    return "<ERROR> void Translator::setDefaultLang(const QString&) -> "
           "void Translator::changeLang(const QString&, const QString&)"
           "Le module de langue ghost " +
           module + ".de_DE n'est pas chargé";
}

} // namespace

/// Switching changes every bundle of the process, so each scenario runs in a child of its own.
class TestLanguageSwitch : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void everyBundleIsSwitchedFromItsOwnLanguage();
    void sameLanguageReloadsEveryBundle();
    void twoLanguagesOfAModuleBecomeOne_data();
    void twoLanguagesOfAModuleBecomeOne();
    void withoutBundlesOnlyTheDefaultChanges();
    void missingFileLeavesMidwayAsAPointer();
    void defaultStaysChangedWhenNothingCanBeSwitched();
    void refusedBundleIsLoggedAndTheOthersSwitched();
    void defaultStaysChangedWhenEverythingIsRefused();
    void refusalObeysTheLogsFilter();
    void refusalWithoutLogReachesTheMessageOutput();
    void hundredsOfBundles();
    void logIsCreatedWhenThereIsNone();

private:
    void write(const char* module, const QString& lang, const QByteArray& yes);
    ChildResult run(const QStringList& arguments);
    QByteArrayList logged() const;

    std::unique_ptr<BundleDirectory> _directory;
};

void TestLanguageSwitch::init()
{
    _directory = std::make_unique<BundleDirectory>();
    QVERIFY(_directory->isValid());
}

void TestLanguageSwitch::write(const char* module, const QString& lang, const QByteArray& yes)
{
    QVERIFY(_directory->write(QString::fromLatin1(module), lang, "Yes=" + yes + '\n'));
}

ChildResult TestLanguageSwitch::run(const QStringList& arguments)
{
    QStringList all = arguments;
    all.insert(1, _directory->path());
    return runChild(all, environmentUnder(QStringLiteral("fr_FR.UTF-8")));
}

/// The log's lines without their times.
QByteArrayList TestLanguageSwitch::logged() const
{
    const QString file = _directory->path() + QStringLiteral("/app-0.log");
    if (!QFile::exists(file))
        return {"no log"};
    QByteArrayList lines;
    for (const QByteArray& line : readFile(file).split('\n')) {
        if (!line.isEmpty())
            lines.append(line.mid(line.indexOf('<')));
    }
    return lines;
}

void TestLanguageSwitch::everyBundleIsSwitchedFromItsOwnLanguage()
{
    write("shop", French, "d'accord");
    write("shop", English, "okay");
    write("bank", German, "gut");
    write("bank", English, "good");
    write("bank", French, "bon");
    COMPARE_CHILD(run({"all"}), "default kez.en_US\n"
                                "bank.en_US en_US good\n"
                                "kez.en_US en_US yes\n"
                                "shop.en_US en_US okay\n"
                                "good\nokay\n"
                                "default kez.fr_FR\n"
                                "bank.fr_FR fr_FR bon\n"
                                "kez.fr_FR fr_FR oui\n"
                                "shop.fr_FR fr_FR d'accord\n");
}

void TestLanguageSwitch::sameLanguageReloadsEveryBundle()
{
    write("shop", French, "d'accord");
    COMPARE_CHILD(run({"same"}), "default kez.fr_FR\n"
                                 "kez.fr_FR fr_FR oui\n"
                                 "shop.fr_FR fr_FR newly read\n"
                                 "true\nd'accord\n");
}

void TestLanguageSwitch::twoLanguagesOfAModuleBecomeOne_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<QByteArray>("state");
    QTest::newRow("a third language")
        << English << QByteArray("default kez.en_US\nshop.en_US en_US okay\n");
    QTest::newRow("the language that comes first")
        << German << QByteArray("default kez.de_DE\nshop.de_DE de_DE gut\n");
    QTest::newRow("the language that comes last")
        << French << QByteArray("default kez.fr_FR\nshop.fr_FR fr_FR d'accord\n");
}

void TestLanguageSwitch::twoLanguagesOfAModuleBecomeOne()
{
    QFETCH(QString, target);
    QFETCH(QByteArray, state);
    write("shop", German, "gut");
    write("shop", French, "d'accord");
    write("shop", English, "okay");
    COMPARE_CHILD(run({"two", target}), state);
}

void TestLanguageSwitch::withoutBundlesOnlyTheDefaultChanges()
{
    COMPARE_CHILD(run({"nothing"}), "default kez.no such language\n");
}

void TestLanguageSwitch::missingFileLeavesMidwayAsAPointer()
{
    for (const char* module : {"alpha", "beta", "zeta"})
        write(module, French, "oui");
    write("alpha", English, "yes");
    write("zeta", English, "yes");
    const QByteArray missing = _directory->fileName(QStringLiteral("beta"), English).toUtf8();
    COMPARE_CHILD(run({"missing file"}),
                  "shared_ptr<LangBundle> LangBundle::load(const QString&, const QString&, const "
                  "QString&) -> Le fichier du module de traduction [" +
                      missing +
                      "] n'existe pas ou ne peut pas être lu\n"
                      "default kez.en_US\n"
                      "alpha.en_US en_US yes\n"
                      "beta.fr_FR fr_FR oui\n"
                      "kez.fr_FR fr_FR oui\n"
                      "zeta.fr_FR fr_FR oui\n");
}

void TestLanguageSwitch::defaultStaysChangedWhenNothingCanBeSwitched()
{
    write("shop", French, "d'accord");
    const QByteArray missing =
        _directory->fileName(QStringLiteral("shop"), QStringLiteral("xx_YY")).toUtf8();
    COMPARE_CHILD(run({"no file"}),
                  "shared_ptr<LangBundle> LangBundle::load(const QString&, const QString&, const "
                  "QString&) -> Le fichier du module de traduction [" +
                      missing +
                      "] n'existe pas ou ne peut pas être lu\n"
                      "default kez.xx_YY\n"
                      "shop.fr_FR fr_FR d'accord\n");
}

void TestLanguageSwitch::refusedBundleIsLoggedAndTheOthersSwitched()
{
    for (const char* module : {"alpha", "beta", "zeta"}) {
        write(module, French, "oui");
        write(module, English, "yes");
    }
    COMPARE_CHILD(run({"refusal"}), "default kez.en_US\n"
                                    "alpha.en_US en_US yes\n"
                                    "beta.fr_FR de_DE [Yes]\n"
                                    "zeta.en_US en_US yes\n");
    QCOMPARE(logged(), QByteArrayList{refusalOf("beta")});
}

void TestLanguageSwitch::defaultStaysChangedWhenEverythingIsRefused()
{
    write("alpha", French, "oui");
    write("beta", French, "oui");
    COMPARE_CHILD(run({"refusals"}), "default kez.en_US\n"
                                     "alpha.fr_FR de_DE [Yes]\n"
                                     "beta.fr_FR de_DE [Yes]\n");
    QCOMPARE(logged(), QByteArrayList({refusalOf("alpha"), refusalOf("beta")}));
}

void TestLanguageSwitch::refusalObeysTheLogsFilter()
{
    for (const char* module : {"alpha", "beta", "zeta"}) {
        write(module, French, "oui");
        write(module, English, "yes");
    }
    COMPARE_CHILD(run({"refusal filtered"}), "default kez.en_US\n"
                                             "alpha.en_US en_US yes\n"
                                             "beta.fr_FR de_DE [Yes]\n"
                                             "zeta.en_US en_US yes\n");
    QCOMPARE(logged(), QByteArrayList());
}

void TestLanguageSwitch::refusalWithoutLogReachesTheMessageOutput()
{
    for (const char* module : {"alpha", "beta", "zeta"}) {
        write(module, French, "oui");
        write(module, English, "yes");
    }
    const ChildResult result = run({"refusal without log"});
    QCOMPARE(result.exitCode, 0);
    const QByteArrayList lines = result.out.split('\n');
    QVERIFY2(lines.first().startsWith("critical ") && lines.first().contains(refusalOf("beta")),
             result.out.constData());
    QCOMPARE(lines.value(1), QByteArray("default kez.en_US"));
    QCOMPARE(lines.size(), 6);
}

void TestLanguageSwitch::hundredsOfBundles()
{
    for (int i = 0; i < 500; ++i) {
        const QByteArray module = "m" + QByteArray::number(i);
        write(module.constData(), French, "oui");
        write(module.constData(), English, "yes");
    }
    COMPARE_CHILD(run({"many"}), "500\n500\n");
}

void TestLanguageSwitch::logIsCreatedWhenThereIsNone()
{
    COMPARE_CHILD(run({"log"}), "false\n");
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestLanguageSwitch, child)
#include "tst_languageswitch.moc"
