// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/categorypattern_p.h"
#include "service/kittexts_p.h"
#include "support/allocations.h"
#include "support/childprocess.h"
#include "support/failuretext.h"
#include "support/libcfaults.h"
#include "support/logring.h"
#include "support/messagecapture.h"
#include "support/standarderror.h"

#include <kez/log.h>
#include <kez/service/lineformatters.h>
#include <kez/service/messagebridge.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QSemaphore>
#include <QTest>

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <thread>
#include <vector>

#include <sys/resource.h>

using namespace KezService;

Q_LOGGING_CATEGORY(netHttp, "net.http")
Q_LOGGING_CATEGORY(netFtp, "net.ftp")
Q_LOGGING_CATEGORY(disk, "disk")

namespace {

constexpr quint32 Century = 36500;
constexpr quint64 Large = quint64(1) << 30;

/// The process's log, on a ring of its own.
struct ProcessLog {
    explicit ProcessLog(bool tee = false, LogFormatter formatter = levelFormatter,
                        LoggerLevel::LogLevel filter = LoggerLevel::debug)
        : log(ring.name(), tee, Large, 1, Century, filter, formatter)
    {}

    QByteArray bytes() const { return ring.bytes(0); }
    QByteArrayList lines() const { return ring.lines(0); }

    const LogRing ring;
    Log log;
};

std::shared_ptr<Logger> quietLogger(const LogRing& ring, LogFormatter formatter = levelFormatter)
{
    auto logger =
        std::make_shared<Logger>(ring.name(), Large, 1U, Century, LoggerLevel::debug, formatter);
    logger->disableTee();
    return logger;
}

void send(QtMsgType type, const char* category, const char* text)
{
    const QMessageLogger logger(nullptr, 0, nullptr, category);
    switch (type) {
    case QtDebugMsg:
        return logger.debug("%s", text);
    case QtInfoMsg:
        return logger.info("%s", text);
    case QtWarningMsg:
        return logger.warning("%s", text);
    case QtCriticalMsg:
        return logger.critical("%s", text);
    case QtFatalMsg:
        logger.fatal("%s", text);
    }
}

/// What a formatter does with one message, "act", before it writes the line.
std::function<void()> s_inFormatter;

void actingFormatter(LoggerLevel::LogLevel level, const QString& msg, QString& out)
{
    if (msg.endsWith(QLatin1String("act")) && s_inFormatter)
        s_inFormatter();
    levelFormatter(level, msg, out);
}

/// A handler that shows its messages to the one before, as a test framework may do.
QtMessageHandler s_below = nullptr;
std::atomic<int> s_shownOnTop = 0;

void handlerOnTop(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    ++s_shownOnTop;
    s_below(type, context, text);
}

void installOnTop()
{
    s_shownOnTop = 0;
    s_below = qInstallMessageHandler(handlerOnTop);
}

QtMessageHandler currentHandler()
{
    const QtMessageHandler current = qInstallMessageHandler(nullptr);
    qInstallMessageHandler(current);
    return current;
}

/// How often `part` stands in `text`.
qsizetype countOf(const QByteArray& part, const QByteArray& text)
{
    return text.count(part);
}

/// In a child: the process's log on the ring "app" in that directory, and a fatal message.
int childFatal(const QStringList& arguments)
{
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    const bool tee = arguments.contains("tee");
    const bool isDropped = arguments.contains("dropped");
    Log::initInstance(arguments.first() + "/app", tee, Large, 1, Century,
                      isDropped ? LoggerLevel::fatal : LoggerLevel::debug, levelFormatter);
    const MessageBridge bridge({{{"*", LoggerLevel::fatal}}, {}});
    qCCritical(netHttp, "below the level");
    send(QtFatalMsg, "net.http", "the end");
    return 0;
}

/// In a child: messages of a process that never made its log.
int childWithoutALog(const QStringList&)
{
    const MessageBridge bridge;
    qWarning("by Qt");
    Log::getInstance()->warning("by the log");
    return 0;
}

int childMain(const QStringList& arguments)
{
    return arguments.first() == "none" ? childWithoutALog(arguments) : childFatal(arguments);
}

} // namespace

class TestMessageBridge : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cleanup()
    {
        s_inFormatter = nullptr;
        LibcFaults::reset();
    }

    void messageIsALine_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QByteArray>("category");
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("debug") << int(QtDebugMsg) << QByteArray("default") << QByteArray("0:text");
        QTest::newRow("info") << int(QtInfoMsg) << QByteArray("default") << QByteArray("1:text");
        QTest::newRow("warning") << int(QtWarningMsg) << QByteArray("default")
                                 << QByteArray("2:text");
        QTest::newRow("critical") << int(QtCriticalMsg) << QByteArray("default")
                                  << QByteArray("3:text");
        QTest::newRow("category") << int(QtInfoMsg) << QByteArray("net.http")
                                  << QByteArray("1:[net.http] text");
        QTest::newRow("no category") << int(QtInfoMsg) << QByteArray() << QByteArray("1:text");
        QTest::newRow("empty category")
            << int(QtInfoMsg) << QByteArray("") << QByteArray("1:[] text");
        QTest::newRow("UTF-8") << int(QtInfoMsg) << QByteArray("réseau")
                               << QByteArray("1:[réseau] text");
    }
    void messageIsALine()
    {
        QFETCH(const int, type);
        QFETCH(const QByteArray, category);
        QFETCH(const QByteArray, line);
        const ProcessLog process;
        const StandardErrorCapture standardError;
        const MessageBridge bridge;
        send(QtMsgType(type), category.isNull() ? nullptr : category.constData(), "text");
        QCOMPARE(process.bytes(), line + '\n');
        QCOMPARE(standardError.bytes(), QByteArray());
    }

    void everyWayToSendAMessageIsLogged()
    {
        const ProcessLog process;
        const MessageBridge bridge;
        qDebug() << "streamed" << 1;
        qCWarning(netHttp).noquote() << "refused:" << QString::fromUtf8("é");
        qCInfo(disk, "%d files", 3);
        qInfo("%s", "");
        QCOMPARE(process.lines(), (QByteArrayList{"0:streamed 1", "2:[net.http] refused: é",
                                                  "1:[disk] 3 files", "1:"}));
    }

    void levelDependsOnTheCategory_data()
    {
        QTest::addColumn<QStringList>("patterns"); // each with the level behind "="
        QTest::addColumn<int>("lowestForHttp");
        QTest::newRow("none") << QStringList() << 0;
        QTest::newRow("exact") << QStringList{"net.http=2"} << 2;
        QTest::newRow("everything") << QStringList{"*=1"} << 1;
        QTest::newRow("beginning") << QStringList{"net.*=3"} << 3;
        QTest::newRow("end") << QStringList{"*.http=2"} << 2;
        QTest::newRow("inside") << QStringList{"*et.h*=2"} << 2;
        QTest::newRow("others") << QStringList{"net=3",  "net.httpx=3", "*.ftp=3",
                                               "ftp*=3", "http=3",      "*x*=3"}
                                << 0;
        QTest::newRow("exact before patterns")
            << QStringList{"net.http*=0", "net.http=2", "*=1"} << 2;
        QTest::newRow("longer before shorter")
            << QStringList{"*=0", "net.*=1", "net.ht*=2", "n*=3"} << 2;
        QTest::newRow("longer end before shorter beginning")
            << QStringList{"n*=0", "*.http=2"} << 2;
        QTest::newRow("longer inside before shorter beginning")
            << QStringList{"*http=0", "net.*=2", "*t.htt*=3"} << 3;
        QTest::newRow("beginning before end of the same length")
            << QStringList{"*http=0", "net.*=2", "*.htt*=3"} << 2;
        QTest::newRow("end before inside of the same length")
            << QStringList{"*htt*=3", "*ttp=1"} << 1;
        QTest::newRow("all are dropped") << QStringList{"*=4"} << 4;
    }
    void levelDependsOnTheCategory()
    {
        QFETCH(const QStringList, patterns);
        QFETCH(const int, lowestForHttp);
        MessageBridge::Settings settings;
        for (const QString& pattern : patterns)
            settings.levels.insert(pattern.section('=', 0, 0),
                                   LoggerLevel::LogLevel(pattern.section('=', 1).toInt()));
        const ProcessLog process;
        const MessageBridge bridge(settings);
        QByteArrayList expected;
        for (const QtMsgType type : {QtDebugMsg, QtInfoMsg, QtWarningMsg, QtCriticalMsg})
            send(type, "net.http", "x");
        for (int level = lowestForHttp; level < LoggerLevel::fatal; ++level)
            expected.append(QByteArray::number(level) + ":[net.http] x");
        QCOMPARE(process.lines(), expected);
    }

    void filterOfTheLoggerCountsToo()
    {
        const ProcessLog process(false, levelFormatter, LoggerLevel::error);
        const MessageBridge bridge({{{"net.http", LoggerLevel::debug}}, {}});
        qCWarning(netHttp, "dropped");
        qCCritical(netHttp, "kept");
        QCOMPARE(process.lines(), QByteArrayList{"3:[net.http] kept"});
    }

    void droppedMessageIsNotFormatted()
    {
        const ProcessLog process(false, actingFormatter);
        bool isFormatted = false;
        s_inFormatter = [&] { isFormatted = true; };
        const MessageBridge bridge({{{"disk", LoggerLevel::error}}, {}});
        qCWarning(disk, "act");
        QVERIFY(!isFormatted);
        qCCritical(disk, "act");
        QVERIFY(isFormatted);
    }

    void categoriesGoToNamedLoggers()
    {
        ProcessLog process;
        const LogRing network;
        const LogRing http;
        process.log.insertLoggger("network", quietLogger(network));
        process.log.insertLoggger("http", quietLogger(http));
        const MessageBridge bridge(
            {{{"net.*", LoggerLevel::info}}, {{"net.*", "network"}, {"net.http", "http"}}});
        qCInfo(netHttp, "a");
        qCInfo(netFtp, "b");
        qCDebug(netFtp, "below");
        qCInfo(disk, "c");
        qInfo("d");
        QCOMPARE(http.lines(0), QByteArrayList{"1:[net.http] a"});
        QCOMPARE(network.lines(0), QByteArrayList{"1:[net.ftp] b"});
        QCOMPARE(process.lines(), (QByteArrayList{"1:[disk] c", "1:d"}));
    }

    void namedLoggerIsKept()
    {
        ProcessLog process;
        const LogRing network;
        process.log.insertLoggger("network", quietLogger(network));
        const MessageBridge bridge({{}, {{"net.*", "network"}}});
        process.log.removeLogger("network").reset();
        qCInfo(netHttp, "still there");
        QCOMPARE(network.lines(0), QByteArrayList{"1:[net.http] still there"});
    }

    void wrongSettingsAreRefused_data()
    {
        QTest::addColumn<QString>("levelPattern");
        QTest::addColumn<QString>("loggerPattern");
        QTest::addColumn<QString>("logger");
        QTest::addColumn<QString>("failure");
        const auto noPattern = [](const char* shown) {
            return kitText("BridgePatternInvalid", QString::fromUtf8(shown));
        };
        QTest::newRow("no pattern") << ""
                                    << "net"
                                    << "network" << noPattern("");
        QTest::newRow("inside") << "net.*.http"
                                << "net"
                                << "network" << noPattern("net.*.http");
        QTest::newRow("three") << "***"
                               << "net"
                               << "network" << noPattern("***");
        QTest::newRow("inside, for a logger") << "*"
                                              << "a*b\n"
                                              << "network" << noPattern("a*b\\n");
        QTest::newRow("unknown logger")
            << "*"
            << "net.*"
            << "net\nwork"
            << kitText("BridgeLoggerUnknown", QString("net\\nwork"), QString("net.*"));
        QTest::newRow("no logger")
            << "*"
            << "net"
            << "null" << kitText("BridgeLoggerUnknown", QString("null"), QString("net"));
    }
    void wrongSettingsAreRefused()
    {
        QFETCH(const QString, levelPattern);
        QFETCH(const QString, loggerPattern);
        QFETCH(const QString, logger);
        ProcessLog process;
        const LogRing network;
        process.log.insertLoggger("network", quietLogger(network));
        process.log.insertLoggger("null", nullptr);
        const QtMessageHandler before = currentHandler();
        const MessageBridge::Settings settings{{{levelPattern, LoggerLevel::info}},
                                               {{loggerPattern, logger}}};
        QTEST(failureText([&] { const MessageBridge bridge(settings); }), "failure");
        QVERIFY(currentHandler() == before);
        const MessageBridge bridge; // nothing is left of the one that failed
    }

    void secondBridgeIsRefused()
    {
        const ProcessLog process;
        std::optional<MessageBridge> bridge;
        bridge.emplace();
        QCOMPARE(failureText([] { const MessageBridge second; }), kitText("BridgeExists"));
        qInfo("still the first");
        QCOMPARE(process.lines(), QByteArrayList{"1:still the first"});
        bridge.reset();
        bridge.emplace();
        qInfo("a new one");
        QCOMPARE(process.lines().size(), 2);
    }

    void handlerBeforeIsRestored()
    {
        const ProcessLog process;
        const MessageCapture before;
        qInfo("a");
        {
            const MessageBridge bridge;
            qInfo("b");
        }
        qInfo("c");
        QCOMPARE(before.texts(), (QStringList{"a", "c"}));
        QCOMPARE(process.lines(), QByteArrayList{"1:b"});
    }

    void handlerOnTopStays()
    {
        const ProcessLog process;
        const MessageCapture before;
        {
            const MessageBridge bridge;
            installOnTop();
            qInfo("a");
        }
        QVERIFY(currentHandler() == &handlerOnTop);
        qInfo("b");
        QCOMPARE(s_shownOnTop.load(), 2);
        QCOMPARE(process.lines(), QByteArrayList{"1:a"});
        QCOMPARE(before.texts(), QStringList{"b"});
        // It restores what it found: the bridge's handler. Without a bridge, this changes nothing.
        qInstallMessageHandler(s_below);
        qInfo("c");
        QCOMPARE(before.texts(), (QStringList{"b", "c"}));
        {
            const MessageBridge another;
            qInfo("d");
        }
        QCOMPARE(process.lines(), (QByteArrayList{"1:a", "1:d"}));
        qInfo("e");
        QCOMPARE(before.texts(), (QStringList{"b", "c", "e"}));
    }

    /// The handler before the second bridge is the one on top of the first, which passes on to what
    /// both bridges installed.
    void handlersInACircleEnd()
    {
        const ProcessLog process;
        const StandardErrorCapture standardError;
        const MessageCapture before;
        {
            const MessageBridge first;
            installOnTop();
        }
        {
            const MessageBridge second;
            qInfo("a");
        }
        QCOMPARE(process.lines(), QByteArrayList{"1:a"});
        qInfo("b");
        QCOMPARE(standardError.bytes(), QByteArray("b\n"));
        QCOMPARE(s_shownOnTop.load(), 2);
    }

    void lineOfTheLogGoesToTheStandardError_data()
    {
        QTest::addColumn<QString>("way");
        QTest::addColumn<QByteArray>("shown");
        QTest::newRow("tee") << "tee" << QByteArray("\"2:x [Tee]\"\n");
        QTest::newRow("closed") << "closed" << QByteArray("\"2:x\"\n");
        QTest::newRow("lost") << "lost" << QByteArray("\"2:x [>>]\"\n");
    }
    void lineOfTheLogGoesToTheStandardError()
    {
        QFETCH(const QString, way);
        QFETCH(const QByteArray, shown);
        ProcessLog process(way == "tee");
        const StandardErrorCapture standardError;
        const MessageBridge bridge;
        if (way == "closed")
            process.log.logger()->close();
        if (way == "lost")
            LibcFaults::writeError = ENOSPC;
        process.log.warning("x");
        QCOMPARE(standardError.bytes(), shown);
        QCOMPARE(process.bytes(), QByteArray(way == "tee" ? "2:x [Tee]\n" : ""));
    }

    /// The same, but the line is a message of Qt.
    void lineOfAMessageIsShownOnce_data() { lineOfTheLogGoesToTheStandardError_data(); }
    void lineOfAMessageIsShownOnce()
    {
        QFETCH(const QString, way);
        ProcessLog process(way == "tee");
        const StandardErrorCapture standardError;
        const MessageBridge bridge;
        if (way == "closed")
            process.log.logger()->close();
        if (way == "lost")
            LibcFaults::writeError = ENOSPC;
        qWarning("x");
        QTEST(standardError.bytes(), "shown");
        QCOMPARE(process.bytes(), QByteArray(way == "tee" ? "2:x [Tee]\n" : ""));
    }

    void insideMessageHasTheMessagePattern()
    {
        const ProcessLog process(true);
        const StandardErrorCapture standardError;
        const MessageBridge bridge;
        qSetMessagePattern("%{type}|%{category}|%{message}");
        Log::getInstance()->warning("x");
        qSetMessagePattern("%{if-category}%{category}: %{endif}%{message}");
        QCOMPARE(standardError.bytes(), QByteArray("warning|default|\"2:x [Tee]\"\n"));
    }

    void messageInAFormatterGoesToTheStandardError_data()
    {
        QTest::addColumn<bool>("tee");
        QTest::addColumn<bool>("byQt");
        QTest::newRow("a line") << false << false;
        QTest::newRow("a line, tee") << true << false;
        QTest::newRow("a message") << false << true;
        QTest::newRow("a message, tee") << true << true;
    }
    void messageInAFormatterGoesToTheStandardError()
    {
        QFETCH(const bool, tee);
        QFETCH(const bool, byQt);
        const ProcessLog process(tee, actingFormatter);
        const StandardErrorCapture standardError;
        const MessageBridge bridge;
        s_inFormatter = [] { qWarning("inside"); };
        if (byQt)
            qInfo("act");
        else
            Log::getInstance()->info("act");
        QCOMPARE(process.bytes(), QByteArray(tee ? "1:act [Tee]\n" : "1:act\n"));
        QCOMPARE(standardError.bytes(), QByteArray(tee ? "inside\n\"1:act [Tee]\"\n" : "inside\n"));
    }

    void processWithoutALogShowsALineOnce()
    {
        const ChildResult child = runChild({"none"});
        QVERIFY2(child.finished && !child.crashed, child.err.constData());
        QCOMPARE(countOf("\n", child.err), 2);
        QCOMPARE(countOf("<WARNG> by Qt", child.err), 1);
        QCOMPARE(countOf("<WARNG> by the log", child.err), 1);
        QVERIFY2(!child.err.contains("DEADLOCK"), child.err.constData());
    }

    void messageWhoseLineFailsGoesToTheStandardError_data()
    {
        QTest::addColumn<int>("kind");
        QTest::newRow("memory exhaustion") << 0;
        QTest::newRow("Exception") << 1;
        QTest::newRow("something else") << 2;
    }
    void messageWhoseLineFailsGoesToTheStandardError()
    {
        QFETCH(const int, kind);
        const ProcessLog process(false, actingFormatter);
        const StandardErrorCapture standardError;
        const MessageBridge bridge;
        s_inFormatter = [kind] {
            if (kind == 0)
                throw std::bad_alloc();
            if (kind == 1)
                throw Exception("no");
            throw kind;
        };
        qCWarning(netHttp, "act");
        s_inFormatter = nullptr;
        qCWarning(netHttp, "act");
        QCOMPARE(standardError.bytes(), QByteArray("net.http: act\n"));
        QCOMPARE(process.lines(), QByteArrayList{"2:[net.http] act"});
        QVERIFY(!Logger::isWritingLine());
    }

    void messageIsShownWithoutMemory_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("shown");
        QTest::newRow("short") << QByteArray("act") << QByteArray("act\n");
        QTest::newRow("its beginning")
            << QByteArray("é").repeated(500) + "act" << QByteArray("é").repeated(300) + '\n';
    }
    void messageIsShownWithoutMemory()
    {
        QFETCH(const QByteArray, text);
        if (!Allocations::AreCounted)
            QSKIP("The sanitizer has allocation functions of its own.");
        const ProcessLog process(false, actingFormatter);
        const StandardErrorCapture standardError;
        const MessageBridge bridge;
        s_inFormatter = [] {
            Allocations::areRefused = true;
            throw std::bad_alloc();
        };
        qCWarning(netHttp, "%s", text.constData());
        Allocations::areRefused = false;
        QTEST(standardError.bytes(), "shown");
    }

    void droppedMessageCostsNoMemory()
    {
        if (!Allocations::AreCounted)
            QSKIP("The sanitizer has allocation functions of its own.");
        const ProcessLog process;
        const MessageBridge bridge({{{"net.*", LoggerLevel::error}}, {}});
        const QtMessageHandler handler = currentHandler();
        const QMessageLogContext context(nullptr, 0, nullptr, "net.http");
        const QString text = QStringLiteral("x");
        const long before = Allocations::count;
        handler(QtWarningMsg, context, text);
        QCOMPARE(Allocations::count - before, 0L);
        handler(QtCriticalMsg, context, text);
        QVERIFY(Allocations::count > before);
        QCOMPARE(process.lines(), QByteArrayList{"3:[net.http] x"});
    }

    void fatalMessageIsInTheLog_data()
    {
        QTest::addColumn<QString>("log");
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QByteArray>("shown");
        QTest::newRow("file") << "file" << QByteArray("3:[net.http] the end\n") << QByteArray();
        QTest::newRow("tee") << "tee" << QByteArray("3:[net.http] the end [Tee]\n")
                             << QByteArray("\"3:[net.http] the end [Tee]\"\n");
        QTest::newRow("dropped by the logger")
            << "dropped" << QByteArray() << QByteArray("net.http: the end\n");
    }
    void fatalMessageIsInTheLog()
    {
        QFETCH(const QString, log);
        const LogRing ring;
        const ChildResult child = runChild({ring.path(), log});
        QVERIFY(child.finished);
        QVERIFY(child.crashed);
        QCOMPARE(child.exitCode, SIGABRT);
        QTEST(ring.bytes(0), "line");
        QTEST(child.err, "shown");
    }

    void jsonLineHasTheCategory()
    {
        const ProcessLog process(false, jsonLine);
        const MessageBridge bridge;
        qCWarning(netHttp, "refused \"x\"\n");
        qInfo("ordinary");
        send(QtInfoMsg, "a\"\\\n\xff", "x");
        Log::getInstance()->info("[net.http] not by Qt");
        QList<QJsonObject> objects;
        for (const QByteArray& line : process.lines())
            objects.append(QJsonDocument::fromJson(line).object());
        QCOMPARE(objects.size(), 4);
        QCOMPARE(objects[0]["category"].toString(), QString("net.http"));
        QCOMPARE(objects[0]["message"].toString(), QString("refused \"x\"\n"));
        QCOMPARE(objects[0]["level"].toString(), QString("warning"));
        QCOMPARE(objects[1]["category"].toString(), QString("default"));
        QCOMPARE(objects[1]["message"].toString(), QString("ordinary"));
        QCOMPARE(objects[2]["category"].toString(), QString("a\"\\\n") + QChar(0xfffd));
        QCOMPARE(objects[2]["message"].toString(), QString("x"));
        QVERIFY(!objects[3].contains("category"));
        QCOMPARE(objects[3]["message"].toString(), QString("[net.http] not by Qt"));
        QVERIFY(process.lines().first().endsWith(R"("category":"net.http"})"));
    }

    void lineThatAFormatterWritesMeanwhileHasNoCategory()
    {
        const LogRing other;
        const auto otherLogger = quietLogger(other, jsonLine);
        const ProcessLog process(false,
                                 [](LoggerLevel::LogLevel level, const QString& msg, QString& out) {
                                     s_inFormatter();
                                     jsonLine(level, msg, out);
                                 });
        s_inFormatter = [&] { otherLogger->info(QStringLiteral("[net.http] message")); };
        const MessageBridge bridge;
        qCInfo(netHttp, "message");
        QVERIFY(!other.bytes(0).contains("category"));
        QVERIFY(other.bytes(0).contains(R"("message":"[net.http] message")"));
        QVERIFY(process.bytes().contains(R"("message":"message")"));
        QVERIFY(process.bytes().contains(R"("category":"net.http")"));
    }

    void escapedLineHasTheCategoryInFront()
    {
        const ProcessLog process(false, escapedLine);
        const MessageBridge bridge;
        qCWarning(netHttp, "alice\n<ERROR> root");
        QCOMPARE(process.lines().size(), 1);
        QVERIFY(process.bytes().endsWith("<WARNG> [net.http] alice\\n<ERROR> root\n"));
    }

    /// With a handler that logs what the tee shows, the first thread would hold the lock of the
    /// process's log and wait for that of the other logger.
    void threadsWithTheTeeOnDoNotWaitForEachOther()
    {
        constexpr int PerThread = 200;
        ProcessLog process(true);
        const LogRing network;
        const auto logger = quietLogger(network);
        logger->enableTee();
        process.log.insertLoggger("network", logger);
        const StandardErrorCapture standardError;
        const MessageBridge bridge({{}, {{"*", "network"}}});
        std::thread second([&] {
            for (int i = 0; i < PerThread; ++i) {
                qCInfo(netHttp, "message %d", i);
                logger->info(QStringLiteral("line %1").arg(i));
            }
        });
        for (int i = 0; i < PerThread; ++i)
            process.log.info(QStringLiteral("line %1").arg(i));
        second.join();

        const QByteArray shown = standardError.bytes();
        QCOMPARE(countOf("DEADLOCK", shown), 0);
        QCOMPARE(countOf("[>>]", shown), 0);
        QCOMPARE(countOf("\n", shown), 3 * PerThread);
        QCOMPARE(process.lines().size(), PerThread);
        QCOMPARE(network.lines(0).size(), 2 * PerThread);
        for (int i = 0; i < PerThread; ++i) {
            const QByteArray number = QByteArray::number(i) + " [Tee]";
            QCOMPARE(process.lines()[i], "1:line " + number);
            QCOMPARE(network.lines(0)[2 * i], "1:[net.http] message " + number);
            QCOMPARE(network.lines(0)[2 * i + 1], "1:line " + number);
            QCOMPARE(countOf("\"1:line " + number + "\"\n", shown), 2);
            QCOMPARE(countOf("\"1:[net.http] message " + number + "\"\n", shown), 1);
        }
    }

    void severalThreadsLoseNothing_data()
    {
        QTest::addColumn<bool>("tee");
        QTest::newRow("tee off") << false;
        QTest::newRow("tee on") << true;
    }
    /// Meanwhile another thread changes settings of the loggers that lose no line.
    void severalThreadsLoseNothing()
    {
        QFETCH(const bool, tee);
        constexpr int Threads = 4;
        constexpr int PerThread = 100;
        ProcessLog process(tee);
        const LogRing network;
        const auto logger = quietLogger(network);
        process.log.insertLoggger("network", logger);
        const StandardErrorCapture standardError;
        const MessageBridge bridge({{{"net.*", LoggerLevel::info}}, {{"net.*", "network"}}});
        std::atomic<bool> isOver = false;
        std::thread changer([&] {
            while (!isOver) {
                logger->setFilter(LoggerLevel::debug);
                logger->enableTee();
                logger->setFilter(LoggerLevel::info);
                logger->disableTee();
                std::this_thread::yield();
            }
        });
        std::vector<std::thread> threads;
        for (int thread = 0; thread < Threads; ++thread) {
            threads.emplace_back([thread] {
                for (int i = 0; i < PerThread; ++i) {
                    qCInfo(netHttp, "%d-%d", thread, i);
                    qCDebug(netFtp, "below");
                    qCWarning(disk, "%d-%d", thread, i);
                    Log::getInstance()->info(QStringLiteral("%1-%2").arg(thread).arg(i));
                }
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        isOver = true;
        changer.join();

        QCOMPARE(countOf("DEADLOCK", standardError.bytes()), 0);
        QCOMPARE(countOf("[>>]", standardError.bytes()), 0);
        QByteArrayList own = process.lines();
        QByteArrayList net = linesIn(network.bytes(0).replace(" [Tee]", ""));
        QByteArrayList expectedOwn;
        QByteArrayList expectedNet;
        for (int thread = 0; thread < Threads; ++thread) {
            for (int i = 0; i < PerThread; ++i) {
                const QByteArray number = QByteArray::number(thread) + '-' + QByteArray::number(i);
                const QByteArray end = tee ? " [Tee]" : "";
                expectedNet.append("1:[net.http] " + number);
                expectedOwn.append("2:[disk] " + number + end);
                expectedOwn.append("1:" + number + end);
            }
        }
        for (QByteArrayList* list : {&own, &net, &expectedOwn, &expectedNet})
            std::sort(list->begin(), list->end());
        QCOMPARE(own, expectedOwn);
        QCOMPARE(net, expectedNet);
    }

    /// Every message is in the log or with the handler before, and once.
    void bridgesComeAndGoWhileOthersSend()
    {
        constexpr int Threads = 3;
        const ProcessLog process;
        const MessageCapture before;
        std::atomic<bool> isOver = false;
        std::atomic<int> sent = 0;
        std::vector<std::thread> threads;
        for (int thread = 0; thread < Threads; ++thread) {
            threads.emplace_back([&] {
                while (!isOver) {
                    qCInfo(netHttp, "x");
                    ++sent;
                    // Without a pause, a line may well wait for the log's lock for too long.
                    std::this_thread::sleep_for(std::chrono::microseconds(20));
                }
            });
        }
        for (int i = 0; i < 200; ++i) {
            const MessageBridge bridge({{{"net.*", LoggerLevel::info}}, {}});
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
        isOver = true;
        for (std::thread& thread : threads)
            thread.join();
        QCOMPARE(process.lines().size() + before.texts().size(), sent.load());
        QCOMPARE(process.lines(),
                 QByteArrayList(process.lines().size(), QByteArray("1:[net.http] x")));
    }

    void destructorWaitsForTheMessageThatIsBeingLogged()
    {
        QSemaphore isFormatting;
        QSemaphore goOn;
        const ProcessLog process(false, actingFormatter);
        s_inFormatter = [&] {
            isFormatting.release();
            goOn.acquire();
        };
        auto bridge = std::make_unique<MessageBridge>();
        std::thread sender([] { qInfo("act"); });
        isFormatting.acquire();
        QSemaphore isDestroyed;
        std::thread destroyer([&] {
            bridge.reset();
            isDestroyed.release();
        });
        const bool tooSoon = isDestroyed.tryAcquire(1, 100);
        goOn.release();
        sender.join();
        destroyer.join();
        QVERIFY(!tooSoon);
        QCOMPARE(process.lines(), QByteArrayList{"1:act"});
    }
};

KEZ_TEST_MAIN_WITH_CHILDREN(TestMessageBridge, childMain)
#include "tst_messagebridge.moc"
