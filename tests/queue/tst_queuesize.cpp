// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/queuefixture.h"
#include "support/tracelog.h"

#include <kez/FilesQueue.h>

#include <QTest>

#include <algorithm>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <limits>

namespace {

QStringList numberedNames(int count)
{
    QStringList names;
    names.reserve(count);
    for (int i = 0; i < count; ++i)
        names.append(QStringLiteral("file-%1.dat").arg(i, 6, 10, QLatin1Char('0')));
    return names;
}

bool createEmptyFiles(const QueueDirectory& directory, const QStringList& names)
{
    for (const QString& name : names) {
        const QByteArray path = QFile::encodeName(directory.filePath(name));
        const int file = ::open(path.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        if (file < 0)
            return false;
        ::close(file);
    }
    return true;
}

/// Seconds of processor time that `action` takes in this thread.
double costOf(const std::function<void()>& action)
{
    timespec before{};
    timespec after{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &before);
    action();
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &after);
    return double(after.tv_sec - before.tv_sec) + 1e-9 * double(after.tv_nsec - before.tv_nsec);
}

const QList<ConsumerEntry> ThreeConsumers{{"1", nullptr}, {"2", nullptr}, {"3", nullptr}};

struct Costs {
    double discovery = std::numeric_limits<double>::max();
    double requests = std::numeric_limits<double>::max();
    double reports = std::numeric_limits<double>::max();
    double idleRescan = std::numeric_limits<double>::max();
    double deletion = std::numeric_limits<double>::max();
};

/// The smallest costs of a few rounds of `count` files through a queue.
Costs costsFor(int count, int rounds)
{
    const TraceLog traces(LoggerLevel::fatal);
    const QStringList names = numberedNames(count);
    Costs costs;
    const auto keepSmallest = [](double& cost, const std::function<void()>& action) {
        cost = std::min(cost, costOf(action));
    };
    for (int round = 0; round < rounds; ++round) {
        const QueueDirectory directory(QString(), QueueDirectory::fastParent());
        FilesQueue queue(directory.path(), ThreeConsumers, true, 0);
        createEmptyFiles(directory, names);
        keepSmallest(costs.discovery, [&] { queue.onDirectoryChanged(); });
        keepSmallest(costs.requests, [&] { queue.onRequestForFiles("3"); });
        keepSmallest(costs.reports, [&] {
            for (const ConsumerEntry& consumer : ThreeConsumers) {
                for (const QString& name : names)
                    queue.onConsumed(consumer.id, name);
            }
        });
        // Another consumer, so that no file leaves yet.
        ConsumerAncestor newcomer("4");
        queue.appendConsumer(&newcomer);
        keepSmallest(costs.idleRescan, [&] { queue.onDirectoryChanged(); });
        for (const QString& name : names)
            queue.onConsumed("4", name);
        keepSmallest(costs.deletion, [&] { queue.onDirectoryChanged(); });
    }
    return costs;
}

} // namespace

class QueueSizeTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void hundredThousandFiles();
    void halfOfAManyFilesVanish();
    void costGrowsWithTheNumberOfFiles();
};

void QueueSizeTest::hundredThousandFiles()
{
    constexpr int Count = 100000;
    const TraceLog traces(LoggerLevel::fatal);
    const QueueDirectory directory(QString(), QueueDirectory::fastParent());
    FilesQueue queue(directory.path(), ThreeConsumers, true, 0);
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    QSignalSpy answered(&queue, &FilesQueue::filesNotConsumed);

    const QStringList names = numberedNames(Count);
    QVERIFY(createEmptyFiles(directory, names));
    queue.onDirectoryChanged();
    QCOMPARE(queue.size(), Count);
    QCOMPARE(updated.size(), 1);
    QVERIFY(updated.at(0).at(0).value<QList<QString>>() == names);
    QCOMPARE(queue.fileIndex(names.last()), Count - 1);

    for (const ConsumerEntry& consumer : ThreeConsumers) {
        queue.onRequestForFiles(consumer.id);
        QVERIFY(answered.takeFirst().at(0).value<QList<QString>>() == names);
        for (const QString& name : names)
            queue.onConsumed(consumer.id, name);
        queue.onRequestForFiles(consumer.id);
        QVERIFY(answered.takeFirst().at(0).value<QList<QString>>().isEmpty());
    }
    QCOMPARE(queue.size(), Count);
    queue.onDirectoryChanged();
    QCOMPARE(queue.size(), 0);
    QCOMPARE(updated.size(), 1);
    QVERIFY(directory.names().isEmpty());
}

void QueueSizeTest::halfOfAManyFilesVanish()
{
    constexpr int Count = 20000;
    const TraceLog traces(LoggerLevel::fatal);
    const QueueDirectory directory(QString(), QueueDirectory::fastParent());
    const QStringList names = numberedNames(Count);
    QVERIFY(createEmptyFiles(directory, names));
    FilesQueue queue(directory.path(), ThreeConsumers, true, 0);
    QCOMPARE(queue.size(), Count);
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    for (int i = 0; i < Count; i += 2)
        QVERIFY(directory.remove(names.at(i)));
    queue.onDirectoryChanged();
    QCOMPARE(queue.size(), Count / 2);
    QCOMPARE(updated.at(0).at(1).value<QList<QString>>().size(), Count / 2);
    for (int i = 0; i < Count; ++i)
        QCOMPARE(queue.fileIndex(names.at(i)), i % 2 == 0 ? -1 : i / 2);
}

void QueueSizeTest::costGrowsWithTheNumberOfFiles()
{
    // Sixteen times as many files cost about sixteen times as much. If the queue searched for each
    // file among all others, they would cost 256 times as much. Only processor time counts, so that
    // a busy machine makes no difference.
    constexpr double Limit = 96;
    const Costs few = costsFor(2000, 3);
    const Costs many = costsFor(32000, 1);
    const auto verify = [&](double Costs::*phase, const char* name) {
        const double growth = many.*phase / few.*phase;
        QVERIFY2(growth < Limit, qPrintable(QStringLiteral("%1: %2").arg(name).arg(growth)));
    };
    verify(&Costs::discovery, "discovery");
    verify(&Costs::requests, "requests");
    verify(&Costs::reports, "reports");
    verify(&Costs::idleRescan, "re-scan without change");
    verify(&Costs::deletion, "deletion");
}

QTEST_GUILESS_MAIN(QueueSizeTest)
#include "tst_queuesize.moc"
