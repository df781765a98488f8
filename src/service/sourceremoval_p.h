// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/filestate_p.h"

#include <QByteArray>

/// How a source goes whose copy is in the queue: this file, and no other one that takes its name
/// meanwhile.
///
/// It gets a hidden name first, ".order.xml.0123456789abcdef.moved", is looked at once more, and is
/// removed. What is not the source gets its name back. A process that is killed between these steps
/// leaves the hidden name behind.
///
/// *Threads*: any thread.
namespace KezService::SourceRemoval {

/// `state`: the content that was copied. Returns also if the file has gone, or if another one has
/// its name.
///
/// Throws Refusal if the source stays.
void remove(const QByteArray& path, const FileState& state);

/// Gives a file that was left behind its name back, or a numbered one if that is taken. Returns the
/// name; empty for any other file, and for one that a living process has locked.
QByteArray bringBack(const QByteArray& directory, const QByteArray& hidden);

} // namespace KezService::SourceRemoval
