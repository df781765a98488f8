// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/iconfigcontroller.h>
#include <kez/properties.h>

#include <QObject>
#include <QPointer>
#include <QTest>

#include <type_traits>

static_assert(std::is_abstract_v<IConfigController>);
static_assert(std::has_virtual_destructor_v<IConfigController>);
static_assert(std::is_base_of_v<QObject, IConfigController>);

namespace {

/// Requires a key "name" and reports each fault once.
class NameController : public IConfigController {
    Q_OBJECT

public:
    using IConfigController::IConfigController;

    bool isLegalConfiguration(Properties* properties) override
    {
        if (properties && properties->contains("name"))
            return true;
        insertError(properties ? "no name" : "no configuration");
        return false;
    }
};

/// Replaces every virtual member.
class SilentController : public IConfigController {
    Q_OBJECT

public:
    bool isLegalConfiguration(Properties*) override { return true; }
    QStringList errors() override { return {"mine"}; }
    void insertError(const QString& error) override { last = error; }
    QString errorsToString(const QString& separator) override { return separator + last; }

    QString last;
};

} // namespace

class TestIConfigController : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void beginsWithoutErrors();
    void hasAMetaObjectOfItsOwn();
    void belongsToItsParent();
    void errorsKeepTheirOrderAndRepetitions();
    void errorsIsACopy();
    void errorsToString_data();
    void errorsToString();
    void errorsToStringOf100000Errors();
    void secondCheckAddsItsErrors();
    void virtualMembersAreCalled();
};

void TestIConfigController::beginsWithoutErrors()
{
    NameController controller;
    QCOMPARE(controller.errors(), QStringList());
    QVERIFY(!controller.parent());
}

void TestIConfigController::hasAMetaObjectOfItsOwn()
{
    QCOMPARE(IConfigController::staticMetaObject.className(), "IConfigController");
    QCOMPARE(IConfigController::staticMetaObject.superClass(), &QObject::staticMetaObject);
    NameController controller;
    QVERIFY(controller.inherits("IConfigController"));
    QObject* const object = &controller;
    QVERIFY(qobject_cast<IConfigController*>(object));
}

void TestIConfigController::belongsToItsParent()
{
    QPointer<NameController> controller;
    {
        QObject parent;
        controller = new NameController(&parent);
        QCOMPARE(controller->parent(), &parent);
    }
    QVERIFY(controller.isNull());
}

void TestIConfigController::errorsKeepTheirOrderAndRepetitions()
{
    NameController controller;
    const QStringList errors{"b", "a", "", "b", " c\n"};
    for (const QString& error : errors)
        controller.insertError(error);
    QCOMPARE(controller.errors(), errors);
}

void TestIConfigController::errorsIsACopy()
{
    NameController controller;
    controller.insertError("a");
    QStringList errors = controller.errors();
    errors.append("b");
    QCOMPARE(controller.errors(), QStringList("a"));
}

void TestIConfigController::errorsToString_data()
{
    QTest::addColumn<QStringList>("errors");
    QTest::addColumn<QString>("separator");
    QTest::addColumn<QString>("expected");

    const auto row = [](const char* name, const QStringList& errors, const char* separator,
                        const char* expected) {
        QTest::newRow(name) << errors << QString(separator) << QString(expected);
    };
    row("no error", {}, "; ", "");
    row("one error", {"a"}, "; ", "a");
    row("three errors", {"a", "b", "c"}, "; ", "a; b; c");
    row("empty separator", {"a", "b"}, "", "ab");
    row("line feed", {"a", "b"}, "\n", "a\nb");
    row("only an empty error", {""}, "; ", "");
    row("empty error first", {"", "b"}, "; ", "b");
    row("two empty errors first", {"", "", "b"}, "; ", "b");
    row("empty error in the middle", {"a", "", "b"}, "; ", "a; ; b");
    row("empty error last", {"a", ""}, "; ", "a; ");
    row("blank error first", {" ", "b"}, ";", " ;b");
    row("the separator inside an error", {"a;b", "c"}, ";", "a;b;c");
    row("place markers", {"%1", "%2"}, "%1", "%1%1%2");
}

void TestIConfigController::errorsToString()
{
    QFETCH(QStringList, errors);
    QFETCH(QString, separator);
    QFETCH(QString, expected);
    NameController controller;
    for (const QString& error : errors)
        controller.insertError(error);
    QCOMPARE(controller.errorsToString(separator), expected);
    QCOMPARE(controller.errors(), errors);
}

void TestIConfigController::errorsToStringOf100000Errors()
{
    NameController controller;
    for (int i = 0; i < 100000; ++i)
        controller.insertError("error");
    const QString text = controller.errorsToString("\n");
    QCOMPARE(text.size(), 100000 * 6 - 1);
    QCOMPARE(text.count('\n'), 99999);
}

void TestIConfigController::secondCheckAddsItsErrors()
{
    NameController controller;
    Properties empty;
    QVERIFY(!controller.isLegalConfiguration(&empty));
    QVERIFY(!controller.isLegalConfiguration(nullptr));
    const QStringList expected{"no name", "no configuration"};
    QCOMPARE(controller.errors(), expected);

    Properties named(QMap<QString, QString>{{"name", ""}});
    QVERIFY(controller.isLegalConfiguration(&named));
    QCOMPARE(controller.errors(), expected);
}

void TestIConfigController::virtualMembersAreCalled()
{
    SilentController silent;
    IConfigController& controller = silent;
    QVERIFY(controller.isLegalConfiguration(nullptr));
    QCOMPARE(controller.errors(), QStringList("mine"));
    controller.insertError("e");
    QCOMPARE(silent.last, "e");
    QCOMPARE(controller.errorsToString("; "), "; e");
}

QTEST_GUILESS_MAIN(TestIConfigController)

#include "tst_iconfigcontroller.moc"
