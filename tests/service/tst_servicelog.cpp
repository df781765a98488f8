// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/kittexts_p.h"
#include "support/childoutput.h"
#include "support/failuretext.h"
#include "support/language.h"
#include "support/logrecords.h"
#include "support/logring.h"
#include "support/messagecapture.h"

#include <kez/configuration.h>
#include <kez/identity.h>
#include <kez/log.h>
#include <kez/service/lineformatters.h>
#include <kez/service/servicelog.h>

#include <QJsonDocument>
#include <QTest>

#include <memory>

using namespace KezService;

namespace {

std::shared_ptr<Config> configuration(const LogRing& ring, const QMap<QString, QString>& more = {})
{
    Properties properties;
    properties.insert("log.filename", ring.name(), true);
    properties.insert("log.filter", "info", true);
    properties.insert("log.banner.properties", "0", true);
    for (auto entry = more.begin(); entry != more.end(); ++entry)
        properties.insert(entry.key(), entry.value(), true);
    return Config::load(properties, QStringLiteral("2.1"));
}

QStringList messages(const LogRing& ring, uint index)
{
    QStringList result;
    for (const LogRecord& record : logRecords(ring.file(index)))
        result.append(record.tag + ' ' + record.message);
    return result;
}

/// A service whose language was switched, and logged, before the log is opened.
int childMain(const QStringList& arguments)
{
    int argc = 1;
    char name[] = "child";
    char* argv[] = {name, nullptr};
    const QCoreApplication application(argc, argv);
    Properties properties;
    properties.insert("log.filename", arguments.value(0), true);
    properties.insert("log.filter", "info", true);
    Log::getInstance()->insertLoggger("early", std::make_shared<Logger>());
    openLog(*Config::load(properties));
    Log::getInstance()->info("in the file");
    say(Log::getInstance()->containsLogger("early"));
    return 0;
}

} // namespace

class TestServiceLog : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        useLanguage(QStringLiteral("en_US"));
        QCoreApplication::setApplicationName(QStringLiteral("tills"));
    }
    // Also those that openLog() put below it.
    void cleanup() { delete Log::getInstance(); }

    void logBeginsWithItsBanner_data()
    {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("heading");
        QTest::newRow("the application's name") << ""
                                                << "| tills 2.1 |";
        QTest::newRow("as configured") << "Till %1!"
                                       << "| Till 2.1! |";
        QTest::newRow("without a version") << "Till"
                                           << "| Till |";
    }
    void logBeginsWithItsBanner()
    {
        QFETCH(const QString, title);
        QFETCH(const QString, heading);
        const LogRing ring;
        const auto config = configuration(ring, {{"log.banner.title", title}});
        openLog(*config);
        Log::getInstance()->info("first line");
        const QStringList logged = messages(ring, 0);
        QCOMPARE(logged.size(), 5);
        QCOMPARE(logged.at(1), "INFOR " + heading);
        QCOMPARE(logged.at(3), "INFOR " + Kez::defaultCopyright());
        QCOMPARE(logged.at(4), "INFOR first line");
        QCOMPARE(config->logger()->filter(), LoggerLevel::info);
    }

    void ringIsCheckedWithItsOwnSettings()
    {
        const LogRing ring;
        for (const uint index : {0U, 2U, 3U, 9U})
            QVERIFY(ring.put(index, "old\n"));
        QVERIFY(ring.put(3, "torn"));
        openLog(*configuration(ring, {{"log.kept", "3"}}));
        QCOMPARE(ring.names(), (QStringList{".app.lock", "app-0.log", "app-1.log", "app-2.log",
                                            "app-9.log.aside"}));
        const QByteArrayList lines = ring.lines(2);
        QCOMPARE(lines.first(), QByteArray("torn"));
        QVERIFY(lines.at(1).endsWith("-+")); // on a line of its own
        const QStringList logged = messages(ring, 2);
        QCOMPARE(logged.size(), 1 + 4 + 4);
        for (const char* text :
             {"app-9.log.aside", "renamed to app-1.log", "renamed to app-2.log", "broke off"}) {
            const QStringList said = logged.filter(text);
            QCOMPARE(said.size(), 1);
            QVERIFY2(said.first().startsWith("WARNG Log ring: "), qPrintable(said.first()));
        }
    }

    void tenFilesAreKeptByDefault()
    {
        const LogRing ring;
        QVERIFY(ring.put(9, "old\n") && ring.put(11, "foreign\n"));
        openLog(*configuration(ring));
        QVERIFY(ring.has(0) && !ring.has(9) && !ring.has(11));
        QVERIFY(QFile::exists(ring.file(11) + ".aside"));
    }

    void linesHaveTheFormat()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, "torn"));
        const auto config = configuration(ring, {{"log.tee", "1"}});
        const MessageCapture capture;
        openLog(*config, jsonLine);
        Log::getInstance()->warning("alice\n21/11/2026 18:03:04,123 <ERROR> forged");
        QVERIFY(config->logger()->formatter() == &jsonLine);
        QVERIFY(!config->logger()->isTeeEnabled());
        QCOMPARE(capture.texts(), QStringList());
        QStringList texts;
        for (const QByteArray& line : ring.lines(0).sliced(1))
            texts.append(QJsonDocument::fromJson(line)["message"].toString());
        const QStringList afterTheBanner = {kitText("BridgeTeeStaysOff"),
                                            kitText("FrameRingEnded", ring.file(0)),
                                            "alice\n21/11/2026 18:03:04,123 <ERROR> forged"};
        QCOMPARE(texts.size(), 4 + 3);
        QCOMPARE(texts.at(1), "| tills 2.1 |");
        QCOMPARE(texts.sliced(4), afterTheBanner);
    }

    void messageForgesNoLine_data()
    {
        QTest::addColumn<bool>("isEscaped");
        QTest::newRow("plain log") << false;
        QTest::newRow("escaped log") << true;
    }
    void messageForgesNoLine()
    {
        QFETCH(const bool, isEscaped);
        const LogRing ring;
        openLog(*configuration(ring), isEscaped ? escapedLine : nullptr);
        const auto before = ring.lines(0).size();
        Log::getInstance()->warning("alice\n21/11/2026 18:03:04,123 <ERROR> forged");
        QCOMPARE(ring.lines(0).size(), before + (isEscaped ? 1 : 2));
    }

    void teeIsAsConfiguredWithoutAFormatter()
    {
        const LogRing ring;
        const MessageCapture capture;
        const auto config = configuration(ring, {{"log.tee", "1"}});
        openLog(*config, nullptr);
        QVERIFY(config->logger()->isTeeEnabled());
        QVERIFY(!capture.texts().isEmpty());
        QVERIFY(!ring.bytes(0).contains("log.tee=1"));
    }

    void loggerThatIsAttachedIsKept()
    {
        const LogRing ring;
        const auto config = configuration(ring);
        const auto logger = config->getOrbuildFileSystemLogger();
        config->setLogger(logger);
        QVERIFY(ring.put(5, "would be renamed\n"));
        openLog(*config, jsonLine);
        QCOMPARE(config->logger(), logger);
        QCOMPARE(ring.names(), (QStringList{"app-0.log", "app-5.log"}));
        Log::getInstance()->info("here");
        QVERIFY(ring.bytes(0).endsWith("here\n"));
    }

    void logWithoutAFileIsReplaced()
    {
        const LogRing ring;
        const ChildResult child = runChild({ring.name()});
        COMPARE_CHILD(child, "false\n");
        QVERIFY(ring.bytes(0).endsWith(" in the file\n"));
    }

    void secondLogReplacesTheFirst()
    {
        const LogRing first;
        const LogRing second;
        openLog(*configuration(first));
        const auto* const before = Log::getInstance();
        openLog(*configuration(second));
        QVERIFY(Log::getInstance() != before);
        Log::getInstance()->info("here");
        QVERIFY(!first.bytes(0).contains("here") && second.bytes(0).contains("here"));
    }

    void faultIsThatOfTheBuilder_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("value");
        QTest::newRow("number") << "log.kept"
                                << "many";
        QTest::newRow("negative number") << "log.kept"
                                         << "-1";
        QTest::newRow("filter") << "log.filter"
                                << "loud";
        QTest::newRow("directory") << "log.filename"
                                   << "/nowhere/at/all/app";
    }
    void faultIsThatOfTheBuilder()
    {
        QFETCH(const QString, key);
        QFETCH(const QString, value);
        const LogRing ring;
        QVERIFY(ring.put(1, "stays\n"));
        const auto config = configuration(ring, {{key, value}});
        const QString expected =
            failureText([&] { Config::buildFileSystemLogger(*config->properties()); });
        QVERIFY(!expected.isEmpty());
        QCOMPARE(failureText([&] { openLog(*config); }), expected);
        QVERIFY(!config->logger());
        QVERIFY(ring.has(1) && !ring.has(0));
    }

    void missingFileNameIsAFault()
    {
        const auto config = Config::load(Properties(), QStringLiteral("1"));
        QVERIFY(!failureText([&] { openLog(*config); }).isEmpty());
    }
};

KEZ_TEST_MAIN_WITH_CHILDREN(TestServiceLog, childMain)
#include "tst_servicelog.moc"
