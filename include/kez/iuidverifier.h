// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

#include <QByteArray>
#include <QObject>

/// A store of identifiers that can tell whether one was seen before. Applications implement it, for
/// example over a database.
///
/// *Threads*: one thread at a time.
/// *Owns*: as the implementation says.
/// *Fails*: as the implementation says.
class KEZ_EXPORT IUidVerifier : public QObject {
    Q_OBJECT

public:
    explicit IUidVerifier(QObject* parent = nullptr);
    ~IUidVerifier() override;

    /// Whether `uid` was stored.
    virtual bool contains(const QByteArray& uid) = 0;

    virtual void append(const QByteArray& uid) = 0;
};
