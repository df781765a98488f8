// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "ledgerconsumer.h"

#include "durablecopy.h"
#include "orderreader.h"
#include "texts.h"

#include <kez/log.h>

#include <QDir>
#include <QFile>

#include <utility>

using namespace Qt::StringLiterals;

namespace intake {

LedgerConsumer::LedgerConsumer(const QString& spool, const QString& ledger, const QString& setAside,
                               std::unique_ptr<const OrderReader> reader, QObject* parent)
    : IntakeConsumer(u"ledger"_s, spool, parent),
      _ledger(ledger),
      _setAside(setAside),
      _reader(std::move(reader))
{
    if (!_ledger.tornEnd().isEmpty())
        Log::getInstance()->warning(text("LedgerRepaired"_L1).arg(printable(_ledger.tornEnd())));
}

LedgerConsumer::~LedgerConsumer() = default;

int LedgerConsumer::bookedCount() const
{
    return _bookedCount;
}

int LedgerConsumer::setAsideCount() const
{
    return _setAsideCount;
}

void LedgerConsumer::handle(const QString& path, const QString& name)
{
    if (_ledger.contains(name)) {
        Log::getInstance()->info(text("AlreadyBooked"_L1).arg(printable(name)));
        return;
    }
    try {
        book(name, read(path));
    } catch (const MalformedOrder& failure) {
        setAside(path, name, failure.detail());
    }
}

Order LedgerConsumer::read(const QString& path) const
{
    QFile document(path);
    // No fault of the order: there may be no descriptor left. It is tried again.
    if (!document.open(QFile::ReadOnly))
        throw Exception(text("CannotRead"_L1).arg(printable(path), document.errorString()));
    return _reader->read(document);
}

void LedgerConsumer::book(const QString& name, const Order& order)
{
    _ledger.append(name, order);
    ++_bookedCount;
    Log::getInstance()->info(text("Booked"_L1)
                                 .arg(printable(order.number), printable(order.customer),
                                      order.amount, order.currency, printable(name)));
}

void LedgerConsumer::setAside(const QString& path, const QString& name, const QString& reason)
{
    QDir().mkpath(_setAside);
    keepCopy(path, _setAside);
    ++_setAsideCount;
    Log::getInstance()->warning(text("SetAside"_L1).arg(printable(name), reason));
}

} // namespace intake
