// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QSet>
#include <QString>

#include <chrono>
#include <functional>

namespace KezService {

/// Finds the visible files of a spool that its queue does not take: the process may not read and
/// write them, or their names are not UTF-8. Without this, nobody would learn of them.
///
/// A file counts if it was a stray at two looks, since one that has just come is not in the queue
/// yet. The second look comes a second after the first one, and each further pair a minute later.
///
/// *Threads*: one thread.
/// *Owns*: the names of the last look, a thousand at most.
/// *Fails*: never: a directory that cannot be listed counts as empty.
class StrayFiles {
public:
    using Clock = std::chrono::steady_clock;

    /// `isKnown`: whether the queue has the name, or a file of that name is being finished.
    StrayFiles(const QString& spool, std::function<bool(const QString& name)> isKnown);

    /// Looks if it is time. The log tells when there are more of them than before.
    void look(Clock::time_point now);

    /// A thousand stands for more.
    qint64 count() const;

private:
    QSet<QByteArray> found() const;
    bool isStray(const QByteArray& name) const;

    const QString _spool;
    const std::function<bool(const QString&)> _isKnown;
    QSet<QByteArray> _seen; // at the last look
    bool _isSecondLook = false;
    Clock::time_point _nextLook{};
    qint64 _count = 0;
};

} // namespace KezService
