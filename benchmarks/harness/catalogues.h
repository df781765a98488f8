// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QDataStream>
#include <QIODevice>
#include <QMap>
#include <QString>

/// The same texts as the file formats of other translators.
namespace Catalogues {

using Texts = QMap<QString, QString>;

/// What gettext reads. There is no hash table in it: gettext searches the sorted keys.
inline QByteArray mo(const Texts& texts)
{
    QMap<QByteArray, QByteArray> sorted{{"", "Content-Type: text/plain; charset=UTF-8\n"}};
    for (auto text = texts.cbegin(); text != texts.cend(); ++text)
        sorted.insert(text.key().toUtf8(), text->toUtf8());

    constexpr quint32 HeaderSize = 28;
    const auto count = static_cast<quint32>(sorted.size());
    const quint32 keys = HeaderSize;
    const quint32 values = keys + 8 * count;
    QByteArray file;
    QByteArray characters;
    QDataStream out(&file, QIODevice::WriteOnly);
    out.setByteOrder(QDataStream::LittleEndian);
    out << quint32(0x950412de) << quint32(0) << count << keys << values << quint32(0) << quint32(0);
    const auto place = [&](const QByteArray& bytes) {
        out << static_cast<quint32>(bytes.size())
            << static_cast<quint32>(values + 8 * count + characters.size());
        characters += bytes + '\0';
    };
    for (auto text = sorted.cbegin(); text != sorted.cend(); ++text)
        place(text.key());
    for (const QByteArray& text : std::as_const(sorted))
        place(text);
    return file + characters;
}

/// How QTranslator hashes a source text.
inline quint32 elfHash(const QByteArray& text)
{
    quint32 hash = 0;
    for (const char character : text) {
        hash = (hash << 4) + static_cast<uchar>(character);
        const quint32 top = hash & 0xf0000000;
        hash = (hash ^ (top >> 24)) & ~top;
    }
    return hash == 0 ? 1 : hash;
}

/// What QTranslator loads. All texts belong to one context.
inline QByteArray qm(const QByteArray& context, const Texts& texts)
{
    enum Tag : quint8 { End = 1, Translation = 3, SourceText = 6, Context = 7, Comment = 8 };
    enum Section : quint8 { Hashes = 0x42, Messages = 0x69 };
    QByteArray messages;
    QDataStream message(&messages, QIODevice::WriteOnly);
    QMultiMap<quint32, quint32> offsets;
    for (auto text = texts.cbegin(); text != texts.cend(); ++text) {
        const QByteArray source = text.key().toUtf8();
        offsets.insert(elfHash(source), static_cast<quint32>(messages.size()));
        message << quint8(Translation) << *text << quint8(Comment) << quint32(0);
        message << quint8(SourceText) << source << quint8(Context) << context << quint8(End);
    }
    QByteArray hashes;
    QDataStream hash(&hashes, QIODevice::WriteOnly);
    for (auto offset = offsets.cbegin(); offset != offsets.cend(); ++offset)
        hash << offset.key() << *offset;

    QByteArray file = QByteArray::fromHex("3cb86418caef9c95cd211cbf60a1bddd");
    QDataStream out(&file, QIODevice::Append);
    out << quint8(Hashes) << hashes << quint8(Messages) << messages;
    return file;
}

} // namespace Catalogues
