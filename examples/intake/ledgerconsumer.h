// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "intakeconsumer.h"
#include "ledger.h"

#include <memory>

namespace intake {

class OrderReader;

/// Books each order in the ledger, once, and sets aside what is no order.
///
/// *Threads*: the queue's thread.
/// *Owns*: the ledger and the reader.
/// *Fails*: the constructor throws Exception when the ledger cannot be opened.
class LedgerConsumer : public IntakeConsumer {
    Q_OBJECT

public:
    LedgerConsumer(const QString& spool, const QString& ledger, const QString& setAside,
                   std::unique_ptr<const OrderReader> reader, QObject* parent = nullptr);
    ~LedgerConsumer() override;

    /// Files handled since the start.
    int bookedCount() const;
    int setAsideCount() const;

protected:
    void handle(const QString& path, const QString& name) override;

private:
    Order read(const QString& path) const;
    void book(const QString& name, const Order& order);
    void setAside(const QString& path, const QString& name, const QString& reason);

    Ledger _ledger;
    QString _setAside;
    std::unique_ptr<const OrderReader> _reader;
    int _bookedCount = 0;
    int _setAsideCount = 0;
};

} // namespace intake
