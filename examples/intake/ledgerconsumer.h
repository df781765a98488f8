// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "intakeconsumer.h"
#include "ledger.h"

#include <QMap>

namespace intake {

/// Books each order in the ledger, once, and sets aside the files that are not orders.
///
/// *Threads*: the queue's thread.
/// *Owns*: the ledger.
/// *Fails*: the constructor throws Exception if the ledger cannot be opened.
class LedgerConsumer : public IntakeConsumer {
    Q_OBJECT

public:
    LedgerConsumer(const QString& spool, const QString& ledger, const QString& setAside,
                   QObject* parent = nullptr);

    /// Files handled since the start.
    int bookedCount() const;
    int setAsideCount() const;

    /// What was booked since the start: hundredths by currency.
    QMap<QString, qint64> totals() const;

protected:
    void handle(const QString& path, const QString& name) override;

private:
    void book(const QString& name, const Order& order);
    void setAside(const QString& path, const QString& name, const QString& reason);

    Ledger _ledger;
    QString _setAside;
    int _bookedCount = 0;
    int _setAsideCount = 0;
    QMap<QString, qint64> _totals;
};

} // namespace intake
