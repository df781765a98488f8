// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// What a log line costs, compared with other ways to write the same line into a file. Each line is
// in the kernel before the next one is made.
//
//     bench_log                          the comparison: time, allocations per line
//     bench_log <contender> <lines>      one contender alone, to count its system calls:
//
//     strace -f -c bench_log kez 100000
//
// Times are medians of rounds in which the contenders take turns, so that a disturbance hits all of
// them. Compare the ratios of one run, not the times of two.

#include "support/allocations.h"

#include <kez/logger.h>

#include <QDateTime>
#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#ifdef KEZ_BENCH_SPDLOG
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace {

constexpr quint32 Century = 36500;
constexpr quint64 Unlimited = quint64(1) << 40;
constexpr int Rounds = 9;
constexpr int LinesPerRound = 20000;

const QString Message = QStringLiteral("Request 48213 of client 10.1.2.3 served in 12 ms");
const QString Pattern = QStringLiteral("dd/MM/yyyy HH:mm:ss,zzz");

struct Contender {
    const char* name;
    const char* description;
    std::function<void()> writeLine;
};

[[noreturn]] void stop(const char* why)
{
    fprintf(stderr, "bench_log: %s\n", why);
    exit(1);
}

std::shared_ptr<Logger> quietLogger(const QString& name, quint64 maxSize,
                                    LoggerLevel::LogLevel filter)
{
    auto logger = std::make_shared<Logger>(name, maxSize, 5U, Century, filter);
    logger->disableTee();
    return logger;
}

std::shared_ptr<QFile> appendedFile(const QString& path)
{
    auto file = std::make_shared<QFile>(path);
    if (!file->open(QIODevice::ReadWrite | QIODevice::Append | QIODevice::Text))
        stop("cannot open a file");
    return file;
}

QString lineByQt()
{
    return QStringLiteral("%1 <%2> %3")
        .arg(QDateTime::currentDateTime().toString(Pattern), QStringLiteral("INFOR"), Message);
}

Contender rawWrite(const QTemporaryDir& directory)
{
    const int fd = open(QFile::encodeName(directory.filePath("raw.log")).constData(),
                        O_CREAT | O_RDWR | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0)
        stop("cannot open a file");
    const QByteArray bytes = lineByQt().toUtf8() + '\n';
    return {"write", "write(2) of the finished bytes", [fd, bytes] {
                if (write(fd, bytes.constData(), size_t(bytes.size())) != bytes.size())
                    stop("cannot write");
            }};
}

Contender kez(const QTemporaryDir& directory)
{
    const auto logger = quietLogger(directory.filePath("kez"), Unlimited, LoggerLevel::debug);
    return {"kez", "Logger::info", [logger] { logger->info(Message); }};
}

Contender kezRotating(const QTemporaryDir& directory)
{
    const auto logger = quietLogger(directory.filePath("rotating"), 1 << 20, LoggerLevel::debug);
    return {"kez-1mib", "Logger::info, a new file every MiB", [logger] { logger->info(Message); }};
}

Contender kezFiltered(const QTemporaryDir& directory)
{
    const auto logger = quietLogger(directory.filePath("filtered"), Unlimited, LoggerLevel::error);
    return {"kez-dropped", "Logger::info below the filter", [logger] { logger->info(Message); }};
}

Contender qtTextStream(const QTemporaryDir& directory)
{
    const auto file = appendedFile(directory.filePath("stream.log"));
    const auto stream = std::make_shared<QTextStream>(file.get());
    return {"textstream", "QDateTime, QTextStream, flush", [file, stream] {
                *stream << lineByQt() << '\n';
                stream->flush();
                file->flush();
            }};
}

Contender qtFile(const QTemporaryDir& directory)
{
    const auto file = appendedFile(directory.filePath("file.log"));
    return {"qfile", "QDateTime, QFile::size, QFile, flush", [file] {
                const QByteArray bytes = lineByQt().toUtf8() + '\n';
                if (quint64(file->size() + bytes.size()) >= Unlimited)
                    stop("too large");
                file->write(bytes);
                file->flush();
            }};
}

Contender stdio(const QTemporaryDir& directory)
{
    FILE* const file = fopen(QFile::encodeName(directory.filePath("stdio.log")).constData(), "ae");
    if (!file)
        stop("cannot open a file");
    return {
        "fprintf", "localtime_r, strftime, fprintf, fflush", [file, msg = Message.toStdString()] {
            timespec now{};
            clock_gettime(CLOCK_REALTIME, &now);
            tm parts{};
            localtime_r(&now.tv_sec, &parts);
            char date[32];
            strftime(date, sizeof date, "%d/%m/%Y %H:%M:%S", &parts);
            fprintf(file, "%s,%03ld <%s> %s\n", date, now.tv_nsec / 1000000, "INFOR", msg.c_str());
            fflush(file);
        }};
}

#ifdef KEZ_BENCH_SPDLOG
Contender spdlogRotating(const QTemporaryDir& directory)
{
    const auto sink = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
        directory.filePath("spdlog.log").toStdString(), Unlimited, 5);
    const auto logger = std::make_shared<spdlog::logger>("bench", sink);
    logger->set_pattern("%d/%m/%Y %H:%M:%S,%e <INFOR> %v");
    logger->flush_on(spdlog::level::trace);
    return {"spdlog", "rotating_file_sink_mt, flush_on(trace)",
            [logger, msg = Message.toStdString()] { logger->info(msg); }};
}
#endif

std::vector<Contender> allContenders(const QTemporaryDir& directory)
{
    return {
        rawWrite(directory),       kez(directory),          kezRotating(directory),
        kezFiltered(directory),    qtTextStream(directory), qtFile(directory),
        stdio(directory),
#ifdef KEZ_BENCH_SPDLOG
        spdlogRotating(directory),
#endif
    };
}

double nanosecondsPerLine(const Contender& contender)
{
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    for (int i = 0; i < LinesPerRound; ++i)
        contender.writeLine();
    const std::chrono::duration<double, std::nano> elapsed = Clock::now() - begin;
    return elapsed.count() / LinesPerRound;
}

double allocationsPerLine(const Contender& contender)
{
    constexpr int Lines = 1000;
    const long before = Allocations::count;
    for (int i = 0; i < Lines; ++i)
        contender.writeLine();
    return double(Allocations::count - before) / Lines;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void compare(const std::vector<Contender>& contenders)
{
    std::vector<std::vector<double>> times(contenders.size());
    std::vector<double> allocations;
    for (const Contender& contender : contenders) {
        nanosecondsPerLine(contender); // warms up
        allocations.push_back(allocationsPerLine(contender));
    }
    for (int round = 0; round < Rounds; ++round)
        for (size_t i = 0; i < contenders.size(); ++i)
            times[i].push_back(nanosecondsPerLine(contenders[i]));

    printf("%-12s %9s %8s %8s  %s\n", "contender", "ns/line", "x write", "allocs", "what");
    const double unit = median(times.front());
    for (size_t i = 0; i < contenders.size(); ++i)
        printf("%-12s %9.1f %8.2f %8.2f  %s\n", contenders[i].name, median(times[i]),
               median(times[i]) / unit, allocations[i], contenders[i].description);
}

} // namespace

int main(int argc, char* argv[])
{
    const QTemporaryDir directory;
    if (!directory.isValid())
        stop("cannot make a temporary directory");
    const std::vector<Contender> contenders = allContenders(directory);
    if (argc == 1) {
        compare(contenders);
        return 0;
    }
    const long lines = argc > 2 ? atol(argv[2]) : 1;
    for (const Contender& contender : contenders) {
        if (std::string(contender.name) != argv[1])
            continue;
        for (long i = 0; i < lines; ++i)
            contender.writeLine();
        return 0;
    }
    stop("no such contender");
}
