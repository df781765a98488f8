// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "sampleorders.h"

#include <QStringList>
#include <QXmlStreamWriter>

using namespace Qt::StringLiterals;

namespace intake {

namespace {

struct Sample {
    QString type = u"Sale"_s;
    QString number;
    QString customer;
    QString amount;
    QString refunds = {};
};

QByteArray documentOf(const Sample& sample)
{
    QByteArray document;
    QXmlStreamWriter writer(&document);
    writer.setAutoFormatting(true);
    writer.writeStartDocument();
    writer.writeStartElement(u"order"_s);
    writer.writeAttribute(u"type"_s, sample.type);
    writer.writeAttribute(u"number"_s, sample.number);
    if (!sample.refunds.isEmpty())
        writer.writeAttribute(u"refunds"_s, sample.refunds);
    if (!sample.customer.isEmpty())
        writer.writeTextElement(u"customer"_s, sample.customer);
    writer.writeStartElement(u"amount"_s);
    writer.writeAttribute(u"currency"_s, u"EUR"_s);
    writer.writeCharacters(sample.amount);
    writer.writeEndElement();
    writer.writeEndDocument();
    return document;
}

} // namespace

QByteArray goodOrder(const QString& prefix, int number)
{
    static const QStringList customers{u"Étienne Durand"_s, u"Maison Lefèvre & Fils"_s,
                                       u"Zoë Martin"_s, u"Garage de l'Ouest"_s, u"Ana Núñez"_s};
    const auto orderNumber = [&prefix](int each) {
        return u"%1-%2"_s.arg(prefix, QString::number(each));
    };
    Sample sample{
        .number = orderNumber(number),
        .customer = customers.at(number % customers.size()),
        .amount =
            u"%1.%2"_s.arg(10 + number * 37 % 990).arg(number * 17 % 100, 2, 10, QLatin1Char('0'))};
    if (number % 10 == 0) {
        sample.type = u"Refund"_s;
        sample.refunds = orderNumber(number - 1);
    }
    return documentOf(sample);
}

QByteArray badOrder(int number)
{
    const Sample sound{.number = u"B-1"_s, .customer = u"Zoé"_s, .amount = u"12.50"_s};
    Sample withoutCustomer = sound;
    withoutCustomer.customer.clear();
    Sample withoutAmount = sound;
    withoutAmount.amount = u"-12,5O"_s;
    Sample ofNoType = sound;
    ofNoType.type = u"Gift"_s;
    Sample tooLong = sound;
    tooLong.customer = QString(100'000, u'x');
    const QByteArray cutOff = documentOf(sound).chopped(10);
    const QByteArray binary("\x7f"
                            "ELF\x02\x01\x00\xff\xfe=\n\x00",
                            12);
    const QList<QByteArray> documents{documentOf(withoutCustomer),
                                      documentOf(withoutAmount),
                                      documentOf(ofNoType),
                                      documentOf(tooLong),
                                      cutOff,
                                      binary,
                                      QByteArray()};
    return documents.at(number % documents.size());
}

} // namespace intake
