// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/descriptor_p.h"

#include <QByteArray>
#include <QString>

#include <chrono>

#include <sys/types.h>

namespace KezService {

/// The files of one delivery while they are written, in the hidden directory of a spool.
///
/// They belong to a lock file, which is locked as long as the object lives. So removeLeftovers()
/// tells them from the files of a producer that has died. There is one lock for all: a delivery may
/// have more files than a process can keep open.
///
///     1234-9f3c…e1.lock   1234-9f3c…e1.0   1234-9f3c…e1.1
///
/// *Threads*: one thread at a time per object; objects and processes do not disturb each other.
/// *Owns*: its files, and removes those that have not left.
/// *Fails*: throws Refusal.
class GrowingFiles {
public:
    explicit GrowingFiles(const QString& spool);
    GrowingFiles(const GrowingFiles&) = delete;
    GrowingFiles& operator=(const GrowingFiles&) = delete;
    ~GrowingFiles();

    QByteArray pathOf(int index) const;

    /// Makes the next file, for writing. The first one has the index 0.
    Descriptor create(mode_t mode);

    /// The file with the lowest index that was still here has been renamed.
    void firstHasLeft() { ++_leftCount; }

    /// Removes what dead producers have left, and returns the number of files. See
    /// Delivery::removeLeftovers().
    static int removeLeftovers(const QString& spool, std::chrono::seconds age);

private:
    void lock();
    bool tryToLock();
    QByteArray lockPath() const;

    QString _spool;
    QByteArray _stem;
    Descriptor _lock;
    int _count = 0;
    int _leftCount = 0;
};

} // namespace KezService
