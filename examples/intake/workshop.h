// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "archiveconsumer.h"
#include "ledgerconsumer.h"
#include "settings.h"

#include <kez/FilesQueue.h>

#include <QObject>
#include <QThread>

namespace intake {

/// The queue and its consumers at work, in the worker thread.
///
/// *Threads*: the object's thread.
/// *Owns*: the queue and the consumers.
/// *Fails*: the constructor throws Exception.
class Workshop : public QObject {
    Q_OBJECT

public:
    explicit Workshop(const Settings& settings);
    ~Workshop() override;

    void start();

public Q_SLOTS:
    /// Switches every text of the process to `lang`. Call it while no other thread reads texts.
    void switchLanguage(const QString& lang);

    /// Ends the thread once the file at hand is handled.
    void stop();

private:
    ArchiveConsumer _archive;
    LedgerConsumer _ledger;
    FilesQueue _queue; // last: its consumers outlive it
};

/// The thread in which a workshop is built, works and is destroyed.
///
/// *Threads*: the thread that made this object, after ready() was emitted.
/// *Owns*: the workshop, while it runs.
/// *Fails*: never; after the thread has ended, failure() holds the text.
class WorkerThread : public QThread {
    Q_OBJECT

public:
    explicit WorkerThread(Settings settings, QObject* parent = nullptr);

    /// Why the workshop could not work; empty if it could. Read it after the thread has ended.
    QString failure() const;

    /// Switches the language of the whole process. The translator has no lock, so the texts are
    /// exchanged in the worker thread between two files, while the calling thread waits and nobody
    /// reads them.
    void switchLanguage(const QString& lang);

    void stop();

Q_SIGNALS:
    /// The queue is at work.
    void ready();

    void languageWanted(const QString& lang);
    void stopWanted();

protected:
    void run() override;

private:
    Settings _settings;
    QString _failure;
};

} // namespace intake
