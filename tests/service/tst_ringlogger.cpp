// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/kittexts_p.h"
#include "support/childoutput.h"
#include "support/failuretext.h"
#include "support/interposed.h"
#include "support/language.h"
#include "support/logring.h"

#include <kez/configuration.h>
#include <kez/log.h>
#include <kez/service/loggerbuilder.h>
#include <kez/service/sectionlogger.h>
#include <kez/service/servicelog.h>

#include <QProcess>
#include <QScopeGuard>
#include <QtTest>

#include <cerrno>
#include <csignal>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace KezService;

namespace {

/// The error of flock(); 0 for none.
int lockError = 0;

} // namespace

extern "C" int flock(int file, int operation) noexcept
{
    static const auto original = interposed<int (*)(int, int)>("flock");
    if (lockError == 0)
        return original(file, operation);
    errno = lockError;
    return -1;
}

namespace {

using Names = QMap<QString, QString>;

std::shared_ptr<Logger> built(const QString& name)
{
    return buildLogger(Properties(Names{{"log.filename", name}}), nullptr);
}

void open(const QString& way, const QString& name)
{
    if (way == "openLog")
        openLog(*Config::load(Properties(Names{{"log.filename", name}})));
    else if (way == "section")
        buildSectionLogger(Properties(Names{{"audit.log.filename", name}}), "audit");
    else
        built(name);
}

/// Why that ring cannot be opened; empty if it can.
QString refusal(const QString& name)
{
    return failureText([&] { built(name); });
}

[[noreturn]] void waitForTheEnd()
{
    std::fflush(stdout);
    while (true)
        ::pause();
}

/// A forked process that starts no other program: it is refused while its parent lives.
void forkAndTry(const QString& name)
{
    const pid_t parent = ::getpid();
    if (::fork() > 0) {
        while (!QFile::exists(name + ".refused"))
            ::usleep(1000);
        ::_exit(0);
    }
    const QString first = refusal(name);
    writeFile(name + ".refused", "");
    while (::getppid() == parent)
        ::usleep(1000);
    const QStringList texts = {first, refusal(name), QString::number(::getpid())};
    writeFile(name + ".texts", texts.join('\n').toUtf8());
}

int childMain(const QStringList& arguments)
{
    useLanguage("en_US");
    const QString task = arguments.at(0);
    const QString name = arguments.at(1);
    if (task == "open") {
        say(failureText([&] { open(arguments.at(2), name); }));
        return 0;
    }
    const auto logger = built(name);
    if (task == "end")
        return 0;
    if (task == "fork") {
        forkAndTry(name);
        waitForTheEnd();
    }
    qint64 started = 0;
    if (task == "start") {
        QProcess program;
        program.setProgram("sleep");
        program.setArguments({"60"});
        program.setStandardOutputFile(QProcess::nullDevice());
        program.startDetached(&started);
    }
    say(QString::number(started));
    waitForTheEnd();
}

/// A child that goes on until it is killed.
class RunningChild {
public:
    RunningChild(const QString& task, const LogRing& ring)
    {
        _process.start(QCoreApplication::applicationFilePath(), {"--child", task, ring.name()});
    }
    ~RunningChild() { kill(); }

    QString line()
    {
        while (!_process.canReadLine() && _process.waitForReadyRead(30000)) {}
        return QString::fromUtf8(_process.readLine()).chopped(1);
    }
    QString id() const { return QString::number(_process.processId()); }
    void kill()
    {
        _process.kill();
        _process.waitForFinished(30000);
    }

private:
    QProcess _process;
};

QString taken(const LogRing& ring, const QString& holder)
{
    return kitText("FrameRingTaken", ring.name() + "-*.log", holder);
}

QString ownId()
{
    return QString::number(::getpid());
}

QString lockOf(const LogRing& ring)
{
    return ring.path() + "/.app.lock";
}

} // namespace

class TestRingLogger : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { useLanguage("en_US"); }
    void cleanup() { lockError = 0; }

    void otherProcessIsRefusedAndChangesNothing_data();
    void otherProcessIsRefusedAndChangesNothing();
    void refusalSaysWhoAndWhere();
    void processThatEndsHoldsNothing();
    void processThatIsKilledHoldsNothing();
    void startedProgramHoldsNothing();
    void forkedProcessIsAnotherOne();
    void sameProcessOpensItAgain_data();
    void sameProcessOpensItAgain();
    void lockOutlivesTheLogger();
    void otherRingIsFree();
    void lockIsOnlyForTheOwner();
    void removedLockIsTakenAgain();
    void ringWithoutALockIsOpened_data();
    void ringWithoutALockIsOpened();
    void nameWithAZeroLocksNothing();
};

void TestRingLogger::otherProcessIsRefusedAndChangesNothing_data()
{
    QTest::addColumn<QString>("way");
    for (const char* way : {"openLog", "buildLogger", "section"})
        QTest::newRow(way) << way;
}

void TestRingLogger::otherProcessIsRefusedAndChangesNothing()
{
    QFETCH(const QString, way);
    const LogRing ring;
    open(way, ring.name());
    const QByteArray before = ring.bytes(0);
    QVERIFY(ring.put(3, "torn, above a gap"));
    const ChildResult child = runChild({"open", ring.name(), way});
    const QString reason = taken(ring, ownId());
    const QString text = way == "section" ? kitText("ConfigLoggerNotBuilt", "audit.log.filename",
                                                    ring.name(), reason)
                                          : reason;
    COMPARE_CHILD(child, text.toUtf8() + '\n');
    QCOMPARE(ring.names(), (QStringList{".app.lock", "app-0.log", "app-3.log"}));
    QCOMPARE(ring.bytes(0), before);
    QCOMPARE(ring.bytes(3), QByteArray("torn, above a gap"));
    QCOMPARE(readFile(lockOf(ring)), ownId().toUtf8() + '\n');
}

void TestRingLogger::refusalSaysWhoAndWhere()
{
    const LogRing ring;
    RunningChild child("hold", ring);
    QCOMPARE(child.line(), "0");
    QCOMPARE(refusal(ring.name()), "Log ring: another process (" + child.id() + ") is writing to " +
                                       ring.name() +
                                       "-*.log already; each process needs log files of its own");
}

void TestRingLogger::processThatEndsHoldsNothing()
{
    const LogRing ring;
    COMPARE_CHILD(runChild({"end", ring.name()}), "");
    QVERIFY(QFile::exists(lockOf(ring)));
    QCOMPARE(refusal(ring.name()), QString());
}

void TestRingLogger::processThatIsKilledHoldsNothing()
{
    const LogRing ring;
    RunningChild child("hold", ring);
    QCOMPARE(child.line(), "0");
    QCOMPARE(refusal(ring.name()), taken(ring, child.id()));
    child.kill();
    QCOMPARE(refusal(ring.name()), QString());
    QCOMPARE(readFile(lockOf(ring)), ownId().toUtf8() + '\n');
}

void TestRingLogger::startedProgramHoldsNothing()
{
    const LogRing ring;
    RunningChild child("start", ring);
    const auto started = pid_t(child.line().toInt());
    QVERIFY(started > 0);
    const auto end = qScopeGuard([&] { ::kill(started, SIGKILL); });
    child.kill();
    QCOMPARE(::kill(started, 0), 0);
    QCOMPARE(refusal(ring.name()), QString());
}

void TestRingLogger::forkedProcessIsAnotherOne()
{
    const LogRing ring;
    RunningChild child("fork", ring);
    const QString parent = child.id();
    const auto texts = [&] { return linesIn(readFile(ring.name() + ".texts")); };
    QTRY_COMPARE_WITH_TIMEOUT(texts().size(), 3, 30000);
    const QString forked = QString::fromLatin1(texts().at(2));
    QVERIFY(forked.toInt() > 0 && forked != parent);
    const auto end = qScopeGuard([&] { ::kill(forked.toInt(), SIGKILL); });
    QCOMPARE(QString::fromUtf8(texts().at(0)), taken(ring, parent));
    QCOMPARE(texts().at(1), QByteArray()); // its parent is gone
    QCOMPARE(refusal(ring.name()), taken(ring, forked));
}

void TestRingLogger::sameProcessOpensItAgain_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("same name") << "app";
    QTest::newRow("with its suffix") << "app.log";
    QTest::newRow("through a link") << "link/app";
}

void TestRingLogger::sameProcessOpensItAgain()
{
    QFETCH(const QString, name);
    const LogRing ring;
    QVERIFY(QFile::link(ring.path(), ring.path() + "/link"));
    QCOMPARE(refusal(ring.name()), QString());
    QCOMPARE(refusal(ring.path() + '/' + name), QString());
    QVERIFY(!ring.bytes(0).contains("Log ring")); // no warning either
}

void TestRingLogger::lockOutlivesTheLogger()
{
    const LogRing ring;
    {
        const auto logger = built(ring.name());
        logger->close();
    }
    const ChildResult child = runChild({"open", ring.name(), "buildLogger"});
    COMPARE_CHILD(child, taken(ring, ownId()).toUtf8() + '\n');
}

void TestRingLogger::otherRingIsFree()
{
    const LogRing ring;
    QCOMPARE(refusal(ring.name()), QString());
    for (const char* other : {"app2", "ap", "app-0", "-app"}) {
        const ChildResult child = runChild({"open", ring.path() + '/' + other, "buildLogger"});
        COMPARE_CHILD(child, "\n");
    }
}

void TestRingLogger::lockIsOnlyForTheOwner()
{
    const LogRing ring;
    QCOMPARE(refusal(ring.name()), QString());
    struct stat info {};
    QCOMPARE(::lstat(QFile::encodeName(lockOf(ring)).constData(), &info), 0);
    QCOMPARE(int(info.st_mode & 07777), 0600);
}

void TestRingLogger::removedLockIsTakenAgain()
{
    const LogRing ring;
    QCOMPARE(refusal(ring.name()), QString());
    QVERIFY(QFile::remove(lockOf(ring)));
    QCOMPARE(refusal(ring.name()), QString());
    QVERIFY(QFile::exists(lockOf(ring)));
    const ChildResult child = runChild({"open", ring.name(), "buildLogger"});
    COMPARE_CHILD(child, taken(ring, ownId()).toUtf8() + '\n');
}

void TestRingLogger::ringWithoutALockIsOpened_data()
{
    QTest::addColumn<QString>("situation");
    QTest::addColumn<int>("error");
    QTest::newRow("no locks") << "" << ENOLCK;
    QTest::newRow("directory in its place") << "directory" << EISDIR;
    QTest::newRow("link in its place") << "link" << ELOOP;
}

void TestRingLogger::ringWithoutALockIsOpened()
{
    QFETCH(const QString, situation);
    QFETCH(const int, error);
    const LogRing ring;
    QVERIFY(ring.put(1, "old\n"));
    if (situation == "directory")
        QVERIFY(QDir().mkdir(lockOf(ring)));
    else if (situation == "link")
        QVERIFY(QFile::link("nowhere", lockOf(ring)));
    else
        lockError = error;
    const auto logger =
        buildLogger(Properties(Names{{"log.filename", ring.name()}}), plainFormatter);
    logger->warning(QStringLiteral("works"));
    const QByteArrayList lines = {
        "old", kitText("FrameRingNotHeld", lockOf(ring), systemErrorText(error)).toUtf8(),
        kitText("FrameRingMoved", ring.file(1), "app-0.log").toUtf8(), "works"};
    QCOMPARE(ring.lines(0), lines);
    QVERIFY(!QFile::exists(ring.path() + "/nowhere"));
}

void TestRingLogger::nameWithAZeroLocksNothing()
{
    const LogRing ring;
    const QString hidden = ring.path() + "/.app";
    QVERIFY(writeFile(hidden, "mine"));
    failureText([&] { built(ring.name() + QChar(0) + "b"); });
    QCOMPARE(readFile(hidden), QByteArray("mine"));
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestRingLogger, childMain)
#include "tst_ringlogger.moc"
