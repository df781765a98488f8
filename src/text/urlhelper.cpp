// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/urlhelper.h"
#include "kez/regexprovider.h"

#include <QUrl>

bool UrlHelper::isEmailValid(const QString& text)
{
    // Never destroyed: the destructors of static objects may come here.
    static const auto& email = *new QRegularExpression(RegexProvider::regexForEmail());
    return !text.isEmpty() && email.match(text).hasMatch();
}

bool UrlHelper::isHttpUrlValid(const QString& text)
{
    const bool isHttp =
        text.startsWith(QLatin1String("http://")) || text.startsWith(QLatin1String("https://"));
    return isHttp && QUrl(text, QUrl::TolerantMode).isValid();
}

bool UrlHelper::isUrlValid(const QString& text, bool acceptMailto)
{
    if (text.isEmpty() || (!acceptMailto && text.startsWith(QLatin1String("mailto:"))))
        return false;
    return QUrl(text, QUrl::TolerantMode).isValid();
}

bool UrlHelper::isRelativeUrl(const QString& text)
{
    return !text.isEmpty() && QUrl(text, QUrl::TolerantMode).scheme().isEmpty();
}
