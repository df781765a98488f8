// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

/// A copy of a Qt container that has data of its own from the start. An ordinary copy shares them
/// until one of the two is changed, and an iterator or a reference that was taken before the copy
/// then writes to both.
template <typename Container>
Container unshared(const Container& container)
{
    Container copy = container;
    copy.detach();
    return copy;
}
