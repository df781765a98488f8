// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/childprocess.h"
#include "support/environmentguard.h"
#include "support/failuretext.h"
#include "support/files.h"
#include "support/language.h"
#include "support/loggersettings.h"
#include "support/logrecords.h"

#include <kez/configuration.h>
#include <kez/initlib.h>
#include <kez/translator.h>

#include <QDataStream>
#include <QDir>
#include <QMetaType>
#include <QObject>
#include <QPointer>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <QVariant>

#include <cstdio>
#include <type_traits>

using Entries = QMap<QString, QString>;

static_assert(std::is_base_of_v<QObject, Config>);
static_assert(std::has_virtual_destructor_v<Config>);

namespace {

const QString LoadPrefix = "shared_ptr<Config> Config::load(const QString&, const QString&) -> ";
const QString BuildPrefix = "shared_ptr<Log> Config::buildFileSystemLogger(Config&) -> ";
const QString Unversioned = "0.0.0";

Entries entriesOf(const Config& config)
{
    return *config.properties()->toDictionnary();
}

Entries withVersion(Entries entries, const QString& version = Unversioned)
{
    entries.insert("app.version", version);
    return entries;
}

QByteArray streamed(const QStringList& texts)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    for (const QString& text : texts)
        stream << text;
    return bytes;
}

/// Reads `bytes` into `config` and returns the stream's status.
QDataStream::Status readInto(Config& config, const QByteArray& bytes)
{
    QDataStream stream(bytes);
    stream >> config;
    return stream.status();
}

/// Remembers what it was asked.
class RecordingController : public IConfigController {
    Q_OBJECT

public:
    explicit RecordingController(bool answer) : _answer(answer) {}

    bool isLegalConfiguration(Properties* properties) override
    {
        asked.append(properties);
        return _answer;
    }

    QList<Properties*> asked;

private:
    bool _answer;
};

/// Reads another configuration into the one that asks.
class ReplacingController : public IConfigController {
    Q_OBJECT

public:
    explicit ReplacingController(Config& config) : _config(config) {}

    bool isLegalConfiguration(Properties*) override
    {
        const std::weak_ptr<Properties> asked = _config.properties();
        readInto(_config, streamed({"a=1"}));
        return !asked.expired();
    }

private:
    Config& _config;
};

class StrictConfig : public Config {
    Q_OBJECT

public:
    using Config::Config;

    bool isLegalConfiguration(IConfigController*) override { return existsKey("strict"); }
};

/// load <path> | build <file name>, both as an ordinary user. Prints the text of the failure.
int childMain(const QStringList& arguments)
{
    qputenv("LANG", "en_US.UTF-8");
    kezEnsureInit();
    if (!becomeOrdinaryUser())
        return 2;
    const QString argument = arguments.value(1);
    const QString text = failureText([&] {
        if (arguments.value(0) == "load")
            Config::load(argument, "");
        else
            Config::buildFileSystemLogger(Properties(Entries{{"log.filename", argument}}));
    });
    std::fputs(text.toUtf8().constData(), stdout);
    return 0;
}

} // namespace

class TestConfiguration : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();

    void isRegisteredAsMetaType();
    void metaTypeCreatesAndCopies();
    void metaTypeSavesAndLoads();

    void constructorHoldsTheVersion_data();
    void constructorHoldsTheVersion();
    void constructorTakesAParent();
    void copySharesPropertiesAndLogger();
    void valueAndExistsKey();
    void valueOfAMissingKeyThrows();
    void homePathIsTheUsersHome();
    void userAccount_data();
    void userAccount();
    void isLegalConfigurationAsksTheController();
    void controllerMayReplaceTheProperties();
    void isLegalConfigurationCanBeOverridden();

    void loadReadsLines_data();
    void loadReadsLines();
    void loadTakesTheVersionGiven();
    void loadFailureTexts_data();
    void loadFailureTexts();
    void loadRefusesUnreadableFile();
    void loadReads200000Lines();
    void loadReadsALineOf10Megabytes();
    void readErrorEndsTheFile();
    void loadSurvivesBinaryRubbish();
    void readersOfFilesDiffer_data();
    void readersOfFilesDiffer();
    void readersDifferOnAFailedOpen();
    void loadPropertiesCopiesThem();
    void loadedPropertiesShareNothing();
    void loadPropertiesRefusesAVersionAmongThem();

    void logBannerTitle_data();
    void logBannerTitle();
    void logBannerTitleComesFromAnyModule();
    void displayPropertiesWithinBanner_data();
    void displayPropertiesWithinBanner();

    void logBannerWithoutLoggerDoesNothing();
    void loggerMayBeReplacedDuringTheBanner();
    void logBannerDrawsABox_data();
    void logBannerDrawsABox();
    void logBannerListsThePropertiesPaddedOnTheLeft();
    void logBannerWithoutPropertiesListsNone();
    void logBannerPassesAndRestoresTheFilter_data();
    void logBannerPassesAndRestoresTheFilter();

    void buildLoggerDefaults();
    void buildLoggerFilter_data();
    void buildLoggerFilter();
    void buildLoggerTee_data();
    void buildLoggerTee();
    void buildLoggerNumbers_data();
    void buildLoggerNumbers();
    void buildLoggerRefusesNumbers_data();
    void buildLoggerRefusesNumbers();
    void buildLoggerReportsEachFaultOnALine();
    void buildLoggerNeedsAFileName();
    void buildLoggerNeedsAWritableDirectory();
    void buildLoggerPutsABareFileNameIntoTheHomeDirectory();
    void buildLoggerLeavesThePropertiesAlone();
    void getOrbuildBuildsAnotherEachTime();
    void getOrbuildReturnsTheLoggerHeld();
    void forgetLoggerLetsGo();

    void streamHoldsOneTextPerProperty();
    void streamOfNoPropertiesIsEmpty();
    void streamRoundTrip();
    void streamRoundTripOf200000Properties();
    void readingSplitsTexts_data();
    void readingSplitsTexts();
    void readingReplacesPropertiesAndLogger();
    void readingBuildsTheLogger();
    void readingAnIllegalLoggerThrows();
    void readingATruncatedStreamLeavesTheConfiguration();
    void readingAHostileStreamLeavesTheConfiguration_data();
    void readingAHostileStreamLeavesTheConfiguration();
    void readingAFailedStreamLeavesTheConfiguration_data();
    void readingAFailedStreamLeavesTheConfiguration();
    void readingConsumesTheStream();

private:
    QString path(const QString& name) const { return _dir->filePath(name); }
    QString write(const QByteArray& bytes) const
    {
        const QString file = path("app.conf");
        return writeFile(file, bytes) ? file : QString();
    }
    Entries loggerEntries(Entries more = {}) const
    {
        more.insert("log.filename", path("app.log"));
        return more;
    }
    std::shared_ptr<Logger> quietLogger(LoggerLevel::LogLevel filter = LoggerLevel::debug) const
    {
        auto logger = std::make_shared<Logger>(path("app.log"), 1 << 20, 5, 7, filter, nullptr);
        logger->disableTee();
        return logger;
    }
    QStringList logged() const { return logMessages(path("app-0.log"), "INFOR"); }

    std::unique_ptr<QTemporaryDir> _dir;
};

void TestConfiguration::init()
{
    useLanguage("en_US");
    _dir = std::make_unique<QTemporaryDir>();
    QVERIFY(_dir->isValid());
}

void TestConfiguration::isRegisteredAsMetaType()
{
    const QMetaType type = QMetaType::fromName("Config");
    QVERIFY(type.isValid());
    QCOMPARE(type, QMetaType::fromType<Config>());
    QVERIFY(type.hasRegisteredDataStreamOperators());
}

void TestConfiguration::metaTypeCreatesAndCopies()
{
    const QMetaType type = QMetaType::fromName("Config");
    auto* const created = static_cast<Config*>(type.create());
    QVERIFY(created);
    QCOMPARE(entriesOf(*created), withVersion({}));
    QVERIFY(!created->logger());

    auto* const copy = static_cast<Config*>(type.create(created));
    QVERIFY(copy);
    QCOMPARE(copy->properties(), created->properties());
    type.destroy(created);
    QCOMPARE(copy->value("app.version"), Unversioned);
    type.destroy(copy);
}

void TestConfiguration::metaTypeSavesAndLoads()
{
    const QMetaType type = QMetaType::fromName("Config");
    Config config("2.1");
    config.properties()->insert("a", "1", false);
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    QVERIFY(type.save(out, &config));
    QCOMPARE(bytes, streamed({"a=1", "app.version=2.1"}));

    Config read;
    QDataStream in(bytes);
    QVERIFY(type.load(in, &read));
    QCOMPARE(entriesOf(read), entriesOf(config));
}

void TestConfiguration::constructorHoldsTheVersion_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("expected");
    QTest::newRow("given") << "2.1"
                           << "2.1";
    QTest::newRow("empty") << "" << Unversioned;
    QTest::newRow("null") << QString() << Unversioned;
    QTest::newRow("blank") << " "
                           << " ";
}

void TestConfiguration::constructorHoldsTheVersion()
{
    QFETCH(QString, version);
    QFETCH(QString, expected);
    const Config config(version, nullptr);
    QCOMPARE(entriesOf(config), withVersion({}, expected));
    QVERIFY(!config.logger());
    QVERIFY(!config.parent());
}

void TestConfiguration::constructorTakesAParent()
{
    QPointer<Config> config;
    QPointer<Config> copy;
    {
        QObject parent;
        config = new Config("1", &parent);
        copy = new Config(*config, &parent);
        QCOMPARE(config->parent(), &parent);
        QCOMPARE(copy->parent(), &parent);
    }
    QVERIFY(config.isNull());
    QVERIFY(copy.isNull());
}

void TestConfiguration::copySharesPropertiesAndLogger()
{
    QObject parent;
    auto* const config = new Config("1", &parent);
    config->setLogger(quietLogger());
    Config copy(*config, nullptr);
    QCOMPARE(copy.properties(), config->properties());
    QCOMPARE(copy.logger(), config->logger());
    QVERIFY(!copy.parent());

    config->properties()->insert("a", "1", false);
    QCOMPARE(copy.value("a"), "1");
    config->forgetLogger();
    QVERIFY(copy.logger());
}

void TestConfiguration::valueAndExistsKey()
{
    Config config("1");
    config.properties()->insert("empty", "", false);
    QVERIFY(config.existsKey("app.version"));
    QVERIFY(config.existsKey("empty"));
    QVERIFY(!config.existsKey("App.Version"));
    QVERIFY(!config.existsKey(""));
    QCOMPARE(config.value("app.version"), "1");
    QCOMPARE(config.value("empty"), "");
}

void TestConfiguration::valueOfAMissingKeyThrows()
{
    const Config config;
    QCOMPARE(failureText([&] { config.value("%1"); }),
             "QString Properties::value(const QString&) -> Property [%1] does not exist");
    useLanguage("fr_FR");
    QCOMPARE(failureText([&] { config.value("a"); }),
             "QString Properties::value(const QString&) -> La propriété [a] n'existe pas");
}

void TestConfiguration::homePathIsTheUsersHome()
{
    const EnvironmentGuard home("HOME", _dir->path().toLocal8Bit());
    QCOMPARE(Config::homePath(), _dir->path());
}

void TestConfiguration::userAccount_data()
{
    QTest::addColumn<QByteArray>("user");
    QTest::addColumn<QByteArray>("userName");
    QTest::addColumn<QString>("expected");
    QTest::newRow("USER alone") << QByteArray("ann") << QByteArray() << "ann";
    QTest::newRow("USER before USERNAME") << QByteArray("ann") << QByteArray("bob") << "ann";
    QTest::newRow("USER unset") << QByteArray() << QByteArray("bob") << "bob";
    QTest::newRow("USER empty") << QByteArray("") << QByteArray("bob") << "bob";
    QTest::newRow("USER blank") << QByteArray(" ") << QByteArray("bob") << " ";
    QTest::newRow("both empty") << QByteArray("") << QByteArray("") << "";
    QTest::newRow("neither") << QByteArray() << QByteArray() << "";
}

void TestConfiguration::userAccount()
{
    QFETCH(QByteArray, user);
    QFETCH(QByteArray, userName);
    QFETCH(QString, expected);
    const EnvironmentGuard userGuard("USER", user);
    const EnvironmentGuard userNameGuard("USERNAME", userName);
    QCOMPARE(Config::userAccount(), expected);
}

void TestConfiguration::isLegalConfigurationAsksTheController()
{
    Config config;
    QVERIFY(!config.isLegalConfiguration(nullptr));
    for (const bool answer : {true, false}) {
        RecordingController controller(answer);
        QCOMPARE(config.isLegalConfiguration(&controller), answer);
        QCOMPARE(controller.asked, {config.properties().get()});
    }
}

void TestConfiguration::controllerMayReplaceTheProperties()
{
    Config config;
    ReplacingController controller(config);
    QVERIFY(config.isLegalConfiguration(&controller));
    QCOMPARE(config.value("a"), "1");
}

void TestConfiguration::isLegalConfigurationCanBeOverridden()
{
    StrictConfig strict("1");
    Config& config = strict;
    RecordingController controller(true);
    QVERIFY(!config.isLegalConfiguration(&controller));
    config.properties()->insert("strict", "", false);
    QVERIFY(config.isLegalConfiguration(nullptr));
}

void TestConfiguration::loadReadsLines_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Entries>("expected");

    const auto row = [](const char* name, const QByteArray& bytes, const Entries& expected = {}) {
        QTest::newRow(name) << bytes << expected;
    };
    row("empty file", "");
    row("comments and lines without equals", "#a=1\n\nplain\n   \n#\n");
    row("no line end at the end", "a=1", {{"a", "1"}});
    row("empty value", "a=\n", {{"a", ""}});
    row("empty key", "=1\n", {{"", "1"}});
    row("equals alone", "=\n", {{"", ""}});
    row("further equals", "a=b=c=\n", {{"a", "b=c="}});
    row("nothing is trimmed", "  a = b  \n", {{"  a ", " b  "}});
    row("tabs stay", "\ta\t=\tb\t\n", {{"\ta\t", "\tb\t"}});
    row("indented number sign", "  #x=1\n", {{"  #x", "1"}});
    row("number sign inside", "a#b=c#d\n", {{"a#b", "c#d"}});
    row("first of repeated keys", "a=1\nb=1\na=2\na=3\n", {{"a", "1"}, {"b", "1"}});
    row("keys that differ by blanks are others", "a=1\na =2\n", {{"a", "1"}, {"a ", "2"}});
    row("version in the file", "app.version=9.9\na=1\n", {{"a", "1"}});
    row("indented version is another key", " app.version=9.9\n", {{" app.version", "9.9"}});
    row("line ends of other systems", "a=1\r\nb=2\r\n", {{"a", "1"}, {"b", "2"}});
    row("UTF-8", "cl\xC3\xA9=\xE2\x82\xAC\n", {{"clé", "€"}});
    row("UTF-8 byte order mark",
        "\xEF\xBB\xBF"
        "a=1\n",
        {{"a", "1"}});
    row("invalid UTF-8", "a=\xFFx\n", {{"a", QString(QChar(0xFFFD)) + "x"}});
    row("NUL", QByteArray("a\0b=c\0d\n", 8),
        {{QString::fromLatin1("a\0b", 3), QString::fromLatin1("c\0d", 3)}});
}

void TestConfiguration::loadReadsLines()
{
    QFETCH(QByteArray, bytes);
    QFETCH(Entries, expected);
    const std::shared_ptr<Config> config = Config::load(write(bytes), QString());
    QCOMPARE(entriesOf(*config), withVersion(expected));
    QVERIFY(!config->logger());
    QVERIFY(!config->parent());
}

void TestConfiguration::loadTakesTheVersionGiven()
{
    const QString file = write("a=1\napp.version=9.9\n");
    QCOMPARE(entriesOf(*Config::load(file, "2.1")), withVersion({{"a", "1"}}, "2.1"));
    QCOMPARE(entriesOf(*Config::load(file, "")), withVersion({{"a", "1"}}));
    QCOMPARE(entriesOf(*Config::load(write(""), "2.1")), withVersion({}, "2.1"));
}

void TestConfiguration::loadFailureTexts_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("english");
    QTest::addColumn<QString>("french");
    QTest::newRow("missing file") << "/nonexistent/%1 %2"
                                  << "File [/nonexistent/%1 %2] doesn't exist"
                                  << "Le fichier [/nonexistent/%1 %2] n'existe pas";
    QTest::newRow("empty path") << ""
                                << "File [] doesn't exist"
                                << "Le fichier [] n'existe pas";
    QTest::newRow("directory") << "/"
                               << "File [/] isn't readable"
                               << "Le fichier [/] ne peut pas être lu";
    QTest::newRow("dangling link") << "link"
                                   << "File [link] doesn't exist"
                                   << "Le fichier [link] n'existe pas";
}

void TestConfiguration::loadFailureTexts()
{
    QFETCH(QString, file);
    QFETCH(QString, english);
    QFETCH(QString, french);
    if (file == "link") {
        file = path("link");
        QVERIFY(QFile::link(path("missing"), file));
        english.replace("link", file);
        french.replace("link", file);
    }
    QCOMPARE(failureText([&] { Config::load(file, "1"); }), LoadPrefix + english);
    useLanguage("fr_FR");
    QCOMPARE(failureText([&] { Config::load(file, "1"); }), LoadPrefix + french);
}

void TestConfiguration::loadRefusesUnreadableFile()
{
    const QString file = write("a=1\n");
    QVERIFY(openToEverybody(_dir->path()));
    QVERIFY(QFile::setPermissions(file, QFile::WriteOwner));
    const ChildResult child = runChild({"load", file});
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(QString::fromUtf8(child.out), LoadPrefix + "File [" + file + "] isn't readable");
}

void TestConfiguration::loadReads200000Lines()
{
    QByteArray bytes;
    for (int i = 0; i < 200000; ++i)
        bytes += "key." + QByteArray::number(i / 2) + "=" + QByteArray::number(i) + "\n";
    const auto config = Config::load(write(bytes), "1");
    QCOMPARE(config->properties()->size(), 100001);
    QCOMPARE(config->value("key.0"), "0");
    QCOMPARE(config->value("key.99999"), "199998");
}

void TestConfiguration::loadReadsALineOf10Megabytes()
{
    const QByteArray text(10 * 1024 * 1024, 'x');
    const auto config = Config::load(write("a=" + text + "\n" + text + "\n" + text + "=1\n"), "1");
    QCOMPARE(config->properties()->size(), 3);
    QVERIFY(config->value("a") == QString::fromLatin1(text));
    QCOMPARE(config->value(QString::fromLatin1(text)), "1");
}

void TestConfiguration::readErrorEndsTheFile()
{
    // It can be opened, but its first page cannot be read.
    QCOMPARE(entriesOf(*Config::load("/proc/self/mem", "")), withVersion({}));
}

void TestConfiguration::loadSurvivesBinaryRubbish()
{
    QByteArray noise;
    quint32 state = 99;
    for (int i = 0; i < 1 << 20; ++i) {
        state = state * 1664525U + 1013904223U;
        noise += static_cast<char>(state >> 24);
    }
    QCOMPARE(Config::load(write(noise), "")->value("app.version"), Unversioned);
    noise.replace('=', '-');
    QCOMPARE(entriesOf(*Config::load(write("first=1\n" + noise + "\nlast=2"), "")),
             withVersion({{"first", "1"}, {"last", "2"}}));
}

void TestConfiguration::readersOfFilesDiffer_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Entries>("asProperties");
    QTest::addColumn<Entries>("asConfig");
    QTest::newRow("blanks around")
        << QByteArray(" a= 1 \n") << Entries{{"a", " 1"}} << Entries{{" a", " 1 "}};
    QTest::newRow("indented number sign")
        << QByteArray(" #a=1\n") << Entries() << Entries{{" #a", "1"}};
    QTest::newRow("version") << QByteArray("app.version=9\n") << Entries{{"app.version", "9"}}
                             << Entries();
}

void TestConfiguration::readersOfFilesDiffer()
{
    QFETCH(QByteArray, bytes);
    QFETCH(Entries, asProperties);
    QFETCH(Entries, asConfig);
    const QString file = write(bytes);
    QCOMPARE(*Properties::loadProperties(file, 0)->toDictionnary(), asProperties);
    QCOMPARE(entriesOf(*Config::load(file, "")), withVersion(asConfig));
}

void TestConfiguration::readersDifferOnAFailedOpen()
{
    const QString directory = _dir->path();
    QCOMPARE(failureText([&] { Properties::loadProperties(directory, 0); }),
             "Properties Properties::loadProperties(const QString&) -> File [" + directory +
                 "] cannot be modified");
    QCOMPARE(failureText([&] { Config::load(directory, ""); }),
             LoadPrefix + "File [" + directory + "] isn't readable");
}

void TestConfiguration::loadPropertiesCopiesThem()
{
    Properties source(Entries{{" a ", " 1 "}, {"", ""}, {"#b", "x=y"}});
    const auto config = Config::load(source, "2.1");
    QCOMPARE(entriesOf(*config), withVersion(*source.toDictionnary(), "2.1"));
    QVERIFY(!config->logger());
    QVERIFY(!source.contains("app.version"));
    config->properties()->setValue(" a ", "2");
    QCOMPARE(source.value(" a "), " 1 ");

    QCOMPARE(entriesOf(*Config::load(Properties(), "")), withVersion({}));
}

void TestConfiguration::loadedPropertiesShareNothing()
{
    Properties source(Entries{{"a", "1"}});
    const Properties::iterator iterator = source.begin();
    const auto config = Config::load(source, "2.1");
    *iterator = "through the iterator";
    QCOMPARE(source.value("a"), "through the iterator");
    QCOMPARE(config->value("a"), "1");
}

void TestConfiguration::loadPropertiesRefusesAVersionAmongThem()
{
    const Properties source(Entries{{"app.version", "9.9"}, {"z", "1"}});
    for (const char* version : {"", "2.1"}) {
        QCOMPARE(failureText([&] { Config::load(source, version); }),
                 "void Properties::insert(const QString&, const QString&) -> Property "
                 "[app.version] already exists (duplicate prohibited)");
    }
    QCOMPARE(source.value("app.version"), "9.9");
}

void TestConfiguration::logBannerTitle_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("expected");
    QTest::newRow("absent") << QString() << "[DefaultLogTitle]";
    QTest::newRow("empty") << ""
                           << "[DefaultLogTitle]";
    QTest::newRow("blank") << " \t "
                           << "[DefaultLogTitle]";
    QTest::newRow("given") << "My service"
                           << "My service";
    QTest::newRow("blanks around") << "  My  service %1\t"
                                   << "My  service %1";
}

void TestConfiguration::logBannerTitle()
{
    QFETCH(QString, value);
    QFETCH(QString, expected);
    const Config config;
    if (!value.isNull())
        config.properties()->insert("log.banner.title", value, false);
    QCOMPARE(config.logBannerTitle(), expected);
}

void TestConfiguration::logBannerTitleComesFromAnyModule()
{
    QVERIFY(writeFile(path("app_xx_XX.lang"), "module=app;lang=xx_XX\nDefaultLogTitle=Journal\n"));
    Translator* const translator = Translator::getInstance();
    QVERIFY(translator->insertBundle(_dir->path(), "app", "xx_XX"));
    QCOMPARE(Config().logBannerTitle(), "[DefaultLogTitle]");
    translator->setDefaultBundleKey("kez", "xx_XX");
    QCOMPARE(Config().logBannerTitle(), "Journal");
}

void TestConfiguration::displayPropertiesWithinBanner_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("expected");
    const auto row = [](const char* name, const QString& value, bool expected) {
        QTest::newRow(name) << value << expected;
    };
    row("absent", QString(), true);
    row("empty", "", true);
    row("blank", "  ", true);
    row("0", "0", false);
    row("false", "false", false);
    row("faux", "faux", false);
    row("upper case, blanks around", " FALSE ", false);
    row("mixed case", "Faux\t", false);
    row("zero with blanks", " 0 ", false);
    row("00", "00", true);
    row("no", "no", true);
    row("non", "non", true);
    row("off", "off", true);
    row("1", "1", true);
    row("true", "true", true);
}

void TestConfiguration::displayPropertiesWithinBanner()
{
    QFETCH(QString, value);
    QFETCH(bool, expected);
    const Config config;
    if (!value.isNull())
        config.properties()->insert("log.banner.properties", value, false);
    QCOMPARE(config.displayPropertiesWithinBanner(), expected);
}

void TestConfiguration::logBannerWithoutLoggerDoesNothing()
{
    const Config config;
    config.logBanner("%1", "Start", true, "trailer");
    QVERIFY(!config.logger());
}

void TestConfiguration::loggerMayBeReplacedDuringTheBanner()
{
    const QTemporaryDir directory;
    Config config;
    config.properties()->insert("zone", "b");
    config.setLogger(std::make_shared<Logger>(directory.filePath("app"), 0, 0, 365,
                                              LoggerLevel::debug, nullptr)); // with the tee
    static Config* shown = nullptr;
    shown = &config;
    const QtMessageHandler previous =
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& text) {
            shown->forgetLogger();
            if (text.contains(QLatin1String("app.version = ")))
                shown->properties()->clear();
        });
    config.logBanner("%1", "Start", true, "trailer");
    qInstallMessageHandler(previous);
    QVERIFY(!config.logger());
    QVERIFY(config.properties()->empty());
    QCOMPARE(readFile(directory.filePath("app-0.log")).count('\n'), 4 + 2);
}

void TestConfiguration::logBannerDrawsABox_data()
{
    QTest::addColumn<QString>("format");
    QTest::addColumn<QString>("argument");
    QTest::addColumn<QString>("trailer");
    QTest::addColumn<QStringList>("expected");

    const auto row = [](const char* name, const QString& format, const QString& argument,
                        const QString& trailer, const QString& border, const QString& middle) {
        QTest::newRow(name) << format << argument << trailer
                            << QStringList{border, middle, border, trailer};
    };
    row("title alone", "%1", "Start", "(c) me", "+-------+", "| Start |");
    row("title with version", "App v%1", "2.1", "x", "+----------+", "| App v2.1 |");
    row("empty trailer", "%1", "Start", "", "+-------+", "| Start |");
    row("empty title", "%1", "", "x", "+--+", "|  |");
    row("each mark of the lowest number", "%1-%1", "a", "x", "+-----+", "| a-a |");
    row("the lowest number only", "%2 %1", "a", "x", "+------+", "| %2 a |");
    row("the lowest number need not be 1", "%7 %3", "a", "x", "+------+", "| %7 a |");
    row("a mark in the argument stays", "<%1>", "%1 %2", "x", "+---------+", "| <%1 %2> |");
    row("no mark", "Start", "2.1", "x", "+-------+", "| Start |");
    row("letters with accents", "%1", "Démarré", "été", "+---------+", "| Démarré |");
    row("a mark in the trailer stays", "%1", "Start", "%1", "+-------+", "| Start |");
}

void TestConfiguration::logBannerDrawsABox()
{
    QFETCH(QString, format);
    QFETCH(QString, argument);
    QFETCH(QString, trailer);
    QFETCH(QStringList, expected);
    Config config;
    config.setLogger(quietLogger());
    config.logBanner(format, argument, false, trailer);
    QCOMPARE(logged(), expected);
}

void TestConfiguration::logBannerListsThePropertiesPaddedOnTheLeft()
{
    Config config("2.1");
    config.properties()->insert(Entries{{"a", "1 %1"}, {"clé", ""}, {"long.key.of.mine", " x"}},
                                false);
    config.setLogger(quietLogger());
    config.logBanner("%1", "Start", true, "trailer");
    const QStringList expected{"+-------+",
                               "| Start |",
                               "+-------+",
                               "trailer",
                               "               a = 1 %1",
                               "     app.version = 2.1",
                               "             clé = ",
                               "long.key.of.mine =  x"};
    QCOMPARE(logged(), expected);
}

void TestConfiguration::logBannerWithoutPropertiesListsNone()
{
    Config config("2.1");
    config.properties()->clear();
    config.setLogger(quietLogger());
    config.logBanner("%1", "Start", true, "trailer");
    QCOMPARE(logged().size(), 4);
}

void TestConfiguration::logBannerPassesAndRestoresTheFilter_data()
{
    QTest::addColumn<int>("filter");
    for (int level = LoggerLevel::debug; level <= LoggerLevel::fatal; ++level)
        QTest::addRow("level %d", level) << level;
}

void TestConfiguration::logBannerPassesAndRestoresTheFilter()
{
    QFETCH(int, filter);
    const auto level = static_cast<LoggerLevel::LogLevel>(filter);
    Config config;
    config.setLogger(quietLogger(level));
    config.logBanner("%1", "Start", true, "trailer");
    QCOMPARE(logged().size(), 5);
    QCOMPARE(config.logger()->filter(), level);
}

void TestConfiguration::buildLoggerDefaults()
{
    const auto logger = Config::buildFileSystemLogger(Properties(loggerEntries()));
    QVERIFY(QFile::exists(path("app-0.log")));
    QCOMPARE(shownNumber(*logger, "_maxSize"), 1048576);
    QCOMPARE(shownNumber(*logger, "_kept"), 10);
    QCOMPARE(shownNumber(*logger, "_timeout"), 7);
    QCOMPARE(logger->filter(), LoggerLevel::warning);
    QVERIFY(!logger->isTeeEnabled());
    QCOMPARE(logger->bannerTitle(), "");
    QVERIFY(!logger->recordConfigurationData());
    QVERIFY(logger->formatter() == LogFormatter(&Logger::formatter));
}

void TestConfiguration::buildLoggerFilter_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("expected");
    QTest::newRow("debug") << "debug" << int(LoggerLevel::debug);
    QTest::newRow("info") << "info" << int(LoggerLevel::info);
    QTest::newRow("warning") << "warning" << int(LoggerLevel::warning);
    QTest::newRow("error") << "error" << int(LoggerLevel::error);
    QTest::newRow("fatal") << "fatal" << int(LoggerLevel::fatal);
    for (const char* name : {"warn", "FATAL", " info", "", "all"})
        QTest::addRow("refused: '%s'", name) << name << -1;
}

void TestConfiguration::buildLoggerFilter()
{
    QFETCH(QString, name);
    QFETCH(int, expected);
    const Properties properties(loggerEntries({{"log.filter", name}}));
    if (expected < 0) {
        QCOMPARE(failureText([&] { Config::buildFileSystemLogger(properties); }),
                 BuildPrefix + "Invalid parameter \"log.filter\"=[" + name + "]");
        QVERIFY(!QFile::exists(path("app-0.log")));
    } else {
        QCOMPARE(int(Config::buildFileSystemLogger(properties)->filter()), expected);
    }
}

void TestConfiguration::buildLoggerTee_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("expected");
    QTest::newRow("1") << "1" << true;
    QTest::newRow("0") << "0" << false;
    QTest::newRow("2") << "2" << false;
    QTest::newRow("01") << "01" << false;
    QTest::newRow("-1") << "-1" << false;
}

void TestConfiguration::buildLoggerTee()
{
    QFETCH(QString, value);
    QFETCH(bool, expected);
    const Properties properties(loggerEntries({{"log.tee", value}}));
    QCOMPARE(Config::buildFileSystemLogger(properties)->isTeeEnabled(), expected);
}

void TestConfiguration::buildLoggerNumbers_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("field");
    QTest::addColumn<qint64>("expected");
    const auto row = [](const char* name, const char* key, const char* value, const char* field,
                        qint64 expected) {
        QTest::newRow(name) << key << value << field << expected;
    };
    row("size", "log.maxsize", "4096", "_maxSize", 4096);
    row("size 0 is the constructor's default", "log.maxsize", "0", "_maxSize", 1048576);
    row("size beyond 32 bits", "log.maxsize", "6000000000", "_maxSize", 6000000000);
    row("size in base 10", "log.maxsize", "010", "_maxSize", 10);
    row("kept", "log.kept", "3", "_kept", 3);
    row("kept 0 is the constructor's default", "log.kept", "0", "_kept", 5);
    row("kept, largest", "log.kept", "4294967295", "_kept", 4294967295);
    row("age", "log.timeout", "30", "_timeout", 30);
    row("age 0", "log.timeout", "0", "_timeout", 0);
    row("age, largest", "log.timeout", "4294967295", "_timeout", 4294967295);
}

void TestConfiguration::buildLoggerNumbers()
{
    QFETCH(QString, key);
    QFETCH(QString, value);
    QFETCH(QString, field);
    QFETCH(qint64, expected);
    const auto logger = Config::buildFileSystemLogger(Properties(loggerEntries({{key, value}})));
    QCOMPARE(shownNumber(*logger, field), expected);
}

void TestConfiguration::buildLoggerRefusesNumbers_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("message");
    const auto row = [](const char* key, const char* value, const char* message) {
        const QString text = QString(message).arg(key, value);
        QTest::addRow("%s=%s", key, value) << key << value << text;
    };
    const char* const invalid = "Invalid parameter \"%1\"=[%2]";
    for (const char* key : {"log.maxsize", "log.kept", "log.timeout", "log.tee"}) {
        for (const char* value : {"abc", "", "1.5", "0x10", "1e3", "99999999999999999999", "%2"})
            row(key, value, invalid);
    }
    // Integers that the setting cannot hold.
    const char* const unusable = "Configuration parameter [%1=%2] is invalid";
    row("log.maxsize", "-1", unusable);
    row("log.kept", "-1", unusable);
    row("log.timeout", "-1", unusable);
    row("log.kept", "4294967296", unusable);
    row("log.timeout", "4294967296", unusable);
}

void TestConfiguration::buildLoggerRefusesNumbers()
{
    QFETCH(QString, key);
    QFETCH(QString, value);
    QFETCH(QString, message);
    const Properties properties(loggerEntries({{key, value}}));
    QCOMPARE(failureText([&] { Config::buildFileSystemLogger(properties); }),
             BuildPrefix + message);
    QVERIFY(!QFile::exists(path("app-0.log")));
}

void TestConfiguration::buildLoggerReportsEachFaultOnALine()
{
    const Properties properties(Entries{{"log.filename", "/nonexistent/app.log"},
                                        {"log.maxsize", "a"},
                                        {"log.kept", "b"},
                                        {"log.timeout", "c"},
                                        {"log.tee", "yes"},
                                        {"log.banner.properties", "true"},
                                        {"log.filter", "warn"}});
    const auto build = [&] { Config::buildFileSystemLogger(properties); };
    QCOMPARE(failureText(build), BuildPrefix +
                                     "Invalid parameter \"log.filename\"=[/nonexistent/app.log]\n"
                                     "Invalid parameter \"log.maxsize\"=[a]\n"
                                     "Invalid parameter \"log.kept\"=[b]\n"
                                     "Invalid parameter \"log.timeout\"=[c]\n"
                                     "Invalid parameter \"log.tee\"=[yes]\n"
                                     "Invalid parameter \"log.banner.properties\"=[true]\n"
                                     "Invalid parameter \"log.filter\"=[warn]");
    useLanguage("fr_FR");
    QVERIFY(failureText(build).startsWith(
        BuildPrefix + "Paramètre \"log.filename\"=[/nonexistent/app.log] invalide\n"
                      "Paramètre \"log.maxsize\"=[a] invalide\n"));
    QCOMPARE(failureText([&] {
                 Config::buildFileSystemLogger(Properties(loggerEntries({{"log.kept", "-1"}})));
             }),
             BuildPrefix + "Le paramètre de configuration [log.kept=-1] est invalide");
}

void TestConfiguration::buildLoggerNeedsAFileName()
{
    for (const Entries& entries : {Entries(), Entries{{"log.filename", ""}}}) {
        QCOMPARE(failureText([&] { Config::buildFileSystemLogger(Properties(entries)); }),
                 BuildPrefix + "Invalid parameter \"log.filename\"=[]");
    }
}

void TestConfiguration::buildLoggerNeedsAWritableDirectory()
{
    QVERIFY(openToEverybody(_dir->path()));
    const QString directory = path("closed");
    QVERIFY(QDir().mkdir(directory));
    QVERIFY(QFile::setPermissions(directory, QFile::ReadOwner | QFile::ExeOwner | QFile::ReadOther |
                                                 QFile::ExeOther));
    const ChildResult child = runChild({"build", directory + "/app.log"});
    QVERIFY(openToEverybody(directory));
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(QString::fromUtf8(child.out),
             BuildPrefix + "Invalid parameter \"log.filename\"=[" + directory + "/app.log]");
}

void TestConfiguration::buildLoggerPutsABareFileNameIntoTheHomeDirectory()
{
    // The directory that is checked is the working directory.
    const QTemporaryDir working;
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(working.path()));
    const auto comeBack = qScopeGuard([&before] { QDir::setCurrent(before); });
    const EnvironmentGuard home("HOME", _dir->path().toLocal8Bit());
    Config::buildFileSystemLogger(Properties(Entries{{"log.filename", "app"}}));
    QVERIFY(QFile::exists(path("app-0.log")));
    QVERIFY(!QFile::exists(working.filePath("app-0.log")));
}

void TestConfiguration::buildLoggerLeavesThePropertiesAlone()
{
    const Properties properties(loggerEntries({{"a", "1"}}));
    const Entries before = *properties.toDictionnary();
    Config::buildFileSystemLogger(properties);
    QCOMPARE(*properties.toDictionnary(), before);
}

void TestConfiguration::getOrbuildBuildsAnotherEachTime()
{
    const Config config;
    config.properties()->insert(loggerEntries(), false);
    const auto first = config.getOrbuildFileSystemLogger();
    const auto second = config.getOrbuildFileSystemLogger();
    QVERIFY(first);
    QVERIFY(second);
    QVERIFY(first != second);
    QVERIFY(!config.logger());

    QVERIFY(!failureText([] { Config().getOrbuildFileSystemLogger(); }).isNull());
}

void TestConfiguration::getOrbuildReturnsTheLoggerHeld()
{
    Config config;
    const auto logger = quietLogger();
    config.setLogger(logger);
    QCOMPARE(config.logger(), logger);
    QCOMPARE(config.getOrbuildFileSystemLogger(), logger);
}

void TestConfiguration::forgetLoggerLetsGo()
{
    Config config;
    auto logger = quietLogger();
    const std::weak_ptr<Logger> watched = logger;
    config.setLogger(std::move(logger));
    config.forgetLogger();
    QVERIFY(!config.logger());
    QVERIFY(watched.expired());
    config.forgetLogger();
}

void TestConfiguration::streamHoldsOneTextPerProperty()
{
    Config config("2.1");
    config.properties()->insert(Entries{{"b", ""}, {"a", "1=2"}, {"", "x"}, {"clé", "€"}}, false);
    config.setLogger(quietLogger());
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream << config;
    QCOMPARE(bytes, streamed({"=x", "a=1=2", "app.version=2.1", "b=", "clé=€"}));
}

void TestConfiguration::streamOfNoPropertiesIsEmpty()
{
    const Config config;
    config.properties()->clear();
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream << config;
    QCOMPARE(bytes, QByteArray());

    Config read("1");
    QCOMPARE(readInto(read, bytes), QDataStream::Ok);
    QVERIFY(read.properties()->empty());
    QVERIFY(read.logger());
}

void TestConfiguration::streamRoundTrip()
{
    const Config config("2.1");
    config.properties()->insert(Entries{{"", "no key"},
                                        {" a ", " b "},
                                        {"#c", "d"},
                                        {"e", "f=g\nh"},
                                        {"NUL", QString(QChar(0))},
                                        {"ключ", "😀"}},
                                false);
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << config;
    Config read;
    QCOMPARE(readInto(read, bytes), QDataStream::Ok);
    QCOMPARE(entriesOf(read), entriesOf(config));
}

void TestConfiguration::streamRoundTripOf200000Properties()
{
    const Config config;
    for (int i = 0; i < 200000; ++i)
        config.properties()->insert("key." + QString::number(i), QString::number(i), false);
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << config;
    Config read;
    QCOMPARE(readInto(read, bytes), QDataStream::Ok);
    QVERIFY(entriesOf(read) == entriesOf(config));
}

void TestConfiguration::readingSplitsTexts_data()
{
    QTest::addColumn<QStringList>("texts");
    QTest::addColumn<Entries>("expected");
    QTest::newRow("first equals") << QStringList{"a=b=c"} << Entries{{"a", "b=c"}};
    QTest::newRow("no equals") << QStringList{"plain"} << Entries{{"plain", ""}};
    QTest::newRow("empty text") << QStringList{""} << Entries{{"", ""}};
    QTest::newRow("null text") << QStringList{QString()} << Entries{{"", ""}};
    QTest::newRow("equals alone") << QStringList{"="} << Entries{{"", ""}};
    QTest::newRow("empty key") << QStringList{"=v"} << Entries{{"", "v"}};
    QTest::newRow("empty value") << QStringList{"k="} << Entries{{"k", ""}};
    QTest::newRow("last of repeated keys")
        << QStringList{"a=1", "b=1", "a=2", "a"} << Entries{{"a", ""}, {"b", "1"}};
    QTest::newRow("number sign") << QStringList{"#a=1"} << Entries{{"#a", "1"}};
    QTest::newRow("version") << QStringList{"app.version=9"} << Entries{{"app.version", "9"}};
}

void TestConfiguration::readingSplitsTexts()
{
    QFETCH(QStringList, texts);
    QFETCH(Entries, expected);
    Config config("1");
    QCOMPARE(readInto(config, streamed(texts)), QDataStream::Ok);
    QCOMPARE(entriesOf(config), expected);
}

void TestConfiguration::readingReplacesPropertiesAndLogger()
{
    Config config("1");
    config.setLogger(quietLogger());
    const Config sharing(config);
    const auto logger = config.logger();

    QCOMPARE(readInto(config, streamed({"a=1"})), QDataStream::Ok);
    const Entries expected{{"a", "1"}};
    QCOMPARE(entriesOf(config), expected);
    QVERIFY(config.logger());
    QVERIFY(config.logger() != logger);
    QCOMPARE(shownNumber(*config.logger(), "_maxSize"), 0);
    QVERIFY(config.logger()->isTeeEnabled());
    QCOMPARE(config.logger()->filter(), LoggerLevel::debug);

    QCOMPARE(entriesOf(sharing), withVersion({}, "1"));
    QCOMPARE(sharing.logger(), logger);
}

void TestConfiguration::readingBuildsTheLogger()
{
    Config config;
    QCOMPARE(readInto(config, streamed({"log.filename=" + path("app"), "log.filter=info",
                                        "log.tee=0", "log.kept=3"})),
             QDataStream::Ok);
    config.logger()->info("one");
    config.logger()->debug("two");
    QCOMPARE(logged(), QStringList("one"));
    QCOMPARE(shownNumber(*config.logger(), "_kept"), 3);
}

void TestConfiguration::readingAnIllegalLoggerThrows()
{
    Config config;
    QCOMPARE(failureText([&] { readInto(config, streamed({"log.filename=/nonexistent/app"})); }),
             BuildPrefix + "Invalid parameter \"log.filename\"=[/nonexistent/app]");
}

void TestConfiguration::readingATruncatedStreamLeavesTheConfiguration()
{
    const QByteArray whole = streamed({"a=1", "bb=22"});
    const qsizetype boundary = streamed({"a=1"}).size();
    for (qsizetype size = 0; size < whole.size(); ++size) {
        Config config("1");
        const auto logger = quietLogger();
        config.setLogger(logger);
        const QDataStream::Status status = readInto(config, whole.first(size));
        if (size == 0 || size == boundary) {
            QCOMPARE(status, QDataStream::Ok);
            QCOMPARE(entriesOf(config), size == 0 ? Entries() : (Entries{{"a", "1"}}));
        } else {
            QVERIFY2(status != QDataStream::Ok, qPrintable(QString::number(size)));
            QCOMPARE(entriesOf(config), withVersion({}, "1"));
            QCOMPARE(config.logger(), logger);
        }
    }
}

void TestConfiguration::readingAHostileStreamLeavesTheConfiguration_data()
{
    QTest::addColumn<QByteArray>("bytes");
    const QByteArray sound = streamed({"a=1"});
    QTest::newRow("odd length") << QByteArray::fromHex("00000003616263");
    QTest::newRow("odd length after a sound text") << sound + QByteArray::fromHex("0000000100");
    QTest::newRow("2 GiB announced") << QByteArray::fromHex("7ffffffe00610062");
    QTest::newRow("nearly 4 GiB announced") << sound + QByteArray::fromHex("fffffffc0061");
    QTest::newRow("reserved length") << QByteArray::fromHex("fffffffe0061");
    QTest::newRow("length alone") << QByteArray::fromHex("00000002");
    QTest::newRow("a million bytes of one bits, less one")
        << QByteArray(1000000 - 1, static_cast<char>(0xFF));
}

void TestConfiguration::readingAHostileStreamLeavesTheConfiguration()
{
    QFETCH(QByteArray, bytes);
    Config config("1");
    QVERIFY(readInto(config, bytes) != QDataStream::Ok);
    QCOMPARE(entriesOf(config), withVersion({}, "1"));
    QVERIFY(!config.logger());
}

void TestConfiguration::readingAFailedStreamLeavesTheConfiguration_data()
{
    QTest::addColumn<QDataStream::Status>("status");
    QTest::addColumn<QByteArray>("bytes");
    const std::pair<const char*, QByteArray> rests[] = {{"nothing", QByteArray()},
                                                        {"a sound text", streamed({"a=1"})}};
    for (const auto& [name, bytes] : rests) {
        QTest::addRow("read past the end, %s is left", name) << QDataStream::ReadPastEnd << bytes;
        QTest::addRow("corrupt, %s is left", name) << QDataStream::ReadCorruptData << bytes;
        QTest::addRow("failed write, %s is left", name) << QDataStream::WriteFailed << bytes;
    }
}

void TestConfiguration::readingAFailedStreamLeavesTheConfiguration()
{
    QFETCH(QDataStream::Status, status);
    QFETCH(QByteArray, bytes);
    Config config("1");
    const auto logger = quietLogger();
    config.setLogger(logger);
    const auto properties = config.properties();

    QDataStream stream(bytes);
    stream.setStatus(status);
    stream >> config;
    QCOMPARE(stream.status(), status);
    QCOMPARE(stream.device()->pos(), 0);
    QCOMPARE(config.properties(), properties);
    QCOMPARE(entriesOf(config), withVersion({}, "1"));
    QCOMPARE(config.logger(), logger);
}

void TestConfiguration::readingConsumesTheStream()
{
    QByteArray bytes = streamed({"a=1", "behind the configuration"});
    QDataStream stream(bytes);
    Config config;
    stream >> config;
    QVERIFY(stream.atEnd());
    const Entries expected{{"a", "1"}, {"behind the configuration", ""}};
    QCOMPARE(entriesOf(config), expected);
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestConfiguration, childMain)

#include "tst_configuration.moc"
