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
    void init();
    void correctedConfigurationIsLegal();
    void faultyConfigurationIsRefusedEachTime();
    void missingConfigurationIsRefused();
    void relativePathsStartAtTheDirectory();
    void languageIsThatOfTheConfiguration();
};

void TestIntakeConfigController::initTestCase()
{
    intake::loadTexts();
}

void TestIntakeConfigController::init()
{
    Translator::getInstance()->setDefaultLang(u"en_US"_s);
}

void TestIntakeConfigController::correctedConfigurationIsLegal()
{
    const IntakeFixture fixture;
    Properties properties = legalProperties(fixture);
    properties.setValue(u"archive.path"_s, fixture.path("nowhere"));
    intake::IntakeConfigController controller(fixture.path(""));
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
    intake::IntakeConfigController controller(fixture.path(""));
    QVERIFY(!controller.isLegalConfiguration(&properties));
    QVERIFY(!controller.isLegalConfiguration(&properties));
    QCOMPARE(controller.errors().size(), 2);
}

void TestIntakeConfigController::missingConfigurationIsRefused()
{
    intake::IntakeConfigController controller({});
    QVERIFY(!controller.isLegalConfiguration(nullptr));
}

void TestIntakeConfigController::relativePathsStartAtTheDirectory()
{
    const IntakeFixture fixture;
    Properties properties = legalProperties(fixture);
    properties.setValue(u"archive.path"_s, u"spool/../archive"_s);
    properties.setValue(u"log.filename"_s, u"log/intake"_s);
    intake::IntakeConfigController controller(fixture.path(""));
    QVERIFY(controller.isLegalConfiguration(&properties));
    QCOMPARE(properties.value(u"archive.path"_s), fixture.path("archive"));
    QCOMPARE(properties.value(u"log.filename"_s), fixture.path("log/intake"));
}

void TestIntakeConfigController::languageIsThatOfTheConfiguration()
{
    const IntakeFixture fixture;
    Properties properties = legalProperties(fixture);
    properties.insert(u"lang"_s, u"fr_FR"_s);
    properties.setValue(u"queue.path"_s, QString());
    intake::IntakeConfigController controller(fixture.path(""));
    QVERIFY(!controller.isLegalConfiguration(&properties));
    QCOMPARE(controller.errors().value(0), u"Le paramètre \"queue.path\" est absent ou vide"_s);
}

QTEST_GUILESS_MAIN(TestIntakeConfigController)
#include "tst_intakeconfigcontroller.moc"
