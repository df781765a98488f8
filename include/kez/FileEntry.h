// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

#include <QList> // not used here any more, but programs may rely on it
#include <QString>
#include <QVarLengthArray>

/// One file that waits in a FilesQueue, with one flag per consumer, which is set once that consumer
/// has taken the file up. The flag at a position belongs to the consumer at that position of the
/// queue.
///
/// *Threads*: one thread at a time; in a queue, the queue's thread.
/// *Owns*: its flags.
/// *Fails*: isConsumed() throws Exception; the others never.
class KEZ_EXPORT FileEntry {
public:
    /// `fileName`: the bare name, without directory. `count`: the number of flags, all clear; no
    /// flags if it is below 1.
    FileEntry(const QString& fileName, int count);
    ~FileEntry();

    QString fileName() const;

    /// Throws Exception for an index out of range. The two setters ignore such an index. Both are
    /// kept for compatibility.
    bool isConsumed(int index) const;

    /// Whether every flag is set; true without flags.
    bool allConsumed() const;

    /// Adds one clear flag, for one more consumer.
    void appendConsumerFlag();

    /// Ignores an index out of range.
    void enableUptakeFlag(int index);
    void disableUptakeFlag(int index);

private:
    friend struct QueuedFile;
    KEZ_HIDDEN bool isFlag(int index) const;

    QString _fileName;
    QVarLengthArray<bool, 16> _uptakeFlags; // few queues have more consumers
};
