// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "orderreader.h"
#include "texts.h"

#include <QBuffer>
#include <QTest>

using namespace Qt::StringLiterals;
using intake::KeyValueOrderReader;
using intake::MalformedOrder;
using intake::Order;

namespace {

Order readOrder(QByteArray document)
{
    QBuffer buffer(&document);
    buffer.open(QBuffer::ReadOnly);
    return KeyValueOrderReader().read(buffer);
}

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

QByteArray withAmount(const QByteArray& amount)
{
    return "order=C-1\ncustomer=x\namount=" + amount + "\ncurrency=EUR\n";
}

} // namespace

class TestOrderReader : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void orderIsRead_data();
    void orderIsRead();
    void amountIsAccepted_data();
    void amountIsAccepted();
    void malformedDocumentIsRefused_data();
    void malformedDocumentIsRefused();
    void longestDocumentIsRead();
    void longDocumentIsNotReadToItsEnd();
};

void TestOrderReader::initTestCase()
{
    intake::loadTexts();
    intake::startInLanguage(u"en_US"_s);
}

void TestOrderReader::orderIsRead_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::newRow("plain") << QByteArray("order=C-1\ncustomer=Zoé = Cie\namount=1.5\ncurrency=EUR");
    QTest::newRow("line ends of Windows")
        << QByteArray("order=C-1\r\ncustomer=Zoé = Cie\r\namount=1.5\r\ncurrency=EUR\r\n");
    QTest::newRow("blanks, comments, unknown keys, other lines")
        << QByteArray("# order=X\n\n  order = C-1 \nnote=a\ncustomer=Zoé = Cie\n  # b\nplain\n=c\n"
                      "currency=EUR\namount=1.5\n");
    QTest::newRow("byte order mark")
        << QByteArray("\xef\xbb\xbforder=C-1\ncustomer=Zoé = Cie\namount=1.5\ncurrency=EUR\n");
}

void TestOrderReader::orderIsRead()
{
    QFETCH(const QByteArray, document);
    const Order order = readOrder(document);
    QCOMPARE(order.number, u"C-1"_s);
    QCOMPARE(order.customer, u"Zoé = Cie"_s);
    QCOMPARE(order.amount, u"1.5"_s);
    QCOMPARE(order.currency, u"EUR"_s);
}

void TestOrderReader::amountIsAccepted_data()
{
    QTest::addColumn<QByteArray>("amount");
    QTest::addColumn<bool>("isAccepted");
    const auto row = [](const char* amount, bool isAccepted) {
        QTest::newRow(amount) << QByteArray(amount) << isAccepted;
    };
    row("0", true);
    row("1", true);
    row("12.5", true);
    row("12.50", true);
    row("999999999999.99", true);
    row("1000000000000", false);
    row("12.505", false);
    row("12.", false);
    row(".5", false);
    row("12,50", false);
    row("-1", false);
    row("+1", false);
    row("1e3", false);
    row("1 000", false);
    row("NaN", false);
    row("\u0661", false); // a digit, but an Arabic one
    row("1\u00a0", true); // the blank is trimmed
}

void TestOrderReader::amountIsAccepted()
{
    QFETCH(const QByteArray, amount);
    QFETCH(const bool, isAccepted);
    const QString wanted =
        isAccepted ? QString() : u"wrong value: amount="_s + QString::fromUtf8(amount);
    QCOMPARE(refusal(withAmount(amount)), wanted);
}

void TestOrderReader::malformedDocumentIsRefused_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<QString>("reason");
    QTest::newRow("empty") << QByteArray() << u"key \"order\" is absent or empty"_s;
    QTest::newRow("no customer") << QByteArray("order=C-1\namount=1\ncurrency=EUR\n")
                                 << u"key \"customer\" is absent or empty"_s;
    QTest::newRow("blank customer")
        << QByteArray("order=C-1\ncustomer=  \namount=1\ncurrency=EUR\n")
        << u"key \"customer\" is absent or empty"_s;
    QTest::newRow("no amount") << QByteArray("order=C-1\ncustomer=x\ncurrency=EUR\n")
                               << u"key \"amount\" is absent or empty"_s;
    QTest::newRow("no currency") << QByteArray("order=C-1\ncustomer=x\namount=1\n")
                                 << u"key \"currency\" is absent or empty"_s;
    QTest::newRow("currency in small letters")
        << QByteArray("order=C-1\ncustomer=x\namount=1\ncurrency=eur\n")
        << u"wrong value: currency=eur"_s;
    QTest::newRow("key twice") << QByteArray("order=C-1\norder=C-1\n")
                               << u"key \"order\" comes twice"_s;
    QTest::newRow("control character")
        << QByteArray("order=C\t1\ncustomer=x\namount=1\ncurrency=EUR\n")
        << u"the value of \"order\" is too long or holds a control character"_s;
    QTest::newRow("long customer")
        << QByteArray("order=C-1\ncustomer=") + QByteArray(201, 'x') + "\namount=1\ncurrency=EUR\n"
        << u"the value of \"customer\" is too long or holds a control "
           "character"_s;
    QTest::newRow("invalid UTF-8")
        << QByteArray("order=C-\xe9\n") << u"this is not a text in UTF-8"_s;
    QTest::newRow("cut off in a character")
        << QByteArray("order=C-\xc3") << u"this is not a text in UTF-8"_s;
    QTest::newRow("null byte") << QByteArray("order=C\0\n", 9) << u"this is not a text in UTF-8"_s;
    QTest::newRow("place marker") << QByteArray("order=C-1\ncustomer=x\namount=%2\ncurrency=EUR\n")
                                  << u"wrong value: amount=%252"_s;
}

void TestOrderReader::malformedDocumentIsRefused()
{
    QFETCH(const QByteArray, document);
    QFETCH(const QString, reason);
    QCOMPARE(refusal(document), reason);
}

void TestOrderReader::longestDocumentIsRead()
{
    QByteArray document = withAmount("1") + "# ";
    document.append(intake::OrderReader::MaxDocumentSize - document.size(), 'x');
    QCOMPARE(refusal(document), QString());
    QCOMPARE(refusal(document + 'x'), u"more than 65536 bytes"_s);
}

void TestOrderReader::longDocumentIsNotReadToItsEnd()
{
    QByteArray document(10'000'000, 'x');
    QBuffer buffer(&document);
    QVERIFY(buffer.open(QBuffer::ReadOnly | QBuffer::Unbuffered));
    QVERIFY_EXCEPTION_THROWN(KeyValueOrderReader().read(buffer), MalformedOrder);
    QCOMPARE(buffer.pos(), intake::OrderReader::MaxDocumentSize + 1);
}

QTEST_GUILESS_MAIN(TestOrderReader)
#include "tst_orderreader.moc"
