// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <kez/exception.h>

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
///
/// *Threads*: a built exception is read from any thread.
/// *Owns*: its text.
/// *Fails*: never.
class MalformedOrder : public Exception {
public:
    using Exception::Exception;
};

} // namespace intake
