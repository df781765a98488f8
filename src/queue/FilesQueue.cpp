// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/FilesQueue.h"
#include "frame/directories_p.h"
#include "frame/failure_p.h"
#include "kez/exception.h"
#include "queue/queueindex_p.h"
#include "queue/queuelisting_p.h"
#include "queue/queuerescan_p.h"
#include "queue/queuetrace_p.h"
#include "queue/rescanpace_p.h"

#include <QFileSystemWatcher>
#include <QHash>
#include <QThread>
#include <QTimer>

#include <utility>

namespace {

constexpr QDir::Filters FileFilters = QDir::Files | QDir::Readable | QDir::Writable;

constexpr const char* ConstructorSignature =
    "FilesQueue::FilesQueue(const QString&, QList<ConsumerEntry>, int, QObject*)";
constexpr const char* ConsumedSignature =
    "void FilesQueue::consumed(const QString&, const QString&)";

using QueueTrace::trace;

[[noreturn]] void raiseInvalidDirectory(const QString& path)
{
    Failure::raise(ConstructorSignature, QStringLiteral("Le répertoire %1 est invalide").arg(path));
}

QString unknownFile(const QString& fileName)
{
    return QStringLiteral("Le fichier [%1] n'existe pas dans la file d'attente").arg(fileName);
}

QString unknownConsumer(const QString& id)
{
    return QStringLiteral("L'identifiant de consommateur %1 n'existe pas").arg(id);
}

/// Throws if two consumers have the same identifier.
void checkIdentifiers(const QList<ConsumerEntry>& consumers)
{
    QHash<QString, int> uses;
    for (const ConsumerEntry& consumer : consumers)
        ++uses[consumer.id];
    for (const ConsumerEntry& consumer : consumers) {
        if (uses.value(consumer.id) > 1) {
            Failure::raise(
                ConstructorSignature,
                QStringLiteral("La liste des consommateurs comporte un doublon : ID = %1")
                    .arg(consumer.id));
        }
    }
}

} // namespace

/// Holds the queue's lock. If the thread holds it already, it does nothing, so that a slot that is
/// connected directly to queueUpdated() may call the queue back.
class FilesQueue::Locker {
public:
    explicit Locker(FilesQueue& queue)
        : _queue(queue), _isHolder(queue._lockHolder != QThread::currentThreadId())
    {
        if (_isHolder) {
            _queue._lock.lock();
            _queue._lockHolder = QThread::currentThreadId();
        }
    }
    ~Locker()
    {
        if (_isHolder) {
            _queue._lockHolder = nullptr;
            _queue._lock.unlock();
        }
    }
    Locker(const Locker&) = delete;
    Locker& operator=(const Locker&) = delete;

private:
    FilesQueue& _queue;
    bool _isHolder;
};

FilesQueue::FilesQueue(const QString& path, QList<ConsumerEntry> consumerList, bool keep,
                       int interval, QObject* parent)
    : QObject(parent),
      _scrutationInterval(interval),
      _index(std::make_unique<QueueIndex>()),
      _directory(absolutePath(path))
{
    if (!isUsableDirectory(path) || !isUsableDirectory(_directory))
        raiseInvalidDirectory(path);
    _path = QDir(path, QString(), QDir::Name, FileFilters | QDir::NoDotAndDotDot);
    checkIdentifiers(consumerList);
    _consumers = std::move(consumerList);
    for (const ConsumerEntry& consumer : std::as_const(_consumers))
        _living.append(consumer.consumer);
    const auto directory = OpenQueueDirectory::open(_directory);
    const auto listing = directory ? directory->list() : std::nullopt;
    if (!listing)
        raiseInvalidDirectory(path);
    const std::vector<ListedFile> files = listing->sorted(listing->files);
    if (keep) {
        _entries.reserve(static_cast<qsizetype>(files.size()));
        _index->reserve(files.size());
    }
    for (const ListedFile& file : files) {
        if (!keep && file.kind != ListedFile::Kind::Unknown)
            directory->remove(listing->nameOf(file).toString());
        else if (keep && file.kind == ListedFile::Kind::Regular)
            appendFile(listing->nameOf(file).toString(), directory->identify(file, *listing));
    }
}

FilesQueue::~FilesQueue()
{
    if (_watcher)
        _watcher->deleteLater();
    if (_timer)
        _timer->deleteLater();
    for (FileEntry* const entry : std::as_const(_entries))
        delete queuedFile(entry);
}

QDir FilesQueue::path() const
{
    return _path;
}

int FilesQueue::size() const
{
    return static_cast<int>(_entries.size());
}

int FilesQueue::index(const QString& id) const
{
    for (int i = 0; i < _consumers.size(); ++i) {
        if (_consumers.at(i).id == id)
            return i;
    }
    return -1;
}

int FilesQueue::fileIndex(const QString& fileName) const
{
    const QueuedFile* const file = _index->find(fileName);
    return file ? file->position : -1;
}

FileEntry* FilesQueue::entryFromFileName(const QString& fileName) const
{
    return _index->find(fileName);
}

bool FilesQueue::existsFileEntry(const QString& fileName) const
{
    return _index->find(fileName) != nullptr;
}

bool FilesQueue::isConsumedFromAll(const QString& fileName) const
{
    const FileEntry* const entry = entryFromFileName(fileName);
    if (!entry)
        Failure::raise("bool FilesQueue::allConsumed(const QString&)", unknownFile(fileName));
    return entry->allConsumed();
}

int FilesQueue::scrutationIntervall() const
{
    return _scrutationInterval;
}

void FilesQueue::setScrutationIntervall(int interval)
{
    _scrutationInterval = interval;
    if (!_timer)
        return;
    const bool wasActive = _timer->isActive();
    if (wasActive)
        _timer->stop();
    if (interval <= 0)
        return;
    _timer->setInterval(interval);
    if (wasActive)
        enableScrutationMode();
}

bool FilesQueue::enableScrutationMode()
{
    if (_scrutationInterval <= 0) {
        if (_timer)
            _timer->stop();
        return false;
    }
    if (!_timer) {
        _timer = new QTimer(this);
        connect(_timer, &QTimer::timeout, this, &FilesQueue::onDirectoryChanged);
    }
    _timer->setSingleShot(false);
    _timer->start(_scrutationInterval);
    return true;
}

void FilesQueue::disableScrutationMode()
{
    if (_timer && _timer->isActive())
        _timer->stop();
}

void FilesQueue::appendConsumer(ConsumerAncestor* consumer)
{
    if (!consumer)
        return;
    const Locker locker(*this);
    _consumers.append({consumer->id(), consumer});
    _living.append(consumer);
    for (FileEntry* const entry : std::as_const(_entries))
        entry->appendConsumerFlag();
    connectConsumer(consumer);
}

void FilesQueue::onProcess()
{
    trace(QStringLiteral("Thread onProcess : ID = 0x%1 (_path=%2)"),
          QStringLiteral("%1").arg(reinterpret_cast<quintptr>(QThread::currentThreadId()), 16, 16,
                                   QLatin1Char('0')),
          QDir::cleanPath(_directory));
    {
        const Locker locker(*this);
        for (const QPointer<ConsumerAncestor>& consumer : std::as_const(_living))
            connectConsumer(consumer);
    }
    _watcher = new QFileSystemWatcher(this);
    _watched = {};
    watch(directoryIdentity(_directory));
    if (!_pace)
        _pace = new RescanPace(this, [this] { rescanAndAnnounce(); });
    // In this order: the first slot tells the calls of the watch from all others.
    connect(_watcher, &QFileSystemWatcher::directoryChanged, this,
            [this] { _isWatchCalling = true; });
    connect(_watcher, &QFileSystemWatcher::directoryChanged, this, &FilesQueue::onDirectoryChanged);
    // Only the timers' own thread can stop them, and another thread may destroy the queue.
    connect(thread(), &QThread::finished, this, [this, started = thread()] {
        if (thread() != started)
            return;
        disableScrutationMode();
        _pace->stop();
    });
    enableScrutationMode();
}

void FilesQueue::onQuit()
{
    trace(QStringLiteral("> [FilesQueue] : Demande d'arrêt du thread d'affinité %1"),
          thread()->objectName());
    thread()->quit();
}

void FilesQueue::onDirectoryChanged()
{
    const bool isFromWatch = std::exchange(_isWatchCalling, false);
    if (!isFromWatch || !_pace->holdBack(RescanPace::Clock::now()))
        rescanAndAnnounce();
}

void FilesQueue::rescanAndAnnounce()
{
    const Locker locker(*this);
    const auto start = RescanPace::Clock::now();
    const std::optional<Changes> changes = rescan();
    if (_pace)
        _pace->noteRescan(start, RescanPace::Clock::now(), changes.has_value());
    if (!changes)
        return;
    if (!changes->appended.isEmpty() || !changes->deleted.isEmpty())
        _unannounced.append({changes->appended, changes->deleted});

    // Traces and slots run code of the application, which may start another re-scan. The entries
    // are up to date by now, and that re-scan announces these changes before its own.
    trace(QStringLiteral("> directoryChanged : Répertoire de la file d'attente modifié "
                         "(%1 fichiers)"),
          changes->listedCount);
    for (const QString& name : changes->refused)
        trace(QStringLiteral("onDirectoryChanged> Rejet du fichier %1..."), name);
    while (!_unannounced.isEmpty()) {
        const auto [appended, deleted] = _unannounced.takeFirst();
        Q_EMIT queueUpdated(appended, deleted);
    }
    trace(QStringLiteral("> directoryChanged : Ajoutés = %1, Supprimés = %2, consommés = %3, "
                         "taille de la file = %4"),
          changes->appended.size(), changes->deleted.size(), changes->consumedCount,
          _entries.size());
}

void FilesQueue::onConsumed(const QString& id, const QString& fileName)
{
    trace(QStringLiteral("> consummed : Fichier %1 utilisé par le consommateur %2"), fileName, id);
    const Locker locker(*this);
    const int consumer = index(id);
    // A pointer here and a value below: see the declaration.
    if (consumer < 0)
        // NOLINTNEXTLINE(misc-throw-by-value-catch-by-reference)
        throw new Exception(Failure::text(ConsumedSignature, unknownConsumer(id)), nullptr);
    FileEntry* const entry = entryFromFileName(fileName);
    if (!entry)
        Failure::raise(ConsumedSignature, unknownFile(fileName));
    entry->enableUptakeFlag(consumer);
}

void FilesQueue::onRequestForFiles(const QString& id)
{
    trace(QStringLiteral("> requestForFiles : Demande de la liste des fichiers en attente pour le "
                         "consommateur %1"),
          id);
    QList<QString> names;
    bool isKnown = false;
    {
        const Locker locker(*this);
        const int consumer = index(id);
        isKnown = consumer >= 0;
        if (isKnown)
            names = filesNotConsumedBy(consumer);
        else
            names.append(unknownConsumer(id));
    }
    Q_EMIT filesNotConsumed(names, !isKnown);
}

QList<QString> FilesQueue::filesNotConsumedBy(int consumer) const
{
    QList<QString> names;
    names.reserve(_entries.size());
    for (const FileEntry* const entry : _entries) {
        const QueuedFile& file = *queuedFile(entry);
        if (!file.isConsumedBy(consumer))
            names.append(file.text());
    }
    if (names.size() < _entries.size() / 2)
        names.squeeze();
    return names;
}

void FilesQueue::appendFile(const QString& name, const ListedFileIdentity& identity)
{
    auto* const file = new QueuedFile(name, static_cast<int>(_consumers.size()), size(), identity);
    _entries.append(file);
    _index->insert(file);
}

/// Nothing if the directory cannot be listed at the moment.
std::optional<FilesQueue::Changes> FilesQueue::rescan()
{
    const auto directory = openWatchedDirectory();
    const auto listing = directory ? directory->list() : std::nullopt;
    if (!listing)
        return std::nullopt;
    return Rescan(*this, *directory, *listing).apply();
}

/// The directory, with the watch on it: what changes after its listing is signalled. It is opened
/// again after the watch was set, since the path may now lead to another directory.
std::optional<OpenQueueDirectory> FilesQueue::openWatchedDirectory()
{
    auto directory = OpenQueueDirectory::open(_directory);
    if (!directory || !watch(directory->identity()))
        return directory;
    directory.reset(); // there may be no descriptor for a second one
    directory = OpenQueueDirectory::open(_directory);
    if (!directory)
        _watched = {}; // so that the next re-scan tries again
    return directory;
}

/// Puts the watch on the queue's directory if it is on another one that had the path before, or on
/// none. False if there is nothing to do. A watch that the system refuses is not tried again for
/// the same directory, since each refusal is a message.
bool FilesQueue::watch(const std::optional<DirectoryIdentity>& directory)
{
    if (!_watcher || !directory)
        return false;
    if (_watched == *directory && _isWatching == _watcher->directories().contains(_directory))
        return false;
    _watcher->removePath(_directory);
    _watched = *directory;
    _isWatching = false; // while a message handler may start another re-scan
    _isWatching = _watcher->addPath(_directory);
    return true;
}

void FilesQueue::connectConsumer(const ConsumerAncestor* consumer)
{
    if (!consumer)
        return;
    connect(consumer, &ConsumerAncestor::consumed, this, &FilesQueue::onConsumed);
    connect(consumer, &ConsumerAncestor::requestForFiles, this, &FilesQueue::onRequestForFiles);
}
