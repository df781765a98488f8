// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/childprocess.h"
#include "support/failuretext.h"
#include "support/files.h"
#include "support/language.h"

#include <kez/initlib.h>
#include <kez/properties.h>

#include <QDir>
#include <QObject>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>
#include <QTextStream>

#include <csignal>
#include <cstdio>
#include <functional>
#include <limits>
#include <type_traits>

#include <sys/resource.h>

using Entries = QMap<QString, QString>;
using Action = std::function<void()>;
using Change = std::function<void(Properties&)>;
using Copying = std::function<std::shared_ptr<Properties>(const Properties&)>;
Q_DECLARE_METATYPE(Action)
Q_DECLARE_METATYPE(Change)
Q_DECLARE_METATYPE(Copying)

static_assert(std::has_virtual_destructor_v<Properties>);

namespace {

const QString LoadPrefix = "Properties Properties::loadProperties(const QString&) -> ";
const QString InsertPrefix = "void Properties::insert(const QString&, const QString&) -> ";
const QString SavePrefix =
    "void Properties::saveProperties(const QString&, QMap<QString,QString>&, bool) -> ";

Entries loaded(const QString& path, qint64 maxLineLength = 0)
{
    return *Properties::loadProperties(path, maxLineLength)->toDictionnary();
}

bool limitFileSize(rlim_t bytes)
{
    const rlimit limit{bytes, bytes};
    return std::signal(SIGXFSZ, SIG_IGN) != SIG_ERR && setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

/// Three lines; the second has 100,000 characters and holds place markers.
Entries entriesWithOneLongLine()
{
    return {{"a", "1111"}, {"b%1", QString("%2").repeated(50000)}, {"c", "3333"}};
}

/// load <path> | save <path> <overwrite>, both as an ordinary user
/// save-up-to <bytes> <path> | save-long-up-to <bytes> <path>
/// Prints the text of the failure.
int childMain(const QStringList& arguments)
{
    qputenv("LANG", "en_US.UTF-8");
    kezEnsureInit();
    const QString task = arguments.value(0);
    const Entries shortLines{{"a", "1111"}, {"b", "2222"}, {"c", "3333"}};
    QString text;
    if (task == "load") {
        if (!becomeOrdinaryUser())
            return 2;
        text = failureText([&] { loaded(arguments.value(1)); });
    } else if (task == "save") {
        if (!becomeOrdinaryUser())
            return 2;
        text = failureText([&] {
            Properties::saveProperties(arguments.value(1), shortLines, arguments.value(2) == "1");
        });
    } else {
        if (!limitFileSize(arguments.value(1).toULong()))
            return 2;
        const Entries entries = task == "save-up-to" ? shortLines : entriesWithOneLongLine();
        text = failureText([&] { Properties::saveProperties(arguments.value(2), entries, false); });
    }
    std::fputs(text.toUtf8().constData(), stdout);
    return 0;
}

} // namespace

class TestProperties : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();

    void defaultIsEmpty();
    void mapIsCopied();
    void copiesAreIndependent();
    void copiesShareNothing_data();
    void copiesShareNothing();
    void assignmentOfItselfChangesNothing();
    void keysAndValuesAreStoredAsGiven();
    void orderIsByCodeUnit();
    void keyIteratorsWalkTheKeysInOrder();
    void iteratorsChangeValuesInPlace();
    void toDictionnarySharesTheMap();
    void sharedMapOutlivesTheProperties();
    void toPropertiesCopies();
    void insertAddsAndOverwrites();
    void insertWithoutOverwriteKeepsTheValue();
    void setValueReturnsThePreviousValue();
    void setValueNeverAdds();
    void removeReturnsTheValue();
    void clearRemovesEverything();
    void insertMapOverwrites();
    void insertMapStopsAtTheFirstKeyPresent();
    void insertMapWorksOnItsOwnMap();
    void insertOfItsOwnMapKeepsIteratorsValid();
    void insertOfItsOwnMapWithoutOverwriteNamesTheFirstKey();
    void argumentsMayReferIntoTheMap_data();
    void argumentsMayReferIntoTheMap();
    void refusedKeyMayReferIntoTheMap();
    void failureTexts_data();
    void failureTexts();

    void loadReadsLines_data();
    void loadReadsLines();
    void loadRefusesARepeatedKey();
    void loadSplitsLongLines_data();
    void loadSplitsLongLines();
    void loadTakesHugeLimitsAsNoLimit_data();
    void loadTakesHugeLimitsAsNoLimit();
    void loadReads200000Lines();
    void loadReadsALineOf10Megabytes();
    void loadSplitsALineOf10Megabytes();
    void loadSurvivesBinaryRubbish();
    void loadRefusesDanglingLink();
    void loadFollowsALink();
    void loadNamesFileNotWritableForAFailedOpen();
    void loadRefusesUnreadableFile();
    void readErrorEndsTheFile();

    void saveWritesSortedLines();
    void saveOfEmptyMapWritesEmptyFile();
    void saveWritesUtf8WithoutTranslation();
    void saveWritesTheBytesOfQTextStream();
    void saveRefusesAnExistingFile();
    void saveReplacesAnExistingFile();
    void saveReplacesALinkAndNotItsTarget();
    void saveRefusesADanglingLink();
    void saveOverADirectoryCannotDelete();
    void saveInAReadOnlyDirectory();
    void saveNamesTheLineThatFailed_data();
    void saveNamesTheLineThatFailed();
    void saveNamesALongLineThatFailed();
    void saveOf200000Lines();
    void roundTripKeepsTheMap_data();
    void roundTripKeepsTheMap();
    void roundTripLosses_data();
    void roundTripLosses();

private:
    QString path(const char* name) const { return _dir->filePath(name); }
    QString write(const QByteArray& bytes) const
    {
        const QString file = path("app.properties");
        return writeFile(file, bytes) ? file : QString();
    }

    std::unique_ptr<QTemporaryDir> _dir;
};

void TestProperties::init()
{
    useLanguage("en_US");
    _dir = std::make_unique<QTemporaryDir>();
    QVERIFY(_dir->isValid());
}

void TestProperties::defaultIsEmpty()
{
    const Properties properties;
    QCOMPARE(properties.size(), 0);
    QVERIFY(properties.empty());
    QVERIFY(properties.begin() == properties.end());
    QVERIFY(properties.keyBegin() == properties.keyEnd());
    QVERIFY(!properties.contains(""));
    QVERIFY(properties.toDictionnary());
}

void TestProperties::mapIsCopied()
{
    Entries map{{"a", "1"}, {"b", ""}};
    Properties properties(map);
    map["a"] = "changed";
    QCOMPARE(properties.value("a"), "1");
    properties.setValue("b", "2");
    QCOMPARE(map["b"], "");
    QCOMPARE(properties.size(), 2);
    QVERIFY(!properties.empty());
}

void TestProperties::copiesAreIndependent()
{
    Properties first(Entries{{"a", "1"}});
    Properties second(first);
    second.setValue("a", "2");
    QCOMPARE(first.value("a"), "1");

    const auto held = first.toDictionnary();
    first = second;
    QCOMPARE(first.value("a"), "2");
    second.clear();
    QCOMPARE(first.size(), 1);
    QCOMPARE(first.toDictionnary(), held);
}

void TestProperties::copiesShareNothing_data()
{
    QTest::addColumn<Copying>("copying");
    QTest::newRow("copy") << Copying(
        [](const Properties& original) { return std::make_shared<Properties>(original); });
    QTest::newRow("copy of the map") << Copying([](const Properties& original) {
        return std::make_shared<Properties>(*original.toDictionnary());
    });
    QTest::newRow("assignment") << Copying([](const Properties& original) {
        auto copy = std::make_shared<Properties>(Entries{{"z", "0"}});
        *copy = original;
        return copy;
    });
    QTest::newRow("toProperties") << Copying([](const Properties& original) {
        return Properties::toProperties(*original.toDictionnary());
    });
}

/// An iterator or a reference that was taken before the copy writes to its own map only.
void TestProperties::copiesShareNothing()
{
    QFETCH(Copying, copying);
    const Entries entries{{"a", "1"}, {"b", "2"}};
    const Entries changed{{"a", "through the iterator"}, {"b", "through the reference"}};
    Properties original(entries);
    const Properties::iterator iterator = original.begin();
    QString& reference = (*original.toDictionnary())["b"];

    const std::shared_ptr<Properties> copy = copying(original);
    *iterator = "through the iterator";
    reference = "through the reference";
    QCOMPARE(*copy->toDictionnary(), entries);
    QCOMPARE(*original.toDictionnary(), changed);

    copy->setValue("a", "in the copy");
    *copy->begin() += "!";
    QCOMPARE(copy->value("a"), "in the copy!");
    QCOMPARE(*original.toDictionnary(), changed);

    original.remove("b");
    *iterator = "through the iterator again";
    QCOMPARE(original.value("a"), "through the iterator again");
    QCOMPARE(copy->value("a"), "in the copy!");
}

void TestProperties::assignmentOfItselfChangesNothing()
{
    Properties properties(Entries{{"a", "1"}, {"b", "2"}});
    const QString* const value = &*properties.begin();
    const Properties& same = properties;
    properties = same;
    const Entries expected{{"a", "1"}, {"b", "2"}};
    QCOMPARE(*properties.toDictionnary(), expected);
    QCOMPARE(&*properties.begin(), value);
}

void TestProperties::keysAndValuesAreStoredAsGiven()
{
    Properties properties;
    const QStringList keys{"", " a ", "A", "a", "#a", "a=b", "%1", "clé\n", QString(QChar(0))};
    for (const QString& key : keys)
        properties.insert(key, " <" + key + "> ", false);
    QCOMPARE(properties.size(), keys.size());
    for (const QString& key : keys)
        QCOMPARE(properties.value(key), " <" + key + "> ");
}

void TestProperties::orderIsByCodeUnit()
{
    Properties properties;
    for (const char* key : {"é", "b", "a10", "a", "B", "", "_", "a2"})
        properties.insert(key, "x", false);
    QStringList keys;
    for (auto it = properties.begin(); it != properties.end(); ++it)
        keys.append(it.key());
    const QStringList expected{"", "B", "_", "a", "a10", "a2", "b", "é"};
    QCOMPARE(keys, expected);
}

void TestProperties::keyIteratorsWalkTheKeysInOrder()
{
    const Properties properties(Entries{{"c", "3"}, {"a", "1"}, {"b", "2"}});
    const QStringList expected{"a", "b", "c"};
    QCOMPARE(QStringList(properties.keyBegin(), properties.keyEnd()), expected);
}

void TestProperties::iteratorsChangeValuesInPlace()
{
    Properties properties(Entries{{"a", "1"}, {"b", "2"}});
    for (auto it = properties.begin(); it != properties.end(); ++it)
        it.value() += "!";
    QCOMPARE(properties.value("a"), "1!");
    QCOMPARE(properties.value("b"), "2!");
}

void TestProperties::toDictionnarySharesTheMap()
{
    Properties properties;
    const std::shared_ptr<Dictionnary> map = properties.toDictionnary();
    map->insert("a", "1");
    QCOMPARE(properties.value("a"), "1");
    properties.insert("b", "2", false);
    QCOMPARE(map->value("b"), "2");
    QCOMPARE(properties.toDictionnary().get(), map.get());
}

void TestProperties::sharedMapOutlivesTheProperties()
{
    std::shared_ptr<Dictionnary> map;
    {
        const Properties properties(Entries{{"a", "1"}});
        map = properties.toDictionnary();
    }
    QCOMPARE(map.use_count(), 1);
    QCOMPARE(map->value("a"), "1");
}

void TestProperties::toPropertiesCopies()
{
    Entries map{{"a", "1"}, {"b", "2"}};
    const std::shared_ptr<Properties> properties = Properties::toProperties(map);
    QCOMPARE(*properties->toDictionnary(), map);
    map.clear();
    QCOMPARE(properties->size(), 2);
    QVERIFY(Properties::toProperties(map)->empty());
}

void TestProperties::insertAddsAndOverwrites()
{
    Properties properties;
    properties.insert("a", "1", false);
    properties.insert("b", "1", true);
    properties.insert("a", "2", true);
    const Entries expected{{"a", "2"}, {"b", "1"}};
    QCOMPARE(*properties.toDictionnary(), expected);
}

void TestProperties::insertWithoutOverwriteKeepsTheValue()
{
    Properties properties(Entries{{"a", "1"}});
    QCOMPARE(failureText([&] { properties.insert("a", "2", false); }),
             InsertPrefix + "Property [a] already exists (duplicate prohibited)");
    QCOMPARE(properties.value("a"), "1");
    QVERIFY(!failureText([&] { properties.insert("a", "1", false); }).isNull());
}

void TestProperties::setValueReturnsThePreviousValue()
{
    Properties properties(Entries{{"a", "1"}});
    QCOMPARE(properties.setValue("a", "2"), "1");
    QCOMPARE(properties.setValue("a", ""), "2");
    QCOMPARE(properties.value("a"), "");
}

void TestProperties::setValueNeverAdds()
{
    Properties properties(Entries{{"a", "1"}});
    QVERIFY(!failureText([&] { properties.setValue("b", "2"); }).isNull());
    QVERIFY(!properties.contains("b"));
    QCOMPARE(properties.size(), 1);
}

void TestProperties::removeReturnsTheValue()
{
    Properties properties(Entries{{"a", "1"}, {"b", "2"}});
    QCOMPARE(properties.remove("a"), "1");
    QVERIFY(!properties.contains("a"));
    QVERIFY(!failureText([&] { properties.remove("a"); }).isNull());
    QCOMPARE(properties.size(), 1);
}

void TestProperties::clearRemovesEverything()
{
    Properties properties(Entries{{"a", "1"}, {"b", "2"}});
    const auto map = properties.toDictionnary();
    properties.clear();
    QVERIFY(properties.empty());
    QVERIFY(map->isEmpty());
    properties.clear();
    QVERIFY(properties.empty());
}

void TestProperties::insertMapOverwrites()
{
    Properties properties(Entries{{"a", "1"}, {"b", "2"}});
    Entries map{{"b", "new"}, {"c", "3"}};
    properties.insert(map, true);
    const Entries expected{{"a", "1"}, {"b", "new"}, {"c", "3"}};
    QCOMPARE(*properties.toDictionnary(), expected);
}

void TestProperties::insertMapStopsAtTheFirstKeyPresent()
{
    Properties properties(Entries{{"b", "old"}, {"d", "old"}});
    const QString text = failureText([&] {
        properties.insert(Entries{{"e", "5"}, {"d", "4"}, {"c", "3"}, {"b", "2"}, {"a", "1"}},
                          false);
    });
    QCOMPARE(text,
             "void Properties::insert(QMap<QString,QString>&) -> Property [b] already exists");
    const Entries expected{{"a", "1"}, {"b", "old"}, {"d", "old"}};
    QCOMPARE(*properties.toDictionnary(), expected);
}

void TestProperties::insertMapWorksOnItsOwnMap()
{
    Properties properties(Entries{{"a", "1"}, {"b", "2"}});
    const Entries expected = *properties.toDictionnary();
    properties.insert(*properties.toDictionnary(), true);
    QCOMPARE(*properties.toDictionnary(), expected);
}

void TestProperties::insertOfItsOwnMapKeepsIteratorsValid()
{
    Properties properties(Entries{{"a", "1"}, {"b", "2"}});
    const QString* const value = &*properties.begin();
    properties.insert(*properties.toDictionnary(), true);
    QCOMPARE(&*properties.begin(), value);

    const Entries held = *properties.toDictionnary();
    properties.insert(*properties.toDictionnary(), true);
    QCOMPARE(*properties.toDictionnary(), held);
    QCOMPARE(properties.size(), 2);

    Properties empty;
    empty.insert(*empty.toDictionnary(), true);
    empty.insert(*empty.toDictionnary(), false);
    QVERIFY(empty.empty());
}

void TestProperties::insertOfItsOwnMapWithoutOverwriteNamesTheFirstKey()
{
    Properties properties(Entries{{"a", "1"}, {"b", "2"}});
    const QString* const value = &*properties.begin();
    QCOMPARE(failureText([&] { properties.insert(*properties.toDictionnary(), false); }),
             "void Properties::insert(QMap<QString,QString>&) -> Property [a] already exists");
    QCOMPARE(properties.size(), 2);
    QCOMPARE(&*properties.begin(), value);
}

void TestProperties::argumentsMayReferIntoTheMap_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<Entries>("expected");

    // The properties that are changed hold {"a", "b"} and {"b", "b"}.
    const auto row = [](const char* name, const Entries& expected, const Change& change) {
        QTest::newRow(name) << change << expected;
    };
    const auto valueAt = [](Properties& properties, const char* key) -> QString& {
        return (*properties.toDictionnary())[key];
    };
    row("set the entry's own value", {{"a", "b"}, {"b", "b"}},
        [=](Properties& p) { QCOMPARE(p.setValue("a", valueAt(p, "a")), "b"); });
    row("set another entry's value", {{"a", "b"}, {"b", "b"}},
        [=](Properties& p) { QCOMPARE(p.setValue("a", valueAt(p, "b")), "b"); });
    row("set by the entry's own key", {{"a", "2"}, {"b", "b"}},
        [](Properties& p) { QCOMPARE(p.setValue(p.begin().key(), "2"), "b"); });
    row("set by the value that is replaced", {{"a", "b"}, {"b", "2"}},
        [=](Properties& p) { QCOMPARE(p.setValue(valueAt(p, "b"), "2"), "b"); });
    row("set by and to the value that is replaced", {{"a", "b"}, {"b", "b"}},
        [=](Properties& p) { QCOMPARE(p.setValue(valueAt(p, "b"), valueAt(p, "b")), "b"); });
    row("set the entry's own key", {{"a", "a"}, {"b", "b"}},
        [](Properties& p) { QCOMPARE(p.setValue("a", p.begin().key()), "b"); });
    row("insert the entry's own value", {{"a", "b"}, {"b", "b"}},
        [=](Properties& p) { p.insert("a", valueAt(p, "a"), true); });
    row("insert the entry's own key and value", {{"a", "b"}, {"b", "b"}},
        [=](Properties& p) { p.insert(p.begin().key(), valueAt(p, "a"), true); });
    row("insert by the value that is replaced", {{"a", "b"}, {"b", "2"}},
        [=](Properties& p) { p.insert(valueAt(p, "b"), "2", true); });
    row("insert a value under a new key", {{"a", "b"}, {"b", "b"}, {"c", "b"}},
        [=](Properties& p) { p.insert("c", valueAt(p, "a"), false); });
    row("remove by the entry's own key", {{"b", "b"}},
        [](Properties& p) { QCOMPARE(p.remove(p.begin().key()), "b"); });
    row("remove by the entry's own value", {{"a", "b"}},
        [=](Properties& p) { QCOMPARE(p.remove(valueAt(p, "b")), "b"); });
    row("remove by another entry's value", {{"a", "b"}},
        [=](Properties& p) { QCOMPARE(p.remove(valueAt(p, "a")), "b"); });
}

void TestProperties::argumentsMayReferIntoTheMap()
{
    QFETCH(Change, change);
    QFETCH(Entries, expected);
    Properties properties(Entries{{"a", "b"}, {"b", "b"}});
    change(properties);
    QCOMPARE(*properties.toDictionnary(), expected);

    // The same if another map shares the data, which the change has to copy first.
    Properties sharing(Entries{{"a", "b"}, {"b", "b"}});
    const Entries held = *sharing.toDictionnary();
    change(sharing);
    QCOMPARE(*sharing.toDictionnary(), expected);
}

void TestProperties::refusedKeyMayReferIntoTheMap()
{
    Properties properties(Entries{{"a", "gone"}});
    QCOMPARE(failureText([&] { properties.insert(properties.begin().key(), "2", false); }),
             InsertPrefix + "Property [a] already exists (duplicate prohibited)");
    QCOMPARE(failureText([&] { properties.remove(*properties.begin()); }),
             "QString Properties::remove(const QString&) -> Property [gone] does not exist");
    QCOMPARE(failureText([&] { properties.setValue(*properties.begin(), "2"); }),
             "QString Properties::setValue(const QString&, const QString&) -> Property [gone] does "
             "not exist");
    QCOMPARE(properties.value("a"), "gone");
}

void TestProperties::failureTexts_data()
{
    QTest::addColumn<Action>("action");
    QTest::addColumn<QString>("english");
    QTest::addColumn<QString>("french");

    const auto row = [](const char* name, const QString& prefix, const QString& english,
                        const QString& french, const Action& action) {
        QTest::newRow(name) << action << prefix + english << prefix + french;
    };
    const QString missing = "/nonexistent/%1 %2.properties";

    row("value", "QString Properties::value(const QString&) -> ", "Property [%1] does not exist",
        "La propriété [%1] n'existe pas", [] { Properties().value("%1"); });
    row("setValue", "QString Properties::setValue(const QString&, const QString&) -> ",
        "Property [k] does not exist", "La propriété [k] n'existe pas",
        [] { Properties().setValue("k", "v"); });
    row("remove", "QString Properties::remove(const QString&) -> ", "Property [] does not exist",
        "La propriété [] n'existe pas", [] { Properties().remove(""); });
    row("insert", InsertPrefix, "Property [k] already exists (duplicate prohibited)",
        "La propriété [k] existe déjà (duplication interdite)", [] {
            Properties(Entries{{"k", "v"}}).insert("k", "w", false);
        });
    row("insert map", "void Properties::insert(QMap<QString,QString>&) -> ",
        "Property [k] already exists", "La propriété [k] existe déjà", [] {
            Properties(Entries{{"k", "v"}}).insert(Entries{{"k", "w"}}, false);
        });
    row("load a missing file", LoadPrefix, "File [" + missing + "] doesn't exist",
        "Le fichier [" + missing + "] n'existe pas",
        [missing] { Properties::loadProperties(missing, 0); });
    row("load an empty path", LoadPrefix, "File [] doesn't exist", "Le fichier [] n'existe pas",
        [] { Properties::loadProperties("", 0); });
    row("load a directory", LoadPrefix, "File [/] cannot be modified",
        "Le fichier [/] ne peut pas être modifié", [] { Properties::loadProperties("/", 0); });
    row("save over a file", SavePrefix, "File [/proc/self/exe] already exists",
        "Le fichier [/proc/self/exe] existe déjà",
        [] { Properties::saveProperties("/proc/self/exe", Entries(), false); });
    row("save over a directory", SavePrefix, "File [/] cannot be deleted",
        "Le fichier [/] ne peut pas être supprimé",
        [] { Properties::saveProperties("/", Entries(), true); });
    row("save in a missing directory", SavePrefix,
        "Failed to open file [" + missing + "] in create mode",
        "Echec d'ouverture du fichier [" + missing + "] en mode création",
        [missing] { Properties::saveProperties(missing, Entries(), false); });
    row("save this object", SavePrefix, "File [/proc/self/exe] already exists",
        "Le fichier [/proc/self/exe] existe déjà",
        [] { Properties().saveProperties("/proc/self/exe", false); });
}

void TestProperties::failureTexts()
{
    QFETCH(Action, action);
    QFETCH(QString, english);
    QFETCH(QString, french);
    useLanguage("en_US");
    QCOMPARE(failureText(action), english);
    useLanguage("fr_FR");
    QCOMPARE(failureText(action), french);
}

void TestProperties::loadReadsLines_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Entries>("expected");

    const auto row = [](const char* name, const QByteArray& bytes, const Entries& expected = {}) {
        QTest::newRow(name) << bytes << expected;
    };
    row("empty file", "");
    row("only comments and blanks", "\n  \n\t\n# note\n   # note=1\n#\n");
    row("one line without line end", "a=1", {{"a", "1"}});
    row("order of lines is not kept", "b=2\na=1\n", {{"a", "1"}, {"b", "2"}});
    row("empty value", "key=\n", {{"key", ""}});
    row("blank value", "key=  \n", {{"key", ""}});
    row("empty key", "=value\n", {{"", "value"}});
    row("equals alone", "=\n", {{"", ""}});
    row("two equals alone", "==\n", {{"", "="}});
    row("further equals", "a=b=c\n", {{"a", "b=c"}});
    row("value ends with equals", "a=b=\n", {{"a", "b="}});
    row("only the line is trimmed", "  a = b  \n", {{"a ", " b"}});
    row("tabs are trimmed", "\ta=b\t\n", {{"a", "b"}});
    row("Unicode blanks are trimmed",
        "\xC2\xA0"
        "a=b\xE2\x80\x83\n",
        {{"a", "b"}});
    row("indented comment", "   # note = x\n", {});
    row("number sign inside the key", "a#b=c\n", {{"a#b", "c"}});
    row("number sign inside the value", "a=b # c\n", {{"a", "b # c"}});
    row("line without equals", "plain\na=1\nplain too", {{"a", "1"}});
    row("no escapes, no continuation", "a=1\\\nb=\\n\\u0041\n",
        {{"a", "1\\"}, {"b", "\\n\\u0041"}});
    row("quotes are text", "a=\"b\"\n", {{"a", "\"b\""}});
    row("keys differ by case", "a=1\nA=2\n", {{"A", "2"}, {"a", "1"}});
    row("keys differ by a trailing blank", "a=1\na =2\n", {{"a", "1"}, {"a ", "2"}});
    row("line ends of other systems", "a=1\r\nb=2\r\n", {{"a", "1"}, {"b", "2"}});
    row("carriage return inside a line", "a=1\rb=2\n", {{"a", "1\rb=2"}});
    row("UTF-8", "cl\xC3\xA9=\xE2\x82\xAC\xF0\x9F\x98\x80\n", {{"clé", "€😀"}});
    row("UTF-8 byte order mark",
        "\xEF\xBB\xBF"
        "a=1\n",
        {{"a", "1"}});
    row("invalid UTF-8", "a=\xFFx\xC3\nb=2\n",
        {{"a", QString(QChar(0xFFFD)) + "x" + QChar(0xFFFD)}, {"b", "2"}});
    row("NUL inside key and value", QByteArray("a\0b=c\0d\n", 8),
        {{QString::fromLatin1("a\0b", 3), QString::fromLatin1("c\0d", 3)}});
    row("place markers are text", "%1=%2 %%\n", {{"%1", "%2 %%"}});
}

void TestProperties::loadReadsLines()
{
    QFETCH(QByteArray, bytes);
    QFETCH(Entries, expected);
    QCOMPARE(loaded(write(bytes)), expected);
}

void TestProperties::loadRefusesARepeatedKey()
{
    const QString file = write("b=1\na=1\n  b=2\nno-equals\n");
    QCOMPARE(failureText([&] { loaded(file); }),
             InsertPrefix + "Property [b] already exists (duplicate prohibited)");
    useLanguage("fr_FR");
    QCOMPARE(failureText([&] { loaded(file); }),
             InsertPrefix + "La propriété [b] existe déjà (duplication interdite)");
}

void TestProperties::loadSplitsLongLines_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<qint64>("maxLineLength");
    QTest::addColumn<Entries>("expected");

    const auto row = [](const char* name, const QByteArray& bytes, qint64 maxLineLength,
                        const Entries& expected) {
        QTest::newRow(name) << bytes << maxLineLength << expected;
    };
    row("no limit", "abc=defgh\n", 0, {{"abc", "defgh"}});
    row("one longer than the line", "abc=defgh\n", 10, {{"abc", "defgh"}});
    row("as long as the line", "abc=defgh\nx=y\n", 9, {{"abc", "defgh"}, {"x", "y"}});
    row("one shorter: the tail has no equals", "abc=defgh\n", 8, {{"abc", "defg"}});
    row("the tail is a line of its own", "a=1b=2\n", 3, {{"a", "1"}, {"b", "2"}});
    row("equals at the end of a piece", "abc=def\n", 4, {{"abc", ""}});
    row("equals at the start of a piece", "abc=def\n", 3, {{"", "de"}});
    row("each piece is trimmed", "a=1 b=2 \n", 4, {{"a", "1"}, {"b", "2"}});
    row("a tail that is a comment", "a=1#b=2\n", 3, {{"a", "1"}});
    row("a comment's tail is a line", "#xx=a=1\n", 4, {{"a", "1"}});
    row("characters, not bytes", "\xC3\xA9=\xC3\xA9\n", 3, {{"é", "é"}});
    row("one character", "a=\n", 1, {{"", ""}});
    row("between the two characters of a line end", "a=1\r\nb=2\r\n", 4, {{"a", "1"}, {"b", "2"}});
}

void TestProperties::loadSplitsLongLines()
{
    QFETCH(QByteArray, bytes);
    QFETCH(qint64, maxLineLength);
    QFETCH(Entries, expected);
    QCOMPARE(loaded(write(bytes), maxLineLength), expected);
}

void TestProperties::loadTakesHugeLimitsAsNoLimit_data()
{
    QTest::addColumn<qint64>("maxLineLength");
    constexpr qint64 IntMax = std::numeric_limits<int>::max();
    QTest::newRow("largest int") << IntMax;
    QTest::newRow("one more than the largest int") << IntMax + 1;
    QTest::newRow("2^32") << (Q_INT64_C(1) << 32);
    QTest::newRow("2^32 + 2") << (Q_INT64_C(1) << 32) + 2;
    QTest::newRow("largest") << std::numeric_limits<qint64>::max();
    QTest::newRow("negative") << Q_INT64_C(-1);
}

void TestProperties::loadTakesHugeLimitsAsNoLimit()
{
    QFETCH(qint64, maxLineLength);
    const Entries expected{{"abc", "defgh"}, {"x", "y"}};
    QCOMPARE(loaded(write("abc=defgh\nx=y\n"), maxLineLength), expected);
}

void TestProperties::loadReads200000Lines()
{
    QByteArray bytes;
    for (int i = 0; i < 200000; ++i)
        bytes += "  key." + QByteArray::number(i) + "=value " + QByteArray::number(i) + "\n";
    const Entries entries = loaded(write(bytes));
    QCOMPARE(entries.size(), 200000);
    QCOMPARE(entries.value("key.0"), "value 0");
    QCOMPARE(entries.value("key.199999"), "value 199999");
}

void TestProperties::loadReadsALineOf10Megabytes()
{
    const QByteArray value(10 * 1024 * 1024, 'x');
    const Entries entries = loaded(write("a=1\nlong=" + value + "\n" + value + "\nz=2\n"));
    QCOMPARE(entries.size(), 3);
    QVERIFY(entries.value("long") == QString::fromLatin1(value));
    QCOMPARE(entries.value("z"), "2");
}

void TestProperties::loadSplitsALineOf10Megabytes()
{
    const QByteArray value(10 * 1024 * 1024, 'x');
    const Entries entries = loaded(write("long=" + value + "\nz=2\n"), 1000);
    const Entries expected{{"long", QString(995, 'x')}, {"z", "2"}};
    QCOMPARE(entries, expected);
}

void TestProperties::loadSurvivesBinaryRubbish()
{
    QByteArray noise;
    quint32 state = 12345;
    for (int i = 0; i < 1 << 20; ++i) {
        state = state * 1664525U + 1013904223U;
        noise += static_cast<char>(state >> 24);
    }
    const QString file = write(noise);
    const QString text = failureText([&] { loaded(file); });
    QVERIFY(text.isNull() || text.startsWith(InsertPrefix + "Property ["));

    // The lines around noise are still read.
    noise.replace('=', '-');
    const Entries expected{{"first", "1"}, {"last", "2"}};
    QCOMPARE(loaded(write("first=1\n" + noise + "\nlast=2")), expected);
}

void TestProperties::loadRefusesDanglingLink()
{
    const QString link = path("link");
    QVERIFY(QFile::link(path("missing"), link));
    QCOMPARE(failureText([&] { loaded(link); }), LoadPrefix + "File [" + link + "] doesn't exist");
}

void TestProperties::loadFollowsALink()
{
    const QString link = path("link");
    QVERIFY(QFile::link(write("a=1\n"), link));
    const Entries expected{{"a", "1"}};
    QCOMPARE(loaded(link), expected);
}

void TestProperties::loadNamesFileNotWritableForAFailedOpen()
{
    const QString directory = _dir->path();
    QCOMPARE(failureText([&] { loaded(directory); }),
             LoadPrefix + "File [" + directory + "] cannot be modified");
}

void TestProperties::loadRefusesUnreadableFile()
{
    const QString file = write("a=1\n");
    QVERIFY(openToEverybody(_dir->path()));
    QVERIFY(QFile::setPermissions(file, QFile::WriteOwner));
    const ChildResult child = runChild({"load", file});
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(QString::fromUtf8(child.out), LoadPrefix + "File [" + file + "] isn't readable");
}

void TestProperties::readErrorEndsTheFile()
{
    // It can be opened, but its first page cannot be read.
    QFile file("/proc/self/mem");
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray());
    QCOMPARE(file.error(), QFileDevice::ReadError);
    QCOMPARE(loaded(file.fileName()), Entries());
}

void TestProperties::saveWritesSortedLines()
{
    Entries map{{"b", "2"}, {"a", "1"}, {"", "0"}, {"c", ""}};
    const QString file = path("out");
    Properties::saveProperties(file, map, false);
    QCOMPARE(readFile(file), "=0\na=1\nb=2\nc=\n");

    const QString other = path("other");
    Properties(map).saveProperties(other, false);
    QCOMPARE(readFile(other), readFile(file));
}

void TestProperties::saveOfEmptyMapWritesEmptyFile()
{
    const QString file = path("out");
    Properties().saveProperties(file, false);
    QVERIFY(QFile::exists(file));
    QCOMPARE(readFile(file), "");
}

void TestProperties::saveWritesUtf8WithoutTranslation()
{
    const QString file = path("out");
    Properties::saveProperties(file, Entries{{"clé", "€😀 %1"}}, false);
    QCOMPARE(readFile(file), "cl\xC3\xA9=\xE2\x82\xAC\xF0\x9F\x98\x80 %1\n");
}

/// Also for halves of surrogate pairs, at the ends of texts and around the size of Qt's buffers.
void TestProperties::saveWritesTheBytesOfQTextStream()
{
    const QStringList pieces{"a",
                             "setting",
                             " ",
                             "=",
                             "#",
                             "\n",
                             "\r\n",
                             QString(QChar(0)),
                             QString(QChar(0x7F)),
                             QString(QChar(0x80)),
                             "é",
                             "€",
                             "😀",
                             QString(QChar(0xD83D)),
                             QString(QChar(0xDE00)),
                             QString(QChar(0xFEFF)),
                             QString(QChar(0xFFFF))};
    QRandomGenerator random(1);
    const auto text = [&] {
        QString result;
        for (int i = random.bounded(8); i > 0; --i)
            result += pieces.at(random.bounded(static_cast<int>(pieces.size())));
        return result;
    };
    for (int run = 0; run < 300; ++run) {
        Entries entries;
        for (int i = 0; i < 12; ++i)
            entries.insert(text(), text());
        for (const char16_t end : {u'x', u'é', u'\xD83D', u'\xDE00'})
            entries.insert(text(), QString(random.bounded(16370, 16390), 'v') + QChar(end));
        QByteArray expected;
        QTextStream stream(&expected);
        for (auto it = entries.cbegin(); it != entries.cend(); ++it)
            stream << it.key() + '=' + it.value() << Qt::endl;
        const QString file = path("out");
        Properties::saveProperties(file, entries, true);
        QVERIFY(readFile(file) == expected);
    }
}

void TestProperties::saveRefusesAnExistingFile()
{
    const QString file = write("untouched");
    QCOMPARE(failureText([&] {
                 Properties::saveProperties(file, Entries{{"a", "1"}}, false);
             }),
             SavePrefix + "File [" + file + "] already exists");
    QCOMPARE(readFile(file), "untouched");
}

void TestProperties::saveReplacesAnExistingFile()
{
    const QString file = write("a much longer text than the new one");
    Properties::saveProperties(file, Entries{{"a", "1"}}, true);
    QCOMPARE(readFile(file), "a=1\n");

    const QString fresh = path("fresh");
    Properties::saveProperties(fresh, Entries{{"a", "1"}}, true);
    QCOMPARE(readFile(fresh), "a=1\n");
}

void TestProperties::saveReplacesALinkAndNotItsTarget()
{
    const QString target = write("target");
    const QString link = path("link");
    QVERIFY(QFile::link(target, link));
    Properties::saveProperties(link, Entries{{"a", "1"}}, true);
    QCOMPARE(readFile(target), "target");
    QCOMPARE(readFile(link), "a=1\n");
    QVERIFY(!QFileInfo(link).isSymLink());
}

void TestProperties::saveRefusesADanglingLink()
{
    const QString link = path("link");
    QVERIFY(QFile::link(path("missing"), link));
    for (const bool overwrite : {false, true}) {
        QCOMPARE(failureText([&] { Properties::saveProperties(link, Entries(), overwrite); }),
                 SavePrefix + "Failed to open file [" + link + "] in create mode");
        QVERIFY(!QFile::exists(path("missing")));
    }
}

void TestProperties::saveOverADirectoryCannotDelete()
{
    const QString directory = _dir->path();
    QCOMPARE(failureText([&] { Properties::saveProperties(directory, Entries(), true); }),
             SavePrefix + "File [" + directory + "] cannot be deleted");
    QVERIFY(QFileInfo(directory).isDir());
}

void TestProperties::saveInAReadOnlyDirectory()
{
    const QString existing = write("untouched");
    const QString fresh = path("fresh");
    const QFile::Permissions closed =
        QFile::ReadOwner | QFile::ExeOwner | QFile::ReadOther | QFile::ExeOther;
    QVERIFY(QFile::setPermissions(_dir->path(), closed));
    const ChildResult creating = runChild({"save", fresh, "0"});
    const ChildResult replacing = runChild({"save", existing, "1"});
    QVERIFY(QFile::setPermissions(_dir->path(), closed | QFile::WriteOwner));
    QCOMPARE(QString::fromUtf8(creating.out),
             SavePrefix + "Failed to open file [" + fresh + "] in create mode");
    QCOMPARE(QString::fromUtf8(replacing.out),
             SavePrefix + "File [" + existing + "] cannot be deleted");
    QCOMPARE(readFile(existing), "untouched");
}

void TestProperties::saveNamesTheLineThatFailed_data()
{
    QTest::addColumn<int>("limit");
    QTest::addColumn<QString>("failedLine");
    QTest::addColumn<QByteArray>("written");

    QTest::newRow("nothing fits") << 0 << "a=1111" << QByteArray("");
    QTest::newRow("first line, all but its line end") << 6 << "a=1111" << QByteArray("a=1111");
    QTest::newRow("nothing of the second line") << 7 << "b=2222" << QByteArray("a=1111\n");
    QTest::newRow("a part of the second line") << 10 << "b=2222" << QByteArray("a=1111\nb=2");
    QTest::newRow("a part of the last line")
        << 20 << "c=3333" << QByteArray("a=1111\nb=2222\nc=3333");
    QTest::newRow("everything fits") << 21 << QString() << QByteArray("a=1111\nb=2222\nc=3333\n");
}

void TestProperties::saveNamesTheLineThatFailed()
{
    QFETCH(int, limit);
    QFETCH(QString, failedLine);
    QFETCH(QByteArray, written);
    const QString file = path("out");
    const ChildResult child = runChild({"save-up-to", QString::number(limit), file});
    QCOMPARE(child.exitCode, 0);
    const QString expected =
        failedLine.isNull() ? QString() : SavePrefix + "Failed to write line [" + failedLine + "]";
    QCOMPARE(QString::fromUtf8(child.out), expected);
    QCOMPARE(readFile(file), written);
}

void TestProperties::saveNamesALongLineThatFailed()
{
    const QString file = path("out");
    const ChildResult child = runChild({"save-long-up-to", "50000", file});
    QCOMPARE(child.exitCode, 0);
    const QString line = "b%1=" + entriesWithOneLongLine().value("b%1");
    QVERIFY(QString::fromUtf8(child.out) == SavePrefix + "Failed to write line [" + line + "]");
    QCOMPARE(readFile(file).size(), 50000);
    QVERIFY(readFile(file).startsWith("a=1111\nb%1=%2%2"));
}

void TestProperties::saveOf200000Lines()
{
    Entries map;
    for (int i = 0; i < 200000; ++i)
        map.insert("key." + QString::number(i), QString::number(i));
    const QString file = path("out");
    Properties::saveProperties(file, map, false);
    QCOMPARE(loaded(file), map);
}

void TestProperties::roundTripKeepsTheMap_data()
{
    QTest::addColumn<Entries>("map");
    QTest::newRow("empty") << Entries();
    QTest::newRow("empty key and value") << Entries{{"", ""}};
    QTest::newRow("empty values") << Entries{{"a", ""}, {"b", ""}};
    QTest::newRow("equals in values") << Entries{{"a", "=1"}, {"b", "=="}, {"c", "x=y="}};
    QTest::newRow("number sign, not in front") << Entries{{"a#", "#b"}};
    QTest::newRow("blanks inside") << Entries{{"a b", "c  d"}};
    QTest::newRow("backslashes and quotes") << Entries{{"\\a", "\"b\\\""}};
    QTest::newRow("beyond Latin-1") << Entries{{"ключ", "値😀"}, {"clé", "été"}};
    QTest::newRow("NUL") << Entries{
        {QString::fromLatin1("a\0b", 3), QString::fromLatin1("c\0d", 3)}};
    QTest::newRow("very long") << Entries{{QString(300000, 'k'), QString(300000, 'v')}};
}

void TestProperties::roundTripKeepsTheMap()
{
    QFETCH(Entries, map);
    const QString file = path("out");
    Properties::saveProperties(file, map, false);
    QCOMPARE(loaded(file), map);
}

void TestProperties::roundTripLosses_data()
{
    QTest::addColumn<Entries>("saved");
    QTest::addColumn<Entries>("read");
    QTest::newRow("key begins with a number sign") << Entries{{"#a", "1"}} << Entries();
    QTest::newRow("key holds an equals") << Entries{{"a=b", "1"}} << Entries{{"a", "b=1"}};
    QTest::newRow("leading blank of the key") << Entries{{" a", "1"}} << Entries{{"a", "1"}};
    QTest::newRow("trailing blank of the value") << Entries{{"a", "1 "}} << Entries{{"a", "1"}};
    QTest::newRow("line feed in the value")
        << Entries{{"a", "1\nb=2"}} << Entries{{"a", "1"}, {"b", "2"}};
}

void TestProperties::roundTripLosses()
{
    QFETCH(Entries, saved);
    QFETCH(Entries, read);
    const QString file = path("out");
    Properties::saveProperties(file, saved, false);
    QCOMPARE(loaded(file), read);
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestProperties, childMain)

#include "tst_properties.moc"
