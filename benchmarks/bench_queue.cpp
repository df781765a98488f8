// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// What a queue costs for each of its files, compared with the system calls that it cannot do
// without.
//
// On ext4 the time to make a file varies by a factor of ten: the system looks past the inode
// numbers of all the files that were deleted in the last minutes. Arrivals are measured in memory.

#include "harness/stopwatch.h"

#include <kez/FilesQueue.h>

#include <benchmark/benchmark.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using benchmark::State;

QList<QString> numberedNames(qint64 count)
{
    QList<QString> names;
    names.reserve(count);
    for (qint64 i = 0; i < count; ++i)
        names.append(QStringLiteral("order-%1.xml").arg(i, 6, 10, QLatin1Char('0')));
    return names;
}

/// A directory for a queue.
class Directory {
public:
    explicit Directory(const QString& parent = QDir::tempPath())
        : _directory(parent + QStringLiteral("/bench-queue-XXXXXX"))
    {}

    QString path() const { return _directory.path(); }
    QByteArray pathOf(const QString& name) const
    {
        return QFile::encodeName(_directory.path() + QLatin1Char('/') + name);
    }

    /// Makes a file as a producer does: under a hidden name, then renamed.
    void deliver(const QString& name) const
    {
        const QByteArray hidden = pathOf(QLatin1Char('.') + name);
        const int descriptor = ::open(hidden.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        if (descriptor < 0 || ::close(descriptor) != 0 ||
            ::rename(hidden.constData(), pathOf(name).constData()) != 0)
            qFatal("%s cannot be made", hidden.constData());
    }
    void deliverAll(const QList<QString>& names) const
    {
        for (const QString& name : names)
            deliver(name);
    }

    /// Afterwards the directory is the same, but has just changed.
    void change() const
    {
        deliver(QStringLiteral("change"));
        ::unlink(pathOf(QStringLiteral("change")).constData());
    }

private:
    QTemporaryDir _directory;
};

/// A directory of `count` files, made once. A queue may look at it, not change it. It has been left
/// alone long enough that the queue need not ask when each file was born.
const Directory& settledDirectory(qint64 count)
{
    static std::map<qint64, std::unique_ptr<Directory>> directories;
    std::unique_ptr<Directory>& directory = directories[count];
    if (!directory) {
        directory = std::make_unique<Directory>();
        directory->deliverAll(numberedNames(count));
        std::this_thread::sleep_for(std::chrono::seconds(5));
    }
    return *directory;
}

const Directory& changingDirectory(qint64 count)
{
    static std::map<qint64, Directory> directories;
    const bool isNew = !directories.contains(count);
    const Directory& directory = directories[count];
    if (isNew)
        directory.deliverAll(numberedNames(count));
    return directory;
}

// The system calls of a queue, and nothing else.

using Stream = std::unique_ptr<DIR, int (*)(DIR*)>;

Stream openStream(const QString& path)
{
    return {::opendir(QFile::encodeName(path).constData()), &::closedir};
}

/// Calls `action` for the descriptor and the name of each file that a queue would accept.
template <typename Action>
void forEachFile(const Stream& stream, Action action)
{
    const int descriptor = ::dirfd(stream.get());
    while (const dirent* const entry = ::readdir(stream.get())) {
        if (entry->d_name[0] != '.' && entry->d_type == DT_REG &&
            ::faccessat(descriptor, entry->d_name, R_OK | W_OK, 0) == 0)
            action(descriptor, static_cast<const char*>(entry->d_name));
    }
}

bool askForBirth(int directory, const char* name)
{
    struct statx status {};
    return ::statx(directory, name, AT_SYMLINK_NOFOLLOW, STATX_TYPE | STATX_INO | STATX_BTIME,
                   &status) == 0;
}

std::unique_ptr<FilesQueue> builtQueue(const QString& path)
{
    return std::make_unique<FilesQueue>(path, QList<ConsumerEntry>{{"1", nullptr}}, true, 0);
}

void countItems(State& state)
{
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// A re-scan that finds what it knows.

void rescanKnown(State& state)
{
    FilesQueue queue(settledDirectory(state.range(0)).path(), {{"1", nullptr}}, true, 0);
    for (auto _ : state)
        queue.onDirectoryChanged();
    countItems(state);
}

void rescanKnownByQDir(State& state)
{
    const QString path = settledDirectory(state.range(0)).path();
    constexpr QDir::Filters Files =
        QDir::Files | QDir::Readable | QDir::Writable | QDir::NoDotAndDotDot;
    for (auto _ : state)
        benchmark::DoNotOptimize(QDir(path).entryInfoList(Files, QDir::Name));
    countItems(state);
}

std::vector<std::string> sortedNames(const QString& path)
{
    std::vector<std::string> names;
    forEachFile(openStream(path), [&](int, const char* name) { names.emplace_back(name); });
    std::sort(names.begin(), names.end());
    return names;
}

/// Lists, sorts, and compares with the names of before.
void listAndMerge(State& state)
{
    const QString path = settledDirectory(state.range(0)).path();
    const std::vector<std::string> known = sortedNames(path);
    for (auto _ : state) {
        std::vector<std::string> changed;
        const std::vector<std::string> listed = sortedNames(path);
        std::set_symmetric_difference(listed.begin(), listed.end(), known.begin(), known.end(),
                                      std::back_inserter(changed));
        benchmark::DoNotOptimize(changed);
    }
    countItems(state);
}

BENCHMARK(rescanKnown)
    ->Name("RescanKnown/kez")
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->UseRealTime();
BENCHMARK(rescanKnownByQDir)
    ->Name("RescanKnown/QDir")
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->UseRealTime();
BENCHMARK(listAndMerge)
    ->Name("RescanKnown/limit_list_and_merge")
    ->RangeMultiplier(10)
    ->Range(1000, 100000)
    ->UseRealTime();

// A queue built over files that are there.

void queueBuilt(State& state)
{
    const QString path = settledDirectory(state.range(0)).path();
    for (auto _ : state) {
        std::unique_ptr<FilesQueue> queue; // its end does not count
        timeAlone(state, [&] { queue = builtQueue(path); });
    }
    countItems(state);
}

void queueBuiltAlone(State& state)
{
    const QString path = settledDirectory(state.range(0)).path();
    for (auto _ : state)
        timeAlone(state, [&] { forEachFile(openStream(path), [](int, const char*) {}); });
    countItems(state);
}

BENCHMARK(queueBuilt)->Name("QueueBuilt/kez")->Arg(100000)->UseManualTime();
BENCHMARK(queueBuiltAlone)->Name("QueueBuilt/limit_system_calls")->Arg(100000)->UseManualTime();

// The same in a directory that has changed a moment ago. The queue then asks when each file was
// born.

void queueBuiltAmidChanges(State& state)
{
    const Directory& directory = changingDirectory(state.range(0));
    for (auto _ : state) {
        directory.change();
        std::unique_ptr<FilesQueue> queue;
        timeAlone(state, [&] { queue = builtQueue(directory.path()); });
    }
    countItems(state);
}

void queueBuiltAmidChangesAlone(State& state)
{
    const Directory& directory = changingDirectory(state.range(0));
    for (auto _ : state) {
        directory.change();
        timeAlone(state, [&] { forEachFile(openStream(directory.path()), askForBirth); });
    }
    countItems(state);
}

BENCHMARK(queueBuiltAmidChanges)->Name("QueueBuiltAmidChanges/kez")->Arg(100000)->UseManualTime();
BENCHMARK(queueBuiltAmidChangesAlone)
    ->Name("QueueBuiltAmidChanges/limit_system_calls")
    ->Arg(100000)
    ->UseManualTime();

// A re-scan that deletes every file.

void consumedDeleted(State& state)
{
    const QList<QString> names = numberedNames(state.range(0));
    for (auto _ : state) {
        const Directory directory;
        directory.deliverAll(names);
        FilesQueue queue(directory.path(), {{"1", nullptr}}, true, 0);
        for (const QString& name : names)
            queue.onConsumed("1", name);
        timeAlone(state, [&] { queue.onDirectoryChanged(); });
        if (queue.size() != 0)
            state.SkipWithError("files are left");
    }
    countItems(state);
}

void deleteAlone(const QString& path, const std::vector<std::string>& names)
{
    const Stream stream = openStream(path);
    forEachFile(stream, [](int, const char*) {});
    for (const std::string& name : names) {
        if (askForBirth(::dirfd(stream.get()), name.c_str()))
            ::unlinkat(::dirfd(stream.get()), name.c_str(), 0);
    }
}

void consumedDeletedAlone(State& state)
{
    const QList<QString> names = numberedNames(state.range(0));
    for (auto _ : state) {
        const Directory directory;
        directory.deliverAll(names);
        const std::vector<std::string> systemNames = sortedNames(directory.path());
        timeAlone(state, [&] { deleteAlone(directory.path(), systemNames); });
    }
    countItems(state);
}

BENCHMARK(consumedDeleted)
    ->Name("ConsumedDeleted/kez")
    ->Arg(100000)
    ->Iterations(1)
    ->UseManualTime();
BENCHMARK(consumedDeletedAlone)
    ->Name("ConsumedDeleted/limit_system_calls")
    ->Arg(100000)
    ->Iterations(1)
    ->UseManualTime();

// A consumer that reports every file, in the queue's thread.

void reports(State& state)
{
    ConsumerAncestor consumer("1");
    FilesQueue queue(settledDirectory(state.range(0)).path(), {}, true, 0);
    queue.appendConsumer(&consumer);
    const QList<QString> names = numberedNames(state.range(0));
    for (auto _ : state) {
        for (const QString& name : names)
            Q_EMIT consumer.consumed(consumer.id(), name);
    }
    countItems(state);
}

/// A signal, a slot, the position of the name, and a flag.
void reportsAlone(State& state)
{
    ConsumerAncestor consumer("1");
    QObject receiver;
    const QList<QString> names = numberedNames(state.range(0));
    QHash<QString, int> positions;
    for (int i = 0; i < names.size(); ++i)
        positions.insert(QString(names.at(i).constData(), names.at(i).size()), i);
    std::vector<char> flags(static_cast<size_t>(names.size()));
    const QString identifier = consumer.id();
    QObject::connect(&consumer, &ConsumerAncestor::consumed, &receiver,
                     [&](const QString& id, const QString& name) {
                         if (id == identifier)
                             flags[static_cast<size_t>(positions.value(name, -1))] = 1;
                     });
    for (auto _ : state) {
        for (const QString& name : names)
            Q_EMIT consumer.consumed(consumer.id(), name);
    }
    benchmark::DoNotOptimize(flags.data());
    countItems(state);
}

BENCHMARK(reports)->Name("Reports/kez")->RangeMultiplier(10)->Range(1000, 100000);
BENCHMARK(reportsAlone)->Name("Reports/signal_and_QHash")->Arg(100000);

// A request for the names of all files.

void request(State& state)
{
    ConsumerAncestor consumer("1");
    FilesQueue queue(settledDirectory(state.range(0)).path(), {}, true, 0);
    queue.appendConsumer(&consumer);
    qsizetype count = 0;
    QObject::connect(&queue, &FilesQueue::filesNotConsumed, &consumer,
                     [&](const QList<QString>& names) { count += names.size(); });
    for (auto _ : state)
        Q_EMIT consumer.requestForFiles(consumer.id());
    if (count != state.iterations() * state.range(0))
        state.SkipWithError("files are missing");
    countItems(state);
}

void requestAlone(State& state)
{
    const QList<QString> names = numberedNames(state.range(0));
    for (auto _ : state) {
        QList<QString> answer;
        answer.reserve(names.size());
        for (const QString& name : names)
            answer.append(name);
        benchmark::DoNotOptimize(answer);
    }
    countItems(state);
}

BENCHMARK(request)->Name("Request/kez")->RangeMultiplier(10)->Range(1000, 100000);
BENCHMARK(requestAlone)->Name("Request/limit_list_of_names")->Arg(100000);

// Files that come as fast as a producer can make them.

/// Reports each file once, in a thread of its own. It asks whenever the queue has changed.
class BusyConsumer : public ConsumerAncestor {
public:
    BusyConsumer(const QString& id, const FilesQueue& queue) : ConsumerAncestor(id)
    {
        moveToThread(&_thread);
        connect(&queue, &FilesQueue::queueUpdated, this,
                [this] { Q_EMIT requestForFiles(this->id()); });
        connect(&queue, &FilesQueue::filesNotConsumed, this, &BusyConsumer::handle);
        _thread.start();
    }
    ~BusyConsumer() override
    {
        _thread.quit();
        _thread.wait();
    }

private:
    void handle(const QList<QString>& names)
    {
        for (const QString& name : names) {
            const qsizetype before = _reported.size();
            _reported.insert(name);
            if (_reported.size() != before)
                Q_EMIT consumed(id(), name);
        }
    }

    QSet<QString> _reported;
    QThread _thread;
};

/// Seconds of processor time of this process.
double processorTime()
{
    rusage used{};
    ::getrusage(RUSAGE_SELF, &used);
    return static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) +
           1e-6 * static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec);
}

bool isEmpty(const QString& path)
{
    const Stream stream = openStream(path);
    while (const dirent* const entry = ::readdir(stream.get())) {
        if (entry->d_name != std::string_view(".") && entry->d_name != std::string_view(".."))
            return false;
    }
    return true;
}

/// Lets a producer deliver the files, and the queue delete them.
void passThroughQueue(const Directory& directory, const QList<QString>& names)
{
    QThread thread;
    FilesQueue queue(directory.path(), {}, true, 0);
    BusyConsumer first("1", queue);
    BusyConsumer second("2", queue);
    queue.moveToThread(&thread);
    thread.start();
    QMetaObject::invokeMethod(&queue, &FilesQueue::onProcess, Qt::BlockingQueuedConnection);
    queue.appendConsumer(&first);
    queue.appendConsumer(&second);
    std::thread([&] { directory.deliverAll(names); }).join();
    while (!isEmpty(directory.path())) { // the last reports start no re-scan
        QThread::msleep(1);
        QMetaObject::invokeMethod(&queue, &FilesQueue::onDirectoryChanged,
                                  Qt::BlockingQueuedConnection);
    }
    QMetaObject::invokeMethod(&queue, &FilesQueue::onQuit);
    thread.wait();
}

void passAlone(const Directory& directory, const QList<QString>& names)
{
    directory.deliverAll(names);
    deleteAlone(directory.path(), sortedNames(directory.path()));
}

/// A file system in memory, if there is one. To make a file on a disk takes up to ten times as long
/// at one time as at another.
QString memoryFileSystem()
{
    const QString shared = QStringLiteral("/dev/shm");
    return QFileInfo(shared).isWritable() ? shared : QDir::tempPath();
}

/// Counts the processor time besides: several threads work at the same time.
void arrivals(State& state, void (*pass)(const Directory&, const QList<QString>&))
{
    const QList<QString> names = numberedNames(state.range(0));
    double seconds = 0;
    for (auto _ : state) {
        const Directory directory(memoryFileSystem());
        const double before = processorTime();
        timeAlone(state, [&] { pass(directory, names); });
        seconds += processorTime() - before;
    }
    state.counters["cpu_s"] = benchmark::Counter(seconds, benchmark::Counter::kAvgIterations);
    countItems(state);
}

void arrivingFiles(benchmark::internal::Benchmark* registered)
{
    for (const int count : {200, 2000, 20000, 40000})
        registered->Arg(count);
    registered->Iterations(1)->UseManualTime();
}

BENCHMARK_CAPTURE(arrivals, kez, passThroughQueue)->Name("Arrivals/kez")->Apply(arrivingFiles);
BENCHMARK_CAPTURE(arrivals, alone, passAlone)
    ->Name("Arrivals/limit_without_queue")
    ->Apply(arrivingFiles);

} // namespace
