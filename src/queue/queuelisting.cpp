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

/// The kind of an entry, unless the directory hides it from the queue.
std::optional<Kind> visibleKind(int directory, const dirent& entry)
{
    if (entry.d_name[0] == '.')
        return std::nullopt;
    const std::optional<Kind> kind = kindOf(directory, entry);
    if (kind && faccessat(directory, entry.d_name, R_OK | W_OK, 0) != 0)
        return kindWithoutAnswer();
    return kind;
}

/// Like readdir(), with errno 0 at the end of the directory.
const dirent* nextEntry(DIR* stream)
{
    errno = 0;
    return readdir(stream);
}

/// Appends the text of a name. False if it is not UTF-8.
bool appendName(QString& names, const char* name)
{
    // A byte order mark at the beginning is part of the name.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless |
                                                     QStringDecoder::Flag::ConvertInitialBom);
    const QByteArrayView bytes(name, static_cast<qsizetype>(std::strlen(name)));
    const qsizetype start = names.size();
    names.resize(start + decoder.requiredSpace(bytes.size()));
    const QChar* const end = decoder.appendToBuffer(names.data() + start, bytes);
    names.truncate(decoder.hasError() ? start : end - names.constData());
    return !decoder.hasError();
}

/// The first four letters as one number of the same order.
quint64 rankOf(QStringView name)
{
    quint64 rank = 0;
    for (qsizetype i = 0; i < 4; ++i)
        rank = rank << 16 | (i < name.size() ? name[i].unicode() : 0U);
    return rank;
}

/// The number of letters with which every name begins.
qsizetype sharedLetters(const QueueListing& listing, const std::vector<ListedFile>& files)
{
    QStringView shared = files.empty() ? QStringView() : listing.nameOf(files.front());
    for (const ListedFile& file : files) {
        const QStringView name = listing.nameOf(file);
        const auto end = std::mismatch(shared.begin(), shared.end(), name.begin(), name.end());
        shared.truncate(end.first - shared.begin());
    }
    return shared.size();
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

std::vector<ListedFile> QueueListing::sorted(const std::vector<ListedFile>& unsorted) const
{
    // The letters behind those that all names share decide most comparisons as one number.
    struct Ranked {
        quint64 rank;
        const ListedFile* file;
    };
    const qsizetype shared = sharedLetters(*this, unsorted);
    std::vector<Ranked> order;
    order.reserve(unsorted.size());
    for (const ListedFile& file : unsorted)
        order.push_back({rankOf(nameOf(file).sliced(shared)), &file});
    std::sort(order.begin(), order.end(), [this](const Ranked& a, const Ranked& b) {
        return a.rank == b.rank ? nameOf(*a.file) < nameOf(*b.file) : a.rank < b.rank;
    });
    std::vector<ListedFile> result;
    result.reserve(order.size());
    for (const Ranked& next : order) {
        if (result.empty() || nameOf(result.back()) != nameOf(*next.file))
            result.push_back(*next.file);
    }
    return result;
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
    while (const dirent* const entry = nextEntry(_stream.get())) {
        const std::optional<Kind> kind = visibleKind(descriptor(), *entry);
        const qsizetype end = listing.names.size();
        if (kind && appendName(listing.names, entry->d_name))
            listing.files.push_back({end, listing.names.size() - end, entry->d_ino, *kind});
    }
    if (errno != 0)
        return std::nullopt;
    // Asked for after the reading, so that it is not older than a file that came meanwhile. This
    // loses nothing: consumers report a file only after its listing.
    listing.directory = stateOf(descriptor(), start.tv_sec);
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
    return {file.inode, listing.directory, identityOf(systemName(listing.nameOf(file)))};
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
QByteArray OpenQueueDirectory::systemName(QStringView name) const
{
    const QByteArray encoded = name.toUtf8();
    return _stream ? encoded : _path + '/' + encoded;
}
