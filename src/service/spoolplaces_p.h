// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

/// The hidden subdirectory of a spool, where the kit keeps what the queue must not see. It is in
/// the same file system, so that a file appears in the spool by one rename, and its names leave
/// room for spool names of 255 bytes.
namespace KezService::SpoolPlaces {

/// "<spool>/.kez"
QString hidden(const QString& spool);

/// What a runner keeps there.
QString lock(const QString& spool);       ///< "lock"
QString journal(const QString& spool);    ///< "journal"
QString status(const QString& spool);     ///< "status.json"
QString quarantine(const QString& spool); ///< "quarantine", if the settings name no other

/// Where files that are being delivered grow: "incoming".
QString incoming(const QString& spool);

/// Makes the directory at `path`, with the owner's, the group's and the others' rights of the
/// spool, if there is none yet. Returns the system's error number, or 0.
int makePlace(const QString& path, const QString& spool);

} // namespace KezService::SpoolPlaces
