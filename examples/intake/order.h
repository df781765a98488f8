// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

namespace intake {

/// One order, checked: no field is empty or holds a control character.
struct Order {
    QString number;
    QString customer;
    QString amount;   // digits, and up to two decimals after a point
    QString currency; // three capital letters
};

} // namespace intake
