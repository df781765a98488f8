// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/queuelisting_p.h"

#include <QFile>
#include <QStringDecoder>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// Whether the error of a call on a name says that the file is not for the queue. Any other error
/// says nothing about the file.
bool isRefusal(int error)
{
    switch (error) {
    case ENOENT:
    case ENOTDIR:
    case EACCES:
    case EPERM:
    case EROFS:
    case ELOOP:
    case ENAMETOOLONG:
        return true;
    default:
        return false;
    }
}

using Kind = ListedFile::Kind;

/// What a failed call says of a file; nothing if the file is not listed.
std::optional<Kind> kindWithoutAnswer()
{
    return isRefusal(errno) ? std::nullopt : std::optional(Kind::Unknown);
}

std::optional<Kind> kindBehindLink(int directory, const char* name)
{
    struct stat target {};
    if (fstatat(directory, name, &target, 0) != 0)
        return kindWithoutAnswer();
    if (S_ISDIR(target.st_mode))
        return std::nullopt;
    return S_ISREG(target.st_mode) ? Kind::Regular : Kind::Refused;
}

std::optional<Kind> kindOf(int directory, const dirent& entry)
{
    switch (entry.d_type) {
    case DT_REG:
        return Kind::Regular;
    case DT_LNK:
        return kindBehindLink(directory, entry.d_name);
    case DT_UNKNOWN: // the file system does not say
        break;
    default:
        return std::nullopt;
    }
    struct stat status {};
    if (fstatat(directory, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0)
        return kindWithoutAnswer();
    if (S_ISLNK(status.st_mode))
        return kindBehindLink(directory, entry.d_name);
    return S_ISREG(status.st_mode) ? std::optional(Kind::Regular) : std::nullopt;
}

/// The file, unless the directory hides it from the queue.
std::optional<ListedFile> listedFile(int directory, const dirent& entry)
{
    if (entry.d_name[0] == '.')
        return std::nullopt;
    std::optional<Kind> kind = kindOf(directory, entry);
    if (kind && faccessat(directory, entry.d_name, R_OK | W_OK, 0) != 0)
        kind = kindWithoutAnswer();
    if (!kind)
        return std::nullopt;
    // A byte order mark at the beginning is part of the name.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless |
                                                     QStringDecoder::Flag::ConvertInitialBom);
    QString name = decoder(QByteArrayView(entry.d_name, qsizetype(std::strlen(entry.d_name))));
    if (decoder.hasError())
        return std::nullopt;
    return ListedFile{std::move(name), entry.d_ino, *kind};
}

/// The state of a directory whose reading began at `start`.
DirectoryState stateOf(int directory, std::time_t start)
{
    DirectoryState state;
    struct stat status {};
    if (fstat(directory, &status) != 0)
        return state;
    state.device = status.st_dev;
    // Not the time of modification, which anybody may set.
    state.lastChange = Moment(status.st_ctim.tv_sec, status.st_ctim.tv_nsec);
    state.isSettled = status.st_ctim.tv_sec + DirectoryState::Coarseness + 1 < start;
    return state;
}

std::optional<DirectoryIdentity> identityIn(const struct stat& status)
{
    if (!S_ISDIR(status.st_mode))
        return std::nullopt;
    return DirectoryIdentity(status.st_dev, status.st_ino);
}

FileIdentity identityIn(const struct statx& status, quint64 device)
{
    FileIdentity identity{device, status.stx_ino, std::nullopt};
    if (status.stx_mask & STATX_BTIME)
        identity.birth = Moment(status.stx_btime.tv_sec, status.stx_btime.tv_nsec);
    return identity;
}

} // namespace

qsizetype QueueListing::count() const
{
    return std::count_if(files.begin(), files.end(),
                         [](const ListedFile& file) { return file.kind != Kind::Unknown; });
}

std::optional<DirectoryIdentity> directoryIdentity(const QString& path)
{
    struct stat status {};
    if (stat(QFile::encodeName(path).constData(), &status) != 0)
        return std::nullopt;
    return identityIn(status);
}

OpenQueueDirectory::OpenQueueDirectory(const QString& path)
    : _path(QFile::encodeName(path)), _stream(opendir(_path.constData()), &closedir)
{
    const int error = errno;
    struct stat status {};
    if (_stream ? fstat(descriptor(), &status) == 0 : stat(_path.constData(), &status) == 0)
        _identity = identityIn(status);
    errno = error;
}

std::optional<OpenQueueDirectory> OpenQueueDirectory::open(const QString& path)
{
    OpenQueueDirectory directory(path);
    const int error = errno;
    if (!directory._stream && error != ENOENT && error != ENOTDIR && error != EACCES)
        return std::nullopt;
    return directory;
}

std::optional<DirectoryIdentity> OpenQueueDirectory::identity() const
{
    return _stream ? _identity : std::nullopt;
}

std::optional<QueueListing> OpenQueueDirectory::list() const
{
    QueueListing listing;
    if (!_stream)
        return listing;
    timespec start{};
    clock_gettime(CLOCK_REALTIME, &start);
    errno = 0;
    while (const dirent* const entry = readdir(_stream.get())) {
        if (auto file = listedFile(descriptor(), *entry))
            listing.files.append(*std::move(file));
        errno = 0;
    }
    if (errno != 0)
        return std::nullopt;
    // Asked for after the reading, so that it is not older than a file that came meanwhile. This
    // loses nothing: consumers report a file only after its listing.
    listing.directory = stateOf(descriptor(), start.tv_sec);
    std::sort(listing.files.begin(), listing.files.end(),
              [](const ListedFile& a, const ListedFile& b) { return a.name < b.name; });
    // A name may be read twice if it is renamed while the directory is read.
    listing.files.erase(
        std::unique(listing.files.begin(), listing.files.end(),
                    [](const ListedFile& a, const ListedFile& b) { return a.name == b.name; }),
        listing.files.end());
    return listing;
}

void OpenQueueDirectory::remove(const QString& name) const
{
    unlinkat(descriptor(), systemName(name).constData(), 0);
}

ListedFileIdentity OpenQueueDirectory::identify(const ListedFile& file,
                                                const QueueListing& listing) const
{
    if (listing.directory.isSettled)
        return {file.inode, listing.directory};
    return {file.inode, listing.directory, identityOf(systemName(file.name))};
}

std::optional<FileIdentity> OpenQueueDirectory::removeKnown(const QString& name,
                                                            const ListedFileIdentity& known) const
{
    const QByteArray path = systemName(name);
    const std::optional<FileIdentity> found = identityOf(path);
    if (found && !known.isOf(*found))
        return found;
    if (found)
        unlinkat(descriptor(), path.constData(), 0);
    return std::nullopt;
}

int OpenQueueDirectory::descriptor() const
{
    return _stream ? dirfd(_stream.get()) : AT_FDCWD;
}

/// Nothing if the file, or the target of the link, does not exist.
std::optional<FileIdentity> OpenQueueDirectory::identityOf(const QByteArray& path) const
{
    struct statx status {};
    if (statx(descriptor(), path.constData(), AT_SYMLINK_NOFOLLOW,
              STATX_TYPE | STATX_INO | STATX_BTIME, &status) != 0)
        return std::nullopt;
    if (S_ISLNK(status.stx_mode) && faccessat(descriptor(), path.constData(), F_OK, 0) != 0)
        return std::nullopt;
    return identityIn(status, _identity ? _identity->first : 0);
}

/// The name, relative to the descriptor; the path if the directory may be entered but not read.
QByteArray OpenQueueDirectory::systemName(const QString& name) const
{
    const QByteArray encoded = QFile::encodeName(name);
    return _stream ? encoded : _path + '/' + encoded;
}
