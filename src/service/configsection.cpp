// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/configsection.h"

namespace KezService {

Properties section(const Properties& all, const QString& name)
{
    const QString prefix = name + QLatin1Char('.');
    const std::shared_ptr<const Dictionnary> entries = all.toDictionnary();
    Properties found;
    for (auto entry = entries->lowerBound(prefix);
         entry != entries->cend() && entry.key().startsWith(prefix); ++entry)
        found.insert(entry.key().sliced(prefix.size()), entry.value());
    return found;
}

QStringList sectionsWith(const Properties& all, const QString& group)
{
    const QString separator = QLatin1Char('.') + group + QLatin1Char('.');
    QStringList names;
    for (auto key = all.keyBegin(); key != all.keyEnd(); ++key) {
        const qsizetype end = key->lastIndexOf(separator);
        if (end > 0)
            names.append(key->first(end));
    }
    names.sort();
    names.removeDuplicates();
    return names;
}

} // namespace KezService
