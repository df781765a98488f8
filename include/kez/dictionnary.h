// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QMap>
#include <QString>

/// The library's name (spelled so) for a plain map of text to text.
using Dictionnary = QMap<QString, QString>;
