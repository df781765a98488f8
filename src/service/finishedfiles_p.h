// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/filestamp_p.h"

#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <chrono>
#include <optional>
#include <vector>

class ConsumerAncestor;
class FilesQueue;

namespace KezService {

class Journal;
class SpoolAccess;
struct QueuedFile;

/// Has the queue delete the files that all consumers are done with.
///
/// Such a file is in one of three states:
/// - handed over: the queue was told, and deletes it at its next re-scan;
/// - kept back: the queue could not delete it, or its place in the spool was out of reach; it is
///   handed over after a pause;
/// - deleted: the journal has forgotten it, and it is known here no more.
///
/// A file that has changed since the handlers saw it is not handed over: the caller has it handled
/// again.
///
/// *Threads*: the object's thread, which is that of the queue.
/// *Owns*: what it knows of these files.
/// *Fails*: never: the log says once per file that it cannot be deleted.
class FinishedFiles : public QObject {
    Q_OBJECT

public:
    using Clock = std::chrono::steady_clock;

    /// `agent` is the queue's only consumer. `listingTime`: what a re-scan takes, for the first
    /// one.
    FinishedFiles(ConsumerAncestor& agent, FilesQueue& queue, Journal& journal,
                  const SpoolAccess& spool, Clock::duration listingTime);

    /// Makes room for so many files.
    void reserve(qsizetype files);

    /// False if the file has changed.
    bool handOver(const QueuedFile& file);

    /// The same for the files that were kept back, if their pause is over. Returns the names of
    /// those that have changed.
    QStringList handOverDue();

    /// The same for all that were handed over before.
    QStringList handOverAgain();

    /// Whether the queue offers a file that it could not delete. It is kept back then.
    bool keepIfOfferedAgain(const QString& name, const FileStamp& stamp);

    /// The file has left the queue; `found` is there now. Returns the numbers of the files that are
    /// known here no more.
    std::vector<quint64> lose(const QString& name, const std::optional<FileStamp>& found);

    /// Whether a file of that name is waiting to be deleted.
    bool isKnown(const QString& name) const;

    /// Has the queue delete what it was given, soon or at once.
    void scheduleRescan();
    void rescan();

private:
    struct Finished {
        quint64 number = 0;
        FileStamp stamp;
        int failures = 0;         // attempts to delete it
        Clock::time_point next{}; // when to hand it over, if it is kept back
    };

    bool handOver(const QString& name, Finished file, std::optional<FileStamp> found);
    QStringList handOverAll(const QHash<QString, Finished>& files);
    void report(const QString& name, const Finished& file);
    void keepBack(const QString& name, Finished file);
    void postpone(const QString& name, Finished file);

    ConsumerAncestor& _agent;
    FilesQueue& _queue;
    Journal& _journal;
    const SpoolAccess& _spool;
    QHash<QString, Finished> _handedOver;
    QHash<QString, Finished> _keptBack;
    Clock::duration _rescanTime;
    QTimer _rescanTimer;
};

} // namespace KezService
