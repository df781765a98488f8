// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "intakefixture.h"
#include "ledger.h"
#include "support/messagecapture.h"
#include "texts.h"

#include <kez/exception.h>
#include <kez/translator.h>

#include <QDateTime>
#include <QRegularExpression>
#include <QSet>

using namespace Qt::StringLiterals;
using intake::Ledger;

namespace {

const intake::Order SomeOrder{u"C-1"_s, u"Étienne; Durand"_s, 1250, u"EUR"_s};
const QByteArray WholeLine(
    "2026-01-02T03:04:05.678Z;a.xml;0f3c2a9e-51b7-4c0d-9a2e-7b4f10c3d8e1;C-1;x;1.00;EUR\n");

bool isReceipt(const QByteArray& text)
{
    static const QRegularExpression form(u"^[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$"_s);
    return form.match(QString::fromLatin1(text)).hasMatch();
}

} // namespace

class TestLedger : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void lineHoldsTheOrder();
    void amountIsWrittenAsDecimal_data();
    void amountIsWrittenAsDecimal();
    void receiptsDifferAcrossRestarts();
    void namesAreFoundAgain();
    void endIsRepaired_data();
    void endIsRepaired();
    void noiseIsNotABooking();
    void secondOpeningIsRefused();
    void missingDirectoryIsRefused();
    void failedAppendAddsNothing();

private:
    std::unique_ptr<QTemporaryDir> _directory;
    QString _path;
};

void TestLedger::initTestCase()
{
    intake::loadTexts();
    Translator::getInstance()->setDefaultLang(u"en_US"_s);
}

void TestLedger::init()
{
    _directory = std::make_unique<QTemporaryDir>();
    _path = _directory->filePath(u"ledger.csv"_s);
}

void TestLedger::lineHoldsTheOrder()
{
    const QDateTime before = QDateTime::currentDateTimeUtc();
    Ledger ledger(_path);
    ledger.append(u"a;b\n.xml"_s, SomeOrder);
    const QList<QByteArray> fields = readFile(_path).split(';');
    QCOMPARE(fields.size(), 7);
    const QDateTime time =
        QDateTime::fromString(QString::fromUtf8(fields.at(0)), Qt::ISODateWithMs);
    QVERIFY(time >= before.addMSecs(-1) && time <= QDateTime::currentDateTimeUtc());
    QVERIFY(fields.at(0).endsWith('Z'));
    QCOMPARE(fields.at(1), QByteArray("a%3Bb%0A.xml"));
    QVERIFY2(isReceipt(fields.at(2)), fields.at(2).constData());
    QCOMPARE(fields.mid(3), QList<QByteArray>({"C-1", "Étienne%3B Durand", "12.50", "EUR\n"}));
}

void TestLedger::amountIsWrittenAsDecimal_data()
{
    QTest::addColumn<qint64>("amount");
    QTest::addColumn<QByteArray>("text");
    const auto row = [](const char* text, qint64 amount) {
        QTest::newRow(text) << amount << QByteArray(text);
    };
    row("0.00", 0);
    row("0.05", 5);
    row("-0.05", -5);
    row("1.00", 100);
    row("-12.34", -1234);
    row("999999999.99", 99999999999);
}

void TestLedger::amountIsWrittenAsDecimal()
{
    QFETCH(const qint64, amount);
    QFETCH(const QByteArray, text);
    Ledger ledger(_path);
    auto order = SomeOrder;
    order.amount = amount;
    ledger.append(u"a.xml"_s, order);
    QCOMPARE(readFile(_path).split(';').value(5), text);
}

void TestLedger::receiptsDifferAcrossRestarts()
{
    QSet<QByteArray> receipts;
    for (int start = 0; start < 3; ++start) {
        Ledger ledger(_path);
        for (int number = 0; number < 10; ++number)
            ledger.append(u"%1-%2"_s.arg(start).arg(number), SomeOrder);
    }
    for (const QByteArray& line : readFile(_path).trimmed().split('\n'))
        receipts.insert(line.split(';').value(2));
    QCOMPARE(receipts.size(), 30);
}

void TestLedger::namesAreFoundAgain()
{
    {
        Ledger ledger(_path);
        QVERIFY(ledger.orderBookedFor(u"a;b"_s).isNull());
        ledger.append(u"a;b"_s, SomeOrder);
        QCOMPARE(ledger.orderBookedFor(u"a;b"_s), u"C-1"_s);
    }
    const MessageCapture capture;
    const Ledger again(_path);
    QCOMPARE(again.orderBookedFor(u"a;b"_s), u"C-1"_s);
    QVERIFY(again.orderBookedFor(u"a"_s).isNull());
    QCOMPARE(capture.texts(), QStringList());
}

void TestLedger::endIsRepaired_data()
{
    QTest::addColumn<QByteArray>("end");
    QTest::addColumn<QByteArray>("repaired");
    QTest::addColumn<bool>("isBooked");
    const QByteArray start = "t;b.xml;0f3c2a9e-51b7-4c0d-9a2e-7b4f10c3d8e1";
    const auto row = [&](const char* name, const QByteArray& end, bool isBooked) {
        const QByteArray repaired = end.endsWith('\n') ? end : end + '\n';
        QTest::newRow(name) << end << (isBooked ? repaired : QByteArray()) << isBooked;
    };
    row("whole", start + ";C-2;x;1.00;EUR\n", true);
    row("only the line end is missing", start + ";C-2;x;1.00;EUR", true);
    row("in the currency", start + ";C-2;x;1.00;EU", false);
    row("before the currency", start + ";C-2;x;1.00;", false);
    row("after the amount", start + ";C-2;x;1.00", false);
    row("after the receipt", start, false);
    row("in the name", "t;b.x", false);
    row("one byte", "t", false);
}

void TestLedger::endIsRepaired()
{
    QFETCH(const QByteArray, end);
    QFETCH(const QByteArray, repaired);
    QFETCH(const bool, isBooked);
    QVERIFY(writeFile(_path, WholeLine + end));
    const MessageCapture capture;
    const Ledger ledger(_path);
    QCOMPARE(readFile(_path), WholeLine + repaired);
    QCOMPARE(ledger.orderBookedFor(u"b.xml"_s), isBooked ? u"C-2"_s : QString());
    QCOMPARE(ledger.orderBookedFor(u"a.xml"_s), u"C-1"_s);
    const QString told = u"Ledger: unfinished end of line removed [%1]"_s.arg(
        intake::printable(QString::fromUtf8(end)));
    QCOMPARE(capture.texts().size(), isBooked ? 0 : 1);
    QVERIFY(isBooked || capture.texts().first().contains(told));
}

void TestLedger::noiseIsNotABooking()
{
    const QByteArray noise =
        QByteArray("\x00\xff;\xfe;;;;\n", 9) + QByteArray(10'000'000, ';') +
        "\nb.xml\n;b.xml;;;;\nt;b.xml;r;;c;1.00;EUR\nt;b.xml;r;n;c;1.00;EUR;\n";
    QVERIFY(writeFile(_path, noise + WholeLine));
    const Ledger ledger(_path);
    QCOMPARE(ledger.orderBookedFor(u"a.xml"_s), u"C-1"_s);
    QVERIFY(ledger.orderBookedFor(u"b.xml"_s).isNull());
    QCOMPARE(readFile(_path), noise + WholeLine);
}

void TestLedger::secondOpeningIsRefused()
{
    const Ledger ledger(_path);
    QVERIFY_EXCEPTION_THROWN(Ledger{_path}, Exception);
}

void TestLedger::missingDirectoryIsRefused()
{
    QVERIFY_EXCEPTION_THROWN(Ledger{_directory->filePath(u"none/ledger.csv"_s)}, Exception);
}

void TestLedger::failedAppendAddsNothing()
{
    if (!QFile::exists(u"/dev/full"_s))
        QSKIP("no /dev/full here");
    QVERIFY(QFile::link(u"/dev/full"_s, _path));
    Ledger ledger(_path);
    QVERIFY_EXCEPTION_THROWN(ledger.append(u"a.xml"_s, SomeOrder), Exception);
    QVERIFY(ledger.orderBookedFor(u"a.xml"_s).isNull());
}

QTEST_GUILESS_MAIN(TestLedger)
#include "tst_ledger.moc"
