// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "iuidverifier.h"
#include "kez_global.h"

#include <QByteArray>
#include <QList>
#include <QSet> // not used here any more, but programs may rely on it

#include <memory>

/// A store of identifiers of one size, in memory. A search takes the same time among millions as
/// among ten.
///
/// *Threads*: one thread at a time.
/// *Owns*: what it stores, for as long as it lives.
/// *Fails*: never.
class KEZ_EXPORT DefaultUidVerifier : public IUidVerifier {
    Q_OBJECT

public:
    /// `uidSize`: the size, in bytes, of the identifiers that it accepts.
    explicit DefaultUidVerifier(unsigned char uidSize, QObject* parent = nullptr);
    ~DefaultUidVerifier() override;

    bool contains(const QByteArray& uid) override;

    /// Silently ignores an identifier of another size, and one for which contains() is true.
    void append(const QByteArray& uid) override;

    /// The number of identifiers.
    virtual int size();
    virtual unsigned char uidSize();
    virtual bool empty();

private:
    struct Index;

    unsigned char _uidSize;
    std::shared_ptr<QList<QByteArray>> _spStore;
    std::unique_ptr<Index> _index;
};
