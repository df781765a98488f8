// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "orderreader.h"

#include "orderhandler.h"
#include "texts.h"

#include <kez/simpledom.h>

#include <QStringDecoder>

using namespace Qt::StringLiterals;

namespace intake {

namespace {

QString decoded(const QByteArray& document)
{
    if (document.size() > MaxOrderSize)
        throw MalformedOrder(text("OrderTooLong"_L1).arg(MaxOrderSize));
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString result = decoder(document);
    if (decoder.hasError() || result.contains(QChar::Null))
        throw MalformedOrder(text("OrderNotText"_L1));
    return result;
}

SimpleDom parsed(const QString& document)
{
    try {
        return SimpleDom(document);
    } catch (const Exception& failure) {
        throw MalformedOrder(text("OrderNotXml"_L1).arg(printable(failure.detail())));
    }
}

/// The document's own element.
std::shared_ptr<XmlElement> orderElement(const SimpleDom& document)
{
    const auto elements = document.elementsByName(u"order"_s);
    if (elements.isEmpty() || elements.first()->parent())
        throw MalformedOrder(text("OrderNotAtTop"_L1));
    return elements.first();
}

} // namespace

Order readOrder(const QByteArray& document)
{
    const auto element = orderElement(parsed(decoded(document)));
    const auto type = u"type"_s;
    const auto handler =
        orderHandler(element->hasAttribute(type) ? element->attributes()->value(type) : u"Sale"_s);
    return handler->order(*element);
}

} // namespace intake
