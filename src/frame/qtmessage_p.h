// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QDebug>
#include <QMessageLogger>
#include <QString>

/// Qt's message output. QMessageLogger's constructor without arguments would leave the category
/// null instead of "default".
inline QMessageLogger qtMessages()
{
    return QMessageLogger(nullptr, 0, nullptr);
}

/// Shows `text` as it stands on Qt's critical message channel, category "default".
inline void reportCritical(const QString& text)
{
    qtMessages().critical().noquote() << text;
}
