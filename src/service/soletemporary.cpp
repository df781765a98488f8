// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/soletemporary_p.h"

#include "service/durablefiles_p.h"
#include "service/filelock_p.h"
#include "service/filestate_p.h"

#include <QDeadlineTimer>
#include <QThread>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace KezService {

namespace {

constexpr unsigned long RetryMilliseconds = 5;

/// Far longer than a save takes. After this time a file counts as left behind if no lock can tell.
constexpr std::chrono::seconds LongestLife(60);

} // namespace

SoleTemporary::~SoleTemporary()
{
    if (isInPlace())
        ::unlink(_path.constData());
}

int SoleTemporary::create(mode_t mode, std::chrono::milliseconds patience)
{
    const QDeadlineTimer deadline(patience);
    while (true) {
        const int error = tryToCreate(mode);
        if (error != EWOULDBLOCK || deadline.hasExpired())
            return error;
        QThread::msleep(RetryMilliseconds);
    }
}

/// Not if it was taken for a leftover, and somebody else has a file of that name now.
bool SoleTemporary::isInPlace() const
{
    return _file.isOpen() && isNameOf(_path, _file.get()).value_or(false);
}

int SoleTemporary::renameTo(const QByteArray& path)
{
    if (!isInPlace())
        return EBUSY;
    if (::rename(_path.constData(), path.constData()) != 0)
        return errno;
    _file.close();
    return 0;
}

/// EWOULDBLOCK if somebody else has the file.
int SoleTemporary::tryToCreate(mode_t mode)
{
    Descriptor file = openFile(_path, O_WRONLY | O_CREAT | O_EXCL, mode);
    if (!file.isOpen()) {
        const int error = errno == EEXIST ? removeLeftover() : errno;
        return error == 0 ? EWOULDBLOCK : error; // somebody else may be faster now
    }
    // Before this, another one may have taken the new file for a leftover.
    const int error = lock(file.get());
    if (error == 0)
        _file = std::move(file);
    else if (error != EWOULDBLOCK)
        ::unlink(_path.constData());
    return error;
}

/// A file that can be locked has no living owner, and may be removed. Where no lock can tell, the
/// age decides: on a file system without locks, and if the file of another user cannot be opened.
/// Returns 0 also if the file is gone meanwhile.
int SoleTemporary::removeLeftover() const
{
    // A network file system wants the right to write for such a lock.
    Descriptor leftover = openFile(_path, O_RDWR | O_NOFOLLOW | O_NONBLOCK);
    if (!leftover.isOpen() && errno == EACCES)
        leftover = openFile(_path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (!leftover.isOpen() && errno != EACCES)
        return errno == ENOENT ? 0 : errno;
    const int error = leftover.isOpen() ? lockFile(leftover.get()) : EACCES;
    if (error != 0 && error != EACCES && !knowsNoLocks(error))
        return error;
    if (error != 0 && !isOld())
        return EWOULDBLOCK;
    if (leftover.isOpen() && !isNameOf(_path, leftover.get()).value_or(false))
        return EWOULDBLOCK;
    return ::unlink(_path.constData()) == 0 || errno == ENOENT ? 0 : errno;
}

bool SoleTemporary::isOld() const
{
    const auto status = statusOf(_path);
    return status && S_ISREG(status->st_mode) && isOlderThan(*status, LongestLife);
}

/// Locks an open file; EWOULDBLOCK also if it has lost its name meanwhile.
int SoleTemporary::lock(int descriptor) const
{
    const int error = lockFile(descriptor);
    if (error != 0 && !knowsNoLocks(error))
        return error;
    return isNameOf(_path, descriptor).value_or(false) ? 0 : EWOULDBLOCK;
}

} // namespace KezService
