// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "dictionnary.h"
#include "kez_global.h"

#include <QString>

#include <memory>

class TextIndex;
class TextKey;

/// The texts of one module in one language, read from `<path>/<module>_<lang>.lang`.
///
/// The file is UTF-8. Its first line reads `module=<module>;lang=<lang>` (in either order), every
/// later line `key=text`. Blank lines, lines that begin with "#" and lines without a key are
/// skipped. The last of several lines with the same key counts. Texts are kept as read: there are
/// no escape sequences, and "%1", "%2" are left to the caller.
///
/// *Threads*: any thread, while nobody calls begin() or end(): they may allocate, even if no text
/// is changed.
/// *Owns*: its texts; created in a shared pointer by load().
/// *Fails*: load() throws a pointer; the rest never.
class KEZ_EXPORT LangBundle {
public:
    using iterator = Dictionnary::iterator;
    using key_iterator = Dictionnary::key_iterator;

    /// An empty bundle; load() makes a filled one.
    LangBundle(const QString& path, const QString& module, const QString& lang);

    /// Copies every text. Nothing is shared: iterators into `other` never reach the copy.
    LangBundle(const LangBundle& other);
    LangBundle& operator=(const LangBundle& other);
    virtual ~LangBundle();

    /// Reads the bundle from the directory `path`, which may be a resource path such as
    /// ":resources/lang".
    ///
    /// Throws a POINTER to a new Exception, which the catcher deletes: if the file is missing or
    /// unreadable, if its first line is not a valid header, or if that names another module or
    /// language. A handler for `Exception&` does not catch it; this form is kept for compatibility.
    /// Its text is always French, since no bundle may be loaded yet.
    static std::shared_ptr<LangBundle> load(const QString& path, const QString& module,
                                            const QString& lang);

    QString path() const;
    QString module() const;
    QString lang() const;

    /// `<path>/<module>_<lang>.lang`
    QString bundleFileName() const;

    /// The text of `key`; "[key]" if there is none, so that a missing text is visible.
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
    KEZ_HIDDEN const QString* find(const TextKey& key) const;
    KEZ_HIDDEN void addLine(QStringView line);

    QString _path;
    QString _module;
    QString _lang;
    Dictionnary _texts;                      // shares its data with no other
    std::unique_ptr<const TextIndex> _index; // of _texts; may be none if it is empty
};
