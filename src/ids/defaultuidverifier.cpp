// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/defaultuidverifier.h"

DefaultUidVerifier::DefaultUidVerifier(unsigned char uidSize, QObject* parent)
    : IUidVerifier(parent), _uidSize(uidSize), _spStore(std::make_shared<QList<QByteArray>>())
{}

DefaultUidVerifier::~DefaultUidVerifier() = default;

bool DefaultUidVerifier::contains(const QByteArray& uid)
{
    return _index.contains(uid);
}

void DefaultUidVerifier::append(const QByteArray& uid)
{
    if (contains(uid) || uid.size() != _uidSize)
        return;
    _spStore->append(uid);
    _index.insert(uid);
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
