// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

namespace KezService {

/// Whether a process has a file open for writing.
enum class OpenWriters { None, Some, Unknown };

/// `descriptor`: the file, open for reading.
OpenWriters openWritersOf(int descriptor);

} // namespace KezService
