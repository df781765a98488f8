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

/// The process's source of unique identifiers: random bytes of a size that the first use chooses.
///
/// Nothing is checked while generating. An application that must exclude repetitions asks a
/// verifier itself:
///
///     UidGenerator* generator = UidGenerator::getInstance(16);
///     QByteArray uid = generator->generate();
///     while (verifier.contains(uid))
///         uid = generator->generate();
///     verifier.append(uid);
///     const QString name = UidGenerator::toUUID(uid);
///
/// *Threads*: any thread, after the first getInstance() has returned. The application must not make
/// the first call from two threads at the same time.
/// *Owns*: the default verifier, if one was made; not the application's, which must outlive it.
/// *Fails*: throws Exception(RandomizerNotInitialized) if it was not obtained by getInstance().
class KEZ_EXPORT UidGenerator : public QObject {
    Q_OBJECT

public:
    /// Builds a generator that refuses to generate: use getInstance().
    explicit UidGenerator(unsigned char size, QObject* parent = nullptr);
    ~UidGenerator() override;

    /// The only generator of the process. It lives until the process exits.
    ///
    /// The first call decides: identifiers have `size` bytes; the generator keeps `verifier`, or,
    /// if it is null, a DefaultUidVerifier for 16 bytes (also if `size` is another number); it is a
    /// child of `parent` while that lives, but is not deleted with it. Later calls ignore their
    /// arguments.
    static UidGenerator* getInstance(unsigned char size, IUidVerifier* verifier = nullptr,
                                     QObject* parent = nullptr);

    /// Lower-case digits in groups of 8, 4, 4, 4 and the rest; zeros come before an identifier of
    /// fewer than 16 bytes. The bytes are written as they are: no version or variant bits are set,
    /// so the text only looks like a UUID of RFC 4122.
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
