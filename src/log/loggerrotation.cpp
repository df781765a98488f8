// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "frame/qtmessage_p.h"
#include "kez/exception.h"
#include "kez/logger.h"
#include "log/logring_p.h"

#include <QDebug>
#include <QDirIterator>
#include <QFileInfo>

#include <algorithm>
#include <functional>

#include <cstdio>

namespace {

constexpr auto NextNotCreated = static_cast<unsigned int>(-1);
constexpr auto OldestNotDeleted = static_cast<unsigned int>(-2);
constexpr auto RenameFailed = static_cast<unsigned int>(-3);
constexpr auto NewestNotCreated = static_cast<unsigned int>(-4);
constexpr auto NoFileName = static_cast<unsigned int>(-5);

constexpr unsigned int Shifted = 0;

const QLatin1String IndexMarker("%d.log");

bool renameFile(const QString& from, const QString& to)
{
    // Not QFile::rename, which would copy and delete where the file system refuses.
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

} // namespace

bool Logger::needsRotate() const
{
    return isTooOldOrReaches(0);
}

bool Logger::needsRotate(const QString& text) const
{
    return isTooOldOrReaches(text.toUtf8().size());
}

unsigned int Logger::rotation(unsigned int last)
{
    if (!_spFileName)
        return NoFileName;
    _spRing->file.reset();
    if (last < _kept - 1)
        return startRingFile(last + 1, NextNotCreated);
    const unsigned int status = shiftRing();
    return status == Shifted ? startRingFile(_kept - 1, NewestNotCreated) : status;
}

unsigned int Logger::lookForLastFile()
{
    if (!_spFileName)
        return 0;
    for (const unsigned int index : indexesDownwards()) {
        const QFileInfo file(ringFileName(index));
        if (file.exists())
            return static_cast<quint64>(file.size()) >= _maxSize ? rotation(index) : index;
    }
    return 0;
}

QString Logger::ringFileName(unsigned int index) const
{
    // Only the end of the pattern counts: the directory may hold a "%d" of its own.
    return _spFileName->chopped(IndexMarker.size()) + QString::number(index) +
           QStringLiteral(".log");
}

bool Logger::openRingFile(unsigned int index, QIODevice::OpenMode mode)
{
    // Appending, a new file too: with several descriptors on it no line overwrites another, and a
    // file that somebody truncates has no hole.
    auto file = std::make_shared<QFile>(ringFileName(index));
    if (!file->open(QIODevice::ReadWrite | QIODevice::Append | QIODevice::Text | mode))
        return false;
    _spRing->setFile(std::move(file), _timeout);
    return true;
}

unsigned int Logger::startRingFile(unsigned int index, unsigned int statusOnFailure)
{
    if (!openRingFile(index, QIODevice::NewOnly))
        return statusOnFailure;
    try {
        duplicateLogFile();
    } catch (const Exception& e) {
        qtMessages().warning().noquote().nospace()
            << "Echec de la duplioation du descripteur de journal : " << e.detail();
        closeDuplicatedHandle();
        _spRing->stream = nullptr;
    }
    return index;
}

/// Makes room at the top of a full ring: drops its oldest file and moves the others down.
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

/// The indexes of the ring that the directory holds, the newest first. Listed rather than tried one
/// by one: the number of files to keep may be very large.
QList<unsigned int> Logger::indexesDownwards() const
{
    const qsizetype slash = _spFileName->lastIndexOf(QLatin1Char('/'));
    const QString head = _spFileName->sliced(slash + 1).chopped(IndexMarker.size());
    QList<unsigned int> indexes;
    QDirIterator entries(_spFileName->left(slash + 1),
                         QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    while (entries.hasNext()) {
        entries.next();
        const QString name = entries.fileName();
        if (!name.startsWith(head))
            continue;
        const unsigned int index =
            name.sliced(head.size()).section(QLatin1Char('.'), 0, 0).toUInt();
        if (index < _kept && ringFileName(index).endsWith(QLatin1Char('/') + name))
            indexes.append(index);
    }
    std::sort(indexes.begin(), indexes.end(), std::greater<>());
    return indexes;
}

bool Logger::isTooOldOrReaches(qint64 extraBytes) const
{
    if (!_spFileName || !_spRing->file)
        return false;
    if (_spRing->isTooOld())
        return true;
    return static_cast<quint64>(_spRing->size() + extraBytes) >= _maxSize;
}
