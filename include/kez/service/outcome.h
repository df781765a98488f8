// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service_global.h"

#include <QString>

namespace KezService {

/// What a handler answers for a file that it was given.
///
/// *Threads*: a value. *Owns*: its reason. *Fails*: never.
class KEZ_SERVICE_EXPORT Outcome {
public:
    enum class Kind {
        Done,   ///< the work is done, and never needed again
        Retry,  ///< it could not be done at the moment
        Reject, ///< it can never be done: the file goes to quarantine
    };

    static Outcome done();

    /// `reason` is for the log and for the text beside a file in quarantine.
    static Outcome retry(const QString& reason);
    static Outcome reject(const QString& reason);

    Kind kind() const;
    QString reason() const;

private:
    KEZ_HIDDEN Outcome(Kind kind, const QString& reason);

    Kind _kind;
    QString _reason;
};

} // namespace KezService
