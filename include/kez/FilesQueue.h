// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "ConsumerAncestor.h"
#include "FileEntry.h"
#include "kez_global.h"

#include <QDir>
#include <QHash>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QPointer>
#include <QString>

#include <atomic>
#include <optional>
#include <utility>

class QFileSystemWatcher;
class QJsonArray;
class QTimer;

/// Turns a directory into a queue of work files that several consumers share.
///
/// Every regular, readable, writable and visible file of the directory becomes an entry at the tail
/// of the queue, in name order for files found together. A file that vanishes leaves the queue. A
/// file that every consumer has reported as consumed is deleted at the next re-scan, which comes
/// with the next change of the directory or the next tick of the timer, and never at the moment of
/// consumption. A queue sees a file as soon as it is visible: producers write under a hidden name
/// and rename.
///
/// The queue is built in one thread, moved to the thread of its choice, and started there through
/// onProcess(). A re-scan costs time linear in the number of files.
///
/// Without consumers nothing is ever deleted. A file whose name is not UTF-8 never enters.
///
/// *Threads*: the object's thread, but for appendConsumer(): any thread, while nobody asks for
/// index() or isConsumedFromAll(). Signals between the queue and its consumers cross threads by
/// themselves. A slot in another thread that a re-scan waits for (a blocking connection) may ask
/// for size(), fileIndex() and the like, and must not call appendConsumer(), onConsumed() or
/// onRequestForFiles() directly.
/// *Owns*: its entries, which are destroyed when they leave the queue; not its consumers.
/// *Fails*: the constructor, isConsumedFromAll() and initFilesQueue() throw Exception; onConsumed()
/// throws Exception or a pointer to one.
class KEZ_EXPORT FilesQueue : public QObject {
    Q_OBJECT

public:
    /// Neither watches nor scans yet; see onProcess().
    ///
    /// `keep`: whether the files that are there become entries, or are deleted.
    /// `interval`: milliseconds between periodic re-scans; 0 or less for none.
    ///
    /// Throws Exception when `path` is no readable and writable directory, or cannot be listed at
    /// the moment, or when two consumers have the same identifier.
    FilesQueue(const QString& path, QList<ConsumerEntry> consumerList, bool keep, int interval,
               QObject* parent = nullptr);

    /// Leaves the files on disk alone. The queue's thread must have ended, or be the calling one.
    ~FilesQueue() override;

    /// A queue without consumers as the objects of the array describe it, later ones overriding
    /// earlier ones: "path", "period" (milliseconds, 10000), "keep" (true). The caller owns it.
    ///
    /// Throws Exception: DirAccessFailure, IllegalParameter, PropertyNotFound (no "path"), and as
    /// the constructor does.
    static FilesQueue* initFilesQueue(const QJsonArray& description);

    QDir path() const;

    /// The number of entries.
    int size() const;

    /// The position of the first consumer with that identifier, or -1.
    int index(const QString& id) const;

    /// The position of the entry of that name, or -1.
    int fileIndex(const QString& fileName) const;

    /// The entry of that name, or null. It stays the queue's, and is gone after the re-scan that
    /// drops it.
    FileEntry* entryFromFileName(const QString& fileName) const;
    bool existsFileEntry(const QString& fileName) const;

    /// Throws Exception when the queue has no such file.
    bool isConsumedFromAll(const QString& fileName) const;

    /// Milliseconds between periodic re-scans; 0 or less for none. The name is spelled so.
    int scrutationIntervall() const;

    /// Takes effect at once on a running timer (0 or less stops it), and at the next
    /// enableScrutationMode() otherwise.
    void setScrutationIntervall(int interval);

    /// Starts the periodic re-scan; false when the interval is 0 or less.
    bool enableScrutationMode();
    void disableScrutationMode();

    /// Adds a consumer, for which every file of the queue is new. Null is ignored. A duplicate
    /// identifier is not refused: such a consumer never gets a file deleted, since its reports only
    /// count for the first of that name. A consumer added before onProcess() is connected twice.
    void appendConsumer(ConsumerAncestor* consumer);

public Q_SLOTS:
    /// Starts processing: connects the consumers, watches the directory, starts the timer. Must run
    /// once, in the queue's thread. Files that arrived since the queue was built are seen at the
    /// first change or tick.
    void onProcess();

    /// Asks the queue's thread to quit.
    void onQuit();

    /// Re-scans the directory.
    void onDirectoryChanged();

    /// Notes that the consumer has handled the file.
    ///
    /// Throws a POINTER to a new Exception, which the catcher deletes, for an unknown consumer, and
    /// an Exception for an unknown file. Callers rely on both forms.
    ///
    /// The exception reaches whoever delivered the call: the consumer that emits consumed() in the
    /// queue's thread, or, for a consumer in another thread, the event loop of the queue's, which
    /// ends the process unless QCoreApplication::notify() catches it.
    void onConsumed(const QString& id, const QString& fileName);

    /// Answers through filesNotConsumed().
    void onRequestForFiles(const QString& id);

Q_SIGNALS:
    /// After a re-scan that added files or lost some; consumed files are not reported. Emitted
    /// before the re-scan ends: an appendConsumer() in another thread waits until it has.
    void queueUpdated(const QList<QString>& appended, const QList<QString>& deleted);

    /// The files that a consumer has not consumed, in queue order; with `error`, one text that says
    /// why there are none. It goes to every connected object and does not name the consumer.
    void filesNotConsumed(const QList<QString>& files, bool error);

private:
    struct KEZ_HIDDEN Changes;
    class KEZ_HIDDEN Locker;
    class KEZ_HIDDEN Rescan;

    KEZ_HIDDEN QList<QString> filesNotConsumedBy(int consumer) const;
    KEZ_HIDDEN void appendEntry(FileEntry* entry);
    KEZ_HIDDEN void appendFile(const QString& name);
    KEZ_HIDDEN std::optional<Changes> rescan();
    KEZ_HIDDEN void connectConsumer(const ConsumerAncestor* consumer);

    QDir _path;
    int _scrutationInterval;
    QFileSystemWatcher* _watcher = nullptr;
    QTimer* _timer = nullptr;
    QList<ConsumerEntry> _consumers;
    QList<FileEntry*> _entries;
    QMutex _lock;

    std::atomic<Qt::HANDLE> _lockHolder = nullptr;
    QHash<QString, int> _positions; // of the entries, by file name

    QList<QPointer<ConsumerAncestor>> _living; // the consumers while they live, by position

    // What queueUpdated() has to tell: the files appended, the files deleted.
    QList<std::pair<QList<QString>, QList<QString>>> _unannounced;
};
