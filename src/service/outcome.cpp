// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/outcome.h"

namespace KezService {

Outcome Outcome::done()
{
    return Outcome(Kind::Done, QString());
}

Outcome Outcome::retry(const QString& reason)
{
    return Outcome(Kind::Retry, reason);
}

Outcome Outcome::reject(const QString& reason)
{
    return Outcome(Kind::Reject, reason);
}

Outcome::Kind Outcome::kind() const
{
    return _kind;
}

QString Outcome::reason() const
{
    return _reason;
}

Outcome::Outcome(Kind kind, const QString& reason) : _kind(kind), _reason(reason)
{}

} // namespace KezService
