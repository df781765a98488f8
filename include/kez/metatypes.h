// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"
#include "metatype.h"

#include <QHash>
#include <QMap>
#include <QMutex>
#include <QString>

#include <set>

/// The process's reflective classes by name: each has the type id that Qt gave it in this process
/// and an invariant id that can be stored or sent, and can be created by name.
///
/// There is one record per name; ids are not checked for uniqueness. Where several classes share an
/// id, a look-up by that id answers the one whose name sorts first. Names are case-sensitive.
///
/// *Threads*: any thread may look up while nobody inserts or removes; those are for start-up, from
/// one thread. Only the choice of the next invariant id is locked.
/// *Owns*: its records; never the instances that it creates.
/// *Fails*: throws Exception, as said at each function.
class KEZ_EXPORT MetaTypes {
public:
    using const_iterator = QMap<QString, MetaType>::const_iterator;
    using key_iterator = QMap<QString, MetaType>::key_iterator;

    MetaTypes(const MetaTypes&) = delete;
    MetaTypes& operator=(const MetaTypes&) = delete;

    static MetaTypes* getInstance();

    /// A new default-constructed instance of a class that Qt knows by that name, whether or not it
    /// is registered here; the caller owns it. A null pointer for a class that has no default
    /// constructor.
    ///
    /// `libraryPath`: a shared library that makes the class known, loaded first and kept loaded;
    /// none when empty.
    ///
    /// Throws Exception: FileNotReadable, LibLoadingFailure with the loader's text,
    /// ClassNotRegistered with the name.
    static void* instantiateFromMetaTypes(const QString& className,
                                          const QString& libraryPath = QString());

    bool containsMetaType(const QString& className) const;
    bool isMetaTypeId(int typeId) const;
    bool isInvariantType(int invariantId) const;

    /// Throw Exception: NoMetaTypeInDictionnary; by invariant id NoInvariantIdIndictionnary.
    MetaType metaTypeFromClassName(const QString& className) const;
    MetaType metaTypeFromTypeId(int typeId) const;
    MetaType metaTypeFromInvariantId(int invariantId) const;

    /// Throw Exception: NoMetaTypeInDictionnary.
    int typeId(const QString& className) const;
    int invariantId(const QString& className) const;

    /// The type id of the class with that invariant id. Throws Exception:
    /// NoInvariantIdIndictionnary.
    int typeId(int invariantId) const;

    /// The invariant id of the class with that type id. Throws Exception: NoTypeIdInDictionnary, a
    /// key without a text, which reads as "[NoTypeIdInDictionnary]".
    int invariantType(int typeId) const;

    /// Throws Exception: NoMetaTypeInDictionnary.
    QString classNameFromType(int typeId) const;

    /// Throws Exception: NoInvariantIdIndictionnary.
    QString classNameFromInvariantType(int invariantId) const;

    /// A new default-constructed instance of a registered class, which the caller owns; a null
    /// pointer when Qt does not know its type id. Throws Exception: NoMetaTypeInDictionnary.
    void* instanciateFromRegistry(const QString& className) const;

    int size() const;
    bool empty() const;

    /// (name, record) pairs, and names, in name order.
    const_iterator begin() const;
    const_iterator end() const;
    key_iterator keyBegin() const;
    key_iterator keyEnd() const;

    /// The smallest id from 10000 upward that no class uses. Nothing reserves it before a class is
    /// inserted with it.
    int nextInvariantId() const;

    /// False, and nothing changed, when the name is registered already.
    bool insertMetaType(const QString& className, int invariantId, int typeId);

    /// The same, with the next invariant id.
    bool insertMetaType(const QString& className, int typeId);

    /// Removes the class and returns its record. Throws Exception: NoMetaTypeInDictionnary.
    MetaType removeMetaType(const QString& className);

private:
    using NamesById = QHash<int, std::set<QString>>;

    MetaTypes();
    ~MetaTypes();

    const MetaType* find(const QString& className) const;
    const MetaType* first(const NamesById& namesById, int id) const;

    void takeInvariantId(int id);
    void freeInvariantId(int id);

    QMap<QString, MetaType> _registry;
    mutable QMutex _mutex;

    NamesById _namesByTypeId;
    NamesById _namesByInvariantId;
    /// The invariant ids in use from 10000 upward, as runs without a gap: the first id of each, and
    /// the one after its last.
    QMap<qint64, qint64> _usedRuns;
};
