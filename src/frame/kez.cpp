// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/identity.h"
#include "kez/translator.h"

QString Kez::version()
{
    return QStringLiteral("%1.%2.%3")
        .arg(QStringLiteral(KEZ_VERSION_MAJOR), QStringLiteral(KEZ_VERSION_MINOR),
             QString::number(KEZ_VERSION_PATCH));
}

QString Kez::build()
{
    return QStringLiteral(KEZ_BUILD);
}

QString Kez::fullVersion()
{
    return QStringLiteral("%1 (%2)").arg(version(), build());
}

QString Kez::defaultAuthor()
{
    return QStringLiteral("Vandrel");
}

QString Kez::defaultCopyright()
{
    return Translator::getInstance()->string(QStringLiteral("DefaultCopyright"));
}

QString Kez::borderedTitle(const QString& title, QString copyright)
{
    const QString text = QLatin1Char(' ') + title.trimmed() + QLatin1Char(' ');
    const QString border =
        QLatin1Char('+') + QString(text.size(), QLatin1Char('-')) + QStringLiteral("+\n");
    QString result = border + QLatin1Char('|') + text + QStringLiteral("|\n") + border;
    if (copyright != QLatin1String("-")) {
        if (copyright.isEmpty())
            copyright = defaultCopyright();
        result += copyright + QLatin1Char('\n');
    }
    return result + QLatin1Char('\n');
}
