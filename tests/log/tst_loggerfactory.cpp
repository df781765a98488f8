// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/failuretext.h"
#include "support/files.h"
#include "support/language.h"
#include "support/loggersettings.h"
#include "support/logrecords.h"
#include "support/messagecapture.h"

#include <kez/log.h>
#include <kez/logger.h>
#include <kez/properties.h>

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMetaEnum>
#include <QObject>
#include <QTemporaryDir>
#include <QTest>

using Entries = QMap<QString, QString>;

namespace {

const QString PropertiesPrefix =
    "shared_ptr<Logger> Logger::buildLog(const QMap<QString,QString>&) -> ";
const QString ConstructorPrefix =
    "Logger::Logger(const QString&, quint64, quint32, quint32, LogLevel, LogFormatter) -> ";
const QString DefaultTitle = "Start of track recording";
const QString MissingDirectory = "/nonexistent/%1 %2";

QString levelName(LoggerLevel::LogLevel level)
{
    return QMetaEnum::fromType<LoggerLevel::LogLevel>().valueToKey(level);
}

/// What a logger shows of its settings.
struct Shown {
    qint64 maxSize = 0;
    qint64 kept = 10;
    qint64 days = 7;
    QString filter = "warning";
    bool tee = false;
    QString title = "";
    bool listsConfiguration = false;

    static Shown of(const Logger& logger)
    {
        return {shownNumber(logger, "_maxSize"), shownNumber(logger, "_kept"),
                shownNumber(logger, "_timeout"), levelName(logger.filter()),
                logger.isTeeEnabled(),           logger.bannerTitle(),
                logger.recordConfigurationData()};
    }

    QString toString() const
    {
        return QString("size %1, kept %2, days %3, filter %4, tee %5, title '%6', lists %7")
            .arg(QString::number(maxSize), QString::number(kept), QString::number(days), filter,
                 QString::number(tee), title, QString::number(listsConfiguration));
    }
};

/// The settings if no member changes them.
Shown jsonDefaults()
{
    Shown shown;
    shown.maxSize = 1048576;
    shown.title = "[LogBannerTitle]";
    return shown;
}

QJsonObject jsonObject(const QString& text)
{
    return QJsonDocument::fromJson(text.toUtf8()).object();
}

} // namespace

class TestLoggerFactory : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void propertiesDefaults();
    void propertiesWithoutSizeStartAFileBeforeEveryLine();
    void propertiesFilter_data();
    void propertiesFilter();
    void propertiesTee_data();
    void propertiesTee();
    void propertiesNumbers_data();
    void propertiesNumbers();
    void propertiesRefuseNumbers_data();
    void propertiesRefuseNumbers();
    void propertiesNameTheFirstNumberRefused();
    void propertiesBanner_data();
    void propertiesBanner();
    void propertiesBannerInFrench();
    void propertiesFileName_data();
    void propertiesFileName();
    void propertiesAreOnlyRead();
    void propertiesFallBackToTheDefaultLogger();
    void propertiesFallBackInFrench();

    void jsonDefaultSettings();
    void jsonMembers_data();
    void jsonMembers();
    void jsonFilter_data();
    void jsonFilter();
    void jsonElements_data();
    void jsonElements();
    void jsonLoggerWritesItsFile();
    void jsonWithoutArrayIsTheDefaultLogger_data();
    void jsonWithoutArrayIsTheDefaultLogger();
    void jsonWithoutFileNameFallsBack_data();
    void jsonWithoutFileNameFallsBack();
    void jsonFallsBackToTheDefaultLogger();
    void fallBackMakesAnInstance();

private:
    QString path(const QString& name) const { return _dir->filePath(name); }
    std::shared_ptr<Logger> fromProperties(Entries entries = {}) const
    {
        entries.insert("log.filename", path("app.log"));
        return Logger::buildLog(Properties(entries));
    }
    /// `FILE` in the elements stands for the log file's name.
    std::shared_ptr<Logger> fromJson(QString elements) const
    {
        elements.replace("FILE", '"' + path("app.log") + '"');
        return Logger::buildLog(jsonObject("{\"log\": [" + elements + "]}"));
    }
    /// The lines of the process's default logger.
    QList<LogRecord> toldToDefault() const { return logRecords(path("facade-0.log")); }

    std::unique_ptr<QTemporaryDir> _dir;
    std::unique_ptr<Log> _log;
};

void TestLoggerFactory::init()
{
    useLanguage("en_US");
    _dir = std::make_unique<QTemporaryDir>();
    QVERIFY(_dir->isValid());
    _log = std::make_unique<Log>(path("facade"), false, 1 << 20, 5, 7, LoggerLevel::debug, nullptr);
}

void TestLoggerFactory::cleanup()
{
    _log.reset();
    _dir.reset();
}

void TestLoggerFactory::propertiesDefaults()
{
    const auto logger = fromProperties();
    Shown expected;
    expected.maxSize = 1;
    expected.title = DefaultTitle;
    QCOMPARE(Shown::of(*logger).toString(), expected.toString());
    QVERIFY(logger != _log->log());
    QVERIFY(logger->formatter() == LogFormatter(&Logger::formatter));
}

void TestLoggerFactory::propertiesWithoutSizeStartAFileBeforeEveryLine()
{
    const auto logger = fromProperties({{"log.filter", "info"}});
    for (const char* message : {"one", "two", "three"})
        logger->info(message);
    QCOMPARE(readFile(path("app-0.log")), "");
    QCOMPARE(logMessages(path("app-1.log"), "INFOR"), QStringList("one"));
    QCOMPARE(logMessages(path("app-2.log"), "INFOR"), QStringList("two"));
    QCOMPARE(logMessages(path("app-3.log"), "INFOR"), QStringList("three"));
    QVERIFY(!QFile::exists(path("app-4.log")));
}

void TestLoggerFactory::propertiesFilter_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("expected");
    for (const char* name : {"fatal", "error", "info"})
        QTest::newRow(name) << name << name;
    QTest::newRow("warn") << "warn"
                          << "warning";
    for (const char* name :
         {"warning", "debug", "FATAL", "Error", " info", "info ", "", "all", "wrn", "2", "verbose"})
        QTest::addRow("'%s' means debug", name) << name << "debug";
}

void TestLoggerFactory::propertiesFilter()
{
    QFETCH(QString, name);
    QFETCH(QString, expected);
    QCOMPARE(levelName(fromProperties({{"log.filter", name}})->filter()), expected);
}

void TestLoggerFactory::propertiesTee_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("expected");
    QTest::newRow("0") << "0" << false;
    for (const char* value : {"1", "yes", "no", "false", "off", "", " 0", "0 ", "00", "-0"})
        QTest::addRow("'%s' means on", value) << value << true;
}

void TestLoggerFactory::propertiesTee()
{
    QFETCH(QString, value);
    QFETCH(bool, expected);
    QCOMPARE(fromProperties({{"log.tee", value}})->isTeeEnabled(), expected);
}

void TestLoggerFactory::propertiesNumbers_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("field");
    QTest::addColumn<quint64>("expected");
    const auto row = [](const char* name, const char* key, const char* value, const char* field,
                        quint64 expected) {
        QTest::newRow(name) << key << value << field << expected;
    };
    row("size", "log.maxsize", "4096", "_maxSize", 4096);
    row("size 0 is the constructor's default", "log.maxsize", "0", "_maxSize", 1048576);
    row("size, largest", "log.maxsize", "18446744073709551615", "_maxSize", 18446744073709551615U);
    row("size in base 10", "log.maxsize", "0100", "_maxSize", 100);
    row("kept", "log.kept", "3", "_kept", 3);
    row("kept 0 is the constructor's default", "log.kept", "0", "_kept", 5);
    row("kept, largest", "log.kept", "4294967295", "_kept", 4294967295);
    row("age", "log.timeout", "30", "_timeout", 30);
    row("age 0", "log.timeout", "0", "_timeout", 0);
    row("age, largest", "log.timeout", "4294967295", "_timeout", 4294967295);
}

void TestLoggerFactory::propertiesNumbers()
{
    QFETCH(QString, key);
    QFETCH(QString, value);
    QFETCH(QString, field);
    QFETCH(quint64, expected);
    const auto logger = fromProperties({{key, value}});
    QCOMPARE(static_cast<quint64>(shownNumber(*logger, field)), expected);
}

void TestLoggerFactory::propertiesRefuseNumbers_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    for (const char* key : {"log.maxsize", "log.kept", "log.timeout"}) {
        for (const char* value : {"abc", "", "-1", "1.5", "0x10", "1e3", "1 2", "1,000", "%1 %2",
                                  "18446744073709551616"})
            QTest::addRow("%s=%s", key, value) << key << value;
    }
    QTest::newRow("kept beyond 32 bits") << "log.kept"
                                         << "4294967296";
    QTest::newRow("age beyond 32 bits") << "log.timeout"
                                        << "4294967296";
}

void TestLoggerFactory::propertiesRefuseNumbers()
{
    QFETCH(QString, key);
    QFETCH(QString, value);
    const auto build = [&] { fromProperties({{key, value}}); };
    QCOMPARE(failureText(build),
             PropertiesPrefix + "Invalid parameter \"" + key + "\"=[" + value + "]");
    useLanguage("fr_FR");
    QCOMPARE(failureText(build),
             PropertiesPrefix + "Paramètre \"" + key + "\"=[" + value + "] invalide");
    QVERIFY(!QFile::exists(path("app-0.log")));
    QVERIFY(toldToDefault().isEmpty());
}

void TestLoggerFactory::propertiesNameTheFirstNumberRefused()
{
    Entries entries{{"log.maxsize", "a"}, {"log.kept", "b"}, {"log.timeout", "c"}};
    const auto build = [&] { fromProperties(entries); };
    for (const char* key : {"log.maxsize", "log.kept", "log.timeout"}) {
        QCOMPARE(failureText(build), PropertiesPrefix + "Invalid parameter \"" + key + "\"=[" +
                                         entries.value(key) + "]");
        entries.remove(key);
    }
    QCOMPARE(failureText(build), QString());
}

void TestLoggerFactory::propertiesBanner_data()
{
    QTest::addColumn<Entries>("entries");
    QTest::addColumn<QString>("title");
    QTest::addColumn<bool>("listsConfiguration");
    const auto row = [](const char* name, const Entries& entries, const QString& title,
                        bool listsConfiguration) {
        QTest::newRow(name) << entries << title << listsConfiguration;
    };
    row("neither key", {}, DefaultTitle, false);
    row("title alone does not count", {{"banner.title", "Mine"}}, DefaultTitle, false);
    row("flag alone", {{"banner.properties", "1"}}, DefaultTitle, true);
    row("both", {{"banner.title", "Mine %1"}, {"banner.properties", "1"}}, "Mine %1", true);
    row("title with a flag of 0", {{"banner.title", "Mine"}, {"banner.properties", "0"}}, "Mine",
        false);
    row("empty title", {{"banner.title", ""}, {"banner.properties", "1"}}, "", true);
    row("title is not trimmed", {{"banner.title", " a "}, {"banner.properties", "0"}}, " a ",
        false);
    for (const char* value : {"1", "true", "TRUE", " True\t", " 1 "}) {
        QTest::addRow("flag '%s' means yes", value)
            << Entries{{"banner.properties", value}} << DefaultTitle << true;
    }
    for (const char* value : {"0", "", "yes", "vrai", "01", "2", "on", "t"}) {
        QTest::addRow("flag '%s' means no", value)
            << Entries{{"banner.properties", value}} << DefaultTitle << false;
    }
    row("the validator's keys do not count",
        {{"log.banner.title", "Mine"}, {"log.banner.properties", "1"}}, DefaultTitle, false);
}

void TestLoggerFactory::propertiesBanner()
{
    QFETCH(Entries, entries);
    QFETCH(QString, title);
    QFETCH(bool, listsConfiguration);
    const auto logger = fromProperties(entries);
    QCOMPARE(logger->bannerTitle(), title);
    QCOMPARE(logger->recordConfigurationData(), listsConfiguration);
}

void TestLoggerFactory::propertiesBannerInFrench()
{
    useLanguage("fr_FR");
    QCOMPARE(fromProperties()->bannerTitle(), "Debut de l'enregistrement des traces");
}

void TestLoggerFactory::propertiesFileName_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("file");
    QTest::newRow("with suffix") << "server.log"
                                 << "server-0.log";
    QTest::newRow("without suffix") << "server"
                                    << "server-0.log";
    QTest::newRow("suffix in capitals") << "server.LOG"
                                        << "server.LOG-0.log";
}

void TestLoggerFactory::propertiesFileName()
{
    QFETCH(QString, name);
    QFETCH(QString, file);
    const auto logger = Logger::buildLog(Properties(Entries{{"log.filename", path(name)}}));
    QVERIFY(QFile::exists(path(file)));
}

void TestLoggerFactory::propertiesAreOnlyRead()
{
    Properties properties(Entries{{"log.filename", path("app")}, {"banner.title", "Mine"}});
    const Entries before = *properties.toDictionnary();
    QVERIFY(Logger::buildLog(properties));
    QCOMPARE(*properties.toDictionnary(), before);
}

void TestLoggerFactory::propertiesFallBackToTheDefaultLogger()
{
    const QString text = ConstructorPrefix + "Access to directory [" + MissingDirectory +
                         "] is impossible or file rights are insufficient.";
    for (const bool tee : {false, true}) {
        std::shared_ptr<Logger> logger;
        QList<MessageCapture::Message> messages;
        {
            const MessageCapture capture;
            logger = Logger::buildLog(Properties(Entries{{"log.filename", MissingDirectory + "/a"},
                                                         {"log.tee", tee ? "1" : "0"},
                                                         {"log.filter", "fatal"},
                                                         {"banner.title", "Mine"},
                                                         {"banner.properties", "true"}}));
            messages = capture.messages();
        }
        QCOMPARE(messages.size(), 1);
        QCOMPARE(messages.first().type, QtCriticalMsg);
        QCOMPARE(messages.first().category, "default");
        QCOMPARE(messages.first().text, text);
        QCOMPARE(logger, _log->log());
        QCOMPARE(logger->isTeeEnabled(), tee);
        QCOMPARE(logger->filter(), LoggerLevel::debug);
        QCOMPARE(logger->bannerTitle(), "Mine");
        QVERIFY(logger->recordConfigurationData());
        logger->disableTee();
    }
    const LogRecord record{"ERROR", text};
    const QList<LogRecord> expected{record, record};
    QVERIFY(toldToDefault() == expected);
}

void TestLoggerFactory::propertiesFallBackInFrench()
{
    useLanguage("fr_FR");
    const MessageCapture capture;
    const auto logger =
        Logger::buildLog(Properties(Entries{{"log.filename", MissingDirectory + "/a"}}));
    QCOMPARE(logger, _log->log());
    QCOMPARE(capture.texts(),
             QStringList(ConstructorPrefix + "L'accès au répertoire [" + MissingDirectory +
                         "] est impossible ou les droits du compte utilisé sont insuffisants"));
    QCOMPARE(logger->bannerTitle(), "Debut de l'enregistrement des traces");
}

void TestLoggerFactory::jsonDefaultSettings()
{
    const auto logger = fromJson("{\"fileName\": FILE}");
    QCOMPARE(Shown::of(*logger).toString(), jsonDefaults().toString());
    QVERIFY(logger != _log->log());
    QVERIFY(logger->formatter() == LogFormatter(&Logger::formatter));
}

void TestLoggerFactory::jsonMembers_data()
{
    QTest::addColumn<QString>("members");
    QTest::addColumn<QString>("expected");
    const auto row = [](const char* name, const QString& members, auto change) {
        Shown shown = jsonDefaults();
        change(shown);
        QTest::newRow(name) << members << shown.toString();
    };
    const auto ignored = [](const char* name, const QString& members) {
        QTest::addRow("ignored: %s", name) << members << jsonDefaults().toString();
    };

    row("size", R"("maxSize": 4096)", [](Shown& s) { s.maxSize = 4096; });
    row("size beyond 32 bits", R"("maxSize": 6000000000)",
        [](Shown& s) { s.maxSize = 6000000000; });
    row("size beyond the mantissa of a double", R"("maxSize": 9007199254740993)",
        [](Shown& s) { s.maxSize = 9007199254740993; });
    row("size 1", R"("maxSize": 1)", [](Shown& s) { s.maxSize = 1; });
    row("size 0 is the constructor's default", R"("maxSize": 0)", [](Shown&) {});
    row("kept", R"("kept": 3)", [](Shown& s) { s.kept = 3; });
    row("kept 0 is the constructor's default", R"("kept": 0)", [](Shown& s) { s.kept = 5; });
    row("kept, largest", R"("kept": 4294967295)", [](Shown& s) { s.kept = 4294967295; });
    row("age", R"("timeout": 30)", [](Shown& s) { s.days = 30; });
    row("age 0", R"("timeout": 0)", [](Shown& s) { s.days = 0; });
    row("age, largest", R"("timeout": 4294967295)", [](Shown& s) { s.days = 4294967295; });
    row("tee on", R"("tee": true)", [](Shown& s) { s.tee = true; });
    row("tee off", R"("tee": false)", [](Shown&) {});
    row("filter", R"("filter": "err")", [](Shown& s) { s.filter = "error"; });
    row("banner", R"("banner": [{"title": "Mine %1", "properties": true}])", [](Shown& s) {
        s.title = "Mine %1";
        s.listsConfiguration = true;
    });
    row("title alone counts", R"("banner": [{"title": "Mine"}])",
        [](Shown& s) { s.title = "Mine"; });
    row("empty title", R"("banner": [{"title": ""}])", [](Shown& s) { s.title = ""; });
    row("flag alone", R"("banner": [{"properties": true}])",
        [](Shown& s) { s.listsConfiguration = true; });
    row("banner in several elements",
        R"("banner": [{"title": "A", "properties": true}, 7, "x", {"title": "B"}])", [](Shown& s) {
            s.title = "B";
            s.listsConfiguration = true;
        });
    row("all members",
        R"("maxSize": 1, "kept": 2, "timeout": 3, "filter": "inf", "tee": true,
           "banner": [{"title": "T", "properties": false}])",
        [](Shown& s) { s = {1, 2, 3, "info", true, "T", false}; });
    row("wrong members among right ones", R"("kept": "x", "timeout": 3, "tee": 1)",
        [](Shown& s) { s.days = 3; });

    ignored("size as text", R"("maxSize": "4096")");
    ignored("size as boolean", R"("maxSize": true)");
    ignored("size null", R"("maxSize": null)");
    ignored("size negative", R"("maxSize": -1)");
    ignored("size with a fraction", R"("maxSize": 4096.5)");
    ignored("size out of range", R"("maxSize": 1e30)");
    ignored("kept as text", R"("kept": "3")");
    ignored("kept as array", R"("kept": [3])");
    ignored("kept negative", R"("kept": -3)");
    ignored("kept beyond 32 bits", R"("kept": 4294967296)");
    ignored("age as text", R"("timeout": "30")");
    ignored("age as object", R"("timeout": {"days": 30})");
    ignored("age negative", R"("timeout": -30)");
    ignored("age beyond 32 bits", R"("timeout": 4294967296)");
    ignored("filter as number", R"("filter": 4)");
    ignored("filter as array", R"("filter": ["fatal"])");
    ignored("tee as number", R"("tee": 1)");
    ignored("tee as text", R"("tee": "true")");
    ignored("banner as object", R"("banner": {"title": "Mine", "properties": true})");
    ignored("banner as text", R"("banner": "Mine")");
    ignored("title as number", R"("banner": [{"title": 1}])");
    ignored("title null", R"("banner": [{"title": null}])");
    ignored("flag as number", R"("banner": [{"properties": 1}])");
    ignored("flag as text", R"("banner": [{"properties": "true"}])");
    ignored("names in another case", R"("maxsize": 1, "Kept": 2, "TEE": true, "Filter": "fatal")");
    ignored("unknown members", R"("other": 1, "log": [{"kept": 3}], "title": "Mine")");
}

void TestLoggerFactory::jsonMembers()
{
    QFETCH(QString, members);
    QFETCH(QString, expected);
    const auto logger = fromJson("{\"fileName\": FILE, " + members + "}");
    QCOMPARE(Shown::of(*logger).toString(), expected);
    QVERIFY(toldToDefault().isEmpty());
}

void TestLoggerFactory::jsonFilter_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("expected");
    const QMap<QString, QStringList> names{{"info", {"inf", "info", "information"}},
                                           {"warning", {"wrn", "warning"}},
                                           {"error", {"err", "error"}},
                                           {"fatal", {"ftl", "fatal"}},
                                           {"debug", {"dbg", "debug", "all"}}};
    for (auto it = names.begin(); it != names.end(); ++it) {
        for (const QString& name : it.value())
            QTest::newRow(qPrintable(name)) << name << it.key();
    }
    for (const char* name : {"verbose", "warn", "INFO", "Fatal", " err", "err ", "", "4"})
        QTest::addRow("'%s' leaves the level", name) << name << QString();
}

void TestLoggerFactory::jsonFilter()
{
    QFETCH(QString, name);
    QFETCH(QString, expected);
    const auto logger = fromJson("{\"fileName\": FILE, \"filter\": \"" + name + "\"}");
    QCOMPARE(levelName(logger->filter()), expected.isNull() ? "warning" : expected);

    // An unknown name keeps the level of the element before, not the default.
    const auto second =
        fromJson("{\"fileName\": FILE, \"filter\": \"fatal\"}, {\"filter\": \"" + name + "\"}");
    QCOMPARE(levelName(second->filter()), expected.isNull() ? "fatal" : expected);
}

void TestLoggerFactory::jsonElements_data()
{
    QTest::addColumn<QString>("elements");
    QTest::addColumn<qint64>("kept");
    QTest::addColumn<qint64>("days");
    const auto row = [](const char* name, const QString& elements, qint64 kept, qint64 days) {
        QTest::newRow(name) << elements << kept << days;
    };
    row("members over several elements", R"({"kept": 3}, {"fileName": FILE}, {"timeout": 4})", 3,
        4);
    row("later elements override", R"({"fileName": FILE, "kept": 3}, {"kept": 5, "timeout": 6})", 5,
        6);
    row("later elements of a wrong type do not", R"({"fileName": FILE, "kept": 3}, {"kept": "5"})",
        3, 7);
    row("other types are skipped", R"(1, "kept", null, [{"kept": 9}], true, {"fileName": FILE})",
        10, 7);
    row("later file names override", R"({"fileName": "/nonexistent/x"}, {"fileName": FILE})", 10,
        7);
    row("a file name of a wrong type does not", R"({"fileName": FILE}, {"fileName": 1})", 10, 7);
}

void TestLoggerFactory::jsonElements()
{
    QFETCH(QString, elements);
    QFETCH(qint64, kept);
    QFETCH(qint64, days);
    const auto logger = fromJson(elements);
    QCOMPARE(shownNumber(*logger, "_kept"), kept);
    QCOMPARE(shownNumber(*logger, "_timeout"), days);
    QVERIFY(QFile::exists(path("app-0.log")));
    QVERIFY(toldToDefault().isEmpty());
}

void TestLoggerFactory::jsonLoggerWritesItsFile()
{
    const auto logger = fromJson(R"({"fileName": FILE, "filter": "info"})");
    logger->debug("hidden");
    logger->info("one");
    logger->info("two");
    const QStringList expected{"one", "two"};
    QCOMPARE(logMessages(path("app-0.log"), "INFOR"), expected);
}

void TestLoggerFactory::jsonWithoutArrayIsTheDefaultLogger_data()
{
    QTest::addColumn<QString>("json");
    QTest::newRow("empty object") << "{}";
    QTest::newRow("log as object") << R"({"log": {"fileName": "/tmp/x", "tee": true}})";
    QTest::newRow("log as text") << R"({"log": "x"})";
    QTest::newRow("log as number") << R"({"log": 1})";
    QTest::newRow("log null") << R"({"log": null})";
    QTest::newRow("name in another case") << R"({"Log": []})";
}

void TestLoggerFactory::jsonWithoutArrayIsTheDefaultLogger()
{
    QFETCH(QString, json);
    const QString before = Shown::of(*_log->log()).toString();
    const MessageCapture capture;
    QCOMPARE(Logger::buildLog(jsonObject(json)), _log->log());
    QCOMPARE(capture.texts(), QStringList());
    QVERIFY(toldToDefault().isEmpty());
    QCOMPARE(Shown::of(*_log->log()).toString(), before);
}

void TestLoggerFactory::jsonWithoutFileNameFallsBack_data()
{
    QTest::addColumn<QString>("elements");
    QTest::newRow("no element") << "";
    QTest::newRow("no object") << "1, \"x\"";
    QTest::newRow("no file name") << R"({"kept": 3})";
    QTest::newRow("file name of a wrong type") << R"({"fileName": 1})";
    QTest::newRow("empty file name") << R"({"fileName": ""})";
}

void TestLoggerFactory::jsonWithoutFileNameFallsBack()
{
    QFETCH(QString, elements);
    const QString text = "shared_ptr<Logger> Logger::buildLog(const QJsonObject&) -> "
                         "Invalid parameter \"fileName\"=[]";
    const MessageCapture capture;
    QCOMPARE(fromJson(elements), _log->log());
    QCOMPARE(capture.texts(), QStringList(text));
    QCOMPARE(capture.messages().first().type, QtCriticalMsg);
    const QList<LogRecord> expected{{"ERROR", text}};
    QVERIFY(toldToDefault() == expected);
}

void TestLoggerFactory::jsonFallsBackToTheDefaultLogger()
{
    const QString text = ConstructorPrefix + "Access to directory [" + MissingDirectory +
                         "] is impossible or file rights are insufficient.";
    std::shared_ptr<Logger> logger;
    QList<MessageCapture::Message> messages;
    {
        const MessageCapture capture;
        logger =
            fromJson(R"({"fileName": ")" + MissingDirectory +
                     R"(/a", "tee": true, "banner": [{"title": "Mine", "properties": true}]})");
        messages = capture.messages();
    }
    QCOMPARE(messages.size(), 1);
    QCOMPARE(messages.first().type, QtCriticalMsg);
    QCOMPARE(messages.first().category, "default");
    QCOMPARE(messages.first().text, text);
    QCOMPARE(logger, _log->log());
    QVERIFY(logger->isTeeEnabled());
    QCOMPARE(logger->bannerTitle(), "Mine");
    QVERIFY(logger->recordConfigurationData());
    const QList<LogRecord> expected{{"ERROR", text}};
    QVERIFY(toldToDefault() == expected);

    const MessageCapture capture;
    fromJson(R"({"fileName": ")" + MissingDirectory + R"(/a"})");
    QVERIFY(!logger->isTeeEnabled());
    QCOMPARE(logger->bannerTitle(), "[LogBannerTitle]");
    QVERIFY(!logger->recordConfigurationData());
}

void TestLoggerFactory::fallBackMakesAnInstance()
{
    _log.reset();
    const MessageCapture capture;
    const auto logger = Logger::buildLog(QJsonObject());
    QVERIFY(logger);
    QCOMPARE(logger, Log::getInstance()->log());
    QCOMPARE(capture.texts(), QStringList());
}

QTEST_GUILESS_MAIN(TestLoggerFactory)

#include "tst_loggerfactory.moc"
