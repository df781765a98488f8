// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "orderreader.h"

#include "texts.h"

#include <QIODevice>
#include <QMap>
#include <QRegularExpression>
#include <QStringDecoder>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace intake {

namespace {

using Fields = QMap<QString, QString>;

constexpr qsizetype MaxFieldLength = 200;

QString readText(QIODevice& document)
{
    const QByteArray bytes = document.read(OrderReader::MaxDocumentSize + 1);
    if (bytes.size() > OrderReader::MaxDocumentSize)
        throw MalformedOrder(text("OrderTooLong"_L1).arg(OrderReader::MaxDocumentSize));
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString result = decoder(bytes);
    if (decoder.hasError() || result.contains(QChar::Null))
        throw MalformedOrder(text("OrderNotText"_L1));
    return result;
}

Fields readFields(const QString& document)
{
    Fields fields;
    for (const QStringView rawLine : QStringView(document).split(u'\n')) {
        const QStringView line = rawLine.trimmed();
        const qsizetype separator = line.indexOf(u'=');
        if (separator < 1 || line.startsWith(u'#'))
            continue;
        const QString key = line.first(separator).trimmed().toString();
        if (fields.contains(key))
            throw MalformedOrder(text("OrderKeyTwice"_L1).arg(printable(key.left(MaxFieldLength))));
        fields.insert(key, line.sliced(separator + 1).trimmed().toString());
    }
    return fields;
}

bool isPlain(const QString& value)
{
    return value.size() <= MaxFieldLength &&
           std::none_of(value.begin(), value.end(), [](QChar character) {
               return character.category() == QChar::Other_Control;
           });
}

QString field(const Fields& fields, const QString& key)
{
    const QString value = fields.value(key);
    if (value.isEmpty())
        throw MalformedOrder(text("OrderKeyMissing"_L1).arg(key));
    if (!isPlain(value))
        throw MalformedOrder(text("OrderValueInvalid"_L1).arg(key));
    return value;
}

QString field(const Fields& fields, const QString& key, const QString& pattern)
{
    const QString value = field(fields, key);
    const QRegularExpression whole(QRegularExpression::anchoredPattern(pattern));
    if (!whole.match(value).hasMatch())
        throw MalformedOrder(text("OrderFieldInvalid"_L1).arg(key, printable(value)));
    return value;
}

} // namespace

Order KeyValueOrderReader::read(QIODevice& document) const
{
    const Fields fields = readFields(readText(document));
    return {
        field(fields, u"order"_s),
        field(fields, u"customer"_s),
        field(fields, u"amount"_s, u"[0-9]{1,12}(\\.[0-9]{1,2})?"_s),
        field(fields, u"currency"_s, u"[A-Z]{3}"_s),
    };
}

} // namespace intake
