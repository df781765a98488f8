// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/runnerfiles_p.h"

#include <QtTest>

using namespace KezService;

namespace {

Journal::Entry entryOf(quint64 number, const QString& name, const std::vector<bool>& isDone)
{
    Journal::Entry entry;
    entry.number = number;
    entry.name = name;
    entry.key = "key of " + name;
    entry.stamp.changed = qint64(number) * 1'000'000'000;
    for (const bool done : isDone)
        entry.works.push_back(
            {done ? WorkRecord::State::Settled : WorkRecord::State::Waiting, false, 0, 0});
    return entry;
}

Journal::Entry entryOf(quint64 number, const QString& name)
{
    return entryOf(number, name, {false, false});
}

/// Waiting, running, retrying of one consumer.
QList<qint64> countsOf(const ConsumerProgress& consumer)
{
    return {consumer.waiting, consumer.running, consumer.retrying};
}

} // namespace

class TestRunnerFiles : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void fileIsKnownUntilItIsDropped();
    void lastConsumerSettlesTheFile();
    void workIsSettledOnce();
    void doneWorkIsNotDoneAgain();
    void fileThatAllAreDoneWithHasNoWork();
    void sameNameReplacesTheFile();
    void everyFileIsCountedOnce();
    void droppedFileIsNotCounted();
    void moreRunThanAreKnown();
    void oldestIsTheFirstOfTheQueueThatIsNotDone();
    void oldestGoesBackForAnEarlierNumber();
};

void TestRunnerFiles::fileIsKnownUntilItIsDropped()
{
    RunnerFiles files({"a", "b"});
    QVERIFY(!files.find("order"));
    const auto file = files.enter(entryOf(7, "order"));
    QCOMPARE(file->name, QString("order"));
    QCOMPARE(file->number, quint64(7));
    QCOMPARE(file->key, QString("key of order"));
    QCOMPARE(file->stamp.changed, qint64(7'000'000'000));
    QCOMPARE(int(file->unended), 2);
    QVERIFY(!file->isGone);
    QCOMPARE(files.find("order"), file);
    QCOMPARE(files.names(), QStringList{"order"});
    files.drop(file);
    QVERIFY(file->isGone);
    QVERIFY(!files.find("order"));
    QCOMPARE(files.progress({0, 0}).files, qint64(0));
}

void TestRunnerFiles::lastConsumerSettlesTheFile()
{
    RunnerFiles files({"a", "b", "c"});
    const auto file = files.enter(entryOf(1, "order", {false, true, false}));
    QCOMPARE(int(file->unended), 2);
    QVERIFY(!files.settle(2, *file));
    QVERIFY(files.settle(0, *file));
}

void TestRunnerFiles::workIsSettledOnce()
{
    RunnerFiles files({"a", "b"});
    const auto file = files.enter(entryOf(1, "order"));
    QVERIFY(!files.settle(0, *file));
    QVERIFY(!files.settle(0, *file));
    QCOMPARE(countsOf(files.progress({0, 0}).consumers.at(0)), QList<qint64>({0, 0, 0}));
    QVERIFY(files.settle(1, *file));
}

void TestRunnerFiles::doneWorkIsNotDoneAgain()
{
    RunnerFiles files({"a", "b"});
    files.enter(entryOf(1, "order", {true, false}));
    const RunnerProgress progress = files.progress({0, 0});
    QCOMPARE(progress.files, qint64(1));
    QCOMPARE(progress.consumers.at(0).waiting, qint64(0));
    QCOMPARE(progress.consumers.at(0).done, qint64(0)); // not since the start
    QCOMPARE(progress.consumers.at(1).waiting, qint64(1));
}

void TestRunnerFiles::fileThatAllAreDoneWithHasNoWork()
{
    RunnerFiles files({"a", "b"});
    const auto file = files.enter(entryOf(1, "order", {true, true}));
    QCOMPARE(int(file->unended), 0);
    files.drop(file);
    for (const ConsumerProgress& consumer : files.progress({0, 0}).consumers)
        QCOMPARE(countsOf(consumer), QList<qint64>({0, 0, 0}));
}

void TestRunnerFiles::sameNameReplacesTheFile()
{
    RunnerFiles files({"a", "b"});
    const auto first = files.enter(entryOf(1, "order"));
    files.pause(0, *first);
    const auto second = files.enter(entryOf(2, "order"));
    QVERIFY(first->isGone);
    QVERIFY(!second->isGone);
    QCOMPARE(files.find("order"), second);
    const RunnerProgress progress = files.progress({0, 0});
    QCOMPARE(progress.files, qint64(1));
    QCOMPARE(countsOf(progress.consumers.at(0)), QList<qint64>({1, 0, 0}));
    QCOMPARE(countsOf(progress.consumers.at(1)), QList<qint64>({1, 0, 0}));
}

void TestRunnerFiles::everyFileIsCountedOnce()
{
    RunnerFiles files({"only"});
    std::vector<RunnerFiles::FilePointer> entered;
    for (quint64 number = 1; number <= 5; ++number)
        entered.push_back(files.enter(entryOf(number, QString::number(number), {false})));
    files.pause(0, *entered[0]);
    files.pause(0, *entered[1]);
    files.resume(0, *entered[1]);
    QVERIFY(files.settle(0, *entered[2]));
    files.countDone(0);
    files.countQuarantined(0);
    const ConsumerProgress only = files.progress({1}).consumers.first();
    QCOMPARE(only.id, QString("only"));
    QCOMPARE(countsOf(only), QList<qint64>({2, 1, 1}));
    QCOMPARE(only.done, qint64(1));
    QCOMPARE(only.quarantined, qint64(1));
}

void TestRunnerFiles::droppedFileIsNotCounted()
{
    RunnerFiles files({"a", "b"});
    const auto paused = files.enter(entryOf(1, "paused"));
    const auto settled = files.enter(entryOf(2, "settled"));
    const auto ready = files.enter(entryOf(3, "ready"));
    files.pause(0, *paused);
    files.settle(0, *settled);
    for (const auto& file : {paused, settled, ready})
        files.drop(file);
    for (const ConsumerProgress& consumer : files.progress({0, 0}).consumers)
        QCOMPARE(countsOf(consumer), QList<qint64>({0, 0, 0}));
}

void TestRunnerFiles::moreRunThanAreKnown()
{
    RunnerFiles files({"only"});
    const auto file = files.enter(entryOf(1, "order", {false}));
    QCOMPARE(countsOf(files.progress({3}).consumers.first()), QList<qint64>({0, 1, 0}));
    files.drop(file); // its handler still runs
    QCOMPARE(countsOf(files.progress({1}).consumers.first()), QList<qint64>({0, 0, 0}));
}

void TestRunnerFiles::oldestIsTheFirstOfTheQueueThatIsNotDone()
{
    RunnerFiles files({"a", "b"});
    const auto oldest = [&files](int consumer) {
        return files.progress({0, 0}).consumers.at(consumer).oldest;
    };
    QCOMPARE(oldest(0), QString());
    const auto first = files.enter(entryOf(1, "first"));
    const auto second = files.enter(entryOf(2, "second"));
    files.enter(entryOf(3, "third", {false, true}));
    QCOMPARE(oldest(0), QString("first"));
    QCOMPARE(files.progress({0, 0}).consumers.at(0).oldestSince.toSecsSinceEpoch(), qint64(1));
    files.pause(0, *first); // is not done, either
    QCOMPARE(oldest(0), QString("first"));
    files.settle(1, *first);
    QCOMPARE(oldest(0), QString("first"));
    QCOMPARE(oldest(1), QString("second"));
    files.drop(second);
    QCOMPARE(oldest(1), QString());
    files.settle(0, *first);
    QCOMPARE(oldest(0), QString("third"));
}

void TestRunnerFiles::oldestGoesBackForAnEarlierNumber()
{
    RunnerFiles files({"only"});
    const auto late = files.enter(entryOf(9, "late", {false}));
    QCOMPARE(files.progress({0}).consumers.first().oldest, QString("late"));
    files.enter(entryOf(4, "early", {false})); // it had its number before the restart
    QCOMPARE(files.progress({0}).consumers.first().oldest, QString("early"));
    files.settle(0, *late);
    QCOMPARE(files.progress({0}).consumers.first().oldest, QString("early"));
}

QTEST_APPLESS_MAIN(TestRunnerFiles)
#include "tst_runnerfiles.moc"
