// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QString>

namespace KezService {

/// Why a file is in quarantine.
struct QuarantineNote {
    QString consumer;
    QString reason;
    int tries = 0;
    QString key; ///< that of the file in the journal: tells a second attempt from a second file
};

/// Keeps files that a consumer cannot handle, each with a text file beside it that says which
/// consumer, when, why and how often. The spool's own file stays, since other consumers may still
/// need it.
///
/// *Threads*: any thread.
/// *Owns*: nothing.
/// *Fails*: throws Exception.
class Quarantine {
public:
    /// Makes the directory if it is the default one, below the spool. Refuses the spool itself.
    Quarantine(const QString& spool, const QString& directory);

    QString directory() const;

    /// Why nothing can be put there (ENOENT, ENOTDIR, EACCES, ENOSPC); 0 if the directory itself is
    /// sound.
    int error() const;

    /// Puts the spool's file there: a hard link, or a copy if there cannot be one. File and text
    /// are on the disk when the call returns. Returns the name that the file has there:
    /// "order.xml", or "order~2.xml" if that is taken. Called again for the same file and consumer,
    /// after an interruption, it goes on with what is there. Until they are whole, file and text
    /// have a hidden name. The default directory is made again if it was removed.
    QString put(const QString& name, const QuarantineNote& note) const;

private:
    int putAs(const QString& free, const QString& name, const QuarantineNote& note) const;
    QByteArray pathOf(const QString& name) const;

    const QString _spool;
    const bool _isDefault;
    const QString _directory;
};

} // namespace KezService
