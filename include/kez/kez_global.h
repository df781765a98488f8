// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QtCore/qglobal.h>

/// Marks what the library exports; everything else in it is hidden.
#if defined(KEZ_LIBRARY)
#define KEZ_EXPORT Q_DECL_EXPORT
#else
#define KEZ_EXPORT Q_DECL_IMPORT
#endif
