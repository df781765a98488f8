// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "order.h"

#include <QByteArray>

namespace intake {

/// In bytes; a longer document is not an order.
constexpr qsizetype MaxOrderSize = 65536;

/// Reads an order from an XML document in UTF-8:
///
///     <order type="Sale" number="C-2041">
///         <customer>Étienne Durand</customer>
///         <amount currency="EUR">120.50</amount>
///     </order>
///
/// `type` selects the handler that makes the order; without it, "Sale". Attributes and elements
/// that the handler does not know are ignored.
///
/// *Threads*: any thread.
/// *Fails*: throws MalformedOrder.
Order readOrder(const QByteArray& document);

} // namespace intake
