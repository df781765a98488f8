// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"
#include "langbundle.h"

#include <QMap>
#include <QString>

#include <memory>

/// The process's message texts: every loaded bundle, and the module and language that are used when
/// none is named.
///
/// A key that cannot be resolved reads as "[key]", never as an empty text. Bundles are kept under
/// "module.lang" and walked in that order.
///
/// *Threads*: any thread may read while nobody inserts a bundle or changes a language; those are
/// for start-up, or for a moment when nobody reads.
/// *Owns*: shares its bundles: one obtained from here stays valid after it was replaced.
/// *Fails*: as said at each function; look-ups never.
class KEZ_EXPORT Translator {
public:
    using BundleMap = QMap<QString, std::shared_ptr<LangBundle>>;
    using const_iterator = BundleMap::const_iterator;
    using key_iterator = BundleMap::key_iterator;

    Translator(const Translator&) = delete;
    Translator& operator=(const Translator&) = delete;

    static Translator* getInstance();

    QString defaultLang() const;

    /// "kez.fr_FR": the default module and the default language.
    QString defaultBundleKey() const;

    /// The bundle under defaultBundleKey(), or an empty pointer.
    std::shared_ptr<LangBundle> defaultBundle() const;

    /// The bundle of that module and language, or an empty pointer.
    std::shared_ptr<LangBundle> bundle(const QString& module, const QString& lang) const;

    /// The first bundle, whatever its module and language, that has the message `key`; or an empty
    /// pointer.
    std::shared_ptr<LangBundle> bundle(const QString& key) const;

    /// The text of `key` in the first bundle of the default language that has it. The default
    /// module has no precedence: the module whose name sorts first wins.
    QString string(const QString& key) const;

    /// The text of `key` in that module's bundle of the default language.
    QString string(const QString& key, const QString& module) const;

    /// The text of `key` in the bundle of that module and language.
    QString string(const QString& key, const QString& module, const QString& lang) const;

    /// Whether any bundle has the message `key`.
    bool contains(const QString& key) const;

    /// Whether that bundle has the message `key`, which comes last here and first in string();
    /// false when the bundle is not loaded.
    bool contains(const QString& module, const QString& lang, const QString& key) const;

    /// The number of bundles.
    int size() const;

    /// (bundle key, bundle) pairs, and bundle keys, in order.
    const_iterator begin() const;
    const_iterator end() const;
    key_iterator keyBegin() const;
    key_iterator keyEnd() const;

    /// One line per bundle: "kez.fr_FR : 67\n"
    QString toString() const;

    /// Sets what is used when no module or language is named; loads and checks nothing.
    void setDefaultBundleKey(const QString& module, const QString& lang);

    /// False, and nothing changed, for an empty pointer or when a bundle of that module and
    /// language is there already.
    bool insertBundle(std::shared_ptr<LangBundle> bundle);

    /// Loads the bundle from the directory `path` and inserts it. False, without touching the disk,
    /// when a bundle of that module and language is there already. Throws what LangBundle::load
    /// throws: a pointer.
    bool insertBundle(const QString& path, const QString& module, const QString& lang);

    /// Replaces the module's bundle in `oldLang` by the one in `newLang`, read from the same
    /// directory. Throws Exception when the old one is not loaded, and a pointer, as
    /// LangBundle::load does, when the new one cannot be read; nothing is changed then. The default
    /// language stays.
    void changeLang(const QString& module, const QString& oldLang, const QString& newLang);

    /// changeLang(module, defaultLang(), newLang)
    void changeLang(const QString& module, const QString& newLang);

    /// Makes `lang` the default language and switches every loaded bundle to it.
    ///
    /// A bundle that changeLang() refuses with an Exception is reported as a critical line of the
    /// process's log, and the others are still switched. What LangBundle::load throws, a pointer,
    /// leaves this function at once: the default language is then `lang` already, and the bundles
    /// that come first in key order are switched.
    void setDefaultLang(const QString& lang);

private:
    KEZ_HIDDEN Translator();
    KEZ_HIDDEN ~Translator();
    KEZ_HIDDEN static Translator& object();

    KEZ_HIDDEN static const Translator& _builtAtLoad;
    QString _defaultModule;
    QString _defaultLang;
    BundleMap _bundles;
};
