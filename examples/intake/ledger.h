// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "order.h"

#include <QFile>
#include <QHash>
#include <QString>

namespace intake {

/// A text file with one line per booked order. Each file name occurs at most once:
///
///     <time of booking, UTC>;<file>;<receipt>;<order>;<customer>;<amount>;<currency>
///
/// The receipt is a random value, so that it is unique across restarts without a stored counter.
///
/// A line is on the disk before its file is reported as consumed. If the process crashes between
/// the two, the file is offered again, and its name is found here. So the names are kept in memory.
/// If a crash cut off the last line, that line is not a booking: the next start removes it.
///
/// *Threads*: one thread at a time. A second process cannot open the same ledger.
/// *Owns*: the open file.
/// *Fails*: the constructor and append() throw Exception.
class Ledger {
public:
    /// Creates the file if it does not exist.
    explicit Ledger(const QString& path);

    /// The printable number of the order that was booked for the file; a null text if none was.
    QString orderBookedFor(const QString& fileName) const;

    /// When it returns, the line survives a power failure; when it throws, nothing was added.
    void append(const QString& fileName, const Order& order);

    /// What the constructor removed from the end; usually empty.
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
