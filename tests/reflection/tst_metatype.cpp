// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/metatype.h>

#include <QTest>

#include <climits>

class TestMetaType : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void defaultHasNoNameAndZeroIds()
    {
        const MetaType type;
        QVERIFY(type.className().isEmpty());
        QCOMPARE(type.invariantId(), 0);
        QCOMPARE(type.typeId(), 0);
        QCOMPARE(type.toString(),
                 QStringLiteral(u"classe : , id invariant = 0, id enregistré = 0"));
    }

    void fieldsAreThoseGiven()
    {
        const MetaType type(QStringLiteral("Order"), 10000, 1234);
        QCOMPARE(type.className(), QStringLiteral("Order"));
        QCOMPARE(type.invariantId(), 10000);
        QCOMPARE(type.typeId(), 1234);
    }

    void copiesAreValues()
    {
        MetaType type(QStringLiteral("Order"), 10000, 1234);
        const MetaType copy = type;
        type = MetaType(QStringLiteral("Receipt"), 1, 2);
        QCOMPARE(copy.toString(), MetaType(QStringLiteral("Order"), 10000, 1234).toString());
        QCOMPARE(type.className(), QStringLiteral("Receipt"));
    }

    void toString_data()
    {
        QTest::addColumn<MetaType>("type");
        QTest::addColumn<QString>("text");
        const auto row = [](const char* name, const MetaType& type, const char16_t* text) {
            QTest::newRow(name) << type << QString::fromUtf16(text);
        };
        row("ordinary", MetaType(QStringLiteral("A"), 10000, 1234),
            u"classe : A, id invariant = 10000, id enregistré = 1234");
        row("negative ids", MetaType(QStringLiteral("A"), -1, INT_MIN),
            u"classe : A, id invariant = -1, id enregistré = -2147483648");
        row("a name with place markers", MetaType(QStringLiteral("%2%3%1"), 1, 2),
            u"classe : %2%3%1, id invariant = 1, id enregistré = 2");
    }
    void toString()
    {
        QFETCH(MetaType, type);
        QTEST(type.toString(), "text");
    }
};

QTEST_GUILESS_MAIN(TestMetaType)
#include "tst_metatype.moc"
