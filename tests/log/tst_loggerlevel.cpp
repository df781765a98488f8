// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/childprocess.h"
#include "support/libcfaults.h"

#include <kez/logger.h>
#include <kez/loggerlevel.h>

#include <QDataStream>
#include <QDateTime>
#include <QDebug>
#include <QMetaEnum>
#include <QMetaType>
#include <QRegularExpression>
#include <QTest>

namespace {

using Level = LoggerLevel::LogLevel;

const QString Pattern = QStringLiteral("dd/MM/yyyy HH:mm:ss,zzz");

QString formatted(Level level, const QString& msg)
{
    QString out;
    Logger::formatter(level, msg, out);
    return out;
}

QString formattedAt(qint64 nsecs)
{
    LibcFaults::clock = nsecs;
    const QString line = formatted(LoggerLevel::info, QStringLiteral("m"));
    LibcFaults::clock = 0;
    return line;
}

/// Prints one line per moment (in ms) that the arguments name.
int childMain(const QStringList& moments)
{
    for (const QString& moment : moments)
        puts(qPrintable(formattedAt(moment.toLongLong() * 1000000)));
    return 0;
}

QByteArrayList linesInZone(const QByteArray& zone, const QList<qint64>& moments)
{
    QStringList arguments;
    for (const qint64 moment : moments)
        arguments.append(QString::number(moment));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TZ"), QString::fromLatin1(zone));
    return runChild(arguments, environment).out.trimmed().split('\n');
}

} // namespace

class TestLoggerLevel : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { LibcFaults::reset(); }

    void messageIsNotReallocated_data()
    {
        QTest::addColumn<QString>("message");
        static const QString text = QStringLiteral("owned by somebody else");
        QTest::newRow("literal") << QStringLiteral("a text of the program");
        QTest::newRow("raw data") << QString::fromRawData(text.constData(), text.size());
    }
    void messageIsNotReallocated()
    {
        // Other threads may read the text: neither it nor the place of its characters may change.
        QFETCH(const QString, message);
        const QChar* const before = message.constData();
        QString line;
        Logger::formatter(LoggerLevel::info, message, line);
        QCOMPARE(message.constData(), before);
        QVERIFY(line.endsWith(message));
    }

    void enumerationHasTheFiveKeysInOrder()
    {
        const QMetaObject& meta = LoggerLevel::staticMetaObject;
        const QMetaEnum levels = meta.enumerator(meta.indexOfEnumerator("LogLevel"));
        QVERIFY(levels.isValid());
        QCOMPARE(levels.keyCount(), 5);
        const QByteArrayList keys{"debug", "info", "warning", "error", "fatal"};
        for (int i = 0; i < 5; ++i) {
            QCOMPARE(QByteArray(levels.key(i)), keys.at(i));
            QCOMPARE(levels.value(i), i);
        }
    }

    void metaTypeIsFoundByItsName()
    {
        const auto type = QMetaType::fromType<Level>();
        QVERIFY(type.id() != QMetaType::UnknownType);
        QCOMPARE(QByteArray(type.name()), QByteArray("LoggerLevel::LogLevel"));
        QCOMPARE(QMetaType::fromName("LoggerLevel::LogLevel").id(), type.id());
    }

    void metaTypeComparesByNumber()
    {
        const auto type = QMetaType::fromType<Level>();
        const Level info = LoggerLevel::info;
        const Level otherInfo = LoggerLevel::info;
        const Level error = LoggerLevel::error;
        QVERIFY(type.equals(&info, &otherInfo));
        QVERIFY(!type.equals(&info, &error));
        QVERIFY(type.compare(&info, &error) == QPartialOrdering::Less);
        QVERIFY(type.compare(&error, &info) == QPartialOrdering::Greater);
    }

    void streamsAsSigned32BitInteger_data()
    {
        QTest::addColumn<int>("value");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("debug") << 0 << QByteArray::fromHex("00000000");
        QTest::newRow("fatal") << 4 << QByteArray::fromHex("00000004");
        QTest::newRow("above the range") << 7 << QByteArray::fromHex("00000007");
        QTest::newRow("negative") << -2 << QByteArray::fromHex("fffffffe");
        QTest::newRow("largest") << 0x7fffffff << QByteArray::fromHex("7fffffff");
    }
    void streamsAsSigned32BitInteger()
    {
        QFETCH(int, value);
        QFETCH(QByteArray, bytes);
        const auto type = QMetaType::fromType<Level>();
        const auto level = static_cast<Level>(value);

        QByteArray direct;
        QDataStream directOut(&direct, QIODevice::WriteOnly);
        directOut << level;
        QCOMPARE(direct, bytes);

        QByteArray saved;
        QDataStream out(&saved, QIODevice::WriteOnly);
        QVERIFY(type.save(out, &level));
        QCOMPARE(saved, bytes);

        Level read = LoggerLevel::info;
        QDataStream directIn(bytes);
        directIn >> read;
        QCOMPARE(static_cast<int>(read), value);

        Level loaded = LoggerLevel::info;
        QDataStream in(bytes);
        QVERIFY(type.load(in, &loaded));
        QCOMPARE(static_cast<int>(loaded), value);
    }

    void registeredTypeKnowsHowToPrintALevel()
    {
        auto type = QMetaType::fromName("LoggerLevel::LogLevel");
        const auto level = LoggerLevel::warning;
        QString text;
        QDebug stream(&text);
        QVERIFY(type.debugStream(stream, &level));
        QVERIFY2(text.contains(QLatin1String("warning")), qPrintable(text));
    }

    void debugStreamPrintsTheKey()
    {
        QString direct;
        QDebug(&direct) << LoggerLevel::warning;
        QVERIFY2(direct.contains(QLatin1String("warning")), qPrintable(direct));

        auto type = QMetaType::fromType<Level>();
        const Level level = LoggerLevel::error;
        QString registered;
        QDebug stream(&registered);
        QVERIFY(type.debugStream(stream, &level));
        QVERIFY2(registered.contains(QLatin1String("error")), qPrintable(registered));
    }

    void formatterTagsEveryLevel_data()
    {
        QTest::addColumn<int>("level");
        QTest::addColumn<QString>("tag");
        QTest::newRow("debug") << 0 << "DEBUG";
        QTest::newRow("info") << 1 << "INFOR";
        QTest::newRow("warning") << 2 << "WARNG";
        QTest::newRow("error") << 3 << "ERROR";
        QTest::newRow("fatal") << 4 << "FATAL";
        QTest::newRow("just above the range") << 5 << "DEBUG";
        QTest::newRow("seven") << 7 << "DEBUG";
        QTest::newRow("negative") << -1 << "DEBUG";
        QTest::newRow("smallest") << int(0x80000000) << "DEBUG";
        QTest::newRow("largest") << 0x7fffffff << "DEBUG";
    }
    void formatterTagsEveryLevel()
    {
        QFETCH(int, level);
        QFETCH(QString, tag);
        const QString line = formatted(static_cast<Level>(level), QStringLiteral("Server started"));
        const QRegularExpression shape(QStringLiteral(
            R"(\A\d{2}/\d{2}/\d{4} \d{2}:\d{2}:\d{2},\d{3} <(.{5})> Server started\z)"));
        const QRegularExpressionMatch match = shape.match(line);
        QVERIFY2(match.hasMatch(), qPrintable(line));
        QCOMPARE(match.captured(1), tag);
    }

    void formatterLeavesTheMessageAlone_data()
    {
        QTest::addColumn<QString>("msg");
        QTest::newRow("place marker") << "at %1 of %2, %3 and %99 %L1";
        QTest::newRow("empty") << "";
        QTest::newRow("blanks") << "  a  ";
        QTest::newRow("newlines") << "a\nb\r\n\n";
        QTest::newRow("NUL inside") << QString(QChar(0)) + "a" + QChar(0) + "b";
        QTest::newRow("lone surrogates") << QString(QChar(0xd800)) + "x" + QChar(0xdc00);
        QTest::newRow("outside the basic plane") << QString::fromUtf8("\xf0\x9f\x98\x80 \xc3\xa9");
        QTest::newRow("percent at the end") << "100%";
        QTest::newRow("a million characters") << QString(1000000, QLatin1Char('%'));
    }
    void formatterLeavesTheMessageAlone()
    {
        QFETCH(QString, msg);
        const QString line = formatted(LoggerLevel::error, msg);
        QCOMPARE(line.size(), Pattern.size() + 9 + msg.size());
        QCOMPARE(line.mid(Pattern.size(), 9), QStringLiteral(" <ERROR> "));
        QVERIFY(line.mid(Pattern.size() + 9) == msg);
    }

    void formatterDropsOldContent()
    {
        QString out = QString(5000, QLatin1Char('x'));
        Logger::formatter(LoggerLevel::info, QStringLiteral("new"), out);
        QCOMPARE(out.size(), Pattern.size() + 9 + 3);
        QVERIFY(!out.contains(QLatin1Char('x')));
    }

    void formatterLeavesCopiesOfTheOutputAlone()
    {
        QString out = QStringLiteral("earlier");
        const QString copy = out;
        Logger::formatter(LoggerLevel::info, QStringLiteral("new"), out);
        QCOMPARE(copy, QStringLiteral("earlier"));
    }

    void formatterTellsTheTimeOfTheCall()
    {
        for (int i = 0; i < 2000; ++i) {
            const QDateTime before = QDateTime::currentDateTime();
            const QString line = formatted(LoggerLevel::info, QStringLiteral("m"));
            const QDateTime after = QDateTime::currentDateTime();
            const QDateTime told = QDateTime::fromString(line.left(Pattern.size()), Pattern);
            QVERIFY2(told.isValid(), qPrintable(line));
            QVERIFY2(told >= before, qPrintable(line));
            QVERIFY2(told <= after, qPrintable(line));
        }
    }

    void formatterRendersAsQDateTimeDoes_data()
    {
        QTest::addColumn<qint64>("msecs");
        const qint64 base = QDateTime(QDate(2024, 3, 5), QTime(14, 7, 9)).toMSecsSinceEpoch();
        QTest::newRow("no milliseconds") << base;
        QTest::newRow("one digit of milliseconds") << base + 7;
        QTest::newRow("two digits of milliseconds") << base + 42;
        QTest::newRow("three digits of milliseconds") << base + 999;
        QTest::newRow("one digit everywhere")
            << QDateTime(QDate(2024, 1, 2), QTime(9, 5, 3, 7)).toMSecsSinceEpoch();
        QTest::newRow("midnight")
            << QDateTime(QDate(2024, 1, 1), QTime(0, 0, 0, 0)).toMSecsSinceEpoch();
        QTest::newRow("last moment of a year")
            << QDateTime(QDate(2023, 12, 31), QTime(23, 59, 59, 999)).toMSecsSinceEpoch();
        QTest::newRow("leap day")
            << QDateTime(QDate(2028, 2, 29), QTime(12, 0)).toMSecsSinceEpoch();
        QTest::newRow("after 2038") << qint64(0x80000000) * 1000;
        QTest::newRow("another century")
            << QDateTime(QDate(2261, 12, 30), QTime(12, 0)).toMSecsSinceEpoch();
        QTest::newRow("first second of 1970") << qint64(1);
    }
    void formatterRendersAsQDateTimeDoes()
    {
        QFETCH(qint64, msecs);
        const QString expected = QDateTime::fromMSecsSinceEpoch(msecs).toString(Pattern);
        QCOMPARE(formattedAt(msecs * 1000000), expected + QStringLiteral(" <INFOR> m"));
    }

    void millisecondsAreCutNotRounded()
    {
        const QDateTime moment(QDate(2024, 3, 5), QTime(9, 5, 3, 7));
        QCOMPARE(formattedAt(moment.toMSecsSinceEpoch() * 1000000 + 999999),
                 QStringLiteral("05/03/2024 09:05:03,007 <INFOR> m"));
    }

    void everyChangeOfTheClockShows()
    {
        const qint64 base = QDateTime(QDate(2024, 3, 5), QTime(9, 59, 58)).toMSecsSinceEpoch();
        const QList<qint64> steps{0,    999,  1000,    1001, 1999,     2000,      2000, 60000,
                                  3600, 1000, 3600000, 0,    86400000, -86400000, 500,  -1};
        for (const qint64 step : steps) {
            const QString expected = QDateTime::fromMSecsSinceEpoch(base + step).toString(Pattern);
            QCOMPARE(formattedAt((base + step) * 1000000), expected + QStringLiteral(" <INFOR> m"));
        }
    }

    void timeIsLocal_data()
    {
        QTest::addColumn<QByteArray>("zone");
        QTest::addColumn<QByteArray>("text");
        // 2024-01-15T12:00:00Z
        QTest::newRow("UTC") << QByteArray("UTC0") << QByteArray("15/01/2024 12:00:00,005");
        QTest::newRow("west") << QByteArray("KEZ8") << QByteArray("15/01/2024 04:00:00,005");
        QTest::newRow("next day") << QByteArray("KEZ-14") << QByteArray("16/01/2024 02:00:00,005");
        QTest::newRow("half an hour")
            << QByteArray("KEZ-5:30") << QByteArray("15/01/2024 17:30:00,005");
        QTest::newRow("not a whole minute")
            << QByteArray("KEZ-0:09:21") << QByteArray("15/01/2024 12:09:21,005");
    }
    void timeIsLocal()
    {
        QFETCH(QByteArray, zone);
        QFETCH(QByteArray, text);
        QCOMPARE(linesInZone(zone, {1705320000005}), QByteArrayList{text + " <INFOR> m"});
    }

    void daylightSavingIsFollowedWhileRunning()
    {
        // Daylight saving begins at 2024-03-31T01:00:00Z and ends at 2024-10-27T01:00:00Z.
        const QByteArrayList lines = linesInZone("CET-1CEST,M3.5.0,M10.5.0/3",
                                                 {1711846799999, 1711846800000, 1711846801000,
                                                  1729990799999, 1729990800000, 1711846799000});
        const QByteArrayList expected{
            "31/03/2024 01:59:59,999 <INFOR> m", "31/03/2024 03:00:00,000 <INFOR> m",
            "31/03/2024 03:00:01,000 <INFOR> m", "27/10/2024 02:59:59,999 <INFOR> m",
            "27/10/2024 02:00:00,000 <INFOR> m", "31/03/2024 01:59:59,000 <INFOR> m"};
        QCOMPARE(lines, expected);
    }
};

KEZ_TEST_MAIN_WITH_CHILDREN(TestLoggerLevel, childMain)
#include "tst_loggerlevel.moc"
