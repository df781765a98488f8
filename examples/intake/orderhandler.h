// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "order.h"

#include <memory>

class XmlElement;

namespace intake {

/// Makes orders of the documents of one type. The handler of type "Refund" is found by its class
/// name, `intake::RefundHandler`, in the registry of reflective classes: for a further type, write
/// its class and name it in registerOrderHandlers().
///
/// *Threads*: any thread.
/// *Owns*: nothing.
/// *Fails*: order() throws MalformedOrder.
class OrderHandler {
public:
    virtual ~OrderHandler() = default;

    /// `document` is an `order` element.
    virtual Order order(const XmlElement& document) const = 0;
};

/// A sale: the attribute `number`, the elements `customer`, and `amount` with its `currency`.
class SaleHandler : public OrderHandler {
public:
    Order order(const XmlElement& document) const override;
};

/// The same for money given back, and `refunds`, the attribute that names the order concerned. Its
/// amount is written without sign, and booked below 0.
class RefundHandler : public SaleHandler {
public:
    Order order(const XmlElement& document) const override;
};

/// To be called at start, while one thread runs.
void registerOrderHandlers();

/// The handler of the orders of that type. Only registered handlers are found: the type comes from
/// a file, and must not choose among all the classes of the process. Throws MalformedOrder.
std::unique_ptr<const OrderHandler> orderHandler(const QString& type);

} // namespace intake
