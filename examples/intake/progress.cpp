// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "progress.h"

#include <QString>
#include <QTextStream>

#include <cstdio>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace intake {

Progress::Progress(int total) : _total(total), _isTerminal(::isatty(STDOUT_FILENO) == 1)
{}

void Progress::show(int done)
{
    if (_isTerminal) {
        drawBar(done);
        return;
    }
    const int quarters = static_cast<int>(qint64{done} * 4 / _total);
    if (quarters == _shownQuarters)
        return;
    _shownQuarters = quarters;
    QTextStream(stdout) << u"%1 / %2"_s.arg(done).arg(_total) << Qt::endl;
}

void Progress::drawBar(int done) const
{
    constexpr int Width = 40;
    const int filled = static_cast<int>(qint64{done} * Width / _total);
    const QString bar = QString(filled, u'#').leftJustified(Width, u'.');
    QTextStream(stdout) << u"\r[%1] %2 / %3"_s.arg(bar).arg(done).arg(_total)
                        << (done == _total ? "\n" : "") << Qt::flush;
}

} // namespace intake
