// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <vector>

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
        std::vector<int> free; // the lowest ones, which need not follow each other
        for (int i = 0; i <= count; ++i)
            free.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
        const rlimit limit{rlim_t(free.back()), _usual.rlim_max};
        for (const int descriptor : free)
            close(descriptor);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &_usual); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

private:
    rlimit _usual{};
};
