// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/FilesQueue.h"
#include "queue/queuelisting_p.h"

#include <QHash>
#include <QList>
#include <QString>

#include <vector>

/// What a re-scan did. A file may be deleted and consumed.
struct FilesQueue::Changes {
    qsizetype listedCount = 0;
    QList<QString> refused;
    QList<QString> appended;
    QList<QString> deleted;
    qsizetype consumedCount = 0;
};

/// Compares the entries with a listing of the directory, and brings them up to date. It runs no
/// code of the application.
class FilesQueue::Rescan {
public:
    Rescan(FilesQueue& queue, const OpenQueueDirectory& directory, const QueueListing& listing);

    /// To be called once.
    Changes apply();

private:
    /// About an entry. The two do not depend on each other.
    struct Finding {
        bool isListed = false;
        bool isConsumed = false;
    };

    void matchListing();
    void deleteConsumed();
    void dropEntries();
    void appendFiles();

    FilesQueue& _queue;
    const OpenQueueDirectory& _directory;
    const QueueListing& _listing;
    std::vector<Finding> _findings;       // by position of the entry
    std::vector<int> _positions;          // of the listed files' entries; -1: has none
    QHash<int, FileIdentity> _successors; // other files with the names of consumed entries
    Changes _changes;
};
