// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "frame/directories_p.h"

#include <QDir>
#include <QFileInfo>
#include <QLatin1String>
#include <QString>
#include <QStringList>

#include <optional>

/// How the files of a log ring are named.
namespace RingName {

/// The end of a ring's pattern, in the place of the index and the suffix.
inline constexpr QLatin1String IndexMarker("%d.log");

/// The directory of the ring that a logger opens for `fileName`, without a "/" at its end: the root
/// is empty.
inline QString directory(const QString& fileName)
{
    const qsizetype slash = fileName.lastIndexOf(QLatin1Char('/'));
    return slash < 0 ? QDir::homePath() : fileName.left(slash);
}

/// `<directory>/<base>-%d.log` as given.
inline QString pattern(const QString& fileName)
{
    QString base = fileName.sliced(fileName.lastIndexOf(QLatin1Char('/')) + 1);
    if (base.endsWith(QLatin1String(".log")))
        base.chop(4);
    return directory(fileName) + QLatin1Char('/') + base + QLatin1Char('-') + IndexMarker;
}

/// The same files, also if the working directory changes later.
inline QString absolutePattern(const QString& pattern)
{
    const qsizetype slash = pattern.lastIndexOf(QLatin1Char('/'));
    const QString given = pattern.left(slash);
    const QString absolute = absolutePath(given);
    // The name of the working directory may not be UTF-8: a text cannot hold it then.
    const bool isFound = slash == 0 || QFileInfo(absolute).isDir();
    return (isFound ? absolute : given) + pattern.sliced(slash);
}

/// What the names of a ring's files begin with: "app-". It follows the last "/".
inline QString head(const QString& pattern)
{
    return pattern.sliced(pattern.lastIndexOf(QLatin1Char('/')) + 1).chopped(IndexMarker.size());
}

/// The pattern with the index in place of its marker.
inline QString withIndex(const QString& pattern, unsigned int index)
{
    // Only the end of the pattern counts: the directory may hold a "%d" of its own.
    return pattern.chopped(IndexMarker.size()) + QString::number(index) + QStringLiteral(".log");
}

/// The highest index below `kept` that has a file, or a link to one, among the names in the ring's
/// directory.
inline std::optional<unsigned int> newestIndex(const QString& pattern, unsigned int kept,
                                               const QStringList& names)
{
    const QString head = RingName::head(pattern);
    std::optional<unsigned int> newest;
    for (const QString& name : names) {
        if (!name.startsWith(head))
            continue;
        const unsigned int index =
            name.sliced(head.size()).section(QLatin1Char('.'), 0, 0).toUInt();
        const QString path = withIndex(pattern, index);
        if (index < kept && (!newest || index > *newest) &&
            path.endsWith(QLatin1Char('/') + name) && QFileInfo::exists(path))
            newest = index;
    }
    return newest;
}

} // namespace RingName
