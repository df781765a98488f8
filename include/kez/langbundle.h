// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "dictionnary.h"
#include "kez_global.h"

#include <QString>

#include <memory>

/// The texts of one module in one language, read from `<path>/<module>_<lang>.lang`.
///
/// The file is UTF-8. Its first line reads `module=<module>;lang=<lang>` (in either order), every
/// later line `key=text`; blank lines, lines that begin with "#" and lines without a key are
/// skipped, and the last of several lines with the same key counts. Texts are kept as read: no
/// escape sequences, and "%1", "%2" are left to the caller.
///
/// *Threads*: any thread while nobody calls begin() or end(), which may write even to iterate.
/// *Owns*: its texts; created in a shared pointer by load().
/// *Fails*: load() throws a pointer; the rest never.
class KEZ_EXPORT LangBundle {
public:
    using iterator = Dictionnary::iterator;
    using key_iterator = Dictionnary::key_iterator;

    /// An empty bundle. load() is the way to a filled one.
    LangBundle(const QString& path, const QString& module, const QString& lang);
    virtual ~LangBundle();

    /// Copies the texts; nothing is shared.
    LangBundle(const LangBundle& other);
    LangBundle& operator=(const LangBundle& other);

    /// Reads the bundle from the directory `path`, which may be a resource path such as
    /// ":resources/lang".
    ///
    /// Throws a POINTER to a new Exception, which the catcher deletes, when the file is missing or
    /// unreadable, when its first line is no valid header, or when it names another module or
    /// language. Callers rely on that form: a handler for `Exception&` does not see it. Its text is
    /// always French, since no bundle can be relied on yet.
    static std::shared_ptr<LangBundle> load(const QString& path, const QString& module,
                                            const QString& lang);

    QString path() const;
    QString module() const;
    QString lang() const;

    /// `<path>/<module>_<lang>.lang`
    QString bundleFileName() const;

    /// The text of `key`; "[key]" when there is none, so that a missing text is visible.
    QString text(const QString& key) const;
    bool contains(const QString& key) const;
    int size() const;

    /// The keys in order.
    key_iterator keyBegin() const;
    key_iterator keyEnd() const;

    /// (key, text) pairs in key order; texts may be changed in place.
    iterator begin();
    iterator end();

private:
    friend class Translator;
    KEZ_HIDDEN const QString* find(const QString& key) const;
    KEZ_HIDDEN void addLine(QStringView line);

    QString _path;
    QString _module;
    QString _lang;
    Dictionnary _texts;
};
