// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QString>

namespace intake {

/// A well-formed order; the same arguments give the same document.
QByteArray goodOrder(const QString& prefix, int number);

/// A document that is no order, each time in another way: a key missing, an amount that is none,
/// too long, binary, empty, a key twice.
QByteArray badOrder(int number);

} // namespace intake
