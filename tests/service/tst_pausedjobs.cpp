// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/pausedjobs_p.h"

#include <QtTest>

#include <limits>

using namespace KezService;
using namespace std::chrono_literals;
using std::chrono::milliseconds;

Q_DECLARE_METATYPE(std::chrono::milliseconds)

class TestPausedJobs : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void pauseDoublesUpToTheLongest_data();
    void pauseDoublesUpToTheLongest();
    void pausesDiffer();
    void jobsAreTakenWhenTheyAreDue();

private:
    static Job jobOf(quint64 number)
    {
        Job job;
        job.file = std::make_shared<QueuedFile>();
        job.file->number = number;
        return job;
    }
};

void TestPausedJobs::pauseDoublesUpToTheLongest_data()
{
    QTest::addColumn<int>("failures");
    QTest::addColumn<milliseconds>("first");
    QTest::addColumn<milliseconds>("longest");
    QTest::addColumn<milliseconds>("pause");
    const HandlerSettings usual;
    const milliseconds first = usual.firstPause;
    const milliseconds longest = usual.longestPause;
    QTest::newRow("1") << 1 << first << longest << milliseconds(1s);
    QTest::newRow("2") << 2 << first << longest << milliseconds(2s);
    QTest::newRow("3") << 3 << first << longest << milliseconds(4s);
    QTest::newRow("9") << 9 << first << longest << milliseconds(256s);
    QTest::newRow("10") << 10 << first << longest << milliseconds(5min);
    QTest::newRow("11") << 11 << first << longest << milliseconds(5min);
    QTest::newRow("very many") << std::numeric_limits<int>::max() << first << longest
                               << milliseconds(5min);
    QTest::newRow("none") << 0 << first << longest << milliseconds(1s);
    QTest::newRow("always the same")
        << 5 << milliseconds(7s) << milliseconds(7s) << milliseconds(7s);
    QTest::newRow("no pause") << std::numeric_limits<int>::max() << 0ms << longest << 0ms;
    QTest::newRow("one millisecond") << 1 << 1ms << 1ms << 1ms;
    QTest::newRow("years") << 60 << first << milliseconds(24h * 3650) << milliseconds(24h * 3650);
    constexpr milliseconds Half(std::numeric_limits<qint64>::max() / 4 + 1);
    QTest::newRow("nearly too long") << 3 << Half << Half + Half / 2 << Half + Half / 2;
}

void TestPausedJobs::pauseDoublesUpToTheLongest()
{
    QFETCH(const int, failures);
    QFETCH(const milliseconds, pause);
    HandlerSettings settings;
    QFETCH(const milliseconds, first);
    QFETCH(const milliseconds, longest);
    settings.firstPause = first;
    settings.longestPause = longest;
    for (int time = 0; time < 300; ++time) {
        const milliseconds chosen = jitteredPause(failures, first, longest);
        QVERIFY2(chosen >= pause / 5 * 4 - 1ms, QByteArray::number(qint64(chosen.count())));
        QVERIFY2(chosen <= pause + pause / 5 + 1ms, QByteArray::number(qint64(chosen.count())));
    }
}

void TestPausedJobs::pausesDiffer()
{
    milliseconds shortest = milliseconds::max();
    milliseconds longest{};
    for (int time = 0; time < 1000; ++time) {
        const milliseconds pause = jitteredPause(1, 1s, 1min);
        shortest = std::min(shortest, pause);
        longest = std::max(longest, pause);
    }
    // Each of the 41 values is missing from 1000 with a probability of 1 to 50 000 million.
    QCOMPARE(qint64(shortest.count()), qint64(800));
    QCOMPARE(qint64(longest.count()), qint64(1200));
}

void TestPausedJobs::jobsAreTakenWhenTheyAreDue()
{
    PausedJobs jobs;
    QVERIFY(jobs.isEmpty());
    const auto now = PausedJobs::Clock::now();
    QVERIFY(jobs.takeDue(now).empty());
    jobs.add(1, jobOf(3), now + 3s);
    jobs.add(0, jobOf(1), now);
    jobs.add(2, jobOf(2), now);
    jobs.add(0, jobOf(4), now - 1s);
    QCOMPARE(qint64((jobs.firstDue() - now).count()),
             qint64(std::chrono::nanoseconds(-1s).count()));
    const auto due = jobs.takeDue(now);
    QCOMPARE(due.size(), size_t(3));
    QCOMPARE(due[0].second.file->number, quint64(4));
    QCOMPARE(due[1].second.file->number, quint64(1));
    QCOMPARE(due[2].second.file->number, quint64(2));
    QCOMPARE(due[2].first, 2);
    QVERIFY(!jobs.isEmpty());
    QVERIFY(jobs.firstDue() == now + 3s);
    QVERIFY(jobs.takeDue(now).empty());
    QCOMPARE(jobs.takeDue(now + 1h).size(), size_t(1));
    QVERIFY(jobs.isEmpty());
}

QTEST_GUILESS_MAIN(TestPausedJobs)
#include "tst_pausedjobs.moc"
