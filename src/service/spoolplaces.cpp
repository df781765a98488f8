// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/spoolplaces_p.h"

#include "service/descriptor_p.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace KezService::SpoolPlaces {

namespace {

QString placed(const QString& spool, QLatin1String name)
{
    return hidden(spool) + QLatin1Char('/') + name;
}

/// No link is followed.
Descriptor openDirectory(const QByteArray& path)
{
    constexpr int Flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    int number = ::open(path.constData(), Flags); // NOLINT(*-vararg)
    while (number < 0 && errno == EINTR)
        number = ::open(path.constData(), Flags); // NOLINT(*-vararg)
    return Descriptor(number);
}

} // namespace

QString hidden(const QString& spool)
{
    return spool + QStringLiteral("/.kez");
}

QString lock(const QString& spool)
{
    return placed(spool, QLatin1String("lock"));
}

QString journal(const QString& spool)
{
    return placed(spool, QLatin1String("journal"));
}

QString status(const QString& spool)
{
    return placed(spool, QLatin1String("status.json"));
}

QString quarantine(const QString& spool)
{
    return placed(spool, QLatin1String("quarantine"));
}

QString incoming(const QString& spool)
{
    return placed(spool, QLatin1String("incoming"));
}

int makePlace(const QString& path, const QString& spool)
{
    struct stat model {};
    if (::stat(QFile::encodeName(spool).constData(), &model) != 0)
        return errno;
    const QByteArray place = QFile::encodeName(path);
    const mode_t mode = model.st_mode & 07777;
    if (::mkdir(place.constData(), mode | S_IRWXU) != 0)
        return errno == EEXIST ? 0 : errno;
    // mkdir() minds the process's mask: producers of other users deliver here, too. Somebody else
    // may have put a link there since, which is not followed.
    const Descriptor made = openDirectory(place);
    return made.isOpen() && ::fchmod(made.get(), mode) == 0 ? 0 : errno;
}

} // namespace KezService::SpoolPlaces
