// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "order.h"

#include <kez/exception.h>

class QIODevice;

namespace intake {

/// Why a document is no order, in words for the operator.
///
/// *Threads*: a built exception is read from any thread.
/// *Owns*: its text.
/// *Fails*: never.
class MalformedOrder : public Exception {
public:
    using Exception::Exception;
};

/// Reads orders out of documents: what an order file looks like is known here and nowhere else.
///
/// *Threads*: any thread.
/// *Owns*: nothing.
/// *Fails*: read() throws MalformedOrder.
class OrderReader {
public:
    /// Bytes; a longer document is no order, and is not read to its end.
    static constexpr qint64 MaxDocumentSize = 65536;

    virtual ~OrderReader() = default;

    /// `document` is open for reading.
    virtual Order read(QIODevice& document) const = 0;
};

/// Reads documents in UTF-8 with one `key=value` per line; blanks around both, empty lines, "#"
/// lines and unknown keys do not count.
///
///     order=C-2041
///     customer=Étienne Durand
///     amount=120.50
///     currency=EUR
class KeyValueOrderReader : public OrderReader {
public:
    Order read(QIODevice& document) const override;
};

} // namespace intake
