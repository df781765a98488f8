// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "settings.h"

#include <kez/properties.h>

#include <QDir>
#include <QFileInfo>
#include <QStringList>

using namespace Qt::StringLiterals;

namespace intake {

Settings Settings::fromProperties(const Properties& properties)
{
    Settings settings;
    settings.spool = trimmedValue(properties, u"queue.path"_s);
    if (const QString period = trimmedValue(properties, u"queue.period"_s); !period.isEmpty())
        settings.period = period.toInt();
    settings.keep = !isNo(trimmedValue(properties, u"queue.keep"_s));
    settings.archive = trimmedValue(properties, u"archive.path"_s);
    settings.ledger = trimmedValue(properties, u"ledger.path"_s);
    settings.setAside = trimmedValue(properties, u"setaside.path"_s);
    if (settings.setAside.isEmpty())
        settings.setAside = QFileInfo(settings.ledger).absolutePath() + u"/setaside"_s;
    return settings;
}

void resolvePaths(Properties& properties, const QString& directory)
{
    const QDir base(directory);
    for (const QString& key : {u"queue.path"_s, u"archive.path"_s, u"ledger.path"_s,
                               u"setaside.path"_s, u"log.filename"_s}) {
        const QString path = trimmedValue(properties, key);
        if (!path.isEmpty())
            properties.setValue(key, QDir::cleanPath(base.absoluteFilePath(path)));
    }
}

QString trimmedValue(const Properties& properties, const QString& key)
{
    return properties.contains(key) ? properties.value(key).trimmed() : QString();
}

bool isYes(const QString& value)
{
    return value == u"1" || value == u"true";
}

bool isNo(const QString& value)
{
    return value == u"0" || value == u"false";
}

} // namespace intake
