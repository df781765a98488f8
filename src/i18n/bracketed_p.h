// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

/// What is shown for a key without a text, so that a missing text is visible.
inline QString bracketed(const QString& key)
{
    return QLatin1Char('[') + key + QLatin1Char(']');
}
