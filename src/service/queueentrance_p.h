// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/sourcefile_p.h"

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
    enum class IfTaken { Refuse, FreshName };

    /// A file that entered.
    struct Entered {
        QByteArray name;
        int sourceError = 0; ///< why the source could not be removed
    };

    /// `directory`: absolute.
    QueueEntrance(const QString& directory, IfTaken ifTaken);

    const QString& directory() const { return _directory; }
    QByteArray pathOf(const QByteArray& name) const { return _path + '/' + name; }

    /// Throws Refusal if a file of that name could not enter now.
    void checkFree(const QByteArray& name) const;

    /// Renames a file of the same file system, whose data are on the disk. Returns the name that it
    /// has now.
    QByteArray enter(const QByteArray& from, const QByteArray& name) const;

    /// Moves a file from anywhere: by a rename, or as a copy from another file system. `expected`:
    /// the state in which the file is complete.
    Entered moveIn(const QByteArray& path, const QByteArray& name,
                   const std::optional<FileState>& expected = std::nullopt) const;

    /// Returns the system's error number, or 0.
    int sync() const;

private:
    QByteArray enterFresh(const QByteArray& from, const QByteArray& name) const;
    bool tryToEnter(const QByteArray& from, const QByteArray& name) const;
    bool isTaken(const QByteArray& name) const;
    QByteArray freeName(const QByteArray& name) const;
    Entered copyIn(const SourceFile& source, const QByteArray& name) const;
    void takeBackOther(const SourceFile& source, const QByteArray& name) const;

    QString _directory;
    QByteArray _path;
    IfTaken _ifTaken;
};

} // namespace KezService
