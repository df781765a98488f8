// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QString>

namespace KezService {

/// The text of the exception that is being handled: that of an Exception, of a std::exception, or
/// else the name of its type. Deletes an Exception that was thrown as a pointer.
///
/// Call it in a handler `catch (...)`, after one that passes on abi::__forced_unwind, by which a
/// thread is cancelled.
QString caughtText();

} // namespace KezService
