// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <kez/kez_global.h>

/// Marks what the service kit exports; everything else in it is hidden.
#if defined(KEZ_SERVICE_LIBRARY)
#define KEZ_SERVICE_EXPORT Q_DECL_EXPORT
#else
#define KEZ_SERVICE_EXPORT Q_DECL_IMPORT
#endif
