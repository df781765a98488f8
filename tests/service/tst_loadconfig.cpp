// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/kittexts_p.h"
#include "support/childprocess.h"
#include "support/failuretext.h"
#include "support/files.h"
#include "support/language.h"
#include "support/opendescriptors.h"

#include <kez/initlib.h>
#include <kez/loggerconfigcontroller.h>
#include <kez/service/loadconfig.h>
#include <kez/service/sectionlogger.h>

#include <QDir>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <sys/stat.h>

using namespace KezService;

using Entries = QMap<QString, QString>;

namespace {

/// Finds these faults; answers whether there are any, or the opposite of that.
class FixedController : public IConfigController {
    Q_OBJECT

public:
    explicit FixedController(const QStringList& faults, bool isLegal)
        : _faults(faults), _isLegal(isLegal)
    {}

    bool isLegalConfiguration(Properties* properties) override
    {
        properties->insert("checked", "yes", true);
        for (const QString& fault : _faults)
            insertError(fault);
        return _isLegal;
    }

private:
    QStringList _faults;
    bool _isLegal;
};

/// Throws after its first fault.
class ThrowingController : public IConfigController {
    Q_OBJECT

public:
    explicit ThrowingController(int kind) : _kind(kind) {}

    bool isLegalConfiguration(Properties*) override
    {
        insertError("first fault");
        if (_kind == 0)
            throw Exception("by value");
        if (_kind == 1)
            throw new Exception("as a pointer");
        if (_kind == 2)
            throw static_cast<Exception*>(nullptr);
        if (_kind == 3)
            throw 4711;
        throw std::runtime_error("of the library");
    }

private:
    int _kind;
};

ConfigValidators fixed(const QStringList& faults, bool isLegal = false)
{
    return [=] {
        std::vector<std::unique_ptr<IConfigController>> validators;
        for (const QString& fault : faults)
            validators.push_back(std::make_unique<FixedController>(QStringList(fault), isLegal));
        return validators;
    };
}

/// Loads a file as an ordinary user and prints the failure.
int childMain(const QStringList& arguments)
{
    qputenv("LANG", "en_US.UTF-8");
    kezEnsureInit();
    if (!becomeOrdinaryUser())
        return 2;
    const QString text = failureText([&] { loadConfig(arguments.value(0)); });
    std::fputs(text.toUtf8().constData(), stdout);
    return 0;
}

} // namespace

class TestLoadConfig : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();

    void configurationIsThatOfTheCore_data();
    void configurationIsThatOfTheCore();
    void randomFilesAreReadAsByTheCore();
    void validatorsAreThoseOfTheList();
    void allFaultsAreFoundEachOnce();
    void lineFeedInAFaultIsEscaped();
    void refusalWithoutAReasonIsAFault();
    void faultBesidesAGoodAnswerIsAFault();
    void validatorThatThrowsIsAFault_data();
    void validatorThatThrowsIsAFault();
    void factoryThatThrowsIsAFault();
    void missingValidatorsAreSkipped();
    void validatorsMayChangeTheConfiguration();
    void fileThatCannotBeReadIsAFault_data();
    void fileThatCannotBeReadIsAFault();
    void missingRightsAreAFault();
    void sizeIsLimited_data();
    void sizeIsLimited();
    void fileWithoutASizeIsRead();
    void faultsAreInTheLanguageOfTheProcess();
    void noDescriptorIsLeftOpen();

private:
    QString file() const { return _directory->filePath("app.conf"); }
    static Entries entriesOf(const Config& config) { return *config.properties()->toDictionnary(); }

    std::unique_ptr<QTemporaryDir> _directory;
};

void TestLoadConfig::init()
{
    useLanguage("en_US");
    _directory = std::make_unique<QTemporaryDir>();
    QVERIFY(_directory->isValid());
}

void TestLoadConfig::configurationIsThatOfTheCore_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("version");
    const QByteArray usual = "a=1\n# comment\n # no comment=2\na=3\n b = 4 \nno entry\n=x\n";
    QTest::newRow("usual") << usual << "2.1";
    QTest::newRow("without a version") << usual << "";
    QTest::newRow("version in the file") << QByteArray("app.version=9\na=1\n") << "2.1";
    QTest::newRow("version in the file only") << QByteArray("app.version=9\na=1\n") << "";
    QTest::newRow("empty") << QByteArray() << "1";
    QTest::newRow("line ends of Windows") << QByteArray("a=1\r\nb=2\r\n\r\nc=3\r4") << "1";
    QTest::newRow("byte order mark") << QByteArray("\xef\xbb\xbf"
                                                   "a=1\n")
                                     << "1";
    QTest::newRow("UTF-16") << QByteArray("\xff\xfe"
                                          "a\0=\0"
                                          "1\0",
                                          8)
                            << "1";
    QTest::newRow("zeros") << QByteArray("a\0b=c\0d\n\0", 9) << "1";
    QTest::newRow("no UTF-8") << QByteArray("a=\xff\xc3\n\xe9=1") << "1";
    QTest::newRow("one long line") << "a=" + QByteArray(3000000, 'x') << "1";
}

void TestLoadConfig::configurationIsThatOfTheCore()
{
    QFETCH(const QByteArray, bytes);
    QFETCH(const QString, version);
    QVERIFY(writeFile(file(), bytes));
    const auto config = loadConfig(file(), version);
    QCOMPARE(entriesOf(*config), entriesOf(*Config::load(file(), version)));
    QVERIFY(!config->logger());
}

void TestLoadConfig::randomFilesAreReadAsByTheCore()
{
    static const QByteArray Alphabet("ab=#\n\r \t.\xc3\xa9\xef\xbb\xbf\0", 15);
    QRandomGenerator random(4711);
    for (int i = 0; i < 300; ++i) {
        QByteArray bytes;
        const int size = random.bounded(i % 50 == 0 ? 100000 : 60);
        for (int k = 0; k < size; ++k)
            bytes += Alphabet[random.bounded(int(Alphabet.size()))];
        QVERIFY(writeFile(file(), bytes));
        QCOMPARE(entriesOf(*loadConfig(file())), entriesOf(*Config::load(file())));
    }
}

void TestLoadConfig::validatorsAreThoseOfTheList()
{
    QVERIFY(writeFile(file(), "log.kept=x\naudit.log.kept=y\n"));
    const QString text = failureText([&] {
        loadConfig(file(), "1", validatorsOf<LoggerConfigController, SectionLogController>());
    });
    const QStringList lines = text.split('\n');
    QCOMPARE(lines.size(), 4);
    for (const QString& line : lines)
        QVERIFY2(line.startsWith(file() + ": "), qPrintable(line));
    QVERIFY(lines[0].endsWith("\"log.filename\"=[]"));
    QVERIFY(lines[1].endsWith("\"log.kept\"=[x]"));
    QVERIFY(lines[2].contains("audit.log.filename is missing"));
    QVERIFY(lines[3].contains("audit.log.kept=[y]"));
    QVERIFY(validatorsOf<>()().empty());
}

void TestLoadConfig::allFaultsAreFoundEachOnce()
{
    QVERIFY(writeFile(file(), ""));
    QCOMPARE(failureText([&] {
                 loadConfig(file(), "1", fixed({"b %1", "a", "b %1", "c"}));
             }),
             file() + ": b %1\n" + file() + ": a\n" + file() + ": c");
}

void TestLoadConfig::lineFeedInAFaultIsEscaped()
{
    QVERIFY(writeFile(file(), ""));
    QCOMPARE(failureText([&] { loadConfig(file(), "1", fixed({"a\nb"})); }), file() + ": a\\nb");
}

void TestLoadConfig::refusalWithoutAReasonIsAFault()
{
    QVERIFY(writeFile(file(), ""));
    const auto silent = [] {
        std::vector<std::unique_ptr<IConfigController>> validators;
        validators.push_back(std::make_unique<FixedController>(QStringList(), false));
        return validators;
    };
    QCOMPARE(failureText([&] { loadConfig(file(), "1", silent); }),
             file() + ": the check FixedController refuses the configuration and gives no reason");
}

void TestLoadConfig::faultBesidesAGoodAnswerIsAFault()
{
    QVERIFY(writeFile(file(), ""));
    QCOMPARE(failureText([&] { loadConfig(file(), "1", fixed({"fault"}, true)); }),
             file() + ": fault");
}

void TestLoadConfig::validatorThatThrowsIsAFault_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("text");
    QTest::newRow("by value") << 0 << "by value";
    QTest::newRow("as a pointer") << 1 << "as a pointer";
    QTest::newRow("null pointer") << 2 << "an exception of type Exception*";
    QTest::newRow("anything") << 3 << "an exception of type int";
    QTest::newRow("of the library") << 4 << "of the library";
}

void TestLoadConfig::validatorThatThrowsIsAFault()
{
    QFETCH(const int, kind);
    QFETCH(const QString, text);
    QVERIFY(writeFile(file(), ""));
    const auto throwing = [kind] {
        std::vector<std::unique_ptr<IConfigController>> validators;
        validators.push_back(std::make_unique<ThrowingController>(kind));
        validators.push_back(std::make_unique<FixedController>(QStringList("later fault"), false));
        return validators;
    };
    QCOMPARE(failureText([&] { loadConfig(file(), "1", throwing); }),
             file() + ": first fault\n" + file() + ": the check ThrowingController failed: " +
                 text + '\n' + file() + ": later fault");
}

void TestLoadConfig::factoryThatThrowsIsAFault()
{
    QVERIFY(writeFile(file(), ""));
    const ConfigValidators astray = []() -> std::vector<std::unique_ptr<IConfigController>> {
        throw 'x';
    };
    QCOMPARE(failureText([&] { loadConfig(file(), "1", astray); }),
             file() + ": an exception of type char");
    const ConfigValidators failing = []() -> std::vector<std::unique_ptr<IConfigController>> {
        throw Exception(QString());
    };
    QCOMPARE(failureText([&] { loadConfig(file(), "1", failing); }), file() + ": ");
}

void TestLoadConfig::missingValidatorsAreSkipped()
{
    QVERIFY(writeFile(file(), "a=1\n"));
    const ConfigValidators null = [] {
        std::vector<std::unique_ptr<IConfigController>> validators;
        validators.push_back(nullptr);
        return validators;
    };
    QCOMPARE(loadConfig(file(), "1", null)->value("a"), "1");
    QCOMPARE(loadConfig(file(), "1", ConfigValidators())->value("a"), "1");
}

void TestLoadConfig::validatorsMayChangeTheConfiguration()
{
    QVERIFY(writeFile(file(), "a=1\n"));
    const auto passing = [] {
        std::vector<std::unique_ptr<IConfigController>> validators;
        validators.push_back(std::make_unique<FixedController>(QStringList(), true));
        return validators;
    };
    QCOMPARE(loadConfig(file(), "1", passing)->value("checked"), "yes");
}

void TestLoadConfig::fileThatCannotBeReadIsAFault_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("fault");
    const QString unreadable = "the file cannot be read: ";
    const QString irregular = unreadable + "it is not a regular file";
    QTest::newRow("missing") << "nowhere" << unreadable + systemErrorText(ENOENT);
    QTest::newRow("below a file") << "file/app" << unreadable + systemErrorText(ENOTDIR);
    QTest::newRow("link to itself") << "loop" << unreadable + systemErrorText(ELOOP);
    QTest::newRow("zero in the name")
        << QString::fromLatin1("file\0x", 6) << unreadable + systemErrorText(ENOENT);
    QTest::newRow("directory") << "." << irregular;
    QTest::newRow("fifo") << "fifo" << irregular;
    QTest::newRow("link to a device") << "zero" << irregular;
}

void TestLoadConfig::fileThatCannotBeReadIsAFault()
{
    QFETCH(const QString, name);
    QFETCH(const QString, fault);
    QVERIFY(writeFile(_directory->filePath("file"), "a=1\n"));
    QVERIFY(QFile::link("loop", _directory->filePath("loop")));
    QVERIFY(QFile::link("/dev/zero", _directory->filePath("zero")));
    QCOMPARE(::mkfifo(qPrintable(_directory->filePath("fifo")), 0600), 0);
    const QString path = _directory->path() + '/' + name;
    QCOMPARE(failureText([&] { loadConfig(path, "1", fixed({"not asked"})); }),
             shownName(path) + ": " + fault);
}

void TestLoadConfig::missingRightsAreAFault()
{
    QVERIFY(openToEverybody(_directory->path()));
    QVERIFY(writeFile(file(), "password=x\n"));
    QCOMPARE(::chmod(qPrintable(file()), 0), 0);
    const ChildResult child = runChild({file()});
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(QString::fromUtf8(child.out),
             file() + ": the file cannot be read: " + "Permission denied");
}

void TestLoadConfig::sizeIsLimited_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<qint64>("limit");
    QTest::newRow("nothing") << qint64(0) << qint64(0);
    QTest::newRow("one byte") << qint64(1) << qint64(0);
    QTest::newRow("at the limit") << qint64(200000) << qint64(200000);
    QTest::newRow("above it") << qint64(200001) << qint64(200000);
    QTest::newRow("at a block") << qint64(65536) << qint64(65536);
    QTest::newRow("above a block") << qint64(65537) << qint64(65536);
    QTest::newRow("at the usual limit") << MaxConfigSize << MaxConfigSize;
    QTest::newRow("above the usual limit") << MaxConfigSize + 1 << MaxConfigSize;
}

void TestLoadConfig::sizeIsLimited()
{
    QFETCH(const qint64, size);
    QFETCH(const qint64, limit);
    QVERIFY(writeFile(file(), QByteArray(size, '\n')));
    const QString expected =
        size <= limit ? QString()
                      : file() + ": the file cannot be read: it holds more than the " +
                            QString::number(limit) + " bytes that a configuration may have";
    QCOMPARE(failureText([&] { loadConfig(file(), "1", {}, limit); }), expected);
    if (limit == MaxConfigSize)
        QCOMPARE(failureText([&] { loadConfig(file()); }), expected);
}

void TestLoadConfig::fileWithoutASizeIsRead()
{
    // The system shows such files with a size of 0.
    QVERIFY(QFileInfo("/proc/self/environ").isFile());
    QCOMPARE(failureText([] { loadConfig("/proc/self/environ"); }), QString());
    QVERIFY(!failureText([] { loadConfig("/proc/self/environ", "1", {}, 1); }).isEmpty());
}

void TestLoadConfig::faultsAreInTheLanguageOfTheProcess()
{
    useLanguage("fr_FR");
    QCOMPARE(failureText([&] { loadConfig(file()); }),
             file() + " : le fichier ne peut pas être lu : " + systemErrorText(ENOENT));
}

void TestLoadConfig::noDescriptorIsLeftOpen()
{
    QVERIFY(writeFile(file(), "a=1\n"));
    const int before = openDescriptors();
    for (int i = 0; i < 10; ++i) {
        loadConfig(file());
        failureText([&] { loadConfig(file(), "1", {}, 1); });
        failureText([&] { loadConfig(_directory->path()); });
    }
    QCOMPARE(openDescriptors(), before);
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestLoadConfig, childMain)
#include "tst_loadconfig.moc"
