// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <kez/translator.h>

#include <QString>

/// Sets the language of the library's own messages ("en_US", "fr_FR"); the environment does not
/// count.
inline void useLanguage(const QString& lang)
{
    Translator* translator = Translator::getInstance();
    const QString module = QStringLiteral("kez");
    if (!translator->bundle(module, lang))
        translator->insertBundle(QStringLiteral(":resources/lang"), module, lang);
    translator->setDefaultBundleKey(module, lang);
}
