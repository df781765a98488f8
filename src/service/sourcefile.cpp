// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/sourcefile_p.h"

#include "service/durablefiles_p.h"
#include "service/refusal_p.h"

#include <cerrno>
#include <fcntl.h>

namespace KezService {

namespace {

Refusal refusalBy(const QByteArray& path, int error)
{
    return Refusal::bySystem(path, error,
                             error == ENOENT ? Refusal::Kind::Gone : Refusal::Kind::Other);
}

void checkKind(mode_t mode)
{
    if (S_ISLNK(mode))
        throw Refusal::because(Refusal::Kind::Other, "DeliverySourceLink");
    if (!S_ISREG(mode))
        throw Refusal::because(Refusal::Kind::Other, "DeliverySourceSpecial");
}

} // namespace

SourceFile::SourceFile(const QByteArray& path, Link link) : _path(path)
{
    // To the system the path would end there, and lead to another file.
    if (path.contains('\0'))
        throw Refusal::because(Refusal::Kind::Other, "DeliverySourceZero");
    const bool isFollowed = link == Link::Followed;
    const int error =
        isFollowed ? ::stat(path.constData(), &_status) : ::lstat(path.constData(), &_status);
    if (error != 0)
        throw refusalBy(path, errno);
    checkKind(_status.st_mode);
    // Another file may have taken its place since: so the opening does not wait, either.
    _file = openFile(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | (isFollowed ? 0 : O_NOFOLLOW));
    if (!_file.isOpen() && errno == EACCES)
        throw Refusal::because(Refusal::Kind::Other, "DeliverySourceUnreadable",
                               shownName(QFile::decodeName(path)));
    if (!_file.isOpen() || ::fstat(_file.get(), &_status) != 0)
        throw refusalBy(path, errno);
    checkKind(_status.st_mode);
}

void SourceFile::copyTo(int file, const QByteArray& path) const
{
    const int error = copyBytes(_file.get(), file, &isInterrupted);
    if (error == ECANCELED)
        throw Refusal::because(Refusal::Kind::Interrupted, "DeliveryInterrupted");
    Refusal::check(path, error);
    const auto now = statusOf(_file.get());
    if (!now || !(FileState(*now) == state()))
        throw Refusal::because(Refusal::Kind::Changing, "DeliverySourceChanged");
    // The copy belongs to this process's user, whose queue takes only what he may read and write.
    if (::fchmod(file, (_status.st_mode & 0777) | S_IRUSR | S_IWUSR) != 0)
        throw Refusal::bySystem(path, errno);
}

bool SourceFile::isStillThere() const
{
    const auto now = statusOf(_path);
    return now && FileState(*now) == state();
}

} // namespace KezService
