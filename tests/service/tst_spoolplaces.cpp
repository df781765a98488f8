// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/spoolplaces_p.h"
#include "support/files.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <sys/stat.h>

using namespace KezService;

class TestSpoolPlaces : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void placesAreBelowOneHiddenDirectory();
    void placeHasTheRightsOfItsSpool_data();
    void placeHasTheRightsOfItsSpool();
    void placeThatIsThereStaysAsItIs();
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

void TestSpoolPlaces::missingSpoolIsAnError()
{
    const QString spool = _directory.filePath("nowhere");
    QCOMPARE(SpoolPlaces::makePlace(SpoolPlaces::hidden(spool), spool), ENOENT);
}

QTEST_GUILESS_MAIN(TestSpoolPlaces)
#include "tst_spoolplaces.moc"
