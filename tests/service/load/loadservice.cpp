// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// The service that tst_load.cpp kills. Files come through a gate from DIRECTORY/incoming into
// DIRECTORY/spool, where three consumers handle them. They check that each file is whole, note what
// they do in RECORD, and sometimes fail.
//
//     loadservice DIRECTORY RECORD LOG SEED

#include "loadfile.h"
#include "loadrecord.h"

#include <kez/exception.h>
#include <kez/log.h>
#include <kez/service/arrivalgate.h>
#include <kez/service/filerunner.h>

#include <QCoreApplication>
#include <QFile>
#include <QSocketNotifier>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

using namespace KezService;
using namespace std::chrono_literals;

namespace {

using Event = LoadRecord::Event;

/// Appends to the record. Any thread may use it.
class Recorder {
public:
    explicit Recorder(const QString& path)
        : _file(::open(QFile::encodeName(path).constData(), // NOLINT(*-vararg)
                       O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666))
    {
        if (_file < 0)
            throw std::system_error(errno, std::generic_category(), "record");
    }

    void note(Event event, const QString& consumer, const FileAtHand& file) const
    {
        const LoadRecord record{event, consumer.toUtf8(), file.name.toUtf8(), file.key.toUtf8()};
        const QByteArray line = record.line();
        if (::write(_file, line.constData(), static_cast<size_t>(line.size())) != line.size())
            qFatal("the record cannot be written");
    }

private:
    const int _file;
};

/// Ways to fail, at the first attempt only.
Outcome fail(uint way)
{
    switch (way % 4) {
    case 0:
        throw Exception("thrown by the handler");
    case 1:
        throw std::runtime_error("thrown by the handler, too");
    case 2:
        throw 4711;
    default:
        return Outcome::retry("not at the moment");
    }
}

/// One of the three consumers.
class Consumer {
public:
    Consumer(const QString& id, const char* special, std::chrono::milliseconds work, uint seed,
             const Recorder& recorder)
        : _id(id), _special(special), _work(work), _seed(seed), _recorder(recorder)
    {}

    Outcome operator()(const FileAtHand& file) const
    {
        _recorder.note(Event::Begun, _id, file);
        QFile device(file.path);
        const bool isOpen = device.open(QIODevice::ReadOnly);
        if (!isOpen || !isWholeFile(device.readAll(), file.name.toUtf8())) {
            _recorder.note(Event::Partial, _id, file);
            return Outcome::reject("not whole");
        }
        std::this_thread::sleep_for(_work);
        if (file.name.startsWith(QLatin1String(_special)))
            return handleSpecial(file);
        const size_t draw = qHash(_id + file.name, _seed);
        if (file.attempt == 1 && draw % 100 == 0) {
            _recorder.note(Event::Failed, _id, file);
            return fail(static_cast<uint>(draw / 100));
        }
        _recorder.note(Event::Done, _id, file);
        std::this_thread::sleep_for(_work); // a death here, and it is done again
        return Outcome::done();
    }

private:
    Outcome handleSpecial(const FileAtHand& file) const
    {
        if (_special == QByteArrayView(LoadFile::Deadly))
            std::abort();
        if (_special == QByteArrayView(LoadFile::Stubborn)) {
            _recorder.note(Event::Failed, _id, file);
            return Outcome::retry(LoadFile::StubbornReason);
        }
        _recorder.note(Event::Rejected, _id, file);
        return Outcome::reject(LoadFile::RejectReason);
    }

    const QString _id;
    const char* const _special; ///< the beginning of the names of its special files
    const std::chrono::milliseconds _work;
    const uint _seed;
    const Recorder& _recorder;
};

HandlerSettings settingsFor(int threads)
{
    HandlerSettings settings;
    settings.threads = threads;
    settings.attempts = 5;
    settings.firstPause = 20ms;
    settings.longestPause = 100ms;
    return settings;
}

/// Readable once somebody asks the process to stop.
int stopSignals()
{
    sigset_t stopping;
    sigemptyset(&stopping);
    sigaddset(&stopping, SIGTERM);
    sigprocmask(SIG_BLOCK, &stopping, nullptr);
    return signalfd(-1, &stopping, SFD_CLOEXEC);
}

int serve(QCoreApplication& application)
{
    const QStringList arguments = application.arguments();
    if (arguments.size() != 5)
        throw std::invalid_argument("loadservice DIRECTORY RECORD LOG SEED");
    const QString directory = arguments[1];
    const Recorder recorder(arguments[2]);
    Log::initInstance(arguments[3], false, quint64{1} << 30, 10, 7, LoggerLevel::info);
    const uint seed = arguments[4].toUInt();

    RunnerSettings settings;
    settings.spool = directory + "/spool";
    FileRunner runner(settings);
    runner.addConsumer("ledger", Consumer("ledger", LoadFile::Rejected, 1ms, seed, recorder),
                       settingsFor(1));
    runner.addConsumer("archive", Consumer("archive", LoadFile::Stubborn, 2ms, seed, recorder),
                       settingsFor(2));
    runner.addConsumer("index", Consumer("index", LoadFile::Deadly, 4ms, seed, recorder),
                       settingsFor(3));
    runner.start();

    ArrivalGate::Settings gateSettings;
    gateSettings.incoming = directory + "/incoming";
    gateSettings.queueDirectory = settings.spool;
    gateSettings.quietPeriod = 100ms;
    gateSettings.firstPause = 100ms;
    gateSettings.longestPause = 500ms;
    ArrivalGate gate(gateSettings);
    gate.start();

    QCoreApplication::exec();
    gate.stop();
    const StopReport report = runner.stop(30s);
    return report.isClean() && report.waiting == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char* argv[])
try {
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    const int signalDescriptor = stopSignals(); // before there are threads
    QCoreApplication application(argc, argv);
    QSocketNotifier stop(signalDescriptor, QSocketNotifier::Read);
    QObject::connect(&stop, &QSocketNotifier::activated, &application, &QCoreApplication::quit);
    return serve(application);
} catch (const Exception& failure) {
    qCritical("%ls", qUtf16Printable(failure.detail()));
    return 1;
} catch (const std::exception& failure) {
    qCritical("%s", failure.what());
    return 1;
}
