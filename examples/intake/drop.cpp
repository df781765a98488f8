// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Delivers orders to a spool directory: good ones, with bad ones spread among them.

#include "texts.h"

#include <kez/service/delivery.h>
#include <kez/service/exitcodes.h>
#include <kez/service/xmlwriter.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTextStream>
#include <QThread>

using namespace KezService;
using namespace Qt::StringLiterals;
using intake::text;

namespace {

/// Every tenth order is a refund of the one before. The same arguments give the same document.
QByteArray goodOrder(const QString& prefix, qint64 number)
{
    static const QStringList customers{u"Étienne Durand"_s, u"Maison Lefèvre & Fils"_s,
                                       u"Zoë Martin"_s, u"Garage de l'Ouest"_s, u"Ana Núñez"_s};
    const bool isRefund = number % 10 == 0;
    const QString amount = QString::number((10 + number * 37 % 990) * 100 + number * 17 % 100);
    const auto numbered = [&](qint64 each) { return prefix + u'-' + QString::number(each); };
    QMap<QString, QString> attributes{{u"type"_s, isRefund ? u"Refund"_s : u"Sale"_s},
                                      {u"number"_s, numbered(number)}};
    if (isRefund)
        attributes.insert(u"refunds"_s, numbered(number - 1));
    QString document;
    XmlWriter writer(document);
    writer.startElement(u"order"_s, attributes);
    writer.element(u"customer"_s, customers.at(number % customers.size()));
    writer.element(u"amount"_s, amount.chopped(2) + u'.' + amount.right(2),
                   {{u"currency"_s, u"EUR"_s}});
    writer.endElement();
    writer.finish();
    return document.toUtf8();
}

/// The numbers go through the ways in which a document is not an order.
QByteArray badOrder(qint64 number)
{
    const QByteArray order = "<order number='B-1'>";
    const QByteArray customer = "<customer>Zoé</customer>";
    const QByteArray rest = "<amount currency='EUR'>12.50</amount></order>";
    const QList<QByteArray> documents{
        order + rest, // without a customer
        order + customer + QByteArray(rest).replace("12.50", "-12,5O"),
        "<order type='Gift' number='B-1'>" + customer + rest,
        order + "<customer>" + QByteArray(100'000, 'x') + "</customer>" + rest,
        order + customer + rest.chopped(10),
        QByteArray("\x7f\x45LF\x02\x01\x00\xff\xfe=\n\x00", 12),
        {},
    };
    return documents.at(number % documents.size());
}

void tell(const QString& line, FILE* stream = stdout)
{
    QTextStream(stream) << line << Qt::endl;
}

int usageFault(const QString& reason)
{
    tell(reason + u'\n' + text("DropUsage"_L1), stderr);
    return ExitUsage;
}

int dropAll(const QString& directory, const QString& prefix, const QMap<QString, qint64>& counts)
{
    const Delivery spool(directory);
    const qint64 total = counts[u"good"_s] + counts[u"bad"_s];
    qint64 bad = 0;
    for (qint64 index = 1; index <= total; ++index) {
        const bool isBad = index * counts[u"bad"_s] / total > bad; // spread evenly
        const QString number = QString::number(index).rightJustified(6, u'0');
        spool.deliver(prefix + u'-' + number + u".xml"_s,
                      isBad ? badOrder(bad++) : goodOrder(prefix, index));
        if (index * 4 / total > (index - 1) * 4 / total)
            tell(u"%1 / %2"_s.arg(index).arg(total));
        QThread::msleep(static_cast<unsigned long>(counts[u"pause"_s]));
    }
    tell(text("Dropped"_L1, QString::number(total - bad), QString::number(bad), directory));
    return ExitClean;
}

int run(const QCommandLineParser& parser)
{
    QMap<QString, qint64> counts;
    for (const QString& option : {u"good"_s, u"bad"_s, u"pause"_s}) {
        bool isNumber = false;
        counts[option] = parser.value(option).toInt(&isNumber);
        if (!isNumber || counts[option] < 0)
            return usageFault(text("NoCount"_L1, option, parser.value(option)));
    }
    const QString prefix = parser.value(u"prefix"_s);
    if (parser.positionalArguments().size() != 1)
        return usageFault(text("OneSpool"_L1));
    if (prefix.isEmpty() || prefix.startsWith(u'.') || prefix.contains(u'/'))
        return usageFault(text("NoPrefix"_L1, prefix));
    return dropAll(parser.positionalArguments().first(), prefix, counts);
}

} // namespace

int main(int argc, char* argv[])
try {
    const QCoreApplication application(argc, argv);
    intake::loadTexts();
    const QString now = QDateTime::currentDateTime().toString(u"yyyyMMdd-HHmmss-"_s);
    QCommandLineParser parser;
    parser.addOptions({{u"good"_s, QString(), u"N"_s, u"100"_s},
                       {u"bad"_s, QString(), u"N"_s, u"0"_s},
                       {u"pause"_s, QString(), u"MS"_s, u"0"_s},
                       {u"prefix"_s, QString(), u"TEXT"_s,
                        now + QString::number(QCoreApplication::applicationPid())},
                       {u"help"_s, QString()}});
    if (!parser.parse(QCoreApplication::arguments()))
        return usageFault(parser.errorText());
    if (!parser.isSet(u"help"_s))
        return run(parser);
    tell(text("DropUsage"_L1));
    return ExitClean;
} catch (const Exception& failure) {
    tell(failure.detail(), stderr);
    return ExitFailure;
}
