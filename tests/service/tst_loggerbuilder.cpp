// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/kittexts_p.h"
#include "support/failuretext.h"
#include "support/loggersettings.h"
#include "support/logring.h"
#include "support/messagecapture.h"

#include <kez/configuration.h>
#include <kez/log.h>
#include <kez/properties.h>
#include <kez/service/lineformatters.h>
#include <kez/service/loggerbuilder.h>

#include <QTest>

using namespace KezService;
using Values = QMap<QString, QString>;
Q_DECLARE_METATYPE(Values)

class TestLoggerBuilder : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void faultsAreThoseOfTheCore_data();
    void faultsAreThoseOfTheCore();
    void settingsAreThoseOfTheCore_data();
    void settingsAreThoseOfTheCore();
    void linesHaveTheFormat();
    void nullMeansTheDefaultFormatter();
    void teeIsOff_data();
    void teeIsOff();
    void ringIsRepairedBeforeItIsOpened();
    void failureOpensNoFile();

private:
    /// `values` with the file name of a ring, unless they have one.
    static Properties described(const LogRing& ring, Values values)
    {
        if (!values.contains("log.filename"))
            values.insert("log.filename", ring.name());
        return Properties(values);
    }
};

void TestLoggerBuilder::faultsAreThoseOfTheCore_data()
{
    QTest::addColumn<Values>("values");
    QTest::newRow("no directory") << Values{{"log.filename", "/nowhere/at/all"}};
    QTest::newRow("empty name") << Values{{"log.filename", ""}};
    QTest::newRow("size") << Values{{"log.maxsize", "1 MiB"}};
    QTest::newRow("negative size") << Values{{"log.maxsize", "-1"}};
    QTest::newRow("negative number of files") << Values{{"log.kept", "-1"}};
    QTest::newRow("days out of range") << Values{{"log.timeout", "4294967296"}};
    QTest::newRow("filter") << Values{{"log.filter", "Warning"}};
    QTest::newRow("title") << Values{{"log.banner.title", "%2"}};
    QTest::newRow("several") << Values{
        {"log.filter", "warn"}, {"log.kept", "x%1"}, {"log.tee", "yes"}};
}

void TestLoggerBuilder::faultsAreThoseOfTheCore()
{
    QFETCH(const Values, values);
    const LogRing ring;
    const Properties properties = described(ring, values);
    const QString expected = failureText([&] { Config::buildFileSystemLogger(properties); });
    QVERIFY(!expected.isEmpty());
    QCOMPARE(failureText([&] { buildLogger(properties, jsonLine); }), expected);
}

void TestLoggerBuilder::settingsAreThoseOfTheCore_data()
{
    QTest::addColumn<Values>("values");
    QTest::newRow("defaults") << Values();
    QTest::newRow("own") << Values{
        {"log.maxsize", "4096"}, {"log.kept", "3"}, {"log.timeout", "2"}};
    QTest::newRow("zeros") << Values{{"log.maxsize", "0"}, {"log.kept", "0"}, {"log.timeout", "0"}};
    for (const char* filter : {"debug", "info", "warning", "error", "fatal"})
        QTest::newRow(filter) << Values{{"log.filter", filter}};
}

void TestLoggerBuilder::settingsAreThoseOfTheCore()
{
    QFETCH(const Values, values);
    const LogRing ring;
    const LogRing coreRing;
    const auto built = buildLogger(described(ring, values), escapedLine);
    const auto expected = Config::buildFileSystemLogger(described(coreRing, values));
    for (const char* field : {"_maxSize", "_kept", "_timeout"}) {
        QVERIFY(shownNumber(*built, field) >= 0);
        QCOMPARE(shownNumber(*built, field), shownNumber(*expected, field));
    }
    QCOMPARE(built->filter(), expected->filter());
    QVERIFY(ring.has(0));
}

void TestLoggerBuilder::linesHaveTheFormat()
{
    const LogRing ring;
    const auto logger = buildLogger(described(ring, {{"log.filter", "info"}}), jsonLine);
    QVERIFY(logger->formatter() == &jsonLine);
    const MessageCapture capture;
    Log log(*logger);
    log.info(QStringLiteral("a"));
    log.debug(QStringLiteral("b"));
    QCOMPARE(ring.lines(0).size(), 1);
    QVERIFY(ring.bytes(0).startsWith(R"({"time":)") && ring.bytes(0).endsWith("}\n"));
    QCOMPARE(capture.texts(), QStringList());
}

void TestLoggerBuilder::nullMeansTheDefaultFormatter()
{
    const LogRing ring;
    const auto logger = buildLogger(described(ring, {}), nullptr);
    QVERIFY(logger->formatter() == static_cast<LogFormatter>(&Logger::formatter));
}

void TestLoggerBuilder::teeIsOff_data()
{
    QTest::addColumn<Values>("values");
    QTest::addColumn<bool>("isAskedFor");
    QTest::newRow("by default") << Values() << false;
    QTest::newRow("off") << Values{{"log.tee", "0"}} << false;
    QTest::newRow("on") << Values{{"log.tee", "1"}} << true;
    QTest::newRow("a number that means off to the core") << Values{{"log.tee", "2"}} << false;
}

void TestLoggerBuilder::teeIsOff()
{
    QFETCH(const Values, values);
    QFETCH(const bool, isAskedFor);
    const LogRing ring;
    const MessageCapture capture;
    const auto logger = buildLogger(described(ring, values), plainFormatter);
    QVERIFY(!logger->isTeeEnabled());
    const QByteArrayList reason = {kitText("BridgeTeeStaysOff").toUtf8()};
    QCOMPARE(ring.lines(0), isAskedFor ? reason : QByteArrayList());
    QCOMPARE(capture.texts(), QStringList());
}

void TestLoggerBuilder::ringIsRepairedBeforeItIsOpened()
{
    const LogRing ring;
    QVERIFY(ring.put(0, "old\n") && ring.put(2, "torn"));
    const auto logger = buildLogger(described(ring, {}), plainFormatter);
    QCOMPARE(ring.names(), (QStringList{".app.lock", "app-0.log", "app-1.log"}));
    const QByteArrayList texts = {"torn",
                                  kitText("FrameRingMoved", ring.file(2), "app-1.log").toUtf8(),
                                  kitText("FrameRingEnded", ring.file(1)).toUtf8()};
    QCOMPARE(ring.lines(1), texts);
}

void TestLoggerBuilder::failureOpensNoFile()
{
    const LogRing ring;
    QVERIFY(ring.put(1, "would be renamed\n"));
    QVERIFY(!failureText([&] {
                 buildLogger(described(ring, {{"log.timeout", "-1"}}), jsonLine);
             }).isEmpty());
    QCOMPARE(ring.names(), QStringList("app-1.log"));
}

QTEST_GUILESS_MAIN(TestLoggerBuilder)
#include "tst_loggerbuilder.moc"
