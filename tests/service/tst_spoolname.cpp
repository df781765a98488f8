// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/kittexts_p.h"
#include "service/spoolname_p.h"

#include <QSet>
#include <QtTest>

using namespace KezService;

class TestSpoolName : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void nameIsAllowed_data();
    void nameIsAllowed();
    void nameIsRefused_data();
    void nameIsRefused();
    void nameOnDiskIsDecoded_data();
    void nameOnDiskIsDecoded();
    void bytesThatAreNotUtf8AreEscaped();
    void temporaryNamesAreKnown_data();
    void temporaryNamesAreKnown();
    void numberGoesBeforeTheLastSuffix_data();
    void numberGoesBeforeTheLastSuffix();
    void firstNumberOnlyCuts();
    void numberedNameStaysWithinTheLimit_data();
    void numberedNameStaysWithinTheLimit();
};

void TestSpoolName::nameIsAllowed_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("ordinary") << "order.xml";
    QTest::newRow("French") << QString::fromUtf8("commande n° 1 été.xml");
    QTest::newRow("line feed") << "a\nb";
    QTest::newRow("dash at the beginning") << "-rf";
    QTest::newRow("as a temporary one") << "a.tmp";
    QTest::newRow("beyond the first plane") << QString::fromUtf8("\xF0\x9F\x93\xA6.xml");
    QTest::newRow("255 bytes") << QString(255, 'a');
    QTest::newRow("255 bytes of UTF-8") << QString(127, QChar(0xE9)) + 'a';
    QTest::newRow("byte order mark") << QString(QChar(0xFEFF)) + "a";
}

void TestSpoolName::nameIsAllowed()
{
    QFETCH(const QString, name);
    QCOMPARE(SpoolName::fault(name), QString());
}

void TestSpoolName::nameIsRefused_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("reason");
    QTest::newRow("empty") << "" << kitText("DeliveryNameEmpty");
    QTest::newRow("hidden") << ".a" << kitText("DeliveryNameHidden");
    QTest::newRow("this directory") << "." << kitText("DeliveryNameHidden");
    QTest::newRow("the directory above") << "../a" << kitText("DeliveryNameHidden");
    QTest::newRow("slash") << "a/b" << kitText("DeliveryNameSlash");
    QTest::newRow("absolute") << "/a" << kitText("DeliveryNameSlash");
    QTest::newRow("zero character") << QString("a") + QChar(0) + "b" << kitText("DeliveryNameZero");
    QTest::newRow("half a character")
        << QString("a") + QChar(0xD83D) << kitText("DeliveryNameNotUtf8");
    QTest::newRow("256 bytes") << QString(256, 'a') << kitText("DeliveryNameLong", QString("256"));
    QTest::newRow("256 bytes of UTF-8")
        << QString(128, QChar(0xE9)) << kitText("DeliveryNameLong", QString("256"));
}

void TestSpoolName::nameIsRefused()
{
    QFETCH(const QString, name);
    QTEST(SpoolName::fault(name), "reason");
}

void TestSpoolName::nameOnDiskIsDecoded_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("isUtf8");
    QTest::newRow("ASCII") << QByteArray("order.xml") << true;
    QTest::newRow("UTF-8") << QByteArray("\xC3\xA9t\xC3\xA9") << true;
    QTest::newRow("byte order mark") << QByteArray("\xEF\xBB\xBF"
                                                   "a")
                                     << true;
    QTest::newRow("replacement character") << QByteArray("\xEF\xBF\xBD") << true;
    QTest::newRow("Latin-1") << QByteArray("\xE9t\xE9") << false;
    QTest::newRow("cut off") << QByteArray("a\xC3") << false;
    QTest::newRow("half a surrogate pair") << QByteArray("\xED\xA0\xBD") << false;
    QTest::newRow("too long a form") << QByteArray("\xC0\xAF") << false;
}

void TestSpoolName::nameOnDiskIsDecoded()
{
    QFETCH(const QByteArray, bytes);
    QFETCH(const bool, isUtf8);
    const auto name = SpoolName::decoded(bytes);
    QCOMPARE(name.has_value(), isUtf8);
    if (name)
        QCOMPARE(name->toUtf8(), bytes);
    if (name)
        QCOMPARE(SpoolName::shown(bytes), *name);
    else
        QVERIFY(SpoolName::shown(bytes).contains('\\'));
}

void TestSpoolName::bytesThatAreNotUtf8AreEscaped()
{
    QCOMPARE(SpoolName::shown("\xE9t\xE9.xml"), QString("\\xe9t\\xe9.xml"));
}

void TestSpoolName::temporaryNamesAreKnown_data()
{
    QTest::addColumn<bool>("isTemporary");
    for (const char* name : {".x", ".x.xml", "x.part", "x.tmp", "x~", "x.xml~", "."})
        QTest::newRow(name) << true;
    for (const char* name : {"x", "x.xml", "x.part.xml", "tmp", "part", "x.TMP", "x~2.xml", "a.x"})
        QTest::newRow(name) << false;
}

void TestSpoolName::temporaryNamesAreKnown()
{
    QTEST(SpoolName::isTemporary(QTest::currentDataTag()), "isTemporary");
}

void TestSpoolName::numberGoesBeforeTheLastSuffix_data()
{
    QTest::addColumn<QByteArray>("fresh");
    QTest::newRow("order.xml") << QByteArray("order~2.xml");
    QTest::newRow("order") << QByteArray("order~2");
    QTest::newRow("a.tar.gz") << QByteArray("a.tar~2.gz");
    QTest::newRow("a.") << QByteArray("a~2.");
    QTest::newRow("order~2.xml") << QByteArray("order~2~2.xml");
}

void TestSpoolName::numberGoesBeforeTheLastSuffix()
{
    QTEST(SpoolName::numbered(QTest::currentDataTag(), 2), "fresh");
}

void TestSpoolName::firstNumberOnlyCuts()
{
    QCOMPARE(SpoolName::numbered("order.xml", 1, 251), QByteArray("order.xml"));
    QCOMPARE(SpoolName::numbered("order.xml", 1, 8), QByteArray("orde.xml"));
    QCOMPARE(SpoolName::numbered("order.xml", 2, 10), QByteArray("orde~2.xml"));
}

void TestSpoolName::numberedNameStaysWithinTheLimit_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("end");
    QTest::newRow("ASCII") << QByteArray(251, 'a') + ".xml" << QByteArray(".xml");
    QTest::newRow("two bytes each")
        << QByteArray("\xC3\xA9").repeated(125) + ".xml!" << QByteArray(".xml!");
    QTest::newRow("two bytes each, shifted")
        << 'a' + QByteArray("\xC3\xA9").repeated(125) + ".xml" << QByteArray(".xml");
    QTest::newRow("four bytes each")
        << QByteArray("\xF0\x9F\x93\xA6").repeated(62) + ".xml" << QByteArray(".xml");
    QTest::newRow("no suffix") << QByteArray("\xE2\x82\xAC").repeated(85) << QByteArray();
    QTest::newRow("nearly all suffix") << "a." + QByteArray(253, 's') << QByteArray();
    QTest::newRow("suffix of 240 bytes")
        << QByteArray(14, 'a') + '.' + QByteArray(240, 's') << '.' + QByteArray(240, 's');
}

void TestSpoolName::numberedNameStaysWithinTheLimit()
{
    QFETCH(const QByteArray, name);
    QFETCH(const QByteArray, end);
    QSet<QByteArray> seen;
    for (const quint64 number : {2, 9, 10, 99, 100, 123456789}) {
        const QByteArray fresh = SpoolName::numbered(name, number);
        QVERIFY2(fresh.size() <= 255, fresh.constData());
        QVERIFY(fresh.size() > 240);
        QVERIFY2(fresh.endsWith('~' + QByteArray::number(number) + end), fresh.constData());
        QVERIFY2(SpoolName::decoded(fresh), fresh.constData());
        QCOMPARE(SpoolName::fault(QString::fromUtf8(fresh)), QString());
        seen.insert(fresh);
    }
    QCOMPARE(seen.size(), 6);
}

QTEST_GUILESS_MAIN(TestSpoolName)
#include "tst_spoolname.moc"
