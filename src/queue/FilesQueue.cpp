// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/FilesQueue.h"
#include "frame/failure_p.h"
#include "kez/exception.h"
#include "queue/queuelisting_p.h"
#include "queue/queuetrace_p.h"

#include <QFileSystemWatcher>
#include <QSet>
#include <QThread>
#include <QTimer>

#include <vector>

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

/// Refuses the first consumer whose identifier another one has as well.
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

/// Holds the queue's lock. Taken again by the thread that holds it, it does nothing, so that a slot
/// that is connected directly to queueUpdated() may call the queue back.
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

/// What a re-scan found: a file may be deleted and consumed.
struct FilesQueue::Changes {
    QList<QString> appended;
    QList<QString> deleted;
    QList<QString> consumed;
};

FilesQueue::FilesQueue(const QString& path, QList<ConsumerEntry> consumerList, bool keep,
                       int interval, QObject* parent)
    : QObject(parent), _scrutationInterval(interval)
{
    if (!isUsableDirectory(path))
        raiseInvalidDirectory(path);
    _path = QDir(path, QString(), QDir::Name, FileFilters | QDir::NoDotAndDotDot);
    checkIdentifiers(consumerList);
    _consumers = std::move(consumerList);
    for (const ConsumerEntry& consumer : std::as_const(_consumers))
        _living.append(consumer.consumer);
    const auto listing = listQueueDirectory(path);
    if (!listing)
        raiseInvalidDirectory(path);
    for (const ListedFile& file : *listing) {
        if (!keep)
            QFile::remove(_path.absoluteFilePath(file.name));
        else if (file.isRegular)
            appendEntry(file.name);
    }
}

FilesQueue::~FilesQueue()
{
    if (_watcher)
        _watcher->deleteLater();
    if (_timer)
        _timer->deleteLater();
    qDeleteAll(_entries);
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
    return _positions.value(fileName, -1);
}

FileEntry* FilesQueue::entryFromFileName(const QString& fileName) const
{
    const int position = fileIndex(fileName);
    return position < 0 ? nullptr : _entries.at(position);
}

bool FilesQueue::existsFileEntry(const QString& fileName) const
{
    return _positions.contains(fileName);
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
          _path.absolutePath());
    {
        const Locker locker(*this);
        for (const QPointer<ConsumerAncestor>& consumer : std::as_const(_living))
            connectConsumer(consumer);
    }
    _watcher = new QFileSystemWatcher(this);
    _watcher->addPath(_path.absolutePath());
    connect(_watcher, &QFileSystemWatcher::directoryChanged, this, &FilesQueue::onDirectoryChanged);
    // Only the timer's own thread can stop it, and the queue may be destroyed by another one.
    connect(thread(), &QThread::finished, this, [this, started = thread()] {
        if (thread() == started)
            disableScrutationMode();
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
    const Locker locker(*this);
    const auto listing = listQueueDirectory(_path.path());
    if (!listing)
        return;
    trace(QStringLiteral("> directoryChanged : Répertoire de la file d'attente modifié "
                         "(%1 fichiers)"),
          QString::number(listing->size()));

    const Changes changes = compareWith(*listing);
    deleteFiles(changes.consumed);
    dropEntries(changes);

    if (!changes.appended.isEmpty() || !changes.deleted.isEmpty())
        Q_EMIT queueUpdated(changes.appended, changes.deleted);
    trace(QStringLiteral("> directoryChanged : Ajoutés = %1, Supprimés = %2, consommés = %3, "
                         "taille de la file = %4"),
          QString::number(changes.appended.size()), QString::number(changes.deleted.size()),
          QString::number(changes.consumed.size()), QString::number(_entries.size()));
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
    for (const FileEntry* const entry : _entries) {
        if (!entry->isConsumed(consumer))
            names.append(entry->fileName());
    }
    return names;
}

void FilesQueue::appendEntry(const QString& fileName)
{
    _positions.insert(fileName, static_cast<int>(_entries.size()));
    _entries.append(new FileEntry(fileName, static_cast<int>(_consumers.size())));
}

/// Appends the new files to the queue, and tells which entries have to leave it.
FilesQueue::Changes FilesQueue::compareWith(const QList<ListedFile>& listing)
{
    Changes changes;
    std::vector<bool> isListed(static_cast<size_t>(_entries.size()), false); // by position
    for (const ListedFile& file : listing) {
        const int position = fileIndex(file.name);
        if (position >= 0)
            isListed[static_cast<size_t>(position)] = true;
        if (!file.isRegular) {
            trace(QStringLiteral("onDirectoryChanged> Rejet du fichier %1..."), file.name);
        } else if (position < 0) {
            changes.appended.append(file.name);
            appendEntry(file.name);
            isListed.push_back(true);
        }
    }
    auto listed = isListed.cbegin();
    for (const FileEntry* const entry : std::as_const(_entries)) {
        if (!*listed++)
            changes.deleted.append(entry->fileName());
        if (!_consumers.isEmpty() && entry->allConsumed())
            changes.consumed.append(entry->fileName());
    }
    return changes;
}

void FilesQueue::deleteFiles(const QList<QString>& names) const
{
    const QString directory = _path.absolutePath() + QLatin1Char('/');
    for (const QString& name : names) {
        if (QFile::exists(directory + name))
            QFile::remove(directory + name);
    }
}

void FilesQueue::dropEntries(const Changes& changes)
{
    if (changes.deleted.isEmpty() && changes.consumed.isEmpty())
        return;
    QSet<QString> leaving(changes.deleted.begin(), changes.deleted.end());
    leaving.unite(QSet<QString>(changes.consumed.begin(), changes.consumed.end()));

    QList<FileEntry*> staying;
    _positions.clear();
    for (FileEntry* const entry : std::as_const(_entries)) {
        const QString name = entry->fileName();
        if (leaving.contains(name)) {
            delete entry;
        } else {
            _positions.insert(name, static_cast<int>(staying.size()));
            staying.append(entry);
        }
    }
    _entries.swap(staying);
}

void FilesQueue::connectConsumer(const ConsumerAncestor* consumer)
{
    if (!consumer)
        return;
    connect(consumer, &ConsumerAncestor::consumed, this, &FilesQueue::onConsumed);
    connect(consumer, &ConsumerAncestor::requestForFiles, this, &FilesQueue::onRequestForFiles);
}
