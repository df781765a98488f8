// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/defaultuidverifier.h"

#include <QByteArrayView>
#include <QSet>
#include <QtEndian>

#include <algorithm>

namespace {

/// The bytes of a stored identifier, or of one that is asked for.
struct UidBytes {
    QByteArrayView bytes;

    friend bool operator==(UidBytes left, UidBytes right) { return left.bytes == right.bytes; }
};

/// Word by word. Qt's hash of a short byte array uses the widest registers: on some processors this
/// makes it, and what follows it, several times slower. The seed is the random one of the set, so
/// nobody can choose identifiers that collide.
size_t qHash(UidBytes uid, size_t seed) noexcept
{
    QByteArrayView rest = uid.bytes;
    for (; rest.size() >= qsizetype{sizeof(quint64)}; rest = rest.sliced(sizeof(quint64)))
        seed = ::qHash(qFromUnaligned<quint64>(rest.data()), seed);
    quint64 last = 0;
    std::copy(rest.begin(), rest.end(), reinterpret_cast<char*>(&last));
    return rest.isEmpty() ? seed : ::qHash(last, seed);
}

} // namespace

struct DefaultUidVerifier::Index {
    QSet<UidBytes> uids;
};

DefaultUidVerifier::DefaultUidVerifier(unsigned char uidSize, QObject* parent)
    : IUidVerifier(parent),
      _uidSize(uidSize),
      _spStore(std::make_shared<QList<QByteArray>>()),
      _index(std::make_unique<Index>())
{}

DefaultUidVerifier::~DefaultUidVerifier() = default;

bool DefaultUidVerifier::contains(const QByteArray& uid)
{
    return _index->uids.contains({uid});
}

void DefaultUidVerifier::append(const QByteArray& uid)
{
    if (contains(uid) || uid.size() != _uidSize)
        return;
    _spStore->append(uid);
    _index->uids.insert({_spStore->constLast()});
}

int DefaultUidVerifier::size()
{
    return _spStore ? static_cast<int>(_spStore->size()) : 0;
}

unsigned char DefaultUidVerifier::uidSize()
{
    return _uidSize;
}

bool DefaultUidVerifier::empty()
{
    return size() == 0;
}
