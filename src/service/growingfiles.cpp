// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/growingfiles_p.h"

#include "service/durablefiles_p.h"
#include "service/filestate_p.h"
#include "service/refusal_p.h"
#include "service/spoolplaces_p.h"

#include <QFile>
#include <QRandomGenerator>

#include <cerrno>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/file.h>
#include <unistd.h>

namespace KezService {

namespace {

constexpr const char* LockSuffix = ".lock";

QByteArray placeOf(const QString& spool)
{
    return QFile::encodeName(SpoolPlaces::incoming(spool));
}

/// Makes the hidden directories. Returns the system's error number, or 0.
int makePlaces(const QString& spool)
{
    const int error = SpoolPlaces::makePlace(SpoolPlaces::hidden(spool), spool);
    return error != 0 ? error : SpoolPlaces::makePlace(SpoolPlaces::incoming(spool), spool);
}

/// A number that no other process has: neither after a fork nor in another container.
QByteArray unusedStem()
{
    return QByteArray::number(::getpid()) + '-' +
           QByteArray::number(QRandomGenerator::system()->generate64(), 16);
}

/// A file system that knows no locks says nothing about the producer; its files' age decides.
bool knowsNoLocks(int error)
{
    return error == ENOLCK || error == ENOSYS || error == EOPNOTSUPP;
}

enum class Owner { Alive, Dead };

/// Whether the process that made the file still lives. `lock` keeps the answer true.
Owner ownerOf(const QByteArray& lockPath, Descriptor& lock)
{
    // A network file system locks only what is open for writing.
    lock = openFile(lockPath, O_RDWR | O_NONBLOCK | O_NOFOLLOW);
    if (!lock.isOpen() && errno != ENOENT)
        lock = openFile(lockPath, O_RDONLY | O_NONBLOCK | O_NOFOLLOW);
    if (!lock.isOpen())
        return errno == ENOENT ? Owner::Dead : Owner::Alive;
    const bool isDead = ::flock(lock.get(), LOCK_EX | LOCK_NB) == 0 || knowsNoLocks(errno);
    return isDead ? Owner::Dead : Owner::Alive;
}

/// Whether the last change is that long ago. Not the last modification, which anybody may set.
bool isOlderThan(const struct stat& status, std::chrono::seconds age)
{
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const auto elapsed = std::chrono::seconds(now.tv_sec - status.st_ctim.tv_sec) +
                         std::chrono::nanoseconds(now.tv_nsec - status.st_ctim.tv_nsec);
    return elapsed >= age;
}

QByteArray lockPathFor(const QByteArray& path)
{
    const qsizetype dot = path.lastIndexOf('.');
    return path.left(dot > path.lastIndexOf('/') ? dot : path.size()) + LockSuffix;
}

/// Whether the leftover counts as a file that was removed: it is gone, and is no lock.
bool removeLeftover(const QByteArray& path, std::chrono::seconds age)
{
    const auto status = statusOf(path);
    if (!status || !S_ISREG(status->st_mode) || !isOlderThan(*status, age))
        return false;
    Descriptor lock;
    if (ownerOf(lockPathFor(path), lock) == Owner::Alive)
        return false;
    if (::unlink(path.constData()) == 0)
        return !path.endsWith(LockSuffix);
    if (errno != ENOENT)
        throw Refusal::bySystem(path, errno);
    return false;
}

} // namespace

GrowingFiles::GrowingFiles(const QString& spool) : _spool(spool)
{
    lock();
}

GrowingFiles::~GrowingFiles()
{
    for (int index = _leftCount; index < _count; ++index)
        ::unlink(pathOf(index).constData());
    ::unlink(lockPath().constData());
}

QByteArray GrowingFiles::pathOf(int index) const
{
    return _stem + '.' + QByteArray::number(index);
}

QByteArray GrowingFiles::lockPath() const
{
    return _stem + LockSuffix;
}

Descriptor GrowingFiles::create(mode_t mode)
{
    const QByteArray path = pathOf(_count);
    Descriptor file = openFile(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, mode);
    if (!file.isOpen())
        throw Refusal::bySystem(path, errno);
    ++_count;
    return file;
}

void GrowingFiles::lock()
{
    constexpr int MaxTries = 100;
    for (int tries = 0; tries < MaxTries; ++tries) {
        _stem = placeOf(_spool) + '/' + unusedStem();
        if (tryToLock())
            return;
    }
    throw Refusal::bySystem(placeOf(_spool), EBUSY);
}

/// False if the name is taken, or if somebody who removes leftovers was faster than the lock.
bool GrowingFiles::tryToLock()
{
    const auto open = [this] {
        return openFile(lockPath(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0666);
    };
    _lock = open();
    if (!_lock.isOpen() && errno == ENOENT) {
        if (const int error = makePlaces(_spool); error != 0)
            throw Refusal::bySystem(placeOf(_spool), error);
        _lock = open();
    }
    if (!_lock.isOpen() && errno == EEXIST)
        return false;
    if (!_lock.isOpen())
        throw Refusal::bySystem(placeOf(_spool), errno);
    if (::flock(_lock.get(), LOCK_EX | LOCK_NB) != 0 && !knowsNoLocks(errno)) {
        ::unlink(lockPath().constData());
        return false;
    }
    const auto status = statusOf(_lock.get());
    return status && status->st_nlink > 0;
}

int GrowingFiles::removeLeftovers(const QString& spool, std::chrono::seconds age)
{
    const QByteArray place = placeOf(spool);
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(place.constData()), &::closedir);
    if (!directory) {
        if (errno == ENOENT)
            return 0;
        throw Refusal::bySystem(place, errno);
    }
    int count = 0;
    std::optional<Refusal> failure; // the others are removed all the same
    while (const dirent* const entry = ::readdir(directory.get())) {
        if (qstrcmp(entry->d_name, ".") == 0 || qstrcmp(entry->d_name, "..") == 0)
            continue;
        try {
            count += removeLeftover(place + '/' + entry->d_name, age) ? 1 : 0;
        } catch (const Refusal& refusal) {
            failure = refusal;
        }
    }
    if (failure)
        throw Refusal(*failure);
    return count;
}

} // namespace KezService
