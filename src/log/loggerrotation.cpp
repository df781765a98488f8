// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "frame/qtmessage_p.h"
#include "kez/exception.h"
#include "kez/logger.h"
#include "log/logring_p.h"
#include "log/ringname_p.h"

#include <QDebug>
#include <QFileInfo>

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>

#include <cerrno>
#include <cstdio>

#include <dirent.h>

namespace {

constexpr auto NextNotCreated = static_cast<unsigned int>(-1);
constexpr auto OldestNotDeleted = static_cast<unsigned int>(-2);
constexpr auto RenameFailed = static_cast<unsigned int>(-3);
constexpr auto NewestNotCreated = static_cast<unsigned int>(-4);
constexpr auto NoFileName = static_cast<unsigned int>(-5);

constexpr unsigned int Shifted = 0;

// The search in a directory that cannot be listed ends after so many indexes without a file.
constexpr unsigned int LongestGap = 65536;

bool renameFile(const QString& from, const QString& to)
{
    // Not QFile::rename, which copies and deletes where the file system refuses.
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

/// The names in a directory; nothing if it cannot be listed.
std::optional<QStringList> namesIn(const QString& path)
{
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(
        opendir(QFile::encodeName(path).constData()), &closedir);
    if (!directory)
        return std::nullopt;
    QStringList names;
    errno = 0;
    while (const dirent* const entry = readdir(directory.get())) {
        names.append(QFile::decodeName(entry->d_name));
        errno = 0;
    }
    return errno == 0 ? std::optional(names) : std::nullopt;
}

} // namespace

bool Logger::needsRotate() const
{
    return _spRing->isTooOldOrReaches(0, _maxSize);
}

bool Logger::needsRotate(const QString& text) const
{
    return _spRing->isTooOldOrReaches(text.toUtf8().size(), _maxSize);
}

unsigned int Logger::rotation(unsigned int last)
{
    if (!_spFileName)
        return NoFileName;
    std::shared_ptr<QFile> before = _spRing->takeFile();
    if (last < _kept - 1)
        return startRingFile(last + 1, std::move(before), NextNotCreated);
    const unsigned int status = shiftRing();
    return status == Shifted ? startRingFile(_kept - 1, std::move(before), NewestNotCreated)
                             : status;
}

unsigned int Logger::lookForLastFile()
{
    if (!_spFileName)
        return 0;
    const std::optional<unsigned int> newest = newestIndex();
    return newest ? resumeIndex(*newest) : 0;
}

unsigned int Logger::resumeIndex(unsigned int newest)
{
    const bool isFull = static_cast<quint64>(QFileInfo(ringFileName(newest)).size()) >= _maxSize;
    return isFull ? rotation(newest) : newest;
}

QString Logger::ringFileName(unsigned int index) const
{
    return RingName::withIndex(_spRing->pattern, index);
}

QString Logger::shownFileName(unsigned int index) const
{
    return RingName::withIndex(*_spFileName, index);
}

bool Logger::openRingFile(unsigned int index, QIODevice::OpenMode mode)
{
    // A new file appends too: with several descriptors on it no line overwrites another one, and a
    // file that is truncated from outside gets no hole.
    auto file = std::make_shared<QFile>(ringFileName(index));
    if (!file->open(QIODevice::ReadWrite | QIODevice::Append | QIODevice::Text | mode)) {
        _spRing->lacksDescriptor = file->error() == QFileDevice::ResourceError || errno == ENFILE;
        return false;
    }
    _spRing->lacksDescriptor = false;
    _spRing->setFile(std::move(file), _timeout);
    return true;
}

/// Opens a new file in place of the one before, which is closed after that: another thread could
/// take a descriptor that was given away first, and none might be left for the new file.
bool Logger::openInPlaceOf(std::shared_ptr<QFile> before, unsigned int index)
{
    const bool isOpen = openRingFile(index, QIODevice::NewOnly);
    if (!before || !before->isOpen())
        return isOpen;
    before->close();
    // If no descriptor was free, there is one now.
    return isOpen || openRingFile(index, QIODevice::NewOnly);
}

unsigned int Logger::startRingFile(unsigned int index, std::shared_ptr<QFile> before,
                                   unsigned int statusOnFailure)
{
    if (!openInPlaceOf(std::move(before), index))
        return statusOnFailure;
    _spRing->last = index;
    try {
        _spRing->duplicate();
    } catch (const Exception& e) {
        const InsideLog inside; // not a line, if the application asked for the rotation
        qtMessages().warning().noquote().nospace()
            << "Echec de la duplioation du descripteur de journal : " << e.detail();
        _spRing->closeStream();
        _spRing->stream = nullptr;
    }
    return index;
}

/// Makes room at the top of a full ring: deletes its oldest file and moves the others down.
unsigned int Logger::shiftRing() const
{
    const QString oldest = ringFileName(0);
    if (QFile::exists(oldest) && !QFile::remove(oldest))
        return OldestNotDeleted;
    for (unsigned int i = 1; i < _kept; ++i) {
        if (!renameFile(ringFileName(i), ringFileName(i - 1)))
            return RenameFailed;
    }
    return Shifted;
}

/// The highest index of the ring that has a file. The directory is listed, since a ring may have
/// very many indexes. Without a free descriptor that fails, and the indexes are tried one by one.
std::optional<unsigned int> Logger::newestIndex() const
{
    const qsizetype slash = _spRing->pattern.lastIndexOf(QLatin1Char('/'));
    const auto names = namesIn(_spRing->pattern.left(slash + 1));
    if (!names)
        return newestIndexTried();
    return RingName::newestIndex(_spRing->pattern, _kept, *names);
}

/// The same without a list. A ring has no long gaps, so the search does not go through all indexes
/// of a large one.
std::optional<unsigned int> Logger::newestIndexTried() const
{
    std::optional<unsigned int> newest;
    unsigned int gap = 0;
    for (unsigned int i = 0; i < _kept && gap < LongestGap; ++i) {
        if (QFile::exists(ringFileName(i))) {
            newest = i;
            gap = 0;
        } else {
            ++gap;
        }
    }
    return newest;
}
