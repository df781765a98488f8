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
/// Keys and values are stored exactly as given. In a properties file each line reads `key=value`.
/// Lines that begin with "#" (after blanks), blank lines and lines without "=" are skipped. There
/// are no escape sequences: a key that begins with "#", holds "=" or has blanks at either end, and
/// a value with blanks at either end, do not survive saving and loading.
///
/// Keys and values that are passed in may refer into the object's own map.
///
/// *Threads*: one thread at a time. All holders of the shared map count as one object.
/// *Owns*: a map of its own, which toDictionnary() shares.
/// *Fails*: throws Exception, as said at each function. The map is then unchanged, except after
/// insert() of a map.
class KEZ_EXPORT Properties {
public:
    using iterator = Dictionnary::iterator;
    using const_iterator = Dictionnary::const_iterator;
    using key_iterator = Dictionnary::key_iterator;

    Properties();

    /// Copies every entry of `map`. No part of the map is shared: iterators and references into
    /// `map` never reach the copy.
    Properties(const QMap<QString, QString>& map);

    /// Copies every entry, as the constructor from a map does.
    Properties(const Properties& other);
    Properties& operator=(const Properties& other);
    virtual ~Properties();

    /// Reads a properties file (UTF-8).
    ///
    /// `maxLineLength`: the most characters taken as one line; the rest is taken as a line of its
    /// own. 0 for no limit.
    ///
    /// A read error ends the file as its end would: what was read before it is returned.
    ///
    /// Throws Exception: FileDoesntExist, FileNotReadable, FileNotWritable for a file that cannot
    /// be opened (this key is kept for compatibility), DuplicateProperty for a key that comes
    /// twice.
    static std::shared_ptr<Properties> loadProperties(const QString& path,
                                                      qint64 maxLineLength = 0);

    /// Writes `map` as a properties file, one `key=value` line per entry, in key order.
    ///
    /// With `overwrite` a file that is there is deleted first: it is lost if writing fails after
    /// that.
    ///
    /// Throws Exception: FileAlreadyExists (without `overwrite`), CannotDeleteFile,
    /// FileCreatingFailure, CannotWriteLine with the line that failed; the lines before it stay in
    /// the file.
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

    /// The map itself, not a copy: a change through it is a change here, and the map outlives this
    /// object while somebody holds it.
    ///
    /// `QMap copy = *properties.toDictionnary()` shares its data until one of the two changes, as
    /// Qt's containers do. An iterator or a reference that was taken before then writes to both:
    /// `Properties copy(properties)` does not share.
    std::shared_ptr<Dictionnary> toDictionnary() const;

    /// saveProperties() on this object's map.
    void saveProperties(const QString& path, bool overwrite = false) const;

    /// Replaces the value of an existing key and returns the one before. Never adds a key: throws
    /// Exception (PropertyNotFound).
    QString setValue(const QString& key, const QString& value);

    /// Adds the key. If it is there already: replaces its value with `overwrite`, throws Exception
    /// (DuplicateProperty) without.
    void insert(const QString& key, const QString& value, bool overwrite = false);

    /// Inserts every entry of `map`, which may be this object's own, in key order. Without
    /// `overwrite`, throws Exception (PropertyAlreadyExists) at the first key that is there
    /// already; the entries before it stay inserted.
    void insert(const QMap<QString, QString>& map, bool overwrite = false);

    /// Removes the key and returns its value. Throws Exception (PropertyNotFound).
    QString remove(const QString& key);
    void clear();

private:
    std::shared_ptr<Dictionnary> _spMap;
};
