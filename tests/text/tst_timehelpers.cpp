// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/datewatcher.h>
#include <kez/timehelper.h>
#include <kez/timestamphelper.h>

#include <support/childprocess.h>
#include <support/environmentguard.h>

#include <QElapsedTimer>
#include <QMetaType>
#include <QSignalSpy>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <ctime>

class tst_TimeHelpers : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void pauseWaitsAtLeastAsLongAsAsked();
    void pauseProcessesEvents();
    void pauseOfZeroOrLessReturns_data();
    void pauseOfZeroOrLessReturns();
    void pauseWithinAPause();
    void pauseThatWasCutShortLeavesNothingBehind();
    void pauseInAnotherThread();
    void pauseWithoutApplication();

    void ctimeCountsMonthsFromZero_data();
    void ctimeCountsMonthsFromZero();
    void timeWithoutDetail_data();
    void timeWithoutDetail();
    void timestampShortLong_data();
    void timestampShortLong();

    void localTimeThatDaylightSavingSkipsIsInvalid();

    void watcherSignalsPastTargetAtOnce();
    void watcherTakesAnyMoment_data();
    void watcherTakesAnyMoment();
    void watcherSignalsOncePerTarget();
    void watcherWaitsForTarget();
    void watcherRechecksLongWaitsEveryMinute();
    void watcherIgnoresInvalidTarget();
    void watcherDropsTheTargetBefore();
    void slotMaySetANewTarget();
    void watcherIsAMetaType();
};

void tst_TimeHelpers::pauseWaitsAtLeastAsLongAsAsked()
{
    QElapsedTimer elapsed;
    elapsed.start();
    TimeHelper::pause(60);
    QVERIFY(elapsed.elapsed() >= 59);
}

void tst_TimeHelpers::pauseProcessesEvents()
{
    bool fired = false;
    QTimer::singleShot(0, this, [&fired] { fired = true; });
    TimeHelper::pause(20);
    QVERIFY(fired);
}

void tst_TimeHelpers::pauseOfZeroOrLessReturns_data()
{
    QTest::addColumn<int>("milliseconds");
    QTest::newRow("zero") << 0;
    QTest::newRow("negative") << -5;
    QTest::newRow("smallest") << std::numeric_limits<int>::min();
}

void tst_TimeHelpers::pauseOfZeroOrLessReturns()
{
    QFETCH(int, milliseconds);
    TimeHelper::pause(milliseconds);
}

void tst_TimeHelpers::pauseWithinAPause()
{
    QStringList order;
    QTimer::singleShot(0, this, [&order] {
        TimeHelper::pause(40);
        order.append(QStringLiteral("inner"));
    });
    TimeHelper::pause(10);
    order.append(QStringLiteral("outer"));
    QCOMPARE(order, (QStringList{QStringLiteral("inner"), QStringLiteral("outer")}));
}

void tst_TimeHelpers::pauseThatWasCutShortLeavesNothingBehind()
{
    QThread thread;
    QObject context;
    context.moveToThread(&thread);
    qint64 second = 0;
    connect(&thread, &QThread::started, &context, [&] {
        QTimer::singleShot(0, &context, [&thread] { thread.quit(); });
        TimeHelper::pause(120); // ends early
        QElapsedTimer elapsed;
        elapsed.start();
        TimeHelper::pause(250);
        second = elapsed.elapsed();
    });
    thread.start();
    QVERIFY(thread.wait(10000));
    // A thread that was told to quit runs no other loop: the second pause ends at once or takes its
    // whole time, but does not end with the timer of the first pause.
    QVERIFY2(second < 60 || second >= 249, qPrintable(QString::number(second)));
}

void tst_TimeHelpers::pauseInAnotherThread()
{
    bool done = false;
    std::unique_ptr<QThread> thread(QThread::create([&done] {
        TimeHelper::pause(5);
        TimeHelper::pause(5);
        done = true;
    }));
    thread->start();
    QVERIFY(thread->wait(10000));
    QVERIFY(done);
}

void tst_TimeHelpers::pauseWithoutApplication()
{
    const ChildResult child = runChild({});
    QVERIFY(child.finished);
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(child.err, QByteArray());
}

void tst_TimeHelpers::ctimeCountsMonthsFromZero_data()
{
    QTest::addColumn<QDateTime>("moment");
    QTest::addColumn<QDateTime>("expected");
    const QTime time(14, 7, 9);
    QTest::newRow("march is february")
        << QDateTime(QDate(2024, 3, 5), time) << QDateTime(QDate(2024, 2, 5), time);
    QTest::newRow("december is november")
        << QDateTime(QDate(2024, 12, 30), time) << QDateTime(QDate(2024, 11, 30), time);
    QTest::newRow("january is invalid") << QDateTime(QDate(2024, 1, 15), time) << QDateTime();
    QTest::newRow("31 march is invalid") << QDateTime(QDate(2024, 3, 31), time) << QDateTime();
    QTest::newRow("29 march of a leap year")
        << QDateTime(QDate(2024, 3, 29), time) << QDateTime(QDate(2024, 2, 29), time);
    QTest::newRow("29 march of another year") << QDateTime(QDate(2023, 3, 29), time) << QDateTime();
    QTest::newRow("one digit each") << QDateTime(QDate(2024, 3, 5), QTime(1, 2, 3))
                                    << QDateTime(QDate(2024, 2, 5), QTime(1, 2, 3));
}

void tst_TimeHelpers::ctimeCountsMonthsFromZero()
{
    QFETCH(QDateTime, moment);
    QFETCH(QDateTime, expected);
    const QDateTime result =
        TimestampHelper::ctimeToDateTime(static_cast<quint64>(moment.toSecsSinceEpoch()));
    QCOMPARE(result.isValid(), expected.isValid());
    if (expected.isValid())
        QCOMPARE(result, expected);
    QVERIFY(!TimestampHelper::ctimeToDateTime(std::numeric_limits<quint64>::max() / 2).isValid());
    QVERIFY(!TimestampHelper::ctimeToDateTime(67768036191676799).isValid()); // the last year of int
}

void tst_TimeHelpers::timeWithoutDetail_data()
{
    QTest::addColumn<QString>("format");
    QTest::addColumn<QString>("expected");
    QTest::newRow("zone at the end") << QStringLiteral("HH:mm:ss t") << QStringLiteral("HH:mm:ss");
    QTest::newRow("quoted t") << QStringLiteral("h 'at' t") << QStringLiteral("h 'at'");
    QTest::newRow("zone in brackets")
        << QStringLiteral("HH:mm:ss (t)") << QStringLiteral("HH:mm:ss ()");
    QTest::newRow("several") << QStringLiteral("tttt h  t  m") << QStringLiteral("h m");
    QTest::newRow("open quote") << QStringLiteral("h 't t") << QStringLiteral("h 't t");
    QTest::newRow("doubled quote") << QStringLiteral("h ''t") << QStringLiteral("h ''");
    QTest::newRow("empty") << QString() << QString();
}

void tst_TimeHelpers::timeWithoutDetail()
{
    QFETCH(QString, format);
    QFETCH(QString, expected);
    QCOMPARE(TimestampHelper::timeWithoutDetail(format), expected);
}

void tst_TimeHelpers::timestampShortLong_data()
{
    QTest::addColumn<QLocale>("locale");
    QTest::newRow("french") << QLocale(QLocale::French, QLocale::France);
    QTest::newRow("american") << QLocale(QLocale::English, QLocale::UnitedStates);
    QTest::newRow("c") << QLocale::c();
}

void tst_TimeHelpers::timestampShortLong()
{
    QFETCH(QLocale, locale);
    const QDateTime moment(QDate(2024, 3, 5), QTime(14, 7, 9));
    const QString text = TimestampHelper::timestampShortLong(moment, locale);
    QVERIFY2(text.startsWith(locale.toString(moment.date(), QLocale::ShortFormat)),
             qUtf8Printable(text));
    QVERIFY2(text.contains(QStringLiteral("07")) && text.contains(QStringLiteral("09")),
             qUtf8Printable(text));
    QVERIFY2(!text.contains(moment.timeZoneAbbreviation()), qUtf8Printable(text));
}

void tst_TimeHelpers::localTimeThatDaylightSavingSkipsIsInvalid()
{
    const EnvironmentGuard zone("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    const QDateTime april(QDate(2025, 4, 30), QTime(2, 30));
    QVERIFY(april.isValid());
    const auto seconds = static_cast<quint64>(april.toSecsSinceEpoch());
    QVERIFY(TimestampHelper::ctimeToDateTime(seconds - 3600).isValid());
    QVERIFY(!TimestampHelper::ctimeToDateTime(seconds).isValid()); // 30 March, 2:30
    QVERIFY(TimestampHelper::ctimeToDateTime(seconds + 3600).isValid());

    DateWatcher watcher;
    QSignalSpy reached(&watcher, &DateWatcher::timestampReached);
    watcher.watch(QDateTime(QDate(2025, 3, 30), QTime(2, 30)));
    QCOMPARE(reached.size(), 0);
    watcher.watch(QDateTime(QDate(2025, 3, 30), QTime(1, 30)));
    QCOMPARE(reached.size(), 1);
}

void tst_TimeHelpers::watcherSignalsPastTargetAtOnce()
{
    DateWatcher watcher;
    QSignalSpy reached(&watcher, &DateWatcher::timestampReached);
    const QDateTime target = QDateTime::currentDateTimeUtc().addSecs(-1);
    watcher.watch(target);
    QCOMPARE(reached.size(), 1);
    QCOMPARE(reached.first().first().toDateTime(), target);
}

void tst_TimeHelpers::watcherTakesAnyMoment_data()
{
    QTest::addColumn<QDateTime>("target");
    QTest::addColumn<bool>("isPast");
    using Limits = std::numeric_limits<qint64>;
    const auto moment = [](qint64 milliseconds) {
        return QDateTime::fromMSecsSinceEpoch(milliseconds, Qt::UTC);
    };
    QTest::newRow("least") << moment(Limits::min()) << true;
    QTest::newRow("near the least") << moment(Limits::min() + 1000) << true;
    QTest::newRow("before the epoch") << moment(-1) << true;
    QTest::newRow("the epoch") << moment(0) << true;
    QTest::newRow("near the greatest") << moment(Limits::max() - 1000) << false;
    QTest::newRow("greatest") << moment(Limits::max()) << false;
}

void tst_TimeHelpers::watcherTakesAnyMoment()
{
    QFETCH(QDateTime, target);
    QFETCH(bool, isPast);
    QVERIFY(target.isValid());
    DateWatcher watcher;
    QSignalSpy reached(&watcher, &DateWatcher::timestampReached);
    watcher.watch(target);
    QCOMPARE(reached.size(), isPast ? 1 : 0);
    QCOMPARE(watcher.findChild<QTimer*>()->isActive(), !isPast);
}

void tst_TimeHelpers::watcherSignalsOncePerTarget()
{
    DateWatcher watcher;
    QSignalSpy reached(&watcher, &DateWatcher::timestampReached);
    watcher.watch(QDateTime::currentDateTime());
    watcher.check();
    watcher.check();
    QCOMPARE(reached.size(), 1);
}

void tst_TimeHelpers::watcherWaitsForTarget()
{
    DateWatcher watcher;
    QSignalSpy reached(&watcher, &DateWatcher::timestampReached);
    const QDateTime target = QDateTime::currentDateTimeUtc().addMSecs(80);
    watcher.watch(target);
    QCOMPARE(reached.size(), 0);
    QVERIFY(reached.wait());
    QVERIFY(QDateTime::currentDateTimeUtc() >= target);
    QCOMPARE(reached.size(), 1);
}

void tst_TimeHelpers::watcherRechecksLongWaitsEveryMinute()
{
    DateWatcher watcher;
    const auto* const timer = watcher.findChild<QTimer*>();
    QVERIFY(timer);
    watcher.watch(QDateTime::currentDateTime().addSecs(180));
    QVERIFY(timer->isActive());
    QVERIFY(timer->isSingleShot());
    QCOMPARE(timer->timerType(), Qt::PreciseTimer);
    QCOMPARE(timer->interval(), 60000);
    watcher.watch(
        QDateTime::currentDateTime().addYears(5000)); // more milliseconds than an int holds
    QCOMPARE(timer->interval(), 60000);
}

void tst_TimeHelpers::watcherIgnoresInvalidTarget()
{
    DateWatcher watcher;
    QSignalSpy reached(&watcher, &DateWatcher::timestampReached);
    watcher.check();
    watcher.watch(QDateTime());
    QCOMPARE(reached.size(), 0);
    QVERIFY(!watcher.findChild<QTimer*>()->isActive());
}

void tst_TimeHelpers::watcherDropsTheTargetBefore()
{
    DateWatcher watcher;
    QSignalSpy reached(&watcher, &DateWatcher::timestampReached);
    watcher.watch(QDateTime::currentDateTime().addMSecs(30));
    watcher.watch(QDateTime());
    QVERIFY(!reached.wait(100));
}

void tst_TimeHelpers::slotMaySetANewTarget()
{
    DateWatcher watcher;
    QList<QDateTime> targets;
    const QDateTime first = QDateTime::currentDateTime().addSecs(-2);
    const QDateTime second = first.addSecs(1);
    connect(&watcher, &DateWatcher::timestampReached, this, [&](const QDateTime& target) {
        targets.append(target);
        if (target == first)
            watcher.watch(second);
    });
    watcher.watch(first);
    QCOMPARE(targets, (QList<QDateTime>{first, second}));
}

void tst_TimeHelpers::watcherIsAMetaType()
{
    const QMetaType type = QMetaType::fromName("DateWatcher");
    QVERIFY(type.isValid());
    const std::unique_ptr<DateWatcher> watcher(static_cast<DateWatcher*>(type.create()));
    QVERIFY(watcher);
}

namespace {

/// Without an application object, each pause takes the requested time.
int pauseAlone(const QStringList&)
{
    QElapsedTimer elapsed;
    elapsed.start();
    TimeHelper::pause(20);
    bool isLong = elapsed.elapsed() >= 19;
    const std::unique_ptr<QThread> thread(QThread::create([&] {
        elapsed.start();
        TimeHelper::pause(20);
        isLong = isLong && elapsed.elapsed() >= 19;
    }));
    thread->start();
    return thread->wait() && isLong ? 0 : 1;
}

} // namespace

KEZ_TEST_MAIN_WITH_CHILDREN(tst_TimeHelpers, pauseAlone)
#include "tst_timehelpers.moc"
