// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

namespace KezService {

/// What a service's exit code tells operators and the init system: whether to start it again.
///
/// Codes from 126 on belong to the shell and to signals, and those from 200 on to the init system.
///
///     Restart=on-failure               starts it again after all codes but 0
///     RestartPreventExitStatus=2 78    but not if that cannot help
enum ExitCode : int {
    ExitClean = 0,          ///< stopped on request, its work is done
    ExitFailure = 1,        ///< failed at its work, or for a reason that has no code of its own
    ExitUsage = 2,          ///< wrong command line: the same call fails again
    ExitUnavailable = 69,   ///< cannot begin its work: a directory, a device, a server is missing
    ExitTemporary = 75,     ///< something is busy: the same call may succeed later
    ExitConfiguration = 78, ///< the configuration has faults: somebody has to correct it
};

} // namespace KezService
