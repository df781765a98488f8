// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/soletemporary_p.h"

#include "service/durablefiles_p.h"

#include <QDeadlineTimer>
#include <QThread>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace KezService {

namespace {

constexpr unsigned long RetryMilliseconds = 5;

} // namespace

SoleTemporary::~SoleTemporary()
{
    if (_file.isOpen())
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

int SoleTemporary::renameTo(const QByteArray& path)
{
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

/// Who locks the file may remove it: its owner is dead. Called again if it is gone meanwhile.
int SoleTemporary::removeLeftover() const
{
    // A network file system wants the right to write for such a lock.
    Descriptor leftover = openFile(_path, O_RDWR | O_NOFOLLOW | O_NONBLOCK);
    if (!leftover.isOpen() && errno == EACCES)
        leftover = openFile(_path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (!leftover.isOpen())
        return errno == ENOENT ? 0 : errno;
    if (const int error = lock(leftover.get()); error != 0)
        return error;
    return ::unlink(_path.constData()) == 0 ? 0 : errno;
}

/// Locks an open file; EWOULDBLOCK also if it has lost its name meanwhile.
int SoleTemporary::lock(int descriptor) const
{
    if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0)
        return errno == EINTR ? EWOULDBLOCK : errno;
    struct stat opened {};
    struct stat named {};
    if (::fstat(descriptor, &opened) != 0)
        return errno;
    const bool isNamed = ::lstat(_path.constData(), &named) == 0 && opened.st_dev == named.st_dev &&
                         opened.st_ino == named.st_ino;
    return isNamed ? 0 : EWOULDBLOCK;
}

} // namespace KezService
