// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/workplace_p.h"

#include <utility>

namespace KezService {

void Inbox::connect(std::function<void()> wake)
{
    const std::lock_guard lock(_mutex);
    _wake = std::move(wake);
}

void Inbox::disconnect()
{
    connect({});
}

void Inbox::put(Ended ended)
{
    const std::lock_guard lock(_mutex);
    _ended.push_back(std::move(ended));
    if (_wake && !std::exchange(_isTold, true))
        _wake();
}

std::vector<Ended> Inbox::take()
{
    const std::lock_guard lock(_mutex);
    _isTold = false;
    return std::exchange(_ended, {});
}

Workplace::Workplace(const RunnerSettings& settings, const QStringList& consumers)
    : spool(settings.spool),
      lock(spool),
      quarantine(spool, settings.quarantine),
      journal(spool, consumers, settings.journal)
{}

} // namespace KezService
