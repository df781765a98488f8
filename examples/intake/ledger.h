// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "order.h"

#include <QFile>
#include <QHash>
#include <QString>

namespace intake {

/// A text file with one line per booked order, each file name at most once for all time:
///
///     <time of booking, UTC>;<file>;<receipt>;<order>;<customer>;<amount>;<currency>
///
/// The receipt is drawn at random for each line, so that it is unique across restarts with no
/// counter to keep.
///
/// A line is on the disk before its file is reported as consumed. After a crash in between, the
/// file is offered again and its name is found here; the names are therefore kept in memory. An end
/// that a crash cut off in the middle of a line is no booking: it is cut away at the next start.
///
/// *Threads*: one thread at a time. A second process that opens the same ledger is refused.
/// *Owns*: the open file.
/// *Fails*: the constructor and append() throw Exception.
class Ledger {
public:
    /// Creates the file when there is none.
    explicit Ledger(const QString& path);

    /// The number of the order that was booked for the file, printable; a null text when none was.
    QString orderBookedFor(const QString& fileName) const;

    /// Returns once the line would survive a power failure; when it throws, nothing was added.
    void append(const QString& fileName, const Order& order);

    /// What the constructor cut away; empty as a rule.
    QString tornEnd() const;

private:
    void lock();
    void readBookings();
    void repairEnd(const QByteArray& end);
    void appendSynced(const QByteArray& bytes);
    [[noreturn]] void fail(const QString& reason) const;

    QFile _file;
    QHash<QString, QString> _orders; // order numbers by file names, both printable
    QString _tornEnd;
};

} // namespace intake
