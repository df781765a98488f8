// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/service/filerunner.h"

#include <QByteArray>
#include <QString>

namespace KezService {

/// The file "status.json" of a spool, by which tools and operators see how far a runner is. It is
/// replaced as a whole, so that a reader never sees half of it, and is not synced: after a power
/// failure it is of no use.
///
/// *Threads*: one thread at a time.
/// *Owns*: nothing; the file stays when the runner has ended.
/// *Fails*: never: the log says once that the file cannot be written.
class StatusFile {
public:
    explicit StatusFile(const QString& spool);

    /// `state`: "running", "paused" or "stopped".
    void write(const RunnerProgress& progress, const char* state);

    /// The text that write() writes: one JSON object.
    static QByteArray text(const RunnerProgress& progress, const QString& spool, const char* state);

private:
    const QString _spool;
    bool _hasFailed = false;
};

} // namespace KezService
