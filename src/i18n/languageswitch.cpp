// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "frame/failure_p.h"
#include "kez/exception.h"
#include "kez/log.h"
#include "kez/translator.h"

// In a source file of its own, above the log: it logs, and loggers translate.
void Translator::setDefaultLang(const QString& lang)
{
    _defaultLang = lang;
    const std::shared_ptr<Logger> logger = Log::getInstance()->logger();

    // A copy, since changeLang() changes the map.
    const BundleMap loaded = _bundles;
    for (const auto& bundle : loaded) {
        try {
            changeLang(bundle->_module, bundle->_lang, lang);
        } catch (const Exception& e) {
            logger->critical(
                Failure::text("void Translator::setDefaultLang(const QString&)", e.detail()));
        }
    }
}
