// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/queueentrance_p.h"

#include "service/durablefiles_p.h"
#include "service/filelock_p.h"
#include "service/growingfiles_p.h"
#include "service/sourceremoval_p.h"
#include "service/spoolname_p.h"

#include <QFile>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace KezService {

namespace {

/// One process at a time copies a file, so that two gates do not hand it on twice. A file system
/// without locks lets both.
void lockSource(const SourceFile& source)
{
    if (lockFile(source.descriptor()) == EWOULDBLOCK)
        throw Refusal::because(Refusal::Kind::Changing, "DeliverySourceLocked");
    if (!source.isStillThere())
        throw Refusal::because(Refusal::Kind::Changing, "DeliverySourceChanged");
}

/// A queue of this process would never take a file that it may not write. All other errors are left
/// to the rename: a file system that is mounted for reading only, for instance.
bool isWritable(const QByteArray& path)
{
    return ::faccessat(AT_FDCWD, path.constData(), W_OK, AT_EACCESS) == 0 || errno != EACCES;
}

/// Whether the process may do what only the owner of a file may, as root usually may.
bool actsForOwners()
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
    return ::syscall(SYS_capget, &header, sets.data()) == 0 && // NOLINT(*-vararg)
           (sets[CAP_TO_INDEX(CAP_FOWNER)].effective & CAP_TO_MASK(CAP_FOWNER)) != 0;
}

/// Before the copy is made: a source that stays would be handed on again and again.
void checkRemovable(const SourceFile& source)
{
    const QByteArray directory = directoryOf(source.path());
    struct stat status {};
    if (::faccessat(AT_FDCWD, directory.constData(), W_OK | X_OK, AT_EACCESS) != 0 ||
        ::stat(directory.constData(), &status) != 0)
        throw Refusal::bySystem(directory, errno);
    const uid_t user = ::geteuid();
    const bool isOwner = user == status.st_uid || user == source.status().st_uid;
    if ((status.st_mode & S_ISVTX) != 0 && !isOwner && !actsForOwners())
        throw Refusal::because(Refusal::Kind::Other, "DeliverySourceSticky");
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

QueueEntrance::QueueEntrance(const QString& directory, NameTaken ifTaken)
    : _directory(directory), _path(QFile::encodeName(directory)), _ifTaken(ifTaken)
{}

void QueueEntrance::checkFree(const QByteArray& name) const
{
    if (_ifTaken == NameTaken::Refuse && isTaken(name))
        throw Refusal::because(Refusal::Kind::NameTaken, "DeliveryNameTaken");
}

QByteArray QueueEntrance::enter(const QByteArray& from, const QByteArray& name) const
{
    if (tryToEnter(from, name))
        return name;
    if (_ifTaken == NameTaken::FreshName)
        return enterFresh(from, name);
    throw Refusal::because(Refusal::Kind::NameTaken, "DeliveryNameTaken");
}

/// If a name is taken meanwhile, another producer has succeeded: so this ends.
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
    return areNamesOfOne(from, pathOf(name)) && ::unlink(from.constData()) == 0;
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
    if (!isWritable(path))
        return copyIn(source, name);
    Refusal::check(path, syncFile(source.descriptor()));
    if (!source.isStillThere())
        throw Refusal::because(Refusal::Kind::Changing, "DeliverySourceChanged");
    try {
        Entered entered{enter(path, name)};
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
    Entered entered{enter(files.pathOf(0), name)};
    files.firstHasLeft();
    try {
        Refusal::check(_path, sync()); // the copy's name is on the disk before the source is gone
        SourceRemoval::remove(source.path(), source.state());
    } catch (const Refusal& refusal) {
        entered.sourceFault = refusal;
    }
    return entered;
}

int QueueEntrance::sync() const
{
    return syncDirectory(_path);
}

int QueueEntrance::syncSources(const QByteArray& directory)
{
    const int error = syncDirectory(directory);
    return error == EACCES || error == ENOENT || error == ENOTDIR ? 0 : error;
}

} // namespace KezService
