// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/environmentguard.h"
#include "support/language.h"
#include "support/opendescriptors.h"
#include "support/tracelog.h"

#include <kez/service/servicenotifier.h>

#include <QDeadlineTimer>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <array>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <limits>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

using namespace KezService;
using std::chrono::microseconds;

namespace {

/// The init system's end: a datagram socket at "/path" or "@name".
class InitSystem {
public:
    explicit InitSystem(const QByteArray& address)
        : _socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un name{};
        name.sun_family = AF_UNIX;
        std::memcpy(name.sun_path, address.constData(), std::size_t(address.size()));
        const bool isAbstract = address.startsWith('@');
        if (isAbstract)
            name.sun_path[0] = '\0';
        const timeval longestWait{20, 0};
        ::setsockopt(_socket, SOL_SOCKET, SO_RCVTIMEO, &longestWait, sizeof longestWait);
        const auto size = offsetof(sockaddr_un, sun_path) + std::size_t(address.size());
        _isBound = ::bind(_socket, reinterpret_cast<const sockaddr*>(&name),
                          socklen_t(size + (isAbstract ? 0 : 1))) == 0;
    }
    ~InitSystem() { ::close(_socket); }
    InitSystem(const InitSystem&) = delete;
    InitSystem& operator=(const InitSystem&) = delete;

    bool isBound() const { return _isBound; }

    /// The next message; nothing if none is waiting.
    std::optional<QByteArray> take(int flags = MSG_DONTWAIT)
    {
        std::array<char, 8192> buffer;
        const ssize_t size = ::recv(_socket, buffer.data(), buffer.size(), flags);
        return size < 0 ? std::nullopt : std::optional(QByteArray(buffer.data(), size));
    }
    QByteArrayList takeAll()
    {
        received();
        return std::exchange(_received, {});
    }

    /// The same; they stay for takeAll().
    const QByteArrayList& received()
    {
        while (auto message = take())
            _received.append(*message);
        return _received;
    }

private:
    int _socket;
    bool _isBound = false;
    QByteArrayList _received;
};

struct Variables {
    explicit Variables(const QByteArray& address, const QByteArray& timeout = {},
                       const QByteArray& process = {})
        : socket("NOTIFY_SOCKET", address),
          watchdog("WATCHDOG_USEC", timeout),
          pid("WATCHDOG_PID", process)
    {}
    EnvironmentGuard socket;
    EnvironmentGuard watchdog;
    EnvironmentGuard pid;
};

} // namespace

class TestServiceNotifier : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { useLanguage(QStringLiteral("en_US")); }

    void init()
    {
        _directory.emplace();
        _path = QFile::encodeName(_directory->filePath("notify"));
        QVERIFY(_path.size() < 100);
    }

    // --- Messages

    void messagesArrive_data()
    {
        QTest::addColumn<QByteArray>("address");
        QTest::newRow("path") << QByteArray();
        QTest::newRow("abstract") << "@kez-test-" + QByteArray::number(getpid());
    }
    void messagesArrive()
    {
        QFETCH(QByteArray, address);
        if (address.isEmpty())
            address = _path;
        TraceLog log;
        InitSystem init(address);
        QVERIFY(init.isBound());
        const Variables variables(address);
        ServiceNotifier notifier;
        QVERIFY(notifier.isListenedTo());
        QCOMPARE(notifier.watchdogTimeout(), microseconds(0));
        notifier.ready();
        notifier.ready("waiting for orders");
        notifier.status(QString::fromUtf8("é: 12 orders"));
        notifier.status(QString());
        notifier.extendTimeout(microseconds(1500000));
        notifier.stopping();
        notifier.stopping("the last order");
        QCOMPARE(init.takeAll(), (QByteArrayList{"READY=1", "READY=1\nSTATUS=waiting for orders",
                                                 "STATUS=\xc3\xa9: 12 orders", "STATUS=",
                                                 "EXTEND_TIMEOUT_USEC=1500000", "STOPPING=1",
                                                 "STOPPING=1\nSTATUS=the last order"}));
        QCOMPARE(log.texts(), QStringList());
    }

    void reloadingSaysWhenItBegan()
    {
        InitSystem init(_path);
        const Variables variables(_path);
        ServiceNotifier notifier;
        const auto now = [] {
            timespec time{};
            clock_gettime(CLOCK_MONOTONIC, &time);
            return qint64(time.tv_sec) * 1000000 + time.tv_nsec / 1000;
        };
        const qint64 before = now();
        notifier.reloading();
        const qint64 after = now();
        const QByteArray message = init.take().value_or("");
        const QByteArray head = "RELOADING=1\nMONOTONIC_USEC=";
        QVERIFY(message.startsWith(head));
        const qint64 said = message.mid(head.size()).toLongLong();
        QVERIFY(before <= said && said <= after);
    }

    void anyThreadReports()
    {
        constexpr int Threads = 4;
        constexpr int Reports = 50;
        TraceLog log;
        InitSystem init(_path);
        const Variables variables(_path, "2000");
        ServiceNotifier notifier;
        notifier.startWatchdog();
        std::vector<std::thread> reporters;
        for (int number = 0; number < Threads; ++number)
            reporters.emplace_back([&notifier, number] {
                for (int i = 0; i < Reports; ++i)
                    notifier.ready(QString("%1-%2").arg(number).arg(i));
            });
        QByteArrayList reports;
        const QDeadlineTimer limit(20000);
        while (reports.size() < Threads * Reports && !limit.hasExpired()) {
            QCoreApplication::processEvents(); // a beat now and then
            const auto message = init.take();
            if (message && *message != "WATCHDOG=1")
                reports.append(*message);
            else if (!message)
                std::this_thread::yield();
        }
        for (std::thread& reporter : reporters)
            reporter.join(); // a message that nobody takes is given up after a second
        QCOMPARE(reports.size(), Threads * Reports);
        for (int number = 0; number < Threads; ++number)
            QVERIFY(reports.contains("READY=1\nSTATUS=" + QByteArray::number(number) + "-0"));
        QCOMPARE(QSet<QByteArray>(reports.begin(), reports.end()).size(), reports.size());
    }

    void firstFailureOfSeveralThreadsIsSaidOnce()
    {
        TraceLog log;
        const Variables variables(_path);
        ServiceNotifier notifier; // nobody is there
        std::vector<std::thread> reporters;
        for (int number = 0; number < 4; ++number)
            reporters.emplace_back([&notifier] { notifier.status("x"); });
        for (std::thread& reporter : reporters)
            reporter.join();
        QCOMPARE(log.texts().size(), 1);
    }

    void textCannotForgeAnAssignment_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QByteArray>("sent");
        QTest::newRow("line feed") << "a\nSTOPPING=1" << QByteArray("STATUS=a\\nSTOPPING=1");
        QTest::newRow("NUL") << QString("a") + QChar(0) + "b" << QByteArray("STATUS=a\\x00b");
        QTest::newRow("carriage return") << "a\rb" << QByteArray("STATUS=a\\rb");
        QTest::newRow("2048 bytes") << QString(2048, 'x') << "STATUS=" + QByteArray(2048, 'x');
        QTest::newRow("2049 bytes") << QString(2049, 'x') << "STATUS=" + QByteArray(2048, 'x');
        QTest::newRow("cut before a character of two bytes")
            << QString(2047, 'x') + QChar(0xe9) << "STATUS=" + QByteArray(2047, 'x');
        QTest::newRow("cut before a character of four bytes")
            << QString(2045, 'x') + QString::fromUtf8("\xf0\x9f\x98\x80")
            << "STATUS=" + QByteArray(2045, 'x');
        QTest::newRow("character that fits") << QString(2046, 'x') + QChar(0xe9) + "y"
                                             << "STATUS=" + QByteArray(2046, 'x') + "\xc3\xa9";
    }
    void textCannotForgeAnAssignment()
    {
        QFETCH(const QString, text);
        QFETCH(const QByteArray, sent);
        InitSystem init(_path);
        const Variables variables(_path);
        ServiceNotifier notifier;
        notifier.status(text);
        notifier.ready(text);
        notifier.stopping(text);
        QCOMPARE(init.takeAll(), (QByteArrayList{sent, "READY=1\n" + sent, "STOPPING=1\n" + sent}));
    }

    // --- The environment

    void withoutAnInitSystemNothingHappens_data()
    {
        QTest::addColumn<QByteArray>("address");
        QTest::newRow("not set") << QByteArray();
        QTest::newRow("empty") << QByteArray("");
    }
    void withoutAnInitSystemNothingHappens()
    {
        QFETCH(const QByteArray, address);
        TraceLog log;
        const Variables variables(address, "nonsense", "nonsense");
        const int descriptors = openDescriptors();
        ServiceNotifier notifier;
        QCOMPARE(openDescriptors(), descriptors);
        QVERIFY(!notifier.isListenedTo());
        notifier.ready("x");
        notifier.reloading();
        notifier.status("x");
        notifier.extendTimeout(microseconds(1));
        notifier.startWatchdog([] { return true; });
        notifier.stopWatchdog();
        notifier.stopping();
        QCOMPARE(log.texts(), QStringList());
    }

    void variablesAreRemovedUnlessTheyAreKept()
    {
        InitSystem init(_path);
        {
            const Variables variables(_path, "1000000", QByteArray::number(getpid()));
            const ServiceNotifier notifier(ServiceNotifier::Environment::Keep);
            QCOMPARE(notifier.watchdogTimeout(), microseconds(1000000));
            QCOMPARE(qgetenv("NOTIFY_SOCKET"), _path);
            QCOMPARE(qgetenv("WATCHDOG_USEC"), QByteArray("1000000"));
            QVERIFY(qEnvironmentVariableIsSet("WATCHDOG_PID"));
        }
        const Variables variables(_path, "1000000", QByteArray::number(getpid()));
        const ServiceNotifier notifier;
        QCOMPARE(notifier.watchdogTimeout(), microseconds(1000000));
        for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
            QVERIFY2(!qEnvironmentVariableIsSet(name), name);
    }

    void addressThatCannotBeUsedIsSaid_data()
    {
        QTest::addColumn<QByteArray>("address");
        QTest::addColumn<bool>("isUsable");
        QTest::newRow("relative") << QByteArray("run/notify") << false;
        QTest::newRow("other protocol") << QByteArray("vsock:2:1234") << false;
        QTest::newRow("slash") << QByteArray("/") << false;
        QTest::newRow("at sign") << QByteArray("@") << false;
        QTest::newRow("path of 107 bytes") << '/' + QByteArray(106, 'x') << true;
        QTest::newRow("path of 108 bytes") << '/' + QByteArray(107, 'x') << false;
        QTest::newRow("long path") << '/' + QByteArray(5000, 'x') << false;
        QTest::newRow("abstract name of 107 bytes") << '@' + QByteArray(106, 'x') << true;
        QTest::newRow("long abstract name") << '@' + QByteArray(107, 'x') << false;
    }
    void addressThatCannotBeUsedIsSaid()
    {
        QFETCH(const QByteArray, address);
        QFETCH(const bool, isUsable);
        TraceLog log;
        const Variables variables(address);
        ServiceNotifier notifier;
        QCOMPARE(notifier.isListenedTo(), isUsable);
        const QString text = QStringLiteral("%1The init system's address NOTIFY_SOCKET=%2 cannot "
                                            "be used: nothing is reported to the init system")
                                 .arg(LoggerLevel::warning)
                                 .arg(QString::fromLatin1(address));
        QCOMPARE(log.texts(), isUsable ? QStringList() : QStringList{text});
        notifier.stopping();
    }

    void watchdogValuesAreChecked_data()
    {
        QTest::addColumn<QByteArray>("timeout");
        QTest::addColumn<QByteArray>("process");
        QTest::addColumn<qint64>("expected");
        QTest::addColumn<QString>("faulty"); // the variable that the log names
        const QByteArray own = QByteArray::number(getpid());
        QTest::newRow("not watched") << QByteArray() << QByteArray() << qint64(0) << QString();
        QTest::newRow("any process") << QByteArray("5") << QByteArray() << qint64(5) << QString();
        QTest::newRow("this process")
            << QByteArray("30000000") << own << qint64(30000000) << QString();
        QTest::newRow("largest") << QByteArray("9223372036854775807") << own
                                 << std::numeric_limits<qint64>::max() << QString();
        QTest::newRow("another process")
            << QByteArray("30000000") << QByteArray("1") << qint64(0) << QString();
        QTest::newRow("no process")
            << QByteArray("5") << QByteArray("me") << qint64(0) << "WATCHDOG_PID";
        for (const char* wrong : {"", "0", "-5", "+5", " 5", "5s", "0x5", "9223372036854775808"})
            QTest::addRow("'%s'", wrong)
                << QByteArray(wrong) << own << qint64(0) << "WATCHDOG_USEC";
    }
    void watchdogValuesAreChecked()
    {
        QFETCH(const QByteArray, timeout);
        QFETCH(const QByteArray, process);
        QFETCH(const qint64, expected);
        QFETCH(const QString, faulty);
        TraceLog log;
        InitSystem init(_path);
        const Variables variables(_path, timeout, process);
        ServiceNotifier notifier;
        QVERIFY(notifier.isListenedTo());
        QCOMPARE(notifier.watchdogTimeout().count(), expected);
        const QStringList texts = log.texts();
        QCOMPARE(texts.size(), faulty.isEmpty() ? 0 : 1);
        if (!faulty.isEmpty())
            QVERIFY2(texts.at(0).contains("The value of " + faulty + " is not usable: " +
                                          (faulty == "WATCHDOG_PID" ? process : timeout)),
                     qPrintable(texts.at(0)));
        notifier.startWatchdog();
        QCOMPARE(init.takeAll().size(), expected > 0 ? 1 : 0);
    }

    // --- The watchdog

    void watchdogBeatsFromTheEventLoop()
    {
        InitSystem init(_path);
        const Variables variables(_path, "20000");
        ServiceNotifier notifier;
        QVERIFY(init.takeAll().isEmpty());
        notifier.startWatchdog();
        QCOMPARE(init.takeAll(), QByteArrayList{"WATCHDOG=1"});
        QTRY_VERIFY(init.received().size() >= 3);
        QCOMPARE(init.received().count("WATCHDOG=1"), init.received().size());
        notifier.stopWatchdog();
        init.takeAll();
        QTest::qWait(60);
        QCOMPARE(init.takeAll(), QByteArrayList());
        notifier.startWatchdog();
        QCOMPARE(init.takeAll(), QByteArrayList{"WATCHDOG=1"});
    }

    void hungThreadDoesNotBeat()
    {
        InitSystem init(_path);
        const Variables variables(_path, "20000");
        ServiceNotifier notifier;
        notifier.startWatchdog();
        init.takeAll();
        std::this_thread::sleep_for(std::chrono::milliseconds(60));
        QCOMPARE(init.takeAll(), QByteArrayList());
    }

    void shortestTimeoutDoesNotStopTheEventLoop()
    {
        InitSystem init(_path);
        const Variables variables(_path, "1");
        ServiceNotifier notifier;
        notifier.startWatchdog();
        QTRY_VERIFY(init.received().size() > 1);
    }

    void beatDependsOnTheHealth()
    {
        TraceLog log;
        InitSystem init(_path);
        const Variables variables(_path, "4000");
        ServiceNotifier notifier;
        bool isHealthy = true;
        int asked = 0;
        notifier.startWatchdog([&] {
            ++asked;
            return isHealthy;
        });
        QTRY_VERIFY(asked > 2);
        QVERIFY(init.takeAll().size() > 2);
        isHealthy = false;
        asked = 0;
        QTRY_VERIFY(asked > 3);
        QCOMPARE(init.takeAll(), QByteArrayList());
        QCOMPARE(log.take(), QStringList{QString::number(LoggerLevel::warning) +
                                         "The service is not healthy: the init system's watchdog "
                                         "is not told anything until it is"});
        isHealthy = true;
        QTRY_VERIFY(!init.received().isEmpty());
        QCOMPARE(log.take(), QStringList{QString::number(LoggerLevel::info) +
                                         "The service is healthy again: the init system's watchdog "
                                         "is told so"});
    }

    void watchdogEndsWithItsObject()
    {
        InitSystem init(_path);
        const Variables variables(_path, "2000");
        {
            ServiceNotifier notifier;
            notifier.startWatchdog();
        }
        init.takeAll();
        QTest::qWait(20);
        QCOMPARE(init.takeAll(), QByteArrayList());
    }

    // --- Failures

    void failureIsSaidOncePerRow()
    {
        TraceLog log;
        const Variables variables(_path);
        ServiceNotifier notifier;
        QVERIFY(notifier.isListenedTo());
        notifier.ready(); // nobody is there yet
        notifier.status("x");
        const QStringList first = log.take();
        QCOMPARE(first.size(), 1);
        QVERIFY2(first.at(0).startsWith(QString::number(LoggerLevel::warning) +
                                        "A message to the init system could not be sent: "),
                 qPrintable(first.at(0)));
        {
            InitSystem init(_path);
            notifier.ready();
            QCOMPARE(init.takeAll(), QByteArrayList{"READY=1"});
        }
        QCOMPARE(log.take(), QStringList());
        notifier.stopping(); // nobody is there any more
        notifier.stopping();
        QCOMPARE(log.take().size(), 1);
    }

    void busyInitSystemIsWaitedForIfItMatters()
    {
        TraceLog log;
        InitSystem init(_path);
        const Variables variables(_path, "1000000");
        ServiceNotifier notifier;
        for (int i = 0; i < 2000; ++i)
            notifier.status("x"); // what does not fit is lost, and nobody waits
        QCOMPARE(log.texts().size(), 1);
        std::optional<QByteArray> last;
        std::thread reader([&] {
            do
                last = init.take(0);
            while (last == QByteArray("STATUS=x"));
        });
        notifier.ready();
        reader.join();
        QCOMPARE(last, QByteArray("READY=1"));
    }

private:
    std::optional<QTemporaryDir> _directory;
    QByteArray _path;
};

QTEST_GUILESS_MAIN(TestServiceNotifier)
#include "tst_servicenotifier.moc"
