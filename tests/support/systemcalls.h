// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

// Counts the system calls of an action, which runs in a traced child process.

#include <functional>
#include <optional>

#include <csignal>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace SystemCalls {

/// Lets the child run until it stops for a system call or a signal. Returns the signal, or nothing
/// if the child has ended.
inline std::optional<int> nextStop(pid_t child)
{
    int status = 0;
    if (ptrace(PTRACE_SYSCALL, child, 0, 0) != 0 || waitpid(child, &status, 0) != child)
        return std::nullopt;
    if (!WIFSTOPPED(status))
        return std::nullopt;
    return WSTOPSIG(status);
}

/// The number of calls in the action that `prepare` returns; what `prepare` does itself does not
/// count. Nothing if the process must not trace another one, or if the action fails.
inline std::optional<long> count(const std::function<std::function<void()>()>& prepare)
{
    constexpr int SystemCallStop = SIGTRAP | 0x80; // PTRACE_O_TRACESYSGOOD
    const pid_t child = fork();
    if (child == 0) {
        if (ptrace(PTRACE_TRACEME, 0, 0, 0) != 0)
            _exit(1);
        {
            const auto action = prepare();
            raise(SIGSTOP);
            action();
            raise(SIGSTOP);
        } // and what the action holds, such as directories, is removed
        _exit(0);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFSTOPPED(status))
        return std::nullopt;
    ptrace(PTRACE_SETOPTIONS, child, 0, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    long stops = 0;
    auto signal = nextStop(child);
    for (; signal == SystemCallStop; signal = nextStop(child))
        ++stops;
    const bool isWhole = signal == SIGSTOP;
    ptrace(PTRACE_DETACH, child, 0, 0);
    waitpid(child, &status, 0);
    if (!isWhole)
        return std::nullopt;
    return stops / 2; // one at the entry, one at the return
}

} // namespace SystemCalls
