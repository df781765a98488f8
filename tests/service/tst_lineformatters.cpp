// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/escapedtext_p.h"
#include "support/allocations.h"
#include "support/libcfaults.h"
#include "support/logring.h"
#include "support/messagecapture.h"

#include <kez/log.h>
#include <kez/service/lineformatters.h>

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <QThread>

#include <functional>
#include <pthread.h>
#include <random>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace KezService;

namespace {

QString lineOf(LogFormatter formatter, const QString& message,
               LoggerLevel::LogLevel level = LoggerLevel::info)
{
    QString line = QStringLiteral("what was there before");
    formatter(level, message, line);
    return line;
}

/// The object that a line holds; empty if the bytes are not one JSON object.
QJsonObject objectIn(const QString& line)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(line.toUtf8(), &error);
    return error.error == QJsonParseError::NoError ? document.object() : QJsonObject();
}

QString memberOf(const QString& line, const char* name)
{
    return objectIn(line).value(QLatin1String(name)).toString();
}

/// What a JSON text in UTF-8 can say of `text`.
QString withoutHalves(QString text)
{
    for (qsizetype i = 0; i < text.size(); ++i)
        if (isLoneSurrogate(text, i))
            text[i] = QChar(QChar::ReplacementCharacter);
    return text;
}

/// Reads what escapedLine() wrote.
QString unescaped(const QString& text)
{
    QString plain;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            plain += text[i];
            continue;
        }
        const QChar kind = text[++i];
        const int digits = kind == 'x' ? 2 : kind == 'u' ? 4 : 0;
        if (digits > 0)
            plain += QChar(text.sliced(i + 1, digits).toUShort(nullptr, 16));
        else
            plain += kind == 'n' ? u'\n' : kind == 'r' ? u'\r' : kind == 't' ? u'\t' : kind;
        i += digits;
    }
    return plain;
}

QString allControlCharacters()
{
    QString text;
    for (char16_t c = 0; c < 0x100; ++c)
        text += QChar(c);
    return text + QChar(0x2028) + QChar(0x2029);
}

QString randomText(std::mt19937& random)
{
    static const QString characters = QStringLiteral("ab \\\"nrtxu0/{}") + QChar(u'\n') +
                                      QChar(0x1b) + QChar(0x85) + QChar(0x2028) + QChar(0xd83d) +
                                      QChar(0xde00) + QChar(0xe9) + QChar(0xffff);
    QString text;
    for (auto length = random() % 12; length > 0; --length)
        text += characters[qsizetype(random() % size_t(characters.size()))];
    return text;
}

void addHostileMessages()
{
    QTest::addColumn<QString>("message");
    QTest::newRow("empty") << QString();
    QTest::newRow("ordinary") << "Request 48213 served in 12 ms";
    QTest::newRow("forged line") << "alice\n21/11/2026 18:03:04,123 <ERROR> root logged in";
    QTest::newRow("forged member") << R"(alice","level":"fatal","x":")";
    QTest::newRow("backslashes") << R"(C:\new\table\u0041\x41\)";
    QTest::newRow("control characters") << allControlCharacters();
    QTest::newRow("outside of the basic plane") << QString::fromUtf8("😀 é 漢");
    QTest::newRow("first half") << QString("a") + QChar(0xd83d) + "b";
    QTest::newRow("first half at the end") << QString("a") + QChar(0xd83d);
    QTest::newRow("second half at the beginning") << QChar(0xde00) + QString("a");
    QTest::newRow("halves in the wrong order") << QString(QChar(0xde00)) + QChar(0xd83d) + "x";
    QTest::newRow("first half twice") << QString(QChar(0xd83d)) + QChar(0xd83d) + QChar(0xde00);
    QTest::newRow("second half twice") << QString(QChar(0xd83d)) + QChar(0xde00) + QChar(0xde00);
    QTest::newRow("no characters") << QString(QChar(0xffff)) + QChar(0xfeff) + QChar(0xfdd0);
    QTest::newRow("long") << QString(1 << 20, u'x') + u'\n';
    QTest::newRow("long, nothing but escapes") << QString(1 << 20, QChar(1));
}

/// Where auditedLine() logs; null for nowhere.
Logger* auditLog = nullptr;

/// A formatter that logs, by a logger of its own or by the one that it serves.
void auditedLine(LoggerLevel::LogLevel, const QString& msg, QString& out)
{
    if (auditLog)
        auditLog->info(QString::number(msg.size()) + " characters");
    out = QString(msg).replace('\n', QLatin1String("\\n"));
}

/// Runs `work` in a thread with that name, as the system knows it.
void inThread(const char* name, const std::function<void()>& work)
{
    std::thread([&] {
        pthread_setname_np(pthread_self(), name);
        work();
    }).join();
}

} // namespace

class TestLineFormatters : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { LibcFaults::reset(); }

    void jsonSaysWhatWasLogged_data() { addHostileMessages(); }
    void jsonSaysWhatWasLogged()
    {
        QFETCH(const QString, message);
        const QString line = lineOf(jsonLine, message);
        const QJsonObject object = objectIn(line);
        QCOMPARE(object.keys(), (QStringList{"level", "message", "thread", "time"}));
        QCOMPARE(object.value("message").toString(), withoutHalves(message));
        QVERIFY(std::none_of(line.begin(), line.end(), [](QChar c) {
            return c.category() == QChar::Other_Control || c == QChar(0x2028) || c == QChar(0x2029);
        }));
    }

    void jsonOfRandomTextsIsValid()
    {
        std::mt19937 random(4711);
        for (int i = 0; i < 20000; ++i) {
            const QString text = randomText(random);
            QCOMPARE(memberOf(lineOf(jsonLine, text), "message"), withoutHalves(text));
        }
    }

    void jsonLooksAsDocumented()
    {
        LibcFaults::clock = Q_INT64_C(1795284184123456789);
        inThread("worker", [] {
            QCOMPARE(lineOf(jsonLine, "'a'\n\t\x1b", LoggerLevel::warning),
                     QString(R"({"time":"2026-11-21T18:03:04.123Z","level":"warning",)"
                             R"("message":"'a'\n\t\u001b","thread":"worker"})"));
        });
    }

    void jsonTimeIsUniversal_data()
    {
        QTest::addColumn<qint64>("nanoseconds");
        QTest::addColumn<QString>("time");
        QTest::newRow("begin of a second")
            << Q_INT64_C(1795284184000000000) << "2026-11-21T18:03:04.000Z";
        QTest::newRow("end of a second")
            << Q_INT64_C(1795284184999999999) << "2026-11-21T18:03:04.999Z";
        QTest::newRow("leap day") << Q_INT64_C(1709210096007000000) << "2024-02-29T12:34:56.007Z";
        QTest::newRow("clock set back") << Q_INT64_C(1000000) << "1970-01-01T00:00:00.001Z";
    }
    void jsonTimeIsUniversal()
    {
        QFETCH(const qint64, nanoseconds);
        LibcFaults::clock = nanoseconds;
        QTEST(memberOf(lineOf(jsonLine, QString()), "time"), "time");
    }

    void jsonTimeIsThatOfTheLine()
    {
        const QDateTime before = QDateTime::currentDateTimeUtc();
        const QString text = memberOf(lineOf(jsonLine, QString()), "time");
        const QDateTime after = QDateTime::currentDateTimeUtc();
        const QDateTime time = QDateTime::fromString(text, Qt::ISODateWithMs);
        QVERIFY2(before <= time && time <= after, qPrintable(text));
    }

    void jsonNamesTheLevel_data()
    {
        QTest::addColumn<int>("level");
        QTest::addColumn<QString>("name");
        QTest::newRow("debug") << int(LoggerLevel::debug) << "debug";
        QTest::newRow("info") << int(LoggerLevel::info) << "info";
        QTest::newRow("warning") << int(LoggerLevel::warning) << "warning";
        QTest::newRow("error") << int(LoggerLevel::error) << "error";
        QTest::newRow("fatal") << int(LoggerLevel::fatal) << "fatal";
    }
    void jsonNamesTheLevel()
    {
        QFETCH(const int, level);
        const auto logLevel = static_cast<LoggerLevel::LogLevel>(level);
        QTEST(memberOf(lineOf(jsonLine, QString(), logLevel), "level"), "name");
    }

    void jsonNamesTheThread_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QString>("shown");
        QTest::newRow("short") << QByteArray("io") << "io";
        QTest::newRow("as long as can be") << QByteArray("fifteen letters") << "fifteen letters";
        QTest::newRow("hostile") << QByteArray("\"\\\n\x1b{}") << "\"\\\n\x1b{}";
        QTest::newRow("nothing but escapes") << QByteArray(15, '\1') << QString(15, QChar(1));
        QTest::newRow("not UTF-8") << QByteArray("a\xff") << QString("a") + QChar(0xfffd);
    }
    void jsonNamesTheThread()
    {
        QFETCH(const QByteArray, name);
        QString shown;
        inThread(name.constData(), [&] { shown = memberOf(lineOf(jsonLine, "x"), "thread"); });
        QTEST(shown, "shown");
    }

    void jsonNumbersAThreadWithoutAName()
    {
        QCOMPARE(memberOf(lineOf(jsonLine, "x"), "thread"), QString::number(getpid()));
        std::thread([] {
            QCOMPARE(memberOf(lineOf(jsonLine, "x"), "thread"), QString::number(gettid()));
        }).join();
        inThread("", [] {
            QCOMPARE(memberOf(lineOf(jsonLine, "x"), "thread"), QString::number(gettid()));
        });
    }

    void jsonNamesQtsThreadAsItsObject()
    {
        QString shown;
        const std::unique_ptr<QThread> thread(
            QThread::create([&] { shown = memberOf(lineOf(jsonLine, "x"), "thread"); }));
        thread->setObjectName("intake");
        thread->start();
        QVERIFY(thread->wait(60000));
        QCOMPARE(shown, QString("intake"));
    }

    void newNameOfAThreadShowsInTheNextSecond()
    {
        LibcFaults::clock = Q_INT64_C(1795284184000000000);
        inThread("before", [] {
            QCOMPARE(memberOf(lineOf(jsonLine, "x"), "thread"), QString("before"));
            pthread_setname_np(pthread_self(), "after");
            LibcFaults::clock = Q_INT64_C(1795284185000000000);
            QCOMPARE(memberOf(lineOf(jsonLine, "x"), "thread"), QString("after"));
        });
    }

    void jsonReachesTheFileAsItIs()
    {
        const LogRing ring;
        Logger logger(ring.name(), 1 << 30, 1, 365, LoggerLevel::debug, jsonLine);
        logger.disableTee();
        std::mt19937 random(42);
        QStringList texts;
        for (int i = 0; i < 1000; ++i) {
            texts.append(randomText(random));
            logger.info(texts.last());
        }
        const QByteArrayList lines = ring.lines(0);
        QCOMPARE(lines.size(), texts.size());
        for (qsizetype i = 0; i < lines.size(); ++i)
            QCOMPARE(memberOf(QString::fromUtf8(lines[i]), "message"), withoutHalves(texts[i]));
    }

    void jsonLinesOfSeveralThreadsStayWhole()
    {
        const LogRing ring;
        Logger logger(ring.name(), 1 << 30, 1, 365, LoggerLevel::debug, jsonLine);
        logger.disableTee();
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([&logger, thread] {
                const QString name = QStringLiteral("t%1").arg(thread);
                pthread_setname_np(pthread_self(), name.toLatin1().constData());
                for (int i = 0; i < 300; ++i)
                    logger.info(name + QStringLiteral("\n%1").arg(i));
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        QMap<QString, int> next;
        for (const QByteArray& line : ring.lines(0)) {
            const QString thread = memberOf(QString::fromUtf8(line), "thread");
            const int number = next[thread]++;
            QCOMPARE(memberOf(QString::fromUtf8(line), "message"),
                     thread + QStringLiteral("\n%1").arg(number));
        }
        QCOMPARE(next, (QMap<QString, int>{{"t0", 300}, {"t1", 300}, {"t2", 300}, {"t3", 300}}));
    }

    void escapedLineIsOneLine_data() { addHostileMessages(); }
    void escapedLineIsOneLine()
    {
        QFETCH(const QString, message);
        LibcFaults::clock = Q_INT64_C(1795284184123456789);
        const QString line = lineOf(escapedLine, message, LoggerLevel::error);
        const QString head = lineOf(Logger::formatter, QString(), LoggerLevel::error);
        QVERIFY(line.startsWith(head));
        const QString text = line.sliced(head.size());
        QCOMPARE(unescaped(text), message);
        QVERIFY(std::none_of(text.begin(), text.end(), [](QChar c) {
            return c.category() == QChar::Other_Control || c == QChar(0x2028) || c == QChar(0x2029);
        }));
    }

    void escapesAreReadable_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("escaped");
        QTest::newRow("ordinary") << "Numéro 1 \"x\""
                                  << "Numéro 1 \"x\"";
        QTest::newRow("line ends") << "a\r\nb\tc"
                                   << R"(a\r\nb\tc)";
        QTest::newRow("terminal") << "\x1b[31mred"
                                  << R"(\x1b[31mred)";
        QTest::newRow("NUL") << QString(QChar(0)) << R"(\x00)";
        QTest::newRow("DEL") << QString(QChar(0x7f)) << R"(\x7f)";
        QTest::newRow("C1") << QString(QChar(0x9b)) << R"(\x9b)";
        QTest::newRow("no-break space") << QString(QChar(0xa0)) << QString(QChar(0xa0));
        QTest::newRow("separators") << QString(QChar(0x2028)) + QChar(0x2029) << R"(\u2028\u2029)";
        QTest::newRow("backslash") << R"(a\nb)"
                                   << R"(a\\nb)";
    }
    void escapesAreReadable()
    {
        QFETCH(const QString, message);
        QFETCH(const QString, escaped);
        LibcFaults::clock = Q_INT64_C(1795284184123456789);
        QCOMPARE(lineOf(escapedLine, message), lineOf(Logger::formatter, escaped));
    }

    void escapesOfDifferentTextsDiffer()
    {
        const qsizetype headLength = lineOf(escapedLine, QString()).size();
        std::mt19937 random(4711);
        for (int i = 0; i < 20000; ++i) {
            const QString text = randomText(random);
            QCOMPARE(unescaped(lineOf(escapedLine, text).sliced(headLength)), text);
        }
    }

    void ordinaryLineCostsNoMemory()
    {
        if (!Allocations::AreCounted)
            QSKIP("The sanitizer has allocation functions of its own.");
        LibcFaults::clock = Q_INT64_C(1795284184123456789);
        const QString message = QStringLiteral("Request 48213 served in 12 ms");
        for (const LogFormatter formatter : {&jsonLine, &escapedLine}) {
            QString line = lineOf(formatter, message);
            const long before = Allocations::count;
            formatter(LoggerLevel::info, message, line);
            QCOMPARE(Allocations::count - before, 0L);
        }
    }

    void formatterMayLogToAnotherLogger()
    {
        const LogRing ring;
        const LogRing audit;
        Logger other(audit.name(), 0, 5, 100, LoggerLevel::debug, escapedLine);
        Logger logger(ring.name(), 0, 5, 100, LoggerLevel::debug, auditedLine);
        for (Logger* const each : {&other, &logger})
            each->disableTee();
        const MessageCapture capture;
        auditLog = &other;
        logger.warning(QStringLiteral("a\nb"));
        logger.info(QStringLiteral("c"));
        auditLog = &logger; // itself
        logger.info(QStringLiteral("d"));
        auditLog = nullptr;
        QCOMPARE(ring.lines(0), (QByteArrayList{"a\\nb", "c", "d"}));
        QCOMPARE(audit.lines(0).size(), 2);
        QVERIFY(audit.lines(0).at(0).endsWith("<INFOR> 3 characters"));
        QVERIFY(audit.lines(0).at(1).endsWith("<INFOR> 1 characters"));
        // Its own line, and the one that this formatter logs for that line.
        QCOMPARE(capture.texts().size(), 2);
        QVERIFY(capture.texts().last().endsWith("1 characters"));
    }

    void messageMayBeTheResult_data()
    {
        QTest::addColumn<QString>("message");
        QTest::newRow("plain") << "plain";
        QTest::newRow("escaped") << "a\nb";
    }
    void messageMayBeTheResult()
    {
        QFETCH(const QString, message);
        LibcFaults::clock = Q_INT64_C(1795284184123456789);
        for (const LogFormatter formatter : {&jsonLine, &escapedLine}) {
            QString text = message;
            formatter(LoggerLevel::info, text, text);
            QCOMPARE(text, lineOf(formatter, message));
        }
    }
};

QTEST_GUILESS_MAIN(TestLineFormatters)
#include "tst_lineformatters.moc"
