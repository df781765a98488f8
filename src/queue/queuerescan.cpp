// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/queuerescan_p.h"

#include <utility>

FilesQueue::Rescan::Rescan(FilesQueue& queue, const OpenQueueDirectory& directory,
                           const QueueListing& listing)
    : _queue(queue), _directory(directory), _listing(listing)
{}

FilesQueue::Changes FilesQueue::Rescan::apply()
{
    _changes.listedCount = _listing.count();
    matchListing();
    deleteConsumed();
    dropEntries();
    appendFiles();
    return std::move(_changes);
}

void FilesQueue::Rescan::matchListing()
{
    const bool hasConsumers = !_queue._consumers.isEmpty();
    _findings.reserve(_queue._identities.size());
    for (const FileEntry* const entry : std::as_const(_queue._entries))
        _findings.push_back({false, hasConsumers && entry->allConsumed()});

    _positions.reserve(static_cast<size_t>(_listing.files.size()));
    for (const ListedFile& file : _listing.files) {
        const int position = _queue.fileIndex(file.name);
        _positions.push_back(position);
        if (position < 0)
            continue;
        const auto index = static_cast<size_t>(position);
        _findings[index].isListed = true;
        if (_findings[index].isConsumed)
            continue;
        ListedFileIdentity& identity = _queue._identities[index];
        if (identity.isReplacedBy(file.inode))
            identity = _directory.identify(file, _listing);
        else
            identity.showAgain(file.inode, _listing.directory);
    }
}

void FilesQueue::Rescan::deleteConsumed()
{
    for (int position = 0; position < _queue._entries.size(); ++position) {
        const auto index = static_cast<size_t>(position);
        const FileEntry* const entry = _queue._entries.at(position);
        if (!_findings[index].isListed)
            _changes.deleted.append(entry->fileName());
        if (!_findings[index].isConsumed)
            continue;
        ++_changes.consumedCount;
        if (const auto successor =
                _directory.removeKnown(entry->fileName(), _queue._identities[index]))
            _successors.insert(position, *successor);
    }
}

void FilesQueue::Rescan::dropEntries()
{
    if (_changes.deleted.isEmpty() && _changes.consumedCount == 0)
        return;
    QList<FileEntry*> leaving;
    const QList<FileEntry*> entries = std::exchange(_queue._entries, {});
    const std::vector<ListedFileIdentity> identities = std::exchange(_queue._identities, {});
    _queue._positions.clear();
    for (int position = 0; position < entries.size(); ++position) {
        const auto index = static_cast<size_t>(position);
        FileEntry* const entry = entries.at(position);
        if (_findings[index].isListed && !_findings[index].isConsumed)
            _queue.appendEntry(entry, identities[index]);
        else
            leaving.append(entry);
    }
    qDeleteAll(leaving);
}

void FilesQueue::Rescan::appendFiles()
{
    auto position = _positions.cbegin();
    for (const ListedFile& file : _listing.files) {
        const int previous = *position++;
        if (file.kind == ListedFile::Kind::Refused)
            _changes.refused.append(file.name);
        const bool isNew = previous < 0 || _successors.contains(previous);
        if (!isNew || file.kind != ListedFile::Kind::Regular)
            continue;
        _queue.appendFile(file.name, previous < 0
                                         ? _directory.identify(file, _listing)
                                         : ListedFileIdentity(file.inode, _listing.directory,
                                                              _successors.value(previous)));
        _changes.appended.append(file.name);
    }
}
