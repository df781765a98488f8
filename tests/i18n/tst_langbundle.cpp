// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/bundledirectory.h"
#include "support/childoutput.h"
#include "support/descriptorlimit.h"
#include "support/failuretext.h"
#include "support/opendescriptors.h"

#include <kez/langbundle.h>
#include <kez/translator.h>

#include <QDir>
#include <QRandomGenerator>
#include <QTest>

#include <atomic>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <sys/stat.h>

static_assert(std::has_virtual_destructor_v<LangBundle>);
static_assert(std::is_same_v<decltype(std::declval<LangBundle&>().begin().value()), QString&>);
static_assert(std::is_same_v<decltype(*std::declval<LangBundle&>().keyBegin()), const QString&>);

namespace {

const QString Prefix =
    QStringLiteral("shared_ptr<LangBundle> LangBundle::load(const QString&, const QString&, const "
                   "QString&) -> ");
const QString Kez = QStringLiteral("kez");
const QString French = QStringLiteral("fr_FR");

QString missingText(const QString& fileName)
{
    return Prefix + QStringLiteral("Le fichier du module de traduction [") + fileName +
           QStringLiteral("] n'existe pas ou ne peut pas être lu");
}

QString headerText(const QString& fileName)
{
    return Prefix + QStringLiteral("En-tête de la ressource de langue [") + fileName +
           QStringLiteral("] invalide - ");
}

/// The text of the pointer that load() throws; null if it throws none.
QString failureOf(const QString& path, const QString& module, const QString& lang)
{
    return pointerFailureText([&] { LangBundle::load(path, module, lang); });
}

Dictionnary textsOf(LangBundle& bundle)
{
    Dictionnary texts;
    for (auto it = bundle.begin(); it != bundle.end(); ++it)
        texts.insert(it.key(), it.value());
    return texts;
}

QByteArray noise(int size, quint32 seed)
{
    QRandomGenerator generator(seed);
    QByteArray bytes(size, Qt::Uninitialized);
    for (char& byte : bytes)
        byte = static_cast<char>(generator.bounded(256));
    return bytes;
}

// --- what the children do ------------------------------------------------------------------------

/// The text that load() fails with while the process cannot open any more files.
QString failureWithoutDescriptors(const QString& path)
{
    // Both once before: see DescriptorLimit.
    LangBundle::load(path, Kez, French);
    failureOf(path, Kez, QStringLiteral("missing"));
    const DescriptorLimit none(0);
    return failureOf(path, Kez, French);
}

int child(const QStringList& arguments)
{
    const QString& what = arguments.at(0);
    const QString& path = arguments.at(1);
    if (what == QLatin1String("no descriptors"))
        say(failureWithoutDescriptors(path));
    if (what == QLatin1String("ordinary user")) {
        if (!becomeOrdinaryUser())
            return 1;
        say(failureOf(path, Kez, French));
    }
    return 0;
}

} // namespace

class TestLangBundle : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();

    void newBundleIsEmpty();
    void fileNameIsFilledInOnePass();
    void loadKeepsPathModuleAndLanguage();
    void loadReadsResources();
    void loadRegistersNothing();

    void missingFileFails();
    void directoryInPlaceOfTheFileFails();
    void fifoFailsWithoutWaiting();
    void danglingLinkFails();
    void linkToAFileIsFollowed();
    void unreadableFileFails();
    void unreachableDirectoryFails();
    void fileThatCannotBeOpenedFailsWithTheReason();
    void fileNameWithPlaceMarkersIsShownAsItIs();

    void acceptedHeaders_data();
    void acceptedHeaders();
    void invalidHeaders_data();
    void invalidHeaders();
    void headersOfOtherBundles_data();
    void headersOfOtherBundles();
    void emptyModuleAndLanguageMatchEmptyValues();
    void namesAreComparedAsTheyStand();
    void moduleNamesAreShownAsTheyAre();
    void moduleNameWithEqualsNeverMatches();

    void bodyLines_data();
    void bodyLines();
    void laterTextOfAKeyWins();
    void lastLineNeedsNoLineEnd();
    void headerAloneMakesAnEmptyBundle();
    void textsAreNotInterpreted();

    void unknownKeyReadsAsBracketedKey_data();
    void unknownKeyReadsAsBracketedKey();
    void keysAreCaseSensitive();
    void keysComeInOrder();
    void textsChangeThroughIterators();
    void changesDoNotReachCopies();
    void iteratorsTakenBeforeACopyDoNotReachIt();
    void copiesOutliveTheirOriginal();
    void assignedTextsReplaceTheOldOnes();
    void everyKeyIsFoundAsInAMap_data();
    void everyKeyIsFoundAsInAMap();

    void windowsLineEndsAreAccepted();
    void byteOrderMarkIsSkipped();
    void invalidUtf8IsReplaced();
    void zeroBytesArePartOfTheText();
    void noiseFailsOnItsHeader();
    void noiseInTheBodyIsHarmless_data();
    void noiseInTheBodyIsHarmless();
    void hundredsOfThousandsOfLines();
    void tenMegabytesInOneLine();
    void tenMegabytesOfHeader();
    void keyReplacedVeryOften();

    void failedLoadsLeaveNothingOpen();
    void fileMayGoOnceItIsLoaded();
    void loadsFromManyThreads();
    void readsFromManyThreads();

private:
    std::shared_ptr<LangBundle> loadBody(const QByteArray& body);

    std::unique_ptr<BundleDirectory> _directory;
};

void TestLangBundle::init()
{
    _directory = std::make_unique<BundleDirectory>();
    QVERIFY(_directory->isValid());
}

std::shared_ptr<LangBundle> TestLangBundle::loadBody(const QByteArray& body)
{
    _directory->write(Kez, French, body);
    return LangBundle::load(_directory->path(), Kez, French);
}

void TestLangBundle::newBundleIsEmpty()
{
    LangBundle bundle(QStringLiteral("/opt/lang"), QStringLiteral("shop"), QStringLiteral("de_DE"));
    QCOMPARE(bundle.path(), QStringLiteral("/opt/lang"));
    QCOMPARE(bundle.module(), QStringLiteral("shop"));
    QCOMPARE(bundle.lang(), QStringLiteral("de_DE"));
    QCOMPARE(bundle.bundleFileName(), QStringLiteral("/opt/lang/shop_de_DE.lang"));
    QCOMPARE(bundle.size(), 0);
    QVERIFY(bundle.begin() == bundle.end());
    QVERIFY(bundle.keyBegin() == bundle.keyEnd());
    QVERIFY(!bundle.contains(QString()));
    QCOMPARE(bundle.text(QStringLiteral("Yes")), QStringLiteral("[Yes]"));
}

void TestLangBundle::fileNameIsFilledInOnePass()
{
    const LangBundle bundle(QStringLiteral("%2"), QStringLiteral("%3"), QStringLiteral("%1"));
    QCOMPARE(bundle.bundleFileName(), QStringLiteral("%2/%3_%1.lang"));
}

void TestLangBundle::loadKeepsPathModuleAndLanguage()
{
    const auto bundle = loadBody("Yes=oui\n");
    QCOMPARE(bundle->path(), _directory->path());
    QCOMPARE(bundle->module(), Kez);
    QCOMPARE(bundle->lang(), French);
    QCOMPARE(bundle->bundleFileName(), _directory->path() + QStringLiteral("/kez_fr_FR.lang"));
    QCOMPARE(bundle->size(), 1);
    QVERIFY(bundle->contains(QStringLiteral("Yes")));
    QCOMPARE(bundle->text(QStringLiteral("Yes")), QStringLiteral("oui"));
    QCOMPARE(bundle.use_count(), 1L);
}

void TestLangBundle::loadReadsResources()
{
    const auto bundle = LangBundle::load(QStringLiteral(":resources/lang"), Kez, French);
    QCOMPARE(bundle->path(), QStringLiteral(":resources/lang"));
    QCOMPARE(bundle->text(QStringLiteral("Yes")), QStringLiteral("oui"));
    QCOMPARE(failureOf(QStringLiteral(":resources/lang"), Kez, QStringLiteral("de_DE")),
             missingText(QStringLiteral(":resources/lang/kez_de_DE.lang")));
}

void TestLangBundle::loadRegistersNothing()
{
    const int before = Translator::getInstance()->size();
    _directory->write(QStringLiteral("tst"), French, "OnlyHere=x\n");
    const auto bundle = LangBundle::load(_directory->path(), QStringLiteral("tst"), French);
    QCOMPARE(Translator::getInstance()->size(), before);
    QVERIFY(!Translator::getInstance()->contains(QStringLiteral("OnlyHere")));
}

void TestLangBundle::missingFileFails()
{
    const QString fileName = _directory->fileName(Kez, French);
    QCOMPARE(failureOf(_directory->path(), Kez, French), missingText(fileName));
    QCOMPARE(failureOf(QStringLiteral("/nowhere/at all"), Kez, French),
             missingText(QStringLiteral("/nowhere/at all/kez_fr_FR.lang")));
    QCOMPARE(failureOf(QString(), Kez, French), missingText(QStringLiteral("/kez_fr_FR.lang")));
}

void TestLangBundle::directoryInPlaceOfTheFileFails()
{
    const QString fileName = _directory->fileName(Kez, French);
    QVERIFY(QDir().mkpath(fileName));
    QCOMPARE(failureOf(_directory->path(), Kez, French), missingText(fileName));
}

void TestLangBundle::fifoFailsWithoutWaiting()
{
    const QString fileName = _directory->fileName(Kez, French);
    QCOMPARE(mkfifo(QFile::encodeName(fileName).constData(), 0600), 0);
    QCOMPARE(failureOf(_directory->path(), Kez, French), missingText(fileName));
}

void TestLangBundle::danglingLinkFails()
{
    const QString fileName = _directory->fileName(Kez, French);
    QVERIFY(QFile::link(QStringLiteral("nothing here"), fileName));
    QCOMPARE(failureOf(_directory->path(), Kez, French), missingText(fileName));
}

void TestLangBundle::linkToAFileIsFollowed()
{
    QVERIFY(_directory->write(Kez, French, "Yes=oui\n"));
    BundleDirectory other;
    QVERIFY(QFile::link(_directory->fileName(Kez, French), other.fileName(Kez, French)));
    QCOMPARE(LangBundle::load(other.path(), Kez, French)->text(QStringLiteral("Yes")),
             QStringLiteral("oui"));
}

void TestLangBundle::unreadableFileFails()
{
    QVERIFY(_directory->write(Kez, French, "Yes=oui\n"));
    const QString fileName = _directory->fileName(Kez, French);
    QCOMPARE(chmod(QFile::encodeName(_directory->path()).constData(), 0755), 0);
    QCOMPARE(chmod(QFile::encodeName(fileName).constData(), 0), 0);

    const ChildResult result = runChild({"ordinary user", _directory->path()});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(QString::fromUtf8(result.out), missingText(fileName) + QLatin1Char('\n'));
}

void TestLangBundle::unreachableDirectoryFails()
{
    QVERIFY(_directory->write(Kez, French, "Yes=oui\n"));
    const QString fileName = _directory->fileName(Kez, French);
    const QByteArray directory = QFile::encodeName(_directory->path());
    QCOMPARE(chmod(directory.constData(), 0), 0);

    const ChildResult result = runChild({"ordinary user", _directory->path()});
    QCOMPARE(chmod(directory.constData(), 0700), 0);
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(QString::fromUtf8(result.out), missingText(fileName) + QLatin1Char('\n'));
}

void TestLangBundle::fileThatCannotBeOpenedFailsWithTheReason()
{
    QVERIFY(_directory->write(Kez, French, "Yes=oui\n"));
    const ChildResult result = runChild({"no descriptors", _directory->path()});
    QCOMPARE(result.exitCode, 0);
    const QString start = missingText(_directory->fileName(Kez, French)) + QStringLiteral(" - ");
    const QString detail = QString::fromUtf8(result.out).trimmed();
    QVERIFY2(detail.startsWith(start), result.out.constData());
    QVERIFY(detail.size() > start.size());
}

void TestLangBundle::fileNameWithPlaceMarkersIsShownAsItIs()
{
    const QString path = _directory->path() + QStringLiteral("/%1%2%n");
    QCOMPARE(failureOf(path, QStringLiteral("%1"), QStringLiteral("%2")),
             missingText(path + QStringLiteral("/%1_%2.lang")));
}

void TestLangBundle::acceptedHeaders_data()
{
    QTest::addColumn<QByteArray>("header");
    const auto row = [](const char* name, const char* header) {
        QTest::newRow(name) << QByteArray(header);
    };
    row("module first", "module=kez;lang=fr_FR\n");
    row("language first", "lang=fr_FR;module=kez\n");
    row("empty parts between and after", "module=kez;;lang=fr_FR;\n");
    row("empty parts in front", ";;;lang=fr_FR;;;module=kez;;;\n");
    row("blanks around", "   module=kez;lang=fr_FR  \n");
    row("tabs around", "\t\tmodule=kez;lang=fr_FR\t\n");
    row("module twice and no language", "module=kez;module=kez\n");
    row("language twice and no module", "lang=fr_FR;lang=fr_FR\n");
    row("carriage return at the end", "module=kez;lang=fr_FR\r\n");
    row("byte-order mark in front", "\xef\xbb\xbfmodule=kez;lang=fr_FR\n");
}

void TestLangBundle::acceptedHeaders()
{
    QFETCH(QByteArray, header);
    _directory->writeRaw(Kez, French, header + "Yes=oui\n");
    const auto bundle = LangBundle::load(_directory->path(), Kez, French);
    QCOMPARE(bundle->module(), Kez);
    QCOMPARE(bundle->lang(), French);
    QCOMPARE(bundle->size(), 1);
    QCOMPARE(bundle->text(QStringLiteral("Yes")), QStringLiteral("oui"));
}

void TestLangBundle::invalidHeaders_data()
{
    QTest::addColumn<QByteArray>("header");
    const auto row = [](const char* name, const char* header) {
        QTest::newRow(name) << QByteArray(header);
    };
    row("empty file", "");
    row("empty line", "\n");
    row("line of blanks", " \t \n");
    row("separators alone", ";;;\n");
    row("module alone", "module=kez\n");
    row("language alone", "lang=fr_FR\n");
    row("three parts", "module=kez;lang=fr_FR;x=y\n");
    row("three valid parts", "module=kez;lang=fr_FR;lang=fr_FR\n");
    row("comma as separator", "module=kez,lang=fr_FR\n");
    row("blanks as separator", "module=kez lang=fr_FR\n");
    row("part without equals", "module=kez;lang\n");
    row("first part without equals", "kez;lang=fr_FR\n");
    row("part of an equals alone", "=;lang=fr_FR\n");
    row("part that begins with its equals", "=kez;lang=fr_FR\n");
    row("second part that begins with its equals", "module=kez;=fr_FR\n");
    row("the last equals separates", "module==kez;lang=fr_FR\n");
    row("the last equals separates the language", "module=kez;lang=lang=fr_FR\n");
    row("equals after the value", "module=kez=;lang=fr_FR\n");
    row("equals in front", "=module=kez;lang=fr_FR\n");
    row("unknown name", "modul=kez;lang=fr_FR\n");
    row("unknown second name", "module=kez;language=fr_FR\n");
    row("upper-case name", "Module=kez;lang=fr_FR\n");
    row("upper-case second name", "module=kez;LANG=fr_FR\n");
    row("blank after the name", "module =kez;lang=fr_FR\n");
    row("blank before the second name", "module=kez; lang=fr_FR\n");
    row("a part of a blank", "module=kez; ;lang=fr_FR\n");
    row("header in the second line", "\nmodule=kez;lang=fr_FR\n");
    row("comment in front", "# texts\nmodule=kez;lang=fr_FR\n");
    row("body without header", "Yes=oui\nNo=non\n");
    row("header split over two lines", "module=kez;\nlang=fr_FR\n");
    row("unknown name before a wrong language", "x=y;lang=en_US\n");
    QTest::newRow("zero byte in a name") << QByteArrayLiteral("mod\0ule=kez;lang=fr_FR\n");
    row("name of another script", "mоdule=kez;lang=fr_FR\n");
}

void TestLangBundle::invalidHeaders()
{
    QFETCH(QByteArray, header);
    _directory->writeRaw(Kez, French, header);
    const QString detail = failureOf(_directory->path(), Kez, French);
    const QString expected = headerText(_directory->fileName(Kez, French));
    QCOMPARE(detail.left(expected.size()), expected);
}

void TestLangBundle::headersOfOtherBundles_data()
{
    QTest::addColumn<QByteArray>("header");
    QTest::addColumn<QString>("message");
    const auto module = [](const char* name, const char* header, const char* read) {
        QTest::newRow(name) << QByteArray(header)
                            << QStringLiteral("Nom de module attendu kez, lu dans le fichier : ") +
                                   QString::fromUtf8(read);
    };
    const auto lang = [](const char* name, const char* header, const char* read) {
        QTest::newRow(name) << QByteArray(header)
                            << QStringLiteral(
                                   "Nom de langue attendu fr_FR, lu dans le fichier : ") +
                                   QString::fromUtf8(read);
    };
    module("other module", "module=shop;lang=fr_FR\n", "shop");
    module("other module in second place", "lang=fr_FR;module=shop\n", "shop");
    module("module in upper case", "module=KEZ;lang=fr_FR\n", "KEZ");
    module("empty module", "module=;lang=fr_FR\n", "");
    module("blank before the module", "module= kez;lang=fr_FR\n", " kez");
    module("blank after the module", "module=kez ;lang=fr_FR\n", "kez ");
    module("second of two modules", "module=kez;module=shop\n", "shop");
    module("module met before a wrong language", "module=shop;lang=en_US\n", "shop");
    module("module met before an unknown name", "module=shop;x=y\n", "shop");
    lang("other language", "module=kez;lang=en_US\n", "en_US");
    lang("other language in first place", "lang=en_US;module=kez\n", "en_US");
    lang("language in other case", "module=kez;lang=fr_fr\n", "fr_fr");
    lang("empty language", "module=kez;lang=\n", "");
    lang("blank before the language", "module=kez;lang= fr_FR\n", " fr_FR");
    lang("language met before a wrong module", "lang=en_US;module=shop\n", "en_US");
    lang("language met before a part without equals", "lang=en_US;kez\n", "en_US");
    lang("second of two languages", "lang=fr_FR;lang=en_US\n", "en_US");
}

void TestLangBundle::headersOfOtherBundles()
{
    QFETCH(QByteArray, header);
    QFETCH(QString, message);
    _directory->writeRaw(Kez, French, header);
    QCOMPARE(failureOf(_directory->path(), Kez, French), Prefix + message);
}

void TestLangBundle::emptyModuleAndLanguageMatchEmptyValues()
{
    const QString none(u""_qs);
    QVERIFY(_directory->writeRaw(none, none, "module=;lang=\nYes=oui\n"));
    const auto bundle = LangBundle::load(_directory->path(), none, none);
    QCOMPARE(bundle->bundleFileName(), _directory->path() + QStringLiteral("/_.lang"));
    QCOMPARE(bundle->text(QStringLiteral("Yes")), QStringLiteral("oui"));
}

void TestLangBundle::namesAreComparedAsTheyStand()
{
    const QString module = QStringLiteral("dépôt du nord");
    const QString lang = QStringLiteral("français");
    QVERIFY(_directory->write(module, lang, "Yes=oui\n"));
    QCOMPARE(LangBundle::load(_directory->path(), module, lang)->size(), 1);
}

void TestLangBundle::moduleNamesAreShownAsTheyAre()
{
    QVERIFY(
        _directory->writeRaw(QStringLiteral("%2"), QStringLiteral("%1"), "module=%1;lang=%1\n"));
    QCOMPARE(failureOf(_directory->path(), QStringLiteral("%2"), QStringLiteral("%1")),
             Prefix + QStringLiteral("Nom de module attendu %2, lu dans le fichier : %1"));
}

void TestLangBundle::moduleNameWithEqualsNeverMatches()
{
    const QString module = QStringLiteral("a=b");
    QVERIFY(_directory->write(module, French, "Yes=oui\n"));
    const QString expected = headerText(_directory->fileName(module, French));
    QCOMPARE(failureOf(_directory->path(), module, French).left(expected.size()), expected);
}

void TestLangBundle::bodyLines_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<Dictionnary>("texts");
    const auto kept = [](const char* name, const char* line, const char* key, const char* text) {
        QTest::newRow(name) << QByteArray(line)
                            << Dictionnary{{QString::fromUtf8(key), QString::fromUtf8(text)}};
    };
    const auto skipped = [](const char* name, const char* line) {
        QTest::newRow(name) << QByteArray(line) << Dictionnary();
    };
    kept("key and text", "Yes=oui", "Yes", "oui");
    kept("the first equals splits", "A=B=C", "A", "B=C");
    kept("text that begins with equals", "A==", "A", "=");
    kept("empty text", "K=", "K", "");
    kept("text of blanks", "K=   ", "K", "");
    kept("leading blanks of the text stay", "True= true", "True", " true");
    kept("blanks before the equals belong to the key", "K =v", "K ", "v");
    kept("white space around the line goes", "  \tK=v\t  ", "K", "v");
    kept("blanks on every side", "  K  =  v  ", "K  ", "  v");
    kept("blanks within key and text stay", "a  b=c  d", "a  b", "c  d");
    kept("number sign in the key", "K#=v", "K#", "v");
    kept("number sign in the text", "K=#v", "K", "#v");
    kept("semicolons", "K=a;b;c", "K", "a;b;c");
    kept("something like a header", "module=shop;lang=en_US", "module", "shop;lang=en_US");
    kept("place markers", "K=%2 then %1", "K", "%2 then %1");
    kept("accents", "Été=L'été à Nîmes", "Été", "L'été à Nîmes");
    kept("beyond the basic plane", "Clef=𝄞", "Clef", "𝄞");
    kept("quotes", "K=\"v\"", "K", "\"v\"");
    kept("key in brackets", "[K]=v", "[K]", "v");
    kept("exclamation mark in front", "!K=v", "!K", "v");
    kept("slashes in front", "//K=v", "//K", "v");
    skipped("empty line", "");
    skipped("line of blanks", "   \t ");
    skipped("comment", "# a note");
    skipped("comment with equals", "#K=v");
    skipped("comment after blanks", "   # a note");
    skipped("comment with equals after blanks", " \t#K=v");
    skipped("line without equals", "plain");
    skipped("line that begins with equals", "=x");
    skipped("line that begins with equals after blanks", "  =x");
    skipped("line that begins with two equals", "==x");
    skipped("equals alone", "=");
}

void TestLangBundle::bodyLines()
{
    QFETCH(QByteArray, line);
    QFETCH(Dictionnary, texts);

    QCOMPARE(textsOf(*loadBody(line)), texts);
    QCOMPARE(textsOf(*loadBody(line + '\n')), texts);

    texts.insert(QStringLiteral("Before"), QStringLiteral("1"));
    texts.insert(QStringLiteral("After"), QStringLiteral("2"));
    QCOMPARE(textsOf(*loadBody("Before=1\n" + line + "\nAfter=2\n")), texts);
    QCOMPARE(textsOf(*loadBody("Before=1\r\n" + line + "\r\nAfter=2\r\n")), texts);
}

void TestLangBundle::laterTextOfAKeyWins()
{
    const auto bundle = loadBody("K=first\nOther=x\n#K=comment\nK=second\n K=third \n=K\n");
    QCOMPARE(bundle->size(), 2);
    QCOMPARE(bundle->text(QStringLiteral("K")), QStringLiteral("third"));
    QCOMPARE(loadBody("K=first\nK=\n")->text(QStringLiteral("K")), QString(u""_qs));
}

void TestLangBundle::lastLineNeedsNoLineEnd()
{
    QCOMPARE(loadBody("K=v\nL=w")->text(QStringLiteral("L")), QStringLiteral("w"));
}

void TestLangBundle::headerAloneMakesAnEmptyBundle()
{
    QCOMPARE(loadBody("")->size(), 0);
    _directory->writeRaw(Kez, French, "module=kez;lang=fr_FR");
    QCOMPARE(LangBundle::load(_directory->path(), Kez, French)->size(), 0);
}

void TestLangBundle::textsAreNotInterpreted()
{
    const auto bundle = loadBody("K=a\\nb\\tc\\\\ \\u00e9 &amp; ${x} %%\nL=goes on\\\nM=v\n");
    QCOMPARE(bundle->text(QStringLiteral("K")),
             QStringLiteral("a\\nb\\tc\\\\ \\u00e9 &amp; ${x} %%"));
    QCOMPARE(bundle->text(QStringLiteral("L")), QStringLiteral("goes on\\"));
    QCOMPARE(bundle->size(), 3);
}

void TestLangBundle::unknownKeyReadsAsBracketedKey_data()
{
    QTest::addColumn<QString>("key");
    QTest::newRow("plain") << QStringLiteral("Unknown");
    QTest::newRow("empty") << QString(u""_qs);
    QTest::newRow("in brackets already") << QStringLiteral("[Unknown]");
    QTest::newRow("place marker") << QStringLiteral("%1");
    QTest::newRow("blank after a known key") << QStringLiteral("Yes ");
    QTest::newRow("accents") << QStringLiteral("Été");
}

void TestLangBundle::unknownKeyReadsAsBracketedKey()
{
    QFETCH(QString, key);
    const auto bundle = loadBody("Yes=oui\nEmpty=\n");
    QCOMPARE(bundle->text(key), QStringLiteral("[") + key + QStringLiteral("]"));
    QVERIFY(!bundle->contains(key));
    QCOMPARE(bundle->size(), 2);
    QVERIFY(bundle->contains(QStringLiteral("Empty")));
    QCOMPARE(bundle->text(QStringLiteral("Empty")), QString(u""_qs));
}

void TestLangBundle::keysAreCaseSensitive()
{
    const auto bundle = loadBody("yes=oui\nYES=OUI\n");
    QCOMPARE(bundle->size(), 2);
    QCOMPARE(bundle->text(QStringLiteral("yes")), QStringLiteral("oui"));
    QCOMPARE(bundle->text(QStringLiteral("YES")), QStringLiteral("OUI"));
    QCOMPARE(bundle->text(QStringLiteral("Yes")), QStringLiteral("[Yes]"));
}

void TestLangBundle::keysComeInOrder()
{
    const auto bundle = loadBody("b=1\nB=2\na=3\né=4\nA=5\n10=6\n9=7\nab=8\n");
    const QStringList order{"10", "9", "A", "B", "a", "ab", "b", "é"};
    QCOMPARE(QStringList(bundle->keyBegin(), bundle->keyEnd()), order);

    QStringList keys;
    QStringList texts;
    for (auto it = bundle->begin(); it != bundle->end(); ++it) {
        keys.append(it.key());
        texts.append(it.value());
    }
    QCOMPARE(keys, order);
    QCOMPARE(texts, QStringList({"6", "7", "5", "2", "3", "8", "1", "4"}));
}

void TestLangBundle::textsChangeThroughIterators()
{
    const auto bundle = loadBody("A=1\nB=2\n");
    for (QString& text : *bundle)
        text += QLatin1Char('!');
    QCOMPARE(bundle->text(QStringLiteral("A")), QStringLiteral("1!"));
    QCOMPARE(bundle->text(QStringLiteral("B")), QStringLiteral("2!"));
    QCOMPARE(LangBundle::load(_directory->path(), Kez, French)->text(QStringLiteral("A")),
             QStringLiteral("1"));
}

void TestLangBundle::changesDoNotReachCopies()
{
    const auto bundle = loadBody("A=1\n");
    const LangBundle copy(*bundle);
    *bundle->begin() = QStringLiteral("changed");
    QCOMPARE(bundle->text(QStringLiteral("A")), QStringLiteral("changed"));
    QCOMPARE(copy.text(QStringLiteral("A")), QStringLiteral("1"));
}

void TestLangBundle::iteratorsTakenBeforeACopyDoNotReachIt()
{
    const auto bundle = loadBody("A=1\n");
    const LangBundle::iterator iterator = bundle->begin();
    const LangBundle copy(*bundle);
    LangBundle assigned(QStringLiteral("/nowhere"), QStringLiteral("shop"), French);
    assigned = *bundle;
    *iterator = QStringLiteral("changed");
    QCOMPARE(bundle->text(QStringLiteral("A")), QStringLiteral("changed"));
    QCOMPARE(copy.text(QStringLiteral("A")), QStringLiteral("1"));
    QCOMPARE(assigned.text(QStringLiteral("A")), QStringLiteral("1"));
    QCOMPARE(assigned.bundleFileName(), bundle->bundleFileName());

    const LangBundle& same = assigned;
    assigned = same;
    QCOMPARE(assigned.text(QStringLiteral("A")), QStringLiteral("1"));
}

void TestLangBundle::copiesOutliveTheirOriginal()
{
    auto bundle = loadBody("A=1\nB=2\n");
    const auto copy = std::make_unique<LangBundle>(*bundle);
    const LangBundle copyOfTheCopy(*copy);
    LangBundle assigned(QStringLiteral("/nowhere"), QStringLiteral("shop"), French);
    assigned = LangBundle(*bundle);
    bundle.reset();
    for (const LangBundle& left : {*copy, copyOfTheCopy, assigned}) {
        QCOMPARE(left.text(QStringLiteral("A")), QStringLiteral("1"));
        QCOMPARE(left.text(QStringLiteral("B")), QStringLiteral("2"));
        QVERIFY(!left.contains(QStringLiteral("C")));
        QCOMPARE(left.size(), 2);
    }
    *copy->begin() = QStringLiteral("changed");
    QCOMPARE(copy->text(QStringLiteral("A")), QStringLiteral("changed"));
    QCOMPARE(copyOfTheCopy.text(QStringLiteral("A")), QStringLiteral("1"));
}

void TestLangBundle::assignedTextsReplaceTheOldOnes()
{
    const auto bundle = loadBody("Old=1\nBoth=2\n");
    const auto other = loadBody("New=3\nBoth=4\n");
    *bundle = *other;
    QVERIFY(!bundle->contains(QStringLiteral("Old")));
    QCOMPARE(bundle->text(QStringLiteral("New")), QStringLiteral("3"));
    QCOMPARE(bundle->text(QStringLiteral("Both")), QStringLiteral("4"));
    *other->begin() = QStringLiteral("changed");
    QCOMPARE(bundle->text(QStringLiteral("Both")), QStringLiteral("4"));
    *bundle->begin() = QStringLiteral("new");
    QCOMPARE(bundle->text(QStringLiteral("Both")), QStringLiteral("new"));

    *bundle = LangBundle(QStringLiteral("/nowhere"), QStringLiteral("shop"), French);
    QCOMPARE(bundle->module(), QStringLiteral("shop"));
    QCOMPARE(bundle->size(), 0);
    QVERIFY(bundle->begin() == bundle->end());
    QCOMPARE(bundle->text(QStringLiteral("Both")), QStringLiteral("[Both]"));
    const LangBundle empty(*bundle);
    QVERIFY(!empty.contains(QStringLiteral("Both")));
}

void TestLangBundle::everyKeyIsFoundAsInAMap_data()
{
    QTest::addColumn<QString>("characters");
    QTest::addColumn<int>("longest");
    QTest::addColumn<int>("count");
    QTest::newRow("few short keys") << QStringLiteral("ab") << 3 << 10;
    QTest::newRow("all keys of two characters") << QStringLiteral("ab") << 9 << 3000;
    QTest::newRow("ordinary keys")
        << QStringLiteral("abcdefghijklmnopqrstuvwxyzABC.0123456789") << 30 << 2000;
    QTest::newRow("long keys") << QStringLiteral("xy") << 200 << 500;
    QTest::newRow("any characters")
        << QString(u"a\0\u0001\u007f\u0080éа\u4e2d\U0001f600\ufffd"_qs) << 20 << 2000;
    // What hashes are often blind to.
    QTest::newRow("zeros") << QString(2, QChar::Null) << 100 << 100;
    QTest::newRow("highest bits") << QString(u"\u0041\u8041"_qs) << 12 << 4000;
}

void TestLangBundle::everyKeyIsFoundAsInAMap()
{
    QFETCH(QString, characters);
    QFETCH(int, longest);
    QFETCH(int, count);
    QRandomGenerator generator(4711);
    const auto randomKey = [&] {
        QString key(1 + generator.bounded(longest), QChar::Null);
        for (QChar& character : key)
            character = characters.at(generator.bounded(static_cast<int>(characters.size())));
        // What the file's format makes of it: unpaired surrogates are not UTF-8.
        return QString::fromUtf8(key.toUtf8());
    };
    Dictionnary texts;
    QByteArray lines;
    for (int i = 0; i < count; ++i) {
        const QString key = randomKey();
        texts.insert(key, QString::number(i));
        lines += key.toUtf8() + '=' + QByteArray::number(i) + '\n';
    }
    const auto bundle = loadBody(lines);
    QCOMPARE(textsOf(*bundle), texts);

    const auto isFoundAsInTheMap = [&](const QString& key) {
        const QString expected = texts.value(key, QLatin1Char('[') + key + QLatin1Char(']'));
        return bundle->text(key) == expected && bundle->contains(key) == texts.contains(key);
    };
    bool isRight = isFoundAsInTheMap(QString());
    for (auto text = texts.cbegin(); text != texts.cend(); ++text) {
        const QString& key = text.key();
        isRight &= isFoundAsInTheMap(key) && isFoundAsInTheMap(key.chopped(1)) &&
                   isFoundAsInTheMap(key.mid(1)) && isFoundAsInTheMap(key + QChar::Null) &&
                   isFoundAsInTheMap(QChar::Null + key);
        QString near = key;
        const auto place = generator.bounded(static_cast<int>(key.size()));
        near[place] = QChar(near.at(place).unicode() ^ (1 << generator.bounded(16)));
        isRight &= isFoundAsInTheMap(near) && isFoundAsInTheMap(randomKey());
    }
    QVERIFY(isRight);
}

void TestLangBundle::windowsLineEndsAreAccepted()
{
    _directory->writeRaw(Kez, French,
                         "module=kez;lang=fr_FR\r\n\r\n#x\r\nYes=oui\r\nNo=non\nEnd=\r\n");
    const auto bundle = LangBundle::load(_directory->path(), Kez, French);
    const Dictionnary expected{{QStringLiteral("Yes"), QStringLiteral("oui")},
                               {QStringLiteral("No"), QStringLiteral("non")},
                               {QStringLiteral("End"), QString(u""_qs)}};
    QCOMPARE(textsOf(*bundle), expected);
}

void TestLangBundle::byteOrderMarkIsSkipped()
{
    _directory->writeRaw(Kez, French, "\xef\xbb\xbfmodule=kez;lang=fr_FR\nYes=oui\n");
    QCOMPARE(LangBundle::load(_directory->path(), Kez, French)->text(QStringLiteral("Yes")),
             QStringLiteral("oui"));
}

void TestLangBundle::invalidUtf8IsReplaced()
{
    const auto bundle = loadBody("A=caf\xe9!\nB=\xff\xfe\nC=\xed\xa0\x80x\nD=\xf0\x9d\nE=ok\n");
    QCOMPARE(bundle->size(), 5);
    QCOMPARE(bundle->text(QStringLiteral("A")), QStringLiteral("caf\uFFFD!"));
    QVERIFY(bundle->text(QStringLiteral("B")).startsWith(QChar(QChar::ReplacementCharacter)));
    QVERIFY(bundle->text(QStringLiteral("C")).endsWith(QLatin1Char('x')));
    QVERIFY(bundle->contains(QStringLiteral("D")));
    QCOMPARE(bundle->text(QStringLiteral("E")), QStringLiteral("ok"));
}

void TestLangBundle::zeroBytesArePartOfTheText()
{
    const auto bundle = loadBody(QByteArrayLiteral("A=x\0y\nB\0=z\nC=ok\n"));
    QCOMPARE(bundle->size(), 3);
    QCOMPARE(bundle->text(QStringLiteral("A")), QStringLiteral("x\0y"));
    QCOMPARE(bundle->text(QStringLiteral("B\0")), QStringLiteral("z"));
    QCOMPARE(bundle->text(QStringLiteral("C")), QStringLiteral("ok"));
}

void TestLangBundle::noiseFailsOnItsHeader()
{
    const QString expected = headerText(_directory->fileName(Kez, French));
    for (quint32 seed = 1; seed <= 50; ++seed) {
        _directory->writeRaw(Kez, French, noise(5000, seed));
        QCOMPARE(failureOf(_directory->path(), Kez, French).left(expected.size()), expected);
    }
}

void TestLangBundle::noiseInTheBodyIsHarmless_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("random bytes") << noise(200'000, 7);
    QTest::newRow("zero bytes") << QByteArray(100'000, '\0');
    QTest::newRow("carriage returns") << QByteArray(100'000, '\r');
    QTest::newRow("line ends") << QByteArray(100'000, '\n');
    QTest::newRow("equals") << QByteArray(100'000, '=');
    QTest::newRow("number signs") << QByteArray(100'000, '#');
    QTest::newRow("bytes that begin a sequence") << QByteArray(100'000, '\xf0');
    QTest::newRow("bytes that go on a sequence") << QByteArray(100'000, '\x80');
}

void TestLangBundle::noiseInTheBodyIsHarmless()
{
    QFETCH(QByteArray, bytes);
    const auto bundle = loadBody("TheFirst=1\n" + bytes + "\nTheLast=2\n");
    QCOMPARE(bundle->text(QStringLiteral("TheFirst")), QStringLiteral("1"));
    QCOMPARE(bundle->text(QStringLiteral("TheLast")), QStringLiteral("2"));
}

void TestLangBundle::hundredsOfThousandsOfLines()
{
    constexpr int Lines = 200'000;
    QByteArray body;
    for (int i = 0; i < Lines; ++i)
        body += "Key" + QByteArray::number(i) + "=text number " + QByteArray::number(i) + '\n';

    const auto bundle = loadBody(body);
    QCOMPARE(bundle->size(), Lines);
    for (int i = 0; i < Lines; ++i) {
        if (bundle->text(QStringLiteral("Key%1").arg(i)) != QStringLiteral("text number %1").arg(i))
            QFAIL(qPrintable(QStringLiteral("text %1 is wrong").arg(i)));
    }
}

void TestLangBundle::tenMegabytesInOneLine()
{
    constexpr int Size = 10'000'000;
    const auto bundle = loadBody("Before=1\nLong=" + QByteArray(Size, 'x') + "\nAfter=2\n");
    QCOMPARE(bundle->size(), 3);
    QCOMPARE(bundle->text(QStringLiteral("Long")), QString(Size, QLatin1Char('x')));
    QCOMPARE(bundle->text(QStringLiteral("After")), QStringLiteral("2"));

    QCOMPARE(loadBody(QByteArray(Size, 'k') + "=v\n")->text(QString(Size, QLatin1Char('k'))),
             QStringLiteral("v"));
}

void TestLangBundle::tenMegabytesOfHeader()
{
    const QString expected = headerText(_directory->fileName(Kez, French));
    _directory->writeRaw(Kez, French, QByteArray(10'000'000, 'm'));
    QCOMPARE(failureOf(_directory->path(), Kez, French).left(expected.size()), expected);

    _directory->writeRaw(Kez, French,
                         "module=kez" + QByteArray(10'000'000, ';') + "lang=fr_FR\nYes=oui\n");
    QCOMPARE(LangBundle::load(_directory->path(), Kez, French)->size(), 1);
}

void TestLangBundle::keyReplacedVeryOften()
{
    QByteArray body;
    for (int i = 0; i < 100'000; ++i)
        body += "K=" + QByteArray::number(i) + '\n';
    const auto bundle = loadBody(body);
    QCOMPARE(bundle->size(), 1);
    QCOMPARE(bundle->text(QStringLiteral("K")), QStringLiteral("99999"));
}

void TestLangBundle::failedLoadsLeaveNothingOpen()
{
    _directory->writeRaw(Kez, French, "module=shop;lang=fr_FR\n");
    _directory->writeRaw(Kez, QStringLiteral("en_US"), "no header\n");
    const int before = openDescriptors();
    for (int i = 0; i < 100; ++i) {
        QVERIFY(failureOf(_directory->path(), Kez, French).startsWith(Prefix));
        QVERIFY(failureOf(_directory->path(), Kez, QStringLiteral("en_US")).startsWith(Prefix));
        QVERIFY(failureOf(_directory->path(), Kez, QStringLiteral("de_DE")).startsWith(Prefix));
    }
    QCOMPARE(openDescriptors(), before);
}

void TestLangBundle::fileMayGoOnceItIsLoaded()
{
    const int before = openDescriptors();
    const auto bundle = loadBody("Yes=oui\n");
    QCOMPARE(openDescriptors(), before);
    QVERIFY(_directory->remove(Kez, French));
    QCOMPARE(bundle->text(QStringLiteral("Yes")), QStringLiteral("oui"));
}

void TestLangBundle::loadsFromManyThreads()
{
    _directory->write(Kez, French, "Yes=oui\nNo=non\n");
    const QString path = _directory->path();
    std::atomic<int> good = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 100; ++n) {
                const auto bundle = LangBundle::load(path, Kez, French);
                const auto failure =
                    thrownPointer([&] { LangBundle::load(path, Kez, QStringLiteral("de_DE")); });
                if (bundle->size() == 2 && failure)
                    ++good;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    QCOMPARE(good.load(), 400);
}

void TestLangBundle::readsFromManyThreads()
{
    const auto bundle = loadBody("Yes=oui\nNo=non\n");
    std::atomic<int> good = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 1000; ++n) {
                const QStringList keys(bundle->keyBegin(), bundle->keyEnd());
                if (keys.size() == bundle->size() &&
                    bundle->text(keys.last()) == QLatin1String("oui") &&
                    bundle->text(QStringLiteral("x")) == QLatin1String("[x]"))
                    ++good;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    QCOMPARE(good.load(), 4000);
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestLangBundle, child)
#include "tst_langbundle.moc"
