// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "orders.h"

#include "texts.h"

#include <kez/metatypes.h>
#include <kez/simpledom.h>

#include <QMetaType>
#include <QRegularExpression>
#include <QStringDecoder>

using namespace Qt::StringLiterals;

namespace intake {

namespace {

template <class... Values>
[[noreturn]] void refuse(QLatin1String key, const Values&... values)
{
    throw MalformedOrder(text(key, values...));
}

/// `value` without blanks around it, if it can be booked and has the whole pattern.
QString checked(const QString& name, const QString& value, const QString& pattern = u".*"_s)
{
    const QString trimmed = value.trimmed();
    if (trimmed.isEmpty())
        refuse("OrderFieldMissing"_L1, name);
    const QRegularExpression sound(u"\\A\\P{Cc}{1,200}\\z"_s); // without control characters
    if (!sound.match(trimmed).hasMatch())
        refuse("OrderFieldUnfit"_L1, name);
    const QRegularExpression whole(QRegularExpression::anchoredPattern(pattern));
    if (!whole.match(trimmed).hasMatch())
        refuse("OrderFieldInvalid"_L1, name, printable(trimmed));
    return trimmed;
}

QString attribute(const XmlElement& element, const QString& name, const QString& otherwise = {})
{
    return element.hasAttribute(name) ? element.attributes()->value(name) : otherwise;
}

std::shared_ptr<XmlElement> onlyChild(const SimpleDom& document, const QString& name)
{
    auto found = document.elementsByName(name);
    found.removeIf([&](const auto& element) { return element->parent() != document.root(); });
    if (found.isEmpty())
        refuse("OrderFieldMissing"_L1, name);
    if (found.size() > 1)
        refuse("OrderFieldTwice"_L1, name);
    return found.first();
}

/// "120.5" -> 12050, without floating point between a document and the ledger.
qint64 hundredths(const QString& amount)
{
    const QString fraction = amount.section(u'.', 1).leftJustified(2, u'0');
    return amount.section(u'.', 0, 0).toLongLong() * 100 + fraction.toLongLong();
}

SimpleDom parsed(const QByteArray& document)
{
    if (document.size() > MaxOrderSize)
        refuse("OrderTooLong"_L1, QString::number(MaxOrderSize));
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString decoded = decoder(document);
    if (decoder.hasError() || decoded.contains(QChar::Null))
        refuse("OrderNotText"_L1);
    try {
        return SimpleDom(decoded);
    } catch (const Exception& failure) {
        refuse("OrderNotXml"_L1, printable(failure.detail()));
    }
}

} // namespace

/// Makes orders from the documents of one type. A new class is named in registerOrderHandlers().
struct OrderHandler {
    virtual ~OrderHandler() = default;
    virtual Order order(const SimpleDom& document) const = 0;
};

/// A sale: the attribute `number`, the elements `customer`, and `amount` with its `currency`.
struct SaleHandler : OrderHandler {
    Order order(const SimpleDom& document) const override
    {
        const auto customer = onlyChild(document, u"customer"_s);
        const auto amount = onlyChild(document, u"amount"_s);
        return {
            checked(u"number"_s, attribute(*document.root(), u"number"_s)),
            checked(u"customer"_s, customer->innerText()),
            hundredths(checked(u"amount"_s, amount->innerText(), u"[0-9]{1,9}(\\.[0-9]{1,2})?"_s)),
            checked(u"currency"_s, attribute(*amount, u"currency"_s), u"[A-Z]{3}"_s),
        };
    }
};

/// Money given back: as a sale, with the attribute `refunds`, which names the order. Its amount is
/// written without a sign and booked as a negative one.
struct RefundHandler : SaleHandler {
    Order order(const SimpleDom& document) const override
    {
        checked(u"refunds"_s, attribute(*document.root(), u"refunds"_s));
        Order order = SaleHandler::order(document);
        order.amount = -order.amount;
        return order;
    }
};

void registerOrderHandlers()
{
    for (const QMetaType type :
         {QMetaType::fromType<SaleHandler>(), QMetaType::fromType<RefundHandler>()})
        MetaTypes::getInstance()->insertMetaType(QString::fromLatin1(type.name()), type.id());
}

Order readOrder(const QByteArray& document)
{
    const SimpleDom dom = parsed(document);
    if (!dom.root() || dom.root()->name() != u"order")
        refuse("OrderNotAtTop"_L1);
    const QString type = attribute(*dom.root(), u"type"_s, u"Sale"_s);
    const QString handlerName = u"intake::%1Handler"_s.arg(type);
    const auto* const registry = MetaTypes::getInstance();
    if (!registry->containsMetaType(handlerName)) // a file must not choose among all classes
        refuse("OrderTypeUnknown"_L1, printable(type.left(200)));
    // The registry returns the address of the object, which is also that of its first base class.
    const std::unique_ptr<const OrderHandler> handler(
        static_cast<const OrderHandler*>(registry->instanciateFromRegistry(handlerName)));
    return handler->order(dom);
}

} // namespace intake
