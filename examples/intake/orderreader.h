// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "order.h"

#include <QByteArray>

namespace intake {

/// Bytes; a longer document is no order.
constexpr qsizetype MaxOrderSize = 65536;

/// Reads an order out of an XML document in UTF-8:
///
///     <order type="Sale" number="C-2041">
///         <customer>Étienne Durand</customer>
///         <amount currency="EUR">120.50</amount>
///     </order>
///
/// `type` chooses the handler that makes the order of it, "Sale" where it is absent; attributes and
/// elements that the handler does not know do not count.
///
/// *Threads*: any thread.
/// *Fails*: throws MalformedOrder.
Order readOrder(const QByteArray& document);

} // namespace intake
