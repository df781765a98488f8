// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/backoff_p.h"

#include <QtTest>

using namespace KezService;
using namespace std::chrono_literals;

class TestBackoff : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void pauseDoublesUpToTheLongest();
    void pauseStaysWithinOddLimits();
    void causeIsNewOnce();
    void successBeginsAnew();
};

void TestBackoff::pauseDoublesUpToTheLongest()
{
    Backoff backoff;
    QList<int> seconds;
    for (int failure = 0; failure < 12; ++failure) {
        backoff.fail("x");
        seconds.append(int(backoff.pause(1s, 300s) / 1s));
    }
    QCOMPARE(seconds, QList<int>({1, 2, 4, 8, 16, 32, 64, 128, 256, 300, 300, 300}));
}

void TestBackoff::pauseStaysWithinOddLimits()
{
    Backoff backoff;
    for (int failure = 0; failure < 3; ++failure)
        backoff.fail("x");
    QCOMPARE(backoff.pause(10s, 5s), Backoff::Period(5s));
    QCOMPARE(backoff.pause(3ms, 1h), Backoff::Period(12ms));
}

void TestBackoff::causeIsNewOnce()
{
    Backoff backoff;
    QVERIFY(backoff.fail("full"));
    QVERIFY(!backoff.fail("full"));
    QVERIFY(backoff.fail("gone"));
    QVERIFY(backoff.fail("full"));
}

void TestBackoff::successBeginsAnew()
{
    Backoff backoff;
    QVERIFY(!backoff.hasFailed());
    QVERIFY(!backoff.succeed());
    backoff.fail("x");
    backoff.fail("x");
    QVERIFY(backoff.hasFailed());
    QVERIFY(backoff.succeed());
    QVERIFY(!backoff.hasFailed());
    QVERIFY(!backoff.succeed());
    QVERIFY(backoff.fail("x"));
    QCOMPARE(backoff.pause(1s, 1h), Backoff::Period(1s));
}

QTEST_GUILESS_MAIN(TestBackoff)
#include "tst_backoff.moc"
