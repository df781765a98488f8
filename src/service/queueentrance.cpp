// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/queueentrance_p.h"

#include "service/durablefiles_p.h"
#include "service/growingfiles_p.h"
#include "service/refusal_p.h"
#include "service/spoolname_p.h"

#include <QFile>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace KezService {

namespace {

bool isSameFile(const QByteArray& a, const QByteArray& b)
{
    const auto first = statusOf(a);
    const auto second = statusOf(b);
    return first && second && FileState(*first).isOfSameFile(FileState(*second));
}

/// One process at a time copies a file, so that two gates do not hand it on twice. A file system
/// without locks lets both.
void lockSource(const SourceFile& source)
{
    if (::flock(source.descriptor(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        throw Refusal::because(Refusal::Kind::Changing, "DeliverySourceLocked");
    if (!source.isStillThere())
        throw Refusal::because(Refusal::Kind::Changing, "DeliverySourceChanged");
}

/// Before the copy is made: a source that stays would be handed on again and again.
void checkRemovable(const SourceFile& source)
{
    const QByteArray directory = directoryOf(source.path());
    if (::faccessat(AT_FDCWD, directory.constData(), W_OK | X_OK, AT_EACCESS) != 0)
        throw Refusal::bySystem(directory, errno);
}

/// Writes the copy to the disk, with the times of the source.
void writeCopy(const SourceFile& source, const Descriptor& copy, const QByteArray& path)
{
    source.copyTo(copy.get(), path);
    const std::array<timespec, 2> times = {source.status().st_atim, source.status().st_mtim};
    if (::futimens(copy.get(), times.data()) != 0)
        throw Refusal::bySystem(path, errno);
    Refusal::check(path, syncFile(copy.get()));
}

} // namespace

QueueEntrance::QueueEntrance(const QString& directory, IfTaken ifTaken)
    : _directory(directory), _path(QFile::encodeName(directory)), _ifTaken(ifTaken)
{}

void QueueEntrance::checkFree(const QByteArray& name) const
{
    if (_ifTaken == IfTaken::Refuse && isTaken(name))
        throw Refusal::because(Refusal::Kind::NameTaken, "DeliveryNameTaken");
}

QByteArray QueueEntrance::enter(const QByteArray& from, const QByteArray& name) const
{
    if (tryToEnter(from, name))
        return name;
    if (_ifTaken == IfTaken::FreshName)
        return enterFresh(from, name);
    throw Refusal::because(Refusal::Kind::NameTaken, "DeliveryNameTaken");
}

/// Each name that is lost here has been taken by another producer, which has got on.
QByteArray QueueEntrance::enterFresh(const QByteArray& from, const QByteArray& name) const
{
    constexpr int MaxTries = 10000;
    for (int tries = 0; tries < MaxTries; ++tries) {
        QByteArray fresh = freeName(name);
        if (tryToEnter(from, fresh))
            return fresh;
    }
    throw Refusal::because(Refusal::Kind::NameTaken, "DeliveryNoFreshName");
}

/// False if the name is taken by another file.
bool QueueEntrance::tryToEnter(const QByteArray& from, const QByteArray& name) const
{
    const int error = renameWithoutReplacing(from, pathOf(name));
    if (error == 0)
        return true;
    if (error != EEXIST)
        throw Refusal::bySystem(pathOf(name), error,
                                error == ENOENT && !statusOf(from) ? Refusal::Kind::Gone
                                                                   : Refusal::Kind::Other);
    // Where a rename takes two steps, a process was killed between them.
    return isSameFile(from, pathOf(name)) && ::unlink(from.constData()) == 0;
}

bool QueueEntrance::isTaken(const QByteArray& name) const
{
    const QByteArray path = pathOf(name);
    if (statusOf(path))
        return true;
    if (errno != ENOENT)
        throw Refusal::bySystem(path, errno);
    return false;
}

/// Doubles the number until it is free, then halves the distance to the last one that is taken: for
/// ten thousand equal names, less than 30 looks.
QByteArray QueueEntrance::freeName(const QByteArray& name) const
{
    constexpr quint64 MaxNumber = quint64(1) << 40;
    quint64 taken = 1;
    quint64 free = 2;
    for (; isTaken(SpoolName::numbered(name, free)); free *= 2) {
        if (free > MaxNumber)
            throw Refusal::because(Refusal::Kind::NameTaken, "DeliveryNoFreshName");
        taken = free;
    }
    while (free - taken > 1) {
        const quint64 middle = taken + (free - taken) / 2;
        (isTaken(SpoolName::numbered(name, middle)) ? taken : free) = middle;
    }
    return SpoolName::numbered(name, free);
}

QueueEntrance::Entered QueueEntrance::moveIn(const QByteArray& path, const QByteArray& name,
                                             const std::optional<FileState>& expected) const
{
    const SourceFile source(path, SourceFile::Link::Refused);
    if (leadToOne(directoryOf(path), _path))
        throw Refusal::because(Refusal::Kind::Other, "DeliverySourceInQueue");
    if (expected && !(source.state() == *expected))
        throw Refusal::because(Refusal::Kind::Changing, "DeliverySourceChanged");
    Refusal::check(path, syncFile(source.descriptor()));
    if (!source.isStillThere())
        throw Refusal::because(Refusal::Kind::Changing, "DeliverySourceChanged");
    try {
        Entered entered{enter(path, name), 0};
        takeBackOther(source, entered.name);
        return entered;
    } catch (const Refusal& refusal) {
        if (refusal.error != EXDEV)
            throw;
    }
    return copyIn(source, name);
}

/// A rename moves what has the name at that instant. If this is not the file that was looked at,
/// but one that took its place just now, nobody knows whether it is whole. It stays if a consumer
/// has it already, or if the place that it had is taken again.
void QueueEntrance::takeBackOther(const SourceFile& source, const QByteArray& name) const
{
    const auto entered = statusOf(pathOf(name));
    if (!entered || FileState(*entered).isOfSameFile(source.state()))
        return;
    if (renameWithoutReplacing(pathOf(name), source.path()) == 0)
        throw Refusal::because(Refusal::Kind::Changing, "DeliverySourceChanged");
}

QueueEntrance::Entered QueueEntrance::copyIn(const SourceFile& source, const QByteArray& name) const
{
    checkFree(name);
    checkRemovable(source);
    lockSource(source);
    GrowingFiles files(_directory);
    writeCopy(source, files.create(0600), files.pathOf(0));
    Entered entered{enter(files.pathOf(0), name), 0};
    files.firstHasLeft();
    // The copy's name is on the disk before the source is gone.
    entered.sourceError = sync();
    if (entered.sourceError == 0 && source.isStillThere() &&
        ::unlink(source.path().constData()) != 0 && errno != ENOENT)
        entered.sourceError = errno;
    return entered;
}

int QueueEntrance::sync() const
{
    return syncDirectory(_path);
}

} // namespace KezService
