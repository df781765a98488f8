// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "orders.h"
#include "texts.h"

#include <kez/translator.h>

#include <QTest>

using namespace Qt::StringLiterals;
using intake::MalformedOrder;
using intake::Order;
using intake::readOrder;

namespace {

/// Why the document is refused; empty when it is not.
QString refusal(const QByteArray& document)
{
    try {
        readOrder(document);
        return {};
    } catch (const MalformedOrder& failure) {
        return failure.detail();
    }
}

QByteArray order(const QByteArray& attributes, const QByteArray& content)
{
    return "<order " + attributes + ">" + content + "</order>";
}

QByteArray withAmount(const QByteArray& amount)
{
    return order("number='C-1'",
                 "<customer>x</customer><amount currency='EUR'>" + amount + "</amount>");
}

} // namespace

class TestOrders : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void saleIsRead_data();
    void saleIsRead();
    void refundIsNegative();
    void handlersAreRegisteredOnce();
    void amountIsAccepted_data();
    void amountIsAccepted();
    void malformedDocumentIsRefused_data();
    void malformedDocumentIsRefused();
    void brokenXmlIsRefused_data();
    void brokenXmlIsRefused();
    void longestDocumentIsRead();
};

void TestOrders::initTestCase()
{
    intake::loadTexts();
    Translator::getInstance()->setDefaultLang(u"en_US"_s);
    intake::registerOrderHandlers();
}

void TestOrders::saleIsRead_data()
{
    const QByteArray content =
        "<customer>Zoé &amp; Cie</customer><amount currency='EUR'>1.5</amount>";
    QTest::addColumn<QByteArray>("document");
    QTest::newRow("plain") << order("type='Sale' number='C-1'", content);
    QTest::newRow("without type") << order("number='C-1'", content);
    QTest::newRow("declaration, comments, blanks, line ends of Windows")
        << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<!-- x -->\r\n" +
               order("\r\n number = ' C-1 '",
                     "\r\n<customer> Zoé &amp; Cie\r\n</customer><!-- y -->\r\n"
                     "<amount currency='EUR'>\t1.5</amount>\r\n") +
               "\r\n";
    QTest::newRow("what is unknown, and another order of elements")
        << order("number='C-1' colour='red'",
                 "<amount currency='EUR'>1.5</amount><note><customer>none</customer></note>"
                 "<customer>Zoé &amp; Cie</customer>");
    QTest::newRow("byte order mark") << "\xef\xbb\xbf" + order("number='C-1'", content);
    QTest::newRow("namespace") << QByteArray(
        "<a:order xmlns:a='urn:a' number='C-1'><a:customer>Zoé &amp; Cie</a:customer>"
        "<a:amount currency='EUR'>1.5</a:amount></a:order>");
}

void TestOrders::saleIsRead()
{
    QFETCH(const QByteArray, document);
    const Order sale = readOrder(document);
    QCOMPARE(sale.number, u"C-1"_s);
    QCOMPARE(sale.customer, u"Zoé & Cie"_s);
    QCOMPARE(sale.amount, qint64{150});
    QCOMPARE(sale.currency, u"EUR"_s);
}

void TestOrders::refundIsNegative()
{
    const QByteArray content = "<customer>x</customer><amount currency='EUR'>12.05</amount>";
    QCOMPARE(readOrder(order("type='Refund' number='R-1' refunds='C-1'", content)).amount,
             qint64{-1205});
    QCOMPARE(refusal(order("type='Refund' number='R-1'", content)),
             u"\"refunds\" is absent or empty"_s);
}

void TestOrders::handlersAreRegisteredOnce()
{
    intake::registerOrderHandlers();
    QCOMPARE(refusal(withAmount("1")), QString());
}

void TestOrders::amountIsAccepted_data()
{
    QTest::addColumn<QByteArray>("amount");
    QTest::addColumn<qint64>("hundredths"); // below 0: refused
    const auto row = [](const char* amount, qint64 hundredths) {
        QTest::newRow(amount) << QByteArray(amount) << hundredths;
    };
    row("0", 0);
    row("1", 100);
    row("12.5", 1250);
    row("12.50", 1250);
    row("12.05", 1205);
    row("007.01", 701);
    row("999999999.99", 99999999999);
    row("1000000000", -1);
    row("12.505", -1);
    row("12.", -1);
    row(".5", -1);
    row("12,50", -1);
    row("-1", -1);
    row("+1", -1);
    row("1e3", -1);
    row("1 000", -1);
    row("NaN", -1);
    row("\u0661", -1);   // a digit, but an Arabic one
    row("1\u00a0", 100); // the blank is trimmed
}

void TestOrders::amountIsAccepted()
{
    QFETCH(const QByteArray, amount);
    QFETCH(const qint64, hundredths);
    const QByteArray document = withAmount(amount);
    if (hundredths < 0)
        QCOMPARE(refusal(document), u"wrong value: amount="_s + QString::fromUtf8(amount));
    else
        QCOMPARE(readOrder(document).amount, hundredths);
}

void TestOrders::malformedDocumentIsRefused_data()
{
    const QByteArray amount = "<amount currency='EUR'>1</amount>";
    const QByteArray customer = "<customer>x</customer>";
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<QString>("reason");
    const auto row = [](const char* name, const QByteArray& document, const QString& reason) {
        QTest::newRow(name) << document << reason;
    };
    row("another element", "<invoice/>", u"the outermost element is not \"order\""_s);
    row("order further down", "<orders>" + withAmount("1") + "</orders>",
        u"the outermost element is not \"order\""_s);
    row("only a declaration", "<?xml version='1.0'?>", u"the outermost element is not \"order\""_s);
    row("no number", order("", customer + amount), u"\"number\" is absent or empty"_s);
    row("no customer", order("number='1'", amount), u"\"customer\" is absent or empty"_s);
    row("empty customer", order("number='1'", "<customer/>" + amount),
        u"\"customer\" is absent or empty"_s);
    row("blank customer", order("number='1'", "<customer>&#160;</customer>" + amount),
        u"\"customer\" is absent or empty"_s);
    row("no amount", order("number='1'", customer), u"\"amount\" is absent or empty"_s);
    row("no currency", order("number='1'", customer + "<amount>1</amount>"),
        u"\"currency\" is absent or empty"_s);
    row("currency in small letters",
        order("number='1'", customer + "<amount currency='eur'>1</amount>"),
        u"wrong value: currency=eur"_s);
    row("element twice", order("number='1'", customer + customer + amount),
        u"\"customer\" comes twice"_s);
    row("control character", order("number='C&#9;1'", customer + amount),
        u"\"number\" is too long or holds a control character"_s);
    row("long customer",
        order("number='1'", "<customer>" + QByteArray(201, 'x') + "</customer>" + amount),
        u"\"customer\" is too long or holds a control character"_s);
    row("place marker", withAmount("%2"), u"wrong value: amount=%252"_s);
    row("unknown type", order("type='Gift'", ""), u"there is no order of type [Gift]"_s);
    row("type in small letters", order("type='sale'", ""), u"there is no order of type [sale]"_s);
    row("empty type", order("type=''", ""), u"there is no order of type []"_s);
    row("type that is a class of the process, but no handler", order("type='Order'", ""),
        u"there is no order of type [Order]"_s);
    row("long type", order("type='" + QByteArray(60'000, 't') + "'", ""),
        u"there is no order of type [%1]"_s.arg(QString(200, u't')));
    row("invalid UTF-8", "<order number='\xe9'/>", u"this is not a text in UTF-8"_s);
    row("cut off in a character", "<order>\xc3", u"this is not a text in UTF-8"_s);
    row("null byte", QByteArray("<order\0/>", 9), u"this is not a text in UTF-8"_s);
    row("UTF-16", QByteArray("\xff\xfe<\0o\0", 6), u"this is not a text in UTF-8"_s);
}

void TestOrders::malformedDocumentIsRefused()
{
    QFETCH(const QByteArray, document);
    QFETCH(const QString, reason);
    QCOMPARE(refusal(document), reason);
}

void TestOrders::brokenXmlIsRefused_data()
{
    QByteArray bomb = "<!DOCTYPE order [<!ENTITY a0 'aaaaaaaaaa'>";
    for (int level = 1; level < 9; ++level) {
        const QByteArray inner = "&a" + QByteArray::number(level - 1) + ";";
        bomb += "<!ENTITY a" + QByteArray::number(level) + " '" + inner.repeated(10) + "'>";
    }
    QTest::addColumn<QByteArray>("document");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("no XML") << QByteArray("order=C-1\n");
    QTest::newRow("cut off") << withAmount("1").chopped(10);
    QTest::newRow("two documents") << withAmount("1") + withAmount("2");
    QTest::newRow("attribute twice") << order("number='1' number='2'", "");
    QTest::newRow("entity bomb") << bomb + "]><order number='&a8;'/>";
    QTest::newRow("unknown entity") << order("number='1'", "<customer>&x;</customer>");
    QTest::newRow("unclosed, deep") << QByteArray("<order>").repeated(9000);
}

void TestOrders::brokenXmlIsRefused()
{
    QFETCH(const QByteArray, document);
    const QString reason = refusal(document);
    QVERIFY2(reason.startsWith(u"this is not XML: "_s), qPrintable(reason));
    QVERIFY(!reason.contains(u'\n'));
}

void TestOrders::longestDocumentIsRead()
{
    QByteArray document = withAmount("1");
    document.append(intake::MaxOrderSize - document.size(), '\n');
    QCOMPARE(refusal(document), QString());
    QCOMPARE(refusal(document + '\n'), u"more than 65536 bytes"_s);
}

QTEST_GUILESS_MAIN(TestOrders)
#include "tst_orders.moc"
