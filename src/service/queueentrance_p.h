// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/refusal_p.h"
#include "service/sourcefile_p.h"

#include <kez/service/delivery.h>

#include <QByteArray>
#include <QString>

#include <optional>

namespace KezService {

/// The only way by which the kit's files enter a queue's directory: a whole file, all at once, in
/// the place of none.
///
/// *Threads*: any thread.
/// *Owns*: nothing.
/// *Fails*: throws Refusal; the queue then does not have the file.
class QueueEntrance {
public:
    using NameTaken = Delivery::NameTaken;

    /// A file that entered.
    struct Entered {
        QByteArray name;
        std::optional<Refusal> sourceFault = {}; ///< why the source of a copy is still there
    };

    /// `directory`: absolute.
    QueueEntrance(const QString& directory, NameTaken ifTaken);

    const QString& directory() const { return _directory; }
    QByteArray pathOf(const QByteArray& name) const { return _path + '/' + name; }

    /// Throws Refusal if a file of that name could not enter now.
    void checkFree(const QByteArray& name) const;

    /// Renames a file of the same file system, whose data are on the disk. Returns the name that it
    /// has now.
    QByteArray enter(const QByteArray& from, const QByteArray& name) const;

    /// Moves a file from anywhere: by a rename, or as a copy if it comes from another file system
    /// or if the process may not write it. `expected`: the state in which the file is complete.
    Entered moveIn(const QByteArray& path, const QByteArray& name,
                   const std::optional<FileState>& expected = std::nullopt) const;

    /// Waits until the names that entered are on the disk. Returns the system's error number, or 0.
    int sync() const;

    /// The same of the directory that they have left. Returns 0 also if it is gone, or if the
    /// process may not list it, and so cannot sync it.
    static int syncSources(const QByteArray& directory);

private:
    QByteArray enterFresh(const QByteArray& from, const QByteArray& name) const;
    bool tryToEnter(const QByteArray& from, const QByteArray& name) const;
    bool isTaken(const QByteArray& name) const;
    QByteArray freeName(const QByteArray& name) const;
    Entered copyIn(const SourceFile& source, const QByteArray& name) const;
    void takeBackOther(const SourceFile& source, const QByteArray& name) const;

    QString _directory;
    QByteArray _path;
    NameTaken _ifTaken;
};

} // namespace KezService
