// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <kez/exception.h>

#include <QString>

#include <memory>

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

/// The Exception that `action` throws as a pointer, owned; empty when it throws none.
template <typename Action>
std::unique_ptr<Exception> thrownPointer(Action action)
{
    try {
        action();
    } catch (Exception* e) {
        return std::unique_ptr<Exception>(e);
    }
    return nullptr;
}

/// The text of the Exception that `action` throws as a pointer; null when it throws none.
template <typename Action>
QString pointerFailureText(Action action)
{
    const std::unique_ptr<Exception> failure = thrownPointer(action);
    return failure ? failure->detail() : QString();
}
