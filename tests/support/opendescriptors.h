// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QDir>
#include <QString>

/// The number of descriptors that the process has open, and one for the listing itself.
inline int openDescriptors()
{
    return int(QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::NoFilter).size());
}
