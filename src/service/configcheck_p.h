// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/service/loadconfig.h"

#include <kez/dictionnary.h>

#include <QStringList>

namespace KezService {

/// A configuration, and what the validators say about it.
struct CheckedConfig {
    std::shared_ptr<Config> config;
    QStringList faults; ///< each once
};

CheckedConfig checkConfig(const Dictionnary& entries, const QString& version,
                          const ConfigValidators& validators);

/// Throws an Exception with one line per fault.
[[noreturn]] void raiseConfigFaults(const QString& path, const QStringList& faults);

} // namespace KezService
