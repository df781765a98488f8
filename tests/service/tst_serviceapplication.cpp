// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/childprocess.h"
#include "support/language.h"
#include "support/logring.h"

#include <kez/exception.h>
#include <kez/log.h>
#include <kez/service/serviceapplication.h>

#include <QEvent>
#include <QMutex>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

#include <unistd.h>

using namespace KezService;

namespace {

/// An event that does something.
class Task : public QEvent {
public:
    static constexpr QEvent::Type Number = QEvent::Type(QEvent::User + 7);

    explicit Task(std::function<void()> action) : QEvent(Number)
    {
        const std::lock_guard lock(_mutex);
        _action = std::move(action);
    }
    void run() const { copy()(); }

private:
    std::function<void()> copy() const
    {
        const std::lock_guard lock(_mutex);
        return _action;
    }

    std::function<void()> _action;

    // Qt hands the event to its thread in a way that ThreadSanitizer does not see.
    inline static std::mutex _mutex;
};

class Worker : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    void post(std::function<void()> action)
    {
        QCoreApplication::postEvent(this, new Task(std::move(action)));
    }

    bool event(QEvent* event) override
    {
        if (event->type() != Task::Number)
            return QObject::event(event);
        static_cast<Task*>(event)->run();
        return true;
    }

Q_SIGNALS:
    void wanted();
};

/// An Exception that says when it is deleted.
class CountedException : public Exception {
public:
    explicit CountedException(std::atomic<int>& count)
        : Exception(QStringLiteral("counted")), _count(count)
    {}
    CountedException(const CountedException&) = default;
    ~CountedException() override { ++_count; }

private:
    std::atomic<int>& _count;
};

std::atomic<bool> isLogBroken = false;
QMutex linesMutex;
QStringList lines;

/// Collects what is logged, "level:text"; throws if it is told so.
void collect(LoggerLevel::LogLevel level, const QString& message, QString& out)
{
    if (isLogBroken)
        throw std::runtime_error("no log");
    levelFormatter(level, message, out);
    const QMutexLocker lock(&linesMutex);
    lines.append(QString(out.constData(), out.size()));
}

QStringList loggedLines()
{
    const QMutexLocker lock(&linesMutex);
    return lines;
}

QStringList takeLines()
{
    const QMutexLocker lock(&linesMutex);
    return std::exchange(lines, {});
}

QString line(const QString& receiver, const QString& event, const QString& text)
{
    return QStringLiteral("%1:An exception escaped an event handler of %2 (event %3): %4")
        .arg(QString::number(LoggerLevel::error), receiver, event, text);
}

ServiceApplication& application()
{
    return *static_cast<ServiceApplication*>(QCoreApplication::instance());
}

/// Cancels a thread inside an event handler.
int childMain()
{
    QThread thread;
    Worker worker;
    worker.moveToThread(&thread);
    std::atomic<bool> isInside = false;
    worker.post([&] {
        isInside = true;
        while (true)
            ::pause(); // where a thread can be cancelled
    });
    thread.start();
    while (!isInside)
        QThread::yieldCurrentThread();
    thread.terminate();
    thread.wait();
    printf("ended, %d escaped\n", application().escapedCount());
    fflush(stdout);
    ::_exit(0); // Qt leaves the event dispatcher of a cancelled thread as it is
}

} // namespace

class TestServiceApplication : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        useLanguage(QStringLiteral("en_US"));
        _log = std::make_unique<Log>(_ring.name(), false, quint64(1) << 30, 2, 365,
                                     LoggerLevel::debug, &collect);
    }
    void init()
    {
        takeLines();
        isLogBroken = false;
        application().setEscapedLimit(0);
        _before = application().escapedCount();
    }

    // --- What is thrown

    void exceptionIsLoggedAndTheLoopGoesOn_data()
    {
        using Action = std::function<void()>;
        QTest::addColumn<Action>("action");
        QTest::addColumn<QString>("text");
        const auto row = [](const char* name, const Action& action, const QString& text) {
            QTest::newRow(name) << action << text;
        };
        row(
            "Exception", [] { throw Exception(QStringLiteral("the disk is full")); },
            "the disk is full");
        row(
            "pointer", [] { throw new Exception(QStringLiteral("unknown consumer")); },
            "unknown consumer");
        row(
            "null pointer", [] { throw static_cast<Exception*>(nullptr); },
            "an exception of type Exception*");
        row(
            "standard", [] { throw std::runtime_error("out of \xc3\xa9t\xc3\xa9"); },
            QString::fromUtf8("out of été"));
        row(
            "no memory", [] { throw std::bad_alloc(); }, "std::bad_alloc");
        row(
            "number", [] { throw 5; }, "an exception of type int");
        row(
            "text", [] { throw "x"; }, "an exception of type char const*");
        row(
            "own type", [] { throw QString(); }, "an exception of type QString");
        row(
            "several lines", [] { throw Exception(QStringLiteral("a\nb %1 %2")); }, "a\\nb %1 %2");
    }
    void exceptionIsLoggedAndTheLoopGoesOn()
    {
        QFETCH(const std::function<void()>, action);
        QFETCH(const QString, text);
        Worker worker;
        bool isNextHandled = false;
        worker.post(action);
        worker.post([&] { isNextHandled = true; });
        QTRY_VERIFY(isNextHandled);
        QCOMPARE(takeLines(), QStringList{line("Worker", "1007", text)});
        QCOMPARE(application().escapedCount(), _before + 1);
    }

    void pointerIsDeletedAndValueIsDestroyed()
    {
        std::atomic<int> deleted = 0;
        Worker worker;
        worker.post([&] { throw new CountedException(deleted); });
        QTRY_COMPARE(application().escapedCount(), _before + 1);
        QCOMPARE(deleted.load(), 1);
        worker.post([&] { throw CountedException(deleted); });
        QTRY_COMPARE(application().escapedCount(), _before + 2);
        QVERIFY(deleted > 1);
        QCOMPARE(takeLines().size(), 2);
    }

    // --- What is said of the receiver

    void receiverIsNamed()
    {
        Worker worker;
        worker.setObjectName(QStringLiteral("till\n2"));
        worker.post([] { throw Exception(QStringLiteral("x")); });
        QTRY_COMPARE(loggedLines(), QStringList{line("Worker \"till\\n2\"", "1007", "x")});
    }

    void receiverMayBeGone()
    {
        auto* worker = new Worker;
        worker->setObjectName(QStringLiteral("gone"));
        worker->post([&] {
            delete worker;
            throw Exception(QStringLiteral("x"));
        });
        QTRY_COMPARE(loggedLines(), QStringList{line("Worker \"gone\"", "1007", "x")});
    }

    void eventsOfQtAreGuarded()
    {
        QTimer timer;
        timer.setSingleShot(true);
        connect(&timer, &QTimer::timeout, [] { throw Exception(QStringLiteral("late")); });
        timer.start(0);
        QTRY_COMPARE(loggedLines(), QStringList{line("QTimer", "Timer", "late")});
        takeLines();

        Worker worker;
        connect(
            &worker, &Worker::wanted, &worker, [] { throw Exception(QStringLiteral("queued")); },
            Qt::QueuedConnection);
        Q_EMIT worker.wanted();
        QTRY_COMPARE(loggedLines(), QStringList{line("Worker", "MetaCall", "queued")});
    }

    void directCallReachesTheCaller()
    {
        Worker worker;
        connect(&worker, &Worker::wanted, [] { throw Exception(QStringLiteral("direct")); });
        QVERIFY_EXCEPTION_THROWN(Q_EMIT worker.wanted(), Exception);
        QCOMPARE(application().escapedCount(), _before);
    }

    void sentEventIsNotHandledIfItThrows()
    {
        Worker worker;
        Task sound([] {});
        Task faulty([] { throw 1; });
        QVERIFY(QCoreApplication::sendEvent(&worker, &sound));
        QVERIFY(!QCoreApplication::sendEvent(&worker, &faulty));
    }

    void nestedEventLoopGoesOn()
    {
        Worker worker;
        QStringList order;
        worker.post([&] {
            worker.post([] { throw Exception(QStringLiteral("inner")); });
            worker.post([&] { order.append("second"); });
            QCoreApplication::processEvents();
            order.append("outer");
            throw Exception(QStringLiteral("outer"));
        });
        QTRY_COMPARE(order, (QStringList{"second", "outer"}));
        QTRY_COMPARE(loggedLines(), (QStringList{line("Worker", "1007", "inner"),
                                                 line("Worker", "1007", "outer")}));
    }

    void textsAreInTheLanguageOfTheProcess()
    {
        useLanguage(QStringLiteral("fr_FR"));
        Worker worker;
        worker.post([] { throw 5; });
        QTRY_COMPARE(application().escapedCount(), _before + 1);
        useLanguage(QStringLiteral("en_US"));
        QCOMPARE(takeLines(),
                 QStringList{QString::number(LoggerLevel::error) +
                             QString::fromUtf8(":Une exception s'est échappée d'un traitement "
                                               "d'événement de Worker (événement 1007) : une "
                                               "exception de type int")});
    }

    void brokenLogDoesNotEndTheService()
    {
        isLogBroken = true;
        Worker worker;
        worker.post([] { throw Exception(QStringLiteral("x")); });
        QTRY_COMPARE(application().escapedCount(), _before + 1);
        isLogBroken = false;
        worker.post([] { throw Exception(QStringLiteral("y")); });
        QTRY_COMPARE(loggedLines(), QStringList{line("Worker", "1007", "y")});
    }

    // --- Threads

    void everyThreadIsGuarded()
    {
        constexpr int Threads = 4;
        constexpr int Throws = 200;
        std::vector<std::unique_ptr<QThread>> threads;
        std::vector<std::unique_ptr<Worker>> workers;
        std::atomic<int> handled = 0;
        for (int i = 0; i < Threads; ++i) {
            threads.push_back(std::make_unique<QThread>());
            workers.push_back(std::make_unique<Worker>());
            workers.back()->moveToThread(threads.back().get());
            for (int j = 0; j < Throws; ++j) {
                workers.back()->post([&handled, j] {
                    ++handled;
                    if (j % 2 == 0)
                        throw Exception(QStringLiteral("by value"));
                    throw new Exception(QStringLiteral("pointer"));
                });
            }
        }
        for (auto& thread : threads)
            thread->start();
        // This thread's events are guarded meanwhile, too.
        Worker here;
        for (int j = 0; j < Throws; ++j)
            here.post([] { throw 1; });
        QTRY_COMPARE(application().escapedCount(), _before + (Threads + 1) * Throws);
        for (auto& thread : threads)
            thread->quit();
        for (auto& thread : threads)
            QVERIFY(thread->wait());
        QCOMPARE(handled.load(), Threads * Throws);
        QCOMPARE(takeLines().size(), (Threads + 1) * Throws);
    }

    void cancelledThreadEnds()
    {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
        QSKIP("the sanitizers do not know the exception that cancels a thread");
#endif
        const ChildResult child = runChild({});
        QVERIFY2(child.finished && !child.crashed, child.err.constData());
        QCOMPARE(child.out, QByteArray("ended, 0 escaped\n"));
    }

    // --- The limit

    void withoutALimitTheLoopGoesOn()
    {
        Worker worker;
        for (int i = 0; i < 100; ++i)
            worker.post([] { throw 1; });
        worker.post([] { QCoreApplication::exit(0); });
        QCOMPARE(QCoreApplication::exec(), 0);
        QCOMPARE(application().escapedCount(), _before + 100);
    }

    void limitEndsTheLoop_data()
    {
        QTest::addColumn<int>("allowed");
        QTest::addColumn<bool>("inThread");
        QTest::newRow("at the first") << 1 << false;
        QTest::newRow("at the third") << 3 << false;
        QTest::newRow("in another thread") << 2 << true;
    }
    void limitEndsTheLoop()
    {
        QFETCH(const int, allowed);
        QFETCH(const bool, inThread);
        application().setEscapedLimit(_before + allowed, ExitUnavailable);
        QThread thread;
        Worker worker;
        if (inThread) {
            worker.moveToThread(&thread);
            thread.start();
        }
        for (int i = 0; i < allowed; ++i)
            worker.post([] { throw Exception(QStringLiteral("x")); });
        QCOMPARE(QCoreApplication::exec(), int(ExitUnavailable));
        thread.quit();
        thread.wait();
        QCOMPARE(application().escapedCount(), _before + allowed);
        const QStringList logged = takeLines();
        QCOMPARE(logged.size(), allowed + 1);
        QCOMPARE(logged.last(), QStringLiteral("%1:%2 exceptions escaped event handlers: the "
                                               "service stops")
                                    .arg(LoggerLevel::error)
                                    .arg(_before + allowed));
    }

    void limitThatIsReachedBeforeTheLoopEndsIt()
    {
        application().setEscapedLimit(_before + 1);
        Worker worker;
        Task faulty([] { throw 1; });
        QCoreApplication::sendEvent(&worker, &faulty);
        QCOMPARE(QCoreApplication::exec(), int(ExitFailure));
    }

    void brokenLogDoesNotHideTheLimit()
    {
        isLogBroken = true;
        application().setEscapedLimit(_before + 1, 9);
        Worker worker;
        worker.post([] { throw 1; });
        QCOMPARE(QCoreApplication::exec(), 9);
    }

private:
    LogRing _ring;
    std::unique_ptr<Log> _log;
    int _before = 0;
};

int main(int argc, char* argv[])
{
    ServiceApplication service(argc, argv);
    if (argc > 1 && qstrcmp(argv[1], "--child") == 0)
        return childMain();
    TestServiceApplication test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_serviceapplication.moc"
