// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/metatype.h"

MetaType::MetaType() = default;

MetaType::MetaType(const QString& className, int invariantId, int typeId)
    : _className(className), _invariantId(invariantId), _typeId(typeId)
{}

QString MetaType::className() const
{
    return _className;
}

int MetaType::invariantId() const
{
    return _invariantId;
}

int MetaType::typeId() const
{
    return _typeId;
}

QString MetaType::toString() const
{
    return QStringLiteral(u"classe : %1, id invariant = %2, id enregistré = %3")
        .arg(_className, QString::number(_invariantId), QString::number(_typeId));
}
