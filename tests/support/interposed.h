// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <dlfcn.h>

/// The C library's own function of that name, for a test's function that takes precedence over it.
template <typename Function>
Function interposed(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}
