// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/arrivals_p.h"

namespace KezService {

std::optional<std::pair<Arrivals::Clock::time_point, QByteArray>> Arrivals::first() const
{
    return _order.empty() ? std::nullopt : std::optional(*_order.begin());
}

Arrival& Arrivals::operator[](const QByteArray& name)
{
    const auto found = _arrivals.find(name);
    Q_ASSERT(found != _arrivals.end());
    return *found;
}

void Arrivals::add(const QByteArray& name, Clock::time_point due)
{
    if (contains(name))
        return;
    _arrivals[name].due = due;
    _order.emplace(due, name);
}

void Arrivals::reschedule(const QByteArray& name, Clock::time_point due)
{
    Arrival& arrival = (*this)[name];
    _order.erase({arrival.due, name});
    arrival.due = due;
    _order.emplace(due, name);
}

void Arrivals::remove(const QByteArray& name)
{
    const auto found = _arrivals.find(name);
    if (found == _arrivals.end())
        return;
    _order.erase({found->due, name});
    _arrivals.erase(found);
}

void Arrivals::keepOnly(const QSet<QByteArray>& names)
{
    for (auto arrival = _arrivals.begin(); arrival != _arrivals.end();) {
        if (names.contains(arrival.key())) {
            ++arrival;
            continue;
        }
        _order.erase({arrival->due, arrival.key()});
        arrival = _arrivals.erase(arrival);
    }
}

} // namespace KezService
