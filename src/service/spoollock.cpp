// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/spoollock_p.h"

#include "service/durablefiles_p.h"
#include "service/kittexts_p.h"
#include "service/spoolplaces_p.h"

#include <QByteArray>
#include <QFile>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace KezService {

namespace {

QString holderOf(const Descriptor& lock)
{
    std::array<char, 20> text{};
    const ssize_t length = ::pread(lock.get(), text.data(), text.size(), 0);
    return shownName(QString::fromLatin1(text.data(), length < 0 ? 0 : length).trimmed());
}

} // namespace

SpoolLock::SpoolLock(const QString& spool)
{
    const QString path = SpoolPlaces::lock(spool);
    _file = openFile(QFile::encodeName(path), O_RDWR | O_CREAT | O_NOFOLLOW, 0666);
    if (!_file.isOpen())
        raise("RunnerLockFailed", shownName(path), systemErrorText(errno));
    if (::flock(_file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK)
            raise("RunnerSpoolTaken", shownName(spool), holderOf(_file));
        raise("RunnerLockFailed", shownName(path), systemErrorText(errno));
    }
    const QByteArray id = QByteArray::number(::getpid()) + '\n';
    if (::ftruncate(_file.get(), 0) == 0)
        writeAll(_file.get(), id); // only a text: a failure changes nothing
}

} // namespace KezService
