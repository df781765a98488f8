// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/strayfiles_p.h"

#include "service/directoryentries_p.h"
#include "service/kittexts_p.h"

#include <kez/log.h>

#include <QFile>

#include <dirent.h>
#include <sys/stat.h>
#include <utility>

namespace KezService {

using namespace std::chrono_literals;

constexpr auto PauseBeforeSecondLook = 1s;
constexpr auto PauseBetweenPairs = 1min;
constexpr qsizetype MostStrays = 1000;

StrayFiles::StrayFiles(const QString& spool, std::function<bool(const QString& name)> isKnown)
    : _spool(spool), _isKnown(std::move(isKnown))
{}

void StrayFiles::look(Clock::time_point now)
{
    if (now < _nextLook)
        return;
    const QSet<QByteArray> before = std::exchange(_seen, found());
    _nextLook = now + (_isSecondLook ? Clock::duration(PauseBetweenPairs) : PauseBeforeSecondLook);
    if (!std::exchange(_isSecondLook, !_isSecondLook))
        return;
    const QSet<QByteArray> strays = _seen & before;
    const qint64 countBefore = std::exchange(_count, strays.size());
    if (_count > countBefore)
        Log::getInstance()->warning(kitText("RunnerStrays", shownName(_spool),
                                            QString::number(_count),
                                            shownName(QFile::decodeName(*strays.constBegin()))));
}

qint64 StrayFiles::count() const
{
    return _count;
}

QSet<QByteArray> StrayFiles::found() const
{
    QSet<QByteArray> strays;
    forEachEntry(QFile::encodeName(_spool), [this, &strays](const dirent& entry) {
        const QByteArray name(entry.d_name);
        if (strays.size() < MostStrays && isStray(name))
            strays.insert(name);
    });
    return strays;
}

bool StrayFiles::isStray(const QByteArray& name) const
{
    if (name.startsWith('.') || _isKnown(QFile::decodeName(name)))
        return false;
    const QByteArray path = QFile::encodeName(_spool) + '/' + name;
    struct stat status {};
    return ::stat(path.constData(), &status) == 0 && S_ISREG(status.st_mode);
}

} // namespace KezService
