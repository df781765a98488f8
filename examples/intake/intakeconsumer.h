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

/// What the two consumers have in common: asking the queue, taking one file at a time, reporting
/// it.
///
/// A consumer lives in the queue's thread, which makes the exchange with the queue direct:
/// - A request is answered before it returns. The answer goes to every consumer and names none; the
///   one that is just asking takes it.
/// - What the queue throws at a report (an Exception for a file that somebody removed meanwhile, a
///   pointer to one for a consumer that it does not know) comes back to the reporting code, which
///   catches and logs it. Nothing is thrown into an event loop.
/// Between two files the thread returns to its event loop: re-scans, a language switch and the end
/// of the service wait for one file at most.
///
/// *Threads*: the queue's thread.
/// *Owns*: the list of files it has still to handle.
/// *Fails*: never; failures are logged.
class IntakeConsumer : public ConsumerAncestor {
    Q_OBJECT

public:
    IntakeConsumer(const QString& id, const QString& spool, QObject* parent = nullptr);

    /// Connects this consumer, which the queue was built with, to what the queue tells. Both live
    /// in the same thread.
    void listenTo(const FilesQueue& queue);

public Q_SLOTS:
    /// Asks for files, unless some are still at hand.
    void ask();

Q_SIGNALS:
    /// Some file waits to be handled, once the event loop has had its turn.
    void fileAtHand();

protected:
    /// Handles one file: `path` is where it lies, `name` how the queue calls it. May get a file
    /// again that it has handled before a crash. What it throws is logged, and the file, still the
    /// queue's, is tried again after a pause.
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
