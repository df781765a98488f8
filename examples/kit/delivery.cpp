// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/service/delivery.h>

#include <QDir>
#include <QTextStream>

using namespace Qt::StringLiterals;
using KezService::Delivery;
using KezService::DeliveryFailure;

namespace {

/// An order for each customer, in one call: either all of them are written, or none enters.
QStringList deliverOrders(const Delivery& delivery, const QStringList& customers)
{
    std::vector<Delivery::Parcel> parcels;
    for (const QString& customer : customers) {
        const QByteArray order = "<order customer='" + customer.toUtf8() + "'/>\n";
        parcels.emplace_back(customer + u".xml"_s, order);
    }
    return delivery.deliverAll(parcels);
}

} // namespace

int main()
{
    QTextStream out(stdout);
    QDir().mkdir(u"spool"_s);
    try {
        const Delivery delivery(u"spool"_s);
        delivery.removeLeftovers(std::chrono::hours(24));

        const QStringList names = deliverOrders(delivery, {u"durand"_s, u"martin"_s});
        out << "delivered: " << names.join(u", "_s) << '\n';

        // Another order of the same customer, which must not replace the first one.
        const Delivery numbering(u"spool"_s, Delivery::NameTaken::FreshName);
        const QString name = numbering.deliver(u"durand.xml"_s, "<order customer='durand'/>\n");
        out << "delivered: " << name << '\n';

        delivery.deliver(u"martin.xml"_s, "<order/>\n"); // the name is taken
    } catch (const DeliveryFailure& failure) {
        // A service would log failure.detail(). What is delivered must not be delivered again.
        out << "failed, with " << failure.delivered().size() << " files delivered\n";
    } catch (const Exception& failure) {
        out << failure.detail() << '\n';
        return 1;
    }
    out << "a queue sees: " << QDir(u"spool"_s).entryList(QDir::Files).join(u", "_s) << '\n';
    return 0;
}
