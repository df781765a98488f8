// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/spoolname_p.h"

#include "service/kittexts_p.h"

#include <QStringDecoder>
#include <QStringEncoder>

#include <climits>

namespace KezService::SpoolName {

namespace {

/// Nothing for a half of a surrogate pair, which UTF-8 cannot hold.
std::optional<QByteArray> encoded(const QString& name)
{
    QStringEncoder encoder(QStringEncoder::Utf8, QStringEncoder::Flag::Stateless);
    QByteArray bytes = encoder(name);
    return encoder.hasError() ? std::nullopt : std::optional(std::move(bytes));
}

/// The longest beginning of at most `size` bytes that ends with a whole character.
QByteArray beginning(const QByteArray& name, qsizetype size)
{
    const auto continues = [&](qsizetype position) {
        return (static_cast<unsigned char>(name.at(position)) & 0xC0U) == 0x80U;
    };
    if (name.size() <= size)
        return name;
    while (size > 0 && continues(size))
        --size;
    return name.left(size);
}

} // namespace

QString fault(const QString& name)
{
    if (name.isEmpty())
        return kitText("DeliveryNameEmpty");
    if (name.startsWith(QLatin1Char('.')))
        return kitText("DeliveryNameHidden");
    if (name.contains(QLatin1Char('/')))
        return kitText("DeliveryNameSlash");
    if (name.contains(QChar(0)))
        return kitText("DeliveryNameZero");
    const auto bytes = encoded(name);
    if (!bytes)
        return kitText("DeliveryNameNotUtf8");
    if (bytes->size() > NAME_MAX)
        return kitText("DeliveryNameLong", QString::number(bytes->size()));
    return {};
}

std::optional<QString> decoded(QByteArrayView name)
{
    // A byte order mark at the beginning is part of the name.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless |
                                                     QStringDecoder::Flag::ConvertInitialBom);
    QString text = decoder(name);
    return decoder.hasError() ? std::nullopt : std::optional(std::move(text));
}

QString shown(QByteArrayView name)
{
    if (auto text = decoded(name))
        return *std::move(text);
    QString text;
    for (const char byte : name) {
        const auto code = static_cast<unsigned char>(byte);
        text += code < 0x80 ? QString(QLatin1Char(byte))
                            : QStringLiteral("\\x%1").arg(code, 2, 16, QLatin1Char('0'));
    }
    return text;
}

bool isTemporary(QByteArrayView name)
{
    return name.startsWith('.') || name.endsWith('~') || name.endsWith(".part") ||
           name.endsWith(".tmp");
}

QByteArray numbered(const QByteArray& name, quint64 number, qsizetype longest)
{
    const QByteArray mark = number > 1 ? '~' + QByteArray::number(number) : QByteArray();
    qsizetype dot = name.lastIndexOf('.');
    // A suffix that leaves no room for a stem is none.
    if (dot <= 0 || name.size() - dot + mark.size() > longest - 4)
        dot = name.size();
    const QByteArray suffix = name.mid(dot);
    return beginning(name.left(dot), longest - mark.size() - suffix.size()) + mark + suffix;
}

} // namespace KezService::SpoolName
