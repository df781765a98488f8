// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/quarantine_p.h"

#include "service/durablefiles_p.h"
#include "service/kittexts_p.h"
#include "service/spoolplaces_p.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KezService {

namespace {

constexpr auto TextSuffix = QLatin1String(".txt");
constexpr int LongestName = 255; // bytes
constexpr int MostCandidates = 100000;

/// "order.xml", "order~2.xml", "order~3.xml": short enough for the text's name, too.
QString candidate(const QString& name, int number)
{
    const qsizetype point = name.lastIndexOf(QLatin1Char('.'));
    QString stem = point > 0 ? name.left(point) : name;
    QString rest = number > 1 ? QStringLiteral("~%1").arg(number) : QString();
    rest += point > 0 ? name.mid(point) : QString();
    const auto isTooLong = [&] {
        return (stem + rest).toUtf8().size() + TextSuffix.size() > LongestName;
    };
    while (isTooLong() && !stem.isEmpty()) {
        stem.chop(stem.size() > 1 && stem.back().isLowSurrogate() ? 2 : 1);
    }
    while (isTooLong())
        rest.chop(1); // a suffix of more than 240 bytes
    return stem + rest;
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

bool isSameFile(const QByteArray& path, const QByteArray& other)
{
    struct stat info {};
    struct stat otherInfo {};
    return ::stat(path.constData(), &info) == 0 && ::stat(other.constData(), &otherInfo) == 0 &&
           info.st_dev == otherInfo.st_dev && info.st_ino == otherInfo.st_ino;
}

/// Writes a new text and syncs it. EEXIST if the name is taken.
int writeText(const QByteArray& path, const QByteArray& text)
{
    const Descriptor file = openFile(path, O_WRONLY | O_CREAT | O_EXCL, 0666);
    if (!file.isOpen())
        return errno;
    int error = writeAll(file.get(), text);
    if (error == 0)
        error = syncFile(file.get());
    if (error != 0)
        ::unlink(path.constData());
    return error;
}

/// Writes what `from` holds into a new file beside `to`, syncs it, and renames it to `to`.
int copyDurably(const Descriptor& from, const QByteArray& to)
{
    const QByteArray growing = directoryOf(to) + "/.copy-" + QByteArray::number(::gettid());
    struct stat info {};
    if (::fstat(from.get(), &info) != 0)
        return errno;
    const Descriptor copy =
        openFile(growing, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, info.st_mode & 0777);
    if (!copy.isOpen())
        return errno;
    int error = copyBytes(from.get(), copy.get());
    if (error == 0)
        error = syncFile(copy.get());
    if (error == 0)
        error = renameWithoutReplacing(growing, to);
    if (error != 0)
        ::unlink(growing.constData());
    return error;
}

/// A hard link, or a copy where there cannot be one; the data are on the disk. EEXIST if `to` is
/// taken by another file.
int linkOrCopy(const QByteArray& from, const QByteArray& to)
{
    const Descriptor source = openFile(from, O_RDONLY | O_NONBLOCK);
    if (!source.isOpen())
        return errno;
    if (const int error = syncFile(source.get()); error != 0 && error != EINVAL)
        return error;
    if (::linkat(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), AT_SYMLINK_FOLLOW) == 0)
        return 0;
    if (errno == EEXIST)
        return isSameFile(from, to) ? 0 : EEXIST;
    constexpr std::array NoLinks{EXDEV, EPERM, EMLINK, EOPNOTSUPP, ENOSYS};
    if (std::find(NoLinks.begin(), NoLinks.end(), errno) == NoLinks.end())
        return errno;
    return copyDurably(source, to);
}

} // namespace

Quarantine::Quarantine(const QString& spool, const QString& directory)
    : _spool(spool), _directory(directory.isEmpty() ? SpoolPlaces::quarantine(spool) : directory)
{
    if (directory.isEmpty()) {
        if (const int error = SpoolPlaces::makePlace(_directory, spool); error != 0)
            raise("QuarantineUnusable", shownName(_directory), systemErrorText(error));
    }
    const QFileInfo info(_directory);
    if (!info.isDir())
        raise("QuarantineUnusable", shownName(_directory), systemErrorText(ENOTDIR));
    if (!info.isWritable())
        raise("QuarantineUnusable", shownName(_directory), systemErrorText(EACCES));
}

QString Quarantine::directory() const
{
    return _directory;
}

QString Quarantine::put(const QString& name, const QuarantineNote& note) const
{
    const QByteArray source = QFile::encodeName(_spool + QLatin1Char('/') + name);
    int error = EEXIST;
    for (int number = 1; error == EEXIST && number < MostCandidates; ++number) {
        const QString free = candidate(name, number);
        const QByteArray text = pathOf(free + TextSuffix);
        error = writeText(text, textOf(name, note));
        const bool isResumed = error == EEXIST && isTextOf(text, note);
        if (error != 0 && !isResumed)
            continue;
        error = linkOrCopy(source, pathOf(free));
        if (error == EEXIST && isResumed) // copied before the interruption
            error = 0;
        if (error == 0)
            error = syncDirectory(QFile::encodeName(_directory));
        if (error == 0)
            return free;
        ::unlink(text.constData());
    }
    raise("QuarantineFailed", shownName(name), shownName(_directory), systemErrorText(error));
}

QByteArray Quarantine::pathOf(const QString& name) const
{
    return QFile::encodeName(_directory + QLatin1Char('/') + name);
}

} // namespace KezService
