// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/defaultuidverifier.h"
#include "frame/hashing_p.h"

#include <QByteArrayView>
#include <QSet>

namespace {

/// The bytes of a stored identifier, or of one that is asked for.
struct UidBytes {
    QByteArrayView bytes;

    friend bool operator==(UidBytes left, UidBytes right) { return left.bytes == right.bytes; }
};

size_t qHash(UidBytes uid) noexcept
{
    return Hashing::hashOf(uid.bytes);
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
