// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "ledgerconsumer.h"

#include "durablecopy.h"
#include "formats.h"
#include "orderreader.h"
#include "texts.h"

#include <kez/log.h>

#include <QDir>
#include <QFile>

using namespace Qt::StringLiterals;

namespace intake {

namespace {

/// The file's bytes, up to one more than an order may have. Throws Exception: a file that cannot be
/// read is not a malformed order, and is tried again.
QByteArray contentOf(const QString& path)
{
    QFile file(path);
    const QByteArray content =
        file.open(QFile::ReadOnly) ? file.read(MaxOrderSize + 1) : QByteArray();
    if (file.error() != QFile::NoError)
        throw Exception(text("CannotRead"_L1).arg(printable(path), file.errorString()));
    return content;
}

} // namespace

LedgerConsumer::LedgerConsumer(const QString& spool, const QString& ledger, const QString& setAside,
                               QObject* parent)
    : IntakeConsumer(u"ledger"_s, spool, parent), _ledger(ledger), _setAside(setAside)
{
    if (!_ledger.tornEnd().isEmpty())
        Log::getInstance()->warning(text("LedgerRepaired"_L1).arg(printable(_ledger.tornEnd())));
}

int LedgerConsumer::bookedCount() const
{
    return _bookedCount;
}

int LedgerConsumer::setAsideCount() const
{
    return _setAsideCount;
}

QMap<QString, qint64> LedgerConsumer::totals() const
{
    return _totals;
}

void LedgerConsumer::handle(const QString& path, const QString& name)
{
    const QByteArray document = contentOf(path);
    try {
        book(name, readOrder(document));
    } catch (const MalformedOrder& failure) {
        setAside(path, name, failure.detail());
    }
}

void LedgerConsumer::book(const QString& name, const Order& order)
{
    const QString before = _ledger.orderBookedFor(name);
    if (before == printable(order.number)) {
        Log::getInstance()->info(text("AlreadyBooked"_L1).arg(printable(name)));
        return;
    }
    if (!before.isNull())
        throw MalformedOrder(text("FileNameTaken"_L1).arg(before));
    _ledger.append(name, order);
    ++_bookedCount;
    _totals[order.currency] += order.amount;
    Log::getInstance()->info(text("Booked"_L1)
                                 .arg(printable(order.number), printable(order.customer),
                                      amountText(order.amount, order.currency), printable(name)));
}

void LedgerConsumer::setAside(const QString& path, const QString& name, const QString& reason)
{
    QDir().mkpath(_setAside);
    keepCopy(path, _setAside);
    ++_setAsideCount;
    Log::getInstance()->warning(text("SetAside"_L1).arg(printable(name), reason));
}

} // namespace intake
