// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/kittexts_p.h"
#include "support/failuretext.h"
#include "support/files.h"
#include "support/interposed.h"
#include "support/language.h"
#include "support/opendescriptors.h"
#include "support/tracelog.h"

#include <kez/service/configwatcher.h>
#include <kez/service/savedproperties.h>

#include <QDir>
#include <QEventLoop>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <QtTest>

#include <atomic>
#include <cerrno>
#include <functional>
#include <future>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace KezService;
using namespace std::chrono_literals;

using Change = std::function<bool(const QString& root, const QByteArray& bytes)>;
Q_DECLARE_METATYPE(Change)

namespace {

std::atomic<int> watchError = 0; // what the system answers who wants to watch

} // namespace

extern "C" int inotify_init1(int flags) noexcept
{
    static const auto original = interposed<int (*)(int)>("inotify_init1");
    if (watchError == 0)
        return original(flags);
    errno = watchError;
    return -1;
}

namespace {

std::atomic<int> controllers = 0; // made so far
std::atomic<bool> isEnvironmentBad = false;
std::function<void()> whileChecking;

/// Every value of a key "number.*" has to be a number.
class NumberController : public IConfigController {
    Q_OBJECT

public:
    NumberController() { ++controllers; }

    bool isLegalConfiguration(Properties* properties) override
    {
        if (whileChecking)
            whileChecking();
        for (auto entry = properties->begin(); entry != properties->end(); ++entry) {
            bool isNumber = true;
            if (entry.key().startsWith("number."))
                entry.value().toInt(&isNumber);
            if (!isNumber)
                insertError(entry.key() + " is no number");
        }
        if (isEnvironmentBad)
            insertError("bad environment");
        return errors().isEmpty();
    }
};

/// Refuses a configuration whose two halves differ, as a half-written one.
class HalvesController : public IConfigController {
    Q_OBJECT

public:
    bool isLegalConfiguration(Properties* properties) override
    {
        // With the version.
        const bool isWhole =
            properties->size() == 1002 && properties->value("first") == properties->value("zlast");
        if (!isWhole)
            insertError("halves differ");
        return isWhole;
    }
};

bool renameTo(const QString& from, const QString& to)
{
    return ::rename(qPrintable(from), qPrintable(to)) == 0;
}

bool exchangeLink(const QString& target, const QString& name)
{
    return ::symlink(qPrintable(target), qPrintable(name + ".new")) == 0 &&
           renameTo(name + ".new", name);
}

QMap<QString, QString> largeEntries(int number)
{
    QMap<QString, QString> entries = {{"first", QString::number(number)},
                                      {"zlast", QString::number(number)}};
    while (entries.size() < 1001)
        entries.insert(QString("key%1").arg(entries.size()), QString(20, 'x'));
    return entries;
}

/// Counts what the timers of one object do.
class TimerEvents : public QObject {
public:
    explicit TimerEvents(QObject& owner) : _owner(owner)
    {
        QCoreApplication::instance()->installEventFilter(this);
    }
    bool eventFilter(QObject* receiver, QEvent* event) override
    {
        count += event->type() == QEvent::Timer && receiver->parent() == &_owner;
        return false;
    }
    int count = 0;

private:
    QObject& _owner;
};

} // namespace

class TestConfigWatcher : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void startLoads();
    void startThrowsAllFaults();
    void startMayBeTriedAgain();
    void secondStartChangesNothing();
    void changeIsAnnounced_data();
    void changeIsAnnounced();
    void changeIsFoundWithoutNotifications_data() { changeIsAnnounced_data(); }
    void changeIsFoundWithoutNotifications();
    void missingNotificationsAreLoggedOnce();
    void faultyFileIsRefusedWithAllFaults();
    void sameFaultyContentIsRefusedOnce();
    void validatorsAreNewEachTime();
    void fileThatVanishesIsReportedOnce();
    void sameEntriesAreNotAnnounced_data();
    void sameEntriesAreNotAnnounced();
    void faultyFileThatIsRevertedIsNotAnnounced();
    void unreadableFilesAreRefused_data();
    void unreadableFilesAreRefused();
    void fileIsLoadedWhenItRests();
    void fileThatNeverRestsIsLoaded();
    void reloadAsksTheValidatorsAgain();
    void reloadReportsFaultsAgain();
    void reloadDoesNotWait();
    void touchedFileIsCheckedAgain();
    void nothingHappensUnlessStarted();
    void stoppedWatcherMayBeStartedAgain();
    void slotsMayUseTheWatcher();
    void validatorMayRunAnEventLoop();
    void waitingValidatorCostsNoTime();
    void reloadDuringACheckRunsTheValidatorsAgain();
    void watcherMayBeStoppedDuringACheck();
    void watcherMayBeStartedAnewDuringACheck();
    void watcherMayBeDestroyedAtAnyTime();
    void relativePathIsResolvedOnce();
    void logSaysWhatChangedAndWhatIsWrong();
    void manyChangedKeysAreNotAllNamed();
    void versionIsKept();
    void savedConfigurationsAreAlwaysWhole();
    void worksInAnotherThread();
    void descriptorsAreGivenBack();

private:
    QString root() const { return _directory->path(); }
    QString file() const { return root() + "/etc/app.conf"; }
    bool write(const QByteArray& bytes) const { return writeFile(file(), bytes); }

    /// Of the file above, quick, and without the regular check.
    std::unique_ptr<ConfigWatcher> quickWatcher(const QString& path = QString()) const
    {
        auto watcher = std::make_unique<ConfigWatcher>(path.isEmpty() ? file() : path, "1",
                                                       validatorsOf<NumberController>());
        watcher->setQuietTime(10ms);
        watcher->setCheckPeriod(0ms);
        return watcher;
    }

    std::unique_ptr<QTemporaryDir> _directory;
    std::unique_ptr<TraceLog> _log;
};

/// etc/app.conf is the file; mounted/app.conf leads to it as in a container.
void TestConfigWatcher::init()
{
    useLanguage("en_US");
    _directory = std::make_unique<QTemporaryDir>();
    _log = std::make_unique<TraceLog>();
    QVERIFY(_directory->isValid());
    QVERIFY(QDir(root()).mkpath("etc") && QDir(root()).mkpath("mounted/..1"));
    QVERIFY(write("a=1\n") && writeFile(root() + "/mounted/..1/app.conf", "a=1\n"));
    QVERIFY(exchangeLink("..1", root() + "/mounted/..data"));
    QVERIFY(exchangeLink("..data/app.conf", root() + "/mounted/app.conf"));
}

void TestConfigWatcher::cleanup()
{
    watchError = 0;
    isEnvironmentBad = false;
    whileChecking = nullptr;
}

void TestConfigWatcher::startLoads()
{
    const auto watcher = quickWatcher();
    const QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    const QSignalSpy refused(watcher.get(), &ConfigWatcher::refused);
    QVERIFY(!watcher->config());
    const auto config = watcher->start();
    QCOMPARE(watcher->config(), config);
    QCOMPARE(config->value("a"), "1");
    QCOMPARE(config->value("app.version"), "1");
    QCOMPARE(watcher->faults(), QStringList());
    QCOMPARE(watcher->path(), file());
    QTest::qWait(50);
    QVERIFY(changed.isEmpty() && refused.isEmpty());
    QCOMPARE(_log->texts(), QStringList());
}

void TestConfigWatcher::startThrowsAllFaults()
{
    QVERIFY(write("number.a=x\nnumber.b=y\n"));
    const auto watcher = quickWatcher();
    const QSignalSpy refused(watcher.get(), &ConfigWatcher::refused);
    QCOMPARE(failureText([&] { watcher->start(); }),
             file() + ": number.a is no number\n" + file() + ": number.b is no number");
    QVERIFY(!watcher->config());
    QVERIFY(QFile::remove(file()));
    QCOMPARE(failureText([&] { watcher->start(); }),
             file() + ": the file cannot be read: " + systemErrorText(ENOENT));
    QVERIFY(refused.isEmpty());
    QCOMPARE(_log->texts(), QStringList());
}

void TestConfigWatcher::startMayBeTriedAgain()
{
    QVERIFY(write("number.a=x\n"));
    const auto watcher = quickWatcher();
    QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    QVERIFY(!failureText([&] { watcher->start(); }).isEmpty());
    QVERIFY(write("number.a=1\n"));
    QTest::qWait(50);
    QVERIFY(changed.isEmpty() && !watcher->config()); // it does not watch
    watcher->start();
    QVERIFY(write("number.a=2\n"));
    QVERIFY(changed.wait());
}

void TestConfigWatcher::secondStartChangesNothing()
{
    const auto watcher = quickWatcher();
    QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    const auto config = watcher->start();
    QVERIFY(write("a=2\n"));
    QCOMPARE(watcher->start(), config);
    QVERIFY(changed.wait());
}

void TestConfigWatcher::changeIsAnnounced_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<Change>("change");
    const auto row = [](const char* name, const char* path, const Change& change) {
        QTest::newRow(name) << QString(path) << change;
    };
    row("in place", "etc/app.conf", [](const QString& root, const QByteArray& bytes) {
        return writeFile(root + "/etc/app.conf", bytes);
    });
    row("by a rename", "etc/app.conf", [](const QString& root, const QByteArray& bytes) {
        return writeFile(root + "/new", bytes) && renameTo(root + "/new", root + "/etc/app.conf");
    });
    row("removed and made again", "etc/app.conf", [](const QString& root, const QByteArray& bytes) {
        return QFile::remove(root + "/etc/app.conf") && writeFile(root + "/etc/app.conf", bytes);
    });
    row("as an editor does", "etc/app.conf", [](const QString& root, const QByteArray& bytes) {
        return renameTo(root + "/etc/app.conf", root + "/etc/app.conf~") &&
               writeFile(root + "/etc/app.conf", bytes);
    });
    row("with its directory", "etc/app.conf", [](const QString& root, const QByteArray& bytes) {
        return QDir().mkdir(root + "/new") && writeFile(root + "/new/app.conf", bytes) &&
               renameTo(root + "/etc", root + "/old") && renameTo(root + "/new", root + "/etc");
    });
    row("behind a link", "mounted/app.conf", [](const QString& root, const QByteArray& bytes) {
        return writeFile(root + "/mounted/..1/app.conf", bytes);
    });
    row("by another link", "mounted/app.conf", [](const QString& root, const QByteArray& bytes) {
        return QDir().mkdir(root + "/mounted/..2") &&
               writeFile(root + "/mounted/..2/app.conf", bytes) &&
               exchangeLink("..2", root + "/mounted/..data") &&
               QDir(root + "/mounted/..1").removeRecursively();
    });
}

void TestConfigWatcher::changeIsAnnounced()
{
    QFETCH(const QString, path);
    QFETCH(const Change, change);
    const auto watcher = quickWatcher(root() + '/' + path);
    QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    const QSignalSpy refused(watcher.get(), &ConfigWatcher::refused);
    const auto before = watcher->start();
    QVERIFY(change(root(), "a=2\nb=3\n"));
    QVERIFY(changed.wait());
    const auto config = watcher->config();
    QCOMPARE(config->value("a") + config->value("b"), "23");
    QCOMPARE(changed[0][0].value<std::shared_ptr<Config>>(), config);
    QCOMPARE(changed[0][1].value<std::shared_ptr<Config>>(), before);
    QCOMPARE(before->value("a"), "1");
    QVERIFY(!before->existsKey("b"));
    QTest::qWait(30);
    QCOMPARE(changed.size(), 1);
    QVERIFY(refused.isEmpty());
}

void TestConfigWatcher::changeIsFoundWithoutNotifications()
{
    QFETCH(const QString, path);
    QFETCH(const Change, change);
    watchError = EMFILE;
    const auto watcher = quickWatcher(root() + '/' + path);
    watcher->setCheckPeriod(10ms);
    watcher->setQuietTime(200ms); // many checks do not prolong it
    QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    watcher->start();
    QVERIFY(change(root(), "a=2\nb=3\n"));
    QVERIFY(changed.wait());
    QCOMPARE(watcher->config()->value("b"), "3");
}

void TestConfigWatcher::missingNotificationsAreLoggedOnce()
{
    watchError = EMFILE;
    const auto watcher = quickWatcher();
    watcher->setCheckPeriod(5ms);
    watcher->start();
    QCOMPARE(_log->texts(), QStringList()); // not before the log can be there
    QTRY_VERIFY(!_log->texts().isEmpty());
    QTest::qWait(50);
    QCOMPARE(_log->texts(),
             QStringList("2" + file() + ": the system does not report changes of this file (" +
                         systemErrorText(EMFILE) + "); it is still looked at regularly"));

    // When there are watches again, they are used.
    watchError = 0;
    QTest::qWait(50);
    watcher->setCheckPeriod(0ms);
    QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    QVERIFY(write("a=2\n"));
    QVERIFY(changed.wait());
}

void TestConfigWatcher::faultyFileIsRefusedWithAllFaults()
{
    const auto watcher = quickWatcher();
    QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    QSignalSpy refused(watcher.get(), &ConfigWatcher::refused);
    const auto before = watcher->start();
    QVERIFY(write("a=2\nnumber.a=x\nnumber.b=y\n"));
    QVERIFY(refused.wait());
    const QStringList faults = {"number.a is no number", "number.b is no number"};
    QCOMPARE(refused[0][0].toStringList(), faults);
    QCOMPARE(watcher->faults(), faults);
    QCOMPARE(watcher->config(), before);
    QCOMPARE(before->value("a"), "1");
    QVERIFY(changed.isEmpty());

    QVERIFY(write("a=2\nnumber.a=1\nnumber.b=2\n"));
    QVERIFY(changed.wait());
    QCOMPARE(watcher->faults(), QStringList());
    QCOMPARE(watcher->config()->value("a"), "2");
    QCOMPARE(refused.size(), 1);
}

void TestConfigWatcher::sameFaultyContentIsRefusedOnce()
{
    const auto watcher = quickWatcher();
    QSignalSpy refused(watcher.get(), &ConfigWatcher::refused);
    watcher->start();
    QVERIFY(write("number.a=x\n"));
    QVERIFY(refused.wait());
    const int made = controllers;
    QVERIFY(write("number.a=x\n"));
    QTRY_VERIFY(controllers > made); // it was checked again
    QTest::qWait(20);
    QCOMPARE(refused.size(), 1);
    // Another content with the same faults: somebody tried again.
    QVERIFY(write("number.a=y\n"));
    QVERIFY(refused.wait());
    QCOMPARE(refused[0], refused[1]);
}

void TestConfigWatcher::validatorsAreNewEachTime()
{
    const auto watcher = quickWatcher();
    QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    QSignalSpy refused(watcher.get(), &ConfigWatcher::refused);
    watcher->start();
    for (int i = 0; i < 3; ++i) {
        QVERIFY(write("number.a=x\n"));
        QVERIFY(refused.wait());
        QCOMPARE(refused.last()[0].toStringList(), QStringList("number.a is no number"));
        QVERIFY(write("number.a=" + QByteArray::number(i) + "\n"));
        QVERIFY(changed.wait());
    }
}

void TestConfigWatcher::fileThatVanishesIsReportedOnce()
{
    const auto watcher = quickWatcher();
    watcher->setCheckPeriod(10ms);
    QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    QSignalSpy refused(watcher.get(), &ConfigWatcher::refused);
    const auto before = watcher->start();
    QVERIFY(QFile::remove(file()));
    QVERIFY(refused.wait());
    QCOMPARE(watcher->faults(), QStringList("the file cannot be read: " + systemErrorText(ENOENT)));
    QTest::qWait(60);
    QCOMPARE(refused.size(), 1);
    QCOMPARE(watcher->config(), before);

    QVERIFY(write("a=1\n"));
    QTRY_COMPARE(watcher->faults(), QStringList());
    QCOMPARE(watcher->config(), before);
    QVERIFY(changed.isEmpty());
    QVERIFY(QDir(root() + "/etc").removeRecursively());
    QVERIFY(refused.wait());
    QVERIFY(QDir(root()).mkdir("etc") && write("a=2\n"));
    QVERIFY(changed.wait());
}

void TestConfigWatcher::sameEntriesAreNotAnnounced_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("same bytes") << QByteArray("a=1\n");
    QTest::newRow("comment") << QByteArray("# the first\na=1\n");
    QTest::newRow("repeated key") << QByteArray("a=1\na=2\n");
    QTest::newRow("version") << QByteArray("app.version=7\na=1");
}

void TestConfigWatcher::sameEntriesAreNotAnnounced()
{
    QFETCH(const QByteArray, bytes);
    const auto watcher = quickWatcher();
    QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    const auto before = watcher->start();
    QVERIFY(write(bytes));
    QTest::qWait(60);
    QCOMPARE(watcher->config(), before);
    QVERIFY(changed.isEmpty());
    QCOMPARE(_log->texts(), QStringList());
    QVERIFY(write("b=1\n"));
    QVERIFY(changed.wait());
}

void TestConfigWatcher::faultyFileThatIsRevertedIsNotAnnounced()
{
    const auto watcher = quickWatcher();
    const QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    QSignalSpy refused(watcher.get(), &ConfigWatcher::refused);
    watcher->start();
    QVERIFY(write("number.a=x\n"));
    QVERIFY(refused.wait());
    QVERIFY(write("a=1\n"));
    QTRY_COMPARE(watcher->faults(), QStringList());
    QVERIFY(changed.isEmpty());
    QCOMPARE(_log->texts().last(), "1" + file() + ": matches the configuration in use again");
}

void TestConfigWatcher::unreadableFilesAreRefused_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("fault");
    const QString irregular = "the file cannot be read: it is not a regular file";
    QTest::newRow("fifo") << "fifo" << irregular;
    QTest::newRow("directory") << "directory" << irregular;
    QTest::newRow("endless device") << "device" << irregular;
    QTest::newRow("too large") << "large"
                               << "the file cannot be read: it holds more than the 1000 bytes that "
                                  "a configuration may have";
}

void TestConfigWatcher::unreadableFilesAreRefused()
{
    QFETCH(const QString, kind);
    QFETCH(const QString, fault);
    const auto watcher = quickWatcher();
    watcher->setMaxSize(1000);
    QSignalSpy refused(watcher.get(), &ConfigWatcher::refused);
    const auto before = watcher->start();
    const QString made = root() + "/new";
    if (kind == "fifo")
        QCOMPARE(::mkfifo(qPrintable(made), 0600), 0);
    else if (kind == "directory")
        QVERIFY(QFile::remove(file()) && QDir().mkdir(made));
    else if (kind == "device")
        QVERIFY(QFile::link("/dev/zero", made));
    else
        QVERIFY(writeFile(made, QByteArray(1001, 'x')));
    QVERIFY(renameTo(made, file()));
    QVERIFY(refused.wait());
    QCOMPARE(refused[0][0].toStringList(), QStringList(fault));
    QCOMPARE(watcher->config(), before);
}

void TestConfigWatcher::fileIsLoadedWhenItRests()
{
    const auto watcher = quickWatcher();
    watcher->setQuietTime(1h);
    QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    const QSignalSpy refused(watcher.get(), &ConfigWatcher::refused);
    watcher->start();
    QFile growing(file());
    QVERIFY(growing.open(QIODevice::WriteOnly));
    for (const char* part : {"number.a=1\nnumb", "er.b=", "2\n"}) {
        QVERIFY(growing.write(part) > 0 && growing.flush());
        QTest::qWait(20);
        QVERIFY(changed.isEmpty() && refused.isEmpty());
    }
    // Each change begins the quiet time anew: the next one, which is short, ends the wait.
    watcher->setQuietTime(10ms);
    QVERIFY(growing.write("number.c=3\n") > 0 && growing.flush());
    QVERIFY(changed.wait());
    QCOMPARE(changed.size(), 1);
    QCOMPARE(watcher->config()->value("number.c"), "3");
    QVERIFY(refused.isEmpty());
}

void TestConfigWatcher::fileThatNeverRestsIsLoaded()
{
    const auto watcher = quickWatcher();
    watcher->setQuietTime(60ms);
    QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    watcher->start();
    std::atomic<bool> isOver = false;
    std::thread writer([&] {
        QFile growing(file());
        if (!growing.open(QIODevice::Append))
            return;
        while (!isOver) {
            growing.write("x=1\n");
            growing.flush();
            std::this_thread::sleep_for(2ms);
        }
    });
    const bool isLoaded = changed.wait(20000);
    isOver = true;
    writer.join();
    QVERIFY(isLoaded);
    QCOMPARE(watcher->config()->value("x"), "1");
}

void TestConfigWatcher::reloadAsksTheValidatorsAgain()
{
    const auto watcher = quickWatcher();
    const QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    const QSignalSpy refused(watcher.get(), &ConfigWatcher::refused);
    const auto before = watcher->start();
    watcher->reload();
    QCOMPARE(_log->take(), QStringList("1" + file() + ": loaded again, nothing changed"));
    isEnvironmentBad = true;
    watcher->reload();
    QCOMPARE(refused.size(), 1);
    QCOMPARE(watcher->faults(), QStringList("bad environment"));
    isEnvironmentBad = false;
    watcher->reload();
    QCOMPARE(watcher->faults(), QStringList());
    QCOMPARE(_log->take().last(), "1" + file() + ": matches the configuration in use again");
    QVERIFY(changed.isEmpty());
    QCOMPARE(watcher->config(), before);
}

void TestConfigWatcher::reloadReportsFaultsAgain()
{
    const auto watcher = quickWatcher();
    QSignalSpy refused(watcher.get(), &ConfigWatcher::refused);
    watcher->start();
    QVERIFY(write("number.a=x\n"));
    watcher->reload();
    watcher->reload();
    QCOMPARE(refused.size(), 2);
    QCOMPARE(refused[0], refused[1]);
    QTest::qWait(50); // the notification comes after that, and is no news
    QCOMPARE(refused.size(), 2);
}

void TestConfigWatcher::reloadDoesNotWait()
{
    const auto watcher = quickWatcher();
    watcher->setQuietTime(1h);
    const QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    watcher->start();
    QVERIFY(write("a=2\n"));
    watcher->reload();
    QCOMPARE(changed.size(), 1);
    QCOMPARE(watcher->config()->value("a"), "2");
}

void TestConfigWatcher::touchedFileIsCheckedAgain()
{
    const auto watcher = quickWatcher();
    QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    QSignalSpy refused(watcher.get(), &ConfigWatcher::refused);
    watcher->start();
    isEnvironmentBad = true;
    QVERIFY(write("a=2\n"));
    QVERIFY(refused.wait());
    isEnvironmentBad = false;
    QVERIFY(write("a=2\n"));
    QVERIFY(changed.wait());
    // The faults of a reload stay until the validators are asked again.
    isEnvironmentBad = true;
    watcher->reload();
    const int made = controllers;
    QVERIFY(write("a=2\n"));
    QTRY_VERIFY(controllers > made);
    QCOMPARE(watcher->faults(), QStringList("bad environment"));
}

void TestConfigWatcher::nothingHappensUnlessStarted()
{
    const auto watcher = quickWatcher();
    watcher->setCheckPeriod(5ms);
    const QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    watcher->reload();
    watcher->stop();
    QVERIFY(write("a=2\n"));
    QTest::qWait(30);
    QVERIFY(!watcher->config() && changed.isEmpty());
    QCOMPARE(_log->texts(), QStringList());
}

void TestConfigWatcher::stoppedWatcherMayBeStartedAgain()
{
    const auto watcher = quickWatcher();
    watcher->setCheckPeriod(5ms);
    QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    const auto before = watcher->start();
    QVERIFY(write("a=2\n"));
    watcher->stop(); // with a change on its way
    watcher->reload();
    QTest::qWait(50);
    QVERIFY(changed.isEmpty());
    QCOMPARE(watcher->config(), before);
    QCOMPARE(watcher->start()->value("a"), "2");
    QVERIFY(changed.isEmpty());
    QVERIFY(write("a=3\n"));
    QVERIFY(changed.wait());
}

void TestConfigWatcher::slotsMayUseTheWatcher()
{
    const auto watcher = quickWatcher();
    QStringList seen;
    connect(watcher.get(), &ConfigWatcher::changed, watcher.get(), [&](const auto& config) {
        seen.append(config->value("a"));
        if (seen.size() == 1) {
            write("a=3\n");
            watcher->reload();
        } else {
            watcher->stop();
        }
    });
    watcher->start();
    QVERIFY(write("a=2\n"));
    QTRY_COMPARE(seen, (QStringList{"2", "3"}));
    QVERIFY(write("a=4\n"));
    QTest::qWait(50);
    QCOMPARE(seen.size(), 2);
}

void TestConfigWatcher::validatorMayRunAnEventLoop()
{
    const auto watcher = quickWatcher();
    watcher->setQuietTime(0ms);
    QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    watcher->start();
    bool isFirst = true;
    whileChecking = [&] {
        if (!std::exchange(isFirst, false))
            return;
        write("a=3\n");
        watcher->reload();
        QTest::qWait(20);
    };
    QVERIFY(write("a=2\n"));
    QTRY_COMPARE(changed.size(), 2);
    QCOMPARE(changed[0][0].value<std::shared_ptr<Config>>()->value("a"), "2");
    QCOMPARE(watcher->config()->value("a"), "3");
}

void TestConfigWatcher::waitingValidatorCostsNoTime()
{
    const auto watcher = quickWatcher();
    watcher->setQuietTime(0ms);
    QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    watcher->start();
    TimerEvents timers(*watcher);
    whileChecking = [&, isFirst = true]() mutable {
        if (!std::exchange(isFirst, false))
            return;
        write("a=3\n");
        timers.count = 0;
        QTest::qWait(50);
        QVERIFY2(timers.count <= 10, qPrintable(QString::number(timers.count)));
    };
    QVERIFY(write("a=2\n"));
    QTRY_COMPARE(changed.size(), 2);
    QCOMPARE(watcher->config()->value("a"), "3");
}

void TestConfigWatcher::reloadDuringACheckRunsTheValidatorsAgain()
{
    const auto watcher = quickWatcher();
    watcher->start();
    const int made = controllers;
    whileChecking = [&, isFirst = true]() mutable {
        if (!std::exchange(isFirst, false))
            return;
        watcher->reload();
        QTest::qWait(20);
        watcher->reload(); // one run answers both
    };
    watcher->reload();
    QTRY_COMPARE(controllers.load(), made + 2);
    QTest::qWait(30);
    QCOMPARE(controllers.load(), made + 2);
    QCOMPARE(_log->take(), QStringList(2, "1" + file() + ": loaded again, nothing changed"));
}

void TestConfigWatcher::watcherMayBeStoppedDuringACheck()
{
    const auto watcher = quickWatcher();
    const QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    const auto before = watcher->start();
    QVERIFY(write("a=2\n"));
    whileChecking = [&] {
        watcher->reload(); // is forgotten, too
        watcher->stop();
    };
    watcher->reload();
    whileChecking = nullptr;
    QTest::qWait(30);
    QCOMPARE(watcher->config(), before);
    QVERIFY(changed.isEmpty());
    QCOMPARE(_log->texts(), QStringList());
}

void TestConfigWatcher::watcherMayBeStartedAnewDuringACheck()
{
    const auto watcher = quickWatcher();
    const QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    watcher->start();
    QVERIFY(write("a=2\n"));
    whileChecking = [&, isFirst = true]() mutable {
        if (!std::exchange(isFirst, false))
            return;
        write("a=3\n");
        watcher->stop();
        watcher->start();
    };
    watcher->reload();
    QCOMPARE(watcher->config()->value("a"), "3");
    QTest::qWait(30);
    QCOMPARE(watcher->config()->value("a"), "3");
    QVERIFY(changed.isEmpty());
}

void TestConfigWatcher::watcherMayBeDestroyedAtAnyTime()
{
    auto watcher = quickWatcher();
    watcher->start();
    watcher.reset(); // before its first look
    QTest::qWait(10);
    watcher = quickWatcher();
    watcher->start();
    QVERIFY(write("a=2\n"));
    QTest::qWait(1);
    watcher.reset(); // with a change on its way
    QTest::qWait(30);

    watcher = quickWatcher();
    auto* const deleted = watcher.release();
    connect(deleted, &ConfigWatcher::changed, deleted, &QObject::deleteLater);
    const QSignalSpy destroyed(deleted, &QObject::destroyed);
    deleted->start();
    QVERIFY(write("a=3\n"));
    QTRY_COMPARE(destroyed.size(), 1);
}

void TestConfigWatcher::relativePathIsResolvedOnce()
{
    const QString before = QDir::currentPath();
    QVERIFY(QDir::setCurrent(root()));
    const auto restore = qScopeGuard([&] { QDir::setCurrent(before); });
    const auto watcher = quickWatcher("etc/app.conf");
    QVERIFY(QDir::setCurrent("/"));
    QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    QCOMPARE(watcher->start()->value("a"), "1");
    QVERIFY(write("a=2\n"));
    QVERIFY(changed.wait());
    QCOMPARE(watcher->path(), "etc/app.conf");
    QVERIFY(_log->texts().last().startsWith("1etc/app.conf: "));
}

void TestConfigWatcher::logSaysWhatChangedAndWhatIsWrong()
{
    const auto watcher = quickWatcher();
    watcher->start();
    QVERIFY(write("a=1\nb=secret\nc\n"));
    watcher->reload();
    QCOMPARE(_log->take(),
             QStringList("1" + file() + ": the new configuration is in use; changed keys: b"));
    QVERIFY(write("number.x=x\nnumber.y=%1\n"));
    watcher->reload();
    const QString head = "2" + file() + ": refused, the previous configuration stays in use: ";
    QCOMPARE(_log->take(),
             (QStringList{head + "number.x is no number", head + "number.y is no number"}));
    useLanguage("fr_FR");
    QVERIFY(write("c=1\na=2\n"));
    watcher->reload();
    QCOMPARE(_log->take(),
             QStringList("1" + file() +
                         " : la nouvelle configuration est en service ; clés modifiées : a, b, c"));
}

void TestConfigWatcher::manyChangedKeysAreNotAllNamed()
{
    const auto watcher = quickWatcher();
    watcher->start();
    QByteArray bytes = "a=1\n";
    for (int i = 0; i < 30; ++i)
        bytes += "k" + QByteArray::number(10 + i) + "=\n";
    QVERIFY(write(bytes));
    watcher->reload();
    QCOMPARE(_log->take(),
             QStringList("1" + file() +
                         ": the new configuration is in use; changed keys: k10, k11, k12, k13, "
                         "k14, k15, k16, k17, k18, k19, ... (+20)"));
}

void TestConfigWatcher::versionIsKept()
{
    const auto watcher = quickWatcher();
    watcher->start();
    QVERIFY(write("a=2\napp.version=7\n"));
    watcher->reload();
    QCOMPARE(watcher->config()->value("app.version"), "1");
}

void TestConfigWatcher::savedConfigurationsAreAlwaysWhole()
{
    saveAtomically(file(), largeEntries(0));
    ConfigWatcher watcher(file(), "1", validatorsOf<HalvesController>());
    watcher.setQuietTime(0ms);
    watcher.setCheckPeriod(1ms);
    const QSignalSpy changed(&watcher, &ConfigWatcher::changed);
    const QSignalSpy refused(&watcher, &ConfigWatcher::refused);
    watcher.start();

    constexpr int Last = 150;
    std::thread saver([&] {
        for (int i = 1; i <= Last; ++i)
            saveAtomically(file(), largeEntries(i));
    });
    std::atomic<bool> isOver = false;
    std::atomic<int> torn = 0;
    std::thread reader([&] { // as a worker that asks for the configuration
        while (!isOver) {
            const auto config = watcher.config();
            torn += config->value("first") == config->value("zlast") ? 0 : 1;
            watcher.faults();
        }
    });
    const auto join = qScopeGuard([&] {
        isOver = true;
        saver.join();
        reader.join();
    });
    QTRY_COMPARE_WITH_TIMEOUT(watcher.config()->value("first"), QString::number(Last), 60000);
    QCOMPARE(refused.size(), 0);
    QCOMPARE(torn.load(), 0);
    QVERIFY(changed.size() >= 1);
}

void TestConfigWatcher::worksInAnotherThread()
{
    QThread thread;
    auto watcher = quickWatcher();
    QSignalSpy changed(watcher.get(), &ConfigWatcher::changed);
    QSignalSpy refused(watcher.get(), &ConfigWatcher::refused);
    std::shared_ptr<Config> received; // in this thread, through a queued connection
    connect(watcher.get(), &ConfigWatcher::changed, this,
            [&](const std::shared_ptr<Config>& config) { received = config; });
    std::promise<void> started;
    QObject inThread;
    connect(&thread, &QThread::started, &inThread, [&] {
        watcher->start();
        started.set_value();
    });
    connect(
        &thread, &QThread::finished, &inThread, [&] { watcher.reset(); }, Qt::DirectConnection);
    for (QObject* const object : {static_cast<QObject*>(watcher.get()), &inThread})
        object->moveToThread(&thread);
    thread.start();
    const auto end = qScopeGuard([&] {
        thread.quit();
        thread.wait();
    });
    started.get_future().wait();
    saveAtomically(file(), {{"a", "2"}});
    QTRY_VERIFY(received);
    QCOMPARE(received->value("a"), "2");
    QCOMPARE(watcher->config(), received);
    QMetaObject::invokeMethod(watcher.get(), &ConfigWatcher::reload);
    QTRY_VERIFY(_log->texts().last().endsWith("nothing changed"));
    disconnect(watcher.get(), nullptr, this, nullptr);
}

void TestConfigWatcher::descriptorsAreGivenBack()
{
    const int before = openDescriptors();
    for (int i = 0; i < 5; ++i) {
        const auto watcher = quickWatcher();
        watcher->start();
        watcher->reload();
        QCOMPARE(openDescriptors(), before + 1);
        if (i == 0) {
            watcher->stop();
            QCOMPARE(openDescriptors(), before);
        }
    }
    QVERIFY(write("number.a=x\n"));
    const auto watcher = quickWatcher();
    failureText([&] { watcher->start(); });
    QCOMPARE(openDescriptors(), before);
}

QTEST_GUILESS_MAIN(TestConfigWatcher)
#include "tst_configwatcher.moc"
