// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service_global.h"

#include <kez/exception.h>

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringList>

#include <chrono>
#include <variant>
#include <vector>

class QIODevice;

namespace KezService {

/// Puts files into the directory of a queue so that the queue never sees half of one, and never
/// takes one for another.
///
/// A file grows in ".kez/incoming" below the directory, which a queue does not see. Its data are
/// written to the disk, it gets its name by a rename that never replaces, and the directory is
/// written to the disk. A producer that is killed leaves no half file in sight, and a power failure
/// takes back no delivery that was reported.
///
/// A name is what a FilesQueue accepts: not empty, no "/", no dot at its beginning, at most 255
/// bytes of UTF-8. A name such as "x.tmp" is allowed: to a queue it is one like any other.
///
/// A delivered file has the permissions of an ordinary new one (0666 under the process's mask). One
/// that was copied or moved has those of its source; the owner of a copy may also read and write it
/// in any case. A queue takes only what its process may read and write.
///
/// On a file system that cannot rename without replacing, a link takes the rename's place. If the
/// producer is killed between the link and the removal of the old name, a file that was moved still
/// has both. moveIn() then finishes what was begun, unless a consumer was faster.
///
/// *Threads*: any thread; several may use one object, and several processes one directory.
/// *Owns*: nothing between two calls.
/// *Fails*: the constructor throws Exception. Every delivery throws DeliveryFailure, which says
/// what is in the queue all the same.
class KEZ_SERVICE_EXPORT Delivery {
public:
    /// What happens if the queue has a file of that name.
    enum class NameTaken {
        Refuse,   ///< the delivery fails
        FreshName ///< "order.xml" becomes "order~2.xml" or another number that is free
    };

    /// One file to deliver: where its content comes from, and its name in the queue.
    class Parcel {
    public:
        Parcel(const QString& name, const QByteArray& bytes) : _name(name), _content(bytes) {}

        /// The device must live until it is delivered.
        Parcel(const QString& name, QIODevice& device) : _name(name), _content(&device) {}

        /// A copy of a file; without a name, it keeps its own.
        static Parcel file(const QString& path, const QString& name = {});

        QString name() const { return _name; }

    private:
        friend class DeliveryRun;
        struct Path {
            QString path;
        };
        Parcel(const QString& name, const Path& path) : _name(name), _content(path) {}

        QString _name;
        std::variant<QByteArray, QIODevice*, Path> _content;
    };

    /// `directory`: the queue's. A relative path is resolved here, once.
    ///
    /// Throws Exception if it is not a directory.
    explicit Delivery(const QString& directory, NameTaken ifTaken = NameTaken::Refuse);

    QString directory() const;
    NameTaken ifTaken() const;

    /// Each returns the name that the file has in the queue.
    QString deliver(const QString& name, QByteArrayView bytes) const;

    /// Reads the device to its end, and waits for what a sequential one (a pipe) has not received
    /// yet. A read error delivers nothing. Nor does a QProcess, whose end is waited for, unless it
    /// ends by itself with code 0.
    ///
    /// Another sequential device is at its end if waitForReadyRead() returns false and the next
    /// read() returns 0; a negative result is a failure. If a device returns 0 there although its
    /// data broke off, half of them are delivered. Read it into bytes and check it first; also a
    /// socket, which fails at its end, however it was closed.
    QString deliver(const QString& name, QIODevice& device) const;

    /// Delivers a copy of a file and leaves the file alone. A link is followed; what is not a
    /// regular file is refused at once. If the file changes meanwhile, nothing is delivered.
    QString deliverFile(const QString& path, const QString& name = {}) const;

    /// Moves a complete file into the queue: by a rename, or by a copy, as deliverFile() makes it,
    /// after which the file is removed. A link is refused, since it might lead elsewhere from
    /// there.
    ///
    /// A file is copied if it comes from another file system, and if this process may not write it:
    /// a queue of this user would never take it. An example is another user's file with mode 0644.
    /// One that it may not even read is refused.
    ///
    /// If the file is in the queue but could not be removed here, or has changed since the copy,
    /// the failure's delivered() has its name. A copy of many gigabytes stops with a failure if the
    /// thread is asked to end (QThread::requestInterruption()). Nothing is copied if the source
    /// could not be removed: because of missing rights, or in a directory such as /tmp (sticky),
    /// where neither is this user's.
    ///
    /// At the moment of its removal, the source of a copy has a hidden name,
    /// ".order.xml.0123456789abcdef.moved", so that no other file is removed that takes its name
    /// just then. A process that is killed at this moment leaves it under that name: compare it
    /// with what the queue got, or let an ArrivalGate on that directory hand it on again.
    QString moveIn(const QString& path, const QString& name = {}) const;

    /// Delivers many files with one wait for the directory. All of them are written before the
    /// first one enters; then they enter in their order. Returns the names that they have.
    ///
    /// If a name is not allowed, given twice or taken, or if a content cannot be written, none of
    /// them enters. If one cannot enter, because another producer has taken its name meanwhile, the
    /// ones after it do not enter either.
    QStringList deliverAll(const std::vector<Parcel>& parcels) const;

    /// Removes what dead producers have left below ".kez/incoming", and returns the number of
    /// files. A file goes if its last change is at least `age` ago and no living Delivery has it.
    /// Of producers that deliver by hand, only the age is known: choose one that is longer than
    /// they ever take, such as a day.
    ///
    /// Throws Exception if one cannot be removed, or if the rights of a producer's lock file hide
    /// whether it still lives; the others are removed all the same.
    int removeLeftovers(std::chrono::seconds age) const;

private:
    QString _directory;
    NameTaken _ifTaken;
};

/// Why a delivery failed, and what is in the queue all the same.
///
/// *Threads*: as Exception.
/// *Owns*: nothing.
/// *Fails*: never.
class KEZ_SERVICE_EXPORT DeliveryFailure : public Exception {
public:
    DeliveryFailure(const QString& detail, const QStringList& delivered);
    DeliveryFailure(const DeliveryFailure& other);
    DeliveryFailure& operator=(const DeliveryFailure& other);
    ~DeliveryFailure() override;

    DeliveryFailure* clone() const override;
    void raise() const override;

    /// The names under which the first files of the call entered. They are visible, and must not be
    /// delivered again. Usually there are none.
    ///
    /// If it has the name of every file, only the end failed: the directory could not be written to
    /// the disk, or the source of moveIn() could not be removed.
    QStringList delivered() const;

private:
    QStringList _delivered;
};

} // namespace KezService
