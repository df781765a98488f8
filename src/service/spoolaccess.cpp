// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/spoolaccess_p.h"

#include "frame/directories_p.h"
#include "service/durablefiles_p.h"
#include "service/kittexts_p.h"
#include "service/spoollock_p.h"
#include "service/spoolplaces_p.h"

#include <kez/exception.h>
#include <kez/log.h>

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace KezService {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr auto FirstPause = 1s;
constexpr auto LongestPause = 10s;

bool isReachable(const QString& spool)
{
    return isUsableDirectory(spool) && QFileInfo(spool).isExecutable();
}

} // namespace

SpoolAccess::SpoolAccess(const QString& spool, SpoolLock& lock) : _spool(spool), _lock(lock)
{}

QByteArray SpoolAccess::pathOf(const QString& name) const
{
    return QFile::encodeName(_spool + QLatin1Char('/') + name);
}

Descriptor SpoolAccess::open() const
{
    return openFile(QFile::encodeName(_spool), O_PATH | O_DIRECTORY);
}

bool SpoolAccess::isDeleted(const QString& name) const
{
    const Descriptor spool = open();
    const QByteArray encoded = QFile::encodeName(name);
    return spool.isOpen() && ::faccessat(spool.get(), encoded.constData(), F_OK, 0) != 0 &&
           errno == ENOENT;
}

bool SpoolAccess::isUsable() const
{
    return !_failures.hasFailed();
}

SpoolAccess::State SpoolAccess::look()
{
    if (!isUsable() && Clock::now() < _nextLook)
        return State::Unusable;
    const bool wasOurs = _lock.isInPlace();
    if (const QString fault = regain(); !fault.isEmpty()) {
        if (_failures.fail(fault))
            Log::getInstance()->critical(fault);
        _nextLook = Clock::now() + _failures.pause(FirstPause, LongestPause);
        return State::Unusable;
    }
    if (_failures.succeed())
        Log::getInstance()->info(kitText("RunnerSpoolBack", shownName(_spool)));
    else if (!wasOurs)
        Log::getInstance()->warning(
            kitText("RunnerLockRemoved", shownName(SpoolPlaces::hidden(_spool))));
    else
        return State::Usable;
    return State::Regained;
}

void SpoolAccess::skipPause()
{
    _nextLook = {};
}

/// Returns why the spool cannot be worked on; empty if it can.
QString SpoolAccess::regain()
{
    if (!isReachable(_spool))
        return kitText("RunnerSpoolLost", shownName(_spool));
    if (_lock.isInPlace())
        return QString();
    const QString hidden = SpoolPlaces::hidden(_spool);
    if (const int error = SpoolPlaces::makePlace(hidden, _spool); error != 0)
        return kitText("RunnerPlaceFailed", shownName(hidden), systemErrorText(error));
    try {
        _lock.takeAgain();
    } catch (const Exception& failure) {
        return failure.detail();
    }
    return QString();
}

} // namespace KezService
