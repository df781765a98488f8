// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "texts.h"

#include <kez/log.h>
#include <kez/translator.h>

#include <QFileInfo>

#include <cerrno>
#include <cstring>

namespace intake {

namespace {

const auto BundleDirectory = QStringLiteral(":/intake/lang");
const auto Module = QStringLiteral("intake");
const auto LibraryModule = QStringLiteral("kez");

} // namespace

void loadTexts()
{
    auto* translator = Translator::getInstance();
    translator->insertBundle(BundleDirectory, Module, translator->defaultLang());
}

void startInLanguage(const QString& lang)
{
    auto* translator = Translator::getInstance();
    if (lang == translator->defaultLang())
        return;
    translator->changeLang(LibraryModule, lang);
    translator->changeLang(Module, lang);
    translator->setDefaultBundleKey(LibraryModule, lang);
}

bool isLanguage(const QString& lang)
{
    return Log::languages().contains(lang) &&
           QFileInfo::exists(LangBundle(BundleDirectory, Module, lang).bundleFileName());
}

QString text(QLatin1String key)
{
    return Translator::getInstance()->string(key, Module);
}

QString printable(const QString& name)
{
    QString result;
    result.reserve(name.size());
    for (const QChar character : name) {
        const bool isControl = character.category() == QChar::Other_Control;
        if (isControl || character == u';' || character == u'%')
            result +=
                QStringLiteral("%%1").arg(character.unicode(), 2, 16, QLatin1Char('0')).toUpper();
        else
            result += character;
    }
    return result;
}

QString systemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

} // namespace intake
