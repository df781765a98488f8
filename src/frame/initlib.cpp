// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/initlib.h"
#include "frame/qtmessage_p.h"
#include "i18n/systemlanguage_p.h"
#include "kez/exception.h"
#include "kez/langbundle.h"
#include "kez/log.h"
#include "kez/metatypes.h"
#include "kez/translator.h"

#include <QCoreApplication>
#include <QString>
#include <QStringList>

#include <mutex>

namespace {

// Set-up may run while this unit's static objects are still being built (see the pre-routine
// below), so these two must not need construction at run time.
constinit bool INITIALIZED = false;
constinit std::once_flag INIT_FLAG;

QString libraryModule()
{
    return QStringLiteral("kez");
}
QString fallbackLanguage()
{
    return QStringLiteral("en_US");
}
QString bundleDirectory()
{
    return QStringLiteral(":resources/lang");
}

QString userLanguage()
{
    const QString lang = QString::fromUtf8(qgetenv("LANG"));
    if (lang.isEmpty())
        return systemLanguage();
    return lang.left(lang.lastIndexOf(QLatin1Char('.')));
}

void loadLibraryBundle(const QString& lang)
{
    try {
        Translator::getInstance()->insertBundle(
            LangBundle::load(bundleDirectory(), libraryModule(), lang));
    } catch (const Exception& e) {
        // load() throws a pointer, which is not caught here: see its declaration.
        reportCritical(QStringLiteral(
            "Echec de chargement de la ressource de langue par défaut de la librairie kez"));
        reportCritical(e.detail());
    }
}

void setUp()
{
    INITIALIZED = true;
    qInitResources_kez();

    QString lang = userLanguage();
    if (!Log::languages().contains(lang))
        lang = fallbackLanguage();
    Translator::getInstance()->setDefaultBundleKey(libraryModule(), lang);
    loadLibraryBundle(lang);
}

} // namespace

void kezInit()
{
    std::call_once(INIT_FLAG, setUp);
}

void KezAutoInit()
{
    kezInit();
}

void kezEnsureInit()
{
    static bool initialized = false;
    if (!initialized) {
        initialized = true;
        kezInit();
    }
}

// Only clears the flag; nothing is released.
void kezCleanup()
{
    if (INITIALIZED)
        INITIALIZED = false;
}

namespace {

// Qt runs a pre-routine when the core application object is constructed, or at once if there is one
// already.
const bool preRoutineAdded = [] {
    qAddPreRoutine(KezAutoInit);
    return true;
}();

// Built when the library is loaded, as the translator is: the destructors of an application's
// static objects may still look classes up.
const MetaTypes* const registry = MetaTypes::getInstance();

const struct cleanup {
    ~cleanup() { kezCleanup(); }
} cleanup;

} // namespace
