// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/service/configsection.h>

#include <QtTest>

using namespace KezService;

using Entries = QMap<QString, QString>;

namespace {

Entries entriesOf(const Properties& properties)
{
    return *properties.toDictionnary();
}

} // namespace

class TestConfigSection : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void sectionHoldsItsEntriesWithoutTheName_data();
    void sectionHoldsItsEntriesWithoutTheName();
    void sectionIsACopy();
    void sectionsWithAGroup_data();
    void sectionsWithAGroup();
    void everyOneOfManySectionsIsFound();
};

void TestConfigSection::sectionHoldsItsEntriesWithoutTheName_data()
{
    QTest::addColumn<Entries>("all");
    QTest::addColumn<QString>("name");
    QTest::addColumn<Entries>("expected");
    const Entries usual = {
        {"audit.log.filename", "/a"}, {"audit.log.kept", "3"}, {"auditor.log.kept", "4"},
        {"Audit.log.kept", "5"},      {"audit", "6"},          {"log.kept", "7"},
        {"x.audit.log.kept", "8"},    {"audit-log.kept", "9"}};
    QTest::newRow("usual") << usual << "audit"
                           << Entries{{"log.filename", "/a"}, {"log.kept", "3"}};
    QTest::newRow("absent") << usual << "billing" << Entries{};
    QTest::newRow("name with a dot")
        << usual << "audit.log" << Entries{{"filename", "/a"}, {"kept", "3"}};
    QTest::newRow("last in order") << usual << "x" << Entries{{"audit.log.kept", "8"}};
    QTest::newRow("nothing after the dot") << Entries{{"a.", "1"}} << "a" << Entries{{"", "1"}};
    QTest::newRow("empty name") << Entries{{".b", "1"}, {"b", "2"}} << "" << Entries{{"b", "1"}};
    QTest::newRow("no entries") << Entries{} << "a" << Entries{};
    QTest::newRow("beyond ASCII") << Entries{{"größe.ä", "1"}, {"größe.\U0001F4DC", "2"}} << "größe"
                                  << Entries{{"ä", "1"}, {"\U0001F4DC", "2"}};
}

void TestConfigSection::sectionHoldsItsEntriesWithoutTheName()
{
    QFETCH(const Entries, all);
    QFETCH(const QString, name);
    QTEST(entriesOf(section(Properties(all), name)), "expected");
}

void TestConfigSection::sectionIsACopy()
{
    Properties all(Entries{{"audit.a", "1"}});
    Properties audit = section(all, "audit");
    audit.insert("a", "2", true);
    audit.insert("b", "3");
    QCOMPARE(entriesOf(all), (Entries{{"audit.a", "1"}}));
}

void TestConfigSection::sectionsWithAGroup_data()
{
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<QStringList>("names");
    QTest::newRow("none") << QStringList{"log.filename", "app.version", "a.logs.x", "alog.x"}
                          << QStringList{};
    QTest::newRow("each once, in order")
        << QStringList{"b.log.kept", "a.log.filename", "b.log.filename"} << QStringList{"a", "b"};
    QTest::newRow("also with a key that nobody reads")
        << QStringList{"a.log.filname"} << QStringList{"a"};
    QTest::newRow("names with dots") << QStringList{"shop.eu.log.kept", "shop.log.banner.title"}
                                     << QStringList{"shop", "shop.eu"};
    QTest::newRow("without a name") << QStringList{".log.filename"} << QStringList{};
    QTest::newRow("the last one counts")
        << QStringList{"a.log.log.kept", "log.log.kept"} << QStringList{"a.log", "log"};
    QTest::newRow("order of whole names")
        << QStringList{"a.log.kept", "a-b.log.kept", "a.c.log.kept"}
        << QStringList{"a", "a-b", "a.c"};
}

void TestConfigSection::sectionsWithAGroup()
{
    QFETCH(const QStringList, keys);
    Properties all;
    for (const QString& key : keys)
        all.insert(key, "x");
    QTEST(sectionsWith(all, "log"), "names");
}

void TestConfigSection::everyOneOfManySectionsIsFound()
{
    Properties all;
    for (int i = 0; i < 50000; ++i) {
        all.insert(QString("section%1.log.kept").arg(i), QString::number(i));
        all.insert(QString("section%1.other").arg(i), "x");
    }
    const QStringList names = sectionsWith(all, "log");
    QCOMPARE(names.size(), 50000);
    for (const QString& name : names)
        QCOMPARE(section(all, name).size(), 2);
}

QTEST_GUILESS_MAIN(TestConfigSection)
#include "tst_configsection.moc"
