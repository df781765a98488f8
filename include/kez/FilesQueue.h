// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "ConsumerAncestor.h"
#include "FileEntry.h"
#include "kez_global.h"

#include <QDir>
#include <QHash> // not used here any more, but programs may rely on it; so with <vector>
#include <QList>
#include <QMutex>
#include <QObject>
#include <QPointer>
#include <QString>

#include <atomic>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

class ListedFileIdentity;
class OpenQueueDirectory;
class QFileSystemWatcher;
class QJsonArray;
class QTimer;
class QueueIndex;
class RescanPace;

/// Turns a directory into a queue of work files that several consumers share.
///
/// Every regular, readable, writable and visible file of the directory becomes an entry at the tail
/// of the queue, in name order for files found together. A file that vanishes leaves the queue. A
/// file that every consumer has reported as consumed is deleted at the next re-scan, never at the
/// moment of the report. The next re-scan comes with the next change of the directory or the next
/// tick of the timer. A queue sees a file as soon as it is visible: producers write under a hidden
/// name and rename.
///
/// A queue deletes only the file that it listed. If another file has the name of a consumed one, it
/// stays and enters the queue as a new file. A file that is replaced before every consumer has
/// reported it stays the same entry. New content that is written into a consumed file in place does
/// not make it another file: it is deleted. A file system that keeps no times of birth does not
/// always tell a new file from the one before.
///
/// What consumers have reported is kept in memory only: a process that ends before the re-scan gets
/// these files again. So it does if a consumed file cannot be deleted: the file enters as a new
/// one.
///
/// The queue is built in one thread, moved to another thread, and started there through
/// onProcess(). A re-scan costs time linear in the number of files. The first change after a quiet
/// moment is scanned at once. A change that comes soon after a re-scan waits until three times the
/// duration of that re-scan has passed (a minute at most; the slots of queueUpdated() do not
/// count), and the next re-scan covers all the changes until then. The timer and calls of
/// onDirectoryChanged() do not wait. A change that waits when the queue's thread ends is left to
/// the next change or tick, as are those that come later.
///
/// Consumers belong in the queue's thread, for two reasons. Every answer to a request reaches every
/// consumer, and a consumer knows its own only because the answer comes during its request. If a
/// file has vanished from the queue, its report throws. In the queue's thread the exception reaches
/// the consumer. From another thread it reaches the queue's event loop, which ends the process.
///
/// Without consumers no re-scan deletes anything. A file whose name is not UTF-8 never enters.
///
/// *Threads*: the object's thread, except appendConsumer(): any thread, while nothing else asks
/// for index() or isConsumedFromAll(). Signals between the queue and its consumers also work
/// between threads. A slot in another thread that a re-scan waits for (a blocking connection) may
/// ask for size(), fileIndex() and the like, and must not call appendConsumer(), onConsumed() or
/// onRequestForFiles() directly.
/// *Owns*: its entries, which are destroyed when they leave the queue; not its consumers.
/// *Fails*: the constructor, isConsumedFromAll() and initFilesQueue() throw Exception; onConsumed()
/// throws Exception or a pointer to one. A trace that cannot be written is a line on Qt's message
/// output, and changes nothing else.
class KEZ_EXPORT FilesQueue : public QObject {
    Q_OBJECT

public:
    /// Does not watch the directory yet; see onProcess().
    ///
    /// `path`: read as Qt reads paths (":a" is a resource, "./:a" a directory). A relative path or
    /// one with a search prefix is resolved here, once: the queue stays with that directory.
    /// `keep`: true if the files that are there become entries, false if they are deleted.
    /// `interval`: milliseconds between periodic re-scans; 0 or less for none.
    ///
    /// Throws Exception if `path` is not a readable and writable directory, if it cannot be listed
    /// at the moment, or if two consumers have the same identifier.
    FilesQueue(const QString& path, QList<ConsumerEntry> consumerList, bool keep, int interval,
               QObject* parent = nullptr);

    /// Leaves the files on disk alone. The queue's thread must have ended, or be the calling one.
    ~FilesQueue() override;

    /// A queue without consumers as the objects of the array describe it: "path", "period"
    /// (milliseconds, 10000), "keep" (true). A later value replaces an earlier one. The caller owns
    /// the queue.
    ///
    /// Throws Exception: DirAccessFailure, IllegalParameter, PropertyNotFound (no "path"), and as
    /// the constructor does.
    static FilesQueue* initFilesQueue(const QJsonArray& description);

    /// The directory as it was given. A relative path is still relative: it means the queue's
    /// directory only while the working directory is the same.
    QDir path() const;

    /// The number of entries.
    int size() const;

    /// The position of the first consumer with that identifier, or -1.
    int index(const QString& id) const;

    /// The position of the entry of that name, or -1.
    int fileIndex(const QString& fileName) const;

    /// The entry of that name, or null. The queue owns it; the re-scan that drops it destroys it.
    FileEntry* entryFromFileName(const QString& fileName) const;
    bool existsFileEntry(const QString& fileName) const;

    /// Throws Exception if the queue has no such file.
    bool isConsumedFromAll(const QString& fileName) const;

    /// Milliseconds between periodic re-scans; 0 or less for none. The spelling is part of the
    /// interface.
    int scrutationIntervall() const;

    /// Takes effect at once if the timer runs (0 or less stops it), otherwise at the next
    /// enableScrutationMode().
    void setScrutationIntervall(int interval);

    /// Starts the periodic re-scan; false if the interval is 0 or less.
    bool enableScrutationMode();
    void disableScrutationMode();

    /// Adds a consumer, for which every file of the queue is new. Null is ignored. A consumer added
    /// before onProcess() is connected twice.
    ///
    /// A duplicate identifier is not refused, but no file is deleted from then on: reports count
    /// only for the first consumer of that identifier.
    void appendConsumer(ConsumerAncestor* consumer);

public Q_SLOTS:
    /// Starts processing: connects the consumers, watches the directory, starts the timer. Must run
    /// once, in the queue's thread. Files that arrived since the queue was built are seen at the
    /// first change or tick.
    ///
    /// If the directory is removed and made again, or another one takes its place, only the timer
    /// or a call of onDirectoryChanged() finds it; that re-scan sets the watch again.
    void onProcess();

    /// Asks the queue's thread to quit.
    void onQuit();

    /// Re-scans the directory. A directory that is absent or may not be read counts as empty. If it
    /// cannot be listed for another reason (no descriptor is free, a network file system does not
    /// answer), the re-scan changes nothing.
    void onDirectoryChanged();

    /// Notes that the consumer has handled the file.
    ///
    /// Throws a POINTER to a new Exception, which the catcher deletes, for an unknown consumer, and
    /// an Exception for an unknown file. Both forms are kept for compatibility.
    ///
    /// The exception reaches the caller. That is the consumer, if it emits consumed() in the
    /// queue's thread. For a consumer in another thread it is the event loop of the queue's thread,
    /// which ends the process unless QCoreApplication::notify() catches the exception.
    void onConsumed(const QString& id, const QString& fileName);

    /// Answers through filesNotConsumed().
    void onRequestForFiles(const QString& id);

Q_SIGNALS:
    /// After a re-scan that added files or lost some; a file that the queue itself deleted is not
    /// reported. Emitted before the re-scan ends: an appendConsumer() in another thread waits until
    /// then.
    void queueUpdated(const QList<QString>& appended, const QList<QString>& deleted);

    /// The files that a consumer has not consumed, in queue order. If `error` is true, `files`
    /// holds one text that says why there are none. Every connected object receives it, and it does
    /// not name the consumer.
    void filesNotConsumed(const QList<QString>& files, bool error);

private:
    struct KEZ_HIDDEN Changes;
    class KEZ_HIDDEN Locker;
    class KEZ_HIDDEN Rescan;

    KEZ_HIDDEN QList<QString> filesNotConsumedBy(int consumer) const;
    KEZ_HIDDEN void appendFile(const QString& name, const ListedFileIdentity& identity);
    KEZ_HIDDEN void rescanAndAnnounce();
    KEZ_HIDDEN std::optional<Changes> rescan();
    KEZ_HIDDEN std::optional<OpenQueueDirectory> openWatchedDirectory();
    KEZ_HIDDEN bool watch(const std::optional<std::pair<quint64, quint64>>& directory);
    KEZ_HIDDEN void connectConsumer(const ConsumerAncestor* consumer);

    QDir _path;
    int _scrutationInterval;
    QFileSystemWatcher* _watcher = nullptr;
    QTimer* _timer = nullptr;
    QList<ConsumerEntry> _consumers;
    QList<FileEntry*> _entries;
    QMutex _lock;

    std::atomic<Qt::HANDLE> _lockHolder = nullptr;
    std::unique_ptr<QueueIndex> _index; // of the entries, by file name

    QString _directory; // absolute, for the system

    // The consumers while they live, by position. ConsumerEntry is public and cannot hold a
    // QPointer.
    QList<QPointer<ConsumerAncestor>> _living;

    // Changes that queueUpdated() must still announce: the files appended, the files deleted.
    QList<std::pair<QList<QString>, QList<QString>>> _unannounced;

    // Device and inode of the directory that the watch is on, or was refused for.
    std::pair<quint64, quint64> _watched;
    bool _isWatching = false;

    RescanPace* _pace = nullptr;  // of the watch's re-scans; null before onProcess()
    bool _isWatchCalling = false; // for the next call of onDirectoryChanged()
};
