// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/quarantine_p.h"

#include "service/durablefiles_p.h"
#include "service/filestate_p.h"
#include "service/kittexts_p.h"
#include "service/spoolname_p.h"
#include "service/spoolplaces_p.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace KezService {

namespace {

constexpr auto TextSuffix = QLatin1String(".txt");
constexpr qsizetype LongestName = NAME_MAX - TextSuffix.size(); // bytes
constexpr quint64 MostCandidates = 100000;

/// The name under which the file, and before it the text, grows. It is the same after a restart, so
/// that what an interruption has left there is replaced.
QByteArray growingName(const QuarantineNote& note)
{
    const QByteArray consumer =
        QCryptographicHash::hash(note.consumer.toUtf8(), QCryptographicHash::Md5).toHex();
    return ".growing-" + note.key.toUtf8() + '-' + consumer;
}

QByteArray textOf(const QString& name, const QuarantineNote& note)
{
    const QString moment = QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs);
    const QString lines =
        QStringLiteral("# %1\nconsumer=%2\nfile=%3\nkey=%4\nreason=%5\ntime=%6\n"
                       "tries=%7\n")
            .arg(kitText("QuarantineTextHead"), shownName(note.consumer), shownName(name), note.key,
                 shownName(note.reason), moment, QString::number(note.tries));
    return lines.toUtf8();
}

/// Whether the text at `path` is about the same file and consumer.
bool isTextOf(const QByteArray& path, const QuarantineNote& note)
{
    const Descriptor file = openFile(path, O_RDONLY | O_NONBLOCK | O_NOFOLLOW);
    std::array<char, 4096> start{};
    const ssize_t count = file.isOpen() ? ::read(file.get(), start.data(), start.size()) : -1;
    if (count < 0)
        return false;
    const QByteArray text(start.data(), count);
    const QByteArray consumer = "\nconsumer=" + shownName(note.consumer).toUtf8() + '\n';
    return text.contains(consumer) && text.contains("\nkey=" + note.key.toUtf8() + '\n');
}

bool hasSameBytes(const QByteArray& path, const QByteArray& other)
{
    constexpr qint64 Block = 65536;
    QFile file(QFile::decodeName(path));
    QFile otherFile(QFile::decodeName(other));
    if (!file.open(QIODevice::ReadOnly) || !otherFile.open(QIODevice::ReadOnly) ||
        file.size() != otherFile.size())
        return false;
    while (true) {
        const QByteArray block = file.read(Block);
        if (block != otherFile.read(Block))
            return false;
        if (block.isEmpty())
            return file.atEnd() && otherFile.atEnd();
    }
}

bool isTaken(const QByteArray& path)
{
    return statusOf(path).has_value();
}

/// Fills a new file at `growing`, syncs it, and renames it to `to`: EEXIST if that is taken.
template <typename Fill>
int makeDurably(const QByteArray& growing, const QByteArray& to, mode_t mode, Fill fill)
{
    ::unlink(growing.constData()); // an interruption has left it
    const Descriptor file = openFile(growing, O_WRONLY | O_CREAT | O_EXCL, mode);
    if (!file.isOpen())
        return errno;
    int error = fill(file.get());
    if (error == 0)
        error = syncFile(file.get());
    if (error == 0)
        error = renameWithoutReplacing(growing, to);
    if (error != 0)
        ::unlink(growing.constData());
    return error;
}

int copyDurably(const Descriptor& from, const QByteArray& growing, const QByteArray& to)
{
    struct stat info {};
    if (::fstat(from.get(), &info) != 0)
        return errno;
    return makeDurably(growing, to, info.st_mode & 0777,
                       [&from](int copy) { return copyBytes(from.get(), copy); });
}

/// A hard link, or a copy where there cannot be one; the data are on the disk. EEXIST if `to` is
/// taken by another file.
int linkOrCopy(const QByteArray& from, const QByteArray& growing, const QByteArray& to)
{
    const Descriptor source = openFile(from, O_RDONLY | O_NONBLOCK);
    if (!source.isOpen())
        return errno;
    if (const int error = syncFile(source.get()); error != 0 && error != EINVAL)
        return error;
    if (::linkat(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), AT_SYMLINK_FOLLOW) == 0)
        return 0;
    if (errno == EEXIST)
        return leadToOne(from, to) ? 0 : EEXIST;
    constexpr std::array NoLinks{EXDEV, EPERM, EMLINK, EOPNOTSUPP, ENOSYS};
    if (std::find(NoLinks.begin(), NoLinks.end(), errno) == NoLinks.end())
        return errno;
    return copyDurably(source, growing, to);
}

} // namespace

Quarantine::Quarantine(const QString& spool, const QString& directory)
    : _spool(spool),
      _isDefault(directory.isEmpty()),
      _directory(_isDefault ? SpoolPlaces::quarantine(spool) : directory)
{
    if (_isDefault) {
        if (const int error = SpoolPlaces::makePlace(_directory, spool); error != 0)
            raise("QuarantineUnusable", shownName(_directory), systemErrorText(error));
    }
    const QFileInfo info(_directory);
    if (!info.isDir())
        raise("QuarantineUnusable", shownName(_directory), systemErrorText(ENOTDIR));
    if (!info.isWritable())
        raise("QuarantineUnusable", shownName(_directory), systemErrorText(EACCES));
    if (leadToOne(QFile::encodeName(_directory), QFile::encodeName(spool)))
        raise("QuarantineIsSpool", shownName(_directory));
}

QString Quarantine::directory() const
{
    return _directory;
}

int Quarantine::error() const
{
    const QByteArray path = QFile::encodeName(_directory);
    struct statvfs info {};
    if (::statvfs(path.constData(), &info) != 0 || ::access(path.constData(), W_OK | X_OK) != 0)
        return errno;
    if (!QFileInfo(_directory).isDir())
        return ENOTDIR;
    const bool isFull = info.f_bavail == 0 || (info.f_files != 0 && info.f_favail == 0);
    return isFull ? ENOSPC : 0;
}

QString Quarantine::put(const QString& name, const QuarantineNote& note) const
{
    if (_isDefault)
        SpoolPlaces::makePlace(_directory, _spool);
    int error = EEXIST;
    for (quint64 number = 1; error == EEXIST && number < MostCandidates; ++number) {
        const QString free =
            QString::fromUtf8(SpoolName::numbered(name.toUtf8(), number, LongestName));
        error = putAs(free, name, note);
        if (error == 0)
            error = syncDirectory(QFile::encodeName(_directory));
        if (error == 0)
            return free;
    }
    raise("QuarantineFailed", shownName(name), shownName(_directory), systemErrorText(error));
}

/// EEXIST if the name is taken.
int Quarantine::putAs(const QString& free, const QString& name, const QuarantineNote& note) const
{
    const QByteArray source = QFile::encodeName(_spool + QLatin1Char('/') + name);
    const QByteArray growing = QFile::encodeName(_directory) + '/' + growingName(note);
    const QByteArray file = pathOf(free);
    const QByteArray text = pathOf(free + TextSuffix);
    const bool isResumed = isTextOf(text, note);
    if (!isResumed) {
        if (isTaken(text) || (isTaken(file) && !leadToOne(source, file)))
            return EEXIST;
        const int error = makeDurably(growing, text, 0666, [&name, &note](int descriptor) {
            return writeAll(descriptor, textOf(name, note));
        });
        if (error != 0)
            return error;
    }
    const int error = linkOrCopy(source, growing, file);
    if (error == EEXIST && isResumed && hasSameBytes(source, file))
        return 0; // copied before the interruption
    if (error == EEXIST || (error != 0 && !isTaken(file)))
        ::unlink(text.constData());
    return error;
}

QByteArray Quarantine::pathOf(const QString& name) const
{
    return QFile::encodeName(_directory + QLatin1Char('/') + name);
}

} // namespace KezService
