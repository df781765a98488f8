// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/kittexts_p.h"
#include "support/childprocess.h"
#include "support/environmentguard.h"
#include "support/failuretext.h"
#include "support/files.h"
#include "support/language.h"
#include "support/loggersettings.h"
#include "support/logrecords.h"

#include <kez/configuration.h>
#include <kez/initlib.h>
#include <kez/loggerconfigcontroller.h>
#include <kez/service/configsection.h>
#include <kez/service/loadconfig.h>
#include <kez/service/sectionlogger.h>
#include <kez/service/servicelog.h>

#include <QDir>
#include <QRandomGenerator>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTemporaryFile>
#include <QtTest>

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>

using namespace KezService;

using Entries = QMap<QString, QString>;

namespace {

QStringList faultsOf(const Entries& entries, const QString& name = QString())
{
    Properties properties(entries);
    const auto controller = name.isNull() ? std::make_unique<SectionLogController>()
                                          : std::make_unique<SectionLogController>(name);
    const bool isLegal = controller->isLegalConfiguration(&properties);
    QStringList faults = controller->errors();
    if (isLegal != faults.isEmpty())
        faults.prepend("the answer and the faults differ");
    return faults;
}

/// Checks and builds a file name as an ordinary user; prints the two verdicts.
int childMain(const QStringList& arguments)
{
    qputenv("LANG", "en_US.UTF-8");
    kezEnsureInit();
    if (!becomeOrdinaryUser())
        return 2;
    const Entries entries = {{"audit.log.filename", arguments.value(0)}};
    std::puts(faultsOf(entries).join('\n').toUtf8().constData());
    std::puts(failureText([&] {
                  Config::buildFileSystemLogger(section(Properties(entries), "audit"));
              }).isEmpty()
                  ? "builds"
                  : "does not build");
    return 0;
}

} // namespace

class TestSectionLogger : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();

    void soundSectionPasses();
    void configurationWithoutLoggersPasses();
    void namedLoggerHasToBeThere();
    void processLogIsTheOneWithoutAName();
    void processLogThatPassesOpens_data();
    void processLogThatPassesOpens();
    void nullIsAFault();
    void eachFaultNamesTheWholeKey_data();
    void eachFaultNamesTheWholeKey();
    void allFaultsOfASectionAreFound();
    void valueThatLooksLikeAKeyStays();
    void controlCharactersAreEscaped();
    void faultsAreInTheLanguageOfTheProcess();
    void faultsOfAllSectionsAreFound();
    void otherSectionsAreNotChecked();
    void answerIsThatOfThisRun();
    void fileWithoutADirectoryIsInTheHomeDirectory();
    void filesMustNotBeShared_data();
    void filesMustNotBeShared();
    void directoryThatCannotBeEnteredIsAFault();
    void fileThatCannotBeOpenedIsAFault_data();
    void fileThatCannotBeOpenedIsAFault();
    void checkCreatesNothing();
    void whatPassesBuilds();

    void loggerIsBuiltAsItsSectionSays();
    void ringIsRepairedBeforeItIsOpened_data();
    void ringIsRepairedBeforeItIsOpened();
    void loggerOfAFaultySectionIsNotBuilt();
    void loggersAreRegistered();
    void registrationIsAllOrNothing();
    void nameThatIsTakenIsAFault();
    void processesLogIsTheDefault();

private:
    QString path(const char* name) const { return _directory->filePath(QString::fromUtf8(name)); }
    Entries legal(const Entries& more = {}) const
    {
        Entries entries = {{"audit.log.filename", path("audit.log")}};
        entries.insert(more);
        return entries;
    }
    QStringList files() const
    {
        return QDir(_directory->path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }

    std::unique_ptr<QTemporaryDir> _directory;
};

void TestSectionLogger::init()
{
    useLanguage("en_US");
    _directory = std::make_unique<QTemporaryDir>();
    QVERIFY(_directory->isValid());
}

void TestSectionLogger::soundSectionPasses()
{
    QCOMPARE(faultsOf(legal()), QStringList());
    const Entries full = legal({{"audit.log.maxsize", "18446744073709551615"},
                                {"audit.log.kept", "4294967295"},
                                {"audit.log.timeout", "0"},
                                {"audit.log.filter", "error"},
                                {"audit.log.tee", "1"},
                                {"audit.log.banner.title", "Audit %1"},
                                {"audit.log.banner.properties", "0"},
                                {"audit.log.format", "of the application's own"}});
    QCOMPARE(faultsOf(full), QStringList());
    QCOMPARE(faultsOf(full, "audit"), QStringList());
}

void TestSectionLogger::configurationWithoutLoggersPasses()
{
    QCOMPARE(faultsOf({}), QStringList());
    QCOMPARE(faultsOf({{"log.kept", "the main log is not of its business"}}), QStringList());
}

void TestSectionLogger::namedLoggerHasToBeThere()
{
    QCOMPARE(faultsOf({}, "audit"),
             QStringList("audit.log.filename is missing or empty: it has to name the log file, "
                         "for example audit.log.filename=/var/log/audit.log"));
}

void TestSectionLogger::processLogIsTheOneWithoutAName()
{
    const auto faults = [](const Entries& entries) {
        Properties properties(entries);
        ProcessLogController controller;
        const bool isLegal = controller.isLegalConfiguration(&properties);
        return isLegal ? QStringList("passes") : controller.errors();
    };
    const QStringList passes("passes");
    QCOMPARE(faults({{"log.filename", path("app")}, {"log.kept", "0"}}), passes);
    QCOMPARE(faults({{"log.filename", path("app")}, {"log.kept", "-1"}, {"log.filter", "warn"}}),
             (QStringList{"log.kept=[-1]: must be a whole number from 0 to 4294967295",
                          "log.filter=[warn]: must be one of debug, info, warning, error, fatal"}));
    QCOMPARE(faults({{".log.filename", path("app")}}),
             QStringList("log.filename is missing or empty: it has to name the log file, for "
                         "example log.filename=/var/log/app.log"));
    QCOMPARE(faults(legal({{"log.filename", path("audit")}})),
             QStringList("log.filename=[" + path("audit") +
                         "]: [audit.log.filename] leads to the "
                         "same log files; each logger needs files of its own"));
    QCOMPARE(faults(legal({{"log.filename", path("app")}, {"audit.log.kept", "-1"}})), passes);
    QCOMPARE(faultsOf({}, "").size(), 1);
    QCOMPARE(files(), QStringList());
}

void TestSectionLogger::processLogThatPassesOpens_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    for (const char* key : {"log.maxsize", "log.kept", "log.timeout"}) {
        for (const char* value : {"-1", "4294967296", "18446744073709551616", "0", "1", "x", ""})
            QTest::addRow("%s=%s", key, value) << key << value;
    }
    QTest::newRow("no file") << "log.filename"
                             << "";
    QTest::newRow("no directory") << "log.filename"
                                  << "/nowhere/app";
}

void TestSectionLogger::processLogThatPassesOpens()
{
    QFETCH(const QString, key);
    QFETCH(const QString, value);
    Entries entries = {{"log.filename", path("app")}};
    entries.insert(key, value);
    QTemporaryFile file;
    QVERIFY(file.open());
    for (auto entry = entries.cbegin(); entry != entries.cend(); ++entry)
        file.write((entry.key() + '=' + entry.value() + '\n').toUtf8());
    file.close();
    const QString refusal = failureText(
        [&] { loadConfig(file.fileName(), "1", validatorsOf<ProcessLogController>()); });
    const auto closeLog = qScopeGuard([] { delete Log::getInstance(); });
    const QString failure = failureText([&] { openLog(*loadConfig(file.fileName(), "1")); });
    QCOMPARE(refusal.isEmpty(), failure.isEmpty());
    QVERIFY(refusal.isEmpty() || refusal.contains(key));
}

void TestSectionLogger::nullIsAFault()
{
    SectionLogController controller;
    QVERIFY(!controller.isLegalConfiguration(nullptr));
    QCOMPARE(controller.errors(), QStringList(kitText("ConfigNoProperties")));
}

void TestSectionLogger::eachFaultNamesTheWholeKey_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("reason");
    const auto rows = [](const char* key, const QStringList& values, const char* reason) {
        for (const QString& value : values)
            QTest::newRow(qPrintable(key + ('=' + value))) << key << value << reason;
    };
    const QStringList noNumbers = {"-1", "", " ", "ten", "1.5", "0x10"};
    rows("audit.log.maxsize", noNumbers + QStringList("18446744073709551616"),
         "must be a whole number from 0 to 18446744073709551615");
    for (const char* key : {"audit.log.kept", "audit.log.timeout"})
        rows(key, noNumbers + QStringList("4294967296"),
             "must be a whole number from 0 to 4294967295");
    for (const char* key : {"audit.log.tee", "audit.log.banner.properties"})
        rows(key, {"", "yes", "1.0"}, "must be 1 (yes) or 0 (no)");
    rows("audit.log.filter", {"", "warn", "Debug", "verbose"},
         "must be one of debug, info, warning, error, fatal");
    rows("audit.log.banner.title", {"%2", "%1 %L10"},
         "the only place marker of a title is %1, the version");
}

void TestSectionLogger::eachFaultNamesTheWholeKey()
{
    QFETCH(const QString, key);
    QFETCH(const QString, value);
    QFETCH(const QString, reason);
    const QString expected = key + "=[" + value + "]: " + reason;
    QCOMPARE(faultsOf(legal({{key, value}})), QStringList(expected));
}

void TestSectionLogger::allFaultsOfASectionAreFound()
{
    const QString missing = path("missing");
    const QStringList faults = faultsOf({{"audit.log.filename", missing + "/a.log"},
                                         {"audit.log.maxsize", "-1"},
                                         {"audit.log.kept", "many"},
                                         {"audit.log.timeout", "-1"},
                                         {"audit.log.tee", "on"},
                                         {"audit.log.banner.properties", "on"},
                                         {"audit.log.banner.title", "%9"},
                                         {"audit.log.filter", "all"}});
    QCOMPARE(faults.size(), 8);
    QCOMPARE(faults.first(), "audit.log.filename=[" + missing + "/a.log]: the directory [" +
                                 missing + "] does not exist, or may not be read and written");
}

void TestSectionLogger::valueThatLooksLikeAKeyStays()
{
    QCOMPARE(faultsOf(legal({{"audit.log.filter", "log.filter %1 %2"}})),
             QStringList("audit.log.filter=[log.filter %1 %2]: must be one of debug, info, "
                         "warning, error, fatal"));
}

void TestSectionLogger::controlCharactersAreEscaped()
{
    QCOMPARE(faultsOf({{"a\nb.log.filename", path("x")}, {"a\nb.log.kept", "1\n2"}}),
             QStringList("a\\nb.log.kept=[1\\n2]: must be a whole number from 0 to 4294967295"));
}

void TestSectionLogger::faultsAreInTheLanguageOfTheProcess()
{
    useLanguage("fr_FR");
    QCOMPARE(faultsOf(legal({{"audit.log.kept", "-1"}})),
             QStringList("audit.log.kept=[-1] : doit être un nombre entier de 0 à 4294967295"));
}

void TestSectionLogger::faultsOfAllSectionsAreFound()
{
    const QStringList faults =
        faultsOf(legal({{"audit.log.kept", "-1"}, {"billing.log.kept", "3"}}));
    QCOMPARE(faults.size(), 2);
    QVERIFY(faults[0].startsWith("audit.log.kept=[-1]"));
    QVERIFY(faults[1].startsWith("billing.log.filename "));
}

void TestSectionLogger::otherSectionsAreNotChecked()
{
    const Entries entries = legal({{"billing.log.kept", "-1"}, {"log.kept", "-1"}});
    QCOMPARE(faultsOf(entries, "audit"), QStringList());
    QCOMPARE(faultsOf(entries, "billing").size(), 2);
}

void TestSectionLogger::answerIsThatOfThisRun()
{
    Properties faulty(legal({{"audit.log.kept", "-1"}}));
    Properties sound(legal());
    SectionLogController controller;
    QVERIFY(!controller.isLegalConfiguration(&faulty));
    QVERIFY(controller.isLegalConfiguration(&sound));
    QCOMPARE(controller.errors().size(), 1);
}

void TestSectionLogger::fileWithoutADirectoryIsInTheHomeDirectory()
{
    QVERIFY(QDir(_directory->path()).mkdir("work") && QDir(_directory->path()).mkdir("home"));
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(path("work")));
    const auto restore = qScopeGuard([&] { QDir::setCurrent(before); });
    const Entries entries = {{"audit.log.filename", "audit.log"}};
    const auto noDirectory = [](const QString& directory) {
        return QStringList("audit.log.filename=[audit.log]: the directory [" + directory +
                           "] does not exist, or may not be read and written");
    };
    {
        const EnvironmentGuard home("HOME", path("home").toLocal8Bit());
        QCOMPARE(faultsOf(entries), QStringList());
        QVERIFY(buildSectionLogger(Properties(entries), "audit"));
        QVERIFY(QFile::exists(path("home/audit-0.log")));
    }
    const EnvironmentGuard home("HOME", path("missing").toLocal8Bit());
    QCOMPARE(faultsOf(entries), noDirectory(path("missing")));
}

void TestSectionLogger::filesMustNotBeShared_data()
{
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("second");
    QTest::addColumn<bool>("isShared");
    QTest::newRow("same") << "app.log"
                          << "app.log" << true;
    QTest::newRow("without the suffix") << "app.log"
                                        << "app" << true;
    QTest::newRow("through a link") << "app.log"
                                    << "link/app.log" << true;
    QTest::newRow("another way to write it") << "app.log"
                                             << "./sub/../app.log" << true;
    QTest::newRow("another name") << "app.log"
                                  << "app2.log" << false;
    QTest::newRow("another directory") << "app.log"
                                       << "sub/app.log" << false;
}

void TestSectionLogger::filesMustNotBeShared()
{
    QFETCH(const QString, first);
    QFETCH(const QString, second);
    QFETCH(const bool, isShared);
    QVERIFY(QDir(_directory->path()).mkdir("sub"));
    QVERIFY(QFile::link(_directory->path(), path("link")));
    const QString firstPath = _directory->path() + '/' + first;
    const QString secondPath = _directory->path() + '/' + second;
    const QString fault = "a.log.filename=[%1]: [%2] leads to the same log files; each logger "
                          "needs files of its own";

    const Entries sections = {{"a.log.filename", firstPath}, {"b.log.filename", secondPath}};
    QCOMPARE(faultsOf(sections, "a"),
             isShared ? QStringList(fault.arg(firstPath, "b.log.filename")) : QStringList());
    QCOMPARE(faultsOf(sections).size(), isShared ? 2 : 0);

    const Entries withMain = {{"a.log.filename", firstPath}, {"log.filename", secondPath}};
    QCOMPARE(faultsOf(withMain),
             isShared ? QStringList(fault.arg(firstPath, "log.filename")) : QStringList());
}

void TestSectionLogger::directoryThatCannotBeEnteredIsAFault()
{
    // The core's validator asks for the right to read and to write only.
    QVERIFY(openToEverybody(_directory->path()));
    const QString logs = path("logs");
    QVERIFY(QDir().mkdir(logs));
    QCOMPARE(::chmod(QFile::encodeName(logs).constData(), 0666), 0);
    if (geteuid() == 0)
        QCOMPARE(::chown(QFile::encodeName(logs).constData(), 65534, 65534), 0);
    const ChildResult child = runChild({logs + "/audit.log"});
    QCOMPARE(::chmod(QFile::encodeName(logs).constData(), 0700), 0);
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(QString::fromUtf8(child.out),
             "audit.log.filename=[" + logs + "/audit.log]: the log file [" + logs +
                 "/audit-0.log] cannot be opened: " + "Permission denied" + "\ndoes not build\n");
}

void TestSectionLogger::fileThatCannotBeOpenedIsAFault_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("unusable");
    QTest::addColumn<QString>("reason");
    QTest::newRow("a directory in its place") << "taken.log"
                                              << "taken-0.log" << systemErrorText(EISDIR);
    QTest::newRow("newest one is a directory") << "newest"
                                               << "newest-7.log" << systemErrorText(EISDIR);
    QTest::newRow("link to nothing") << "link.log"
                                     << "link-0.log" << systemErrorText(ENOENT);
    // "-9.log" is the longest ending with ten files.
    QTest::newRow("too long a name")
        << QString(250, 'n') << QString(250, 'n') + "-0.log" << systemErrorText(ENAMETOOLONG);
    QTest::newRow("zero in the name")
        << QString::fromLatin1("a\0b", 3) << "a\\x00b-0.log" << systemErrorText(EINVAL);
}

void TestSectionLogger::fileThatCannotBeOpenedIsAFault()
{
    QFETCH(const QString, fileName);
    QFETCH(const QString, unusable);
    QFETCH(const QString, reason);
    const QDir directory(_directory->path());
    QVERIFY(directory.mkdir("taken-0.log") && directory.mkdir("newest-7.log"));
    QVERIFY(writeFile(path("newest-1.log"), "") && writeFile(path("newest-8.log.bak"), ""));
    QVERIFY(QFile::link(path("nowhere"), path("link-0.log")));
    const QString given = _directory->path() + '/' + fileName;
    QCOMPARE(faultsOf({{"audit.log.filename", given}}),
             QStringList("audit.log.filename=[" + shownName(given) + "]: the log file [" +
                         _directory->path() + '/' + unusable + "] cannot be opened: " + reason));
    const QString failure = failureText([&] {
        Config::buildFileSystemLogger(Properties(Entries{{"log.filename", given}}));
    });
    // A logger cuts the name at the zero, and writes a file that nobody meant.
    QCOMPARE(failure.isEmpty(), given.contains(QChar(0)));
}

void TestSectionLogger::checkCreatesNothing()
{
    QCOMPARE(faultsOf(legal()), QStringList());
    QCOMPARE(files(), QStringList());
}

void TestSectionLogger::whatPassesBuilds()
{
    QVERIFY(QDir(_directory->path()).mkdir("taken-0.log"));
    const QStringList fileNames = {path("a.log"), path("sub/b"),   path("taken"),
                                   path("."),     path(""),        path("%d-%1"),
                                   path("é\t"),   path("a-0.log"), "",
                                   ":/x",         path("") + "/b", path("a-.log")};
    const QStringList numbers = {"", "0", "1", "+1", " 2 ", "-1", "4294967295", "4294967296", "x"};
    const QStringList words = {"0", "1", "yes", "debug", "warn", "fatal", "FATAL", "%1", "%2", ""};
    QRandomGenerator random(20261121);
    const auto oneOf = [&random](const QStringList& values) {
        return values[random.bounded(int(values.size()))];
    };
    int passed = 0;
    for (int i = 0; i < 3000; ++i) {
        Entries entries = {{"a.log.filename", oneOf(fileNames)}};
        for (const char* key : {"a.log.maxsize", "a.log.kept", "a.log.timeout"}) {
            if (random.bounded(3) == 0)
                entries.insert(key, oneOf(numbers));
        }
        for (const char* key : {"a.log.filter", "a.log.tee", "a.log.banner.title"}) {
            if (random.bounded(6) == 0)
                entries.insert(key, oneOf(words));
        }
        const Properties description = section(Properties(entries), "a");
        const QStringList faults = faultsOf(entries);
        const QString failure = failureText([&] { Config::buildFileSystemLogger(description); });
        passed += faults.isEmpty();
        // What cannot be opened is a fault, too, if the logger would rotate away from it at once.
        const bool isStricter = entries.value("a.log.filename") == path("taken");
        QVERIFY2(failure.isEmpty() == faults.isEmpty() || (failure.isEmpty() && isStricter),
                 qPrintable(failure + " / " + faults.join('\n')));
    }
    QVERIFY(passed > 100);
}

void TestSectionLogger::loggerIsBuiltAsItsSectionSays()
{
    const Properties all(legal({{"audit.log.maxsize", "5000"},
                                {"audit.log.kept", "3"},
                                {"audit.log.timeout", "9"},
                                {"audit.log.filter", "info"},
                                {"log.filename", path("app.log")},
                                {"log.filter", "fatal"}}));
    const auto logger = buildSectionLogger(all, "audit");
    QCOMPARE(shownNumber(*logger, "_maxSize"), 5000);
    QCOMPARE(shownNumber(*logger, "_kept"), 3);
    QCOMPARE(shownNumber(*logger, "_timeout"), 9);
    QCOMPARE(logger->filter(), LoggerLevel::info);
    QVERIFY(!logger->isTeeEnabled());
    logger->debug("dropped");
    logger->info("kept");
    QCOMPARE(logMessages(path("audit-0.log"), "INFOR"), QStringList("kept"));
    QVERIFY(!QFile::exists(path("app-0.log")));
}

void TestSectionLogger::ringIsRepairedBeforeItIsOpened_data()
{
    QTest::addColumn<bool>("isRegistered");
    QTest::newRow("built") << false;
    QTest::newRow("registered") << true;
}

void TestSectionLogger::ringIsRepairedBeforeItIsOpened()
{
    QFETCH(const bool, isRegistered);
    for (const char* name : {"audit-0.log", "audit-2.log", "audit-9.log"})
        QVERIFY(writeFile(path(name), ""));
    Log log;
    const Properties all(legal({{"audit.log.kept", "4"}}));
    if (isRegistered)
        registerSectionLoggers(all, log);
    else
        QVERIFY(buildSectionLogger(all, "audit"));
    QCOMPARE(files(),
             (QStringList{".audit.lock", "audit-0.log", "audit-1.log", "audit-9.log.aside"}));
    QCOMPARE(logMessages(path("audit-1.log"), "WARNG"),
             (QStringList{kitText("FrameRingForeign", path("audit-9.log"), "audit-9.log.aside"),
                          kitText("FrameRingMoved", path("audit-2.log"), "audit-1.log")}));
}

void TestSectionLogger::loggerOfAFaultySectionIsNotBuilt()
{
    const Properties all(legal({{"audit.log.kept", "-1"}, {"audit.log.filter", "warn"}}));
    const QString text = failureText([&] { buildSectionLogger(all, "audit"); });
    QCOMPARE(text, faultsOf(*all.toDictionnary()).join('\n'));
    QCOMPARE(text.count('\n'), 1);
    QCOMPARE(files(), QStringList());
    QCOMPARE(failureText([&] { buildSectionLogger(all, "billing"); }),
             faultsOf(*all.toDictionnary(), "billing").join('\n'));
}

void TestSectionLogger::loggersAreRegistered()
{
    Log log;
    const Properties all(legal({{"log.filename", path("app.log")},
                                {"shop.eu.log.filename", path("eu")},
                                {"shop.eu.log.filter", "debug"}}));
    QCOMPARE(registerSectionLoggers(all, log), (QStringList{"audit", "shop.eu"}));
    log.logger("audit")->warning("to the audit");
    log.logger("shop.eu")->debug("to the shop");
    QCOMPARE(logMessages(path("audit-0.log"), "WARNG"), QStringList("to the audit"));
    QCOMPARE(logMessages(path("eu-0.log"), "DEBUG"), QStringList("to the shop"));
    QCOMPARE(registerSectionLoggers(Properties(), log), QStringList());
}

void TestSectionLogger::registrationIsAllOrNothing()
{
    Log log;
    const Entries entries = legal({{"billing.log.kept", "1"}, {"shop.log.filter", "loud"}});
    const QString text = failureText([&] { registerSectionLoggers(Properties(entries), log); });
    QCOMPARE(text, faultsOf(entries).join('\n'));
    QCOMPARE(text.count('\n'), 2);
    for (const char* name : {"audit", "billing", "shop"})
        QVERIFY(!log.containsLogger(name));
    QCOMPARE(files(), QStringList());
}

void TestSectionLogger::nameThatIsTakenIsAFault()
{
    Log log;
    const auto other = std::make_shared<Logger>();
    QVERIFY(log.insertLoggger("audit", other));
    const Properties all(legal({{"billing.log.filename", path("billing")}}));
    QCOMPARE(failureText([&] { registerSectionLoggers(all, log); }),
             QString("audit.log.*: a logger is registered under the name [audit] already"));
    QCOMPARE(log.logger("audit"), other);
    QVERIFY(!log.containsLogger("billing"));
}

void TestSectionLogger::processesLogIsTheDefault()
{
    const Log log; // the process's log while it lives
    QCOMPARE(registerSectionLoggers(Properties(legal())), QStringList("audit"));
    QVERIFY(log.containsLogger("audit"));
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestSectionLogger, childMain)
#include "tst_sectionlogger.moc"
