// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

/// While it lives, the process can open `count` more descriptors.
///
/// The undefined-behaviour sanitizer opens a pipe for each class that it sees for the first time.
/// Run the tested code once before, or skip the test under that sanitizer.
class DescriptorLimit {
public:
    explicit DescriptorLimit(int count)
    {
        getrlimit(RLIMIT_NOFILE, &_usual);
        const int lowestFree = open("/dev/null", O_RDONLY | O_CLOEXEC);
        close(lowestFree);
        const rlimit limit{rlim_t(lowestFree + count), _usual.rlim_max};
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &_usual); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

private:
    rlimit _usual{};
};
