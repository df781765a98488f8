// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/childprocess.h"
#include "support/failuretext.h"
#include "support/language.h"
#include "support/libcfaults.h"
#include "support/logring.h"
#include "support/messagecapture.h"
#include "support/messageprinter.h"
#include "support/opendescriptors.h"

#include <kez/exception.h>
#include <kez/initlib.h>
#include <kez/log.h>
#include <kez/logger.h>

#include <QDir>
#include <QSemaphore>
#include <QTest>

#include <csignal>
#include <cstring>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include <sys/resource.h>

namespace {

constexpr quint32 Century = 36500;
constexpr quint64 Large = 1 << 20;

struct QuietLogger : Logger {
    explicit QuietLogger(const LogRing& ring, quint64 maxSize = Large, quint32 kept = 3)
        : Logger(ring.name(), maxSize, kept, Century, LoggerLevel::debug, plainFormatter)
    {
        disableTee();
    }
};

void limitFileSize(rlim_t bytes)
{
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
}

QString numberedLine(int i)
{
    return QStringLiteral("line %1 of the child").arg(i, 4, 10, QLatin1Char('0'));
}

/// Logs a hundred lines into a file that may grow to forty lines, and two more without that limit.
int childSizeLimit(const QString& name, bool tee, bool ignored, bool later, bool inside)
{
    const rlim_t limit = 40 * 23 + (inside ? 5 : 0);
    signal(SIGXFSZ, ignored ? SIG_IGN : SIG_DFL);
    if (!later)
        limitFileSize(limit);
    Logger logger(name, Large, 3, Century, LoggerLevel::debug, plainFormatter);
    if (!tee)
        logger.disableTee();
    if (later)
        limitFileSize(limit);
    for (int i = 0; i < 100; ++i)
        logger.warning(numberedLine(i));
    limitFileSize(RLIM_INFINITY);
    logger.info(QStringLiteral("room again"));
    logger.info(QStringLiteral("and more"));

    struct sigaction action {};
    sigaction(SIGXFSZ, nullptr, &action);
    sigset_t mask;
    sigset_t pending;
    sigprocmask(SIG_BLOCK, nullptr, &mask);
    sigpending(&pending);
    const bool asBefore = action.sa_handler == (ignored ? SIG_IGN : SIG_DFL) &&
                          !sigismember(&mask, SIGXFSZ) && !sigismember(&pending, SIGXFSZ);
    puts(asBefore ? "signals as before" : "signals changed");
    return 0;
}

/// A signal that was pending before the logger met the limit is still pending afterwards.
int childPendingSignal(const QString& name)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGXFSZ);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    raise(SIGXFSZ);
    limitFileSize(10);
    Logger logger(name, Large, 3, Century, LoggerLevel::debug, plainFormatter);
    logger.disableTee();
    logger.info(QStringLiteral("longer than ten bytes"));
    limitFileSize(RLIM_INFINITY);
    sigset_t pending;
    sigpending(&pending);
    puts(sigismember(&pending, SIGXFSZ) ? "pending" : "lost");
    return 0;
}

/// A fatal line meets the limit: the process shows the line and ends.
int childFatal(const QString& name)
{
    limitFileSize(0);
    Logger logger(name, Large, 3, Century, LoggerLevel::debug, plainFormatter);
    logger.disableTee();
    logger.fatal(QStringLiteral("the end"));
    puts("survived");
    return 0;
}

/// What the formatter or the message handler does once, the next time that it is called.
std::function<void()> s_inFormatter;
std::function<void()> s_inHandler;

void runOnce(std::function<void()>& action)
{
    const std::function<void()> taken = std::exchange(action, nullptr);
    if (taken)
        taken();
}

void actingFormatter(LoggerLevel::LogLevel level, const QString& msg, QString& out)
{
    runOnce(s_inFormatter);
    plainFormatter(level, msg, out);
}

QList<MessageCapture::Message> s_shown;

void actingHandler(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    s_shown.append({type, QString::fromUtf8(context.category), text});
    runOnce(s_inHandler);
}

/// Logs one line. Meanwhile `action` runs: in the message handler that shows the line, or in its
/// formatter.
void logOneLine(Logger& logger, bool inHandler, std::function<void()> action)
{
    s_shown.clear();
    (inHandler ? s_inHandler : s_inFormatter) = std::move(action);
    if (inHandler)
        logger.enableTee();
    else
        logger.disableTee();
    const QtMessageHandler before = qInstallMessageHandler(actingHandler);
    logger.info(QStringLiteral("outer"));
    qInstallMessageHandler(before);
}

/// How often another thread waits in `action` while a line is formatted.
int waitsBesideALine(Logger& logger, const std::function<void()>& action)
{
    int waits = -1;
    logOneLine(logger, false, [&] {
        std::thread([&] {
            LibcFaults::waits = 0;
            action();
            waits = LibcFaults::waits;
        }).join();
    });
    return waits;
}

/// Makes the first instance, on a ring whose rotation reports a failure. `action` runs in the
/// message handler, so inside the constructor.
Log* instanceThatReports(std::function<void()> action)
{
    const LogRing ring;
    ring.put(0, "full\n");
    s_inHandler = [&action] {
        LibcFaults::fdopenError = 0;
        action();
    };
    LibcFaults::fdopenError = ENOMEM;
    const QtMessageHandler before = qInstallMessageHandler(actingHandler);
    Log* const instance = Log::initInstance(ring.name(), false, 4, 3, Century, LoggerLevel::debug);
    qInstallMessageHandler(before);
    instance->log()->closeDuplicatedHandle();
    return instance;
}

Logger* s_chattyLogger = nullptr;

void chattyFormatter(LoggerLevel::LogLevel level, const QString& msg, QString& out)
{
    s_chattyLogger->debug(QStringLiteral("formatting ") + msg);
    plainFormatter(level, msg, out);
}

int childMain(const QStringList& arguments)
{
    kezEnsureInit();
    useLanguage(QStringLiteral("en_US"));
    printMessagesPlainly();
    const QString what = arguments.value(0);
    const QString name = arguments.value(1);
    if (what == QLatin1String("pending"))
        return childPendingSignal(name);
    if (what == QLatin1String("fatal"))
        return childFatal(name);
    return childSizeLimit(
        name, what.contains(QLatin1String("tee")), what.contains(QLatin1String("ignored")),
        what.contains(QLatin1String("later")), what.contains(QLatin1String("inside")));
}

} // namespace

class TestLogFaults : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { useLanguage(QStringLiteral("en_US")); }
    void cleanup() { LibcFaults::reset(); }

    void lineIsOneWrite()
    {
        const LogRing ring;
        QuietLogger logger(ring);
        LibcFaults::writes = 0;
        for (int i = 0; i < 100; ++i)
            logger.info(QString(i * 1000, QLatin1Char('x')));
        QCOMPARE(LibcFaults::writes.load(), 100);
    }

    void refusedLineIsShownMarked_data()
    {
        QTest::addColumn<int>("error");
        QTest::newRow("disk full") << ENOSPC;
        QTest::newRow("quota exceeded") << EDQUOT;
        QTest::newRow("I/O error") << EIO;
        QTest::newRow("file too large") << EFBIG;
        QTest::newRow("not permitted") << EPERM;
    }
    void refusedLineIsShownMarked()
    {
        QFETCH(int, error);
        const LogRing ring;
        QuietLogger logger(ring);
        const MessageCapture capture;
        logger.info(QStringLiteral("before"));
        LibcFaults::writeError = error;
        logger.warning(QStringLiteral("refused"));
        logger.critical(QStringLiteral("again"));
        LibcFaults::writeError = 0;
        logger.info(QStringLiteral("after"));
        QCOMPARE(capture.texts(), (QStringList{"\"refused [>>]\"", "\"again [>>]\""}));
        QCOMPARE(capture.messages().at(0).type, QtWarningMsg);
        QCOMPARE(capture.messages().at(1).type, QtCriticalMsg);
        QCOMPARE(ring.bytes(0), QByteArray("before\nafter\n"));
        QCOMPARE(ring.names(), QStringList{"app-0.log"});
    }

    void refusedLineIsNotShownTwiceWithTee()
    {
        const LogRing ring;
        QuietLogger logger(ring);
        logger.enableTee();
        const MessageCapture capture;
        LibcFaults::writeError = ENOSPC;
        logger.info(QStringLiteral("refused"));
        LibcFaults::writeError = 0;
        logger.info(QStringLiteral("after"));
        QCOMPARE(capture.texts(), (QStringList{"\"refused [Tee]\"", "\"after [Tee]\""}));
        QCOMPARE(ring.bytes(0), QByteArray("after [Tee]\n"));
    }

    void interruptedWriteIsRepeated()
    {
        const LogRing ring;
        QuietLogger logger(ring);
        const MessageCapture capture;
        LibcFaults::failingWrites = 3;
        LibcFaults::writeError = EINTR;
        logger.info(QStringLiteral("interrupted"));
        QCOMPARE(LibcFaults::failingWrites.load(), 0);
        QVERIFY(capture.messages().isEmpty());
        QCOMPARE(ring.bytes(0), QByteArray("interrupted\n"));
    }

    void shortWriteIsCompleted_data()
    {
        QTest::addColumn<int>("writes");
        QTest::addColumn<int>("bytes");
        QTest::newRow("once, one byte") << 1 << 1;
        QTest::newRow("once, all but the line end") << 1 << 8;
        QTest::newRow("byte by byte") << 100 << 1;
    }
    void shortWriteIsCompleted()
    {
        QFETCH(int, writes);
        QFETCH(int, bytes);
        const LogRing ring;
        QuietLogger logger(ring);
        const MessageCapture capture;
        LibcFaults::writeLimit = size_t(bytes);
        LibcFaults::shortWrites = writes;
        logger.info(QStringLiteral("complete"));
        LibcFaults::shortWrites = 0;
        logger.info(QStringLiteral("next"));
        QVERIFY(capture.messages().isEmpty());
        QCOMPARE(ring.bytes(0), QByteArray("complete\nnext\n"));
    }

    void writeThatTakesNothingEnds()
    {
        const LogRing ring;
        QuietLogger logger(ring);
        const MessageCapture capture;
        LibcFaults::writeLimit = 0;
        LibcFaults::shortWrites = 100000;
        logger.info(QStringLiteral("nothing taken"));
        QVERIFY(LibcFaults::shortWrites.load() > 0);
        LibcFaults::shortWrites = 0;
        QCOMPARE(capture.texts(), QStringList{"\"nothing taken [>>]\""});
        logger.info(QStringLiteral("next"));
        QCOMPARE(ring.bytes(0), QByteArray("next\n"));
    }

    void tornLineMergesWithNoOther_data()
    {
        QTest::addColumn<int>("taken");
        QTest::addColumn<int>("refused");
        QTest::newRow("one byte taken") << 1 << 1;
        QTest::newRow("half taken") << 4 << 1;
        QTest::newRow("all but the line end taken") << 8 << 1;
        QTest::newRow("several refused after it") << 4 << 5;
    }
    void tornLineMergesWithNoOther()
    {
        QFETCH(int, taken);
        QFETCH(int, refused);
        const LogRing ring;
        QuietLogger logger(ring);
        const MessageCapture capture;
        logger.info(QStringLiteral("first"));
        LibcFaults::writeLimit = size_t(taken);
        LibcFaults::shortWrites = 1;
        LibcFaults::writeError = ENOSPC;
        for (int i = 0; i < refused; ++i)
            logger.info(QStringLiteral("torn one"));
        LibcFaults::writeError = 0;
        logger.info(QStringLiteral("second"));
        logger.info(QStringLiteral("third"));

        QCOMPARE(capture.texts(), QStringList(refused, QStringLiteral("\"torn one [>>]\"")));
        QByteArrayList lines = ring.lines(0);
        QCOMPARE(lines.takeFirst(), QByteArray("first"));
        if (lines.size() == 3)
            QCOMPARE(lines.takeFirst(), QByteArray("torn one").left(taken));
        QCOMPARE(lines, (QByteArrayList{"second", "third"}));
        QVERIFY(ring.bytes(0).endsWith('\n'));
    }

    void lineEndAfterATornLineCountsForTheSize()
    {
        const LogRing ring;
        QuietLogger logger(ring, 12);
        const MessageCapture capture;
        LibcFaults::writeLimit = 4;
        LibcFaults::shortWrites = 1;
        LibcFaults::writeError = ENOSPC;
        logger.info(QStringLiteral("torn one"));
        LibcFaults::writeError = 0;
        logger.info(QStringLiteral("abcdef"));
        QVERIFY(ring.bytes(0).size() < 12);
        QVERIFY(ring.allLines(3).contains("abcdef"));
        logger.closeDuplicatedHandle();
    }

    void tornLineAtTheEndOfAFileLeavesTheNextFileAlone()
    {
        const LogRing ring;
        QuietLogger logger(ring, 20);
        const MessageCapture capture;
        LibcFaults::writeLimit = 4;
        LibcFaults::shortWrites = 1;
        LibcFaults::writeError = ENOSPC;
        logger.info(QStringLiteral("torn one"));
        LibcFaults::writeError = 0;
        logger.info(QString(17, QLatin1Char('x')));
        QCOMPARE(ring.bytes(1), QByteArray(17, 'x') + '\n');
        logger.closeDuplicatedHandle();
    }

    void fullDeviceShowsEveryLine()
    {
        const LogRing ring;
        QVERIFY(QFile::link(QStringLiteral("/dev/full"), ring.file(0)));
        QuietLogger logger(ring);
        const MessageCapture capture;
        logger.info(QStringLiteral("one"));
        logger.warning(QStringLiteral("two"));
        logger.enableTee();
        logger.info(QStringLiteral("three"));
        QCOMPARE(capture.texts(), (QStringList{"\"one [>>]\"", "\"two [>>]\"", "\"three [Tee]\""}));
        QCOMPARE(ring.names(), QStringList{"app-0.log"});
        logger.close();
    }

    void fileSizeLimitOfTheProcess_data()
    {
        QTest::addColumn<QString>("what");
        QTest::newRow("signal ignored") << "ignored";
        QTest::newRow("signal as by default") << "default";
        QTest::newRow("signal ignored, limit set later") << "ignored later";
        QTest::newRow("signal as by default, limit in a line set later") << "default later inside";
        QTest::newRow("signal ignored, tee") << "ignored tee";
        QTest::newRow("signal as by default, tee") << "default tee";
    }
    void fileSizeLimitOfTheProcess()
    {
        QFETCH(QString, what);
        const bool tee = what.contains(QLatin1String("tee"));
        const LogRing ring;
        const ChildResult child = runChild({what, ring.name()});
        QVERIFY(child.finished);
        QVERIFY2(!child.crashed, child.err.constData());
        QCOMPARE(child.exitCode, 0);
        QCOMPARE(child.out, QByteArray("signals as before\n"));

        const QByteArray marker = tee ? " [Tee]" : "";
        QByteArrayList inFile = ring.lines(0);
        QCOMPARE(inFile.takeLast(), "and more" + marker);
        QCOMPARE(inFile.takeLast(), "room again" + marker);
        int written = 0;
        const QByteArray whole = numberedLine(0).toUtf8() + marker;
        while (written < inFile.size() &&
               inFile.at(written) == numberedLine(written).toUtf8() + marker)
            ++written;
        QCOMPARE(written, int(40 * 23 / (whole.size() + 1)));
        // At most the beginning of the line that met the limit is left.
        QVERIFY(inFile.size() - written <= 1);
        if (inFile.size() > written)
            QVERIFY(numberedLine(written).toUtf8().startsWith(inFile.at(written)));

        QByteArrayList shown;
        for (int i = tee ? 0 : written; i < 100; ++i)
            shown +=
                "warning|default|\"" + numberedLine(i).toUtf8() + (tee ? " [Tee]" : " [>>]") + '"';
        if (tee)
            shown += {"info|default|\"room again [Tee]\"", "info|default|\"and more [Tee]\""};
        QCOMPARE(linesIn(child.err), shown);
        QCOMPARE(ring.names(), QStringList{"app-0.log"});
    }

    void signalThatWaitedBeforeStillWaits()
    {
        const LogRing ring;
        const ChildResult child = runChild({QStringLiteral("pending"), ring.name()});
        QCOMPARE(child.exitCode, 0);
        QCOMPARE(child.out, QByteArray("pending\n"));
        QCOMPARE(child.err, QByteArray("info|default|\"longer than ten bytes [>>]\"\n"));
    }

    void refusedFatalLineEndsTheProcess()
    {
        const LogRing ring;
        const ChildResult child = runChild({QStringLiteral("fatal"), ring.name()});
        QVERIFY(child.finished && child.crashed);
        QCOMPARE(child.exitCode, SIGABRT);
        QCOMPARE(child.err, QByteArray("fatal|default|\"the end [>>]\"\n"));
        QCOMPARE(child.out, QByteArray());
    }

    void streamThatCannotBeOpenedIsReported()
    {
        const LogRing ring;
        QuietLogger logger(ring);
        const int before = openDescriptors();
        LibcFaults::fdopenError = ENOMEM;
        const QString text = failureText([&logger] { logger.duplicateLogFile(); });
        LibcFaults::fdopenError = 0;
        QCOMPARE(text, QStringLiteral("void Logger::duplicateLogFile() -> ") +
                           QString::fromLocal8Bit(strerror(ENOMEM)));
        QVERIFY(logger.duplicatedDescriptor() == nullptr);
        QCOMPARE(openDescriptors(), before);
        logger.info(QStringLiteral("x"));
        QCOMPARE(ring.bytes(0), QByteArray("x\n"));
    }

    void rotationWithoutStreamWarnsAndCarriesOn()
    {
        const LogRing ring;
        QuietLogger logger(ring, 4);
        LibcFaults::fdopenError = ENOMEM;
        const MessageCapture capture;
        logger.info(QStringLiteral("long"));
        LibcFaults::fdopenError = 0;
        QCOMPARE(capture.messages().size(), 1);
        QCOMPARE(capture.messages().first().type, QtWarningMsg);
        QVERIFY(capture.texts().first().contains(
            QStringLiteral("Echec de la duplioation du descripteur de journal : void "
                           "Logger::duplicateLogFile() -> ") +
            QString::fromLocal8Bit(strerror(ENOMEM))));
        QCOMPARE(ring.bytes(1), QByteArray("long\n"));
        QVERIFY(logger.duplicatedDescriptor() == nullptr);
    }

    void failureAtStartLeaksNothing()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, "x\n"));
        const int before = openDescriptors();
        LibcFaults::fdopenError = ENOMEM;
        QVERIFY_EXCEPTION_THROWN(QuietLogger{ring}, Exception);
        LibcFaults::fdopenError = 0;
        QCOMPARE(openDescriptors(), before);
    }

    void failureAtStartAfterARotationLeaksNothing()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, "long\n"));
        const int before = openDescriptors();
        const MessageCapture capture; // the rotation only warns
        LibcFaults::fdopenError = ENOMEM;
        QVERIFY_EXCEPTION_THROWN(QuietLogger(ring, 4), Exception);
        LibcFaults::fdopenError = 0;
        QVERIFY(ring.has(1));
        QCOMPARE(openDescriptors(), before);
    }

    // --- The thread that has the lock

    void lineWithinALineDoesNotWait_data()
    {
        QTest::addColumn<bool>("inHandler");
        QTest::newRow("from the formatter") << false;
        QTest::newRow("from the message handler") << true;
    }
    void lineWithinALineDoesNotWait()
    {
        QFETCH(bool, inHandler);
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, actingFormatter);
        LibcFaults::waits = 0;
        logOneLine(logger, inHandler, [&logger] { logger.warning(QStringLiteral("inner")); });
        QCOMPARE(LibcFaults::waits, 0);
        QCOMPARE(ring.bytes(0), QByteArray(inHandler ? "outer [Tee]\n" : "outer\n"));
        QCOMPARE(s_shown.size(), 1);
        if (inHandler)
            return; // Qt gives a message within a message to its own handler
        QCOMPARE(s_shown.first().type, QtDebugMsg);
        QCOMPARE(s_shown.first().text,
                 QStringLiteral("Logger::writeTrace DEADLOCK >> stdout - inner"));
    }

    void formatterThatAlwaysLogsEnds()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, chattyFormatter);
        logger.disableTee();
        s_chattyLogger = &logger;
        const MessageCapture capture;
        LibcFaults::waits = 0;
        logger.info(QStringLiteral("outer"));
        QCOMPARE(LibcFaults::waits, 0);
        QCOMPARE(ring.bytes(0), QByteArray("outer\n"));
        const QStringList texts = capture.texts();
        QCOMPARE(texts.size(), 2);
        const QString prefix = QStringLiteral("Logger::writeTrace DEADLOCK >> stdout - ");
        QVERIFY(texts.first().startsWith(prefix));
        QVERIFY(texts.first().endsWith(QLatin1String(" <DEBUG> formatting formatting outer")));
        QCOMPARE(texts.last(), prefix + QStringLiteral("formatting outer"));
    }

    void descriptionWithinALineIsTrue_data() { lineWithinALineDoesNotWait_data(); }
    void descriptionWithinALineIsTrue()
    {
        QFETCH(bool, inHandler);
        const LogRing ring;
        QVERIFY(ring.put(2, "x\n"));
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, actingFormatter);
        QString during;
        LibcFaults::waits = 0;
        logOneLine(logger, inHandler, [&] { during = logger.toString(); });
        QCOMPARE(LibcFaults::waits, 0);
        QCOMPARE(during, logger.toString());
        QVERIFY(during.contains(QLatin1String(" (Opened)")));
        QVERIFY(during.contains(QLatin1String("_last : 2\n")));
        logger.closeDuplicatedHandle();
    }

    void handlesStayOpenDuringALine_data()
    {
        QTest::addColumn<bool>("inHandler");
        QTest::addColumn<QString>("function");
        for (const char* function : {"close", "closeDuplicatedHandle", "duplicateLogFile"}) {
            QTest::addRow("%s in the formatter", function) << false << function;
            QTest::addRow("%s in the message handler", function) << true << function;
        }
    }
    void handlesStayOpenDuringALine()
    {
        QFETCH(bool, inHandler);
        QFETCH(QString, function);
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, actingFormatter);
        if (function != QLatin1String("duplicateLogFile"))
            logger.duplicateLogFile();
        const int descriptors = openDescriptors();
        LibcFaults::waits = 0;
        logOneLine(logger, inHandler, [&] {
            if (function == QLatin1String("close"))
                logger.close();
            else if (function == QLatin1String("closeDuplicatedHandle"))
                logger.closeDuplicatedHandle();
            else
                logger.duplicateLogFile();
        });
        QCOMPARE(LibcFaults::waits, 0);
        QCOMPARE(openDescriptors(), descriptors);
        QCOMPARE(ring.bytes(0), QByteArray(inHandler ? "outer [Tee]\n" : "outer\n"));
        QCOMPARE(s_shown.size(), 1);
        if (!inHandler) {
            QCOMPARE(s_shown.first().type, QtWarningMsg);
            QCOMPARE(s_shown.first().text,
                     QStringLiteral("Logger::%1 DEADLOCK >> nothing done").arg(function));
        }
        logger.close();
    }

    void copyThatGoesDuringALineDoesNotWait_data() { lineWithinALineDoesNotWait_data(); }
    void copyThatGoesDuringALineDoesNotWait()
    {
        QFETCH(bool, inHandler);
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, actingFormatter);
        auto facade = std::make_unique<Log>(logger);
        LibcFaults::waits = 0;
        logOneLine(logger, inHandler, [&] { facade.reset(); });
        QCOMPARE(LibcFaults::waits, 0);
        QVERIFY(!facade);
        QCOMPARE(ring.bytes(0), QByteArray(inHandler ? "outer [Tee]\n" : "outer\n"));
    }

    void bannerWithinALineDoesNotWaitForAnother_data() { lineWithinALineDoesNotWait_data(); }
    void bannerWithinALineDoesNotWaitForAnother()
    {
        // The other banner has its turn, and waits for the lock of this line.
        QFETCH(bool, inHandler);
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, actingFormatter);
        std::thread other;
        int waits = -1;
        logOneLine(logger, inHandler, [&] {
            other = std::thread(
                [&] { logger.logBanner(QStringLiteral("other"), QStringLiteral("1")); });
            while (logger.filter() != LoggerLevel::info)
                std::this_thread::yield();
            LibcFaults::waits = 0;
            logger.logBanner(QStringLiteral("inner"), QStringLiteral("2"));
            waits = LibcFaults::waits;
        });
        other.join();
        QCOMPARE(waits, 0);
        QCOMPARE(logger.filter(), LoggerLevel::debug);
    }

    void lineBelowTheFilterTakesNoLock()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::info, actingFormatter);
        QCOMPARE(waitsBesideALine(logger, [&] { logger.debug(QStringLiteral("dropped")); }), 0);
        QCOMPARE(s_shown.size(), 0);
        QCOMPARE(ring.bytes(0), QByteArray("outer\n"));
    }

    /// Shows that the tests above can fail.
    void waitingForAnotherThreadIsCounted()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::info, actingFormatter);
        QVERIFY(waitsBesideALine(logger, [&] { logger.info(QStringLiteral("busy")); }) > 0);
        QCOMPARE(s_shown.size(), 1);
    }

    // --- The first instance

    /// The first thread is inside the constructor when the second one asks.
    void secondThreadWaitsForTheFirstInstance()
    {
        QSemaphore isInside;
        QSemaphore goOn;
        Log* first = nullptr;
        std::thread creator([&] {
            first = instanceThatReports([&] {
                isInside.release();
                goOn.acquire();
            });
        });
        isInside.acquire();
        Log* second = nullptr;
        QSemaphore hasAnswer;
        std::thread asker([&] {
            second = Log::getInstance();
            hasAnswer.release();
        });
        const bool tooSoon = hasAnswer.tryAcquire(1, 200);
        goOn.release();
        creator.join();
        asker.join();
        const bool isOne = first == second;
        if (!isOne)
            delete second;
        delete first;
        QVERIFY(isOne);
        QVERIFY(!tooSoon);
    }

    void instanceCanBeAskedForWhileItIsMade()
    {
        Log* inner = nullptr;
        Log* const outer = instanceThatReports([&inner] { inner = Log::getInstance(); });
        QVERIFY(inner && outer);
        QVERIFY(inner != outer);
        QCOMPARE(Log::getInstance(), outer);
        delete inner;
        QCOMPARE(Log::getInstance(), outer);
        delete outer;
    }

    void directoryThatVanishesEndsFileLoggingAtTheRotation()
    {
        const LogRing ring;
        QVERIFY(QDir(ring.path()).mkdir(QStringLiteral("d")));
        const QString directory = ring.path() + QStringLiteral("/d");
        Logger logger(directory + QStringLiteral("/app"), 8, 3, Century, LoggerLevel::debug,
                      plainFormatter);
        logger.disableTee();
        logger.info(QStringLiteral("one"));
        QVERIFY(QDir(directory).removeRecursively());
        const MessageCapture capture;
        logger.info(QStringLiteral("two"));
        logger.info(QStringLiteral("three"));
        QCOMPARE(capture.texts(),
                 (QStringList{"\"two [log file rotation failure]\"", "\"three\""}));
    }
};

KEZ_TEST_MAIN_WITH_CHILDREN(TestLogFaults, childMain)
#include "tst_logfaults.moc"
