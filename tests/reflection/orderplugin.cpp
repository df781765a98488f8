// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "reflection/pluginorder.h"

#include <QtGlobal>

namespace {

const int registeredId = qRegisterMetaType<PluginOrder>();

} // namespace

extern "C" Q_DECL_EXPORT int orderPluginTypeId()
{
    return registeredId;
}
