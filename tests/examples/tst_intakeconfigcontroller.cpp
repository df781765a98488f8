// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "intakefixture.h"
#include "settings.h"
#include "texts.h"

#include <kez/translator.h>

using namespace Qt::StringLiterals;

namespace {

Properties legalProperties(const IntakeFixture& fixture)
{
    Properties properties;
    properties.insert(u"log.filename"_s, fixture.path("log/intake"));
    properties.insert(u"queue.path"_s, fixture.path("spool"));
    properties.insert(u"archive.path"_s, fixture.path("archive"));
    properties.insert(u"ledger.path"_s, fixture.path("ledger.csv"));
    return properties;
}

} // namespace

class TestIntakeConfigController : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void correctedConfigurationIsLegal();
    void faultyConfigurationIsRefusedEachTime();
    void missingConfigurationIsRefused();
};

void TestIntakeConfigController::initTestCase()
{
    intake::loadTexts();
    Translator::getInstance()->setDefaultLang(u"en_US"_s);
}

void TestIntakeConfigController::correctedConfigurationIsLegal()
{
    const IntakeFixture fixture;
    Properties properties = legalProperties(fixture);
    properties.setValue(u"archive.path"_s, fixture.path("nowhere"));
    intake::IntakeConfigController controller;
    QVERIFY(!controller.isLegalConfiguration(&properties));
    const QStringList faults = controller.errors();
    QCOMPARE(faults.size(), 1);

    properties.setValue(u"archive.path"_s, fixture.path("archive"));
    QVERIFY(controller.isLegalConfiguration(&properties));
    QCOMPARE(controller.errors(), faults); // the list keeps the faults of both runs
}

void TestIntakeConfigController::faultyConfigurationIsRefusedEachTime()
{
    const IntakeFixture fixture;
    Properties properties = legalProperties(fixture);
    properties.insert(u"lang"_s, u"xx"_s);
    intake::IntakeConfigController controller;
    QVERIFY(!controller.isLegalConfiguration(&properties));
    QVERIFY(!controller.isLegalConfiguration(&properties));
    QCOMPARE(controller.errors().size(), 2);
}

void TestIntakeConfigController::missingConfigurationIsRefused()
{
    intake::IntakeConfigController controller;
    QVERIFY(!controller.isLegalConfiguration(nullptr));
    QCOMPARE(controller.errors(), QStringList{u"The configuration is not defined"_s});
}

QTEST_GUILESS_MAIN(TestIntakeConfigController)
#include "tst_intakeconfigcontroller.moc"
