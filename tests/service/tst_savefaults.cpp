// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Saves that are killed, and saves whose system calls fail.

#include "service/kittexts_p.h"
#include "support/childprocess.h"
#include "support/failuretext.h"
#include "support/files.h"
#include "support/interposed.h"
#include "support/language.h"

#include <kez/service/savedproperties.h>

#include <QDir>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace KezService;

using Entries = QMap<QString, QString>;

namespace {

/// Which step of a save fails or kills the process, counted from 0; none if it is negative.
int failingStep = -1;
int killingStep = -1;
QByteArrayList steps; // those of the running save
bool isSaving = false;
int stepError = EIO;
mode_t modeWhileWritten = 0;

/// Counts a step. True if it has to fail; then errno is set.
bool isRefused(const char* name)
{
    if (!isSaving)
        return false;
    const auto step = int(steps.size());
    steps.append(name);
    if (step == killingStep)
        ::kill(::getpid(), SIGKILL);
    errno = stepError;
    return step == failingStep;
}

} // namespace

extern "C" {

int open(const char* path, int flags, ...)
{
    static const auto original = interposed<int (*)(const char*, int, ...)>("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return isRefused((flags & O_CREAT) ? "create" : "open") ? -1 : original(path, flags, mode);
}

ssize_t write(int file, const void* bytes, size_t size)
{
    static const auto original = interposed<ssize_t (*)(int, const void*, size_t)>("write");
    if (!isSaving)
        return original(file, bytes, size);
    struct stat info {};
    modeWhileWritten = ::fstat(file, &info) == 0 ? info.st_mode & 07777 : 0;
    // In two parts, as the system may do it.
    const size_t part = size > 100 ? size / 2 : size;
    return isRefused("write") ? -1 : original(file, bytes, part);
}

int fsync(int file)
{
    static const auto original = interposed<int (*)(int)>("fsync");
    return isRefused("fsync") ? -1 : original(file);
}

int fchmod(int file, mode_t mode) noexcept
{
    static const auto original = interposed<int (*)(int, mode_t)>("fchmod");
    return isRefused("fchmod") ? -1 : original(file, mode);
}

int flock(int file, int operation) noexcept
{
    static const auto original = interposed<int (*)(int, int)>("flock");
    return isRefused("flock") ? -1 : original(file, operation);
}

int rename(const char* from, const char* to) noexcept
{
    static const auto original = interposed<int (*)(const char*, const char*)>("rename");
    return isRefused("rename") ? -1 : original(from, to);
}
}

namespace {

Entries oldEntries()
{
    return {{"a", QString(300, 'o')}, {"b", "old"}};
}

Entries newEntries()
{
    return {{"a", QString(500, 'n')}, {"b", "new"}, {"c", "new"}};
}

QByteArray linesOf(const Entries& entries)
{
    QByteArray lines;
    for (auto entry = entries.cbegin(); entry != entries.cend(); ++entry)
        lines += (entry.key() + '=' + entry.value() + '\n').toUtf8();
    return lines;
}

/// A larger map than the file system writes at once.
Entries manyEntries(QChar character)
{
    Entries entries;
    for (int i = 0; i < 2000; ++i)
        entries.insert(QString("key%1").arg(i, 5), QString(60, character));
    return entries;
}

Entries largeOld()
{
    return manyEntries('o');
}

Entries largeNew()
{
    return manyEntries('n');
}

/// at <step> <path>: is killed before that step. loop <path>: saves until it is killed.
int childMain(const QStringList& arguments)
{
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    if (arguments.value(0) == "at") {
        killingStep = arguments.value(1).toInt();
        isSaving = true;
        saveAtomically(arguments.value(2), newEntries());
        return 0;
    }
    const Entries even = largeOld();
    const Entries odd = largeNew();
    saveAtomically(arguments.value(1), even);
    std::puts("saving");
    std::fflush(stdout);
    while (true) {
        saveAtomically(arguments.value(1), odd);
        saveAtomically(arguments.value(1), even);
    }
}

} // namespace

class TestSaveFaults : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void eachStepThatFailsLeavesTheOldFile();
    void failureOfTheLastStepSaysThatTheFileIsNew();
    void interruptedSaveGoesOn();
    void nobodyElseOpensWhatReplacesAPrivateFile();
    void killBeforeEachStepLeavesAWholeFile();
    void killsAtRandomMomentsLeaveAWholeFile();

private:
    QString file() const { return _directory->filePath("app.properties"); }
    QString hidden() const { return _directory->filePath(".app.properties.new"); }
    QStringList names() const
    {
        return QDir(_directory->path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }

    /// The failure of a save over the old file, whose step number `step` fails.
    QString failureAt(int step, int error)
    {
        saveAtomically(file(), oldEntries());
        steps.clear();
        failingStep = step;
        stepError = error;
        isSaving = true;
        const QString text = failureText([&] { saveAtomically(file(), newEntries()); });
        isSaving = false;
        return text;
    }

    std::unique_ptr<QTemporaryDir> _directory;
};

void TestSaveFaults::init()
{
    useLanguage("en_US");
    _directory = std::make_unique<QTemporaryDir>();
    QVERIFY(_directory->isValid());
}

void TestSaveFaults::cleanup()
{
    isSaving = false;
    failingStep = -1;
}

void TestSaveFaults::eachStepThatFailsLeavesTheOldFile()
{
    QCOMPARE(failureAt(-1, EIO), QString());
    const QByteArrayList usual = steps;
    QVERIFY2(usual.startsWith("create") && usual.contains("write") && usual.contains("rename"),
             usual.join(' ').constData());
    QCOMPARE(usual.last(2), (QByteArrayList{"open", "fsync"})); // of the directory
    // The file is synced, with its rights, before it is renamed.
    QVERIFY(usual.indexOf("fchmod") < usual.indexOf("fsync"));
    QVERIFY(usual.lastIndexOf("write") < usual.indexOf("fsync"));
    QVERIFY(usual.indexOf("fsync") < usual.indexOf("rename"));

    for (int step = 0; step < usual.size() - 2; ++step) {
        const QString text = failureAt(step, ENOSPC);
        const QString where = usual[step] == "rename" ? file() : hidden();
        QCOMPARE(text, "[" + file() + "] cannot be saved and stays as it was: [" + where +
                           "]: " + systemErrorText(ENOSPC));
        QCOMPARE(readFile(file()), linesOf(oldEntries()));
        QCOMPARE(names(), QStringList("app.properties"));
    }
}

void TestSaveFaults::failureOfTheLastStepSaysThatTheFileIsNew()
{
    failureAt(-1, EIO);
    const auto count = int(steps.size());
    for (const int step : {count - 2, count - 1}) {
        QCOMPARE(failureAt(step, EIO),
                 "[" + file() +
                     "] is saved, but a power failure now may bring the previous file "
                     "back: its directory cannot be synced: " +
                     systemErrorText(EIO));
        QCOMPARE(readFile(file()), linesOf(newEntries()));
        QCOMPARE(names(), QStringList("app.properties"));
    }
}

void TestSaveFaults::interruptedSaveGoesOn()
{
    failureAt(-1, EIO);
    const QByteArrayList usual = steps;
    for (int step = 0; step < usual.size(); ++step) {
        if (usual[step] == "rename" || usual[step] == "fchmod") // never interrupted
            continue;
        QCOMPARE(failureAt(step, EINTR), QString());
        QCOMPARE(readFile(file()), linesOf(newEntries()));
    }
}

void TestSaveFaults::nobodyElseOpensWhatReplacesAPrivateFile()
{
    const mode_t mask = ::umask(0);
    failureAt(-1, EIO);
    for (const mode_t mode : {0600U, 0640U, 0644U}) {
        QCOMPARE(::chmod(qPrintable(file()), mode), 0);
        QCOMPARE(failureAt(-1, EIO), QString());
        QCOMPARE(modeWhileWritten, mode_t(0600));
        QCOMPARE(QFileInfo(file()).permission(QFile::ReadOther), mode == 0644U);
    }
    ::umask(mask);
}

void TestSaveFaults::killBeforeEachStepLeavesAWholeFile()
{
    failureAt(-1, EIO);
    const QByteArrayList usual = steps;
    int leftovers = 0;
    for (int step = 0; step < usual.size(); ++step) {
        saveAtomically(file(), oldEntries());
        QCOMPARE(names(), QStringList("app.properties"));
        const ChildResult child = runChild({"at", QString::number(step), file()});
        QVERIFY2(child.crashed, usual[step].constData());
        const bool isRenamed = step > usual.indexOf("rename");
        QCOMPARE(readFile(file()), linesOf(isRenamed ? newEntries() : oldEntries()));
        QStringList left = names();
        leftovers += int(left.removeAll(".app.properties.new"));
        QCOMPARE(left, QStringList("app.properties"));
    }
    QCOMPARE(leftovers, int(usual.indexOf("rename"))); // from the creation on
}

void TestSaveFaults::killsAtRandomMomentsLeaveAWholeFile()
{
    const QByteArray one = linesOf(largeOld());
    const QByteArray other = linesOf(largeNew());
    QRandomGenerator random(4711);
    int leftovers = 0;
    for (int i = 0; i < 120; ++i) {
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(), {"--child", "loop", file()});
        QVERIFY(child.waitForReadyRead(30000));
        QTest::qSleep(1 + random.bounded(12));
        child.kill();
        QVERIFY(child.waitForFinished(30000));
        QCOMPARE(child.exitStatus(), QProcess::CrashExit);
        const QByteArray bytes = readFile(file());
        QVERIFY2(bytes == one || bytes == other, bytes.right(100).constData());
        QStringList left = names();
        leftovers += int(left.removeAll(".app.properties.new"));
        QCOMPARE(left, QStringList("app.properties"));
    }
    qInfo("120 kills, %d of them while the hidden file was there", leftovers);
    saveAtomically(file(), {});
    QCOMPARE(names(), QStringList("app.properties"));
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestSaveFaults, childMain)
#include "tst_savefaults.moc"
