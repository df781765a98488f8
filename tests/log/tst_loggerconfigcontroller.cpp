// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/childprocess.h"
#include "support/files.h"
#include "support/language.h"

#include <kez/initlib.h>
#include <kez/loggerconfigcontroller.h>

#include <QDir>
#include <QObject>
#include <QPointer>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>

using Entries = QMap<QString, QString>;

namespace {

/// The faults of a set, one per line. The validator's answer is checked against them.
QString faults(const Entries& entries)
{
    Properties properties(entries);
    LoggerConfigController controller;
    const bool isLegal = controller.isLegalConfiguration(&properties);
    const QString text = controller.errors().join('\n');
    return isLegal == text.isEmpty() ? text : "answer and faults differ: " + text;
}

QString invalid(const QString& key, const QString& value)
{
    return "Invalid parameter \"" + key + "\"=[" + value + "]";
}

/// Checks a file name as an ordinary user and prints the faults.
int childMain(const QStringList& arguments)
{
    qputenv("LANG", "en_US.UTF-8");
    kezEnsureInit();
    if (!becomeOrdinaryUser())
        return 2;
    std::fputs(faults({{"log.filename", arguments.value(0)}}).toUtf8().constData(), stdout);
    return 0;
}

/// Keeps the errors in its own list.
class ReportingController : public LoggerConfigController {
public:
    QStringList reported;

    void insertError(const QString& error) override { reported.append(error); }
};

} // namespace

class TestLoggerConfigController : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();

    void isAConfigController();
    void nullIsNotDefined();
    void fileNameMustBeThere();
    void directoryMustExist_data();
    void directoryMustExist();
    void directoryMustBeReadableAndWritable_data();
    void directoryMustBeReadableAndWritable();
    void fileNameWithoutDirectoryMeansTheCurrentOne();
    void numbersMustBeIntegers_data();
    void numbersMustBeIntegers();
    void otherKeysAreNotChecked();
    void bannerTitle_data();
    void bannerTitle();
    void filterNames_data();
    void filterNames();
    void faultsComeInTheOrderOfTheChecks();
    void faultsInFrench();
    void askedTwiceAccumulates();
    void propertiesAreOnlyRead();
    void answerDoesNotDependOnWhereErrorsGo();

private:
    Entries legal(Entries more = {}) const
    {
        more.insert("log.filename", _dir->filePath("app.log"));
        return more;
    }

    std::unique_ptr<QTemporaryDir> _dir;
};

void TestLoggerConfigController::init()
{
    useLanguage("en_US");
    _dir = std::make_unique<QTemporaryDir>();
    QVERIFY(_dir->isValid());
}

void TestLoggerConfigController::isAConfigController()
{
    QCOMPARE(LoggerConfigController::staticMetaObject.superClass(),
             &IConfigController::staticMetaObject);
    QPointer<LoggerConfigController> controller;
    {
        QObject parent;
        controller = new LoggerConfigController(&parent);
        QCOMPARE(controller->parent(), &parent);
        QCOMPARE(controller->errors(), QStringList());
    }
    QVERIFY(controller.isNull());
}

void TestLoggerConfigController::nullIsNotDefined()
{
    LoggerConfigController controller;
    QVERIFY(!controller.isLegalConfiguration(nullptr));
    QCOMPARE(controller.errors(),
             QStringList("The configuration object is not defined (null pointer)"));
    useLanguage("fr_FR");
    QVERIFY(!controller.isLegalConfiguration(nullptr));
    QCOMPARE(controller.errors().last(),
             "L'objet de configuration n'est pas défini (pointeur nul)");
}

void TestLoggerConfigController::fileNameMustBeThere()
{
    QCOMPARE(faults({}), invalid("log.filename", ""));
    QCOMPARE(faults({{"log.filename", ""}}), invalid("log.filename", ""));
    QCOMPARE(faults(legal()), "");
}

void TestLoggerConfigController::directoryMustExist_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::newRow("missing directory") << "missing/app.log";
    QTest::newRow("file in place of the directory") << "file/app.log";
    QTest::newRow("dangling link in place of the directory") << "link/app.log";
    QTest::newRow("place markers") << "%1 %2/app.log";
}

void TestLoggerConfigController::directoryMustExist()
{
    QFETCH(QString, fileName);
    QVERIFY(writeFile(_dir->filePath("file"), "x"));
    QVERIFY(QFile::link(_dir->filePath("missing"), _dir->filePath("link")));
    const QString path = _dir->filePath(fileName);
    QCOMPARE(faults({{"log.filename", path}}), invalid("log.filename", path));
}

void TestLoggerConfigController::directoryMustBeReadableAndWritable_data()
{
    QTest::addColumn<int>("permissions");
    QTest::addColumn<bool>("isLegal");
    QTest::newRow("all") << 0x7007 << true;
    QTest::newRow("not writable") << 0x5005 << false;
    QTest::newRow("not readable") << 0x3003 << false;
    QTest::newRow("neither") << 0x1001 << false;
}

void TestLoggerConfigController::directoryMustBeReadableAndWritable()
{
    QFETCH(int, permissions);
    QFETCH(bool, isLegal);
    QVERIFY(openToEverybody(_dir->path()));
    const QString directory = _dir->filePath("logs");
    QVERIFY(QDir().mkdir(directory));
    QVERIFY(QFile::setPermissions(directory, QFile::Permissions(permissions)));
    const QString fileName = directory + "/app.log";
    const ChildResult child = runChild({fileName});
    QVERIFY(QFile::setPermissions(directory, QFile::Permissions(0x7000)));
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(QString::fromUtf8(child.out),
             isLegal ? QString("") : invalid("log.filename", fileName));
}

void TestLoggerConfigController::fileNameWithoutDirectoryMeansTheCurrentOne()
{
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(_dir->path()));
    const QString inCurrent = faults({{"log.filename", "app.log"}});
    const QString inMissing = faults({{"log.filename", "missing/app.log"}});
    QVERIFY(QDir::setCurrent(before));
    QCOMPARE(inCurrent, "");
    QCOMPARE(inMissing, invalid("log.filename", "missing/app.log"));
}

void TestLoggerConfigController::numbersMustBeIntegers_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("isLegal");
    for (const char* key :
         {"log.maxsize", "log.kept", "log.timeout", "log.tee", "log.banner.properties"}) {
        for (const char* value : {"0", "1", "42", "-1", "007"})
            QTest::addRow("%s=%s", key, value) << key << value << true;
        for (const char* value : {"", " ", "yes", "true", "1.0", "1e3", "0x10", "1,000", "1 2",
                                  "%1", "é", "1a", "99999999999999999999"}) {
            QTest::addRow("%s=%s refused", key, value) << key << value << false;
        }
    }
    QTest::newRow("size beyond 32 bits") << "log.maxsize"
                                         << "6000000000" << true;
}

void TestLoggerConfigController::numbersMustBeIntegers()
{
    QFETCH(QString, key);
    QFETCH(QString, value);
    QFETCH(bool, isLegal);
    QCOMPARE(faults(legal({{key, value}})), isLegal ? QString("") : invalid(key, value));
}

void TestLoggerConfigController::otherKeysAreNotChecked()
{
    QCOMPARE(faults(legal({{"banner.properties", "x"},
                           {"banner.title", "%2"},
                           {"log.Filter", "x"},
                           {"log.other", "x"},
                           {"", "x"}})),
             "");
}

void TestLoggerConfigController::bannerTitle_data()
{
    QTest::addColumn<QString>("title");
    QTest::addColumn<bool>("isLegal");
    QTest::newRow("empty") << "" << true;
    QTest::newRow("plain") << "My service" << true;
    QTest::newRow("with the version") << "My service v%1" << true;
    QTest::newRow("with the version twice") << "%1 %1" << true;
    QTest::newRow("percent sign") << "100 % mine" << true;
    QTest::newRow("second mark alone") << "My service %2" << false;
    QTest::newRow("second mark too") << "%1 %2" << false;
    QTest::newRow("mark of two digits") << "%10" << false;
}

void TestLoggerConfigController::bannerTitle()
{
    QFETCH(QString, title);
    QFETCH(bool, isLegal);
    QCOMPARE(faults(legal({{"log.banner.title", title}})),
             isLegal ? QString("") : invalid("log.banner.title", title) + " -> %1 = version");
}

void TestLoggerConfigController::filterNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("isLegal");
    for (const char* name : {"debug", "info", "warning", "error", "fatal"})
        QTest::newRow(name) << name << true;
    for (const char* name : {"warn", "inf", "all", "Debug", "FATAL", " info", "info ", "", "2"})
        QTest::addRow("refused: '%s'", name) << name << false;
}

void TestLoggerConfigController::filterNames()
{
    QFETCH(QString, name);
    QFETCH(bool, isLegal);
    QCOMPARE(faults(legal({{"log.filter", name}})),
             isLegal ? QString("") : invalid("log.filter", name));
}

void TestLoggerConfigController::faultsComeInTheOrderOfTheChecks()
{
    const QStringList expected{invalid("log.filename", ""),
                               invalid("log.maxsize", "a"),
                               invalid("log.kept", "b"),
                               invalid("log.timeout", "c"),
                               invalid("log.tee", "d"),
                               invalid("log.banner.properties", "e"),
                               invalid("log.banner.title", "%2") + " -> %1 = version",
                               invalid("log.filter", "f")};
    QCOMPARE(faults({{"log.maxsize", "a"},
                     {"log.kept", "b"},
                     {"log.timeout", "c"},
                     {"log.tee", "d"},
                     {"log.banner.properties", "e"},
                     {"log.banner.title", "%2"},
                     {"log.filter", "f"}}),
             expected.join('\n'));
}

void TestLoggerConfigController::faultsInFrench()
{
    useLanguage("fr_FR");
    QCOMPARE(faults({{"log.tee", "oui"}, {"log.banner.title", "%2"}}),
             "Paramètre \"log.filename\"=[] invalide\n"
             "Paramètre \"log.tee\"=[oui] invalide\n"
             "Paramètre \"log.banner.title\"=[%2] invalide -> %1 = version");
}

void TestLoggerConfigController::askedTwiceAccumulates()
{
    LoggerConfigController controller;
    Properties faulty(legal({{"log.kept", "x"}}));
    QVERIFY(!controller.isLegalConfiguration(&faulty));
    QVERIFY(!controller.isLegalConfiguration(&faulty));
    QCOMPARE(controller.errorsToString("; "),
             invalid("log.kept", "x") + "; " + invalid("log.kept", "x"));

    QVERIFY(!controller.isLegalConfiguration(nullptr));
    QCOMPARE(controller.errors().size(), 3);

    // A legal set stays legal after the faults of an earlier one.
    Properties sound(legal());
    QVERIFY(controller.isLegalConfiguration(&sound));
    QCOMPARE(controller.errors().size(), 3);
}

void TestLoggerConfigController::propertiesAreOnlyRead()
{
    const Entries entries = legal({{"log.kept", "x"}, {"log.tee", " 1 "}});
    Properties properties(entries);
    LoggerConfigController controller;
    controller.isLegalConfiguration(&properties);
    QCOMPARE(*properties.toDictionnary(), entries);
    QVERIFY(!QFile::exists(_dir->filePath("app-0.log")));
}

void TestLoggerConfigController::answerDoesNotDependOnWhereErrorsGo()
{
    Properties illegal(Entries{{"log.filename", QDir::tempPath() + "/app"}, {"log.kept", "x"}});
    ReportingController controller;
    QVERIFY(!controller.isLegalConfiguration(&illegal));
    QCOMPARE(controller.reported, QStringList{invalid("log.kept", "x")});
    illegal.setValue("log.kept", "3");
    QVERIFY(controller.isLegalConfiguration(&illegal));
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestLoggerConfigController, childMain)

#include "tst_loggerconfigcontroller.moc"
