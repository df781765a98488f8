// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

#include <QString>

/// A registered class: its name, the id that stays the same from one run to the next, and the id
/// that Qt's meta-type system gave it in this process.
///
/// *Threads*: a value; each thread reads a copy of its own.
/// *Owns*: its fields.
/// *Fails*: never.
class KEZ_EXPORT MetaType {
public:
    /// No name, both ids 0.
    MetaType();
    MetaType(const QString& className, int invariantId, int typeId);

    QString className() const;
    int invariantId() const;
    int typeId() const;

    /// "classe : Order, id invariant = 10000, id enregistré = 65537"
    QString toString() const;

private:
    QString _className;
    int _invariantId = 0;
    int _typeId = 0;
};
