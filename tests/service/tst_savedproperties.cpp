// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/kittexts_p.h"
#include "support/childprocess.h"
#include "support/failuretext.h"
#include "support/files.h"
#include "support/language.h"
#include "support/opendescriptors.h"

#include <kez/configuration.h>
#include <kez/initlib.h>
#include <kez/properties.h>
#include <kez/service/savedproperties.h>

#include <QDir>
#include <QRandomGenerator>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QtTest>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

using namespace KezService;

using Entries = QMap<QString, QString>;

namespace {

/// save <path>: as an ordinary user. limit <path>: with files of at most 100 bytes. Prints the
/// failure.
int childMain(const QStringList& arguments)
{
    qputenv("LANG", "en_US.UTF-8");
    kezEnsureInit();
    if (arguments.value(0) == "limit") {
        const rlimit limit{100, 100};
        if (std::signal(SIGXFSZ, SIG_IGN) == SIG_ERR || setrlimit(RLIMIT_FSIZE, &limit) != 0)
            return 2;
    } else if (!becomeOrdinaryUser()) {
        return 2;
    }
    const QString text = failureText([&] {
        saveAtomically(arguments.value(1), {{"a", QString(200, 'x')}});
    });
    std::fputs(text.toUtf8().constData(), stdout);
    return 0;
}

QString randomText(QRandomGenerator& random)
{
    static const QList<uint> Characters = {'a',    'b',    ' ',    '\t',   '=',     '#',  0,
                                           '\n',   '\r',   0xe9,   0xfeff, 0x2028,  0x85, 0xa0,
                                           0xffff, 0xd800, 0xdc00, 0x20ac, 0x1f4dc, '\\', 0x0b};
    const qsizetype size = random.bounded(random.bounded(10) == 0 ? 3000 : 5);
    QString text;
    while (text.size() < size) {
        const bool isPlain = random.bounded(6) != 0;
        const auto character =
            char32_t(isPlain ? 'a' + random.bounded(26)
                             : Characters[random.bounded(int(Characters.size()))]);
        if (character > 0xffff)
            text += QString::fromUcs4(&character, 1);
        else
            text += QChar(ushort(character));
    }
    return text;
}

Entries randomEntries(QRandomGenerator& random)
{
    Entries entries;
    const int size = random.bounded(12);
    for (int i = 0; i < size; ++i)
        entries.insert(randomText(random), randomText(random));
    return entries;
}

/// Without what a file cannot hold, as the class promises it.
Entries storable(const Entries& entries)
{
    const auto isSound = [](const QString& text) {
        return text.isValidUtf16() && !text.contains('\n') && !text.contains('\r') &&
               text == text.trimmed();
    };
    Entries sound;
    for (auto entry = entries.cbegin(); entry != entries.cend(); ++entry) {
        const QString& key = entry.key();
        if (isSound(key) && isSound(entry.value()) && !key.isEmpty() && !key.contains('=') &&
            !key.startsWith('#') && !key.startsWith(QChar(0xfeff)))
            sound.insert(key, entry.value());
    }
    return sound;
}

} // namespace

class TestSavedProperties : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();

    void bytesAreThoseOfTheCore();
    void whatIsSavedIsLoaded();
    void manyEntries();
    void entryThatIsLostIsRefused_data();
    void entryThatIsLostIsRefused();
    void refusalIsInTheLanguageOfTheTexts();
    void modeOfTheOldFileStays_data();
    void modeOfTheOldFileStays();
    void newFileHasTheModeThatTheMaskLeaves();
    void linkStays_data();
    void linkStays();
    void linksInACircleAreAnError();
    void onlyRegularFilesAreReplaced_data();
    void onlyRegularFilesAreReplaced();
    void pathIsTakenAsItIs_data();
    void pathIsTakenAsItIs();
    void pathsThatLeadNowhere_data();
    void pathsThatLeadNowhere();
    void longNames_data();
    void longNames();
    void leftoverOfAKilledProcessIsRemoved();
    void whatStandsInTheWayIsNamed();
    void oneWaitsForTheOther();
    void threadsThatSaveAtOnce();
    void missingRightsLeaveTheOldFile();
    void fullDiskLeavesTheOldFile();
    void noDescriptorIsLeftOpen();

private:
    QString path(const char* name) const { return _directory->filePath(QString::fromUtf8(name)); }
    QString file() const { return path("app.properties"); }
    QStringList names() const
    {
        return QDir(_directory->path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }
    mode_t modeOf(const QString& name) const
    {
        struct stat info {};
        return ::stat(QFile::encodeName(name).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
    }
    static Entries load(const QString& name)
    {
        return *Properties::loadProperties(name)->toDictionnary();
    }

    std::unique_ptr<QTemporaryDir> _directory;
};

void TestSavedProperties::init()
{
    useLanguage("en_US");
    _directory = std::make_unique<QTemporaryDir>();
    QVERIFY(_directory->isValid());
}

void TestSavedProperties::bytesAreThoseOfTheCore()
{
    saveAtomically(file(), {{"b", "2 = 3"}, {"a.b", ""}, {"é€", "\U0001F4DC"}});
    QCOMPARE(readFile(file()), QByteArray("a.b=\nb=2 = 3\né€=\U0001F4DC\n"));

    QRandomGenerator random(7);
    for (int i = 0; i < 100; ++i) {
        const Entries entries = storable(randomEntries(random));
        saveAtomically(file(), entries);
        Properties::saveProperties(path("core"), entries, true);
        QCOMPARE(readFile(file()), readFile(path("core")));
    }
}

void TestSavedProperties::whatIsSavedIsLoaded()
{
    QRandomGenerator random(20261121);
    int accepted = 0;
    for (int i = 0; i < 400; ++i) {
        const Entries all = randomEntries(random);
        const Entries sound = storable(all);
        const Entries entries = random.bounded(2) == 0 ? all : sound;
        const bool isAccepted = failureText([&] { saveAtomically(file(), entries); }).isEmpty();
        QCOMPARE(isAccepted, entries == sound);
        if (!isAccepted)
            continue;
        ++accepted;
        QCOMPARE(load(file()), entries);
        // The other reader agrees.
        Entries read = *Config::load(file())->properties()->toDictionnary();
        read.remove("app.version");
        QCOMPARE(read, entries);
    }
    QVERIFY(accepted > 100 && accepted < 400);
}

void TestSavedProperties::manyEntries()
{
    Entries entries;
    for (int i = 0; i < 200000; ++i)
        entries.insert(QString("key %1 é").arg(i), QString("value %1 €").arg(i));
    saveAtomically(file(), entries);
    QCOMPARE(load(file()), entries);
    saveAtomically(file(), {});
    QCOMPARE(readFile(file()), QByteArray());
    QCOMPARE(names(), QStringList("app.properties"));
}

void TestSavedProperties::entryThatIsLostIsRefused_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("reason");
    const QString blank = "blanks at either end of a key or a value are lost";
    const QString line = "a line break in a key or a value ends the entry";
    const QString half = "the key or the value holds half of a surrogate pair, which is no "
                         "character";
    QTest::newRow("empty key") << ""
                               << "v"
                               << "the key is empty";
    QTest::newRow("comment") << "#k"
                             << "v"
                             << "a key that begins with \"#\" is read as a comment";
    QTest::newRow("equals") << "k=1"
                            << "v"
                            << "a key ends at its first \"=\"";
    QTest::newRow("equals only") << "="
                                 << "v"
                                 << "a key ends at its first \"=\"";
    QTest::newRow("byte order mark") << QString(QChar(0xfeff)) + "k"
                                     << "v"
                                     << "a byte order mark at the head of a key is lost";
    QTest::newRow("blank before the key") << " k"
                                          << "v" << blank;
    QTest::newRow("blank after the key") << "k "
                                         << "v" << blank;
    QTest::newRow("blank before the value") << "k"
                                            << "\tv" << blank;
    QTest::newRow("no-break space") << "k"
                                    << "v" + QString(QChar(0xa0)) << blank;
    QTest::newRow("value of blanks") << "k"
                                     << " " << blank;
    QTest::newRow("line feed in the key") << "k\nl"
                                          << "v" << line;
    QTest::newRow("line feed at the end") << "k"
                                          << "v\n"
                                          << line;
    QTest::newRow("carriage return") << "k"
                                     << "v\rw" << line;
    QTest::newRow("high surrogate") << "k"
                                    << "v" + QString(QChar(0xd83d)) << half;
    QTest::newRow("low surrogate") << QString(QChar(0xdcdc)) << "v" << half;
}

void TestSavedProperties::entryThatIsLostIsRefused()
{
    QFETCH(const QString, key);
    QFETCH(const QString, value);
    QFETCH(const QString, reason);
    saveAtomically(file(), {{"old", "1"}});
    const Entries entries = {{"a", "1"}, {key, value}, {"zz", "1"}};
    QCOMPARE(failureText([&] { saveAtomically(file(), entries); }),
             "[" + file() + "] is not saved: the entry [" + shownName(key) +
                 "] would not be read back as it is: " + reason);
    QCOMPARE(load(file()), (Entries{{"old", "1"}}));
    QCOMPARE(names(), QStringList("app.properties"));
    failureText([&] { saveAtomically(path("new"), entries); });
    QCOMPARE(names(), QStringList("app.properties"));
}

void TestSavedProperties::refusalIsInTheLanguageOfTheTexts()
{
    useLanguage("fr_FR");
    QCOMPARE(failureText([&] {
                 saveAtomically(file(), {{"%1#", "%2\n"}});
             }),
             "[" + file() +
                 "] n'est pas enregistré : l'entrée [%1#] ne serait pas relue telle "
                 "quelle : un saut de ligne dans une clé ou une valeur termine "
                 "l'entrée");
}

void TestSavedProperties::modeOfTheOldFileStays_data()
{
    QTest::addColumn<uint>("mode");
    for (const uint mode : {0600U, 0640U, 0666U, 0444U, 0755U})
        QTest::addRow("%o", mode) << mode;
}

void TestSavedProperties::modeOfTheOldFileStays()
{
    QFETCH(const uint, mode);
    QVERIFY(writeFile(file(), "old=1\n"));
    QCOMPARE(::chmod(QFile::encodeName(file()).constData(), mode), 0);
    saveAtomically(file(), {{"new", "1"}});
    QCOMPARE(modeOf(file()), mode_t(mode));
    QCOMPARE(load(file()), (Entries{{"new", "1"}}));
}

void TestSavedProperties::newFileHasTheModeThatTheMaskLeaves()
{
    const mode_t mask = ::umask(027);
    const auto restore = qScopeGuard([mask] { ::umask(mask); });
    saveAtomically(file(), {});
    QCOMPARE(modeOf(file()), mode_t(0640));
}

void TestSavedProperties::linkStays_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<bool>("isThere");
    QTest::newRow("absolute") << "/absolute" << true;
    QTest::newRow("relative") << "real/app.real" << true;
    QTest::newRow("to a link") << "second" << true;
    QTest::newRow("to a file that is not there yet") << "real/app.real" << false;
}

void TestSavedProperties::linkStays()
{
    QFETCH(QString, target);
    QFETCH(const bool, isThere);
    if (target.startsWith('/'))
        target = path("real/app.real");
    QVERIFY(QDir(_directory->path()).mkdir("real"));
    QCOMPARE(::symlink("real/app.real", qPrintable(path("second"))), 0);
    QCOMPARE(::symlink(qPrintable(target), qPrintable(file())), 0);
    if (isThere)
        QVERIFY(writeFile(path("real/app.real"), "old=1\n"));
    saveAtomically(file(), {{"new", "1"}});
    QCOMPARE(readFile(path("real/app.real")), QByteArray("new=1\n"));
    QVERIFY(!QFileInfo(path("real/app.real")).isSymLink());
    QCOMPARE(std::filesystem::read_symlink(file().toStdString()).string(), target.toStdString());
    QVERIFY(QFileInfo(path("second")).isSymLink());
    QCOMPARE(QDir(path("real")).entryList(QDir::Files | QDir::Hidden), QStringList("app.real"));
}

void TestSavedProperties::linksInACircleAreAnError()
{
    QCOMPARE(::symlink("b", qPrintable(path("a"))), 0);
    QCOMPARE(::symlink("a", qPrintable(path("b"))), 0);
    const QString text = failureText([&] { saveAtomically(path("a"), {}); });
    QVERIFY2(text.startsWith("[" + path("a") + "] cannot be saved") &&
                 text.endsWith(systemErrorText(ELOOP)),
             qPrintable(text));
    QCOMPARE(names(), (QStringList{"a", "b"}));
}

void TestSavedProperties::onlyRegularFilesAreReplaced_data()
{
    QTest::addColumn<QString>("kind");
    for (const char* kind : {"directory", "fifo", "device", "link to a device"})
        QTest::newRow(kind) << kind;
}

void TestSavedProperties::onlyRegularFilesAreReplaced()
{
    QFETCH(const QString, kind);
    QString name = file();
    if (kind == "directory")
        QVERIFY(QDir().mkdir(name));
    else if (kind == "fifo")
        QCOMPARE(::mkfifo(QFile::encodeName(name).constData(), 0600), 0);
    else if (kind == "device")
        name = "/dev/null";
    else
        QVERIFY(QFile::link("/dev/null", name));
    QCOMPARE(failureText([&] {
                 saveAtomically(name, {{"a", "1"}});
             }),
             "[" + name + "] cannot be saved: it is not a regular file");
    QVERIFY(!QFileInfo(name).isFile());
    QVERIFY(!QFile::exists("/dev/.null.new"));
    QVERIFY(names().size() <= 1);
}

void TestSavedProperties::pathIsTakenAsItIs_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("bare name") << "app.properties";
    QTest::newRow("relative") << "./sub/../sub/app.properties";
    QTest::newRow("hidden") << ".app";
    QTest::newRow("control character") << "a\nb";
    QTest::newRow("beyond ASCII") << "réglages €";
    QTest::newRow("place markers") << "%1 %2";
}

void TestSavedProperties::pathIsTakenAsItIs()
{
    QFETCH(const QString, name);
    QVERIFY(QDir(_directory->path()).mkdir("sub"));
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(_directory->path()));
    const auto restore = qScopeGuard([&] { QDir::setCurrent(before); });
    saveAtomically(name, {{"a", "1"}});
    QCOMPARE(readFile(_directory->path() + '/' + name), QByteArray("a=1\n"));
}

void TestSavedProperties::pathsThatLeadNowhere_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("error");
    QTest::newRow("missing directory") << "nowhere/app" << ENOENT;
    QTest::newRow("below a file") << "file/app" << ENOTDIR;
    QTest::newRow("name missing") << "nowhere/" << ENOENT;
    QTest::newRow("zero in the name") << QString::fromLatin1("a\0b", 3) << EINVAL;
    QTest::newRow("too long a name") << QString(256, 'n') << ENAMETOOLONG;
}

void TestSavedProperties::pathsThatLeadNowhere()
{
    QFETCH(const QString, name);
    QFETCH(const int, error);
    QVERIFY(writeFile(path("file"), "x"));
    const QString text = failureText([&] {
        saveAtomically(_directory->path() + '/' + name, {{"a", "1"}});
    });
    QVERIFY2(text.contains("] cannot be saved and stays as it was: [") &&
                 text.endsWith(systemErrorText(error)),
             qPrintable(text));
    QCOMPARE(names(), QStringList("file"));
    QVERIFY(!failureText([&] { saveAtomically(QString(), {{"a", "1"}}); }).isEmpty());
}

void TestSavedProperties::longNames_data()
{
    QTest::addColumn<int>("length");
    for (const int length : {249, 250, 251, 255})
        QTest::addRow("%d", length) << length;
}

void TestSavedProperties::longNames()
{
    QFETCH(const int, length);
    const QString name = QString(length, 'n');
    saveAtomically(_directory->filePath(name), {{"a", "1"}});
    saveAtomically(_directory->filePath(name), {{"a", "2"}});
    QCOMPARE(load(_directory->filePath(name)), (Entries{{"a", "2"}}));
    QCOMPARE(names(), QStringList(name));
}

void TestSavedProperties::leftoverOfAKilledProcessIsRemoved()
{
    QVERIFY(writeFile(path(".app.properties.new"), "half"));
    saveAtomically(file(), {{"a", "1"}});
    QCOMPARE(names(), QStringList("app.properties"));
    QCOMPARE(readFile(file()), QByteArray("a=1\n"));
}

void TestSavedProperties::whatStandsInTheWayIsNamed()
{
    QVERIFY(writeFile(path("victim"), "mine"));
    QVERIFY(QFile::link(path("victim"), path(".app.properties.new")));
    QCOMPARE(failureText([&] {
                 saveAtomically(file(), {{"a", "1"}});
             }),
             "[" + file() + "] cannot be saved and stays as it was: [" +
                 path(".app.properties.new") + "]: " + systemErrorText(ELOOP));
    QCOMPARE(readFile(path("victim")), QByteArray("mine"));
}

void TestSavedProperties::oneWaitsForTheOther()
{
    QVERIFY(writeFile(path(".app.properties.new"), "growing"));
    const int held = ::open(qPrintable(path(".app.properties.new")), O_RDONLY | O_CLOEXEC);
    QCOMPARE(::flock(held, LOCK_EX), 0);
    std::atomic<bool> isSaved = false;
    std::thread saver([&] {
        saveAtomically(file(), {{"a", "1"}});
        isSaved = true;
    });
    QTest::qWait(50);
    const bool wasSavedEarly = isSaved;
    QCOMPARE(readFile(path(".app.properties.new")), QByteArray("growing"));
    ::close(held);
    saver.join();
    QVERIFY(!wasSavedEarly);
    QCOMPARE(readFile(file()), QByteArray("a=1\n"));
}

void TestSavedProperties::threadsThatSaveAtOnce()
{
    constexpr int Threads = 4;
    constexpr int Saves = 25;
    QList<Entries> contents(Threads);
    for (int i = 0; i < Threads; ++i) {
        for (int k = 0; k < 300; ++k)
            contents[i].insert(QString("key%1").arg(k), QString(20 * (i + 1), QChar('a' + i)));
    }
    saveAtomically(file(), contents[0]);
    std::atomic<int> failures = 0;
    std::atomic<int> running = Threads;
    std::vector<std::thread> savers;
    for (const Entries& entries : contents) {
        savers.emplace_back([&] {
            for (int i = 0; i < Saves; ++i)
                failures += failureText([&] { saveAtomically(file(), entries); }).isEmpty() ? 0 : 1;
            --running;
        });
    }
    int torn = 0;
    while (running > 0)
        torn += contents.contains(load(file())) ? 0 : 1;
    for (std::thread& saver : savers)
        saver.join();
    QCOMPARE(torn, 0);
    QCOMPARE(failures.load(), 0);
    QCOMPARE(names(), QStringList("app.properties"));
}

void TestSavedProperties::missingRightsLeaveTheOldFile()
{
    QVERIFY(openToEverybody(_directory->path()));
    const QString directory = path("etc");
    QVERIFY(QDir().mkdir(directory));
    QVERIFY(writeFile(directory + "/app", "old=1\n"));
    QCOMPARE(::chmod(qPrintable(directory + "/app"), 0666), 0);
    QCOMPARE(::chmod(qPrintable(directory), 0555), 0);
    const ChildResult child = runChild({"save", directory + "/app"});
    QCOMPARE(::chmod(qPrintable(directory), 0755), 0);
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(QString::fromUtf8(child.out), "[" + directory +
                                               "/app] cannot be saved and stays as it was: [" +
                                               directory + "/.app.new]: " + "Permission denied");
    QCOMPARE(readFile(directory + "/app"), QByteArray("old=1\n"));
}

void TestSavedProperties::fullDiskLeavesTheOldFile()
{
    QVERIFY(writeFile(file(), "old=1\n"));
    const ChildResult child = runChild({"limit", file()});
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(QString::fromUtf8(child.out),
             "[" + file() + "] cannot be saved and stays as it was: [" +
                 path(".app.properties.new") + "]: " + "File too large");
    QCOMPARE(readFile(file()), QByteArray("old=1\n"));
    QCOMPARE(names(), QStringList("app.properties"));
}

void TestSavedProperties::noDescriptorIsLeftOpen()
{
    saveAtomically(file(), {{"a", "1"}});
    const int before = openDescriptors();
    for (int i = 0; i < 10; ++i) {
        saveAtomically(file(), {{"a", "1"}});
        failureText([&] { saveAtomically(path("nowhere/app"), {}); });
    }
    QCOMPARE(openDescriptors(), before);
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestSavedProperties, childMain)
#include "tst_savedproperties.moc"
