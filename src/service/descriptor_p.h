// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <unistd.h>

#include <utility>

namespace KezService {

/// Owns one file descriptor.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) : _number(number) {}
    Descriptor(Descriptor&& other) noexcept : _number(std::exchange(other._number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(_number, other._number);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { close(); }

    int get() const { return _number; }
    bool isOpen() const { return _number >= 0; }

    void close()
    {
        if (isOpen())
            ::close(std::exchange(_number, -1));
    }

private:
    int _number = -1;
};

} // namespace KezService
