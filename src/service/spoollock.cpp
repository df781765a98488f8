// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/spoollock_p.h"

#include "service/durablefiles_p.h"
#include "service/filelock_p.h"
#include "service/filestate_p.h"
#include "service/kittexts_p.h"
#include "service/spoolplaces_p.h"

#include <QByteArray>
#include <QFile>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace KezService {

namespace {

QString holderOf(const Descriptor& lock)
{
    std::array<char, 20> text{};
    const ssize_t length = ::pread(lock.get(), text.data(), text.size(), 0);
    return shownName(QString::fromLatin1(text.data(), length < 0 ? 0 : length).trimmed());
}

} // namespace

SpoolLock::SpoolLock(const QString& spool) : _spool(spool)
{
    takeAgain();
}

bool SpoolLock::isInPlace() const
{
    const QByteArray path = QFile::encodeName(SpoolPlaces::lock(_spool));
    return isNameOf(path, _file.get()).value_or(true); // out of reach, and perhaps there
}

void SpoolLock::takeAgain()
{
    const QString path = SpoolPlaces::lock(_spool);
    constexpr int Flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK;
    _file.close();
    while (!isInPlace()) { // again if it was removed meanwhile
        Descriptor file = openFile(QFile::encodeName(path), Flags, 0666);
        if (!file.isOpen())
            raise("RunnerLockFailed", shownName(path), systemErrorText(errno));
        const int error = lockFile(file.get());
        if (error == EWOULDBLOCK)
            raise("RunnerSpoolTaken", shownName(_spool), holderOf(file));
        if (error != 0)
            raise("RunnerLockFailed", shownName(path), systemErrorText(error));
        _file = std::move(file);
    }
    const QByteArray id = QByteArray::number(::getpid()) + '\n';
    if (::ftruncate(_file.get(), 0) == 0)
        writeAll(_file.get(), id); // only a text: a failure changes nothing
}

} // namespace KezService
