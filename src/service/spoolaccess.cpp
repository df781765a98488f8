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
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

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

SpoolAccess::SpoolAccess(const QString& spool, SpoolLock& lock)
    : _spool(spool),
      _lock(lock),
      _directory(openFile(QFile::encodeName(spool), O_PATH | O_DIRECTORY)),
      _stamp(stampIn(_directory.get(), {}).value_or(FileStamp()))
{}

std::optional<FileStamp> SpoolAccess::stampOf(const QString& name) const
{
    return stampIn(_directory.get(), QFile::encodeName(name));
}

bool SpoolAccess::isDeleted(const QString& name) const
{
    const QByteArray encoded = QFile::encodeName(name);
    return ::faccessat(_directory.get(), encoded.constData(), F_OK, 0) != 0 && errno == ENOENT;
}

bool SpoolAccess::mayReadAndWrite(const QString& name) const
{
    const QByteArray encoded = QFile::encodeName(name);
    return ::faccessat(_directory.get(), encoded.constData(), R_OK | W_OK, 0) == 0;
}

bool SpoolAccess::isInPlace() const
{
    const std::optional<FileStamp> stamp = KezService::stampOf(QFile::encodeName(_spool));
    return stamp && stamp->isOfSameFile(_stamp);
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
    Descriptor found = openFile(QFile::encodeName(_spool), O_PATH | O_DIRECTORY);
    const std::optional<FileStamp> stamp = stampIn(found.get(), {});
    if (!isReachable(_spool) || !stamp)
        return kitText("RunnerSpoolLost", shownName(_spool));
    if (!stamp->isOfSameFile(_stamp) && !isDirectoryDeleted())
        return kitText("RunnerSpoolReplaced", shownName(_spool));
    _directory = std::move(found); // it may be mounted anew
    _stamp = *stamp;
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

bool SpoolAccess::isDirectoryDeleted() const
{
    struct stat info {};
    return ::fstat(_directory.get(), &info) != 0 || info.st_nlink == 0;
}

} // namespace KezService
