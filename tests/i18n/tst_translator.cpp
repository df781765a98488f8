// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/allocations.h"
#include "support/bundledirectory.h"
#include "support/childoutput.h"
#include "support/failuretext.h"
#include "support/messagecapture.h"

#include <kez/initlib.h>
#include <kez/translator.h>

#include <QLocale>
#include <QTest>

#include <algorithm>
#include <atomic>
#include <thread>
#include <type_traits>
#include <vector>

static_assert(!std::is_copy_constructible_v<Translator>);
static_assert(!std::is_copy_assignable_v<Translator>);

namespace {

const QString ChangePrefix =
    QStringLiteral("void Translator::changeLang(const QString&, const QString&)");
const QString LoadPrefix =
    QStringLiteral("shared_ptr<LangBundle> LangBundle::load(const QString&, const QString&, const "
                   "QString&) -> ");

Translator& translator()
{
    return *Translator::getInstance();
}

std::shared_ptr<LangBundle> emptyBundle(const QString& module, const QString& lang)
{
    return std::make_shared<LangBundle>(QStringLiteral("/nowhere"), module, lang);
}

// --- what the children do ------------------------------------------------------------------------

void describeBeforeSetUp()
{
    say(translator().defaultLang());
    say(translator().defaultBundleKey());
    say(translator().size() == 0);
    say(translator().begin() == translator().end());
    say(translator().keyBegin() == translator().keyEnd());
    say(translator().toString().isEmpty());
    say(translator().defaultBundle() == nullptr);
    say(translator().bundle(QStringLiteral("Yes")) == nullptr);
    say(translator().contains(QStringLiteral("Yes")));
    say(translator().string(QStringLiteral("Yes")));
    say(translator().string(QStringLiteral("Yes"), QStringLiteral("kez")));
}

void describeAfterSetUp()
{
    kezEnsureInit();
    say(translator().toString().replace(QLatin1Char('\n'), QLatin1Char('|')));
    say(translator().string(QStringLiteral("Yes")));
    say(translator().string(QStringLiteral("NoSuchKey")));
    translator().insertBundle(emptyBundle(QStringLiteral("a"), QStringLiteral("x")));
    translator().insertBundle(emptyBundle(QStringLiteral("z"), QStringLiteral("x")));
    translator().insertBundle(emptyBundle(QStringLiteral("kez"), QStringLiteral("de_DE")));
    say(translator().toString().replace(QLatin1Char('\n'), QLatin1Char('|')));
}

void changeTheLocaleFirst()
{
    qputenv("LC_ALL", "de_DE.UTF-8");
    say(QLocale::system().name());
    say(translator().defaultLang());
}

/// The new language is a reference to the key of the bundle that is removed.
void changeToALanguageOfTheMap(const QString& path)
{
    translator().insertBundle(path, QStringLiteral("m"), QStringLiteral("l"));
    translator().changeLang(QStringLiteral("m"), QStringLiteral("l"), *translator().keyBegin());
    say(translator().toString().trimmed());
}

QString stringIn(const QString& module, const QString& lang)
{
    return translator().string(QStringLiteral("K"), module, lang);
}

/// Inserts more and more bundles and looks each of them up every time.
void insertMoreAndMore()
{
    const BundleDirectory directory;
    const QString lang = QStringLiteral("l");
    const auto modules =
        QStringLiteral("m,,ab,.,m.,.m,a,b,m.n,n,m.l,mm,é,o,p,q,r,s,t,long name").split(u',');
    QStringList inserted;
    bool isRight = true;
    translator().setDefaultBundleKey(QStringLiteral("kez"), lang);
    for (const QString& module : modules) {
        directory.write(module, lang, "K=" + module.toUtf8() + '.' + '\n');
        isRight &= stringIn(module, lang) == QLatin1String("[K]");
        translator().insertBundle(directory.path(), module, lang);
        inserted.append(module);
        for (const QString& other : std::as_const(inserted)) {
            const QString expected = other + QLatin1Char('.');
            isRight &= stringIn(other, lang) == expected;
            isRight &= translator().string(QStringLiteral("K"), other) == expected;
            isRight &= translator().contains(other, lang, QStringLiteral("K"));
            isRight &= !translator().contains(other, lang, QStringLiteral("L"));
        }
        isRight &= stringIn(QStringLiteral("no"), lang) == QLatin1String("[K]");
        isRight &= stringIn(QStringLiteral("m"), QStringLiteral("k")) == QLatin1String("[K]");
        isRight &= stringIn(QStringLiteral("ml"), QString()) == QLatin1String("[K]");
        isRight &= stringIn(QStringLiteral("a"), QStringLiteral(".l")) == QLatin1String("[K]");
    }
    // Pairs that share a bundle key.
    isRight &= stringIn(QStringLiteral("m"), QStringLiteral("n.l")) == QLatin1String("m.n.");
    isRight &= stringIn(QString(), QStringLiteral("m.l")) == QLatin1String(".m.");
    say(isRight);
    say(QString::number(translator().size()));
}

int child(const QStringList& arguments)
{
    if (arguments.at(0) == QLatin1String("more"))
        insertMoreAndMore();
    if (arguments.at(0) == QLatin1String("before"))
        describeBeforeSetUp();
    if (arguments.at(0) == QLatin1String("after"))
        describeAfterSetUp();
    if (arguments.at(0) == QLatin1String("locale"))
        changeTheLocaleFirst();
    if (arguments.at(0) == QLatin1String("alias"))
        changeToALanguageOfTheMap(arguments.at(1));
    return 0;
}

QByteArray outputUnder(const QString& locale, const QStringList& arguments)
{
    return runChild(arguments, environmentUnder(locale, locale)).out;
}

} // namespace

/// There is one translator per process, so each test uses modules and a language of its own.
class TestTranslator : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();

    void thereIsOneInstance();
    void startsWithModuleKezAndTheSystemLanguage_data();
    void startsWithModuleKezAndTheSystemLanguage();
    void systemLanguageIsAskedForAtTheFirstUse();
    void setUpGivesItTheLibraryBundle();

    void defaultKeyIsModuleDotLanguage();
    void settingTheDefaultLoadsAndChecksNothing();
    void defaultBundleIsTheOneUnderTheDefaultKey();

    void insertedBundleIsFoundByModuleAndLanguage();
    void emptyPointerIsRefused();
    void secondBundleOfAPairIsRefused();
    void pairsAreToldApartByTheirKeyAlone();
    void insertedFromADirectory();
    void loadedPairIsRefusedWithoutTouchingTheDisk();
    void failedInsertionThrowsAPointerAndChangesNothing();
    void failedInsertionReportsNothing();

    void stringOfOneKeySearchesTheDefaultLanguage();
    void stringOfOneKeyTakesTheFirstModuleThatHasIt();
    void stringOfOneKeyIgnoresTheDefaultModule();
    void stringOfKeyAndModuleUsesTheDefaultLanguage();
    void stringOfKeyModuleAndLanguage();
    void emptyTextsAreTexts();
    void unresolvedKeyReadsAsBracketedKey_data();
    void unresolvedKeyReadsAsBracketedKey();

    void changedTextsAreFound();
    void bundleAssignedInPlaceIsFoundAsItIs();
    void manyBundlesAreFoundAsFewAre();
    void textThatIsFoundAllocatesNothing();

    void bundleOfAKeySearchesEveryLanguage();
    void containsSearchesEveryBundle();
    void containsOfAPairLooksThereOnly();

    void iteratesInKeyOrder();
    void toStringHasALinePerBundle();

    void changeLangReplacesTheBundle();
    void changeLangReadsFromTheOldBundlesDirectory();
    void changeLangReplacesABundleOfTheNewLanguage();
    void changeLangToTheSameLanguageReloads();
    void changeLangFromTheDefaultLanguage();
    void changeLangTakesALanguageThatRefersIntoTheMap();
    void changeLangLeavesTheDefaultAlone();
    void changeLangOfAnUnloadedBundleThrows_data();
    void changeLangOfAnUnloadedBundleThrows();
    void changeLangWithoutNewFileThrowsAPointerAndChangesNothing();
    void changeLangWithAnInvalidFileThrowsAPointerAndChangesNothing();
    void changeLangOfABundleMadeInMemoryThrowsAPointer();
    void replacedBundlesStayValid();

    void readsFromManyThreads();

private:
    bool insert(const QString& module, const QString& lang, const QByteArray& body);

    std::unique_ptr<BundleDirectory> _directory;
    QString _lang;
    QString _otherLang;
    int _counter = 0;
};

void TestTranslator::init()
{
    _directory = std::make_unique<BundleDirectory>();
    QVERIFY(_directory->isValid());
    _lang = QStringLiteral("l%1").arg(++_counter);
    _otherLang = _lang + QStringLiteral("x");
    translator().setDefaultBundleKey(QStringLiteral("kez"), _lang);
}

bool TestTranslator::insert(const QString& module, const QString& lang, const QByteArray& body)
{
    return _directory->write(module, lang, body) &&
           translator().insertBundle(_directory->path(), module, lang);
}

void TestTranslator::thereIsOneInstance()
{
    Translator* const instance = Translator::getInstance();
    QVERIFY(instance);
    QCOMPARE(Translator::getInstance(), instance);

    std::atomic<int> same = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] { same += Translator::getInstance() == instance ? 1 : 0; });
    for (std::thread& thread : threads)
        thread.join();
    QCOMPARE(same.load(), 4);
}

void TestTranslator::startsWithModuleKezAndTheSystemLanguage_data()
{
    QTest::addColumn<QString>("locale");
    QTest::addColumn<QByteArray>("lang");
    QTest::newRow("French") << QStringLiteral("fr_FR.UTF-8") << QByteArray("fr_FR");
    QTest::newRow("American") << QStringLiteral("en_US.UTF-8") << QByteArray("en_US");
    QTest::newRow("no bundle for it") << QStringLiteral("pt_BR.UTF-8") << QByteArray("pt_BR");
    QTest::newRow("C") << QStringLiteral("C") << QByteArray("C");
}

void TestTranslator::startsWithModuleKezAndTheSystemLanguage()
{
    QFETCH(QString, locale);
    QFETCH(QByteArray, lang);
    QCOMPARE(outputUnder(locale, {"before"}),
             lang + "\nkez." + lang +
                 "\ntrue\ntrue\ntrue\ntrue\ntrue\ntrue\nfalse\n[Yes]\n[Yes]\n");
}

void TestTranslator::systemLanguageIsAskedForAtTheFirstUse()
{
    // The library is loaded before main() sets the locale. It must not ask Qt for the language by
    // then, since Qt keeps its first answer.
    QCOMPARE(outputUnder(QStringLiteral("fr_FR.UTF-8"), {"locale"}), QByteArray("de_DE\nde_DE\n"));
}

void TestTranslator::setUpGivesItTheLibraryBundle()
{
    QCOMPARE(outputUnder(QStringLiteral("fr_FR.UTF-8"), {"after"}),
             QByteArray("kez.fr_FR : 67|\noui\n[NoSuchKey]\n"
                        "a.x : 0|kez.de_DE : 0|kez.fr_FR : 67|z.x : 0|\n"));
}

void TestTranslator::defaultKeyIsModuleDotLanguage()
{
    translator().setDefaultBundleKey(QStringLiteral("shop"), QStringLiteral("de_DE"));
    QCOMPARE(translator().defaultBundleKey(), QStringLiteral("shop.de_DE"));
    QCOMPARE(translator().defaultLang(), QStringLiteral("de_DE"));

    translator().setDefaultBundleKey(QStringLiteral("%2"), QStringLiteral("%1"));
    QCOMPARE(translator().defaultBundleKey(), QStringLiteral("%2.%1"));

    translator().setDefaultBundleKey(QString(), QString());
    QCOMPARE(translator().defaultBundleKey(), QStringLiteral("."));
    QCOMPARE(translator().defaultLang(), QString());
}

void TestTranslator::settingTheDefaultLoadsAndChecksNothing()
{
    const QString before = translator().toString();
    translator().setDefaultBundleKey(QStringLiteral("no such module"),
                                     QStringLiteral("no such language"));
    QCOMPARE(translator().toString(), before);
    QVERIFY(translator().defaultBundle() == nullptr);
}

void TestTranslator::defaultBundleIsTheOneUnderTheDefaultKey()
{
    QVERIFY(translator().defaultBundle() == nullptr);
    const auto bundle = emptyBundle(QStringLiteral("kez"), _lang);
    QVERIFY(translator().insertBundle(bundle));
    QCOMPARE(translator().defaultBundle(), bundle);
    translator().setDefaultBundleKey(QStringLiteral("shop"), _lang);
    QVERIFY(translator().defaultBundle() == nullptr);
}

void TestTranslator::insertedBundleIsFoundByModuleAndLanguage()
{
    const int before = translator().size();
    const auto bundle = emptyBundle(QStringLiteral("m"), _lang);
    QVERIFY(translator().insertBundle(bundle));
    QCOMPARE(translator().size(), before + 1);
    QCOMPARE(translator().bundle(QStringLiteral("m"), _lang), bundle);
    QVERIFY(translator().bundle(QStringLiteral("m"), _otherLang) == nullptr);
    QVERIFY(translator().bundle(QStringLiteral("M"), _lang) == nullptr);
    QVERIFY(translator().bundle(_lang, QStringLiteral("m")) == nullptr);
    QVERIFY(translator().bundle(QString(), QString()) == nullptr);
    QCOMPARE(translator().size(), before + 1);
}

void TestTranslator::emptyPointerIsRefused()
{
    const QString before = translator().toString();
    QVERIFY(!translator().insertBundle(nullptr));
    QCOMPARE(translator().toString(), before);
}

void TestTranslator::secondBundleOfAPairIsRefused()
{
    const auto first = emptyBundle(QStringLiteral("m"), _lang);
    QVERIFY(translator().insertBundle(first));
    const int size = translator().size();
    QVERIFY(!translator().insertBundle(emptyBundle(QStringLiteral("m"), _lang)));
    QVERIFY(!translator().insertBundle(first));
    QCOMPARE(translator().bundle(QStringLiteral("m"), _lang), first);
    QCOMPARE(translator().size(), size);

    QVERIFY(translator().insertBundle(emptyBundle(QStringLiteral("m"), _otherLang)));
    QVERIFY(translator().insertBundle(emptyBundle(QStringLiteral("n"), _lang)));
    QCOMPARE(translator().size(), size + 2);
}

void TestTranslator::pairsAreToldApartByTheirKeyAlone()
{
    const auto first = emptyBundle(QStringLiteral("a.b"), _lang);
    QVERIFY(translator().insertBundle(first));
    QVERIFY(
        !translator().insertBundle(emptyBundle(QStringLiteral("a"), QStringLiteral("b.") + _lang)));
    QCOMPARE(translator().bundle(QStringLiteral("a"), QStringLiteral("b.") + _lang), first);
}

void TestTranslator::insertedFromADirectory()
{
    QVERIFY(insert(QStringLiteral("m"), _lang, "K=v\nL=w\n"));
    const auto bundle = translator().bundle(QStringLiteral("m"), _lang);
    QVERIFY(bundle != nullptr);
    QCOMPARE(bundle->path(), _directory->path());
    QCOMPARE(bundle->module(), QStringLiteral("m"));
    QCOMPARE(bundle->lang(), _lang);
    QCOMPARE(bundle->size(), 2);
}

void TestTranslator::loadedPairIsRefusedWithoutTouchingTheDisk()
{
    QVERIFY(insert(QStringLiteral("m"), _lang, "K=v\n"));
    const auto bundle = translator().bundle(QStringLiteral("m"), _lang);

    BundleDirectory other;
    QVERIFY(other.writeRaw(QStringLiteral("m"), _lang, "no header"));
    QVERIFY(!translator().insertBundle(other.path(), QStringLiteral("m"), _lang));
    QVERIFY(!translator().insertBundle(QStringLiteral("/nowhere"), QStringLiteral("m"), _lang));
    QVERIFY(_directory->remove(QStringLiteral("m"), _lang));
    QVERIFY(!translator().insertBundle(_directory->path(), QStringLiteral("m"), _lang));
    QCOMPARE(translator().bundle(QStringLiteral("m"), _lang), bundle);
    QCOMPARE(bundle->text(QStringLiteral("K")), QStringLiteral("v"));
}

void TestTranslator::failedInsertionThrowsAPointerAndChangesNothing()
{
    const QString before = translator().toString();
    const auto missing = thrownPointer(
        [&] { translator().insertBundle(_directory->path(), QStringLiteral("m"), _lang); });
    QVERIFY(missing != nullptr);
    QCOMPARE(missing->detail(), LoadPrefix +
                                    QStringLiteral("Le fichier du module de traduction [") +
                                    _directory->fileName(QStringLiteral("m"), _lang) +
                                    QStringLiteral("] n'existe pas ou ne peut pas être lu"));

    QVERIFY(_directory->writeRaw(QStringLiteral("m"), _lang, "module=n;lang=x\n"));
    const auto other = thrownPointer(
        [&] { translator().insertBundle(_directory->path(), QStringLiteral("m"), _lang); });
    QVERIFY(other != nullptr);
    QCOMPARE(other->detail(),
             LoadPrefix + QStringLiteral("Nom de module attendu m, lu dans le fichier : n"));
    QCOMPARE(translator().toString(), before);
}

void TestTranslator::failedInsertionReportsNothing()
{
    const MessageCapture capture;
    QVERIFY(thrownPointer([&] {
                translator().insertBundle(_directory->path(), QStringLiteral("m"), _lang);
            }) != nullptr);
    QCOMPARE(capture.texts(), QStringList());
}

void TestTranslator::stringOfOneKeySearchesTheDefaultLanguage()
{
    QVERIFY(insert(QStringLiteral("m"), _lang, "K=in the default language\n"));
    QVERIFY(insert(QStringLiteral("a"), _otherLang, "K=in another language\nOnly=there\n"));
    QCOMPARE(translator().string(QStringLiteral("K")), QStringLiteral("in the default language"));
    QCOMPARE(translator().string(QStringLiteral("Only")), QStringLiteral("[Only]"));

    translator().setDefaultBundleKey(QStringLiteral("kez"), _otherLang);
    QCOMPARE(translator().string(QStringLiteral("K")), QStringLiteral("in another language"));
}

void TestTranslator::stringOfOneKeyTakesTheFirstModuleThatHasIt()
{
    QVERIFY(insert(QStringLiteral("c"), _lang, "K=c\nL=c\nM=c\n"));
    QVERIFY(insert(QStringLiteral("a"), _lang, "K=a\n"));
    QVERIFY(insert(QStringLiteral("b"), _lang, "K=b\nL=b\n"));
    QCOMPARE(translator().string(QStringLiteral("K")), QStringLiteral("a"));
    QCOMPARE(translator().string(QStringLiteral("L")), QStringLiteral("b"));
    QCOMPARE(translator().string(QStringLiteral("M")), QStringLiteral("c"));

    QVERIFY(insert(QStringLiteral("B"), _lang, "K=capital\n"));
    QCOMPARE(translator().string(QStringLiteral("K")), QStringLiteral("capital"));
}

void TestTranslator::stringOfOneKeyIgnoresTheDefaultModule()
{
    QVERIFY(insert(QStringLiteral("a"), _lang, "K=a\n"));
    QVERIFY(insert(QStringLiteral("z"), _lang, "K=z\n"));
    translator().setDefaultBundleKey(QStringLiteral("z"), _lang);
    QCOMPARE(translator().string(QStringLiteral("K")), QStringLiteral("a"));
}

void TestTranslator::stringOfKeyAndModuleUsesTheDefaultLanguage()
{
    QVERIFY(insert(QStringLiteral("m"), _lang, "K=default\n"));
    QVERIFY(insert(QStringLiteral("m"), _otherLang, "K=other\nOnly=there\n"));
    QVERIFY(insert(QStringLiteral("a"), _lang, "K=another module\n"));
    const QString module = QStringLiteral("m");
    QCOMPARE(translator().string(QStringLiteral("K"), module), QStringLiteral("default"));
    QCOMPARE(translator().string(QStringLiteral("Only"), module), QStringLiteral("[Only]"));
    QCOMPARE(translator().string(QStringLiteral("K"), QStringLiteral("other")),
             QStringLiteral("[K]"));
    translator().setDefaultBundleKey(QStringLiteral("kez"), _otherLang);
    QCOMPARE(translator().string(QStringLiteral("K"), module), QStringLiteral("other"));
    QCOMPARE(translator().string(QStringLiteral("K"), QStringLiteral("a")), QStringLiteral("[K]"));
}

void TestTranslator::stringOfKeyModuleAndLanguage()
{
    QVERIFY(insert(QStringLiteral("m"), _lang, "K=default\n"));
    QVERIFY(insert(QStringLiteral("m"), _otherLang, "K=other\n"));
    const QString key = QStringLiteral("K");
    const QString module = QStringLiteral("m");
    QCOMPARE(translator().string(key, module, _lang), QStringLiteral("default"));
    QCOMPARE(translator().string(key, module, _otherLang), QStringLiteral("other"));
    QCOMPARE(translator().string(key, module, QStringLiteral("xx")), QStringLiteral("[K]"));
    QCOMPARE(translator().string(key, QStringLiteral("n"), _lang), QStringLiteral("[K]"));
    QCOMPARE(translator().string(module, key, _lang), QStringLiteral("[m]"));
}

void TestTranslator::emptyTextsAreTexts()
{
    QVERIFY(insert(QStringLiteral("a"), _lang, "K=\n"));
    QVERIFY(insert(QStringLiteral("b"), _lang, "K=b\n"));
    const QString empty(u""_qs);
    QCOMPARE(translator().string(QStringLiteral("K")), empty);
    QCOMPARE(translator().string(QStringLiteral("K"), QStringLiteral("a")), empty);
    QCOMPARE(translator().string(QStringLiteral("K"), QStringLiteral("a"), _lang), empty);
    QVERIFY(translator().contains(QStringLiteral("a"), _lang, QStringLiteral("K")));
}

void TestTranslator::unresolvedKeyReadsAsBracketedKey_data()
{
    QTest::addColumn<QString>("key");
    QTest::newRow("plain") << QStringLiteral("NoSuchKey");
    QTest::newRow("empty") << QString(u""_qs);
    QTest::newRow("case differs") << QStringLiteral("k");
    QTest::newRow("place marker") << QStringLiteral("%1");
    QTest::newRow("in brackets already") << QStringLiteral("[K]");
    QTest::newRow("the module") << QStringLiteral("m");
}

void TestTranslator::unresolvedKeyReadsAsBracketedKey()
{
    QFETCH(QString, key);
    QVERIFY(insert(QStringLiteral("m"), _lang, "K=v\n"));
    const QString expected = QStringLiteral("[") + key + QStringLiteral("]");
    QCOMPARE(translator().string(key), expected);
    QCOMPARE(translator().string(key, QStringLiteral("m")), expected);
    QCOMPARE(translator().string(key, QStringLiteral("other")), expected);
    QCOMPARE(translator().string(key, QStringLiteral("m"), _lang), expected);
    QCOMPARE(translator().string(key, QString(), QString()), expected);
}

void TestTranslator::changedTextsAreFound()
{
    QVERIFY(insert(QStringLiteral("a"), _lang, "K=old\nL=other\n"));
    const auto bundle = translator().bundle(QStringLiteral("a"), _lang);
    const QString key = QStringLiteral("K");
    QCOMPARE(translator().string(key), QStringLiteral("old"));
    *bundle->begin() = QStringLiteral("new");
    QCOMPARE(translator().string(key), QStringLiteral("new"));
    QCOMPARE(translator().string(key, QStringLiteral("a")), QStringLiteral("new"));
    QCOMPARE(translator().string(key, QStringLiteral("a"), _lang), QStringLiteral("new"));
    QCOMPARE(translator().string(QStringLiteral("L")), QStringLiteral("other"));
}

void TestTranslator::bundleAssignedInPlaceIsFoundAsItIs()
{
    QVERIFY(insert(QStringLiteral("a"), _lang, "K=old\n"));
    QVERIFY(insert(QStringLiteral("b"), _otherLang, "K=new\n"));
    LangBundle& bundle = *translator().bundle(QStringLiteral("a"), _lang);
    const LangBundle before = bundle;
    bundle = *translator().bundle(QStringLiteral("b"), _otherLang);
    const QString key = QStringLiteral("K");
    // It stays under its key, but it is of another language now.
    QCOMPARE(translator().string(key, QStringLiteral("a"), _lang), QStringLiteral("new"));
    QCOMPARE(translator().string(key), QStringLiteral("[K]"));
    translator().setDefaultBundleKey(QStringLiteral("kez"), _otherLang);
    QCOMPARE(translator().string(key), QStringLiteral("new"));
    bundle = before; // the other tests want it where it belongs
}

void TestTranslator::manyBundlesAreFoundAsFewAre()
{
    COMPARE_CHILD(runChild({"more"}, strictEnvironment()), "true\n20\n");
}

void TestTranslator::textThatIsFoundAllocatesNothing()
{
    if (!Allocations::AreCounted)
        QSKIP("The sanitizer has the functions that would count.");
    QVERIFY(insert(QStringLiteral("a"), _lang, "K=text\n"));
    const QString key = QStringLiteral("K");
    const auto bundle = translator().bundle(QStringLiteral("a"), _lang);
    const long before = Allocations::count;
    const QString found = translator().string(key);
    const bool isThere = translator().contains(key) && bundle->contains(key);
    const QString text = bundle->text(key);
    const long after = Allocations::count;
    QVERIFY(isThere);
    QCOMPARE(found, QStringLiteral("text"));
    QCOMPARE(text, QStringLiteral("text"));
    QCOMPARE(translator().string(QStringLiteral("L")), QStringLiteral("[L]"));
    QVERIFY(Allocations::count > after); // shows that allocations are counted
    QCOMPARE(after, before);
}

void TestTranslator::bundleOfAKeySearchesEveryLanguage()
{
    const QString key = QStringLiteral("OfBundle");
    QVERIFY(translator().bundle(key) == nullptr);
    QVERIFY(insert(QStringLiteral("n"), _lang, "OfBundle=n\n"));
    QCOMPARE(translator().bundle(key), translator().bundle(QStringLiteral("n"), _lang));
    QVERIFY(insert(QStringLiteral("m"), _otherLang, "OfBundle=m\n"));
    QVERIFY(insert(QStringLiteral("l"), _lang, "Other=l\n"));
    QCOMPARE(translator().bundle(key), translator().bundle(QStringLiteral("m"), _otherLang));
    // Of one module, the language that sorts first counts.
    QVERIFY(insert(QStringLiteral("m"), _lang, "OfBundle=m\n"));
    QCOMPARE(translator().bundle(key), translator().bundle(QStringLiteral("m"), _lang));
}

void TestTranslator::containsSearchesEveryBundle()
{
    QVERIFY(!translator().contains(QStringLiteral("OfContains")));
    QVERIFY(insert(QStringLiteral("m"), _otherLang, "OfContains=x\n"));
    QVERIFY(translator().contains(QStringLiteral("OfContains")));
    QVERIFY(!translator().contains(QStringLiteral("ofContains")));
    QVERIFY(!translator().contains(QString()));
    QCOMPARE(translator().string(QStringLiteral("OfContains")), QStringLiteral("[OfContains]"));
}

void TestTranslator::containsOfAPairLooksThereOnly()
{
    QVERIFY(insert(QStringLiteral("m"), _lang, "K=v\n"));
    QVERIFY(insert(QStringLiteral("n"), _lang, "L=w\n"));
    const QString key = QStringLiteral("K");
    QVERIFY(translator().contains(QStringLiteral("m"), _lang, key));
    QVERIFY(!translator().contains(QStringLiteral("n"), _lang, key));
    QVERIFY(!translator().contains(QStringLiteral("m"), _otherLang, key));
    QVERIFY(!translator().contains(QStringLiteral("no such module"), _lang, key));
    QVERIFY(!translator().contains(key, QStringLiteral("m"), _lang));
}

void TestTranslator::iteratesInKeyOrder()
{
    for (const char* module : {"b", "C", "a", "b-x", "ab", "é"})
        QVERIFY(translator().insertBundle(emptyBundle(QString::fromUtf8(module), _lang)));

    const QStringList keys(translator().keyBegin(), translator().keyEnd());
    QCOMPARE(keys.size(), translator().size());
    QVERIFY(std::is_sorted(keys.begin(), keys.end()));

    QStringList walked;
    QStringList ours;
    for (auto it = translator().begin(); it != translator().end(); ++it) {
        walked.append(it.key());
        QCOMPARE(it.key(), (*it)->module() + QLatin1Char('.') + (*it)->lang());
        if ((*it)->lang() == _lang)
            ours.append((*it)->module());
    }
    QCOMPARE(walked, keys);
    QCOMPARE(ours, QStringList({"C", "a", "ab", "b-x", "b", "é"}));
}

void TestTranslator::toStringHasALinePerBundle()
{
    QVERIFY(insert(QStringLiteral("m"), _lang, "K=v\nL=w\n"));
    QVERIFY(insert(QStringLiteral("%2"), _lang, ""));

    QString expected;
    for (auto it = translator().begin(); it != translator().end(); ++it)
        expected +=
            it.key() + QStringLiteral(" : ") + QString::number((*it)->size()) + QLatin1Char('\n');
    QCOMPARE(translator().toString(), expected);
    const QStringList lines = expected.split(QLatin1Char('\n'));
    QVERIFY(lines.contains(QStringLiteral("m.%1 : 2").arg(_lang)));
    QVERIFY(lines.contains(QStringLiteral("%2.") + _lang + QStringLiteral(" : 0")));
}

void TestTranslator::changeLangReplacesTheBundle()
{
    QVERIFY(_directory->write(QStringLiteral("m"), _otherLang, "K=new\n"));
    QVERIFY(insert(QStringLiteral("m"), _lang, "K=old\n"));
    QVERIFY(insert(QStringLiteral("n"), _lang, "K=bystander\n"));
    const int size = translator().size();

    translator().changeLang(QStringLiteral("m"), _lang, _otherLang);
    QVERIFY(translator().bundle(QStringLiteral("m"), _lang) == nullptr);
    const auto bundle = translator().bundle(QStringLiteral("m"), _otherLang);
    QVERIFY(bundle != nullptr);
    QCOMPARE(bundle->lang(), _otherLang);
    QCOMPARE(bundle->module(), QStringLiteral("m"));
    QCOMPARE(bundle->text(QStringLiteral("K")), QStringLiteral("new"));
    QCOMPARE(translator().size(), size);
    QCOMPARE(translator().string(QStringLiteral("K")), QStringLiteral("bystander"));
}

void TestTranslator::changeLangReadsFromTheOldBundlesDirectory()
{
    BundleDirectory other;
    QVERIFY(other.write(QStringLiteral("m"), _otherLang, "K=elsewhere\n"));
    QVERIFY(insert(QStringLiteral("n"), _lang, "K=old\n"));
    QVERIFY(other.write(QStringLiteral("m"), _lang, "K=old\n"));
    QVERIFY(translator().insertBundle(other.path(), QStringLiteral("m"), _lang));

    translator().changeLang(QStringLiteral("m"), _lang, _otherLang);
    const auto bundle = translator().bundle(QStringLiteral("m"), _otherLang);
    QCOMPARE(bundle->path(), other.path());
    QCOMPARE(bundle->text(QStringLiteral("K")), QStringLiteral("elsewhere"));
}

void TestTranslator::changeLangReplacesABundleOfTheNewLanguage()
{
    QVERIFY(insert(QStringLiteral("m"), _lang, "K=old\n"));
    QVERIFY(insert(QStringLiteral("m"), _otherLang, "K=loaded before\n"));
    QVERIFY(_directory->write(QStringLiteral("m"), _otherLang, "K=newly read\n"));
    const auto before = translator().bundle(QStringLiteral("m"), _otherLang);
    const int size = translator().size();

    translator().changeLang(QStringLiteral("m"), _lang, _otherLang);
    const auto bundle = translator().bundle(QStringLiteral("m"), _otherLang);
    QVERIFY(bundle != before);
    QCOMPARE(bundle->text(QStringLiteral("K")), QStringLiteral("newly read"));
    QCOMPARE(translator().size(), size - 1);
}

void TestTranslator::changeLangToTheSameLanguageReloads()
{
    QVERIFY(insert(QStringLiteral("m"), _lang, "K=old\n"));
    const auto before = translator().bundle(QStringLiteral("m"), _lang);
    QVERIFY(_directory->write(QStringLiteral("m"), _lang, "K=newly read\n"));
    const int size = translator().size();

    translator().changeLang(QStringLiteral("m"), _lang, _lang);
    const auto bundle = translator().bundle(QStringLiteral("m"), _lang);
    QVERIFY(bundle != nullptr);
    QVERIFY(bundle != before);
    QCOMPARE(bundle->text(QStringLiteral("K")), QStringLiteral("newly read"));
    QCOMPARE(translator().size(), size);
}

void TestTranslator::changeLangFromTheDefaultLanguage()
{
    QVERIFY(insert(QStringLiteral("m"), _lang, "K=old\n"));
    QVERIFY(_directory->write(QStringLiteral("m"), _otherLang, "K=new\n"));
    translator().changeLang(QStringLiteral("m"), _otherLang);
    QVERIFY(translator().bundle(QStringLiteral("m"), _lang) == nullptr);
    QCOMPARE(translator().string(QStringLiteral("K"), QStringLiteral("m"), _otherLang),
             QStringLiteral("new"));

    // The default language counts, not the bundle's own one.
    QCOMPARE(
        failureText([&] { translator().changeLang(QStringLiteral("m"), QStringLiteral("xx")); }),
        ChangePrefix + QStringLiteral("Le module de langue m.%1 n'est pas chargé").arg(_lang));
}

void TestTranslator::changeLangTakesALanguageThatRefersIntoTheMap()
{
    QVERIFY(_directory->write(QStringLiteral("m"), QStringLiteral("l"), "K=old\n"));
    QVERIFY(_directory->write(QStringLiteral("m"), QStringLiteral("m.l"), "K=new\n"));
    COMPARE_CHILD(runChild({"alias", _directory->path()}, strictEnvironment()), "m.m.l : 1\n");
}

void TestTranslator::changeLangLeavesTheDefaultAlone()
{
    QVERIFY(insert(QStringLiteral("m"), _lang, "K=old\n"));
    QVERIFY(_directory->write(QStringLiteral("m"), _otherLang, "K=new\n"));
    translator().setDefaultBundleKey(QStringLiteral("m"), _lang);
    translator().changeLang(QStringLiteral("m"), _otherLang);
    QCOMPARE(translator().defaultLang(), _lang);
    QCOMPARE(translator().defaultBundleKey(), QStringLiteral("m.") + _lang);
    QVERIFY(translator().defaultBundle() == nullptr);
    QCOMPARE(translator().string(QStringLiteral("K")), QStringLiteral("[K]"));
}

void TestTranslator::changeLangOfAnUnloadedBundleThrows_data()
{
    QTest::addColumn<QString>("module");
    QTest::addColumn<QString>("oldLang");
    QTest::newRow("language not loaded") << QStringLiteral("kez") << QStringLiteral("de_DE");
    QTest::newRow("module not loaded") << QStringLiteral("ghost") << QStringLiteral("fr_FR");
    QTest::newRow("empty names") << QString() << QString();
    QTest::newRow("place markers") << QStringLiteral("%1") << QStringLiteral("%2");
}

void TestTranslator::changeLangOfAnUnloadedBundleThrows()
{
    QFETCH(QString, module);
    QFETCH(QString, oldLang);
    const QString before = translator().toString();
    const QString expected = ChangePrefix + QStringLiteral("Le module de langue ") + module +
                             QLatin1Char('.') + oldLang + QStringLiteral(" n'est pas chargé");

    QCOMPARE(
        failureText([&] { translator().changeLang(module, oldLang, QStringLiteral("fr_FR")); }),
        expected);

    translator().setDefaultBundleKey(QStringLiteral("kez"), oldLang);
    QCOMPARE(failureText([&] { translator().changeLang(module, QStringLiteral("fr_FR")); }),
             expected);
    QCOMPARE(translator().toString(), before);
}

void TestTranslator::changeLangWithoutNewFileThrowsAPointerAndChangesNothing()
{
    QVERIFY(insert(QStringLiteral("m"), _lang, "K=old\n"));
    QVERIFY(insert(QStringLiteral("m"), _otherLang, "K=other\n"));
    QVERIFY(_directory->remove(QStringLiteral("m"), _otherLang));
    const auto oldBundle = translator().bundle(QStringLiteral("m"), _lang);
    const auto otherBundle = translator().bundle(QStringLiteral("m"), _otherLang);
    const QString before = translator().toString();

    const auto failure =
        thrownPointer([&] { translator().changeLang(QStringLiteral("m"), _lang, _otherLang); });
    QVERIFY(failure != nullptr);
    QCOMPARE(failure->detail(), LoadPrefix +
                                    QStringLiteral("Le fichier du module de traduction [") +
                                    _directory->fileName(QStringLiteral("m"), _otherLang) +
                                    QStringLiteral("] n'existe pas ou ne peut pas être lu"));
    QCOMPARE(translator().bundle(QStringLiteral("m"), _lang), oldBundle);
    QCOMPARE(translator().bundle(QStringLiteral("m"), _otherLang), otherBundle);
    QCOMPARE(translator().toString(), before);
}

void TestTranslator::changeLangWithAnInvalidFileThrowsAPointerAndChangesNothing()
{
    QVERIFY(insert(QStringLiteral("m"), _lang, "K=old\n"));
    QVERIFY(_directory->writeRaw(QStringLiteral("m"), _otherLang, "module=m;lang=wrong\nK=new\n"));
    const auto bundle = translator().bundle(QStringLiteral("m"), _lang);
    const QString before = translator().toString();

    const auto failure =
        thrownPointer([&] { translator().changeLang(QStringLiteral("m"), _otherLang); });
    QVERIFY(failure != nullptr);
    QCOMPARE(
        failure->detail(),
        LoadPrefix +
            QStringLiteral("Nom de langue attendu %1, lu dans le fichier : wrong").arg(_otherLang));
    QCOMPARE(translator().bundle(QStringLiteral("m"), _lang), bundle);
    QCOMPARE(translator().toString(), before);
}

void TestTranslator::changeLangOfABundleMadeInMemoryThrowsAPointer()
{
    const auto bundle = emptyBundle(QStringLiteral("m"), _lang);
    QVERIFY(translator().insertBundle(bundle));
    QVERIFY(thrownPointer([&] { translator().changeLang(QStringLiteral("m"), _lang, _lang); }) !=
            nullptr);
    QCOMPARE(translator().bundle(QStringLiteral("m"), _lang), bundle);
}

void TestTranslator::replacedBundlesStayValid()
{
    QVERIFY(insert(QStringLiteral("m"), _lang, "K=old\n"));
    QVERIFY(_directory->write(QStringLiteral("m"), _otherLang, "K=new\n"));
    const auto bundle = translator().bundle(QStringLiteral("m"), _lang);
    translator().changeLang(QStringLiteral("m"), _otherLang);
    QCOMPARE(bundle->text(QStringLiteral("K")), QStringLiteral("old"));
    QCOMPARE(bundle->lang(), _lang);
    QCOMPARE(bundle.use_count(), 1L);
}

void TestTranslator::readsFromManyThreads()
{
    QVERIFY(insert(QStringLiteral("m"), _lang, "Threaded=v\n"));
    std::atomic<int> good = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            const QString key = QStringLiteral("Threaded");
            for (int n = 0; n < 500; ++n) {
                if (translator().string(key) == QLatin1String("v") &&
                    translator().string(key, QStringLiteral("m")) == QLatin1String("v") &&
                    translator().contains(key) && translator().bundle(key)->contains(key) &&
                    !translator().toString().isEmpty())
                    ++good;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    QCOMPARE(good.load(), 2000);
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestTranslator, child)
#include "tst_translator.moc"
