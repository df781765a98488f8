// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/childprocess.h"
#include "support/failuretext.h"
#include "support/files.h"
#include "support/language.h"

#include <kez/filehelper.h>
#include <kez/identity.h>

#include <QDir>
#include <QTemporaryDir>
#include <QTest>
#include <QTextStream>

#include <sys/stat.h>
#include <unistd.h>

namespace {

/// Prints what an ordinary user gets for the given directory or file.
int child(const QStringList& arguments)
{
    if (!becomeOrdinaryUser())
        return 2;
    qputenv("LANG", "en_US.UTF-8");
    int argc = 0;
    QCoreApplication application(argc, nullptr);
    QTextStream out(stdout);
    const QString& path = arguments.at(1);
    if (arguments.at(0) == QLatin1String("clean"))
        out << failureText([&] { FileHelper::cleanDirectory(path); });
    else if (arguments.at(0) == QLatin1String("load"))
        out << failureText([&] { FileHelper::loadLibrary(path); });
    else
        out << FileHelper::permissionsMask(QFileInfo(path)) << FileHelper::canRead(path)
            << FileHelper::canWrite(path) << FileHelper::canExec(path);
    return 0;
}

} // namespace

class tst_FileHelper : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void fileName_data();
    void fileName();
    void accessIsThatOfTheFile();
    void permissionsMask_data();
    void permissionsMask();
    void permissionsOfTheUserWhoRunsTheProcess();
    void missingFile_data();
    void missingFile();
    void timesAreInTheLocalesShortFormat();
    void listingLine();
    void captionIsBoxed();

    void deviceOfADirectory();
    void deviceFailures_data();
    void deviceFailures();
    void freeSpaceOfAFileIsThatOfItsVolume();
    void freeSpaceFailures();

    void cleanRemovesSubdirectories();
    void cleanLeavesHiddenEntriesAlone();
    void cleanStopsAtAFile();
    void cleanNeverFollowsALink();
    void cleanKeepsALinkThatItIsGiven();
    void cleanFailures_data();
    void cleanFailures();
    void cleanAsOrdinaryUser();

    void loadLibrary();
    void loadLibraryFailures();
    void libraryThatIsCheckedIsTheOneLoaded_data();
    void libraryThatIsCheckedIsTheOneLoaded();
    void specialFilesAreNotLibraries_data();
    void specialFilesAreNotLibraries();

    void repeatedKeyKeepsItsLastValue();
    void propertiesLikeTheOtherReader();
    void propertiesFailures();

private:
    QString path(const QString& name) const { return _directory.filePath(name); }

    QTemporaryDir _directory;
};

void tst_FileHelper::initTestCase()
{
    QVERIFY(_directory.isValid());
    useLanguage(QStringLiteral("en_US"));
}

void tst_FileHelper::fileName_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("expected");
    QTest::newRow("slashes") << QStringLiteral("a/b/c.txt") << QStringLiteral("c.txt");
    QTest::newRow("backslashes") << QStringLiteral("c:\\x\\y") << QStringLiteral("y");
    QTest::newRow("plain") << QStringLiteral("plain") << QStringLiteral("plain");
    QTest::newRow("ends with a slash") << QStringLiteral("dir/") << QString();
    QTest::newRow("slash before backslash") << QStringLiteral("a/b\\c") << QStringLiteral("b\\c");
    QTest::newRow("backslash before slash") << QStringLiteral("a\\b/c") << QStringLiteral("c");
    QTest::newRow("empty") << QString() << QString();
}

void tst_FileHelper::fileName()
{
    QFETCH(QString, path);
    QTEST(FileHelper::fileName(path), "expected");
}

void tst_FileHelper::accessIsThatOfTheFile()
{
    const QString name = path(QStringLiteral("access"));
    QVERIFY(writeFile(name, "x"));
    QVERIFY(FileHelper::canRead(name));
    QVERIFY(FileHelper::canWrite(name));
    QVERIFY(!FileHelper::canExec(name));
    QVERIFY(QFile::setPermissions(name, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    const QFile file(name);
    QVERIFY(FileHelper::canRead(file));
    QVERIFY(FileHelper::canWrite(file));
    QVERIFY(FileHelper::canExec(file));
    const QFile missing(path(QStringLiteral("missing")));
    QVERIFY(!FileHelper::canRead(missing));
    QVERIFY(!FileHelper::canWrite(missing));
    QVERIFY(!FileHelper::canExec(missing));
}

void tst_FileHelper::permissionsMask_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("groupAndOthers");
    QTest::newRow("readable by all") << 0644 << QStringLiteral("r--r--");
    QTest::newRow("group may write") << 0660 << QStringLiteral("rw----");
    QTest::newRow("others may execute") << 0701 << QStringLiteral("-----x");
    QTest::newRow("all may do all") << 0777 << QStringLiteral("rwxrwx");
}

void tst_FileHelper::permissionsMask()
{
    QFETCH(int, mode);
    const QString name = path(QStringLiteral("mask"));
    QVERIFY(writeFile(name, "x"));
    QCOMPARE(chmod(QFile::encodeName(name).constData(), static_cast<mode_t>(mode)), 0);
    const QString mask = FileHelper::permissionsMask(QFileInfo(name));
    QCOMPARE(mask.size(), 11);
    QCOMPARE(mask.left(4), QStringLiteral("-frw"));
    QTEST(mask.mid(5), "groupAndOthers");

    const QString folder = path(QStringLiteral("folder"));
    QVERIFY(QDir().mkpath(folder));
    QVERIFY(FileHelper::permissionsMask(QFileInfo(folder)).startsWith(QStringLiteral("-d")));
    const QString link = path(QStringLiteral("link"));
    QFile::link(folder, link);
    QVERIFY(FileHelper::permissionsMask(QFileInfo(link)).startsWith(QStringLiteral("ld")));
}

void tst_FileHelper::permissionsOfTheUserWhoRunsTheProcess()
{
    QVERIFY(QFile::setPermissions(_directory.path(), QFile::Permissions(0x7755)));
    const QString name = path(QStringLiteral("others"));
    QVERIFY(writeFile(name, "x"));
    QCOMPARE(chmod(QFile::encodeName(name).constData(), 0604), 0);
    const ChildResult result = runChild({QStringLiteral("mask"), name});
    QCOMPARE(result.exitCode, 0);
    // The owner may write; an ordinary user who is not the owner may not.
    QCOMPARE(result.out, QByteArray(geteuid() == 0 ? "-fr-----r--100" : "-frw----r--110"));
}

void tst_FileHelper::missingFile_data()
{
    QTest::addColumn<QString>("signature");
    QTest::addColumn<int>("operation");
    QTest::newRow("mask") << QStringLiteral("permissionsMask(const QFileInfo&)") << 0;
    QTest::newRow("created") << QStringLiteral("createdToString(const QFileInfo&, QLocale)") << 1;
    QTest::newRow("updated") << QStringLiteral("updatedToString(const QFileInfo&, QLocale)") << 2;
    QTest::newRow("read") << QStringLiteral("readToString(const QFileInfo&, QLocale)") << 3;
    QTest::newRow("listing") << QStringLiteral("toConsole(const QFileInfo&, QLocale)") << 4;
}

void tst_FileHelper::missingFile()
{
    QFETCH(QString, signature);
    QFETCH(int, operation);
    const QFileInfo info(path(QStringLiteral("mis%1sing")));
    const QString failure = failureText([&] {
        switch (operation) {
        case 0:
            return FileHelper::permissionsMask(info);
        case 1:
            return FileHelper::createdToString(info, QLocale::c());
        case 2:
            return FileHelper::updatedToString(info, QLocale::c());
        case 3:
            return FileHelper::readToString(info, QLocale::c());
        default:
            return FileHelper::toConsole(info, QLocale::c());
        }
    });
    QCOMPARE(failure, QStringLiteral("QString FileHelper::") + signature +
                          QStringLiteral(" -> File [mis%1sing] doesn't exist"));
}

void tst_FileHelper::timesAreInTheLocalesShortFormat()
{
    const QString name = path(QStringLiteral("times"));
    QVERIFY(writeFile(name, "x"));
    {
        QFile file(name);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(QDateTime(QDate(2021, 3, 4), QTime(5, 6, 7)),
                                 QFileDevice::FileModificationTime));
        QVERIFY(file.setFileTime(QDateTime(QDate(2022, 4, 5), QTime(6, 7, 8)),
                                 QFileDevice::FileAccessTime));
    }
    const QFileInfo info(name);
    for (const QLocale& locale : {QLocale(QLocale::French, QLocale::France), QLocale::c()}) {
        QCOMPARE(
            FileHelper::updatedToString(info, locale),
            locale.toString(QDateTime(QDate(2021, 3, 4), QTime(5, 6, 7)), QLocale::ShortFormat));
        QCOMPARE(
            FileHelper::readToString(info, locale),
            locale.toString(QDateTime(QDate(2022, 4, 5), QTime(6, 7, 8)), QLocale::ShortFormat));
        QCOMPARE(FileHelper::createdToString(info, locale),
                 locale.toString(info.birthTime(), QLocale::ShortFormat));
    }
}

void tst_FileHelper::listingLine()
{
    const QString name = path(QStringLiteral("été 1.txt"));
    QVERIFY(writeFile(name, "12345"));
    QCOMPARE(chmod(QFile::encodeName(name).constData(), 0644), 0);
    const QFileInfo info(name);
    const QLocale french(QLocale::French, QLocale::France);
    QCOMPARE(FileHelper::toConsole(info, french),
             QStringLiteral("-frw-r--r-- ") + info.owner() + QLatin1Char(' ') + info.group() +
                 QStringLiteral(" 5 ") + FileHelper::updatedToString(info, french) +
                 QStringLiteral(" été 1.txt"));
}

void tst_FileHelper::captionIsBoxed()
{
    QString text;
    QTextStream stream(&text);
    FileHelper::writeCaption(QStringLiteral("  Run "), stream);
    QCOMPARE(text, QStringLiteral("+-----+\n| Run |\n+-----+\n(c) Vandrel\n\n"));
}

void tst_FileHelper::deviceOfADirectory()
{
    QCOMPARE(FileHelper::device(_directory.path()), QStorageInfo(_directory.path()));
}

void tst_FileHelper::deviceFailures_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("missing") << QStringLiteral("missing");
    QTest::newRow("file") << QStringLiteral("file");
}

void tst_FileHelper::deviceFailures()
{
    QVERIFY(writeFile(path(QStringLiteral("file")), "x"));
    QFETCH(QString, name);
    QCOMPARE(failureText([&] { FileHelper::device(path(name)); }),
             QStringLiteral("QStorageInfo FileHelper::device(const QString&) -> File [%1] is not a "
                            "directory support")
                 .arg(path(name)));
}

void tst_FileHelper::freeSpaceOfAFileIsThatOfItsVolume()
{
    // Others use the volume as well, so the values are only compared roughly.
    const auto isNear = [](quint64 a, quint64 b) { return qMax(a, b) - qMin(a, b) < b / 2; };
    const QString name = path(QStringLiteral("space"));
    QVERIFY(writeFile(name, "x"));
    const quint64 ofFile = FileHelper::freeSpace(name);
    const quint64 ofDirectory = FileHelper::freeSpace(_directory.path());
    QVERIFY(ofFile > 0);
    const QStorageInfo volume = FileHelper::device(_directory.path());
    if (volume.isValid()) // it is not below a changed root
        QVERIFY(isNear(ofFile, quint64(volume.bytesFree())));
    QVERIFY(isNear(ofFile, ofDirectory));
    QDir::setSearchPaths(QStringLiteral("volume"), {_directory.path()});
    QVERIFY(isNear(ofFile, FileHelper::freeSpace(QStringLiteral("volume:space"))));
    QVERIFY(isNear(ofFile, FileHelper::freeSpace(QStringLiteral("volume:."))));
    QDir::setSearchPaths(QStringLiteral("volume"), {});
}

void tst_FileHelper::freeSpaceFailures()
{
    const QString missing = path(QStringLiteral("missing"));
    QCOMPARE(failureText([&] { FileHelper::freeSpace(missing); }),
             QStringLiteral("quint64 FileHelper::freeSpace(const QString&) -> File [%1] doesn't "
                            "exist")
                 .arg(missing));
    const QString fifo = path(QStringLiteral("fifo"));
    QCOMPARE(mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    QCOMPARE(failureText([&] { FileHelper::freeSpace(fifo); }),
             QStringLiteral("quint64 FileHelper::freeSpace(const QString&) -> File [%1] is neither "
                            "a directory nor a regular file")
                 .arg(fifo));
}

void tst_FileHelper::cleanRemovesSubdirectories()
{
    const QString folder = path(QStringLiteral("clean"));
    FileHelper::cleanDirectory([&] {
        QDir().mkpath(folder);
        return folder;
    }());
    QVERIFY(QDir().mkpath(folder + QStringLiteral("/a/b/c")));
    QVERIFY(QDir().mkpath(folder + QStringLiteral("/d")));
    QVERIFY(writeFile(folder + QStringLiteral("/a/b/file"), "x"));
    FileHelper::cleanDirectory(folder);
    QVERIFY(QDir(folder).isEmpty());
}

void tst_FileHelper::cleanLeavesHiddenEntriesAlone()
{
    const QString folder = path(QStringLiteral("hidden"));
    QVERIFY(QDir().mkpath(folder + QStringLiteral("/.secret")));
    QVERIFY(writeFile(folder + QStringLiteral("/.file"), "x"));
    FileHelper::cleanDirectory(folder);
    QVERIFY(QFile::exists(folder + QStringLiteral("/.secret")));
    QVERIFY(QFile::exists(folder + QStringLiteral("/.file")));
}

void tst_FileHelper::cleanStopsAtAFile()
{
    const QString folder = path(QStringLiteral("withfile"));
    QVERIFY(QDir().mkpath(folder + QStringLiteral("/z")));
    QVERIFY(writeFile(folder + QStringLiteral("/a"), "x"));
    QCOMPARE(
        failureText([&] { FileHelper::cleanDirectory(folder); }),
        QStringLiteral("void FileHelper::cleanDirectory(const QString&) -> File [%1] cannot be "
                       "deleted")
            .arg(folder));
    QVERIFY(!QFile::exists(folder + QStringLiteral("/z"))); // directories come first
    QVERIFY(QFile::exists(folder + QStringLiteral("/a")));
}

void tst_FileHelper::cleanNeverFollowsALink()
{
    const QString outside = path(QStringLiteral("outside"));
    QVERIFY(QDir().mkpath(outside));
    QVERIFY(writeFile(outside + QStringLiteral("/precious"), "x"));
    const QString folder = path(QStringLiteral("withlink"));
    QVERIFY(QDir().mkpath(folder));
    QVERIFY(QFile::link(outside, folder + QStringLiteral("/link")));
    QCOMPARE(
        failureText([&] { FileHelper::cleanDirectory(folder); }),
        QStringLiteral("void FileHelper::cleanDirectory(const QString&) -> File [%1] cannot be "
                       "deleted")
            .arg(folder));
    QVERIFY(QFile::exists(outside + QStringLiteral("/precious")));
}

void tst_FileHelper::cleanKeepsALinkThatItIsGiven()
{
    const QString folder = path(QStringLiteral("behindlink"));
    QVERIFY(QDir().mkpath(folder + QStringLiteral("/z")));
    QVERIFY(QFile::link(path(QStringLiteral(".")), folder + QStringLiteral("/a")));
    const QString link = path(QStringLiteral("givenlink"));
    QVERIFY(QFile::link(folder, link));
    QCOMPARE(
        failureText([&] { FileHelper::cleanDirectory(link); }),
        QStringLiteral("void FileHelper::cleanDirectory(const QString&) -> File [%1] cannot be "
                       "deleted")
            .arg(link));
    QVERIFY(QFileInfo(link).isSymLink());
    QVERIFY(!QFile::exists(folder + QStringLiteral("/z"))); // even though "a" sorts before it
    QVERIFY(QFileInfo(folder + QStringLiteral("/a")).isSymLink());
}

void tst_FileHelper::cleanFailures_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("message");
    QTest::newRow("missing") << QStringLiteral("missing")
                             << QStringLiteral("Directory [%1] does not exist");
    QTest::newRow("file") << QStringLiteral("file")
                          << QStringLiteral("File [%1] is not a directory");
}

void tst_FileHelper::cleanFailures()
{
    QVERIFY(writeFile(path(QStringLiteral("file")), "x"));
    QFETCH(QString, name);
    QFETCH(QString, message);
    QCOMPARE(failureText([&] { FileHelper::cleanDirectory(path(name)); }),
             QStringLiteral("void FileHelper::cleanDirectory(const QString&) -> ") +
                 message.arg(path(name)));
}

void tst_FileHelper::cleanAsOrdinaryUser()
{
    QVERIFY(QFile::setPermissions(_directory.path(), QFile::Permissions(0x7755)));
    const QString folder = path(QStringLiteral("readonly"));
    QVERIFY(QDir().mkpath(folder));
    QCOMPARE(chmod(QFile::encodeName(folder).constData(), 0555), 0);
    const ChildResult readOnly = runChild({QStringLiteral("clean"), folder});
    QCOMPARE(QString::fromUtf8(readOnly.out),
             QStringLiteral("void FileHelper::cleanDirectory(const QString&) -> Directory [%1] is "
                            "not writable")
                 .arg(folder));

    const QString parent = path(QStringLiteral("writable"));
    const QString locked = parent + QStringLiteral("/locked");
    QVERIFY(QDir().mkpath(locked));
    QVERIFY(writeFile(locked + QStringLiteral("/file"), "x"));
    QCOMPARE(chmod(QFile::encodeName(parent).constData(), 0777), 0);
    QCOMPARE(chmod(QFile::encodeName(locked).constData(), 0555), 0);
    const ChildResult failed = runChild({QStringLiteral("clean"), parent});
    QCOMPARE(QString::fromUtf8(failed.out),
             QStringLiteral("void FileHelper::cleanDirectory(const QString&) -> Subdirectory [%1] "
                            "cannot be deleted")
                 .arg(parent));
    QCOMPARE(chmod(QFile::encodeName(locked).constData(), 0755), 0);
}

void tst_FileHelper::loadLibrary()
{
    FileHelper::loadLibrary(QStringLiteral(KEZ_LIBRARY_FILE));
    FileHelper::loadLibrary(QStringLiteral(KEZ_LIBRARY_FILE));
}

void tst_FileHelper::loadLibraryFailures()
{
    const QString signature = QStringLiteral("void FileHelper::loadLibrary(const QString&) -> ");
    const QString missing = path(QStringLiteral("missing.so"));
    QCOMPARE(failureText([&] { FileHelper::loadLibrary(missing); }),
             signature + QStringLiteral("File [%1] isn't readable").arg(missing));

    const QString noise = path(QStringLiteral("noise.so"));
    QVERIFY(writeFile(noise, "this is not a library"));
    const QString failure = failureText([&] { FileHelper::loadLibrary(noise); });
    QVERIFY2(failure.startsWith(signature + QStringLiteral("Failed to load dynamic library ") +
                                noise + QStringLiteral(" - ")),
             qUtf8Printable(failure));
    QVERIFY(!failure.endsWith(QStringLiteral(" - ")));

    QCOMPARE(chmod(QFile::encodeName(noise).constData(), 0), 0);
    const ChildResult unreadable = runChild({QStringLiteral("load"), noise});
    QCOMPARE(QString::fromUtf8(unreadable.out),
             signature + QStringLiteral("File [%1] isn't readable").arg(noise));
}

void tst_FileHelper::libraryThatIsCheckedIsTheOneLoaded_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("content");
    const QString library = QStringLiteral(ORDER_PLUGIN);
    QTest::newRow("a text with the name of a system library")
        << QStringLiteral("libm.so.6") << QString();
    QTest::newRow("a library") << QStringLiteral("libhere.so") << library;
    QTest::newRow("a library without suffix") << QStringLiteral("here") << library;
    QTest::newRow("a library below a directory") << QStringLiteral("below/libhere.so") << library;
    QTest::newRow("a text beside a library") << QStringLiteral("text") << QString();
    QTest::newRow("a text beside a library, with a path") << QStringLiteral("./text") << QString();
    QTest::newRow("a text beside a library, below a directory")
        << QStringLiteral("below/text") << QString();
    QTest::newRow("a library behind a link") << QStringLiteral("link/../behind.so") << library;
    QTest::newRow("a search path") << QStringLiteral("libraries:libhere.so") << library;
    QTest::newRow("a text found by a search path")
        << QStringLiteral("libraries:libm.so.6") << QString();
}

void tst_FileHelper::libraryThatIsCheckedIsTheOneLoaded()
{
    QFETCH(QString, name);
    QFETCH(QString, content);
    const QTemporaryDir directory;
    QVERIFY(QDir(directory.path()).mkpath(QStringLiteral("below/deep")));
    QVERIFY(QFile::link(directory.filePath(QStringLiteral("below/deep")),
                        directory.filePath(QStringLiteral("link"))));
    QVERIFY(writeFile(directory.filePath(QStringLiteral("behind.so")), "not this one"));
    const auto place = [&directory](const QString& file) {
        return directory.filePath(file.section(QLatin1Char(':'), -1));
    };
    // What the loader finds if it completes the name.
    for (const char* other : {"text.so", "libtext.so", "below/text.so", "below/libtext.so"})
        QVERIFY(QFile::copy(QStringLiteral(ORDER_PLUGIN), place(QLatin1String(other))));
    if (content.isEmpty())
        QVERIFY(writeFile(place(name), "this is not a library"));
    else
        QVERIFY(QFile::copy(content, place(name)));

    const QString before = QDir::currentPath();
    QDir::setSearchPaths(QStringLiteral("libraries"), {directory.path()});
    QVERIFY(QDir::setCurrent(directory.path()));
    const QString failure = failureText([&] { FileHelper::loadLibrary(name); });
    QVERIFY(QDir::setCurrent(before));
    QDir::setSearchPaths(QStringLiteral("libraries"), {});

    if (content.isEmpty()) {
        const QString start = QStringLiteral("void FileHelper::loadLibrary(const QString&) -> "
                                             "Failed to load dynamic library ") +
                              name + QStringLiteral(" - ");
        QVERIFY2(failure.startsWith(start), qUtf8Printable(failure));
        QVERIFY2(failure.contains(directory.path()), qUtf8Printable(failure));
    } else {
        QCOMPARE(failure, QString());
        const QByteArray maps = readFile(QStringLiteral("/proc/self/maps"));
        QVERIFY(maps.contains(QFile::encodeName(QFileInfo(place(name)).canonicalFilePath())));
    }
}

void tst_FileHelper::specialFilesAreNotLibraries_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("message");
    const QString notReadable = QStringLiteral("File [%1] isn't readable");
    QTest::newRow("a fifo") << path(QStringLiteral("fifo.so")) << notReadable;
    QTest::newRow("a link to a fifo") << path(QStringLiteral("link.so")) << notReadable;
    QTest::newRow("a broken link") << path(QStringLiteral("broken.so")) << notReadable;
    QTest::newRow("a device") << QStringLiteral("/dev/null") << notReadable;
    QTest::newRow("a resource") << QStringLiteral(":/library.so") << notReadable;
    QTest::newRow("nothing") << QString() << notReadable;
    QTest::newRow("a directory") << path(QStringLiteral("directory.so"))
                                 << QStringLiteral("Failed to load dynamic library %1 - ");
}

void tst_FileHelper::specialFilesAreNotLibraries()
{
    QFETCH(QString, name);
    QFETCH(QString, message);
    const auto make = [](const QString& made, const QString& target) {
        return QFileInfo(made).isSymLink() || QFile::link(target, made);
    };
    QVERIFY(QDir().mkpath(path(QStringLiteral("directory.so"))));
    QVERIFY(QFile::exists(path(QStringLiteral("fifo.so"))) ||
            mkfifo(QFile::encodeName(path(QStringLiteral("fifo.so"))).constData(), 0600) == 0);
    QVERIFY(make(path(QStringLiteral("link.so")), path(QStringLiteral("fifo.so"))));
    QVERIFY(make(path(QStringLiteral("broken.so")), path(QStringLiteral("none.so"))));
    const QString failure = failureText([&] { FileHelper::loadLibrary(name); });
    const QString expected =
        QStringLiteral("void FileHelper::loadLibrary(const QString&) -> ") + message.arg(name);
    QVERIFY2(failure.startsWith(expected), qUtf8Printable(failure));
}

void tst_FileHelper::repeatedKeyKeepsItsLastValue()
{
    const QString name = path(QStringLiteral("repeated.properties"));
    QVERIFY(writeFile(name, "a=1\nb=2\na=3\n"));
    QCOMPARE(FileHelper::loadProperties(name, 0),
             (Dictionnary{{QStringLiteral("a"), QStringLiteral("3")},
                          {QStringLiteral("b"), QStringLiteral("2")}}));
}

void tst_FileHelper::propertiesLikeTheOtherReader()
{
    const QString name = path(QStringLiteral("rules.properties"));
    QVERIFY(writeFile(name, "\n   \n   # note\n  x = y  \nkey=\n=value\nplain\na#b=c=d\n"));
    QCOMPARE(FileHelper::loadProperties(name, 0),
             (Dictionnary{{QStringLiteral("x "), QStringLiteral(" y")},
                          {QStringLiteral("key"), QString()},
                          {QString(), QStringLiteral("value")},
                          {QStringLiteral("a#b"), QStringLiteral("c=d")}}));
    QVERIFY(writeFile(name, "ab=cd=ef\n"));
    QCOMPARE(FileHelper::loadProperties(name, 5),
             (Dictionnary{{QStringLiteral("ab"), QStringLiteral("cd")},
                          {QString(), QStringLiteral("ef")}}));
}

void tst_FileHelper::propertiesFailures()
{
    const QString signature =
        QStringLiteral("Dictionnary FileHelper::loadProperties(const QString&, qint64) -> ");
    const QString missing = path(QStringLiteral("missing"));
    QCOMPARE(failureText([&] { FileHelper::loadProperties(missing, 0); }),
             signature + QStringLiteral("File [%1] doesn't exist").arg(missing));
    QCOMPARE(failureText([&] { FileHelper::loadProperties(_directory.path(), 0); }),
             signature + QStringLiteral("File [%1] cannot be modified").arg(_directory.path()));
}

KEZ_TEST_MAIN_WITH_CHILDREN(tst_FileHelper, child)
#include "tst_filehelper.moc"
