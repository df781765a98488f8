// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QMetaType>

/// Registered with Qt under this name by the test's library, not by the test program.
struct PluginOrder {
    int quantity = 42;
};

Q_DECLARE_METATYPE(PluginOrder)
