// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service_global.h"

#include <QList>
#include <QString>
#include <QStringList>

class Logger;

namespace KezService {

/// What checkLogRing() found and did.
///
/// *Threads*: one thread at a time.
/// *Owns*: nothing outside of itself.
/// *Fails*: logTo() as Logger::writeTrace() does.
struct KEZ_SERVICE_EXPORT RingReport {
    /// Absolute paths.
    struct Renamed {
        QString from;
        QString to;
    };

    /// One text for each repair and each failure, in the language of the process's texts.
    QStringList texts;

    /// What has another name now: the files of the ring, and what was put aside.
    QList<Renamed> moved;
    QList<Renamed> putAside;

    /// The file whose torn last line was ended; empty if none was.
    QString ended;

    /// False if something could not be repaired. The texts say what and why.
    bool isRingSound = true;

    /// Writes the texts, each as a warning.
    void logTo(Logger& logger) const;
};

/// Repairs the ring of log files that Logger opens for `fileName` and `kept`. Call it with the same
/// two values, before the logger is built: 0 means 5 files, and a configuration without "log.kept"
/// means 10.
///
/// - A gap is closed: the files above it are renamed downwards, the lowest first.
/// - What has no place in the ring is put aside: an index that is `kept` or higher, such as that of
///   app-4294967293.log, a number with leading zeros, and what is not a regular file or a link to
///   one. It becomes "app-4294967293.log.aside", or ".aside-2" and so on if that name is taken.
/// - If `kept` was lowered, the indexes from `kept` on follow each other without a gap. Those files
///   are the newest ones of the ring: they stay, and the oldest files are put aside.
/// - If the newest file does not end with a line feed, it gets one, so that the next line begins on
///   a line of its own.
///
/// Nothing is deleted, replaced or shortened. After a crash in between, the next check goes on: a
/// file on its way down from an index above the ring is called "app-9.log.moving" meanwhile. A
/// sound ring costs the listing of its directory and the reading of one byte.
///
/// The ring must not be in use: neither by a logger of this process nor by another process. The
/// check cannot know that.
///
/// openLog(), buildLogger() and the loggers of sections come with this check; they also see to it
/// that no other process uses the ring.
///
/// *Threads*: one thread at a time per ring.
/// *Owns*: nothing.
/// *Fails*: throws Exception if the directory cannot be listed. A repair that fails is in the
/// report, and what depends on it is left as it is.
KEZ_SERVICE_EXPORT RingReport checkLogRing(const QString& fileName, quint32 kept);

} // namespace KezService
