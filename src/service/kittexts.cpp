// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/kittexts_p.h"

#include "service/escapedtext_p.h"

#include <kez/langbundle.h>
#include <kez/translator.h>

#include <memory>
#include <system_error>

namespace KezService {

namespace {

struct Bundles {
    std::shared_ptr<LangBundle> french = load("fr_FR");
    std::shared_ptr<LangBundle> english = load("en_US");

    static std::shared_ptr<LangBundle> load(const char* lang)
    {
        return LangBundle::load(QStringLiteral(":/kezservice"), QStringLiteral("kezservice"),
                                QString::fromLatin1(lang));
    }
};

/// Never destroyed: a thread that was left behind may log while the process exits.
const Bundles& bundles()
{
    static const Bundles& loaded = *new Bundles;
    return loaded;
}

} // namespace

QString kitText(const char* key)
{
    const bool isFrench = Translator::getInstance()->defaultLang().startsWith(QLatin1String("fr"));
    const auto& bundle = isFrench ? bundles().french : bundles().english;
    return bundle->text(QString::fromLatin1(key));
}

QString systemErrorText(int error)
{
    return QString::fromLocal8Bit(std::generic_category().message(error));
}

QString shownName(const QString& name)
{
    QString shown;
    appendEscaped<EscapedFor::Line>(shown, name);
    return shown;
}

} // namespace KezService
