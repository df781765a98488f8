// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/childprocess.h"
#include "support/descriptorlimit.h"
#include "support/failuretext.h"
#include "support/language.h"
#include "support/opendescriptors.h"

#include <kez/service/unixsignals.h>

#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <memory>
#include <thread>

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace KezService;

namespace {

volatile std::sig_atomic_t countedByTest = 0;

void countInTest(int)
{
    countedByTest = countedByTest + 1;
}

/// What UnixSignals emits, in order.
class Record {
public:
    explicit Record(UnixSignals& source)
    {
        QObject::connect(&source, &UnixSignals::stopRequested,
                         [this](const QString& name) { texts.append("stop " + name); });
        QObject::connect(&source, &UnixSignals::stopRequestedAgain,
                         [this](const QString& name) { texts.append("again " + name); });
        QObject::connect(&source, &UnixSignals::hangUpReceived,
                         [this] { texts.append("hang up"); });
    }
    QStringList texts;
};

sigset_t only(int number)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, number);
    return set;
}

bool isBlocked(int number)
{
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, number) == 1;
}

/// How a forked child ends that runs `action`, as waitpid() tells it. Nothing that it throws may
/// reach the test, which would go on in the child.
template <typename Action>
int statusOfForked(Action action)
{
    const pid_t child = ::fork();
    if (child == 0) {
        try {
            ::_exit(action());
        } catch (...) {
            ::_exit(99);
        }
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return status;
}

/// What `received` emits for these signals, in an event loop of its own.
QString emitted(UnixSignals& received, const QList<int>& numbers)
{
    int argc = 0;
    const QCoreApplication application(argc, nullptr);
    const Record record(received);
    for (const int number : numbers)
        ::raise(number);
    received.listen();
    for (int i = 0; i < 1000 && record.texts.size() < numbers.size(); ++i)
        QTest::qWait(10);
    return record.texts.join(", ");
}

int signalIn(int status)
{
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

// Processes that fork before they have a thread: ThreadSanitizer delivers no signal to the child of
// one that has.

/// Its child has no object.
int forkedMain(int number)
{
    UnixSignals received;
    const int status = statusOfForked([number] {
        ::raise(number);
        return 3;
    });
    std::printf("ended by %d\n", signalIn(status));
    std::printf("parent: %s\n", qPrintable(emitted(received, {SIGHUP})));
    return 0;
}

/// Its child has one of its own for a while.
int forkingMain()
{
    UnixSignals received;
    const int status = statusOfForked([] {
        {
            UnixSignals own;
            std::printf("child: %s\n", qPrintable(emitted(own, {SIGINT, SIGTERM})));
            std::fflush(stdout);
        }
        ::raise(SIGTERM);
        return 3;
    });
    std::printf("then ended by %d\n", signalIn(status));
    std::printf("parent: %s\n", qPrintable(emitted(received, {SIGHUP})));
    return 0;
}

/// A service without any other thing; stops with 0 on request, with 7 on a second request.
int childMain(const QStringList& arguments)
{
    int argc = 0;
    QCoreApplication application(argc, nullptr);
    UnixSignals received;
    QObject::connect(&received, &UnixSignals::stopRequested, [&](const QString& name) {
        puts(qPrintable(name));
        fflush(stdout);
        if (arguments.value(0) != "stubborn")
            QCoreApplication::exit(0);
    });
    QObject::connect(&received, &UnixSignals::stopRequestedAgain,
                     [] { QCoreApplication::exit(7); });
    received.listen();
    puts("ready");
    fflush(stdout);
    return QCoreApplication::exec();
}

} // namespace

class TestUnixSignals : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void signalBecomesAQtSignal_data()
    {
        QTest::addColumn<int>("number");
        QTest::addColumn<QString>("expected");
        QTest::newRow("SIGTERM") << SIGTERM << "stop SIGTERM";
        QTest::newRow("SIGINT") << SIGINT << "stop SIGINT";
        QTest::newRow("SIGHUP") << SIGHUP << "hang up";
    }
    void signalBecomesAQtSignal()
    {
        QFETCH(const int, number);
        QFETCH(const QString, expected);
        UnixSignals received;
        const Record record(received);
        received.listen();
        QCOMPARE(::kill(getpid(), number), 0);
        QTRY_COMPARE(record.texts, QStringList{expected});
    }

    void secondStopIsAnotherSignal()
    {
        UnixSignals received;
        const Record record(received);
        received.listen();
        for (const int number : {SIGTERM, SIGHUP, SIGINT, SIGTERM})
            ::raise(number);
        QTRY_COMPARE(record.texts,
                     (QStringList{"stop SIGTERM", "hang up", "again SIGINT", "again SIGTERM"}));
    }

    void signalBeforeListeningIsKept()
    {
        UnixSignals received;
        const Record record(received);
        ::raise(SIGHUP);
        ::raise(SIGTERM);
        QCoreApplication::processEvents();
        QCOMPARE(record.texts, QStringList());
        received.listen();
        received.listen(); // changes nothing
        QTRY_COMPARE(record.texts, (QStringList{"hang up", "stop SIGTERM"}));
    }

    void eachObjectBeginsAnew()
    {
        {
            UnixSignals received;
            received.listen();
            ::raise(SIGTERM); // not emitted: nobody runs the event loop
        }
        UnixSignals received;
        const Record record(received);
        received.listen();
        ::raise(SIGINT);
        QTRY_COMPARE(record.texts, QStringList{"stop SIGINT"});
    }

    void descriptorsAreNotUsedUp()
    {
        {
            const UnixSignals first;
        }
        const int before = openDescriptors();
        for (int i = 0; i < 20; ++i) {
            UnixSignals received;
            received.listen();
        }
        QCOMPARE(openDescriptors(), before);
    }

    void receiverMayBeDestroyedByItsSignal()
    {
        auto received = std::make_unique<UnixSignals>();
        connect(received.get(), &UnixSignals::stopRequested, [&] { received.reset(); });
        received->listen();
        ::raise(SIGTERM);
        QTRY_VERIFY(!received);
    }

    void secondObjectIsRefused()
    {
        UnixSignals received;
        const Record record(received);
        useLanguage("en_US");
        QCOMPARE(failureText([] { const UnixSignals second; }),
                 "The signals SIGTERM, SIGINT and SIGHUP are received by another object of this "
                 "process already");
        received.listen();
        ::raise(SIGHUP); // the first one still works
        QTRY_COMPARE(record.texts, QStringList{"hang up"});
    }

    void handlersAreGivenBack()
    {
        struct sigaction own {};
        own.sa_handler = &countInTest;
        std::array<struct sigaction, 2> before{};
        QCOMPARE(::sigaction(SIGTERM, &own, &before[0]), 0);
        QCOMPARE(::sigaction(SIGHUP, &own, &before[1]), 0);
        {
            UnixSignals received;
            ::raise(SIGTERM);
            QCOMPARE(int(countedByTest), 0);
        }
        ::raise(SIGTERM);
        ::raise(SIGHUP);
        ::sigaction(SIGTERM, &before[0], nullptr);
        ::sigaction(SIGHUP, &before[1], nullptr);
        QCOMPARE(int(countedByTest), 2);
    }

    void blockedSignalIsReceivedAndBlockedAgain()
    {
        const sigset_t hangUp = only(SIGHUP);
        QCOMPARE(pthread_sigmask(SIG_BLOCK, &hangUp, nullptr), 0);
        {
            UnixSignals received;
            const Record record(received);
            QVERIFY(!isBlocked(SIGHUP));
            received.listen();
            ::kill(getpid(), SIGHUP);
            QTRY_COMPARE(record.texts, QStringList{"hang up"});
        }
        const bool isBlockedAgain = isBlocked(SIGHUP);
        pthread_sigmask(SIG_UNBLOCK, &hangUp, nullptr);
        QVERIFY(isBlockedAgain);
        QVERIFY(!isBlocked(SIGTERM) && !isBlocked(SIGINT));
    }

    void threadThatRunsAlreadyDoesNotMatter()
    {
        std::atomic<bool> isReady = false;
        std::atomic<bool> isDone = false;
        std::thread other([&] {
            isReady = true;
            while (!isDone)
                std::this_thread::yield();
        });
        while (!isReady)
            std::this_thread::yield();
        UnixSignals received;
        const Record record(received);
        received.listen();
        pthread_kill(other.native_handle(), SIGTERM);
        // Not QTRY_COMPARE alone, which leaves the function while the thread runs.
        for (int i = 0; i < 500 && record.texts.isEmpty(); ++i)
            QTest::qWait(10);
        isDone = true;
        other.join();
        QCOMPARE(record.texts, QStringList{"stop SIGTERM"});
    }

    void interruptedErrorNumberStays()
    {
        const UnixSignals received;
        errno = 4711;
        ::raise(SIGHUP);
        QCOMPARE(errno, 4711);
    }

    void floodOfSignalsDoesNotBlock()
    {
        UnixSignals received;
        int count = 0;
        connect(&received, &UnixSignals::hangUpReceived, [&] { ++count; });
        constexpr int Sent = 100000; // more than the pipe holds
        for (int i = 0; i < Sent; ++i)
            ::raise(SIGHUP);
        received.listen();
        QTRY_VERIFY(count > 0);
    }

    void signalEndsAForkedChildAlone_data()
    {
        QTest::addColumn<int>("number");
        QTest::newRow("SIGTERM") << SIGTERM;
        QTest::newRow("SIGINT") << SIGINT;
        QTest::newRow("SIGHUP") << SIGHUP;
    }
    void signalEndsAForkedChildAlone()
    {
        QFETCH(const int, number);
        const ChildResult child = runChild({"forked", QString::number(number)});
        QVERIFY(child.finished && !child.crashed);
        QCOMPARE(child.exitCode, 0);
        QCOMPARE(QString::fromUtf8(child.out),
                 QString("ended by %1\nparent: hang up\n").arg(number));
    }

    void forkedChildMayHaveAnObjectOfItsOwn()
    {
        const ChildResult child = runChild({"forking"});
        QVERIFY(child.finished && !child.crashed);
        QCOMPARE(child.exitCode, 0);
        QCOMPARE(QString::fromUtf8(child.out),
                 "child: stop SIGINT, again SIGTERM\nthen ended by 15\nparent: hang up\n");
    }

    void forkedChildMayDestroyWhatItInherited()
    {
        auto received = std::make_unique<UnixSignals>();
        const int status = statusOfForked([&received] {
            auto own = std::make_unique<UnixSignals>();
            received.reset(); // changes nothing for its own one
            ::raise(SIGTERM);
            const bool isRefused = !failureText([] { const UnixSignals second; }).isEmpty();
            own.reset();
            const UnixSignals next;
            ::raise(SIGHUP);
            return isRefused ? 4 : 5;
        });
        QVERIFY(WIFEXITED(status));
        QCOMPARE(WEXITSTATUS(status), 4);
        const Record record(*received);
        received->listen();
        ::raise(SIGINT);
        QTRY_COMPARE(record.texts, QStringList{"stop SIGINT"});
    }

    void forkedChildHasTheUsualHandlersAgain()
    {
        const UnixSignals received;
        const int status = statusOfForked([] {
            {
                const UnixSignals own;
            }
            ::raise(SIGTERM);
            return 3;
        });
        QVERIFY(WIFSIGNALED(status));
        QCOMPARE(WTERMSIG(status), SIGTERM);
    }

    void programThatIsStartedCanBeTerminated()
    {
        const UnixSignals received;
        QProcess sleeper;
        sleeper.start("sleep", {"60"});
        QVERIFY(sleeper.waitForStarted());
        sleeper.terminate();
        QVERIFY(sleeper.waitForFinished());
        QCOMPARE(sleeper.exitStatus(), QProcess::CrashExit);
        QCOMPARE(sleeper.exitCode(), SIGTERM);
    }

    void missingDescriptorIsAFailure()
    {
#if defined(__SANITIZE_ADDRESS__)
        QSKIP("the sanitizers' own checks need descriptors");
#endif
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(), {"--child-without-descriptors"});
        QVERIFY(child.waitForFinished());
        QCOMPARE(child.exitCode(), 5);
    }

    void serviceStopsOnRequest_data()
    {
        QTest::addColumn<QList<int>>("numbers");
        QTest::addColumn<QByteArray>("output");
        QTest::addColumn<int>("exitCode");
        QTest::newRow("SIGTERM") << QList<int>{SIGTERM} << QByteArray("ready\nSIGTERM\n") << 0;
        QTest::newRow("SIGINT") << QList<int>{SIGINT} << QByteArray("ready\nSIGINT\n") << 0;
        QTest::newRow("twice") << QList<int>{SIGTERM, SIGINT} << QByteArray("ready\nSIGTERM\n")
                               << 7;
    }
    void serviceStopsOnRequest()
    {
        QFETCH(const QList<int>, numbers);
        QFETCH(const QByteArray, output);
        QFETCH(const int, exitCode);
        const QString mode = numbers.size() > 1 ? "stubborn" : "obedient";
        QProcess service;
        service.start(QCoreApplication::applicationFilePath(), {"--child", mode});
        QVERIFY(service.waitForStarted());
        QByteArray read;
        QTRY_COMPARE(read += service.readAllStandardOutput(), QByteArray("ready\n"));
        ::kill(pid_t(service.processId()), numbers.first());
        QTRY_COMPARE(read += service.readAllStandardOutput(), output);
        if (numbers.size() > 1)
            ::kill(pid_t(service.processId()), numbers.last());
        QTRY_COMPARE(service.state(), QProcess::NotRunning);
        QCOMPARE(service.exitStatus(), QProcess::NormalExit);
        QCOMPARE(service.exitCode(), exitCode);
    }
};

/// The exit code says what happened: 5 for the failure that is meant.
int withoutDescriptors()
{
    int argc = 0;
    const QCoreApplication application(argc, nullptr);
    useLanguage("en_US");
    const QString expected = "The signals SIGTERM, SIGINT and SIGHUP cannot be received: ";
    QString text;
    {
        const DescriptorLimit one(1);
        text = failureText([] { const UnixSignals received; });
    }
    if (!text.startsWith(expected) || text == expected)
        return 6;
    const UnixSignals now; // the failed one has left nothing
    return 5;
}

int main(int argc, char* argv[])
{
    if (argc > 1 && qstrcmp(argv[1], "--child-without-descriptors") == 0)
        return withoutDescriptors();
    if (argc > 3 && qstrcmp(argv[2], "forked") == 0)
        return forkedMain(QByteArray(argv[3]).toInt());
    if (argc > 2 && qstrcmp(argv[2], "forking") == 0)
        return forkingMain();
    if (argc > 1 && qstrcmp(argv[1], "--child") == 0)
        return childMain({QString::fromLocal8Bit(argv[argc - 1])});
    QCoreApplication application(argc, argv);
    TestUnixSignals test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_unixsignals.moc"
