// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// How fast a FileRunner is, compared with a FilesQueue whose consumers are connected by hand in one
// thread. Both work on the same files, with three consumers that do next to nothing, from the
// construction until the directory is empty.

#include "consumer/fileconsumer.h"

#include <kez/FilesQueue.h>
#include <kez/service/filerunner.h>

#include <benchmark/benchmark.h>

#include <QDir>
#include <QEventLoop>
#include <QTemporaryDir>

#include <atomic>
#include <chrono>
#include <dirent.h>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace KezService;

namespace {

const QStringList Ids{"ledger", "archive", "index"};

QString nameOf(int number)
{
    return QStringLiteral("order-%1.xml").arg(number, 6, 10, QLatin1Char('0'));
}

void createFiles(const QString& path, int count)
{
    const QByteArray text = "<order><id>4711</id><amount>3</amount></order>\n";
    for (int i = 0; i < count; ++i) {
        const QByteArray file = QFile::encodeName(path + QLatin1Char('/') + nameOf(i));
        const int descriptor = ::open(file.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        if (::write(descriptor, text.constData(), size_t(text.size())) != text.size())
            qFatal("%s cannot be written", file.constData());
        ::close(descriptor);
    }
}

/// Whether a directory holds no visible file.
bool isEmpty(const QString& path)
{
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(
        ::opendir(QFile::encodeName(path).constData()), &::closedir);
    if (!directory)
        qFatal("%s cannot be listed", qPrintable(path));
    while (const dirent* const entry = ::readdir(directory.get())) {
        if (*entry->d_name != '.')
            return false;
    }
    return true;
}

using Clock = std::chrono::steady_clock;

/// What both sides do with a file.
using Work = std::function<void(const QString& path)>;

void readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.readAll().isEmpty())
        qFatal("%s cannot be read", qPrintable(path));
}

/// Reports all the files that it gets to the queue, at once. Nothing can be faster.
class EagerConsumer : public ConsumerAncestor {
public:
    EagerConsumer(const QString& id, Work work) : ConsumerAncestor(id), _work(std::move(work)) {}

    void consume(const FilesQueue& queue)
    {
        connect(&queue, &FilesQueue::filesNotConsumed, this, [this](const QStringList& names) {
            if (_isAsking)
                _names = names;
        });
        _isAsking = true;
        Q_EMIT requestForFiles(id());
        _isAsking = false;
        for (const QString& name : std::as_const(_names)) {
            if (_work)
                _work(queue.path().filePath(name));
            Q_EMIT consumed(id(), name);
        }
    }

private:
    const Work _work;
    bool _isAsking = false;
    QStringList _names;
};

/// Returns when the directory was empty; so do the functions below. What comes after that, the end
/// of the queue or of the runner, is not measured.
template <typename Consumer>
Clock::time_point consumeByHand(const QString& path, int count,
                                const std::vector<std::unique_ptr<Consumer>>& consumers)
{
    QList<ConsumerEntry> entries;
    for (const auto& consumer : consumers)
        entries.append({consumer->id(), consumer.get()});
    FilesQueue queue(path, entries, true, 1000);
    queue.onProcess();
    qint64 missing = qint64(count) * qint64(consumers.size());
    QEventLoop loop;
    for (const auto& consumer : consumers) {
        QObject::connect(consumer.get(), &ConsumerAncestor::consumed, &loop, [&] {
            if (--missing > 0)
                return;
            // At once, instead of the next tick.
            QMetaObject::invokeMethod(&queue, &FilesQueue::onDirectoryChanged,
                                      Qt::QueuedConnection);
            QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
        });
    }
    for (const auto& consumer : consumers)
        consumer->consume(queue);
    loop.exec();
    return Clock::now();
}

/// As fast as it goes: each consumer reports all the files in one go.
Clock::time_point consumeEagerly(const QString& path, int count, const Work& work)
{
    std::vector<std::unique_ptr<EagerConsumer>> consumers;
    for (const QString& id : Ids)
        consumers.push_back(std::make_unique<EagerConsumer>(id, work));
    return consumeByHand(path, count, consumers);
}

/// As examples/consumer does: the file is opened, and the event loop has its turn between two.
Clock::time_point consumeInTurns(const QString& path, int count, const Work&)
{
    std::vector<std::unique_ptr<FileConsumer>> consumers;
    for (const QString& id : Ids)
        consumers.push_back(
            std::make_unique<FileConsumer>(id, [](QFile& file) { file.readAll(); }));
    return consumeByHand(path, count, consumers);
}

Clock::time_point runHandlers(const QString& path, int count, const Work& work)
{
    RunnerSettings settings;
    settings.spool = path;
    FileRunner runner(settings);
    std::atomic<qint64> missing = qint64(count) * qint64(Ids.size());
    for (const QString& id : Ids) {
        runner.addConsumer(id, [&](const FileAtHand& file) {
            if (work)
                work(file.path);
            --missing;
            return Outcome::done();
        });
    }
    runner.start();
    // To list the directory takes time from the runner: at first, one file tells enough.
    const QByteArray last = QFile::encodeName(path + QLatin1Char('/') + nameOf(count - 1));
    while (missing > 0 || ::access(last.constData(), F_OK) == 0 || !isEmpty(path))
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return Clock::now();
}

using Process = Clock::time_point (*)(const QString& path, int count, const Work& work);

void process(benchmark::State& state, Process processFiles, const Work& work)
{
    const int count = int(state.range(0));
    for (auto _ : state) {
        const QTemporaryDir directory;
        createFiles(directory.path(), count);
        const Clock::time_point start = Clock::now();
        const Clock::time_point end = processFiles(directory.path(), count, work);
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());
        if (!isEmpty(directory.path()))
            qFatal("files are left");
    }
    state.SetItemsProcessed(state.iterations() * count);
}

void settings(benchmark::internal::Benchmark* registered)
{
    registered->Arg(20000)->Iterations(1)->UseManualTime();
}

BENCHMARK_CAPTURE(process, runnerReads, runHandlers, readFile)
    ->Name("RunnerReads/kez")
    ->Apply(settings);
BENCHMARK_CAPTURE(process, turnsRead, consumeInTurns, readFile)
    ->Name("RunnerReads/by_hand_one_a_turn")
    ->Apply(settings);
BENCHMARK_CAPTURE(process, eagerRead, consumeEagerly, readFile)
    ->Name("RunnerReads/by_hand_in_one_go")
    ->Apply(settings);
BENCHMARK_CAPTURE(process, runnerDoesNothing, runHandlers, Work())
    ->Name("RunnerDoesNothing/kez")
    ->Apply(settings);
BENCHMARK_CAPTURE(process, eagerDoesNothing, consumeEagerly, Work())
    ->Name("RunnerDoesNothing/by_hand_in_one_go")
    ->Apply(settings);

} // namespace
