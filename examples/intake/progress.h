// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

namespace intake {

/// Shows the progress of a known number of steps on the standard output: on a terminal as a bar,
/// otherwise as one line for each quarter.
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
