// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "orders.h"

#include <kez/service/filerunner.h>

#include <QFile>
#include <QHash>
#include <QMap>

namespace intake {

/// A text file with one line per booked order. Each file name occurs at most once:
///
///     <time of booking, UTC>;<file>;<receipt>;<order>;<customer>;<amount>;<currency>
///
/// The receipt is random, so that it is unique across restarts. A line is on the disk before its
/// file is done: if the process dies between the two, the file comes again, and is known by its
/// name. A last line that a crash has cut off is not a booking: the next start removes it.
///
/// *Threads*: one thread at a time. A second process cannot open the same ledger.
/// *Fails*: throws Exception.
class Ledger {
public:
    /// Creates the file if it does not exist.
    explicit Ledger(const QString& path);

    /// Books the order that the file holds; a file that holds none is rejected.
    KezService::Outcome book(const KezService::FileAtHand& file);

    /// When it returns, the line survives a power failure; when it throws, nothing was added.
    void append(const QString& fileName, const Order& order);

    /// The printable number of the order that was booked for the file; a null text if none was.
    QString orderBookedFor(const QString& fileName) const;

    // Since the start: the number of orders, and hundredths by currency.
    int count() const { return _count; }
    QMap<QString, qint64> totals() const { return _totals; }

private:
    void readBookings();
    void appendSynced(const QByteArray& bytes);
    [[noreturn]] void fail(const QString& reason) const;

    QFile _file;
    QHash<QString, QString> _orders; // order numbers by file names, both printable
    int _count = 0;
    QMap<QString, qint64> _totals;
};

} // namespace intake
