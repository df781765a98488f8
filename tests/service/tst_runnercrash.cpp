// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "runnerfixture.h"
#include "support/childprocess.h"
#include "support/tracelog.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QSet>
#include <QtTest>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <memory>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <utility>

using namespace KezService;
using namespace std::chrono_literals;

namespace {

const QString Poison = "order-000007";
constexpr int SteadyThreads = 3;

/// One call of a handler, as a child has written it down.
struct Call {
    int run = 0;
    QString consumer;
    QString name;
    QString key;
    int attempt = 0;
    bool hasEnded = false;
};

/// The calls of all children so far, in the order of their beginning.
QList<Call> callsIn(const QString& path)
{
    QList<Call> calls;
    for (const QByteArray& line : readFile(path).split('\n')) {
        const QList<QByteArray> fields = line.split(' ');
        if (fields.size() != 6)
            continue;
        const Call call{fields[1].toInt(), fields[2], fields[3], fields[4], fields[5].toInt()};
        if (fields[0] == "begin") {
            calls.append(call);
            continue;
        }
        for (Call& begun : calls) {
            if (begun.run == call.run && begun.consumer == call.consumer &&
                begun.name == call.name && begun.attempt == call.attempt)
                begun.hasEnded = true;
        }
    }
    return calls;
}

std::unique_ptr<QProcess> startChild(const Spool& spool, const QString& way, int run)
{
    auto process = std::make_unique<QProcess>();
    process->setStandardErrorFile(QProcess::nullDevice());
    process->start(QCoreApplication::applicationFilePath(),
                   {"--child", spool.path(), spool.beside("calls"), way, QString::number(run)});
    return process;
}

/// Whether the child has handled all files; otherwise the process died.
bool runToItsEnd(const Spool& spool, const QString& way, int run)
{
    const std::unique_ptr<QProcess> process = startChild(spool, way, run);
    return process->waitForFinished(60000) && process->exitStatus() == QProcess::NormalExit &&
           process->exitCode() == 0;
}

/// Fails if a file had two keys, or two files had one.
bool areKeysStable(const QList<Call>& calls)
{
    QHash<QString, QString> keys;
    for (const Call& call : calls) {
        if (keys.value(call.name, call.key) != call.key)
            return false;
        keys.insert(call.name, call.key);
    }
    const QList<QString> all = keys.values();
    return QSet<QString>(all.begin(), all.end()).size() == all.size();
}

} // namespace

class TestRunnerCrash : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void poisonIsQuarantinedAtTheThirdStart_data();
    void poisonIsQuarantinedAtTheThirdStart();
    void withoutAJournalNothingIsRemembered();
    void killsRepeatOnlyWhatWasAtWork();
};

void TestRunnerCrash::poisonIsQuarantinedAtTheThirdStart_data()
{
    QTest::addColumn<QString>("way");
    for (const char* const way : {"abort", "kill", "exit", "throw"})
        QTest::newRow(way) << QString(way);
}

void TestRunnerCrash::poisonIsQuarantinedAtTheThirdStart()
{
    QFETCH(const QString, way);
    constexpr int Files = 20;
    const Spool spool;
    QVERIFY(spool.putMany(Files));
    QVERIFY(!runToItsEnd(spool, way, 1));
    QCOMPARE(spool.quarantined(), QStringList());
    QVERIFY(!runToItsEnd(spool, way, 2));
    QCOMPARE(spool.quarantined(), QStringList());
    QVERIFY(runToItsEnd(spool, way, 3));
    QCOMPARE(spool.names(), QStringList());

    // Only this file, and only for the consumer whose handler ends the process.
    QCOMPARE(spool.quarantined(), QStringList{Poison});
    const QByteArray text = spool.quarantineText(Poison);
    QVERIFY2(text.contains("\nconsumer=fragile\n") && text.contains("\ntries=2\n"), text);
    QCOMPARE(readFile(spool.pathOf(".kez/quarantine/" + Poison)), QByteArray("order"));

    const QList<Call> calls = callsIn(spool.beside("calls"));
    QVERIFY(areKeysStable(calls));
    std::map<std::pair<QString, QString>, int> ended;
    std::map<int, QStringList> poisoned; // consumers that were given the poison, by run
    for (const Call& call : calls) {
        ended[{call.consumer, call.name}] += call.hasEnded ? 1 : 0;
        if (call.name == Poison)
            poisoned[call.run].append(call.consumer);
    }
    QCOMPARE(ended.size(), size_t(2 * Files));
    for (const auto& [what, count] : ended) {
        const bool isPoison = what.first == "fragile" && what.second == Poison;
        QVERIFY2(isPoison ? count == 0 : count >= 1, qPrintable(what.first + what.second));
    }
    QVERIFY(poisoned[1].contains("fragile") && poisoned[2].contains("fragile"));
    QVERIFY(!poisoned[3].contains("fragile"));
    // The second time it was alone: nothing else was interrupted.
    for (const Call& call : calls)
        QVERIFY2(call.hasEnded || call.run != 2 || call.name == Poison, qPrintable(call.name));
    // What had ended was not done again, with the exception of what ended in the last moment.
    for (const QString consumer : {"fragile", "steady"}) {
        int repeated = 0;
        for (const auto& [what, count] : ended)
            repeated += what.first == consumer ? std::max(count - 1, 0) : 0;
        QVERIFY2(repeated <= 2 * SteadyThreads, QByteArray::number(repeated));
    }
}

void TestRunnerCrash::withoutAJournalNothingIsRemembered()
{
    const Spool spool;
    QVERIFY(spool.putMany(8));
    for (int run = 1; run <= 4; ++run)
        QVERIFY(!runToItsEnd(spool, "abort without a journal", run));
    QCOMPARE(spool.quarantined(), QStringList());
    QVERIFY(spool.holds(Poison));
    QVERIFY(!QFile::exists(spool.pathOf(".kez/journal")));
}

void TestRunnerCrash::killsRepeatOnlyWhatWasAtWork()
{
    constexpr int Kills = 40;
    const Spool spool;
    int files = 0;
    const auto put = [&spool, &files](int count) {
        for (const int end = files + count; files < end; ++files)
            spool.put(QStringLiteral("file-%1").arg(files, 6, 10, QLatin1Char('0')));
    };
    auto* const random = QRandomGenerator::global();
    for (int run = 1; run <= Kills; ++run) {
        put(30);
        const std::unique_ptr<QProcess> process = startChild(spool, "alive", run);
        QVERIFY(process->waitForStarted(30000));
        if (random->bounded(8) != 0) // otherwise perhaps in the middle of the start
            QVERIFY(process->waitForReadyRead(30000));
        ::usleep(useconds_t(random->bounded(40000)));
        process->kill();
        QVERIFY(process->waitForFinished(30000));
    }
    QVERIFY(runToItsEnd(spool, "finish", Kills + 1));
    QCOMPARE(spool.names(), QStringList());
    QCOMPARE(QDir(spool.pathOf(".kez")).entryList({"journal.aside*"}), QStringList());

    const QList<Call> calls = callsIn(spool.beside("calls"));
    QVERIFY(areKeysStable(calls));
    std::map<std::pair<QString, QString>, QList<Call>> byFile;
    for (const Call& call : calls)
        byFile[{call.consumer, call.name}].append(call);
    const QStringList quarantined = spool.quarantined();
    QCOMPARE(byFile.size(), size_t(2 * files));
    std::map<std::pair<QString, int>, int> repeated; // by consumer and run
    for (const auto& [what, some] : byFile) {
        // A file during which the process was killed twice, the second time when it was handled
        // alone, counts as the cause; also if it was killed before the handler could say so.
        QVERIFY2(some.last().hasEnded || quarantined.contains(what.second),
                 qPrintable(what.first + what.second));
        for (const Call& call : some) {
            QCOMPARE(call.attempt, 1);
            repeated[{what.first, call.run}] += call.run != some.last().run ? 1 : 0;
        }
    }
    for (const auto& [where, count] : repeated) {
        const int threads = where.first == "steady" ? SteadyThreads : 1;
        QVERIFY2(count <= threads,
                 QByteArray::number(where.second) + ' ' + QByteArray::number(count));
    }
    for (const QString& name : quarantined) {
        const QByteArray text = spool.quarantineText(name);
        QVERIFY2(text.contains("\ntries=2\n"), text);
    }
}

namespace {

[[noreturn]] void die(const QString& way)
{
    if (way == "kill")
        ::raise(SIGKILL);
    if (way == "exit")
        ::_exit(7);
    if (way == "throw")
        std::thread([] { throw 1; }).join(); // ends the process
    std::abort();
}

/// Notes the begin and the end of each call, each with one write.
class Notebook {
public:
    Notebook(const QString& path, const QString& run)
        : _file(::open(QFile::encodeName(path).constData(),
                       O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)),
          _run(run.toUtf8())
    {}

    void note(const char* what, const char* consumer, const FileAtHand& file) const
    {
        const QByteArray line = QByteArray(what) + ' ' + _run + ' ' + consumer + ' ' +
                                file.name.toUtf8() + ' ' + file.key.toUtf8() + ' ' +
                                QByteArray::number(file.attempt) + '\n';
        if (::write(_file, line.constData(), size_t(line.size())) != line.size())
            ::_exit(8);
    }

private:
    const int _file;
    const QByteArray _run;
};

int childMain(const QStringList& arguments)
{
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    int argc = 1;
    char program[] = "child";
    char* argv[] = {program, nullptr};
    const QCoreApplication application(argc, argv);
    const TraceLog log(LoggerLevel::fatal);
    const QString way = arguments.at(2);
    const Notebook notebook(arguments.at(1), arguments.at(3));

    RunnerSettings settings;
    settings.spool = arguments.at(0);
    settings.journal = !way.endsWith("without a journal");
    FileRunner runner(settings);
    runner.addConsumer("fragile", [&](const FileAtHand& file) {
        notebook.note("begin", "fragile", file);
        if (file.name == Poison)
            die(way);
        std::this_thread::sleep_for(500us);
        notebook.note("end", "fragile", file);
        return Outcome::done();
    });
    HandlerSettings several;
    several.threads = SteadyThreads;
    runner.addConsumer(
        "steady",
        [&](const FileAtHand& file) {
            notebook.note("begin", "steady", file);
            std::this_thread::sleep_for(1ms);
            notebook.note("end", "steady", file);
            return Outcome::done();
        },
        several);
    runner.start();
    std::puts("started");
    std::fflush(stdout);
    QElapsedTimer time;
    time.start();
    while (way == "alive" || runner.progress().files > 0) {
        if (time.elapsed() > 50000)
            return 1;
        QTest::qWait(2);
    }
    return runner.stop(10s).isClean() ? 0 : 1;
}

} // namespace

KEZ_TEST_MAIN_WITH_CHILDREN(TestRunnerCrash, childMain)
#include "tst_runnercrash.moc"
