// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/queuefixture.h"
#include "support/failuretext.h"

#include <kez/FileEntry.h>

#include <QTest>

#include <limits>
#include <type_traits>

static_assert(!std::is_base_of_v<QObject, FileEntry>);

class FileEntryTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void keepsItsName_data();
    void keepsItsName();
    void allFlagsAreClearAtFirst();
    void entryWithoutFlagsIsAllConsumed_data();
    void entryWithoutFlagsIsAllConsumed();
    void isConsumedOutOfRangeThrows_data();
    void isConsumedOutOfRangeThrows();
    void settersIgnoreIndexOutOfRange_data();
    void settersIgnoreIndexOutOfRange();
    void settersChangeOneFlag();
    void settersMayBeRepeated();
    void allConsumedNeedsEveryFlag();
    void appendedFlagIsClear();
    void appendedFlagsExtendTheRange();
    void manyFlags();
};

void FileEntryTest::keepsItsName_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("plain") << QStringLiteral("a.dat");
    QTest::newRow("empty") << QString();
    QTest::newRow("spaces and accents") << QStringLiteral(" été à l'œuvre .txt ");
    QTest::newRow("newline") << QStringLiteral("a\nb");
    QTest::newRow("place holders") << QStringLiteral("%1%2");
    QTest::newRow("outside the basic plane") << QStringLiteral("\U0001F4C1");
}

void FileEntryTest::keepsItsName()
{
    QFETCH(QString, name);
    const FileEntry entry(name, 1);
    QCOMPARE(entry.fileName(), name);
}

void FileEntryTest::allFlagsAreClearAtFirst()
{
    const FileEntry entry(QStringLiteral("a"), 3);
    QVERIFY(!entry.isConsumed(0));
    QVERIFY(!entry.isConsumed(1));
    QVERIFY(!entry.isConsumed(2));
    QVERIFY(!entry.allConsumed());
}

void FileEntryTest::entryWithoutFlagsIsAllConsumed_data()
{
    QTest::addColumn<int>("count");
    QTest::newRow("none") << 0;
    QTest::newRow("below none") << -1;
    QTest::newRow("far below none") << std::numeric_limits<int>::min();
}

void FileEntryTest::entryWithoutFlagsIsAllConsumed()
{
    QFETCH(int, count);
    const FileEntry entry(QStringLiteral("a"), count);
    QVERIFY(entry.allConsumed());
    QCOMPARE(failureText([&] { entry.isConsumed(0); }),
             QStringLiteral("bool FileEntry::isConsumed(int) -> "
                            "Indice 0 hors intervalle [0..-1]"));
}

void FileEntryTest::isConsumedOutOfRangeThrows_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("detail");
    const QString prefix = QStringLiteral("bool FileEntry::isConsumed(int) -> ");
    QTest::newRow("first beyond") << 3 << prefix + "Indice 3 hors intervalle [0..2]";
    QTest::newRow("first below") << -1 << prefix + "Indice -1 hors intervalle [0..2]";
    QTest::newRow("largest") << std::numeric_limits<int>::max()
                             << prefix + "Indice 2147483647 hors intervalle [0..2]";
    QTest::newRow("smallest") << std::numeric_limits<int>::min()
                              << prefix + "Indice -2147483648 hors intervalle [0..2]";
}

void FileEntryTest::isConsumedOutOfRangeThrows()
{
    QFETCH(int, index);
    const FileEntry entry(QStringLiteral("a"), 3);
    try {
        entry.isConsumed(index);
        QFAIL("no exception");
    } catch (const Exception& failure) {
        QTEST(failure.detail(), "detail");
        QVERIFY(!failure.parent());
    }
}

void FileEntryTest::settersIgnoreIndexOutOfRange_data()
{
    QTest::addColumn<int>("index");
    QTest::newRow("first beyond") << 3;
    QTest::newRow("beyond") << 5;
    QTest::newRow("first below") << -1;
    QTest::newRow("largest") << std::numeric_limits<int>::max();
    QTest::newRow("smallest") << std::numeric_limits<int>::min();
}

void FileEntryTest::settersIgnoreIndexOutOfRange()
{
    QFETCH(int, index);
    FileEntry entry(QStringLiteral("a"), 3);
    entry.enableUptakeFlag(index);
    for (int i = 0; i < 3; ++i)
        QVERIFY(!entry.isConsumed(i));

    for (int i = 0; i < 3; ++i)
        entry.enableUptakeFlag(i);
    entry.disableUptakeFlag(index);
    QVERIFY(entry.allConsumed());
    QVERIFY(!failureText([&] { entry.isConsumed(3); }).isNull());
}

void FileEntryTest::settersChangeOneFlag()
{
    FileEntry entry(QStringLiteral("a"), 3);
    entry.enableUptakeFlag(1);
    QVERIFY(!entry.isConsumed(0));
    QVERIFY(entry.isConsumed(1));
    QVERIFY(!entry.isConsumed(2));

    entry.enableUptakeFlag(0);
    entry.enableUptakeFlag(2);
    entry.disableUptakeFlag(1);
    QVERIFY(entry.isConsumed(0));
    QVERIFY(!entry.isConsumed(1));
    QVERIFY(entry.isConsumed(2));
}

void FileEntryTest::settersMayBeRepeated()
{
    FileEntry entry(QStringLiteral("a"), 1);
    entry.enableUptakeFlag(0);
    entry.enableUptakeFlag(0);
    QVERIFY(entry.isConsumed(0));
    entry.disableUptakeFlag(0);
    entry.disableUptakeFlag(0);
    QVERIFY(!entry.isConsumed(0));
}

void FileEntryTest::allConsumedNeedsEveryFlag()
{
    FileEntry entry(QStringLiteral("a"), 3);
    entry.enableUptakeFlag(2);
    QVERIFY(!entry.allConsumed());
    entry.enableUptakeFlag(0);
    QVERIFY(!entry.allConsumed());
    entry.enableUptakeFlag(1);
    QVERIFY(entry.allConsumed());
    entry.disableUptakeFlag(0);
    QVERIFY(!entry.allConsumed());
}

void FileEntryTest::appendedFlagIsClear()
{
    FileEntry entry(QStringLiteral("a"), 2);
    entry.enableUptakeFlag(0);
    entry.enableUptakeFlag(1);
    QVERIFY(entry.allConsumed());

    entry.appendConsumerFlag();
    QVERIFY(!entry.allConsumed());
    QVERIFY(entry.isConsumed(0));
    QVERIFY(entry.isConsumed(1));
    QVERIFY(!entry.isConsumed(2));

    entry.enableUptakeFlag(2);
    QVERIFY(entry.allConsumed());
}

void FileEntryTest::appendedFlagsExtendTheRange()
{
    FileEntry entry(QStringLiteral("a"), -4);
    entry.appendConsumerFlag();
    QVERIFY(!entry.isConsumed(0));
    QVERIFY(!entry.allConsumed());
    QCOMPARE(failureText([&] { entry.isConsumed(1); }),
             QStringLiteral("bool FileEntry::isConsumed(int) -> "
                            "Indice 1 hors intervalle [0..0]"));
}

void FileEntryTest::manyFlags()
{
    constexpr int Count = 10000;
    FileEntry entry(QStringLiteral("a"), Count);
    for (int i = 0; i < Count; ++i) {
        QVERIFY(!entry.allConsumed());
        entry.enableUptakeFlag(i);
    }
    QVERIFY(entry.allConsumed());
}

QTEST_GUILESS_MAIN(FileEntryTest)
#include "tst_FileEntry.moc"
