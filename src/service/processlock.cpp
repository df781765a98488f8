// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/processlock_p.h"

#include "service/durablefiles_p.h"
#include "service/filelock_p.h"
#include "service/filestate_p.h"
#include "service/kittexts_p.h"

#include <QByteArray>
#include <QFile>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace KezService {

namespace {

QString textIn(const Descriptor& file)
{
    std::array<char, 20> text{};
    const ssize_t length = ::pread(file.get(), text.data(), text.size(), 0);
    return shownName(QString::fromLatin1(text.data(), length < 0 ? 0 : length).trimmed());
}

} // namespace

bool ProcessLock::isOn(const QString& path) const
{
    // Without an answer it is out of reach, and perhaps there.
    return isNameOf(QFile::encodeName(path), _file.get()).value_or(true);
}

int ProcessLock::take()
{
    if (_path.contains(QChar(0))) // the system would take a part of the path
        return EINVAL;
    constexpr int Flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK;
    _file.close();
    while (!isInPlace()) { // again if it was removed meanwhile
        Descriptor file = openFile(QFile::encodeName(_path), Flags, _mode);
        if (!file.isOpen())
            return errno;
        if (const int error = lockFile(file.get()); error != 0) {
            _holder = textIn(file);
            return error;
        }
        _file = std::move(file);
    }
    const QByteArray id = QByteArray::number(::getpid()) + '\n';
    if (::ftruncate(_file.get(), 0) == 0)
        writeAll(_file.get(), id); // only a text: a failure changes nothing
    return 0;
}

} // namespace KezService
