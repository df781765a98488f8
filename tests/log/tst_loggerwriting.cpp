// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/failuretext.h"
#include "support/language.h"
#include "support/libcfaults.h"
#include "support/logring.h"

#include <kez/log.h>
#include <kez/logger.h>
#include <kez/properties.h>

#include <QSemaphore>
#include <QTest>

#include <new>
#include <thread>

namespace {

constexpr quint32 Century = 36500;
constexpr quint64 Large = 1 << 20;

/// What isWritingLine() answers where the log calls the application.
QList<bool> s_inFormatter;
QList<bool> s_inHandler;
QStringList s_shown;

Logger* s_inner = nullptr;

void askingFormatter(LoggerLevel::LogLevel level, const QString& msg, QString& out)
{
    if (Logger* const inner = std::exchange(s_inner, nullptr))
        inner->info(QStringLiteral("inner"));
    s_inFormatter.append(Logger::isWritingLine());
    if (msg == QLatin1String("throw"))
        throw std::bad_alloc();
    plainFormatter(level, msg, out);
}

void askingHandler(QtMsgType, const QMessageLogContext&, const QString& text)
{
    s_inHandler.append(Logger::isWritingLine());
    s_shown.append(text);
}

/// A logger on `ring` whose tee is off.
struct QuietLogger : Logger {
    explicit QuietLogger(const LogRing& ring, quint64 maxSize = Large,
                         LoggerLevel::LogLevel filter = LoggerLevel::debug)
        : Logger(ring.name(), maxSize, 3, Century, filter, askingFormatter)
    {
        disableTee();
    }
};

QSemaphore s_isHeld;
QSemaphore s_goOn;

void blockingFormatter(LoggerLevel::LogLevel level, const QString& msg, QString& out)
{
    plainFormatter(level, msg, out);
    if (msg != QLatin1String("block"))
        return;
    s_isHeld.release();
    s_goOn.acquire();
}

} // namespace

/// What a thread is told that asks whether it is inside the log.
class TestLoggerWriting : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { useLanguage(QStringLiteral("en_US")); }
    void init()
    {
        LibcFaults::reset();
        s_inFormatter.clear();
        s_inHandler.clear();
        s_shown.clear();
        _before = qInstallMessageHandler(askingHandler);
    }
    void cleanup()
    {
        qInstallMessageHandler(_before);
        QVERIFY(!Logger::isWritingLine());
        LibcFaults::reset();
    }

    void outsideOfTheLogNobodyWrites()
    {
        QVERIFY(!Logger::isWritingLine());
        const LogRing ring;
        const QuietLogger logger(ring);
        qWarning("by the application");
        QCOMPARE(s_inHandler, QList<bool>{false});
    }

    void lineIsWrittenFromItsFormatterOn()
    {
        const LogRing ring;
        QuietLogger logger(ring);
        logger.info(QStringLiteral("x"));
        QCOMPARE(s_inFormatter, QList<bool>{true});
        QCOMPARE(s_inHandler, QList<bool>());
        QVERIFY(!Logger::isWritingLine());
    }

    void lineBelowTheFilterIsNotWritten()
    {
        const LogRing ring;
        QuietLogger logger(ring, Large, LoggerLevel::error);
        logger.info(QStringLiteral("x"));
        QCOMPARE(s_inFormatter, QList<bool>());
        QVERIFY(!Logger::isWritingLine());
    }

    void whatTheLogShowsComesFromInside_data()
    {
        QTest::addColumn<QString>("way");
        for (const char* way : {"tee", "no file", "closed", "lost line", "no next file", "console"})
            QTest::newRow(way) << way;
    }
    void whatTheLogShowsComesFromInside()
    {
        QFETCH(const QString, way);
        const LogRing ring;
        QuietLogger logger(ring, way == "no next file" ? 1 : Large);
        Logger withoutFile;
        if (way == "tee")
            logger.enableTee();
        else if (way == "closed")
            logger.close();
        else if (way == "lost line")
            LibcFaults::writeError = ENOSPC;
        else if (way == "no next file")
            LibcFaults::createError = EACCES;

        if (way == "console")
            logger.writeConsole(LoggerLevel::info, QStringLiteral("x"));
        else
            (way == "no file" ? withoutFile : logger).warning(QStringLiteral("x"));
        QCOMPARE(s_inHandler, QList<bool>{true});
        QVERIFY(!Logger::isWritingLine());
    }

    /// The line does not get the lock: this thread has it.
    void innerLineDoesNotEndTheOuterOne()
    {
        const LogRing ring;
        QuietLogger logger(ring);
        s_inner = &logger;
        logger.info(QStringLiteral("outer"));
        QCOMPARE(s_inFormatter, (QList<bool>{true, true}));
        QCOMPARE(s_inHandler, QList<bool>{true});
        QVERIFY(s_shown.first().contains(QLatin1String("DEADLOCK")));
        QCOMPARE(ring.bytes(0), QByteArray("outer\n"));
    }

    void innerLineOfAnotherLoggerDoesNotEndTheOuterOne()
    {
        const LogRing ring;
        const LogRing otherRing;
        QuietLogger logger(ring);
        QuietLogger other(otherRing);
        s_inner = &other;
        logger.enableTee();
        logger.info(QStringLiteral("outer"));
        QCOMPARE(s_inFormatter, (QList<bool>{true, true}));
        QCOMPARE(s_inHandler, QList<bool>{true});
        QCOMPARE(otherRing.bytes(0), QByteArray("inner\n"));
    }

    void formatterThatThrowsEndsTheLine()
    {
        const LogRing ring;
        QuietLogger logger(ring);
        QVERIFY_EXCEPTION_THROWN(logger.info(QStringLiteral("throw")), std::bad_alloc);
        QVERIFY(!Logger::isWritingLine());
    }

    void otherThreadsAreNotMeant()
    {
        const LogRing ring;
        Logger logger(ring.name(), Large, 3, Century, LoggerLevel::debug, blockingFormatter);
        logger.disableTee();
        std::thread writer([&] { logger.info(QStringLiteral("block")); });
        s_isHeld.acquire();
        const bool isMeant = Logger::isWritingLine();
        logger.info(QStringLiteral("busy"));
        logger.close();
        s_goOn.release();
        writer.join();
        QVERIFY(!isMeant);
        QCOMPARE(s_inHandler, (QList<bool>{true, true})); // both reports of a lock that was busy
        QVERIFY(s_shown.at(0).startsWith(QLatin1String("Logger::writeTrace DEADLOCK")));
        QVERIFY(s_shown.at(1).startsWith(QLatin1String("Logger::close DEADLOCK")));
    }

    void failureOfAnApplicationsRotationComesFromInside()
    {
        const LogRing ring;
        QuietLogger logger(ring);
        LibcFaults::fdopenError = ENOMEM;
        QCOMPARE(logger.rotation(0), 1U);
        QCOMPARE(s_inHandler, QList<bool>{true});
        QVERIFY(!Logger::isWritingLine());
    }

    void reasonWhyALoggerIsNotBuiltComesFromInside()
    {
        const LogRing ring;
        Log log(ring.name(), false, Large, 3, Century, LoggerLevel::debug, askingFormatter);
        Properties properties;
        properties.insert(QStringLiteral("log.filename"), QStringLiteral("/nowhere/at/all"));
        QCOMPARE(Logger::buildLog(properties), log.logger());
        QCOMPARE(s_inHandler, QList<bool>{true});
        QCOMPARE(ring.lines(0).size(), 1); // the same reason
        QVERIFY(ring.bytes(0).contains("/nowhere/at"));
    }

private:
    QtMessageHandler _before = nullptr;
};

QTEST_GUILESS_MAIN(TestLoggerWriting)
#include "tst_loggerwriting.moc"
