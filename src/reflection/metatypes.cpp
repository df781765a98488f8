// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/metatypes.h"
#include "frame/failure_p.h"
#include "frame/sharedlibrary_p.h"

#include <QMetaType>
#include <QMutexLocker>

namespace {

constexpr int FirstInvariantId = 10000;

/// The record that a look-up found, or its failure.
const MetaType& required(const MetaType* found, const char* signature, const char* key,
                         const QString& wanted)
{
    if (found == nullptr)
        Failure::raise(signature, Failure::message(key, wanted));
    return *found;
}

const MetaType& required(const MetaType* found, const char* signature, const char* key, int wanted)
{
    return required(found, signature, key, QString::number(wanted));
}

} // namespace

MetaTypes::MetaTypes() = default;

MetaTypes::~MetaTypes() = default;

MetaTypes* MetaTypes::getInstance()
{
    static MetaTypes instance;
    return &instance;
}

void* MetaTypes::instantiateFromMetaTypes(const QString& className, const QString& libraryPath)
{
    constexpr const char* signature =
        "void* MetaTypes::instantiateFromMetaTypes(const QString&, const QString&)";
    if (!libraryPath.isEmpty())
        loadSharedLibrary(libraryPath, signature, Failure::message<QString>);
    const QMetaType type = QMetaType::fromName(className.toUtf8());
    // Qt ignores what follows the first NUL.
    if (!type.isValid() || className.contains(QChar::Null))
        Failure::raise(signature, Failure::completed(Failure::message("ClassNotRegistered") +
                                                         QStringLiteral(" - [%1]"),
                                                     className));
    return type.create();
}

bool MetaTypes::containsMetaType(const QString& className) const
{
    return _registry.contains(className);
}

bool MetaTypes::isMetaTypeId(int typeId) const
{
    return _namesByTypeId.contains(typeId);
}

bool MetaTypes::isInvariantType(int invariantId) const
{
    return _namesByInvariantId.contains(invariantId);
}

// The signatures in the texts below are kept for compatibility: one lacks its first letter, and two
// name another function.

MetaType MetaTypes::metaTypeFromClassName(const QString& className) const
{
    return required(find(className), "int MetaTypes::typeId(int)", "NoMetaTypeInDictionnary",
                    className);
}

MetaType MetaTypes::metaTypeFromTypeId(int typeId) const
{
    return required(first(_namesByTypeId, typeId), "etaType MetaTypes::metaTypeFromTypeId(int)",
                    "NoMetaTypeInDictionnary", typeId);
}

MetaType MetaTypes::metaTypeFromInvariantId(int invariantId) const
{
    return required(first(_namesByInvariantId, invariantId),
                    "MetaType MetaTypes::metaTypeFromInvariantId(int)",
                    "NoInvariantIdIndictionnary", invariantId);
}

int MetaTypes::typeId(const QString& className) const
{
    return required(find(className), "int MetaTypes::typeId(const QString&)",
                    "NoMetaTypeInDictionnary", className)
        .typeId();
}

int MetaTypes::invariantId(const QString& className) const
{
    return required(find(className), "int MetaTypes::invariantId(const QString&)",
                    "NoMetaTypeInDictionnary", className)
        .invariantId();
}

int MetaTypes::typeId(int invariantId) const
{
    return required(first(_namesByInvariantId, invariantId), "int MetaTypes::typeId(int)",
                    "NoInvariantIdIndictionnary", invariantId)
        .typeId();
}

int MetaTypes::invariantType(int typeId) const
{
    return required(first(_namesByTypeId, typeId), "int MetaTypes::invariantType(int)",
                    "NoTypeIdInDictionnary", typeId)
        .invariantId();
}

QString MetaTypes::classNameFromType(int typeId) const
{
    return required(first(_namesByTypeId, typeId), "QString MetaTypes::classNameFromType(int)",
                    "NoMetaTypeInDictionnary", typeId)
        .className();
}

QString MetaTypes::classNameFromInvariantType(int invariantId) const
{
    return required(first(_namesByInvariantId, invariantId),
                    "QString MetaTypes::classNameFromInvariantType(int)",
                    "NoInvariantIdIndictionnary", invariantId)
        .className();
}

void* MetaTypes::instanciateFromRegistry(const QString& className) const
{
    const QMetaType type(metaTypeFromClassName(className).typeId());
    return type.isValid() ? type.create() : nullptr;
}

int MetaTypes::size() const
{
    return static_cast<int>(_registry.size());
}

bool MetaTypes::empty() const
{
    return _registry.isEmpty();
}

MetaTypes::const_iterator MetaTypes::begin() const
{
    return _registry.cbegin();
}

MetaTypes::const_iterator MetaTypes::end() const
{
    return _registry.cend();
}

MetaTypes::key_iterator MetaTypes::keyBegin() const
{
    return _registry.keyBegin();
}

MetaTypes::key_iterator MetaTypes::keyEnd() const
{
    return _registry.keyEnd();
}

int MetaTypes::nextInvariantId() const
{
    const QMutexLocker lock(&_mutex);
    if (_usedRuns.isEmpty() || _usedRuns.firstKey() > FirstInvariantId)
        return FirstInvariantId;
    return static_cast<int>(_usedRuns.first());
}

bool MetaTypes::insertMetaType(const QString& className, int invariantId, int typeId)
{
    if (_registry.contains(className))
        return false;
    _registry.insert(className, MetaType(className, invariantId, typeId));
    _namesByTypeId[typeId].insert(className);
    _namesByInvariantId[invariantId].insert(className);
    takeInvariantId(invariantId);
    return true;
}

bool MetaTypes::insertMetaType(const QString& className, int typeId)
{
    return insertMetaType(className, nextInvariantId(), typeId);
}

MetaType MetaTypes::removeMetaType(const QString& className)
{
    const MetaType removed = required(find(className), "int MetaTypes::remove(const QString&)",
                                      "NoMetaTypeInDictionnary", className);
    const auto forget = [&removed](NamesById& namesById, int id) {
        const auto names = namesById.find(id);
        names->erase(removed.className());
        if (names->empty())
            namesById.erase(names);
    };
    forget(_namesByTypeId, removed.typeId());
    forget(_namesByInvariantId, removed.invariantId());
    if (!isInvariantType(removed.invariantId()))
        freeInvariantId(removed.invariantId());
    _registry.remove(removed.className());
    return removed;
}

const MetaType* MetaTypes::find(const QString& className) const
{
    const auto found = _registry.constFind(className);
    return found == _registry.cend() ? nullptr : &*found;
}

const MetaType* MetaTypes::first(const NamesById& namesById, int id) const
{
    const auto names = namesById.constFind(id);
    return names == namesById.cend() ? nullptr : find(*names->begin());
}

void MetaTypes::takeInvariantId(int id)
{
    if (id < FirstInvariantId)
        return;
    const auto after = _usedRuns.upperBound(id);
    qint64 end = qint64(id) + 1;
    if (after != _usedRuns.end() && after.key() == end) {
        end = after.value();
        _usedRuns.erase(after);
    }
    // A new search: erase() has invalidated the iterators.
    auto before = _usedRuns.upperBound(id);
    if (before != _usedRuns.begin() && std::prev(before).value() >= id) {
        before = std::prev(before);
        *before = qMax(*before, end);
    } else {
        _usedRuns.insert(id, end);
    }
}

void MetaTypes::freeInvariantId(int id)
{
    if (id < FirstInvariantId)
        return;
    const auto run = std::prev(_usedRuns.upperBound(id));
    const qint64 start = run.key();
    const qint64 end = run.value();
    _usedRuns.erase(run);
    if (start < id)
        _usedRuns.insert(start, id);
    if (id + qint64(1) < end)
        _usedRuns.insert(id + qint64(1), end);
}
