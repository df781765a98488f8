// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// What a FilesQueue costs per file, compared with a plain listing of the same directory. A run
// prints the medians of a few rounds and their ratios: bench_queue [directory] [rounds]

#include <kez/FilesQueue.h>
#include <kez/log.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <functional>
#include <unistd.h>
#include <vector>

namespace {

const QList<ConsumerEntry> Consumers{{"1", nullptr}, {"2", nullptr}, {"3", nullptr}};

/// Nanoseconds.
double timeOf(const std::function<void()>& action)
{
    const auto before = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - before)
        .count();
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// The times of all rounds, for each thing that is measured.
struct Times {
    std::vector<double> readDirectory;
    std::vector<double> plainListing;
    std::vector<double> firstRescan;
    std::vector<double> idleRescan;
    std::vector<double> request;
    std::vector<double> report;
    std::vector<double> deletion;
    std::vector<double> plainDeletion;
};

QStringList numberedNames(int count)
{
    QStringList names;
    for (int i = 0; i < count; ++i)
        names.append(QStringLiteral("order-%1.xml").arg(i, 6, 10, QLatin1Char('0')));
    return names;
}

void createFiles(const QString& path, const QStringList& names)
{
    for (const QString& name : names) {
        const QByteArray file = QFile::encodeName(path + QLatin1Char('/') + name);
        ::close(::open(file.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    }
}

int readDirectory(const QString& path)
{
    int count = 0;
    DIR* const directory = ::opendir(QFile::encodeName(path).constData());
    while (::readdir(directory))
        ++count;
    ::closedir(directory);
    return count;
}

qsizetype plainListing(const QString& path)
{
    return QDir(path)
        .entryInfoList(QDir::Files | QDir::Readable | QDir::Writable | QDir::NoDotAndDotDot,
                       QDir::Name)
        .size();
}

void measureRound(const QString& path, const QStringList& names, Times& times)
{
    FilesQueue queue(path, Consumers, true, 0);
    createFiles(path, names);
    times.readDirectory.push_back(timeOf([&] { readDirectory(path); }));
    times.plainListing.push_back(timeOf([&] { plainListing(path); }));
    times.firstRescan.push_back(timeOf([&] { queue.onDirectoryChanged(); }));
    times.idleRescan.push_back(timeOf([&] { queue.onDirectoryChanged(); }));
    times.request.push_back(timeOf([&] { queue.onRequestForFiles("3"); }));
    times.report.push_back(timeOf([&] {
        for (const ConsumerEntry& consumer : Consumers) {
            for (const QString& name : names)
                queue.onConsumed(consumer.id, name);
        }
    }));
    times.deletion.push_back(timeOf([&] { queue.onDirectoryChanged(); }));

    createFiles(path, names);
    times.plainDeletion.push_back(timeOf([&] {
        for (const QString& name : names)
            QFile::remove(path + QLatin1Char('/') + name);
    }));
}

void print(const char* what, const std::vector<double>& times, int operations, double listing)
{
    const double each = median(times) / operations;
    std::printf("  %-34s %9.0f ns a file   %5.2f x the plain listing\n", what, each,
                each / listing);
}

void measure(const QString& parent, int count, int rounds)
{
    const QTemporaryDir directory(parent + "/bench-queue-XXXXXX");
    const QStringList names = numberedNames(count);
    Times times;
    for (int round = 0; round < rounds; ++round)
        measureRound(directory.path(), names, times);

    const double listing = median(times.plainListing) / count;
    std::printf("%d files\n", count);
    print("readdir", times.readDirectory, count, listing);
    print("plain listing (QDir)", times.plainListing, count, listing);
    print("re-scan, all files new", times.firstRescan, count, listing);
    print("re-scan, no change", times.idleRescan, count, listing);
    print("request, all files waiting", times.request, count, listing);
    print("report, each of three consumers", times.report, count * int(Consumers.size()), listing);
    print("re-scan, all files consumed", times.deletion, count, listing);
    print("plain deletion (QFile::remove)", times.plainDeletion, count, listing);
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const QString parent = application.arguments().value(1, QDir::tempPath());
    const int rounds = std::max(1, application.arguments().value(2, "5").toInt());

    // Debug traces are off, as in a service.
    Log::initInstance()->setFilter(LoggerLevel::info);

    std::printf("medians of %d rounds in %s\n", rounds, qPrintable(parent));
    for (const int count : {1000, 10000, 100000})
        measure(parent, count, rounds);
    return 0;
}
