// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QLocale>
#include <QString>

/// The system locale's name with "_" between language and country: "fr_FR".
inline QString systemLanguage()
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 7, 0)
    return QLocale::system().name(QLocale::TagSeparator::Underscore);
#else
    return QLocale::system().name();
#endif
}
