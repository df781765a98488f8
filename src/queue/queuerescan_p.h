// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/FilesQueue.h"
#include "queue/queuelisting_p.h"

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
        const ListedFile* listed = nullptr; // null if the directory does not show the name
        bool isConsumed = false;
    };

    /// Another file with the name of a consumed entry.
    struct Successor {
        QString name;
        ListedFileIdentity identity;
    };

    void matchListing();
    void noteKind(const ListedFile& file);
    void deleteConsumed();
    void deleteConsumed(const QueuedFile& file, const Finding& finding);
    void dropEntries();
    void appendFiles();
    void appendFile(const QString& name, const ListedFileIdentity& identity);

    FilesQueue& _queue;
    const OpenQueueDirectory& _directory;
    const QueueListing& _listing;
    std::vector<Finding> _findings;  // by position of the entry
    std::vector<ListedFile> _others; // that have no entry
    std::vector<Successor> _successors;
    Changes _changes;
};
