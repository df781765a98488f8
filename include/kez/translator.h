// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"
#include "langbundle.h"

#include <QMap>
#include <QString>

#include <memory>

/// The process's message texts: every loaded bundle, and the module and language that are used if
/// none is named.
///
/// A key that cannot be resolved reads as "[key]", never as an empty text. Bundles are kept under
/// "module.lang" and walked in that order.
///
/// It is built when the library is loaded and outlives the static objects that the application
/// builds after that: their destructors may look texts up. They cannot load a bundle from a
/// resource, since parts of Qt may already be destroyed.
///
/// *Threads*: any thread may read while nobody inserts a bundle or changes a language. Those are
/// for start-up, or for a moment when nobody reads.
/// *Owns*: shares its bundles: one obtained from here stays valid after it is replaced.
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

    /// The first bundle, of any module and language, that has the message `key`; or an empty
    /// pointer.
    std::shared_ptr<LangBundle> bundle(const QString& key) const;

    /// The text of `key` in the first bundle of the default language that has it. The default
    /// module has no precedence: the module that is the first one in name order wins.
    QString string(const QString& key) const;

    /// The text of `key` in that module's bundle of the default language.
    QString string(const QString& key, const QString& module) const;

    /// The text of `key` in the bundle of that module and language.
    QString string(const QString& key, const QString& module, const QString& lang) const;

    /// Whether any bundle has the message `key`.
    bool contains(const QString& key) const;

    /// Whether that bundle has the message `key`; false if the bundle is not loaded. Note: `key` is
    /// the last argument here, but the first in string().
    bool contains(const QString& module, const QString& lang, const QString& key) const;

    /// The number of bundles.
    int size() const;

    /// (bundle key, bundle) pairs, and bundle keys, in order. Iterators last until a bundle is
    /// inserted or a language changed.
    const_iterator begin() const;
    const_iterator end() const;
    key_iterator keyBegin() const;
    key_iterator keyEnd() const;

    /// One line per bundle: "kez.fr_FR : 67\n"
    QString toString() const;

    /// Sets what is used if no module or language is named; loads and checks nothing.
    void setDefaultBundleKey(const QString& module, const QString& lang);

    /// False, and nothing is changed, for an empty pointer or if a bundle of that module and
    /// language is there already.
    bool insertBundle(std::shared_ptr<LangBundle> bundle);

    /// Loads the bundle from the directory `path` and inserts it. False, without reading the file,
    /// if a bundle of that module and language is there already. Throws a pointer, as
    /// LangBundle::load does.
    bool insertBundle(const QString& path, const QString& module, const QString& lang);

    /// Replaces the module's bundle in `oldLang` by the one in `newLang`, read from the same
    /// directory. The default language stays.
    ///
    /// Throws Exception if the old one is not loaded; throws a pointer, as LangBundle::load does,
    /// if the new one cannot be read. Nothing is changed then.
    void changeLang(const QString& module, const QString& oldLang, const QString& newLang);

    /// changeLang(module, defaultLang(), newLang)
    void changeLang(const QString& module, const QString& newLang);

    /// Makes `lang` the default language and switches every loaded bundle to it.
    ///
    /// A bundle that changeLang() refuses with an Exception is reported as a critical line of the
    /// process's log, and the others are still switched. Throws a pointer at once if
    /// LangBundle::load does: the default language is then `lang` already, and the bundles that
    /// come first in key order are switched.
    ///
    /// Creates the process's log, one without a file, if there is none yet. A later
    /// Log::initInstance() with a file name returns that log and ignores the name: start the log
    /// first.
    void setDefaultLang(const QString& lang);

private:
    KEZ_HIDDEN Translator();
    KEZ_HIDDEN ~Translator();
    KEZ_HIDDEN static Translator& object();
    KEZ_HIDDEN const LangBundle* find(const QString& module, const QString& lang) const;

    KEZ_HIDDEN static const Translator& _builtAtLoad;
    QString _defaultModule;
    QString _defaultLang;
    BundleMap _bundles;
};
