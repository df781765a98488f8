// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <kez/ConsumerAncestor.h>

#include <QDir>
#include <QList>
#include <QSet>
#include <QString>
#include <QTimer>

class FilesQueue;

namespace intake {

/// What the two consumers share: they ask the queue, take one file at a time, and report it.
///
/// A consumer lives in the queue's thread, so that they call each other directly:
/// - A request is answered before it returns. The answer goes to every consumer and names none of
///   them; the one that is asking takes it.
/// - What the queue throws at a report comes back to the reporting code, which catches and logs it:
///   an Exception for a file that somebody has removed, a pointer to one for an unknown consumer.
///   It never reaches an event loop.
/// Between two files the thread returns to its event loop. So re-scans, a language switch and the
/// end of the service wait for one file at most.
///
/// *Threads*: the queue's thread.
/// *Owns*: the list of the files that it still has to handle.
/// *Fails*: never; failures are logged.
class IntakeConsumer : public ConsumerAncestor {
    Q_OBJECT

public:
    IntakeConsumer(const QString& id, const QString& spool, QObject* parent = nullptr);

    /// Connects this consumer to the queue, which was built with it. Both live in the same thread.
    void listenTo(const FilesQueue& queue);

public Q_SLOTS:
    /// Asks for files. If some are still to be handled, it asks after them.
    void ask();

Q_SIGNALS:
    /// There is a file to handle, after the event loop has had its turn.
    void fileAtHand();

protected:
    /// Handles one file: `path` is where it is, `name` is its name in the queue. After a crash, a
    /// file that was already handled may come again. What this function throws is logged; the file
    /// stays in the queue and is tried again after a pause.
    virtual void handle(const QString& path, const QString& name) = 0;

private:
    void retry();
    void onFilesNotConsumed(const QList<QString>& files, bool error);
    void handleNext();
    void report(const QString& name);
    void putOff(const QString& name, const QString& reason);

    QDir _spool;
    QList<QString> _files;
    QSet<QString> _complained; // names of the files that failed and are tried again
    QSet<QString> _putOff;     // those of them that wait for the next try
    QTimer _retry{this};
    bool _isAsking = false;
    bool _hasArrivals = false;
};

} // namespace intake
