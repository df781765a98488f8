// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QString>

namespace intake {

/// A well-formed order, every tenth a refund of the one before; the same arguments give the same
/// document.
QByteArray goodOrder(const QString& prefix, int number);

/// A document that is no order, each time in another way: an element missing, an amount that is
/// none, a type that is none, cut off, too long, binary, empty.
QByteArray badOrder(int number);

} // namespace intake
