// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "loadfile.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QRandomGenerator>
#include <QString>

#include <algorithm>

/// The consumers of loadservice.cpp, with their threads.
inline const QMap<QByteArray, int>& loadConsumers()
{
    static const QMap<QByteArray, int> consumers{{"ledger", 1}, {"archive", 2}, {"index", 3}};
    return consumers;
}

/// What happens in a run of the load test, and when. All of it follows from the number of files,
/// the number of kills and a seed; the moments in a run are counted in handled files.
struct LoadPlan {
    LoadPlan(int count, int killCount, quint32 theSeed) : seed(theSeed)
    {
        for (int i = 0; i < count; ++i)
            names.append(kindOf(i, count) + QByteArray::number(i).rightJustified(6, '0') + ".txt");

        // One in each of as many parts of the run. Near its end there may be nothing left to kill.
        QRandomGenerator random(seed);
        const double part = 0.95 * handlings() / killCount;
        for (int i = 0; i < killCount; ++i)
            kills.append(static_cast<int>((i + random.generateDouble()) * part));
    }

    int handlings() const { return static_cast<int>(names.size() * loadConsumers().size()); }

    /// The disk is full in the middle of the run. A journal that cannot be written protects against
    /// no death: meanwhile there are no kills, and no deadly file is under way. Some names are kept
    /// back for that time, so that producers are at work.
    int fullDiskAt() const { return handlings() / 2; }
    qsizetype namesBeforeFullDisk() const { return names.size() * 3 / 4; }

    /// So many files are under way at a time, at most.
    qsizetype window() const { return std::clamp<qsizetype>(names.size() / 8, 20, 400); }

    /// The names of a kind.
    QList<QByteArray> namesOf(const char* kind) const
    {
        QList<QByteArray> found = names;
        found.removeIf([kind](const QByteArray& name) { return !name.startsWith(kind); });
        return found;
    }

    quint32 seed;
    QList<QByteArray> names;
    QList<int> kills; ///< after so many handlings

private:
    static QByteArray kindOf(int number, int count)
    {
        if (number == count / 4 || number == count * 7 / 8)
            return LoadFile::Deadly;
        if (number % 250 == 17)
            return LoadFile::Rejected;
        if (number % 500 == 33)
            return LoadFile::Stubborn;
        return LoadFile::Ordinary;
    }
};
