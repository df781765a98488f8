// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/growingfiles_p.h"

#include "service/directoryentries_p.h"
#include "service/durablefiles_p.h"
#include "service/filelock_p.h"
#include "service/filestate_p.h"
#include "service/refusal_p.h"
#include "service/spoolplaces_p.h"

#include <QFile>
#include <QRandomGenerator>

#include <cerrno>
#include <fcntl.h>
#include <optional>
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

enum class Owner { Alive, Dead };

/// Whether the process that made the file still lives. `lock` keeps the answer true. Throws if the
/// lock cannot be opened: nobody knows then, and an operator has to look.
Owner ownerOf(const QByteArray& lockPath, Descriptor& lock)
{
    // A network file system locks only what is open for writing.
    lock = openFile(lockPath, O_RDWR | O_NONBLOCK | O_NOFOLLOW);
    if (!lock.isOpen() && errno != ENOENT)
        lock = openFile(lockPath, O_RDONLY | O_NONBLOCK | O_NOFOLLOW);
    if (!lock.isOpen() && errno != ENOENT)
        throw Refusal::bySystem(lockPath, errno);
    const int error = lock.isOpen() ? lockFile(lock.get()) : 0;
    return error == 0 || knowsNoLocks(error) ? Owner::Dead : Owner::Alive;
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
    // Whatever the process's mask: other users have to ask the lock whether this process lives.
    ::fchmod(_lock.get(), 0666);
    if (const int error = lockFile(_lock.get()); error != 0 && !knowsNoLocks(error)) {
        ::unlink(lockPath().constData());
        return false;
    }
    const auto status = statusOf(_lock.get());
    return status && status->st_nlink > 0;
}

int GrowingFiles::removeLeftovers(const QString& spool, std::chrono::seconds age)
{
    const QByteArray place = placeOf(spool);
    int count = 0;
    std::optional<Refusal> failure; // the others are removed all the same
    const int error = forEachEntry(place, [&](const dirent& entry) {
        try {
            count += removeLeftover(place + '/' + entry.d_name, age) ? 1 : 0;
        } catch (const Refusal& refusal) {
            failure = refusal;
        }
    });
    if (error != ENOENT)
        Refusal::check(place, error);
    if (failure)
        throw Refusal(*failure);
    return count;
}

} // namespace KezService
