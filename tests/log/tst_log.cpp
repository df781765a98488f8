// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/allocations.h"
#include "support/childprocess.h"
#include "support/failuretext.h"
#include "support/language.h"
#include "support/logring.h"
#include "support/messagecapture.h"
#include "support/messageprinter.h"
#include "support/opendescriptors.h"

#include <kez/exception.h>
#include <kez/initlib.h>
#include <kez/log.h>
#include <kez/logger.h>
#include <kez/properties.h>

#include <QDir>
#include <QTest>

#include <csignal>
#include <memory>

#include <sys/mman.h>

namespace {

constexpr quint32 Century = 36500;

/// A facade on a file of its own, without the tee.
std::unique_ptr<Log> quietLog(const LogRing& ring, quint64 maxSize = 0)
{
    return std::make_unique<Log>(ring.name(), false, maxSize, 5U, Century, LoggerLevel::debug,
                                 levelFormatter);
}

/// A text in memory that no process may read.
class UnreadableText {
public:
    UnreadableText() : _page(mmap(nullptr, 1, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {}
    ~UnreadableText() { munmap(_page, 1); }
    UnreadableText(const UnreadableText&) = delete;
    UnreadableText& operator=(const UnreadableText&) = delete;

    const char* get() const { return static_cast<const char*>(_page); }

private:
    void* _page;
};

int childMain(const QStringList& arguments)
{
    kezEnsureInit();
    useLanguage(QStringLiteral("en_US"));
    printMessagesPlainly();
    const QString what = arguments.value(0);
    if (what == QLatin1String("uninitialised")) {
        Log::getInstance()->warning(QStringLiteral("hello"));
        return Log::getInstance() == Log::getInstance() ? 0 : 1;
    }
    if (what == QLatin1String("fatal"))
        Log::getInstance()->fatal(QStringLiteral("the end"));
    if (what == QLatin1String("fatal-utf8"))
        Log::getInstance()->fatal("the \xc3\xa9nd");
    return 3;
}

} // namespace

class TestLog : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { useLanguage(QStringLiteral("en_US")); }

    // --- The instance

    void uninitialisedProcessLogsToTheMessageOutput()
    {
        const ChildResult child = runChild({QStringLiteral("uninitialised")});
        QCOMPARE(child.exitCode, 0);
        QVERIFY2(child.err.startsWith("warning|default|\""), child.err.constData());
        QVERIFY2(child.err.endsWith(" <WARNG> hello\"\n"), child.err.constData());
    }

    void constructorDesignatesTheInstance()
    {
        const auto first = std::make_unique<Log>();
        QVERIFY(Log::getInstance() == first.get());
        const auto second = std::make_unique<Log>();
        QVERIFY(Log::getInstance() == second.get());
        QVERIFY(Log::initInstance() == second.get());
    }

    void replacedInstanceStaysUsable()
    {
        const LogRing ring;
        const auto first = quietLog(ring);
        const Log second;
        first->info("still here");
        QCOMPARE(ring.bytes(0), QByteArray("1:still here\n"));
    }

    void destroyedInstanceIsNotDesignated()
    {
        {
            const Log log;
            QVERIFY(Log::getInstance() == &log);
        }
        const LogRing ring;
        Log* instance = Log::initInstance(ring.name(), false, 0, 0, Century, LoggerLevel::debug);
        QVERIFY(ring.has(0)); // a new instance, since there was none
        QVERIFY(Log::getInstance() == instance);
        delete instance;
    }

    void destroyingAReplacedInstanceKeepsTheCurrentOne()
    {
        auto first = std::make_unique<Log>();
        const Log second;
        first.reset();
        QVERIFY(Log::getInstance() == &second);
    }

    void initInstanceWithFileCreatesIt_data()
    {
        QTest::addColumn<bool>("tee");
        QTest::newRow("with tee") << true;
        QTest::newRow("without tee") << false;
    }
    void initInstanceWithFileCreatesIt()
    {
        QFETCH(bool, tee);
        const LogRing ring;
        const std::unique_ptr<Log> log(
            Log::initInstance(ring.name(), tee, 0, 0, Century, LoggerLevel::info, levelFormatter));
        QCOMPARE(log->isTeeEnabled(), tee);
        QCOMPARE(log->filter(), LoggerLevel::info);
        QVERIFY(log->formatter() == &levelFormatter);
        const MessageCapture capture;
        log->info("x");
        QCOMPARE(ring.bytes(0), QByteArray(tee ? "1:x [Tee]\n" : "1:x\n"));
        QCOMPARE(capture.messages().size(), tee ? 1 : 0);
    }

    void laterInitInstanceIsIgnored()
    {
        const LogRing ring;
        const LogRing other;
        const LogRing third;
        const auto log = quietLog(ring);
        Logger logger(third.name(), 0, 0, Century, LoggerLevel::debug);
        QVERIFY(Log::initInstance(other.name(), true, 1, 1, 1, LoggerLevel::fatal) == log.get());
        QVERIFY(Log::initInstance(logger) == log.get());
        QVERIFY(Log::initInstance() == log.get());
        QVERIFY(Log::initInstance(QStringLiteral("/does/not/exist/app"), true, 1, 1, 1,
                                  LoggerLevel::fatal) == log.get());
        Log::getInstance()->info("x");
        QCOMPARE(ring.bytes(0), QByteArray("1:x\n"));
        QCOMPARE(third.bytes(0), QByteArray(""));
        QVERIFY(other.names().isEmpty());
        QVERIFY(!log->isTeeEnabled());
    }

    void initInstanceWithLoggerCopiesIt()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, levelFormatter);
        logger.disableTee();
        const std::unique_ptr<Log> log(Log::initInstance(logger));
        log->info("x");
        QCOMPARE(ring.bytes(0), QByteArray("1:x\n"));
    }

    void failedConstructorRecordsNoInstance()
    {
        const Log log;
        const QString name = QStringLiteral("/does/not/exist/app");
        const QString text =
            failureText([&name] { Log(name, true, 0, 0, Century, LoggerLevel::debug); });
        QCOMPARE(text, QStringLiteral("Logger::Logger(const QString&, quint64, quint32, quint32, "
                                      "LogLevel, LogFormatter) -> Access to directory "
                                      "[/does/not/exist] is impossible or file rights are "
                                      "insufficient."));
        QVERIFY(Log::getInstance() == &log);
    }

    void failedInitInstanceCanBeTriedAgain()
    {
        const LogRing ring;
        QVERIFY_EXCEPTION_THROWN(Log::initInstance(QStringLiteral("/does/not/exist/app"), true, 0,
                                                   0, Century, LoggerLevel::debug),
                                 Exception);
        const std::unique_ptr<Log> log(
            Log::initInstance(ring.name(), false, 0, 0, Century, LoggerLevel::debug));
        QVERIFY(ring.has(0));
        QVERIFY(Log::getInstance() == log.get());
    }

    // --- The default logger

    void defaultLoggerIsNeverNull()
    {
        const Log log;
        QVERIFY(log.log() != nullptr);
        QVERIFY(log.log() == log.logger());
        QVERIFY(log.isTeeEnabled());
        QCOMPARE(log.filter(), LoggerLevel::debug);
    }

    void levelMethodsForward()
    {
        const LogRing ring;
        const auto log = quietLog(ring);
        log->debug(QStringLiteral("a"));
        log->debug("b");
        log->info(QStringLiteral("c"));
        log->info("d");
        log->warning(QStringLiteral("e"));
        log->warning("f");
        log->critical(QStringLiteral("g"));
        log->critical("h");
        log->fatal(QStringLiteral("i"));
        log->fatal("j");
        QCOMPARE(ring.bytes(0), QByteArray("0:a\n0:b\n1:c\n1:d\n2:e\n2:f\n3:g\n3:h\n4:i\n4:j\n"));
    }

    void charactersAreUtf8_data()
    {
        QTest::addColumn<QByteArray>("msg");
        QTest::newRow("empty") << QByteArray("");
        QTest::newRow("accents") << QByteArray("d\xc3\xa9j\xc3\xa0");
        QTest::newRow("outside the basic plane") << QByteArray("\xf0\x9f\x98\x80");
        QTest::newRow("not UTF-8") << QByteArray("a\xff\xfe\xc3");
    }
    void charactersAreUtf8()
    {
        QFETCH(QByteArray, msg);
        const LogRing ring;
        const auto log = quietLog(ring);
        log->info(msg.constData());
        QCOMPARE(ring.bytes(0), "1:" + QString::fromUtf8(msg).toUtf8() + '\n');
    }

    void fatalLineEndsTheProcess_data()
    {
        QTest::addColumn<QString>("what");
        QTest::addColumn<QByteArray>("end");
        QTest::newRow("QString") << "fatal" << QByteArray(" <FATAL> the end\"\n");
        QTest::newRow("UTF-8") << "fatal-utf8" << QByteArray(" <FATAL> the \xc3\xa9nd\"\n");
    }
    void fatalLineEndsTheProcess()
    {
        QFETCH(QString, what);
        QFETCH(QByteArray, end);
        const ChildResult child = runChild({what});
        QVERIFY(child.finished && child.crashed);
        QCOMPARE(child.exitCode, SIGABRT);
        QVERIFY2(child.err.startsWith("fatal|default|"), child.err.constData());
        QVERIFY2(child.err.endsWith(end), child.err.constData());
    }

    void settingsForward()
    {
        const LogRing ring;
        const auto log = quietLog(ring);
        QCOMPARE(log->setFilter(LoggerLevel::error), LoggerLevel::debug);
        QCOMPARE(log->filter(), LoggerLevel::error);
        QCOMPARE(log->logger()->filter(), LoggerLevel::error);
        log->enableTee();
        QVERIFY(log->isTeeEnabled() && log->logger()->isTeeEnabled());
        log->disableTee();
        QVERIFY(!log->isTeeEnabled() && !log->logger()->isTeeEnabled());
        QVERIFY(log->setFormatter(&plainFormatter) == &levelFormatter);
        QVERIFY(log->formatter() == &levelFormatter);
        QVERIFY(log->setFormatter(nullptr) == &levelFormatter);
        const LogFormatter byDefault = &Logger::formatter;
        QVERIFY(log->formatter() == byDefault);
        QVERIFY(log->logger()->formatter() == byDefault);
    }

    void filteredTextIsNotEvenRead()
    {
        const LogRing ring;
        const auto log = quietLog(ring);
        log->setFilter(LoggerLevel::fatal);
        const UnreadableText text;
        log->debug(text.get());
        log->info(text.get());
        log->warning(text.get());
        log->critical(text.get());
        QCOMPARE(ring.bytes(0), QByteArray());
    }

    void filteredTextAllocatesNothing()
    {
        if (!Allocations::AreCounted)
            QSKIP("The sanitizer has the functions that would count.");
        const LogRing ring;
        const auto log = quietLog(ring);
        log->setFilter(LoggerLevel::fatal);
        const QString text = QStringLiteral("nobody's text");
        const long before = Allocations::count;
        log->debug("nobody's text");
        log->info("nobody's text");
        log->warning("nobody's text");
        log->critical("nobody's text");
        log->debug(text);
        log->info(text);
        log->warning(text);
        log->critical(text);
        const long after = Allocations::count;
        log->setFilter(LoggerLevel::debug);
        log->debug("everybody's text");
        QVERIFY(Allocations::count > after); // shows that allocations are counted
        QCOMPARE(after, before);
        QCOMPARE(ring.bytes(0), QByteArray("0:everybody's text\n"));
    }

    // --- A facade on a copy

    void copyHasTheSettings()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::warning, levelFormatter);
        logger.disableTee();
        const Log log(logger);
        QVERIFY(log.logger().get() != &logger);
        QVERIFY(!log.isTeeEnabled());
        QCOMPARE(log.filter(), LoggerLevel::warning);
        QVERIFY(log.formatter() == &levelFormatter);
        QCOMPARE(log.logger()->bannerTitle(), logger.bannerTitle());
        QCOMPARE(log.logger()->recordConfigurationData(), logger.recordConfigurationData());
    }

    void copyHasSettingsOfItsOwn()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, levelFormatter);
        logger.disableTee();
        Log log(logger);
        log.setFilter(LoggerLevel::fatal);
        log.enableTee();
        log.setFormatter(nullptr);
        QCOMPARE(logger.filter(), LoggerLevel::debug);
        QVERIFY(!logger.isTeeEnabled());
        QVERIFY(logger.formatter() == &levelFormatter);
    }

    void copiesFollowEachOthersRotations()
    {
        const LogRing ring;
        Logger logger(ring.name(), 8, 100, Century, LoggerLevel::debug, levelFormatter);
        logger.disableTee();
        Log log(logger);
        for (int i = 10; i < 50; ++i) {
            if (i % 4 < 2)
                logger.info(QString::number(i));
            else
                log.info(QString::number(i));
        }
        QByteArrayList expected;
        for (int i = 10; i < 50; ++i)
            expected.append("1:" + QByteArray::number(i));
        QCOMPARE(ring.allLines(100), expected);
        for (uint i = 0; i < 40; ++i)
            QCOMPARE(ring.lines(i).size(), 1);
        QVERIFY(!ring.has(40));
        QVERIFY(logger.duplicatedDescriptor() == log.logger()->duplicatedDescriptor());
        logger.closeDuplicatedHandle();
    }

    void copyOutlivesTheOriginal_data()
    {
        QTest::addColumn<bool>("rotated");
        QTest::newRow("first file") << false;
        QTest::newRow("after a rotation") << true;
    }
    void copyOutlivesTheOriginal()
    {
        QFETCH(bool, rotated);
        const LogRing ring;
        auto logger = std::make_unique<Logger>(ring.name(), 0, 5, Century, LoggerLevel::debug,
                                               levelFormatter);
        logger->disableTee();
        Log log(*logger);
        if (rotated)
            QCOMPARE(logger->rotation(0), 1U);
        logger.reset();
        const MessageCapture capture;
        log.info("still written");
        QVERIFY(capture.messages().isEmpty());
        QCOMPARE(ring.bytes(rotated ? 1 : 0), QByteArray("1:still written\n"));
        log.logger()->closeDuplicatedHandle();
    }

    void originalOutlivesTheCopy()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 5, Century, LoggerLevel::debug, levelFormatter);
        logger.disableTee();
        {
            const Log log(logger);
        }
        logger.info(QStringLiteral("still written"));
        QCOMPARE(ring.bytes(0), QByteArray("1:still written\n"));
    }

    void lastHolderClosesTheFile()
    {
        const LogRing ring;
        const int before = openDescriptors();
        {
            Logger logger(ring.name(), 0, 5, Century, LoggerLevel::debug, levelFormatter);
            const Log log(logger);
            QCOMPARE(openDescriptors(), before + 1);
        }
        QCOMPARE(openDescriptors(), before);
    }

    void closingOneCopyClosesTheSharedFile()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 5, Century, LoggerLevel::debug, levelFormatter);
        logger.disableTee();
        Log log(logger);
        logger.close();
        const MessageCapture capture;
        log.info("x");
        QCOMPARE(capture.texts(), QStringList{"\"1:x\""});
    }

    void copyOfAFilelessLoggerPrints()
    {
        Logger logger;
        Log log(logger);
        const MessageCapture capture;
        log.critical("x");
        QCOMPARE(capture.messages().size(), 1);
        QCOMPARE(capture.messages().first().type, QtCriticalMsg);
    }

    // --- Named loggers

    void namedLoggerIsFound()
    {
        Log log;
        const auto audit = std::make_shared<Logger>();
        QVERIFY(!log.containsLogger(QStringLiteral("audit")));
        QVERIFY(log.insertLoggger(QStringLiteral("audit"), audit));
        QVERIFY(log.containsLogger(QStringLiteral("audit")));
        QVERIFY(log.logger(QStringLiteral("audit")) == audit);
        QVERIFY(log.logger() != audit);
        QVERIFY(log.removeLogger(QStringLiteral("audit")) == audit);
        QVERIFY(!log.containsLogger(QStringLiteral("audit")));
        QVERIFY(log.logger(QStringLiteral("audit")) == log.log());
    }

    void unknownNameGivesTheDefaultLogger()
    {
        Log log;
        QVERIFY(log.logger(QStringLiteral("unknown")) == log.log());
        QVERIFY(log.logger(QString()) == log.log());
        QVERIFY(log.removeLogger(QStringLiteral("unknown")) == nullptr);
        QVERIFY(log.removeLogger(QString()) == nullptr);
        QVERIFY(!log.containsLogger(QString()));
    }

    void emptyOrTakenNameIsRefused()
    {
        Log log;
        const auto first = std::make_shared<Logger>();
        const auto second = std::make_shared<Logger>();
        QVERIFY(!log.insertLoggger(QString(), first));
        QVERIFY(!log.insertLoggger(QStringLiteral(""), first));
        QVERIFY(!log.containsLogger(QString()));
        QVERIFY(log.insertLoggger(QStringLiteral("a"), first));
        QVERIFY(!log.insertLoggger(QStringLiteral("a"), second));
        QVERIFY(log.logger(QStringLiteral("a")) == first);
        QVERIFY(log.insertLoggger(QStringLiteral("A"), second));
        QVERIFY(log.insertLoggger(QStringLiteral(" "), second));
        QVERIFY(log.logger(QStringLiteral("A")) == second);
    }

    void namesBelongToOneInstance()
    {
        Log first;
        QVERIFY(first.insertLoggger(QStringLiteral("a"), std::make_shared<Logger>()));
        const Log second;
        QVERIFY(!second.containsLogger(QStringLiteral("a")));
    }

    void removedLoggerLivesWithItsHolder()
    {
        const LogRing ring;
        std::weak_ptr<Logger> watched;
        std::shared_ptr<Logger> kept;
        {
            Log log;
            kept = std::make_shared<Logger>(ring.name(), 0, 0, Century, LoggerLevel::debug,
                                            levelFormatter);
            watched = kept;
            QVERIFY(log.insertLoggger(QStringLiteral("a"), kept));
            kept.reset();
            QVERIFY(!watched.expired());
            kept = log.logger(QStringLiteral("a"));
        }
        kept->disableTee();
        kept->info(QStringLiteral("x"));
        QCOMPARE(ring.bytes(0), QByteArray("1:x\n"));
        kept.reset();
        QVERIFY(watched.expired());
    }

    void namedLoggersHaveFilesOfTheirOwn()
    {
        const LogRing ring;
        const LogRing auditRing;
        const auto log = quietLog(ring);
        auto audit = std::make_shared<Logger>(auditRing.name(), 0, 0, Century, LoggerLevel::debug,
                                              levelFormatter);
        audit->disableTee();
        QVERIFY(log->insertLoggger(QStringLiteral("audit"), audit));
        log->logger(QStringLiteral("audit"))->info(QStringLiteral("a"));
        log->logger(QStringLiteral("other"))->info(QStringLiteral("d"));
        QCOMPARE(auditRing.bytes(0), QByteArray("1:a\n"));
        QCOMPARE(ring.bytes(0), QByteArray("1:d\n"));
    }

    // --- Banners

    void bannerOfPropertiesForwards()
    {
        const LogRing ring;
        const auto log = quietLog(ring);
        const Properties properties({{"a", "1"}, {"long.key", "2"}});
        log->logBanner(QStringLiteral("App"), QStringLiteral("1.2"), &properties);
        QCOMPARE(ring.bytes(0), QByteArray("1:+----------+\n1:| App v1.2 |\n1:+----------+\n"
                                           "1:(c) Vandrel\n1:a        = 1\n1:long.key = 2\n"));
    }

    void bannerOfAMapForwards()
    {
        const LogRing ring;
        const auto log = quietLog(ring);
        const QMap<QString, QString> map{{"b", "2"}, {"a", "1"}};
        log->logBanner(QStringLiteral("App"), QStringLiteral("1.2"), &map);
        QCOMPARE(ring.lines(0).mid(4), (QByteArrayList{"1:a = 1", "1:b = 2"}));
    }

    void bannerWithoutMapOrPropertiesIsTheBox()
    {
        const LogRing ring;
        const auto log = quietLog(ring);
        const QMap<QString, QString> empty;
        const QMap<QString, QString>* none = nullptr;
        log->logBanner(QStringLiteral("App"), QStringLiteral("1.2"), none);
        log->logBanner(QStringLiteral("App"), QStringLiteral("1.2"), &empty);
        log->logBanner(QStringLiteral("App"), QStringLiteral("1.2"));
        QCOMPARE(ring.lines(0).size(), 12);
    }

    void mapMayHoldAnyText()
    {
        const LogRing ring;
        const auto log = quietLog(ring);
        const QMap<QString, QString> map{{"", "empty key"}, {"#a=b", " x "}};
        log->logBanner(QStringLiteral("App"), QStringLiteral("1"), &map);
        QCOMPARE(ring.lines(0).mid(4), (QByteArrayList{"1:     = empty key", "1:#a=b =  x "}));
    }
};

KEZ_TEST_MAIN_WITH_CHILDREN(TestLog, childMain)
#include "tst_log.moc"
