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

/// Marks the private members of an exported class: nobody outside the library may link to them.
#define KEZ_HIDDEN Q_DECL_HIDDEN
