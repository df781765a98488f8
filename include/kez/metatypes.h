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

/// The process's reflective classes by name. Each has the type id that Qt gave it in this process
/// and an invariant id that can be stored or sent. Instances are created by name.
///
/// There is one record per name. Ids need not be unique: if several classes share one, a look-up by
/// it returns the class that is the first one in name order. Names are case-sensitive.
///
/// *Threads*: any thread may look up while no thread inserts or removes. Insert and remove at
/// start-up, from one thread: no lock protects a look-up from them.
/// *Owns*: its records; never the instances that it creates.
/// *Fails*: throws Exception, as said at each function.
class KEZ_EXPORT MetaTypes {
public:
    using const_iterator = QMap<QString, MetaType>::const_iterator;
    using key_iterator = QMap<QString, MetaType>::key_iterator;

    MetaTypes(const MetaTypes&) = delete;
    MetaTypes& operator=(const MetaTypes&) = delete;

    static MetaTypes* getInstance();

    /// A new default-constructed instance of a class that Qt knows by that name; the class need not
    /// be registered here. The caller owns the instance. A null pointer for a class that has no
    /// default constructor. A name that contains a NUL is unknown.
    ///
    /// `libraryPath`: a shared library that makes the class known; none if empty. It is loaded
    /// first, as FileHelper::loadLibrary() does, and stays loaded.
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

    /// The invariant id of the class with that type id. Throws Exception: NoTypeIdInDictionnary.
    /// The key has no text: the message is "[NoTypeIdInDictionnary]".
    int invariantType(int typeId) const;

    /// Throws Exception: NoMetaTypeInDictionnary.
    QString classNameFromType(int typeId) const;

    /// Throws Exception: NoInvariantIdIndictionnary.
    QString classNameFromInvariantType(int invariantId) const;

    /// A new default-constructed instance of a registered class; the caller owns it. A null pointer
    /// if Qt does not know its type id. Throws Exception: NoMetaTypeInDictionnary.
    void* instanciateFromRegistry(const QString& className) const;

    int size() const;
    bool empty() const;

    /// (name, record) pairs, and names, in name order.
    const_iterator begin() const;
    const_iterator end() const;
    key_iterator keyBegin() const;
    key_iterator keyEnd() const;

    /// The smallest id from 10000 upward that no class uses. It is not reserved: only inserting a
    /// class with it takes it.
    int nextInvariantId() const;

    /// Returns false and changes nothing if the name is registered already.
    bool insertMetaType(const QString& className, int invariantId, int typeId);

    /// The same, with the next invariant id.
    bool insertMetaType(const QString& className, int typeId);

    /// Removes the class and returns its record. Throws Exception: NoMetaTypeInDictionnary.
    MetaType removeMetaType(const QString& className);

private:
    using NamesById = QHash<int, std::set<QString>>;

    KEZ_HIDDEN MetaTypes();
    KEZ_HIDDEN ~MetaTypes();

    KEZ_HIDDEN const MetaType* find(const QString& className) const;
    KEZ_HIDDEN const MetaType* first(const NamesById& namesById, int id) const;

    KEZ_HIDDEN void takeInvariantId(int id);
    KEZ_HIDDEN void freeInvariantId(int id);

    QMap<QString, MetaType> _registry;
    mutable QMutex _mutex; // locked by nextInvariantId() only; protects from no other function

    NamesById _namesByTypeId;
    NamesById _namesByInvariantId;
    /// The invariant ids in use from 10000 upward, as runs without a gap: the first id of each run,
    /// and the id after its last one.
    QMap<qint64, qint64> _usedRuns;
};
