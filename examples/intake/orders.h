// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <kez/exception.h>

#include <QByteArray>
#include <QString>

namespace intake {

/// A checked order: no text is empty or holds a control character.
struct Order {
    QString number;
    QString customer;
    qint64 amount = 0; // in hundredths of the currency; negative for a refund
    QString currency;  // three capital letters
};

/// Why a document is not an order, in words for the operator.
class MalformedOrder : public Exception {
public:
    using Exception::Exception;
};

/// In bytes; a longer document is not an order.
constexpr qsizetype MaxOrderSize = 65536;

/// Registers the class of each type of order. Call it at the start, while there is one thread.
void registerOrderHandlers();

/// Reads an order from an XML document in UTF-8. The attribute `type` of the document selects the
/// class that makes the order: `intake::SaleHandler` for "Sale", which is also the one without it.
/// Elements and attributes that this class does not know are ignored. Throws MalformedOrder.
Order readOrder(const QByteArray& document);

} // namespace intake
