// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QDebug>
#include <QMessageLogger>
#include <QString>

/// Shows `text` as it stands on Qt's critical message channel, category "default".
inline void reportCritical(const QString& text)
{
    QMessageLogger().critical().noquote() << text;
}
