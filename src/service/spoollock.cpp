// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/spoollock_p.h"

#include "service/kittexts_p.h"
#include "service/spoolplaces_p.h"

#include <cerrno>

namespace KezService {

SpoolLock::SpoolLock(const QString& spool) : _spool(spool), _lock(SpoolPlaces::lock(spool), 0666)
{
    takeAgain();
}

void SpoolLock::takeAgain()
{
    const int error = _lock.take();
    if (error == EWOULDBLOCK)
        raise("RunnerSpoolTaken", shownName(_spool), _lock.holder());
    if (error != 0)
        raise("RunnerLockFailed", shownName(SpoolPlaces::lock(_spool)), systemErrorText(error));
}

} // namespace KezService
