// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/childprocess.h"
#include "support/descriptorlimit.h"
#include "support/environmentguard.h"
#include "support/failuretext.h"
#include "support/language.h"
#include "support/logring.h"
#include "support/messagecapture.h"
#include "support/messageprinter.h"
#include "support/opendescriptors.h"

#include <kez/initlib.h>
#include <kez/logger.h>

#include <QDir>
#include <QRegularExpression>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <new>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using Level = LoggerLevel::LogLevel;

const QString CtorPrefix =
    QStringLiteral("Logger::Logger(const QString&, quint64, quint32, quint32, LogLevel, "
                   "LogFormatter) -> ");

constexpr quint32 Century = 36500;
const LogFormatter DefaultFormatter = &Logger::formatter;

int s_formatted = 0;

void countingFormatter(Level, const QString& msg, QString& out)
{
    ++s_formatted;
    out = msg;
}

void throwingFormatter(Level, const QString&, QString&)
{
    throw std::bad_alloc();
}

/// The text of the exception that a logger of that name throws; null if it throws none.
QString constructorFailure(const QString& name)
{
    return failureText([&name] { const Logger logger(name, 0, 0, Century, LoggerLevel::debug); });
}

QString duplicateFailure(Logger& logger)
{
    return failureText([&logger] { logger.duplicateLogFile(); });
}

/// The path that a descriptor stands for.
QString pathOf(int fd)
{
    return QFile::symLinkTarget(QStringLiteral("/proc/self/fd/%1").arg(fd));
}

int childFatal(bool tee, const QString& name)
{
    Logger logger(name, 0, 0, Century, LoggerLevel::debug, plainFormatter);
    if (!tee)
        logger.disableTee();
    logger.info(QStringLiteral("before"));
    logger.fatal(QStringLiteral("the end"));
    fputs("survived\n", stderr);
    return 0;
}

int childFatalWithoutFile()
{
    Logger logger;
    logger.fatal(QStringLiteral("the end"));
    fputs("survived\n", stderr);
    return 0;
}

int childOrdinaryUser(const QString& name)
{
    if (!becomeOrdinaryUser())
        return 3;
    fputs(qPrintable(constructorFailure(name)), stdout);
    return 0;
}

int childWithoutDescriptors(const QString& name)
{
    Logger warmUp(name + QStringLiteral("-warm"), 0, 0, Century, LoggerLevel::debug);
    const int before = openDescriptors();
    const QString atConstruction = [&name] {
        const DescriptorLimit one(1);
        return constructorFailure(name);
    }();
    const int after = openDescriptors();

    Logger logger(name + QStringLiteral("-fresh"), 0, 0, Century, LoggerLevel::debug);
    const QString later = [&logger] {
        const DescriptorLimit none(0);
        return duplicateFailure(logger);
    }();
    logger.disableTee();
    logger.info(QStringLiteral("still writing"));
    puts(qPrintable(atConstruction));
    puts(qPrintable(later));
    puts(before == after ? "no leak" : "leak");
    puts(logger.duplicatedDescriptor() ? "stream" : "no stream");
    return 0;
}

int childKilled(const QString& name, int lines)
{
    Logger logger(name, 0, 0, Century, LoggerLevel::debug, plainFormatter);
    logger.disableTee();
    for (int i = 0; i < lines; ++i)
        logger.info(QStringLiteral("line %1").arg(i));
    raise(SIGKILL);
    return 0;
}

int childAppending(const QString& name, const QString& tag, int lines)
{
    Logger logger(name, 1 << 30, 1, Century, LoggerLevel::debug, plainFormatter);
    logger.disableTee();
    for (int i = 0; i < lines; ++i)
        logger.info(QStringLiteral("%1 %2").arg(tag).arg(i));
    return 0;
}

/// Executes a program that lists the descriptors it inherits.
int childExec(const QString& name)
{
    Logger logger(name, 0, 0, Century, LoggerLevel::debug);
    logger.disableTee();
    logger.duplicateLogFile();
    execl("/bin/ls", "ls", "-l", "/proc/self/fd", nullptr);
    return 3;
}

int childMain(const QStringList& arguments)
{
    kezEnsureInit();
    useLanguage(QStringLiteral("en_US"));
    printMessagesPlainly();
    const QString what = arguments.value(0);
    const QString name = arguments.value(1);
    if (what == QLatin1String("fatal-tee"))
        return childFatal(true, name);
    if (what == QLatin1String("fatal-plain"))
        return childFatal(false, name);
    if (what == QLatin1String("fatal-nofile"))
        return childFatalWithoutFile();
    if (what == QLatin1String("ordinary"))
        return childOrdinaryUser(name);
    if (what == QLatin1String("descriptors"))
        return childWithoutDescriptors(name);
    if (what == QLatin1String("killed"))
        return childKilled(name, arguments.value(2).toInt());
    if (what == QLatin1String("exec"))
        return childExec(name);
    if (what == QLatin1String("append"))
        return childAppending(name, arguments.value(2), arguments.value(3).toInt());
    return 4;
}

} // namespace

class TestLogger : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { useLanguage(QStringLiteral("en_US")); }

    // --- Construction

    void emptyLoggerHasTheDefaults()
    {
        Logger logger;
        QVERIFY(logger.isTeeEnabled());
        QCOMPARE(logger.filter(), LoggerLevel::debug);
        QVERIFY(logger.formatter() == DefaultFormatter);
        QCOMPARE(logger.bannerTitle(), QString());
        QVERIFY(!logger.recordConfigurationData());
        QVERIFY(logger.duplicatedDescriptor() == nullptr);
        QVERIFY(!logger.needsRotate());
        QVERIFY(!logger.needsRotate(QStringLiteral("x")));
        logger.duplicateLogFile();
        QVERIFY(logger.duplicatedDescriptor() == nullptr);
        logger.closeDuplicatedHandle();
        logger.close();
    }

    void emptyLoggerPrintsEveryLevel_data()
    {
        QTest::addColumn<int>("level");
        QTest::addColumn<int>("type");
        QTest::newRow("debug") << 0 << int(QtDebugMsg);
        QTest::newRow("info") << 1 << int(QtInfoMsg);
        QTest::newRow("warning") << 2 << int(QtWarningMsg);
        QTest::newRow("error") << 3 << int(QtCriticalMsg);
        QTest::newRow("just above fatal") << 5 << int(QtDebugMsg);
        QTest::newRow("seven") << 7 << int(QtDebugMsg);
    }
    void emptyLoggerPrintsEveryLevel()
    {
        QFETCH(int, level);
        QFETCH(int, type);
        Logger logger;
        const MessageCapture capture;
        logger.writeTrace(static_cast<Level>(level), QStringLiteral("hello"));
        QCOMPARE(capture.messages().size(), 1);
        const MessageCapture::Message message = capture.messages().first();
        QCOMPARE(int(message.type), type);
        QCOMPARE(message.category, QStringLiteral("default"));
        QVERIFY2(message.text.startsWith(QLatin1Char('"')), qPrintable(message.text));
        QVERIFY2(message.text.endsWith(QLatin1String("> hello\"")), qPrintable(message.text));
    }

    void consoleSeverityFollowsTheLevel_data() { emptyLoggerPrintsEveryLevel_data(); }
    void consoleSeverityFollowsTheLevel()
    {
        QFETCH(int, level);
        QFETCH(int, type);
        const Logger logger;
        const MessageCapture capture;
        logger.writeConsole(static_cast<Level>(level), QStringLiteral("ready line"));
        QCOMPARE(capture.messages().size(), 1);
        QCOMPARE(int(capture.messages().first().type), type);
        QCOMPARE(capture.messages().first().category, QStringLiteral("default"));
        QCOMPARE(capture.messages().first().text, QStringLiteral("\"ready line\""));
    }

    void consoleQuotesAsTheDebugStreamDoes_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("shown");
        QTest::newRow("empty") << ""
                               << "\"\"";
        QTest::newRow("blank") << " "
                               << "\" \"";
        QTest::newRow("quotes") << "say \"hi\""
                                << "\"say \\\"hi\\\"\"";
        QTest::newRow("backslash") << "a\\b"
                                   << "\"a\\\\b\"";
        QTest::newRow("line ends") << "a\nb\r"
                                   << "\"a\\nb\\r\"";
        QTest::newRow("accents") << QString::fromUtf8("\xc3\xa9t\xc3\xa9")
                                 << QString::fromUtf8("\"\xc3\xa9t\xc3\xa9\"");
        QTest::newRow("place marker") << "%1 %s %n"
                                      << "\"%1 %s %n\"";
    }
    void consoleQuotesAsTheDebugStreamDoes()
    {
        QFETCH(QString, text);
        QFETCH(QString, shown);
        const Logger logger;
        const MessageCapture capture;
        logger.writeConsole(LoggerLevel::info, text);
        QCOMPARE(capture.texts(), QStringList{shown});
        QCOMPARE(shown, quoted(text));
    }

    void fileLoggerHasItsSettings()
    {
        const LogRing ring;
        const Logger logger(ring.name(), 0, 0, 0, LoggerLevel::warning, plainFormatter);
        QVERIFY(logger.isTeeEnabled());
        QCOMPARE(logger.filter(), LoggerLevel::warning);
        QVERIFY(logger.formatter() == &plainFormatter);
        QCOMPARE(logger.bannerTitle(), QString());
        QVERIFY(!logger.recordConfigurationData());
        QVERIFY(logger.duplicatedDescriptor() == nullptr);
        QCOMPARE(ring.names(), QStringList{"app-0.log"});
        QCOMPARE(ring.bytes(0), QByteArray(""));
    }

    void nullFormatterMeansTheDefault()
    {
        const LogRing ring;
        const Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, nullptr);
        QVERIFY(logger.formatter() == DefaultFormatter);
    }

    void fileNameGivesTheRing_data()
    {
        QTest::addColumn<QString>("base");
        QTest::addColumn<QString>("file");
        QTest::newRow("with suffix") << "app.log"
                                     << "app-0.log";
        QTest::newRow("without suffix") << "app"
                                        << "app-0.log";
        QTest::newRow("upper-case suffix stays") << "app.LOG"
                                                 << "app.LOG-0.log";
        QTest::newRow("mixed-case suffix stays") << "app.Log"
                                                 << "app.Log-0.log";
        QTest::newRow("suffix twice") << "app.log.log"
                                      << "app.log-0.log";
        QTest::newRow("other suffix") << "app.txt"
                                      << "app.txt-0.log";
        QTest::newRow("suffix in the middle") << "app.log.txt"
                                              << "app.log.txt-0.log";
        QTest::newRow("suffix without dot") << "applog"
                                            << "applog-0.log";
        QTest::newRow("suffix only") << ".log"
                                     << "-0.log";
        QTest::newRow("nothing after the slash") << ""
                                                 << "-0.log";
        QTest::newRow("blanks") << " my app "
                                << " my app -0.log";
        QTest::newRow("accents") << QString::fromUtf8("\xc3\xa9t\xc3\xa9")
                                 << QString::fromUtf8("\xc3\xa9t\xc3\xa9-0.log");
        QTest::newRow("place marker") << "app%1"
                                      << "app%1-0.log";
        QTest::newRow("several place markers") << "%1%2%L3"
                                               << "%1%2%L3-0.log";
        QTest::newRow("index marker") << "app%d"
                                      << "app%d-0.log";
        QTest::newRow("index look-alike") << "app-3"
                                          << "app-3-0.log";
        QTest::newRow("printf markers") << "a%s%n"
                                        << "a%s%n-0.log";
        QTest::newRow("wildcards") << "a*[b]?"
                                   << "a*[b]?-0.log";
        QTest::newRow("hidden") << ".app"
                                << ".app-0.log";
    }
    void fileNameGivesTheRing()
    {
        QFETCH(QString, base);
        QFETCH(QString, file);
        const LogRing ring;
        const QString name = ring.path() + QLatin1Char('/') + base;
        {
            Logger logger(name, 3, 2, Century, LoggerLevel::debug, plainFormatter);
            logger.disableTee();
            QCOMPARE(ring.names(), QStringList{file});
            logger.info(QStringLiteral("one"));
            QString next = file;
            next.replace(next.lastIndexOf(QLatin1Char('0')), 1, QLatin1Char('1'));
            QStringList both{file, next};
            both.sort();
            QStringList names = ring.names();
            names.sort();
            QCOMPARE(names, both);
        }
        Logger again(name, 1000, 2, Century, LoggerLevel::debug, plainFormatter);
        again.disableTee();
        again.info(QStringLiteral("two"));
        QCOMPARE(ring.names().size(), 2);
    }

    void markersInTheDirectoryStay_data()
    {
        QTest::addColumn<QString>("directory");
        QTest::newRow("index marker") << "a%db";
        QTest::newRow("place marker") << "a%1b";
        QTest::newRow("suffix") << "a.log";
        QTest::newRow("blanks") << "a b";
    }
    void markersInTheDirectoryStay()
    {
        QFETCH(QString, directory);
        const LogRing ring;
        QVERIFY(QDir(ring.path()).mkdir(directory));
        const QString path = ring.path() + QLatin1Char('/') + directory;
        Logger logger(path + QStringLiteral("/app.log"), 5, 2, Century, LoggerLevel::debug,
                      plainFormatter);
        logger.disableTee();
        logger.info(QStringLiteral("x"));
        logger.info(QStringLiteral("long line"));
        QCOMPARE(readFile(path + QStringLiteral("/app-0.log")), QByteArray("x\n"));
        QCOMPARE(readFile(path + QStringLiteral("/app-1.log")), QByteArray("long line\n"));
    }

    void nameWithoutSlashIsInTheHomeDirectory()
    {
        const LogRing ring;
        const EnvironmentGuard home("HOME", QFile::encodeName(ring.path()));
        const Logger logger(QStringLiteral("app.log"), 0, 0, Century, LoggerLevel::debug);
        QCOMPARE(ring.names(), QStringList{"app-0.log"});
    }

    void missingHomeDirectoryIsRefused()
    {
        const LogRing ring;
        const EnvironmentGuard home("HOME", QFile::encodeName(ring.path() + "/gone"));
        QCOMPARE(constructorFailure(QStringLiteral("app.log")),
                 CtorPrefix + QStringLiteral("Access to directory [%1/gone] is impossible or file "
                                             "rights are insufficient.")
                                  .arg(ring.path()));
    }

    void relativeNameIsBelowTheWorkingDirectory()
    {
        const LogRing ring;
        const QString before = QDir::currentPath();
        QVERIFY(QDir(ring.path()).mkdir(QStringLiteral("logs")));
        QVERIFY(QDir::setCurrent(ring.path()));
        {
            const Logger logger(QStringLiteral("logs/app.LOG"), 0, 0, Century, LoggerLevel::debug);
        }
        QVERIFY(QDir::setCurrent(before));
        QVERIFY(QFileInfo::exists(ring.path() + QStringLiteral("/logs/app.LOG-0.log")));
    }

    void relativeRingStaysWhereItWasOpened()
    {
        const LogRing ring;
        const LogRing elsewhere;
        const QString before = QDir::currentPath();
        QVERIFY(QDir(ring.path()).mkdir(QStringLiteral("logs")));
        QVERIFY(QDir::setCurrent(ring.path()));
        Logger logger(QStringLiteral("logs/app"), 5, 2, Century, LoggerLevel::debug,
                      plainFormatter);
        logger.disableTee();
        QVERIFY(QDir::setCurrent(elsewhere.path()));
        const MessageCapture capture;
        for (const char* line : {"one", "two", "six"})
            logger.info(line);
        const uint newest = logger.lookForLastFile();
        QVERIFY(QDir::setCurrent(before));
        QCOMPARE(capture.texts(), QStringList());
        QCOMPARE(newest, 1U);
        const QString logs = ring.path() + QStringLiteral("/logs/");
        QCOMPARE(readFile(logs + QStringLiteral("app-0.log")), QByteArray("two\n"));
        QCOMPARE(readFile(logs + QStringLiteral("app-1.log")), QByteArray("six\n"));
        QCOMPARE(elsewhere.names(), QStringList());
        logger.closeDuplicatedHandle();
    }

    void searchPrefixMeansItsDirectory()
    {
        const LogRing ring;
        QVERIFY(QDir(ring.path()).mkdir(QStringLiteral("logs")));
        QDir::setSearchPaths(QStringLiteral("ringdir"), {ring.path()});
        const QString failure = constructorFailure(QStringLiteral("ringdir:logs/app"));
        QDir::setSearchPaths(QStringLiteral("ringdir"), {});
        QCOMPARE(failure, QString());
        QVERIFY(QFileInfo::exists(ring.path() + QStringLiteral("/logs/app-0.log")));
    }

    void relativeNameIsShownAsGiven()
    {
        const LogRing ring;
        const QString before = QDir::currentPath();
        QVERIFY(QDir::setCurrent(ring.path()));
        QVERIFY(QDir().mkpath(QStringLiteral("logs/app-0.log")));
        const QString directory = constructorFailure(QStringLiteral("gone/app"));
        const QString file = constructorFailure(QStringLiteral("logs/app.log"));
        QVERIFY(QDir::setCurrent(before));
        QCOMPARE(directory, CtorPrefix + QStringLiteral("Access to directory [gone] is impossible "
                                                        "or file rights are insufficient."));
        QCOMPARE(file, CtorPrefix +
                           QStringLiteral("Failed to open file [logs/app-0.log] in append mode"));
    }

    void constructorFailureHasItsText_data()
    {
        QTest::addColumn<QString>("lang");
        QTest::addColumn<QString>("situation");
        QTest::addColumn<QString>("text");
        const QString en = QStringLiteral("en_US");
        const QString fr = QStringLiteral("fr_FR");
        const QString dirEn = QStringLiteral(
            "Access to directory [%1] is impossible or file rights are insufficient.");
        const QString dirFr = QString::fromUtf8(
            "L'acc\xc3\xa8s au r\xc3\xa9pertoire [%1] est impossible ou les droits du compte "
            "utilis\xc3\xa9 sont insuffisants");
        QTest::newRow("missing directory") << en << "missing" << dirEn;
        QTest::newRow("missing directory, French") << fr << "missing" << dirFr;
        QTest::newRow("file as directory") << en << "file" << dirEn;
        QTest::newRow("file as directory, French") << fr << "file" << dirFr;
        QTest::newRow("directory name with markers") << en << "%1%2" << dirEn;
        QTest::newRow("existing file cannot be opened")
            << en << "append"
            << "Failed to open file [%1] in append mode";
        QTest::newRow("existing file cannot be opened, French")
            << fr << "append"
            << "Echec d'ouverture du fichier [%1] en mode ajout";
        QTest::newRow("new file cannot be created") << en << "create"
                                                    << "Failed to open file [%1] in create mode";
        QTest::newRow("new file cannot be created, French")
            << fr << "create"
            << QString::fromUtf8("Echec d'ouverture du fichier [%1] en mode cr\xc3\xa9"
                                 "ation");
    }
    void constructorFailureHasItsText()
    {
        QFETCH(QString, lang);
        QFETCH(QString, situation);
        QFETCH(QString, text);
        const LogRing ring;
        QString directory = ring.path() + QLatin1Char('/') + situation;
        QString argument = directory;
        if (situation == QLatin1String("file")) {
            QVERIFY(writeFile(directory, "x"));
        } else if (situation == QLatin1String("append")) {
            // A directory named like the ring's file: it exists and cannot be written.
            directory = ring.path();
            argument = ring.file(0);
            QVERIFY(QDir().mkdir(argument));
        } else if (situation == QLatin1String("create")) {
            // A link to nowhere: for the file system it does not exist, and cannot be created
            // either.
            directory = ring.path();
            argument = ring.file(0);
            QVERIFY(QFile::link(ring.path() + QStringLiteral("/nowhere"), argument));
        }
        useLanguage(lang);
        const int descriptors = openDescriptors();
        const QString failure = constructorFailure(directory + QStringLiteral("/app.log"));
        useLanguage(QStringLiteral("en_US"));
        QCOMPARE(failure, CtorPrefix + text.replace(QStringLiteral("%1"), argument));
        QCOMPARE(openDescriptors(), descriptors);
    }

    void rightsOfAnOrdinaryUserCount_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("fileMode");
        QTest::addColumn<QString>("text");
        const QString directory = QStringLiteral(
            "Access to directory [%1] is impossible or file rights are insufficient.");
        QTest::newRow("everything allowed") << 0777 << -1 << "";
        QTest::newRow("read-only directory") << 0555 << -1 << directory;
        QTest::newRow("unreadable directory") << 0333 << -1 << directory;
        QTest::newRow("directory without any right") << 0000 << -1 << directory;
        QTest::newRow("directory not searchable")
            << 0666 << -1 << "Failed to open file [%1/app-0.log] in create mode";
        QTest::newRow("read-only file")
            << 0777 << 0444 << "Failed to open file [%1/app-0.log] in append mode";
        QTest::newRow("write-only file")
            << 0777 << 0222 << "Failed to open file [%1/app-0.log] in append mode";
    }
    void rightsOfAnOrdinaryUserCount()
    {
        QFETCH(int, mode);
        QFETCH(int, fileMode);
        QFETCH(QString, text);
        const LogRing ring;
        QCOMPARE(chmod(QFile::encodeName(ring.path()).constData(), 0755), 0);
        const QString directory = ring.path() + QStringLiteral("/d");
        const QString file = directory + QStringLiteral("/app-0.log");
        QVERIFY(QDir().mkdir(directory));
        if (fileMode >= 0) {
            QVERIFY(writeFile(file, "x\n"));
            QCOMPARE(chmod(QFile::encodeName(file).constData(), mode_t(fileMode)), 0);
        }
        QCOMPARE(chmod(QFile::encodeName(directory).constData(), mode_t(mode)), 0);
        const ChildResult child =
            runChild({QStringLiteral("ordinary"), directory + QStringLiteral("/app")});
        QCOMPARE(chmod(QFile::encodeName(directory).constData(), 0755), 0);
        QCOMPARE(child.exitCode, 0);
        const QString expected =
            text.isEmpty() ? text : CtorPrefix + text.replace(QStringLiteral("%1"), directory);
        QCOMPARE(QString::fromUtf8(child.out), expected);
    }

    void existingFileIsContinued()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, "earlier\n"));
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, plainFormatter);
        logger.disableTee();
        logger.info(QStringLiteral("later"));
        QCOMPARE(ring.bytes(0), QByteArray("earlier\nlater\n"));
        QVERIFY(logger.duplicatedDescriptor() != nullptr);
        logger.closeDuplicatedHandle();
    }

    // --- Lines

    void lineIsInTheFileWhenTheCallReturns()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug);
        logger.disableTee();
        for (int i = 1; i <= 100; ++i) {
            logger.info(QStringLiteral("line"));
            QCOMPARE(ring.lines(0).size(), i);
            QVERIFY(ring.bytes(0).endsWith(" <INFOR> line\n"));
        }
    }

    void levelMethodsWriteTheirLevel()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, levelFormatter);
        logger.disableTee();
        const MessageCapture capture;
        logger.debug(QStringLiteral("d"));
        logger.info(QStringLiteral("i"));
        logger.warning(QStringLiteral("w"));
        logger.critical(QStringLiteral("c"));
        logger.fatal(QStringLiteral("f"));
        QCOMPARE(ring.bytes(0), QByteArray("0:d\n1:i\n2:w\n3:c\n4:f\n"));
        QVERIFY(capture.messages().isEmpty());
    }

    void criticalLineIsTaggedError()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug);
        logger.disableTee();
        logger.critical(QStringLiteral("c"));
        QVERIFY(ring.bytes(0).endsWith(" <ERROR> c\n"));
    }

    void teeShowsTheLineAndMarksBoth()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug);
        const MessageCapture capture;
        logger.warning(QStringLiteral("careful"));
        QCOMPARE(ring.lines(0).size(), 1);
        const QByteArray line = ring.lines(0).first();
        QVERIFY2(line.endsWith(" <WARNG> careful [Tee]"), line.constData());
        QCOMPARE(capture.messages().size(), 1);
        QCOMPARE(capture.messages().first().type, QtWarningMsg);
        QCOMPARE(capture.messages().first().text, quoted(QString::fromUtf8(line)));
    }

    void teeCanBeSwitched()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, plainFormatter);
        const MessageCapture capture;
        logger.info(QStringLiteral("a"));
        logger.disableTee();
        QVERIFY(!logger.isTeeEnabled());
        logger.info(QStringLiteral("b"));
        logger.enableTee();
        QVERIFY(logger.isTeeEnabled());
        logger.info(QStringLiteral("c"));
        QCOMPARE(ring.bytes(0), QByteArray("a [Tee]\nb\nc [Tee]\n"));
        QCOMPARE(capture.texts(), (QStringList{"\"a [Tee]\"", "\"c [Tee]\""}));
    }

    void fatalLineEndsTheProcessWhenItIsShown_data()
    {
        QTest::addColumn<QString>("what");
        QTest::addColumn<bool>("survives");
        QTest::addColumn<QByteArray>("shown");
        QTest::newRow("tee") << "fatal-tee" << false
                             << QByteArray("info|default|\"before [Tee]\"\n"
                                           "fatal|default|\"the end [Tee]\"\n");
        QTest::newRow("file only") << "fatal-plain" << true << QByteArray("survived\n");
    }
    void fatalLineEndsTheProcessWhenItIsShown()
    {
        QFETCH(QString, what);
        QFETCH(bool, survives);
        QFETCH(QByteArray, shown);
        const LogRing ring;
        const ChildResult child = runChild({what, ring.name()});
        QVERIFY(child.finished);
        QCOMPARE(child.crashed, !survives);
        if (!survives)
            QCOMPARE(child.exitCode, SIGABRT);
        QCOMPARE(child.err, shown);
        if (survives)
            QCOMPARE(ring.bytes(0), QByteArray("before\nthe end\n"));
        else
            QCOMPARE(ring.bytes(0), QByteArray("before [Tee]\n"));
    }

    void fatalLineWithoutFileEndsTheProcess()
    {
        const ChildResult child = runChild({QStringLiteral("fatal-nofile")});
        QVERIFY(child.finished && child.crashed);
        QCOMPARE(child.exitCode, SIGABRT);
        QVERIFY2(child.err.startsWith("fatal|default|\""), child.err.constData());
        QVERIFY2(child.err.endsWith(" <FATAL> the end\"\n"), child.err.constData());
    }

    void filterLetsEqualAndHigherLevelsThrough_data()
    {
        QTest::addColumn<int>("filter");
        QTest::addColumn<QByteArray>("written");
        QTest::newRow("debug") << 0 << QByteArray("0:x\n1:x\n2:x\n3:x\n4:x\n5:x\n7:x\n");
        QTest::newRow("info") << 1 << QByteArray("1:x\n2:x\n3:x\n4:x\n5:x\n7:x\n");
        QTest::newRow("warning") << 2 << QByteArray("2:x\n3:x\n4:x\n5:x\n7:x\n");
        QTest::newRow("error") << 3 << QByteArray("3:x\n4:x\n5:x\n7:x\n");
        QTest::newRow("fatal") << 4 << QByteArray("4:x\n5:x\n7:x\n");
        QTest::newRow("above the range") << 6 << QByteArray("7:x\n");
        QTest::newRow("below the range")
            << -1 << QByteArray("-1:x\n0:x\n1:x\n2:x\n3:x\n4:x\n5:x\n7:x\n");
    }
    void filterLetsEqualAndHigherLevelsThrough()
    {
        QFETCH(int, filter);
        QFETCH(QByteArray, written);
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, static_cast<Level>(filter), levelFormatter);
        logger.disableTee();
        for (const int level : {-1, 0, 1, 2, 3, 4, 5, 7})
            logger.writeTrace(static_cast<Level>(level), QStringLiteral("x"));
        QCOMPARE(ring.bytes(0), written);
    }

    void droppedLineIsNotFormatted()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::error, countingFormatter);
        const MessageCapture capture;
        s_formatted = 0;
        logger.debug(QStringLiteral("d"));
        logger.info(QStringLiteral("i"));
        logger.warning(QStringLiteral("w"));
        QCOMPARE(s_formatted, 0);
        logger.critical(QStringLiteral("c"));
        QCOMPARE(s_formatted, 1);
        QCOMPARE(ring.bytes(0), QByteArray("c [Tee]\n"));
        QCOMPARE(capture.texts(), QStringList{"\"c [Tee]\""});
    }

    void formatterThatThrowsLeavesTheLoggerUsable()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, throwingFormatter);
        logger.disableTee();
        QVERIFY_EXCEPTION_THROWN(logger.info(QStringLiteral("x")), std::bad_alloc);
        logger.setFormatter(nullptr);
        const MessageCapture capture;
        logger.info(QStringLiteral("y"));
        QVERIFY(capture.messages().isEmpty());
        QCOMPARE(ring.lines(0).size(), 1);
        QVERIFY(ring.bytes(0).endsWith(" <INFOR> y\n"));
    }

    void messageComesOutAsItsUtf8_data()
    {
        QTest::addColumn<QString>("msg");
        QTest::newRow("empty") << "";
        QTest::newRow("accents") << QString::fromUtf8("d\xc3\xa9j\xc3\xa0 vu \xe2\x82\xac");
        QTest::newRow("outside the basic plane") << QString::fromUtf8("\xf0\x9f\x98\x80");
        QTest::newRow("lone high surrogate") << QString(QChar(0xd83d)) + "x";
        QTest::newRow("lone low surrogate") << "x" + QString(QChar(0xde00));
        QTest::newRow("high surrogate at the end") << "x" + QString(QChar(0xd83d));
        QTest::newRow("surrogates in wrong order")
            << QString(QChar(0xde00)) + QString(QChar(0xd83d));
        QTest::newRow("NULs") << QString(3, QChar(0)) + "x" + QChar(0);
        QTest::newRow("newlines") << "a\nb\r\nc\n";
        QTest::newRow("byte order mark") << QString(QChar(0xfeff)) + "x";
        QTest::newRow("non-characters") << QString(QChar(0xffff)) + QChar(0xfffe);
        QTest::newRow("7 MiB and more than the limit")
            << QString(10 * 1024 * 1024, QChar(0xe9)) + QStringLiteral("end");
    }
    void messageComesOutAsItsUtf8()
    {
        QFETCH(QString, msg);
        const LogRing ring;
        Logger logger(ring.name(), 1 << 30, 0, Century, LoggerLevel::debug, plainFormatter);
        logger.disableTee();
        logger.info(msg);
        logger.info(QStringLiteral("next"));
        QVERIFY(ring.bytes(0) == msg.toUtf8() + "\nnext\n");
    }

    // --- Settings

    void setFilterReturnsTheFilterBefore()
    {
        Logger logger;
        QCOMPARE(logger.setFilter(LoggerLevel::error), LoggerLevel::debug);
        QCOMPARE(logger.setFilter(LoggerLevel::info), LoggerLevel::error);
        QCOMPARE(logger.filter(), LoggerLevel::info);
    }

    void setFormatterOnlyResets()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, plainFormatter);
        QVERIFY(logger.setFormatter(&levelFormatter) == &plainFormatter);
        QVERIFY(logger.formatter() == &plainFormatter);
        QVERIFY(logger.setFormatter(nullptr) == &plainFormatter);
        QVERIFY(logger.formatter() == DefaultFormatter);
        QVERIFY(logger.setFormatter(&plainFormatter) == DefaultFormatter);
        QVERIFY(logger.formatter() == DefaultFormatter);
        logger.disableTee();
        logger.info(QStringLiteral("x"));
        QVERIFY(ring.bytes(0).endsWith(" <INFOR> x\n"));
    }

    // --- Closing

    void closedLoggerPrints()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, plainFormatter);
        logger.disableTee();
        logger.info(QStringLiteral("file"));
        logger.close();
        const MessageCapture capture;
        logger.critical(QStringLiteral("console"));
        QCOMPARE(ring.bytes(0), QByteArray("file\n"));
        QCOMPARE(capture.messages().size(), 1);
        QCOMPARE(capture.messages().first().type, QtCriticalMsg);
        QCOMPARE(capture.messages().first().text, QStringLiteral("\"console\""));
    }

    void closedLoggerPrintsOnceAndUnmarkedWithTee()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, plainFormatter);
        logger.close();
        const MessageCapture capture;
        logger.info(QStringLiteral("console"));
        QCOMPARE(capture.texts(), QStringList{"\"console\""});
    }

    void closeReleasesFileAndStream()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, "x\n"));
        const int before = openDescriptors();
        {
            Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug);
            QVERIFY(logger.duplicatedDescriptor() != nullptr);
            QCOMPARE(openDescriptors(), before + 2);
            logger.close();
            QCOMPARE(openDescriptors(), before);
        }
        QCOMPARE(openDescriptors(), before);
    }

    void closedLoggerCannotDuplicate()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, "x\n"));
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug);
        logger.close();
        QCOMPARE(duplicateFailure(logger), QStringLiteral("void Logger::duplicateLogFile() -> ") +
                                               QString::fromLocal8Bit(strerror(EBADF)));
    }

    // --- The duplicated stream

    void freshFileHasNoStreamUntilAsked()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, plainFormatter);
        logger.disableTee();
        QVERIFY(logger.duplicatedDescriptor() == nullptr);
        logger.duplicateLogFile();
        FILE* stream = logger.duplicatedDescriptor();
        QVERIFY(stream != nullptr);
        logger.info(QStringLiteral("one"));
        QVERIFY(fputs("two\n", stream) >= 0);
        QCOMPARE(fflush(stream), 0);
        logger.info(QStringLiteral("three"));
        QVERIFY(fputs("four\n", stream) >= 0);
        QCOMPARE(fflush(stream), 0);
        logger.info(QStringLiteral("five"));
        QCOMPARE(ring.bytes(0), QByteArray("one\ntwo\nthree\nfour\nfive\n"));
        logger.closeDuplicatedHandle();
    }

    void streamIsACopyClosedOnExec()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, "x\n"));
        const Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug);
        FILE* stream = logger.duplicatedDescriptor();
        QVERIFY(stream != nullptr);
        QCOMPARE(pathOf(fileno(stream)), QFileInfo(ring.file(0)).canonicalFilePath());
        QVERIFY(fcntl(fileno(stream), F_GETFD) & FD_CLOEXEC);
        QCOMPARE(fcntl(fileno(stream), F_GETFL) & O_ACCMODE, O_RDWR);
        fclose(stream);
    }

    void executedProgramInheritsNothing()
    {
        const LogRing ring;
        const ChildResult child = runChild({QStringLiteral("exec"), ring.name()});
        QCOMPARE(child.exitCode, 0);
        QVERIFY(!child.out.isEmpty());
        QVERIFY2(!child.out.contains("app-0.log"), child.out.constData());
    }

    void duplicatingAgainKeepsTheStream()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug);
        logger.duplicateLogFile();
        FILE* const stream = logger.duplicatedDescriptor();
        const int descriptors = openDescriptors();
        for (int i = 0; i < 100; ++i)
            logger.duplicateLogFile();
        QVERIFY(logger.duplicatedDescriptor() == stream);
        QCOMPARE(openDescriptors(), descriptors);
        QVERIFY(fputs("x\n", stream) >= 0);
        QCOMPARE(fflush(stream), 0);
        QCOMPARE(ring.bytes(0), QByteArray("x\n"));
        logger.closeDuplicatedHandle();
    }

    void closedStreamIsReplacedWhenAskedAgain()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug);
        const int descriptors = openDescriptors();
        logger.duplicateLogFile();
        QCOMPARE(openDescriptors(), descriptors + 1);
        logger.closeDuplicatedHandle();
        QVERIFY(logger.duplicatedDescriptor() != nullptr);
        QCOMPARE(openDescriptors(), descriptors);
        logger.duplicateLogFile();
        FILE* stream = logger.duplicatedDescriptor();
        QVERIFY(stream != nullptr);
        QVERIFY(fputs("x\n", stream) >= 0);
        logger.closeDuplicatedHandle();
        QCOMPARE(ring.bytes(0), QByteArray("x\n"));
    }

    void streamOutlivesTheLogger()
    {
        const LogRing ring;
        FILE* stream = nullptr;
        {
            Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, plainFormatter);
            logger.disableTee();
            logger.info(QStringLiteral("logger"));
            logger.duplicateLogFile();
            stream = logger.duplicatedDescriptor();
        }
        QVERIFY(fputs("stream\n", stream) >= 0);
        QCOMPARE(fclose(stream), 0);
        QCOMPARE(ring.bytes(0), QByteArray("logger\nstream\n"));
    }

    void exhaustedDescriptorsAreReported()
    {
#ifdef __SANITIZE_ADDRESS__
        QSKIP("the sanitizers' own checks need descriptors");
#endif
        const LogRing ring;
        QVERIFY(ring.put(0, "x\n"));
        const ChildResult child = runChild({QStringLiteral("descriptors"), ring.name()});
        QCOMPARE(child.exitCode, 0);
        const QByteArray text =
            QByteArray("void Logger::duplicateLogFile() -> ") + strerrordesc_np(EMFILE);
        const QByteArrayList expected{text, text, "no leak", "no stream"};
        QCOMPARE(linesIn(child.out), expected);
        QVERIFY(
            readFile(ring.path() + QStringLiteral("/app-fresh-0.log")).endsWith("still writing\n"));
    }

    // --- With others

    void killedProcessLeavesEveryLine()
    {
        const LogRing ring;
        const ChildResult child =
            runChild({QStringLiteral("killed"), ring.name(), QStringLiteral("500")});
        QVERIFY(child.finished && child.crashed);
        const QByteArrayList lines = ring.lines(0);
        QCOMPARE(lines.size(), 500);
        for (int i = 0; i < 500; ++i)
            QCOMPARE(lines.at(i), "line " + QByteArray::number(i));
    }

    void outsideTruncationLeavesNoHole()
    {
        const LogRing ring;
        Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug, plainFormatter);
        logger.disableTee();
        logger.duplicateLogFile();
        for (int i = 0; i < 100; ++i)
            logger.info(QStringLiteral("before"));
        QCOMPARE(truncate(QFile::encodeName(ring.file(0)).constData(), 0), 0);
        logger.info(QStringLiteral("after"));
        QVERIFY(fputs("stream\n", logger.duplicatedDescriptor()) >= 0);
        logger.closeDuplicatedHandle();
        QCOMPARE(ring.bytes(0), QByteArray("after\nstream\n"));
    }

    void twoLoggersOnOneFileLoseNothing()
    {
        const LogRing ring;
        Logger first(ring.name(), 0, 0, Century, LoggerLevel::debug, plainFormatter);
        Logger second(ring.name(), 0, 0, Century, LoggerLevel::debug, plainFormatter);
        first.disableTee();
        second.disableTee();
        QByteArray expected;
        for (int i = 0; i < 200; ++i) {
            first.info(QStringLiteral("first %1").arg(i));
            second.info(QStringLiteral("second %1").arg(i));
            expected +=
                "first " + QByteArray::number(i) + "\nsecond " + QByteArray::number(i) + "\n";
        }
        QCOMPARE(ring.bytes(0), expected);
        second.closeDuplicatedHandle();
    }

    void twoProcessesOnOneFileLoseNothing()
    {
        const LogRing ring;
        QVERIFY(ring.put(0, ""));
        constexpr int Lines = 2000;
        QList<QProcess*> children;
        QObject owner;
        for (const QString& tag : {QStringLiteral("a"), QStringLiteral("b")}) {
            auto* process = new QProcess(&owner);
            process->start(QCoreApplication::applicationFilePath(),
                           {QStringLiteral("--child"), QStringLiteral("append"), ring.name(), tag,
                            QString::number(Lines)});
            children.append(process);
        }
        for (QProcess* process : children) {
            QVERIFY(process->waitForFinished(60000));
            QCOMPARE(process->exitCode(), 0);
        }
        int next[2] = {0, 0};
        const QByteArrayList lines = ring.lines(0);
        QCOMPARE(lines.size(), 2 * Lines);
        for (const QByteArray& line : lines) {
            const int who = line.startsWith("a ") ? 0 : 1;
            QCOMPARE(line, QByteArray(who == 0 ? "a " : "b ") + QByteArray::number(next[who]++));
        }
    }

    void constructionAndDestructionLeakNothing()
    {
        const LogRing ring;
        const int before = openDescriptors();
        for (int i = 0; i < 50; ++i) {
            Logger logger(ring.name(), 0, 0, Century, LoggerLevel::debug);
            logger.disableTee();
            logger.info(QStringLiteral("x"));
            logger.closeDuplicatedHandle();
        }
        QCOMPARE(openDescriptors(), before);
        QCOMPARE(ring.lines(0).size(), 50);
    }
};

KEZ_TEST_MAIN_WITH_CHILDREN(TestLogger, childMain)
#include "tst_logger.moc"
