// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

namespace intake {

/// Shows on the standard output how far a known number of steps has come: as a bar that moves on a
/// terminal, as one line for each quarter elsewhere.
///
/// *Threads*: one thread at a time.
/// *Owns*: nothing.
/// *Fails*: never.
class Progress {
public:
    explicit Progress(int total);

    void show(int done);

private:
    void drawBar(int done) const;

    int _total;
    bool _isTerminal;
    int _shownQuarters = 0;
};

} // namespace intake
