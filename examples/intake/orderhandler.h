// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "order.h"

#include <memory>

class XmlElement;

namespace intake {

/// Makes orders from the documents of one type. The handler of the type "Refund" is found by its
/// class name, `intake::RefundHandler`, in the registry of reflective classes. For a new type,
/// write its class and name it in registerOrderHandlers().
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

/// Money given back: as a sale, with the attribute `refunds`, which names the order. Its amount is
/// written without a sign and booked as a negative one.
class RefundHandler : public SaleHandler {
public:
    Order order(const XmlElement& document) const override;
};

/// Call it at the start, while there is one thread.
void registerOrderHandlers();

/// The handler for orders of that type. Only registered handlers are found: the type comes from a
/// file, which must not choose among all classes of the process. Throws MalformedOrder.
std::unique_ptr<const OrderHandler> orderHandler(const QString& type);

} // namespace intake
