// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "orderhandler.h"

#include "texts.h"

#include <kez/metatypes.h>
#include <kez/xmlelement.h>

#include <QMetaType>
#include <QRegularExpression>

#include <algorithm>
#include <type_traits>

using namespace Qt::StringLiterals;

namespace intake {

namespace {

constexpr qsizetype MaxFieldLength = 200;

/// `value` without blanks around it. Throws MalformedOrder if it cannot be booked.
QString checked(const QString& name, const QString& value)
{
    const QString trimmed = value.trimmed();
    if (trimmed.isEmpty())
        throw MalformedOrder(text("OrderFieldMissing"_L1).arg(name));
    const bool hasControl = std::any_of(trimmed.begin(), trimmed.end(), [](QChar character) {
        return character.category() == QChar::Other_Control;
    });
    if (hasControl || trimmed.size() > MaxFieldLength)
        throw MalformedOrder(text("OrderFieldUnfit"_L1).arg(name));
    return trimmed;
}

QString matching(const QString& name, const QString& value, const QString& pattern)
{
    const QString trimmed = checked(name, value);
    const QRegularExpression whole(QRegularExpression::anchoredPattern(pattern));
    if (!whole.match(trimmed).hasMatch())
        throw MalformedOrder(text("OrderFieldInvalid"_L1).arg(name, printable(trimmed)));
    return trimmed;
}

QString attribute(const XmlElement& element, const QString& name)
{
    return element.hasAttribute(name) ? element.attributes()->value(name) : QString();
}

std::shared_ptr<XmlElement> onlyChild(const XmlElement& element, const QString& name)
{
    std::shared_ptr<XmlElement> found;
    for (int index = 0; index < element.chidrenCount(); ++index) {
        auto child = element.childAt(index);
        if (child->name() != name)
            continue;
        if (found)
            throw MalformedOrder(text("OrderFieldTwice"_L1).arg(name));
        found = std::move(child);
    }
    if (!found)
        throw MalformedOrder(text("OrderFieldMissing"_L1).arg(name));
    return found;
}

/// "120.5" -> 12050, without floating point between a document and the ledger.
qint64 hundredths(const QString& amount)
{
    const QString units = amount.section(u'.', 0, 0);
    const QString fraction = amount.section(u'.', 1).leftJustified(2, u'0');
    return units.toLongLong() * 100 + fraction.toLongLong();
}

template <class Handler>
void registerHandler()
{
    static_assert(std::is_base_of_v<OrderHandler, Handler>);
    const auto type = QMetaType::fromType<Handler>();
    MetaTypes::getInstance()->insertMetaType(QString::fromLatin1(type.name()), type.id());
}

} // namespace

Order SaleHandler::order(const XmlElement& document) const
{
    const auto customer = onlyChild(document, u"customer"_s);
    const auto amount = onlyChild(document, u"amount"_s);
    return {
        checked(u"number"_s, attribute(document, u"number"_s)),
        checked(u"customer"_s, customer->innerText()),
        hundredths(matching(u"amount"_s, amount->innerText(), u"[0-9]{1,9}(\\.[0-9]{1,2})?"_s)),
        matching(u"currency"_s, attribute(*amount, u"currency"_s), u"[A-Z]{3}"_s),
    };
}

Order RefundHandler::order(const XmlElement& document) const
{
    checked(u"refunds"_s, attribute(document, u"refunds"_s));
    Order order = SaleHandler::order(document);
    order.amount = -order.amount;
    return order;
}

void registerOrderHandlers()
{
    registerHandler<SaleHandler>();
    registerHandler<RefundHandler>();
}

std::unique_ptr<const OrderHandler> orderHandler(const QString& type)
{
    const QString className = u"intake::%1Handler"_s.arg(type);
    const auto* registry = MetaTypes::getInstance();
    if (!registry->containsMetaType(className))
        throw MalformedOrder(text("OrderTypeUnknown"_L1).arg(printable(type.left(MaxFieldLength))));
    // The registry returns the address of the object, which is also that of its first base class.
    return std::unique_ptr<const OrderHandler>(
        static_cast<const OrderHandler*>(registry->instanciateFromRegistry(className)));
}

} // namespace intake
