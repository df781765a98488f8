// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "outcome.h"
#include "service_global.h"

#include <QDateTime>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>

namespace KezService {

/// A file that a handler is given.
struct FileAtHand {
    QString path;
    QString name; ///< in the spool

    /// Drawn at random when the file entered the spool, and the same each time that the file is
    /// given to a handler, also after a restart, as long as the journal is kept. A handler that
    /// passes work on can tell by it that the work was passed on before. Two files never have the
    /// same one, even with the same name.
    QString key;
    int attempt = 1; ///< 1, and one more after each "retry"
};

/// Handles one file in place, in a thread of the runner. It neither deletes nor moves the file.
/// What it throws counts as "retry".
///
/// A file may be given to it again, if the process ended before its answer was remembered.
using Handler = std::function<Outcome(const FileAtHand& file)>;

/// How the files of one consumer are handled.
struct HandlerSettings {
    /// Files at once, each in a thread of its own. With 1, they come in queue order.
    int threads = 1;

    /// After so many attempts that ended with "retry", the file goes to quarantine; 0 for no limit.
    /// An attempt right after a restart does not count, since it comes before the pause is over;
    /// nor does one that fails while the file is out of reach.
    int attempts = 10;

    /// Before the next attempt. It doubles each time, up to `longestPause`. Each pause is up to a
    /// fifth longer or shorter, at random, so that files do not come back all at once.
    std::chrono::milliseconds firstPause = std::chrono::seconds(1);
    std::chrono::milliseconds longestPause = std::chrono::minutes(5);

    /// A handler that takes longer than this is reported in the log, once.
    std::chrono::milliseconds slowAfter = std::chrono::minutes(1);
};

/// What becomes of the files that are in the spool at the start.
enum class PresentFiles {
    Handle,
    Delete, ///< nobody handles them
};

/// What a runner works on.
struct RunnerSettings {
    QString spool = QString(); ///< the queue's directory, readable and writable

    /// Where files go that cannot be handled. An existing directory, also of another file system,
    /// but not the spool itself. Empty: ".kez/quarantine" in the spool, which is made.
    QString quarantine = QString();

    /// Between two looks at the spool, besides those that its changes cause; 0 for none.
    std::chrono::milliseconds period = std::chrono::seconds(10);

    PresentFiles present = PresentFiles::Handle;

    /// Whether a restart remembers what was done. Without it every file that is there is handled
    /// again by every consumer, and a file that ends the process ends it at each start.
    bool journal = true;
};

/// How far one consumer is.
struct ConsumerProgress {
    QString id;
    qint64 done = 0;        ///< since the start
    qint64 quarantined = 0; ///< since the start
    qint64 waiting = 0;     ///< for their turn
    qint64 running = 0;
    qint64 retrying = 0;   ///< that wait for their next attempt
    QString oldest;        ///< of those not yet done: the name of the first in queue order
    QDateTime oldestSince; ///< when that one came into the spool
};

struct RunnerProgress {
    /// That of one consumer; without identifier and with zeros if there is no such consumer.
    ConsumerProgress consumer(const QString& id) const
    {
        for (const ConsumerProgress& each : consumers) {
            if (each.id == id)
                return each;
        }
        return {};
    }

    QList<ConsumerProgress> consumers; ///< in the order in which they were added
    qint64 files = 0;                  ///< in the spool, not yet done for every consumer

    /// Visible files in the spool that nobody gets: the process may not read and write them, or
    /// their names are not UTF-8. Looked for once a minute; 1000 stands for more.
    qint64 strays = 0;
};

/// A handler that did not end before the limit of stop().
struct LeftHandler {
    QString consumer;
    QString name; ///< of the file that it was given
};

/// What stop() left.
struct StopReport {
    bool isClean() const { return left.isEmpty(); }

    QList<LeftHandler> left;
    qint64 waiting = 0; ///< files that come again at the next start
};

/// Runs handlers over the files of a spool directory: one handler per consumer, each in threads of
/// its own. A file is deleted once every consumer is done with it.
///
///     FileRunner runner({.spool = "/var/spool/orders"});
///     runner.addConsumer("ledger", [](const FileAtHand& file) {
///         return book(file.path) ? Outcome::done() : Outcome::retry("the ledger is locked");
///     });
///     runner.start();
///
/// - "retry", or an exception: the file comes again after a pause. It holds up no other file.
/// - "reject", or too many attempts: a hard link or a copy of the file goes to quarantine, with a
///   text beside it, and the file is done for this consumer.
/// - A file at which the process itself dies: at the next start it is handled before the others
///   and alone; if the process dies again, the file is quarantined at the start after that.
///
/// Each file is handled at least once by each consumer. After the death of the process, the files
/// that were being handled come again; the others do not, thanks to a journal. A file whose content
/// changes before all are done is handled again by all.
///
/// While the spool is out of reach (removed, not mounted, rights missing), no further handler
/// begins. The log says so once. When the spool is back, its files go on from where they were.
/// Another directory in its place is left alone.
///
/// Lock, journal, status and quarantine are in the subdirectory ".kez" of the spool. One spool is
/// for one runner: a second one, in this process or another, is refused. The file "status.json"
/// there shows the progress, at most two seconds old while something happens.
///
/// *Threads*: the object's thread; handlers run in threads of the runner, the queue in another one.
/// Signals are emitted in the queue's thread: connect them with a receiver. What a slot throws
/// there is logged. *Owns*: the queue, the threads, the handlers. A handler that did not end in
/// time is left behind by stop(): it is destroyed when it ends, and until then it holds the lock on
/// the spool. *Fails*: addConsumer() and start() throw Exception. So do pause() and stop() in the
/// queue's thread, which cannot wait for itself. Afterwards failures are lines in the log.
class KEZ_SERVICE_EXPORT FileRunner : public QObject {
    Q_OBJECT

public:
    explicit FileRunner(const RunnerSettings& settings, QObject* parent = nullptr);

    /// Stops, with a limit of 10 seconds.
    ~FileRunner() override;

    /// `id` is unique; the journal knows the consumer by it. Only before start().
    ///
    /// Throws Exception if the identifier is empty or taken, if there is no handler, or if a number
    /// of the settings is out of range.
    void addConsumer(const QString& id, Handler handler, const HandlerSettings& settings = {});

    /// Begins. Once it returns, the files that are there are known.
    ///
    /// Throws Exception if there is no consumer, if the spool or the quarantine cannot be used, if
    /// another runner works on the spool, or if no thread can be started. It can then be called
    /// again.
    void start();

    bool isRunning() const;
    bool isPaused() const;

    /// What was last announced by progressed(); in a pause, what is true then.
    RunnerProgress progress() const;

    /// Lets the handlers at work end, and starts no other. True once nothing of the runner runs,
    /// its queue included: texts and languages can then be changed. False if that took longer than
    /// `limit`; the runner then goes on as before.
    bool pause(std::chrono::milliseconds limit);
    void resume();

    /// Lets the handlers at work end, within `limit`, and ends the runner. Files that are done for
    /// all are then deleted. It cannot be started again.
    StopReport stop(std::chrono::milliseconds limit);

Q_SIGNALS:
    /// At most ten times a second, while something changes.
    void progressed(const KezService::RunnerProgress& progress);

    /// A consumer's file went to quarantine, under the name `nameThere`.
    void quarantined(const QString& consumer, const QString& name, const QString& nameThere);

private:
    friend class PausedRunner;
    class KEZ_HIDDEN QueueThread;

    KEZ_HIDDEN StopReport end(std::chrono::milliseconds limit);

    struct KEZ_HIDDEN Private;
    std::unique_ptr<Private> _d;
};

/// Pauses a runner until the end of the scope.
///
///     const PausedRunner paused(runner, std::chrono::seconds(10));
///     translator->setDefaultLang("fr_FR");
///
/// A runner that was paused before, by another object or by pause(), stays so at the end.
///
/// *Threads*: that of the runner, which outlives it.
/// *Owns*: the pause.
/// *Fails*: the constructor throws Exception if the runner cannot be paused within `limit`.
class KEZ_SERVICE_EXPORT PausedRunner {
public:
    PausedRunner(FileRunner& runner, std::chrono::milliseconds limit);
    PausedRunner(const PausedRunner&) = delete;
    PausedRunner& operator=(const PausedRunner&) = delete;
    ~PausedRunner();

private:
    FileRunner& _runner;
    const bool _wasPaused;
};

} // namespace KezService
