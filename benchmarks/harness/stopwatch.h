// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <benchmark/benchmark.h>

#include <chrono>

/// Makes the time of `action` that of the running iteration. What comes before and after it in the
/// iteration does not count. The benchmark is registered with UseManualTime().
template <typename Action>
void timeAlone(benchmark::State& state, Action action)
{
    const auto start = std::chrono::steady_clock::now();
    action();
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    state.SetIterationTime(seconds.count());
}
