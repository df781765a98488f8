// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/iconfigcontroller.h"

IConfigController::IConfigController(QObject* parent) : QObject(parent)
{}

IConfigController::~IConfigController() = default;

QStringList IConfigController::errors()
{
    return _errors;
}

void IConfigController::insertError(const QString& error)
{
    _errors.append(error);
}

QString IConfigController::errorsToString(const QString& separator)
{
    QString result;
    for (const QString& error : std::as_const(_errors)) {
        if (!result.isEmpty())
            result += separator;
        result += error;
    }
    return result;
}
