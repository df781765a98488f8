// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/durablefiles_p.h"

#include "service/filestate_p.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KezService {

namespace {

/// Makes the call again as long as a signal interrupts it.
template <typename Call>
auto uninterrupted(Call call)
{
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

template <typename Result>
int errorOf(Result result)
{
    return result < 0 ? errno : 0;
}

/// For a file system without renameat2(RENAME_NOREPLACE).
int linkAndUnlink(const QByteArray& from, const QByteArray& to)
{
    if (::link(from.constData(), to.constData()) != 0)
        return errno;
    if (::unlink(from.constData()) == 0 || errno == ENOENT)
        return 0;
    const int error = errno;
    // A consumer may have taken it since, and another producer the name.
    if (areNamesOfOne(from, to))
        ::unlink(to.constData());
    return error;
}

/// Writes a new file, with the mode of the one at `model` if there is one, and syncs it.
int writeSynced(const QByteArray& path, const QByteArray& model, QByteArrayView bytes, mode_t mode)
{
    // O_NONBLOCK: to open a fifo would wait for its reader.
    constexpr int Flags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK;
    struct stat replaced {};
    const bool hasModel = ::stat(model.constData(), &replaced) == 0;
    // Never open to more users than the file that it replaces, not even for a moment.
    const Descriptor file = openFile(path, Flags, hasModel ? replaced.st_mode & 0700 : mode);
    if (!file.isOpen() || (hasModel && ::fchmod(file.get(), replaced.st_mode & 07777) != 0))
        return errno;
    if (const int error = writeAll(file.get(), bytes); error != 0)
        return error;
    return syncFile(file.get());
}

} // namespace

Descriptor openFile(const QByteArray& path, int flags, mode_t mode)
{
    return Descriptor(uninterrupted(
        [&] { return ::open(path.constData(), flags | O_CLOEXEC, mode); })); // NOLINT(*-vararg)
}

int writeAll(int descriptor, QByteArrayView bytes)
{
    while (!bytes.isEmpty()) {
        const ssize_t written = uninterrupted(
            [&] { return ::write(descriptor, bytes.data(), static_cast<size_t>(bytes.size())); });
        if (written < 0)
            return errno;
        bytes = bytes.sliced(written);
    }
    return 0;
}

int copyBytes(int from, int to, bool (*isCancelled)())
{
    std::array<char, 65536> buffer; // NOLINT(*-member-init): filled by read()
    while (true) {
        if (isCancelled && isCancelled())
            return ECANCELED;
        const ssize_t count =
            uninterrupted([&] { return ::read(from, buffer.data(), buffer.size()); });
        if (count <= 0)
            return errorOf(count);
        if (const int error = writeAll(to, QByteArrayView(buffer.data(), count)); error != 0)
            return error;
    }
}

int syncFile(int descriptor)
{
    return errorOf(uninterrupted([&] { return ::fsync(descriptor); }));
}

int syncDirectory(const QByteArray& path)
{
    const Descriptor directory = openFile(path, O_RDONLY | O_DIRECTORY);
    return directory.isOpen() ? syncFile(directory.get()) : errno;
}

int renameWithoutReplacing(const QByteArray& from, const QByteArray& to)
{
    if (::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) == 0)
        return 0;
    const bool isUnknown = errno == EINVAL || errno == ENOSYS;
    return isUnknown ? linkAndUnlink(from, to) : errno;
}

int replaceFile(const QByteArray& path, const QByteArray& temporary, QByteArrayView bytes,
                mode_t mode)
{
    int error = writeSynced(temporary, path, bytes, mode);
    if (error == 0)
        error = errorOf(::rename(temporary.constData(), path.constData()));
    if (error != 0) {
        ::unlink(temporary.constData());
        return error;
    }
    return syncDirectory(directoryOf(path));
}

QByteArray directoryOf(const QByteArray& path)
{
    const qsizetype slash = path.lastIndexOf('/');
    if (slash < 0)
        return ".";
    return slash == 0 ? QByteArray("/") : path.left(slash);
}

} // namespace KezService
