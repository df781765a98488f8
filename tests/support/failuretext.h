// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <kez/exception.h>

#include <QString>

#include <memory>

/// The text of an Exception. The library's failures have no parent; a text says so if one has.
inline QString exceptionText(const Exception& e)
{
    return e.parent() ? QStringLiteral("with a parent: ") + e.detail() : e.detail();
}

/// The text of the Exception that `action` throws; null if it throws none.
template <typename Action>
QString failureText(Action action)
{
    try {
        action();
    } catch (const Exception& e) {
        return exceptionText(e);
    }
    return QString();
}

/// The Exception that `action` throws as a pointer, owned; empty if it throws none.
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

/// The text of the Exception that `action` throws as a pointer; null if it throws none.
template <typename Action>
QString pointerFailureText(Action action)
{
    const std::unique_ptr<Exception> failure = thrownPointer(action);
    return failure ? exceptionText(*failure) : QString();
}
