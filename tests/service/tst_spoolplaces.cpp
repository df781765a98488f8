// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/spoolplaces_p.h"
#include "support/files.h"
#include "support/interposed.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

using namespace KezService;

/// What happens right after the next mkdir().
static std::function<void(const char*)> afterMkdir;

extern "C" int mkdir(const char* path, mode_t mode) noexcept
{
    static const auto original = interposed<int (*)(const char*, mode_t)>("mkdir");
    const int result = original(path, mode);
    if (afterMkdir)
        std::exchange(afterMkdir, nullptr)(path);
    return result;
}

class TestSpoolPlaces : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void placesAreBelowOneHiddenDirectory();
    void placeHasTheRightsOfItsSpool_data();
    void placeHasTheRightsOfItsSpool();
    void placeThatIsThereStaysAsItIs();
    void linkInThePlaceIsNotFollowed();
    void missingSpoolIsAnError();

private:
    static mode_t modeOf(const QString& path)
    {
        struct stat info {};
        return ::stat(path.toLocal8Bit().constData(), &info) == 0 ? info.st_mode & 07777 : 0;
    }

    QTemporaryDir _directory;
};

void TestSpoolPlaces::placesAreBelowOneHiddenDirectory()
{
    const QString spool = QStringLiteral("/var/spool/app");
    QCOMPARE(SpoolPlaces::hidden(spool), QString("/var/spool/app/.kez"));
    QCOMPARE(SpoolPlaces::lock(spool), QString("/var/spool/app/.kez/lock"));
    QCOMPARE(SpoolPlaces::journal(spool), QString("/var/spool/app/.kez/journal"));
    QCOMPARE(SpoolPlaces::status(spool), QString("/var/spool/app/.kez/status.json"));
    QCOMPARE(SpoolPlaces::quarantine(spool), QString("/var/spool/app/.kez/quarantine"));
    QCOMPARE(SpoolPlaces::incoming(spool), QString("/var/spool/app/.kez/incoming"));
}

void TestSpoolPlaces::placeHasTheRightsOfItsSpool_data()
{
    QTest::addColumn<uint>("mode");
    QTest::newRow("private") << 0700U;
    QTest::newRow("shared by a group") << 0770U;
    QTest::newRow("as the group of the spool") << 02775U;
}

void TestSpoolPlaces::placeHasTheRightsOfItsSpool()
{
    QFETCH(const uint, mode);
    const QString spool = _directory.filePath(QString::number(mode));
    QVERIFY(QDir().mkdir(spool));
    QCOMPARE(::chmod(spool.toLocal8Bit().constData(), mode), 0);
    const mode_t mask = ::umask(077);
    const int error = SpoolPlaces::makePlace(SpoolPlaces::hidden(spool), spool);
    ::umask(mask);
    QCOMPARE(error, 0);
    QCOMPARE(modeOf(SpoolPlaces::hidden(spool)), mode);
}

void TestSpoolPlaces::placeThatIsThereStaysAsItIs()
{
    const QString spool = _directory.filePath("again");
    QVERIFY(QDir().mkdir(spool));
    QCOMPARE(SpoolPlaces::makePlace(SpoolPlaces::hidden(spool), spool), 0);
    QVERIFY(writeFile(SpoolPlaces::lock(spool), "4711"));
    QCOMPARE(::chmod(SpoolPlaces::hidden(spool).toLocal8Bit().constData(), 0711), 0);
    QCOMPARE(SpoolPlaces::makePlace(SpoolPlaces::hidden(spool), spool), 0);
    QCOMPARE(readFile(SpoolPlaces::lock(spool)), QByteArray("4711"));
    QCOMPARE(modeOf(SpoolPlaces::hidden(spool)), mode_t(0711));
}

/// Somebody who may write in the spool puts it there at once.
void TestSpoolPlaces::linkInThePlaceIsNotFollowed()
{
    const QString spool = _directory.filePath("shared");
    const QString secret = _directory.filePath("secret");
    QVERIFY(QDir().mkdir(spool) && QDir().mkdir(secret));
    QCOMPARE(::chmod(spool.toLocal8Bit().constData(), 0777), 0);
    QCOMPARE(::chmod(secret.toLocal8Bit().constData(), 0700), 0);
    afterMkdir = [&](const char* path) {
        ::rmdir(path);
        ::symlink(secret.toLocal8Bit().constData(), path);
    };
    QVERIFY(SpoolPlaces::makePlace(SpoolPlaces::hidden(spool), spool) != 0);
    QVERIFY(!afterMkdir && QFileInfo(SpoolPlaces::hidden(spool)).isSymLink());
    QCOMPARE(modeOf(secret), mode_t(0700));
}

void TestSpoolPlaces::missingSpoolIsAnError()
{
    const QString spool = _directory.filePath("nowhere");
    QCOMPARE(SpoolPlaces::makePlace(SpoolPlaces::hidden(spool), spool), ENOENT);
}

QTEST_GUILESS_MAIN(TestSpoolPlaces)
#include "tst_spoolplaces.moc"
