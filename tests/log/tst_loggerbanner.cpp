// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/language.h"
#include "support/logring.h"
#include "support/messagecapture.h"

#include <kez/logger.h>
#include <kez/properties.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTest>

#include <utility>

namespace {

using Level = LoggerLevel::LogLevel;

constexpr quint32 Century = 36500;

struct QuietLogger : Logger {
    explicit QuietLogger(const LogRing& ring, Level filter = LoggerLevel::debug)
        : Logger(ring.name(), 0, 0, Century, filter, levelFormatter)
    {
        disableTee();
    }
};

Logger* s_outerBanner = nullptr;

/// Writes another banner while it is called for a line of `s_outerBanner`.
void bannerFormatter(Level level, const QString& msg, QString& out)
{
    if (Logger* const logger = std::exchange(s_outerBanner, nullptr))
        logger->logBanner(QStringLiteral("inner"), QStringLiteral("2"));
    levelFormatter(level, msg, out);
}

/// The records of a banner without their level, which is info for all of them.
QStringList records(const LogRing& ring)
{
    QStringList result;
    for (const QByteArray& line : ring.lines(0)) {
        if (!line.startsWith("1:"))
            return {QStringLiteral("not at info: ") + line};
        result.append(QString::fromUtf8(line.mid(2)));
    }
    return result;
}

QString hexadecimal(quintptr value)
{
    return QStringLiteral("0x") + QString::number(value, 16);
}

const QString Address = QStringLiteral("0x[0-9a-f]+");

/// The first line that does not match its pattern, or the whole description if their numbers
/// differ.
QString mismatch(const QString& description, const QStringList& patterns)
{
    const QStringList lines = description.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    if (lines.size() != patterns.size())
        return description;
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QRegularExpression line(QRegularExpression::anchoredPattern(patterns.at(i)));
        if (!line.match(lines.at(i)).hasMatch())
            return lines.at(i);
    }
    return {};
}

} // namespace

class TestLoggerBanner : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { useLanguage(QStringLiteral("en_US")); }

    void headingJoinsTitleAndVersion_data()
    {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("version");
        QTest::addColumn<QString>("heading");
        QTest::newRow("plain") << "App"
                               << "1.2"
                               << "App v1.2";
        QTest::newRow("marker") << "App (%1)"
                                << "1.2"
                                << "App (1.2)";
        QTest::newRow("marker first") << "%1 App"
                                      << "1.2"
                                      << "1.2 App";
        QTest::newRow("marker twice") << "%1 %1"
                                      << "1.2"
                                      << "1.2 1.2";
        QTest::newRow("marker before a digit") << "%10"
                                               << "1."
                                               << "1.0";
        QTest::newRow("other marker") << "App %2"
                                      << "1.2"
                                      << "App %2 v1.2";
        QTest::newRow("marker in the version") << "App"
                                               << "%1"
                                               << "App v%1";
        QTest::newRow("marker in both") << "App %1 %2"
                                        << "%2%1"
                                        << "App %2%1 %2";
        QTest::newRow("nothing") << ""
                                 << ""
                                 << " v";
        QTest::newRow("marker, no version") << "%1"
                                            << ""
                                            << "";
        QTest::newRow("blanks stay") << " App "
                                     << " 1 "
                                     << " App  v 1 ";
        QTest::newRow("accents") << QString::fromUtf8("\xc3\x89t\xc3\xa9") << "1"
                                 << QString::fromUtf8("\xc3\x89t\xc3\xa9 v1");
        QTest::newRow("long") << QString(300, QLatin1Char('x')) << "1"
                              << QString(300, QLatin1Char('x')) + " v1";
    }
    void headingJoinsTitleAndVersion()
    {
        QFETCH(QString, title);
        QFETCH(QString, version);
        QFETCH(QString, heading);
        const LogRing ring;
        QuietLogger logger(ring);
        logger.logBanner(title, version);
        const QString border =
            QLatin1Char('+') + QString(heading.size() + 2, QLatin1Char('-')) + QLatin1Char('+');
        QCOMPARE(records(ring),
                 (QStringList{border, "| " + heading + " |", border, "(c) Vandrel"}));
    }

    void boxOfElevenCharactersIsThirteenWide()
    {
        const LogRing ring;
        QuietLogger logger(ring);
        logger.logBanner(QStringLiteral("abcdef"), QStringLiteral("123"));
        QCOMPARE(records(ring).at(0), QStringLiteral("+-------------+"));
        QCOMPARE(records(ring).at(1), QStringLiteral("| abcdef v123 |"));
        QCOMPARE(records(ring).at(0).size(), 15);
    }

    void noticeFollowsTheLanguage()
    {
        const LogRing ring;
        QuietLogger logger(ring);
        useLanguage(QStringLiteral("fr_FR"));
        logger.logBanner(QStringLiteral("App"), QStringLiteral("1"));
        QCOMPARE(records(ring).last(), QStringLiteral("(c) Vandrel"));
    }

    void keysArePaddedOnTheRight_data()
    {
        QTest::addColumn<QMap<QString, QString>>("map");
        QTest::addColumn<QStringList>("lines");
        using Map = QMap<QString, QString>;
        QTest::newRow("two keys") << Map{{"a", "1"}, {"long.key", "2"}}
                                  << QStringList{"a        = 1", "long.key = 2"};
        QTest::newRow("key order")
            << Map{{"b", "1"}, {"B", "2"}, {"a", "3"}} << QStringList{"B = 2", "a = 3", "b = 1"};
        QTest::newRow("one key") << Map{{"key", "value"}} << QStringList{"key = value"};
        QTest::newRow("empty value") << Map{{"key", ""}} << QStringList{"key = "};
        QTest::newRow("empty key")
            << Map{{"", "x"}, {"ab", "y"}} << QStringList{"   = x", "ab = y"};
        QTest::newRow("markers and signs") << Map{{"%1", "%2 = %3"}} << QStringList{"%1 = %2 = %3"};
        QTest::newRow("accents") << Map{{QString(QChar(0xe9)), "x"}, {"zz", "y"}}
                                 << QStringList{"zz = y", QString(QChar(0xe9)) + "  = x"};
        QTest::newRow("empty set") << Map{} << QStringList{};
    }
    void keysArePaddedOnTheRight()
    {
        using Map = QMap<QString, QString>;
        QFETCH(Map, map);
        QFETCH(QStringList, lines);
        const LogRing ring;
        QuietLogger logger(ring);
        const Properties properties(map);
        logger.logBanner(QStringLiteral("App"), QStringLiteral("1"), &properties);
        QCOMPARE(records(ring).mid(4), lines);
    }

    void bannerIsWrittenWhateverTheFilter_data()
    {
        QTest::addColumn<int>("filter");
        QTest::newRow("debug") << int(LoggerLevel::debug);
        QTest::newRow("warning") << int(LoggerLevel::warning);
        QTest::newRow("error") << int(LoggerLevel::error);
        QTest::newRow("fatal") << int(LoggerLevel::fatal);
        QTest::newRow("above the range") << 9;
    }
    void bannerIsWrittenWhateverTheFilter()
    {
        QFETCH(int, filter);
        const LogRing ring;
        QuietLogger logger(ring, static_cast<Level>(filter));
        const Properties properties({{"a", "1"}});
        logger.logBanner(QStringLiteral("App"), QStringLiteral("1"), &properties);
        QCOMPARE(int(logger.filter()), filter);
        QCOMPARE(records(ring).size(), 5);
        const QJsonDocument json(QJsonObject{{"a", 1}});
        logger.logBanner(QStringLiteral("App"), QStringLiteral("1"), &json);
        QCOMPARE(int(logger.filter()), filter);
        QCOMPARE(records(ring).size(), 5 + 4 + 1 + 3);
        logger.info(QStringLiteral("x"));
        QCOMPARE(records(ring).size(), filter <= LoggerLevel::info ? 14 : 13);
    }

    void bannerWithinABannerRestoresTheFilter()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::error, bannerFormatter);
        logger.disableTee();
        const MessageCapture capture;
        s_outerBanner = &logger;
        logger.logBanner(QStringLiteral("outer"), QStringLiteral("1"));
        QCOMPARE(logger.filter(), LoggerLevel::error);
        QCOMPARE(records(ring).size(), 4);
        QCOMPARE(capture.texts().size(), 4);
        QVERIFY(capture.texts().at(1).endsWith(QLatin1String("1:| inner v2 |")));
    }

    void bannersThatWaitForEachOtherEnd()
    {
        // The handler of the first banner waits until another thread has written a banner.
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::error, plainFormatter);
        static Logger* shown = nullptr;
        shown = &logger;
        const QtMessageHandler previous =
            qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {
                if (Logger* const other = std::exchange(shown, nullptr)) {
                    std::thread([other] {
                        other->logBanner(QStringLiteral("inner"), QStringLiteral("2"));
                    }).join();
                }
            });
        logger.logBanner(QStringLiteral("outer"), QStringLiteral("1"));
        qInstallMessageHandler(previous);
        QCOMPARE(logger.filter(), LoggerLevel::error);
        QCOMPARE(ring.bytes(0).count('\n'), 4);
    }

    void propertiesMayChangeDuringTheirBanner()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::error, plainFormatter);
        static Properties* shown = nullptr;
        Properties properties({{"a", "1"}, {"b", "2"}, {"c", "3"}});
        shown = &properties;
        const QtMessageHandler previous =
            qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& text) {
                if (text.contains(QLatin1String("a = 1")))
                    shown->clear();
            });
        logger.logBanner(QStringLiteral("App"), QStringLiteral("1"), &properties);
        qInstallMessageHandler(previous);
        QVERIFY(properties.empty());
        QCOMPARE(ring.bytes(0).count('\n'), 4 + 3);
    }

    void bannerOfAFilelessLoggerIsPrinted()
    {
        Logger logger;
        logger.setFilter(LoggerLevel::fatal);
        const MessageCapture capture;
        logger.logBanner(QStringLiteral("App"), QStringLiteral("1"));
        QCOMPARE(capture.messages().size(), 4);
        for (const MessageCapture::Message& message : capture.messages())
            QCOMPARE(message.type, QtInfoMsg);
        QCOMPARE(logger.filter(), LoggerLevel::fatal);
    }

    void jsonBannerListsTheIndentedDocument_data()
    {
        QTest::addColumn<QString>("lang");
        QTest::addColumn<QString>("caption");
        QTest::newRow("English") << "en_US"
                                 << "Initial JSON stream (before interpretation)";
        QTest::newRow("French") << "fr_FR"
                                << QString::fromUtf8("Flux JSON initial (avant "
                                                     "interpr\xc3\xa9tation)");
    }
    void jsonBannerListsTheIndentedDocument()
    {
        QFETCH(QString, lang);
        QFETCH(QString, caption);
        const LogRing ring;
        QuietLogger logger(ring);
        const QJsonDocument json(QJsonObject{{"text", QString::fromUtf8("\xc3\xa9t\xc3\xa9 %1")},
                                             {"list", QJsonArray{1, 2}}});
        useLanguage(lang);
        logger.logBanner(QStringLiteral("App"), QStringLiteral("1.2"), &json);
        QStringList expected{"+----------+", "| App v1.2 |", "+----------+", "(c) Vandrel",
                             caption};
        expected += QString::fromUtf8(json.toJson(QJsonDocument::Indented))
                        .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        QCOMPARE(records(ring), expected);
        QCOMPARE(expected.size(), 5 + 7);
    }

    void nullJsonIsTheBoxAlone()
    {
        const LogRing ring;
        QuietLogger logger(ring);
        const QJsonDocument* const none = nullptr;
        logger.logBanner(QStringLiteral("App"), QStringLiteral("1"), none);
        QCOMPARE(records(ring).size(), 4);
    }

    void descriptionOfAFileLogger_data()
    {
        QTest::addColumn<QString>("lang");
        QTest::addColumn<QStringList>("words"); // opened, closed, bytes, days, true, false
        QTest::newRow("English") << "en_US" << QStringList{"Opened", "Closed", "Bytes",
                                                           "Days",   " true",  "false"};
        QTest::newRow("French") << "fr_FR"
                                << QStringList{"Ouvert", QString::fromUtf8("Ferm\xc3\xa9"),
                                               "Octets", "Jours",
                                               "vrai",   "faux"};
    }
    void descriptionOfAFileLogger()
    {
        QFETCH(QString, lang);
        QFETCH(QStringList, words);
        const LogRing ring;
        Logger logger(ring.name(), 12345, 7, 30, LoggerLevel::warning, levelFormatter);
        useLanguage(lang);
        QStringList patterns{"  _formatter : " +
                                 hexadecimal(reinterpret_cast<quintptr>(&levelFormatter)),
                             "     _spFile : " + Address + R"( \()" + words.at(0) + R"(\))",
                             " _spFileName : " + Address,
                             "    _maxSize : 12345 ?" + words.at(2),
                             "    _timeout : 30 ?" + words.at(3),
                             "       _kept : 7",
                             "       _last : 0",
                             "        _tee : " + words.at(4),
                             "     _filter : warning",
                             "    _spMutex : " + Address,
                             "_bannerTitle : "};
        QCOMPARE(mismatch(logger.toString(), patterns), QString());

        logger.disableTee();
        logger.setFilter(LoggerLevel::fatal);
        logger.rotation(0);
        logger.close();
        patterns[1] = "     _spFile : " + Address + R"( \()" + words.at(1) + R"(\))";
        patterns[6] = "       _last : 1";
        patterns[7] = "        _tee : " + words.at(5);
        patterns[8] = "     _filter : fatal";
        QCOMPARE(mismatch(logger.toString(), patterns), QString());
    }

    void descriptionOfAnEmptyLogger()
    {
        const Logger logger;
        const QString formatter = hexadecimal(reinterpret_cast<quintptr>(logger.formatter()));
        QCOMPARE(mismatch(logger.toString(),
                          {"  _formatter : " + formatter, "     _spFile : 0x0 \\(Closed\\)",
                           " _spFileName : 0x0", "    _maxSize : 0 ?Bytes",
                           "    _timeout : 0 ?Days", "       _kept : 0", "       _last : 0",
                           "        _tee :  true", "     _filter : debug",
                           "    _spMutex : 0x[0-9a-f]*[1-9a-f][0-9a-f]*", "_bannerTitle : "}),
                 QString());
    }

    void descriptionNamesEveryFilter()
    {
        Logger logger;
        const QStringList keys{"debug", "info", "warning", "error", "fatal"};
        for (int level = 0; level < 5; ++level) {
            logger.setFilter(static_cast<Level>(level));
            QVERIFY(logger.toString().contains("\n     _filter : " + keys.at(level) + '\n'));
        }
        logger.setFilter(static_cast<Level>(9));
        QVERIFY(logger.toString().contains("\n     _filter : \n"));
    }

    void descriptionFollowsTheRotation()
    {
        const LogRing ring;
        Logger logger(ring.name(), 4, 5, Century, LoggerLevel::debug, levelFormatter);
        logger.disableTee();
        logger.info(QStringLiteral("x"));
        QVERIFY(logger.toString().contains(QStringLiteral("\n       _last : 1\n")));
        logger.closeDuplicatedHandle();
    }
};

QTEST_GUILESS_MAIN(TestLoggerBanner)
#include "tst_loggerbanner.moc"
