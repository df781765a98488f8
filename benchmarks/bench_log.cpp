// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// What a log line costs, compared with other ways to the same line of 80 bytes. Each line is in the
// kernel before the next one is made. The limit is what a line costs that is ready: the size of the
// file is asked, since others may append, and the bytes are given to the kernel.

#include <kez/log.h>
#include <kez/logger.h>

#include <benchmark/benchmark.h>

#include <QDateTime>
#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#ifdef KEZ_BENCH_SPDLOG
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#endif

#ifdef KEZ_BENCH_LOG4CPLUS
#include <log4cplus/fileappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#endif

#ifdef KEZ_BENCH_BOOST_LOG
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_file_backend.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_logger.hpp>
#include <boost/log/support/date_time.hpp>
#include <boost/log/trivial.hpp>
#include <boost/log/utility/setup/common_attributes.hpp>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#endif

namespace {

constexpr quint32 Century = 36500;
constexpr quint64 Unlimited = quint64(1) << 40;
constexpr quint64 Mebibyte = 1 << 20;

const QString Message = QStringLiteral("Request 4821 of client 10.1.2.3 served in 12 ms");
const std::string MessageBytes = Message.toStdString();
const QString Pattern = QStringLiteral("dd/MM/yyyy HH:mm:ss,zzz");

/// What a contender may ask for. Not every one can do everything.
enum class What { EveryLine, NewFileEveryMebibyte, NothingPasses, OwnFormat };

QString lineByQt()
{
    return QStringLiteral("%1 <%2> %3")
        .arg(QDateTime::currentDateTime().toString(Pattern), QStringLiteral("INFOR"), Message);
}

[[noreturn]] void stop(const char* why)
{
    std::fprintf(stderr, "bench_log: %s\n", why);
    std::exit(1);
}

int openedForAppending(const QString& directory)
{
    const QByteArray path = QFile::encodeName(directory + QStringLiteral("/limit.log"));
    const int fd = open(path.constData(), O_CREAT | O_RDWR | O_APPEND | O_CLOEXEC, 0600);
    if (fd < 0)
        stop("cannot open a file");
    return fd;
}

/// "INFOR message", the equivalent of TagFormatter.
void tagFormatter(LoggerLevel::LogLevel, const QString& msg, QString& out)
{
    out += QLatin1String("INFOR ");
    out += msg;
}

// --- The contenders. Each is made in an empty directory and writes one line with each call.

class Kez {
public:
    Kez(const QString& directory, What what)
        : _logger(directory + QStringLiteral("/kez"),
                  what == What::NewFileEveryMebibyte ? Mebibyte : Unlimited, 5, Century,
                  what == What::NothingPasses ? LoggerLevel::error : LoggerLevel::debug,
                  what == What::OwnFormat ? tagFormatter : nullptr)
    {
        _logger.disableTee();
    }
    ~Kez() { _logger.closeDuplicatedHandle(); }
    Kez(const Kez&) = delete;
    Kez& operator=(const Kez&) = delete;

    void writeLine() { _logger.info(Message); }

private:
    Logger _logger;
};

/// As most code logs: through the instance.
class KezFacade {
public:
    KezFacade(const QString&, What) : _before(Log::getInstance()->setFilter(LoggerLevel::error)) {}
    ~KezFacade() { Log::getInstance()->setFilter(_before); }
    KezFacade(const KezFacade&) = delete;
    KezFacade& operator=(const KezFacade&) = delete;

    void writeLine() { Log::getInstance()->info(Message); }

private:
    LoggerLevel::LogLevel _before;
};

#ifdef KEZ_BENCH_SPDLOG
class TagFormatter : public spdlog::formatter {
public:
    void format(const spdlog::details::log_msg& msg, spdlog::memory_buf_t& dest) override
    {
        constexpr std::string_view tag = "INFOR ";
        dest.append(tag.data(), tag.data() + tag.size());
        dest.append(msg.payload.begin(), msg.payload.end());
        dest.push_back('\n');
    }
    std::unique_ptr<formatter> clone() const override { return std::make_unique<TagFormatter>(); }
};

class Spdlog {
public:
    Spdlog(const QString& directory, What what)
        : _logger("bench", std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
                               directory.toStdString() + "/spdlog.log",
                               what == What::NewFileEveryMebibyte ? Mebibyte : Unlimited, 5))
    {
        _logger.set_pattern("%d/%m/%Y %H:%M:%S,%e <INFOR> %v");
        if (what == What::OwnFormat)
            _logger.set_formatter(std::make_unique<TagFormatter>());
        _logger.flush_on(spdlog::level::trace);
        if (what == What::NothingPasses)
            _logger.set_level(spdlog::level::err);
    }

    void writeLine() { _logger.info(MessageBytes); }

private:
    spdlog::logger _logger;
};

class SpdlogDefault {
public:
    SpdlogDefault(const QString&, What) { spdlog::set_level(spdlog::level::err); }

    void writeLine() { spdlog::info(MessageBytes); }
};
#endif

#ifdef KEZ_BENCH_LOG4CPLUS
class Log4cplus {
public:
    Log4cplus(const QString& directory, What what)
        : _logger(log4cplus::Logger::getInstance("bench"))
    {
        const bool isSmall = what == What::NewFileEveryMebibyte;
        log4cplus::SharedAppenderPtr appender(new log4cplus::RollingFileAppender(
            directory.toStdString() + "/log4cplus.log", long(isSmall ? Mebibyte : Unlimited), 5));
        appender->setLayout(
            std::make_unique<log4cplus::PatternLayout>("%D{%d/%m/%Y %H:%M:%S,%q} <INFOR> %m%n"));
        _logger.addAppender(appender);
        _logger.setLogLevel(what == What::NothingPasses ? log4cplus::ERROR_LOG_LEVEL
                                                        : log4cplus::TRACE_LOG_LEVEL);
    }
    ~Log4cplus() { _logger.removeAllAppenders(); }
    Log4cplus(const Log4cplus&) = delete;
    Log4cplus& operator=(const Log4cplus&) = delete;

    void writeLine() { _logger.log(log4cplus::INFO_LOG_LEVEL, MessageBytes); }

private:
    inline static const log4cplus::Initializer _library;
    log4cplus::Logger _logger;
};
#endif

#ifdef KEZ_BENCH_BOOST_LOG
class BoostLog {
public:
    BoostLog(const QString& directory, What what)
    {
        namespace expr = boost::log::expressions;
        namespace keywords = boost::log::keywords;
        const bool isSmall = what == What::NewFileEveryMebibyte;
        const auto backend = boost::make_shared<boost::log::sinks::text_file_backend>(
            keywords::file_name = directory.toStdString() + "/boost_%N.log",
            keywords::rotation_size = isSmall ? Mebibyte : Unlimited, keywords::auto_flush = true);
        _sink = boost::make_shared<Sink>(backend);
        _sink->set_formatter(expr::stream << expr::format_date_time<boost::posix_time::ptime>(
                                                 "TimeStamp", "%d/%m/%Y %H:%M:%S,%f")
                                          << " <INFOR> " << expr::smessage);
        boost::log::core::get()->add_global_attribute("TimeStamp",
                                                      boost::log::attributes::local_clock());
        boost::log::core::get()->add_sink(_sink);
        if (what == What::NothingPasses)
            boost::log::core::get()->set_filter(boost::log::trivial::severity >=
                                                boost::log::trivial::error);
    }
    ~BoostLog()
    {
        boost::log::core::get()->reset_filter();
        boost::log::core::get()->remove_sink(_sink);
    }
    BoostLog(const BoostLog&) = delete;
    BoostLog& operator=(const BoostLog&) = delete;

    void writeLine() { BOOST_LOG_SEV(_logger, boost::log::trivial::info) << MessageBytes; }

private:
    using Sink = boost::log::sinks::synchronous_sink<boost::log::sinks::text_file_backend>;
    boost::shared_ptr<Sink> _sink;
    boost::log::sources::severity_logger_mt<boost::log::trivial::severity_level> _logger;
};
#endif

class ByFile {
public:
    ByFile(const QString& directory, What) : _file(directory + QStringLiteral("/file.log"))
    {
        if (!_file.open(QIODevice::ReadWrite | QIODevice::Append | QIODevice::Text))
            stop("cannot open a file");
    }

    void writeLine()
    {
        const QByteArray bytes = lineByQt().toUtf8() + '\n';
        if (quint64(_file.size() + bytes.size()) >= Unlimited)
            stop("too large");
        _file.write(bytes);
        _file.flush();
    }

private:
    QFile _file;
};

class ByTextStream {
public:
    ByTextStream(const QString& directory, What) : _file(directory + QStringLiteral("/stream.log"))
    {
        if (!_file.open(QIODevice::ReadWrite | QIODevice::Append | QIODevice::Text))
            stop("cannot open a file");
        _stream.setDevice(&_file);
    }

    void writeLine()
    {
        _stream << lineByQt() << '\n';
        _stream.flush();
        _file.flush();
    }

private:
    QFile _file;
    QTextStream _stream;
};

class ByFprintf {
public:
    ByFprintf(const QString& directory, What)
        : _file(fopen(QFile::encodeName(directory + QStringLiteral("/c.log")).constData(), "ae"),
                &fclose)
    {
        if (!_file)
            stop("cannot open a file");
    }

    void writeLine()
    {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        tm parts{};
        localtime_r(&now.tv_sec, &parts);
        std::array<char, 32> date{};
        strftime(date.data(), date.size(), "%d/%m/%Y %H:%M:%S", &parts);
        fprintf(_file.get(), "%s,%03ld <%s> %s\n", date.data(), now.tv_nsec / 1000000, "INFOR",
                MessageBytes.c_str());
        fflush(_file.get());
    }

private:
    std::unique_ptr<FILE, int (*)(FILE*)> _file;
};

/// Gives ready bytes to the kernel.
class BareWrite {
public:
    BareWrite(const QString& directory, What)
        : _fd(openedForAppending(directory)), _bytes(lineByQt().toUtf8() + '\n')
    {
        if (_bytes.size() != 80)
            stop("the line has another size");
    }
    ~BareWrite() { close(_fd); }
    BareWrite(const BareWrite&) = delete;
    BareWrite& operator=(const BareWrite&) = delete;

    void writeLine()
    {
        if (write(_fd, _bytes.constData(), size_t(_bytes.size())) != _bytes.size())
            stop("cannot write");
    }

protected:
    const int _fd;

private:
    const QByteArray _bytes;
};

/// The same, and asks for the file's size before.
class BareLseekAndWrite : public BareWrite {
public:
    using BareWrite::BareWrite;

    void writeLine()
    {
        if (lseek(_fd, 0, SEEK_END) < 0)
            stop("cannot seek");
        BareWrite::writeLine();
    }
};

// --- The cases

template <typename Contender>
struct Place {
    explicit Place(What what) : contender(directory.path(), what) {}

    QTemporaryDir directory;
    Contender contender;
};

/// Several threads use one contender. The library starts their loops together and ends them so.
template <typename Contender, What what = What::EveryLine>
void lines(benchmark::State& state)
{
    static std::unique_ptr<Place<Contender>> place;
    if (state.thread_index() == 0)
        place = std::make_unique<Place<Contender>>(what);
    for (auto _ : state)
        place->contender.writeLine();
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0)
        place.reset();
}

BENCHMARK(lines<Kez>)->Name("LogLine/kez")->UseRealTime();
BENCHMARK(lines<ByFile>)->Name("LogLine/QFile")->UseRealTime();
BENCHMARK(lines<ByTextStream>)->Name("LogLine/QTextStream")->UseRealTime();
BENCHMARK(lines<ByFprintf>)->Name("LogLine/fprintf")->UseRealTime();
BENCHMARK(lines<BareWrite>)->Name("LogLine/limit_write")->UseRealTime();
BENCHMARK(lines<BareLseekAndWrite>)->Name("LogLine/limit_write_lseek")->UseRealTime();

BENCHMARK(lines<Kez>)->Name("LogLineThreads/kez")->Threads(4)->UseRealTime();
BENCHMARK(lines<BareWrite>)->Name("LogLineThreads/limit_write")->Threads(4)->UseRealTime();

BENCHMARK(lines<Kez, What::OwnFormat>)->Name("LogFormatter/kez")->UseRealTime();
BENCHMARK(lines<Kez, What::NewFileEveryMebibyte>)->Name("LogRotation/kez")->UseRealTime();
BENCHMARK(lines<Kez, What::NothingPasses>)->Name("LogFiltered/kez");
BENCHMARK(lines<KezFacade, What::NothingPasses>)->Name("LogFilteredFacade/kez");

#ifdef KEZ_BENCH_SPDLOG
BENCHMARK(lines<Spdlog>)->Name("LogLine/spdlog")->UseRealTime();
BENCHMARK(lines<Spdlog>)->Name("LogLineThreads/spdlog")->Threads(4)->UseRealTime();
BENCHMARK(lines<Spdlog, What::OwnFormat>)->Name("LogFormatter/spdlog")->UseRealTime();
BENCHMARK(lines<Spdlog, What::NewFileEveryMebibyte>)->Name("LogRotation/spdlog")->UseRealTime();
BENCHMARK(lines<Spdlog, What::NothingPasses>)->Name("LogFiltered/spdlog");
BENCHMARK(lines<SpdlogDefault, What::NothingPasses>)->Name("LogFilteredFacade/spdlog");
#endif

#ifdef KEZ_BENCH_LOG4CPLUS
BENCHMARK(lines<Log4cplus>)->Name("LogLine/log4cplus")->UseRealTime();
BENCHMARK(lines<Log4cplus>)->Name("LogLineThreads/log4cplus")->Threads(4)->UseRealTime();
BENCHMARK(lines<Log4cplus, What::NewFileEveryMebibyte>)
    ->Name("LogRotation/log4cplus")
    ->UseRealTime();
BENCHMARK(lines<Log4cplus, What::NothingPasses>)->Name("LogFiltered/log4cplus");
#endif

#ifdef KEZ_BENCH_BOOST_LOG
BENCHMARK(lines<BoostLog>)->Name("LogLine/boost_log")->UseRealTime();
BENCHMARK(lines<BoostLog>)->Name("LogLineThreads/boost_log")->Threads(4)->UseRealTime();
BENCHMARK(lines<BoostLog, What::NewFileEveryMebibyte>)
    ->Name("LogRotation/boost_log")
    ->UseRealTime();
BENCHMARK(lines<BoostLog, What::NothingPasses>)->Name("LogFiltered/boost_log");
#endif

} // namespace
