// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/ConsumerAncestor.h"

ConsumerAncestor::ConsumerAncestor(const QString& id, QObject* parent)
    : QObject(parent), _identifier(id)
{}

ConsumerAncestor::~ConsumerAncestor() = default;

QString ConsumerAncestor::id() const
{
    return _identifier;
}
