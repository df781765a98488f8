// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/service/filerunner.h"
#include "service/workplace_p.h"

#include <QHash>
#include <QString>
#include <QStringList>

#include <map>
#include <memory>
#include <vector>

namespace KezService {

/// The files that not all consumers are done with, and how far each consumer is with each of them.
///
/// *Threads*: one thread.
/// *Owns*: its view of the files; workers may still hold a file that it has dropped.
/// *Fails*: never.
class RunnerFiles {
public:
    using FilePointer = std::shared_ptr<QueuedFile>;

    explicit RunnerFiles(const QStringList& consumers);

    /// Makes room for so many files.
    void reserve(qsizetype files);

    /// Null if there is no file of that name.
    FilePointer find(const QString& name) const;
    QStringList names() const;

    /// A new file; it replaces the one of the same name. The journal knows which consumers are done
    /// with it. If all are, nobody's work is to end, and the caller drops it.
    FilePointer enter(const Journal::Entry& entry);

    /// Nobody needs to handle the file any more.
    void drop(const FilePointer& file);

    /// The consumer's work on a file that is here waits for the next attempt; goes on; is done.
    /// settle() is true for the last consumer.
    void pause(int consumer, const QueuedFile& file);
    void resume(int consumer, const QueuedFile& file);
    bool settle(int consumer, const QueuedFile& file);

    void countDone(int consumer);
    void countQuarantined(int consumer);

    /// `running`: by consumer, the handlers at work.
    RunnerProgress progress(const std::vector<qint64>& running);

private:
    enum class Stage { Ready, Paused, Settled };

    struct Held {
        FilePointer file;
        std::vector<Stage> stages; // by consumer
        qsizetype unsettled = 0;   // consumers that are not done
    };

    struct Consumer {
        QString id;
        qint64 done = 0;
        qint64 quarantined = 0;
        qint64 unsettled = 0;
        qint64 paused = 0;
        quint64 oldest = 0; // no file before this number is unsettled
    };

    Consumer& at(int consumer);
    Stage& stageOf(int consumer, const QueuedFile& file);
    ConsumerProgress progressOf(size_t consumer, qint64 running);

    QHash<QString, FilePointer> _byName;
    std::map<quint64, Held> _held; // by number: in queue order
    std::vector<Consumer> _consumers;
};

} // namespace KezService
