// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/kittexts_p.h"

#include <QFile>
#include <QString>

namespace KezService {

/// Why a file does not enter a queue. Thrown inside the kit; users get an Exception or a signal.
struct Refusal {
    enum class Kind {
        Gone,        ///< the source is not there
        Changing,    ///< the source changes, or another process has it
        NameTaken,   ///< the queue has a file of that name
        Interrupted, ///< the thread was asked to end
        Other
    };

    Kind kind = Kind::Other;
    int error = 0; ///< the system's error number, if it is the reason
    QString reason;
    QByteArray path = {}; ///< what the system's error is about

    template <typename... Arguments>
    static Refusal because(Kind kind, const char* key, const Arguments&... arguments)
    {
        return {kind, 0, kitText(key, arguments...)};
    }

    static Refusal bySystem(const QByteArray& path, int error, Kind kind = Kind::Other)
    {
        const QString shown = shownName(QFile::decodeName(path));
        return {kind, error, kitText("SystemFailure", shown, systemErrorText(error)), path};
    }

    /// Throws if there is an error.
    static void check(const QByteArray& path, int error)
    {
        if (error != 0)
            throw bySystem(path, error);
    }
};

} // namespace KezService
