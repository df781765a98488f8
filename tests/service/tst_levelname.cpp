// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/loggerconfigcontroller.h>
#include <kez/service/levelname.h>

#include <QMetaEnum>
#include <QTemporaryDir>
#include <QtTest>

using namespace KezService;

Q_DECLARE_METATYPE(std::optional<LoggerLevel::LogLevel>)

namespace {

const QMetaEnum Levels = QMetaEnum::fromType<LoggerLevel::LogLevel>();

} // namespace

class TestLevelName : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void levelIsReadBack_data();
    void levelIsReadBack();
    void nameIsOneThatTheFilterTakes_data() { levelIsReadBack_data(); }
    void nameIsOneThatTheFilterTakes();
    void valueOutsideOfTheEnumerationHasNoName();
    void namesOfAllReadersAreRead_data();
    void namesOfAllReadersAreRead();
};

void TestLevelName::levelIsReadBack_data()
{
    QTest::addColumn<LoggerLevel::LogLevel>("level");
    QTest::addColumn<QString>("name");
    for (int i = 0; i < Levels.keyCount(); ++i)
        QTest::newRow(Levels.key(i)) << LoggerLevel::LogLevel(Levels.value(i)) << Levels.key(i);
}

void TestLevelName::levelIsReadBack()
{
    QFETCH(const LoggerLevel::LogLevel, level);
    QTEST(levelName(level), "name");
    QCOMPARE(levelFromName(levelName(level)), std::optional(level));
}

void TestLevelName::nameIsOneThatTheFilterTakes()
{
    QFETCH(const LoggerLevel::LogLevel, level);
    const QTemporaryDir directory;
    Properties properties;
    properties.insert("log.filename", directory.filePath("app.log"));
    properties.insert("log.filter", levelName(level));
    LoggerConfigController controller;
    QVERIFY2(controller.isLegalConfiguration(&properties),
             qPrintable(controller.errorsToString("\n")));
}

void TestLevelName::valueOutsideOfTheEnumerationHasNoName()
{
    for (const int value : {-1, Levels.keyCount(), 4711})
        QCOMPARE(levelName(static_cast<LoggerLevel::LogLevel>(value)), QString());
}

void TestLevelName::namesOfAllReadersAreRead_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<std::optional<LoggerLevel::LogLevel>>("level");
    const auto row = [](const char* name, std::optional<LoggerLevel::LogLevel> level) {
        QTest::newRow(name) << QString::fromUtf8(name) << level;
    };
    for (const char* name : {"debug", "dbg", "all", "DEBUG", " \tDbg\r\n", "\u00a0all\u2028"})
        row(name, LoggerLevel::debug);
    for (const char* name : {"info", "inf", "information", "Info"})
        row(name, LoggerLevel::info);
    for (const char* name : {"warning", "warn", "wrn", "Warn "})
        row(name, LoggerLevel::warning);
    for (const char* name : {"error", "err", "ERR"})
        row(name, LoggerLevel::error);
    for (const char* name : {"fatal", "ftl", "FTL"})
        row(name, LoggerLevel::fatal);
    for (const char* name : {"", " ", "warnings", "war ning", "infor", "warng", "critical", "0",
                             "1", "\u0131nfo", "İNFO", "ｅｒｒ"})
        row(name, std::nullopt);
}

void TestLevelName::namesOfAllReadersAreRead()
{
    QFETCH(const QString, name);
    QFETCH(const std::optional<LoggerLevel::LogLevel>, level);
    QVERIFY(levelFromName(name) == level);
}

QTEST_GUILESS_MAIN(TestLevelName)
#include "tst_levelname.moc"
