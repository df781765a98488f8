// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <kez/exception.h>

#include <QString>

/// The text of the Exception that `action` throws; null when it throws none. The failures of one
/// operation have no parent: one that has reads as such.
template <typename Action>
QString failureText(Action action)
{
    try {
        action();
    } catch (const Exception& e) {
        return e.parent() ? QStringLiteral("with a parent: ") + e.detail() : e.detail();
    }
    return QString();
}
