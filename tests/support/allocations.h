// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

// Counts every allocation of the process, also those of operator new and of Qt's containers, and
// remembers the size of the largest. Include it in one source file of a program, and link that with
// ENABLE_EXPORTS: the shared libraries then use these functions, too.

#include <atomic>
#include <cstddef>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KEZ_ALLOCATIONS_ARE_SANITIZED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KEZ_ALLOCATIONS_ARE_SANITIZED
#endif
#endif

namespace Allocations {

inline std::atomic<long> count{0};

/// Whether this thread gets no memory, after `granted` more requests.
inline thread_local bool areRefused = false;
inline thread_local int granted = 0;

inline bool isRefused()
{
    return areRefused && --granted < 0;
}

/// In bytes; set it to 0 to begin again.
inline std::atomic<std::size_t> largest{0};

inline void note(std::size_t size)
{
    count.fetch_add(1, std::memory_order_relaxed);
    std::size_t before = largest.load(std::memory_order_relaxed);
    while (before < size && !largest.compare_exchange_weak(before, size, std::memory_order_relaxed))
        continue;
}

#ifdef KEZ_ALLOCATIONS_ARE_SANITIZED
inline constexpr bool AreCounted = false; // the sanitizer has functions of its own
#else
inline constexpr bool AreCounted = true;
#endif

} // namespace Allocations

#ifndef KEZ_ALLOCATIONS_ARE_SANITIZED
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);

void* malloc(size_t size)
{
    Allocations::note(size);
    return Allocations::isRefused() ? nullptr : __libc_malloc(size);
}

void* calloc(size_t count, size_t size)
{
    Allocations::note(count * size);
    return Allocations::isRefused() ? nullptr : __libc_calloc(count, size);
}

void* realloc(void* block, size_t size)
{
    Allocations::note(size);
    return Allocations::isRefused() ? nullptr : __libc_realloc(block, size);
}
}
#endif
