// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QString>

namespace intake {

/// A well-formed order; every tenth is a refund of the one before. The same arguments give the same
/// document.
QByteArray goodOrder(const QString& prefix, int number);

/// A document that is not an order. The numbers go through the ways to be wrong: a missing element,
/// an invalid amount, an unknown type, a text that is too long, a cut-off document, a binary file,
/// an empty file.
QByteArray badOrder(int number);

} // namespace intake
