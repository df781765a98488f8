// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "defaultuidverifier.h"
#include "iuidverifier.h"
#include "kez_global.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>

#include <memory>

class QRandomGenerator64;

/// The process's source of unique identifiers: random bytes of a size that is chosen at first use.
///
/// Nothing is checked while generating: an application that must exclude a repetition asks a
/// verifier of its own.
///
///     UidGenerator* generator = UidGenerator::getInstance(16);
///     QByteArray uid = generator->generate();
///     while (verifier.contains(uid))
///         uid = generator->generate();
///     verifier.append(uid);
///     const QString name = UidGenerator::toUUID(uid);
///
/// *Threads*: any thread, once a first getInstance() has returned; the application sees to it that
/// no two threads make the first call at the same time.
/// *Owns*: the default verifier, if one was made; not the application's, which must outlive it.
/// *Fails*: throws Exception(RandomizerNotInitialized) when it was not obtained by getInstance().
class KEZ_EXPORT UidGenerator : public QObject {
    Q_OBJECT

public:
    /// Builds a generator that refuses to generate: use getInstance().
    explicit UidGenerator(unsigned char size, QObject* parent = nullptr);
    ~UidGenerator() override;

    /// The one generator of the process, which lives until the process exits.
    ///
    /// The first call decides for good: identifiers have `size` bytes; `verifier` is kept, or a
    /// DefaultUidVerifier for 16 bytes (whatever `size` is) when it is null; and the generator is a
    /// child of `parent` while that lives, but is not deleted with it. Later calls ignore their
    /// arguments.
    static UidGenerator* getInstance(unsigned char size, IUidVerifier* verifier = nullptr,
                                     QObject* parent = nullptr);

    /// Lower-case digits in groups of 8, 4, 4, 4 and all the others; zeros are put before an
    /// identifier of fewer than 16 bytes.
    ///
    ///     16 bytes      ->  0f3c2a9e-51b7-4c0d-9a2e-7b4f10c3d8e1
    ///     {0x12, 0xab}  ->  00000000-0000-0000-0000-0000000012ab
    static QString toUUID(const QByteArray& uid);

    /// Whether the generator was obtained by getInstance().
    bool isInitialized() const;

    /// A new identifier.
    virtual QByteArray generate();

    /// `count` identifiers, each by generate().
    virtual QList<std::shared_ptr<QByteArray>> generate(unsigned int count);

private:
    QRandomGenerator64* _random;
    unsigned char _size;
    bool _initialized = false;
    std::shared_ptr<DefaultUidVerifier> _spVerifier;
    IUidVerifier* _verifier = nullptr;
};
