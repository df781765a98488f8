// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/translator.h"
#include "frame/failure_p.h"
#include "frame/qtmessage_p.h"
#include "i18n/bracketed_p.h"
#include "i18n/systemlanguage_p.h"
#include "i18n/textindex_p.h"
#include "kez/exception.h"

#include <QStringBuilder>

namespace {

QString bundleKey(const QString& module, const QString& lang)
{
    return module % QLatin1Char('.') % lang;
}

/// Whether bundleKey(module, lang) is `key`, without making that text.
bool isBundleKey(QStringView key, QStringView module, QStringView lang)
{
    const qsizetype dot = module.size();
    return key.size() == dot + 1 + lang.size() && key[dot] == QLatin1Char('.') &&
           Hashing::isSame(key.first(dot), module) && Hashing::isSame(key.sliced(dot + 1), lang);
}

} // namespace

// Built when the library is loaded, before any static object of the application, and so destroyed
// after all of them: their destructors may still meet a failure.
const Translator& Translator::_builtAtLoad = object();

Translator::Translator() : _defaultModule(QStringLiteral("kez"))
{}

Translator::~Translator() = default;

// Local, since set-up may need it before this unit's static objects are built.
Translator& Translator::object()
{
    static Translator translator;
    return translator;
}

Translator* Translator::getInstance()
{
    // The language is read at the first use and not at load, because Qt keeps its first answer and
    // main() may still change the locale.
    static Translator* const instance = [] {
        object()._defaultLang = systemLanguage();
        return &object();
    }();
    return instance;
}

QString Translator::defaultLang() const
{
    return _defaultLang;
}

QString Translator::defaultBundleKey() const
{
    return bundleKey(_defaultModule, _defaultLang);
}

std::shared_ptr<LangBundle> Translator::defaultBundle() const
{
    return _bundles.value(defaultBundleKey());
}

std::shared_ptr<LangBundle> Translator::bundle(const QString& module, const QString& lang) const
{
    return _bundles.value(bundleKey(module, lang));
}

std::shared_ptr<LangBundle> Translator::bundle(const QString& key) const
{
    const TextKey wanted(key);
    for (const auto& bundle : _bundles) {
        if (bundle->find(wanted))
            return bundle;
    }
    return nullptr;
}

QString Translator::string(const QString& key) const
{
    const TextKey wanted(key);
    for (const auto& bundle : _bundles) {
        if (!Hashing::isSame(bundle->_lang, _defaultLang))
            continue;
        if (const QString* const text = bundle->find(wanted))
            return *text;
    }
    return bracketed(key);
}

QString Translator::string(const QString& key, const QString& module) const
{
    return string(key, module, _defaultLang);
}

QString Translator::string(const QString& key, const QString& module, const QString& lang) const
{
    const LangBundle* const bundle = find(module, lang);
    const QString* const text = bundle ? bundle->find(TextKey(key)) : nullptr;
    return text ? *text : bracketed(key);
}

bool Translator::contains(const QString& key) const
{
    return bundle(key) != nullptr;
}

bool Translator::contains(const QString& module, const QString& lang, const QString& key) const
{
    const LangBundle* const bundle = find(module, lang);
    return bundle && bundle->find(TextKey(key));
}

int Translator::size() const
{
    return static_cast<int>(_bundles.size());
}

Translator::const_iterator Translator::begin() const
{
    return _bundles.cbegin();
}

Translator::const_iterator Translator::end() const
{
    return _bundles.cend();
}

Translator::key_iterator Translator::keyBegin() const
{
    return _bundles.keyBegin();
}

Translator::key_iterator Translator::keyEnd() const
{
    return _bundles.keyEnd();
}

QString Translator::toString() const
{
    QString result;
    for (auto it = _bundles.cbegin(); it != _bundles.cend(); ++it)
        result += QStringLiteral("%1 : %2\n").arg(it.key(), QString::number((*it)->size()));
    return result;
}

void Translator::setDefaultBundleKey(const QString& module, const QString& lang)
{
    _defaultModule = module;
    _defaultLang = lang;
}

bool Translator::insertBundle(std::shared_ptr<LangBundle> bundle)
{
    if (!bundle)
        return false;
    const QString key = bundleKey(bundle->_module, bundle->_lang);
    if (_bundles.contains(key))
        return false;
    _bundles.insert(key, bundle);
    return true;
}

bool Translator::insertBundle(const QString& path, const QString& module, const QString& lang)
{
    if (_bundles.contains(bundleKey(module, lang)))
        return false;
    try {
        return insertBundle(LangBundle::load(path, module, lang));
    } catch (const Exception& e) {
        // load() throws a pointer, which is not caught here: see its declaration.
        reportCritical(QStringLiteral("Echec de chargement du module ") + module +
                       QStringLiteral(" pour la langue ") + lang +
                       QStringLiteral(" sur le chemin ") + path + QStringLiteral(" - ") +
                       e.detail());
        throw;
    }
}

void Translator::changeLang(const QString& module, const QString& oldLang, const QString& newLang)
{
    const QString oldKey = bundleKey(module, oldLang);
    const QString newKey = bundleKey(module, newLang); // they may refer to the key that is removed
    const std::shared_ptr<LangBundle> oldBundle = _bundles.value(oldKey);
    if (!oldBundle) {
        // No separator after the signature, and two arguments in every form: kept for
        // compatibility.
        throw Exception(
            QStringLiteral("void Translator::changeLang(const QString&, const QString&)") +
                QStringLiteral("Le module de langue %1 n'est pas chargé").arg(oldKey),
            nullptr);
    }
    const auto newBundle = LangBundle::load(oldBundle->_path, module, newLang);
    _bundles.remove(oldKey);
    _bundles.insert(newKey, newBundle);
}

void Translator::changeLang(const QString& module, const QString& newLang)
{
    changeLang(module, defaultLang(), newLang);
}

const LangBundle* Translator::find(const QString& module, const QString& lang) const
{
    // To compare a few keys is faster than to make one and search the map for it.
    constexpr qsizetype Few = 8;
    if (_bundles.size() > Few) {
        const auto found = _bundles.constFind(bundleKey(module, lang));
        return found == _bundles.cend() ? nullptr : found->get();
    }
    for (auto bundle = _bundles.cbegin(); bundle != _bundles.cend(); ++bundle) {
        if (isBundleKey(bundle.key(), module, lang))
            return bundle->get();
    }
    return nullptr;
}
