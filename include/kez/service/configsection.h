// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service_global.h"

#include <kez/properties.h>

#include <QString>
#include <QStringList>

/// Sections of a configuration: the entries whose keys begin with the same name.
///
/// *Threads*: any thread, as long as nobody changes the properties.
/// *Owns*: nothing; a section is a copy.
/// *Fails*: never.
namespace KezService {

/// The entries whose keys begin with "<name>.", without that beginning.
///
///     audit.log.filename=/var/log/audit.log    section(all, "audit")
///     audit.log.kept=30                        ->  log.filename=/var/log/audit.log
///     log.filename=/var/log/app.log                log.kept=30
KEZ_SERVICE_EXPORT Properties section(const Properties& all, const QString& name);

/// The names of the sections that hold a key "<group>.<more>", each once and in order: with the
/// group "log", the loggers that a configuration describes. What stands before the last
/// ".<group>." of a key is the name; a section without a name does not count.
KEZ_SERVICE_EXPORT QStringList sectionsWith(const Properties& all, const QString& group);

} // namespace KezService
