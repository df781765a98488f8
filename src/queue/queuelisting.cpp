// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/queuelisting_p.h"

#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

enum class Kind { Regular, Special, NotListed };

Kind kindBehindLink(int directory, const char* name)
{
    struct stat target {};
    if (fstatat(directory, name, &target, 0) != 0 || S_ISDIR(target.st_mode))
        return Kind::NotListed;
    return S_ISREG(target.st_mode) ? Kind::Regular : Kind::Special;
}

Kind kindOf(int directory, const dirent& entry)
{
    switch (entry.d_type) {
    case DT_REG:
        return Kind::Regular;
    case DT_LNK:
        return kindBehindLink(directory, entry.d_name);
    case DT_UNKNOWN: // the file system does not say
        break;
    default:
        return Kind::NotListed;
    }
    struct stat status {};
    if (fstatat(directory, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0)
        return Kind::NotListed;
    if (S_ISLNK(status.st_mode))
        return kindBehindLink(directory, entry.d_name);
    return S_ISREG(status.st_mode) ? Kind::Regular : Kind::NotListed;
}

/// The file, unless the directory hides it from the queue.
std::optional<ListedFile> listedFile(int directory, const dirent& entry)
{
    if (entry.d_name[0] == '.')
        return std::nullopt;
    const Kind kind = kindOf(directory, entry);
    if (kind == Kind::NotListed || faccessat(directory, entry.d_name, R_OK | W_OK, 0) != 0)
        return std::nullopt;
    // With a byte order mark in front, which is part of the name.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless |
                                                     QStringDecoder::Flag::ConvertInitialBom);
    QString name = decoder(QByteArrayView(entry.d_name, qsizetype(std::strlen(entry.d_name))));
    if (decoder.hasError())
        return std::nullopt;
    return ListedFile{std::move(name), kind == Kind::Regular};
}

bool isGone(int error)
{
    return error != EMFILE && error != ENFILE && error != ENOMEM && error != EIO;
}

} // namespace

bool isUsableDirectory(const QString& path)
{
    const QFileInfo info(path);
    return info.exists() && info.isDir() && info.isWritable() && info.isReadable();
}

std::optional<QList<ListedFile>> listQueueDirectory(const QString& path)
{
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(
        opendir(QFile::encodeName(path).constData()), &closedir);
    QList<ListedFile> files;
    if (!directory)
        return isGone(errno) ? std::optional(files) : std::nullopt;
    errno = 0;
    while (const dirent* const entry = readdir(directory.get())) {
        if (auto file = listedFile(dirfd(directory.get()), *entry))
            files.append(*std::move(file));
        errno = 0;
    }
    if (errno != 0)
        return std::nullopt;
    std::sort(files.begin(), files.end(),
              [](const ListedFile& a, const ListedFile& b) { return a.name < b.name; });
    return files;
}
