// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/language.h"
#include "support/logring.h"
#include "support/messagecapture.h"
#include "support/messageprinter.h"
#include "support/opendescriptors.h"

#include <kez/configuration.h>
#include <kez/log.h>
#include <kez/logger.h>

#include <QDateTime>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QSemaphore>
#include <QTest>

#include <array>
#include <atomic>
#include <barrier>
#include <cstring>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace {

constexpr quint32 Century = 36500;
constexpr int Threads = 8;
const QString Deadlock = QStringLiteral("Logger::writeTrace DEADLOCK >> stdout - ");

QSemaphore s_inFormatter;
QSemaphore s_goOn;

/// Stays in the formatter, with the lock held, for the message "block".
void blockingFormatter(LoggerLevel::LogLevel, const QString& msg, QString& out)
{
    plainFormatter(LoggerLevel::info, msg, out);
    if (msg != QLatin1String("block"))
        return;
    s_inFormatter.release();
    s_goOn.acquire();
}

QSemaphore s_secondGoesOn;

/// Stays in the formatter for the heading of a banner. The first banner's title begins with "1".
void bannerFormatter(LoggerLevel::LogLevel, const QString& msg, QString& out)
{
    plainFormatter(LoggerLevel::info, msg, out);
    if (!msg.startsWith(QLatin1String("| ")))
        return;
    s_inFormatter.release();
    (msg.startsWith(QLatin1String("| 1")) ? s_goOn : s_secondGoesOn).acquire();
}

void callHandleFunction(Logger& logger, const QString& name)
{
    if (name == QLatin1String("close"))
        logger.close();
    else if (name == QLatin1String("closeDuplicatedHandle"))
        logger.closeDuplicatedHandle();
    else
        logger.duplicateLogFile();
}

QByteArray numberedLine(int thread, int number)
{
    return "thread " + QByteArray::number(thread) + " line " + QByteArray::number(number) + ' ' +
           QByteArray(number % 60, char('a' + thread)) + '.';
}

/// Runs `work` in every thread. No thread ends before all are done: a file refers to Qt's data of
/// the thread that opened it, by a count whose atomics ThreadSanitizer does not see.
void runThreads(const std::function<void(int)>& work)
{
    std::barrier allDone(Threads);
    std::vector<std::thread> threads;
    for (int i = 0; i < Threads; ++i) {
        threads.emplace_back([&, i] {
            work(i);
            allDone.arrive_and_wait();
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

/// The first fault in what the threads wrote: each line must be whole and be there once, and the
/// lines of one thread must be in order. Lines that found the logger busy for 300 ms are in
/// `degraded`.
QString disorderIn(const QByteArrayList& lines, const QStringList& degraded, int perThread)
{
    std::vector<std::vector<bool>> seen(Threads, std::vector<bool>(size_t(perThread), false));
    std::vector<int> last(Threads, -1);
    const auto numbersOf = [](const QByteArray& line) {
        const QByteArrayList words = line.split(' ');
        return words.size() == 5 ? std::pair(words.at(1).toInt(), words.at(3).toInt())
                                 : std::pair(-1, -1);
    };
    const auto note = [&](const QByteArray& line, bool ordered) {
        const auto [thread, number] = numbersOf(line);
        if (thread < 0 || thread >= Threads || number < 0 || number >= perThread ||
            line != numberedLine(thread, number))
            return "torn: " + line;
        if (seen[size_t(thread)][size_t(number)])
            return "twice: " + line;
        if (ordered && number <= last[size_t(thread)])
            return "out of order: " + line;
        if (ordered)
            last[size_t(thread)] = number;
        seen[size_t(thread)][size_t(number)] = true;
        return QByteArray();
    };
    for (const QByteArray& line : lines)
        if (const QByteArray fault = note(line, true); !fault.isEmpty())
            return QString::fromUtf8(fault);
    for (const QString& text : degraded) {
        if (!text.startsWith(Deadlock))
            return QStringLiteral("unexpected: ") + text;
        const QByteArray fault = note(text.mid(Deadlock.size()).remove(u'"').toUtf8(), false);
        if (!fault.isEmpty())
            return QString::fromUtf8(fault);
    }
    for (const std::vector<bool>& thread : seen)
        for (const bool isThere : thread)
            if (!isThere)
                return QStringLiteral("lost");
    return {};
}

} // namespace

class TestLoggerThreads : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { useLanguage(QStringLiteral("en_US")); }

    void descriptionDuringRotations()
    {
        const LogRing ring;
        Logger logger(ring.name(), 100, 3, Century, LoggerLevel::debug);
        logger.disableTee();
        std::atomic<bool> isDone = false;
        std::thread asking([&] {
            while (!isDone)
                QVERIFY(logger.toString().contains(QLatin1String("_spFile")));
        });
        for (int i = 0; i < 2000; ++i)
            logger.info(QStringLiteral("a line that fills much of a file of a hundred bytes"));
        isDone = true;
        asking.join();
    }

    void eightThreadsLoseNothing_data()
    {
        QTest::addColumn<quint64>("maxSize");
        QTest::addColumn<int>("perThread");
        QTest::newRow("one file") << (quint64(1) << 30) << 2000;
        QTest::newRow("many rotations") << quint64(4096) << 2000;
        QTest::newRow("a file for each line") << quint64(1) << 100;
    }
    void eightThreadsLoseNothing()
    {
        QFETCH(quint64, maxSize);
        QFETCH(int, perThread);
        constexpr quint32 Kept = 2000;
        const LogRing ring;
        Logger logger(ring.name(), maxSize, Kept, Century, LoggerLevel::debug, plainFormatter);
        logger.disableTee();
        const MessageCapture capture;
        runThreads([&](int thread) {
            for (int i = 0; i < perThread; ++i)
                logger.info(QString::fromUtf8(numberedLine(thread, i)));
        });
        const QByteArrayList lines = ring.allLines(Kept);
        QCOMPARE(disorderIn(lines, capture.texts(), perThread), QString());
        QVERIFY(lines.size() > Threads * perThread / 2);
        if (maxSize < 5000)
            QVERIFY(ring.names().size() > 100);
        logger.closeDuplicatedHandle();
    }

    /// In the default format, of which most is made without the lock.
    void linesAreInTheOrderOfTheirTimes()
    {
        constexpr int PerThread = 2000;
        const LogRing ring;
        Logger logger(ring.name(), 1 << 30, 1, Century, LoggerLevel::debug);
        logger.disableTee();
        const MessageCapture capture;
        runThreads([&](int thread) {
            for (int i = 0; i < PerThread; ++i)
                logger.info(QString::fromUtf8(numberedLine(thread, i)));
        });
        const int head = int(strlen("dd/MM/yyyy HH:mm:ss,zzz <INFOR> "));
        const QString pattern = QStringLiteral("dd/MM/yyyy HH:mm:ss,zzz");
        QByteArrayList messages;
        QDateTime last;
        for (const QByteArray& line : ring.lines(0)) {
            const QDateTime time =
                QDateTime::fromString(QString::fromUtf8(line.left(pattern.size())), pattern);
            QVERIFY2(time.isValid() && (!last.isValid() || time >= last), line.constData());
            last = time;
            messages.append(line.mid(head));
        }
        QStringList degraded = capture.texts();
        for (QString& text : degraded)
            text.remove(Deadlock.size(), head);
        QCOMPARE(disorderIn(messages, degraded, PerThread), QString());
    }

    void smallRingKeepsTheNewestLinesWhole()
    {
        const LogRing ring;
        Logger logger(ring.name(), 2048, 3, Century, LoggerLevel::debug, plainFormatter);
        logger.disableTee();
        const MessageCapture capture;
        runThreads([&](int thread) {
            for (int i = 0; i < 500; ++i)
                logger.info(QString::fromUtf8(numberedLine(thread, i)));
        });
        QCOMPARE(ring.names(), (QStringList{"app-0.log", "app-1.log", "app-2.log"}));
        std::vector<int> last(Threads, -1);
        for (const QByteArray& line : ring.allLines(3)) {
            const int thread = line.mid(7, 1).toInt();
            const int number = line.split(' ').value(3).toInt();
            QCOMPARE(line, numberedLine(thread, number));
            QVERIFY(number > last[size_t(thread)]);
            last[size_t(thread)] = number;
        }
        for (uint i = 0; i < 3; ++i)
            QVERIFY(ring.bytes(i).size() < 2048);
        logger.closeDuplicatedHandle();
    }

    void copiesRotateTogether()
    {
        constexpr quint32 Kept = 2000;
        constexpr int PerThread = 500;
        const LogRing ring;
        Logger logger(ring.name(), 4096, Kept, Century, LoggerLevel::debug, plainFormatter);
        logger.disableTee();
        Log facade(logger);
        const MessageCapture capture;
        runThreads([&](int thread) {
            for (int i = 0; i < PerThread; ++i) {
                const QString line = QString::fromUtf8(numberedLine(thread, i));
                if ((thread + i) % 2 == 0)
                    logger.info(line);
                else
                    facade.info(line);
            }
        });
        const QByteArrayList lines = ring.allLines(Kept);
        QCOMPARE(disorderIn(lines, capture.texts(), PerThread), QString());
        QVERIFY(lines.size() > Threads * PerThread / 2);
        logger.closeDuplicatedHandle();
    }

    void twoLoggersOnOneFileKeepLinesWhole()
    {
        const LogRing ring;
        Logger first(ring.name(), 1 << 30, 1, Century, LoggerLevel::debug, plainFormatter);
        Logger second(ring.name(), 1 << 30, 1, Century, LoggerLevel::debug, plainFormatter);
        first.disableTee();
        second.disableTee();
        const MessageCapture capture;
        runThreads([&](int thread) {
            for (int i = 0; i < 1000; ++i)
                (thread % 2 == 0 ? first : second).info(QString::fromUtf8(numberedLine(thread, i)));
        });
        QCOMPARE(disorderIn(ring.lines(0), capture.texts(), 1000), QString());
        second.closeDuplicatedHandle();
    }

    void oneTextThroughSeveralLoggersAtOnce_data()
    {
        QTest::addColumn<bool>("sharing");
        QTest::addColumn<int>("head");
        QTest::newRow("formatter by default")
            << false << int(strlen("dd/MM/yyyy HH:mm:ss,zzz <INFOR> "));
        QTest::newRow("formatter that shares the text") << true << 0;
    }
    /// The texts do not own their characters. No logger may change these or make the texts copy
    /// them.
    void oneTextThroughSeveralLoggersAtOnce()
    {
        QFETCH(const bool, sharing);
        QFETCH(const int, head);
        const LogFormatter sharingFormatter = [](LoggerLevel::LogLevel, const QString& msg,
                                                 QString& out) { out = msg; };
        const QString literal = QStringLiteral("the same text for all");
        const std::vector<QString> texts(1000, literal);
        const std::array<LogRing, Threads> rings;
        const MessageCapture capture;
        runThreads([&](int thread) {
            Logger logger(rings[size_t(thread)].name(), 1 << 30, 1, Century, LoggerLevel::debug,
                          sharing ? sharingFormatter : nullptr);
            logger.disableTee();
            for (const QString& text : texts)
                logger.info(text);
        });
        for (const QString& text : texts)
            QCOMPARE(text.constData(), literal.constData());
        for (const LogRing& ring : rings) {
            const QByteArrayList lines = ring.lines(0);
            QCOMPARE(lines.size(), qsizetype(texts.size()));
            for (const QByteArray& line : lines)
                QCOMPARE(line.mid(head), QByteArray("the same text for all"));
        }
        QCOMPARE(literal, QLatin1String("the same text for all"));
    }

    void oneLiteralThroughSeveralFacadesAtOnce()
    {
        static constexpr const char* text = "le m\xc3\xaame texte pour tous";
        const std::array<LogRing, Threads> rings;
        const MessageCapture capture;
        runThreads([&](int thread) {
            Log facade(rings[size_t(thread)].name(), false, 1 << 30, 1, Century, LoggerLevel::debug,
                       plainFormatter);
            for (int i = 0; i < 1000; ++i)
                facade.info(text);
        });
        for (const LogRing& ring : rings)
            QCOMPARE(ring.lines(0), QByteArrayList(1000, text));
    }

    void teeShowsEveryThreadsLines()
    {
        const LogRing ring;
        Logger logger(ring.name(), 1 << 30, 1, Century, LoggerLevel::debug, plainFormatter);
        const MessageCapture capture;
        runThreads([&](int thread) {
            for (int i = 0; i < 200; ++i)
                logger.info(QStringLiteral("%1-%2").arg(thread).arg(i));
        });
        QStringList shown = capture.texts();
        QCOMPARE(shown.size(), Threads * 200);
        shown.sort();
        QStringList written;
        for (const QByteArray& line : ring.lines(0))
            written.append(quoted(QString::fromUtf8(line)));
        written.sort();
        QCOMPARE(written, shown);
    }

    void teeThatIsEnabledWhileALineWaitsCounts()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::info, blockingFormatter);
        logger.disableTee();
        Log copy(logger);
        copy.setFormatter(nullptr);
        const MessageCapture capture;
        std::thread holder([&] { logger.info(QStringLiteral("block")); });
        s_inFormatter.acquire();
        std::thread writer([&] { copy.info(QStringLiteral("waits")); });
        QThread::msleep(50); // shorter than the limited wait
        copy.enableTee();
        s_goOn.release();
        holder.join();
        writer.join();
        QVERIFY2(ring.bytes(0).endsWith("waits [Tee]\n"), ring.bytes(0).constData());
        QCOMPARE(capture.messages().size(), 1);
    }

    void busyLoggerSendsTheLineToTheDebugOutput_data()
    {
        QTest::addColumn<int>("level");
        QTest::addColumn<bool>("tee");
        QTest::newRow("info") << int(LoggerLevel::info) << false;
        QTest::newRow("error, tee") << int(LoggerLevel::error) << true;
        QTest::newRow("fatal survives") << int(LoggerLevel::fatal) << true;
    }
    void busyLoggerSendsTheLineToTheDebugOutput()
    {
        QFETCH(int, level);
        QFETCH(bool, tee);
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::info, blockingFormatter);
        if (!tee)
            logger.disableTee();
        const MessageCapture capture;
        std::thread holder([&] { logger.info(QStringLiteral("block")); });
        s_inFormatter.acquire();

        QElapsedTimer timer;
        timer.start();
        logger.writeTrace(static_cast<LoggerLevel::LogLevel>(level), QStringLiteral("busy"));
        const qint64 waited = timer.elapsed();
        const QList<MessageCapture::Message> messages = capture.messages();
        const QByteArray bytes = ring.bytes(0);
        s_goOn.release();
        holder.join();

        QVERIFY2(waited >= 280, qPrintable(QString::number(waited)));
        QCOMPARE(bytes, QByteArray(""));
        QCOMPARE(messages.size(), 1);
        QCOMPARE(messages.first().type, QtDebugMsg);
        QCOMPARE(messages.first().category, QStringLiteral("default"));
        QCOMPARE(QString(messages.first().text).remove(u'"'), Deadlock + QStringLiteral("busy"));
        QCOMPARE(ring.bytes(0), QByteArray(tee ? "block [Tee]\n" : "block\n"));
        logger.info(QStringLiteral("free again"));
        QCOMPARE(ring.lines(0).size(), 2);
    }

    void copyWaitsForTheSameLock()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, blockingFormatter);
        logger.disableTee();
        Log facade(logger);
        const MessageCapture capture;
        std::thread holder([&] { logger.info(QStringLiteral("block")); });
        s_inFormatter.acquire();
        facade.info(QStringLiteral("busy"));
        const QStringList shown = capture.texts();
        s_goOn.release();
        holder.join();
        QCOMPARE(shown.size(), 1);
        QVERIFY(shown.first().startsWith(Deadlock));
    }

    void busyLoggerKeepsItsHandles_data()
    {
        QTest::addColumn<QString>("function");
        for (const char* function : {"close", "closeDuplicatedHandle", "duplicateLogFile"})
            QTest::newRow(function) << function;
    }
    void busyLoggerKeepsItsHandles()
    {
        QFETCH(QString, function);
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, blockingFormatter);
        logger.disableTee();
        if (function != QLatin1String("duplicateLogFile"))
            logger.duplicateLogFile();
        const int descriptors = openDescriptors();
        const MessageCapture capture;
        std::thread holder([&] { logger.info(QStringLiteral("block")); });
        s_inFormatter.acquire();
        callHandleFunction(logger, function);
        const QList<MessageCapture::Message> messages = capture.messages();
        const int descriptorsAfterwards = openDescriptors();
        s_goOn.release();
        holder.join();

        QCOMPARE(messages.size(), 1);
        QCOMPARE(messages.first().type, QtWarningMsg);
        QCOMPARE(messages.first().category, QStringLiteral("default"));
        QCOMPARE(messages.first().text,
                 QStringLiteral("Logger::%1 DEADLOCK >> nothing done").arg(function));
        QCOMPARE(descriptorsAfterwards, descriptors);
        logger.info(QStringLiteral("after"));
        QCOMPARE(ring.bytes(0), QByteArray("block\nafter\n"));
        callHandleFunction(logger, function);
        QCOMPARE(capture.messages().size(), 1);
        QVERIFY(openDescriptors() != descriptors);
        logger.close();
    }

    void busyLoggerSaysThatItsDescriptionIsIncomplete()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, blockingFormatter);
        logger.disableTee();
        const MessageCapture capture;
        std::thread holder([&] { logger.info(QStringLiteral("block")); });
        s_inFormatter.acquire();
        const QString busy = logger.toString();
        s_goOn.release();
        holder.join();
        QCOMPARE(capture.texts(),
                 QStringList{QStringLiteral("Logger::toString DEADLOCK >> file not shown")});
        QVERIFY(busy.contains(QLatin1String("     _spFile : 0x0 (")));
        QVERIFY(logger.toString() != busy);
        QCOMPARE(capture.texts().size(), 1);
    }

    void lineAfterTheCloseIsShown()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, plainFormatter);
        logger.disableTee();
        const MessageCapture capture;
        std::thread([&] { logger.close(); }).join();
        logger.warning(QStringLiteral("late"));
        QCOMPARE(capture.texts(), QStringList{"\"late\""});
        QCOMPARE(ring.bytes(0), QByteArray());
    }

    /// After the close, the same thread opens another file, which gets the descriptor that is free.
    void closingWhileOthersWriteLeavesForeignFilesAlone()
    {
        constexpr int Rounds = 100;
        constexpr int Writers = 3;
        const LogRing ring;
        const MessageCapture capture;
        for (uint round = 0; round < Rounds; ++round) {
            Logger logger(ring.name(), 1 << 30, 1, Century, LoggerLevel::debug, plainFormatter);
            logger.disableTee();
            QFile foreign(ring.path() + QStringLiteral("/foreign"));
            std::atomic<int> begun = 0;
            std::atomic<bool> isOver = false;
            std::vector<std::thread> writers;
            for (int i = 0; i < Writers; ++i) {
                writers.emplace_back([&] {
                    ++begun;
                    while (!isOver)
                        logger.info(QStringLiteral("line"));
                });
            }
            while (begun < Writers)
                std::this_thread::yield();
            logger.close();
            const bool isOpen = foreign.open(QIODevice::ReadWrite | QIODevice::Truncate);
            isOver = true;
            for (std::thread& writer : writers)
                writer.join();
            QVERIFY(isOpen);
            QCOMPARE(foreign.size(), 0);
        }
        for (const QByteArray& line : ring.lines(0))
            QCOMPARE(line, QByteArray("line"));
        for (const QString& text : capture.texts())
            QVERIFY2(text == QLatin1String("\"line\"") ||
                         text.contains(QLatin1String(" DEADLOCK ")),
                     qPrintable(text));
    }

    void destructorWaitsForTheWriter()
    {
        const LogRing ring;
        auto logger = std::make_unique<Logger>(ring.name(), 0, 0, Century, LoggerLevel::debug,
                                               blockingFormatter);
        logger->disableTee();
        const MessageCapture capture;
        std::thread writer([used = logger.get()] { used->info(QStringLiteral("block")); });
        s_inFormatter.acquire();
        QSemaphore isDestroyed;
        std::thread destroyer([&] {
            logger.reset();
            isDestroyed.release();
        });
        const bool tooSoon = isDestroyed.tryAcquire(1, 400); // longer than the limited waits
        s_goOn.release();
        writer.join();
        destroyer.join();
        QVERIFY(!tooSoon);
        QCOMPARE(ring.bytes(0), QByteArray("block\n"));
        QCOMPARE(capture.texts(), QStringList());
    }

    void bannersAtOnceRestoreTheFilter_data()
    {
        QTest::addColumn<QString>("second");
        QTest::newRow("with properties") << "properties";
        QTest::newRow("with JSON") << "JSON";
        QTest::newRow("of a configuration") << "configuration";
    }
    /// The first banner is at its heading when the second one begins.
    void bannersAtOnceRestoreTheFilter()
    {
        QFETCH(QString, second);
        const LogRing ring;
        const auto logger = std::make_shared<Logger>(ring.name(), 0, 0, Century, LoggerLevel::error,
                                                     bannerFormatter);
        logger->disableTee();
        const MessageCapture capture;
        std::thread first([&] { logger->logBanner(QStringLiteral("1"), QStringLiteral("2")); });
        s_inFormatter.acquire();
        std::thread later([&] {
            if (second == QLatin1String("configuration")) {
                Config config;
                config.setLogger(logger);
                config.logBanner(QStringLiteral("3"), QString(), false, QString());
            } else if (second == QLatin1String("JSON")) {
                const QJsonDocument json;
                logger->logBanner(QStringLiteral("3"), QStringLiteral("4"), &json);
            } else {
                logger->logBanner(QStringLiteral("3"), QStringLiteral("4"));
            }
        });
        // The second banner gets into the formatter only if it does not wait for the first one.
        const bool areMixed = s_inFormatter.tryAcquire(1, 100); // shorter than the limited waits
        s_goOn.release();
        first.join();
        s_secondGoesOn.release();
        later.join();
        if (!areMixed)
            s_inFormatter.acquire();
        QCOMPARE(logger->filter(), LoggerLevel::error);
        QVERIFY(!areMixed);
        QVERIFY(ring.lines(0).size() + capture.texts().size() >= 8); // the lock may be waited for
    }

    void threadsThatAskFirstGetOneInstance()
    {
        for (int round = 0; round < 200; ++round) {
            std::array<Log*, Threads> instances{};
            std::barrier atOnce(Threads);
            runThreads([&](int thread) {
                atOnce.arrive_and_wait();
                instances[size_t(thread)] = Log::getInstance();
            });
            for (Log* instance : instances)
                QCOMPARE(instance, instances.front());
            delete instances.front();
        }
    }

    void settingsChangeWhileOthersLog()
    {
        const LogRing ring;
        Logger logger(ring.name(), 1 << 16, 3, Century, LoggerLevel::debug, plainFormatter);
        const MessageCapture capture;
        std::atomic<bool> isOver = false;
        std::thread changer([&] {
            while (!isOver) {
                logger.setFilter(LoggerLevel::error);
                logger.disableTee();
                logger.setFormatter(nullptr);
                logger.setFilter(LoggerLevel::debug);
                logger.enableTee();
                logger.setFormatter(&plainFormatter);
                std::this_thread::yield();
            }
        });
        runThreads([&](int) {
            for (int i = 0; i < 300; ++i) {
                logger.info(QStringLiteral("line"));
                logger.critical(QStringLiteral("line"));
                if (logger.isTeeEnabled() && logger.filter() == LoggerLevel::error)
                    logger.warning(QStringLiteral("line"));
            }
        });
        isOver = true;
        changer.join();
        for (const QByteArray& line : ring.allLines(3))
            QVERIFY2(line.endsWith("line") || line.endsWith("line [Tee]"), line.constData());
        logger.closeDuplicatedHandle();
    }
};

QTEST_GUILESS_MAIN(TestLoggerThreads)
#include "tst_loggerthreads.moc"
