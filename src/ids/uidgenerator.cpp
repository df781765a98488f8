// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/uidgenerator.h"

#include "frame/failure_p.h"
#include "ids/uidwords_p.h"
#include "text/hexapairs_p.h"

#include <QRandomGenerator>

#include <array>
#include <limits>

namespace {

constexpr unsigned char DefaultVerifierUidSize = 16;
constexpr qsizetype UuidBytes = 16;
constexpr std::array<qsizetype, 4> UuidGroups = {4, 2, 2, 2}; // of bytes, before the last group
constexpr qsizetype MostWords = uidWords(std::numeric_limits<unsigned char>::max());

} // namespace

UidGenerator::UidGenerator(unsigned char size, QObject* parent)
    : QObject(parent), _random(QRandomGenerator64::global()), _size(size)
{}

UidGenerator::~UidGenerator() = default;

UidGenerator* UidGenerator::getInstance(unsigned char size, IUidVerifier* verifier, QObject* parent)
{
    static UidGenerator instance(size, parent);
    if (instance._initialized)
        return &instance;
    if (verifier)
        instance._verifier = verifier;
    else
        instance._spVerifier = std::make_shared<DefaultUidVerifier>(DefaultVerifierUidSize);
    // A parent deletes its children, but this object must not be deleted.
    if (parent)
        // Directly: a queued call would come after the parent has deleted its children.
        connect(
            parent, &QObject::destroyed, &instance, [] { instance.setParent(nullptr); },
            Qt::DirectConnection);
    instance._initialized = true;
    return &instance;
}

QString UidGenerator::toUUID(const QByteArray& uid)
{
    QByteArrayView rest(uid);
    QByteArray padded;
    if (uid.size() < UuidBytes) {
        padded = uid.rightJustified(UuidBytes, '\0');
        rest = padded;
    }
    QString result(2 * rest.size() + qsizetype{UuidGroups.size()}, Qt::Uninitialized);
    QChar* out = result.data();
    for (const qsizetype group : UuidGroups) {
        out = writeHexa(LowerCaseHexa, rest.first(group), out);
        *out++ = QLatin1Char('-');
        rest = rest.sliced(group);
    }
    writeHexa(LowerCaseHexa, rest, out);
    return result;
}

bool UidGenerator::isInitialized() const
{
    return _initialized;
}

QByteArray UidGenerator::generate()
{
    if (!_initialized)
        Failure::raise("QByteArray UidGenerator::generate()",
                       Failure::message("RandomizerNotInitialized"));
    std::array<quint32, MostWords> words{};
    _random->fillRange(words.data(), uidWords(_size));
    return QByteArray(reinterpret_cast<const char*>(words.data()), _size);
}

QList<std::shared_ptr<QByteArray>> UidGenerator::generate(unsigned int count)
{
    QList<std::shared_ptr<QByteArray>> uids;
    uids.reserve(count);
    for (unsigned int i = 0; i < count; ++i)
        uids.append(std::make_shared<QByteArray>(generate()));
    return uids;
}
