// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "dictionnary.h"
#include "kez_global.h"

#include <QMap>
#include <QString>

#include <memory>

/// Configuration text: unique keys, kept in order, with their values.
///
/// Keys and values are stored exactly as given. In a properties file each line reads `key=value`;
/// lines that begin with "#" (after blanks), blank lines and lines without "=" are skipped. There
/// are no escape sequences: a key that begins with "#", holds "=" or has blanks at either end, and
/// a value with blanks at either end, do not survive saving and loading.
///
/// *Threads*: one thread at a time, all holders of the shared map included.
/// *Owns*: a map of its own, which toDictionnary() shares.
/// *Fails*: throws Exception, as said at each function; but for insert() of a map, the map is then
/// unchanged.
class KEZ_EXPORT Properties {
public:
    using iterator = Dictionnary::iterator;
    using const_iterator = Dictionnary::const_iterator;
    using key_iterator = Dictionnary::key_iterator;

    Properties();

    /// Copies every entry of `map`.
    Properties(const QMap<QString, QString>& map);

    /// Copies the entries; the maps are not shared.
    Properties(const Properties& other);
    Properties& operator=(const Properties& other);
    virtual ~Properties();

    /// Reads a properties file (UTF-8).
    ///
    /// `maxLineLength`: the most characters taken as one line, the rest being taken as a line of
    /// its own; 0 for no limit.
    ///
    /// Throws Exception: FileDoesntExist, FileNotReadable, FileNotWritable (for a file that cannot
    /// be opened: callers rely on that key), DuplicateProperty for a key that comes twice.
    static std::shared_ptr<Properties> loadProperties(const QString& path,
                                                      qint64 maxLineLength = 0);

    /// Writes `map` as a properties file, one `key=value` line per entry, in key order.
    ///
    /// Throws Exception: FileAlreadyExists (without `overwrite`), CannotDeleteFile,
    /// FileCreatingFailure, CannotWriteLine with the line that failed; the lines before it stay in
    /// the file. With `overwrite` the file that is there is deleted first: it is lost when writing
    /// fails after that.
    static void saveProperties(const QString& path, const QMap<QString, QString>& map,
                               bool overwrite = false);

    /// A new Properties with every entry of `map`.
    static std::shared_ptr<Properties> toProperties(const QMap<QString, QString>& map);

    bool contains(const QString& key) const;

    /// Throws Exception (PropertyNotFound).
    QString value(const QString& key) const;
    qsizetype size() const;
    bool empty() const;

    /// (key, value) pairs in key order.
    iterator begin();
    iterator end();
    const_iterator begin() const;
    const_iterator end() const;
    key_iterator keyBegin() const;
    key_iterator keyEnd() const;

    /// The map itself, not a copy: what is changed through it is changed here, and it outlives this
    /// object while somebody holds it.
    std::shared_ptr<Dictionnary> toDictionnary() const;

    /// saveProperties() on this object's map.
    void saveProperties(const QString& path, bool overwrite = false) const;

    /// Replaces the value of an existing key and returns the one before. Never adds a key: throws
    /// Exception (PropertyNotFound).
    QString setValue(const QString& key, const QString& value);

    /// Adds the key; replaces its value when `overwrite`, else throws Exception
    /// (DuplicateProperty).
    void insert(const QString& key, const QString& value, bool overwrite = false);

    /// Inserts every entry of `map` in key order. Without `overwrite`, throws Exception
    /// (PropertyAlreadyExists) at the first key that is there already; the entries before it stay
    /// inserted.
    void insert(const QMap<QString, QString>& map, bool overwrite = false);

    /// Removes the key and returns its value. Throws Exception (PropertyNotFound).
    QString remove(const QString& key);
    void clear();

private:
    std::shared_ptr<Dictionnary> _spMap;
};
