// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QMetaType>

/// What the test's library makes known to Qt, under this name, and the test program does not.
struct PluginOrder {
    int quantity = 42;
};

Q_DECLARE_METATYPE(PluginOrder)
