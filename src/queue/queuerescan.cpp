// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/listednames_p.h"
#include "queue/queueindex_p.h"
#include "queue/queuerescan_p.h"

#include <algorithm>
#include <utility>

using Kind = ListedFile::Kind;

FilesQueue::Rescan::Rescan(FilesQueue& queue, const OpenQueueDirectory& directory,
                           const QueueListing& listing)
    : _queue(queue), _directory(directory), _listing(listing)
{}

FilesQueue::Changes FilesQueue::Rescan::apply()
{
    matchListing();
    deleteConsumed();
    dropEntries();
    appendFiles();
    std::sort(_changes.refused.begin(), _changes.refused.end());
    return std::move(_changes);
}

void FilesQueue::Rescan::matchListing()
{
    const bool hasConsumers = !_queue._consumers.isEmpty();
    ListedNames names(_listing, [](QStringView name) { return Hashing::hashOf(name); });
    _findings.reserve(static_cast<size_t>(_queue._entries.size()));
    for (FileEntry* const entry : std::as_const(_queue._entries)) {
        QueuedFile& file = *queuedFile(entry);
        const ListedFile* const listed = names.take(file.name, file.hash);
        const bool isConsumed = hasConsumers && file.allConsumed();
        _findings.push_back({listed, isConsumed});
        if (!listed)
            continue;
        noteKind(*listed);
        if (isConsumed)
            continue;
        if (file.identity.isReplacedBy(listed->inode))
            file.identity = _directory.identify(*listed, _listing);
        else
            file.identity.showAgain(listed->inode, _listing.directory);
    }
    _others = names.rest();
}

void FilesQueue::Rescan::noteKind(const ListedFile& file)
{
    _changes.listedCount += file.kind != Kind::Unknown;
    if (file.kind == Kind::Refused)
        _changes.refused.append(_listing.nameOf(file).toString());
}

void FilesQueue::Rescan::deleteConsumed()
{
    auto finding = _findings.cbegin();
    for (FileEntry* const entry : std::as_const(_queue._entries)) {
        if (!finding->listed)
            _changes.deleted.append(entry->fileName());
        if (finding->isConsumed)
            deleteConsumed(*queuedFile(entry), *finding);
        ++finding;
    }
}

void FilesQueue::Rescan::deleteConsumed(const QueuedFile& file, const Finding& finding)
{
    ++_changes.consumedCount;
    const auto successor = _directory.removeKnown(file.fileName(), file.identity);
    if (successor && finding.listed && finding.listed->kind == Kind::Regular)
        _successors.push_back(
            {file.fileName(), {finding.listed->inode, _listing.directory, successor}});
}

void FilesQueue::Rescan::dropEntries()
{
    if (_changes.deleted.isEmpty() && _changes.consumedCount == 0)
        return;
    QList<FileEntry*> staying;
    QList<FileEntry*> leaving;
    auto finding = _findings.cbegin();
    for (FileEntry* const entry : std::as_const(_queue._entries)) {
        (finding->listed && !finding->isConsumed ? staying : leaving).append(entry);
        ++finding;
    }
    _queue._index->assign(staying);
    for (FileEntry* const entry : std::as_const(leaving))
        delete queuedFile(entry);
    int position = 0;
    for (FileEntry* const entry : std::as_const(staying))
        queuedFile(entry)->position = position++;
    _queue._entries = std::move(staying);
}

void FilesQueue::Rescan::appendFiles()
{
    std::sort(_successors.begin(), _successors.end(),
              [](const Successor& a, const Successor& b) { return a.name < b.name; });
    auto successor = _successors.cbegin();
    for (const ListedFile& file : _listing.sorted(_others)) {
        const QString name = _listing.nameOf(file).toString();
        for (; successor != _successors.cend() && successor->name < name; ++successor)
            appendFile(successor->name, successor->identity);
        noteKind(file);
        if (file.kind == Kind::Regular)
            appendFile(name, _directory.identify(file, _listing));
    }
    for (; successor != _successors.cend(); ++successor)
        appendFile(successor->name, successor->identity);
}

void FilesQueue::Rescan::appendFile(const QString& name, const ListedFileIdentity& identity)
{
    _queue.appendFile(name, identity);
    _changes.appended.append(name);
}
