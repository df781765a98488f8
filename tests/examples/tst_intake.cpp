// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "intakefixture.h"

#include <QRegularExpression>
#include <QSet>

using namespace Qt::StringLiterals;

namespace {

struct Outcome {
    int exitCode = -1;
    QString out;
    QString err;
};

QProcessEnvironment environmentWith(const QString& lang)
{
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"LANG"_s, lang); // the language of the texts
    environment.insert(u"LC_ALL"_s, u"C.UTF-8"_s);
    return environment;
}

Outcome runToEnd(const char* program, const QStringList& arguments,
                 const QString& lang = u"en_US.UTF-8"_s)
{
    QProcess process;
    process.setProcessEnvironment(environmentWith(lang));
    process.start(QString::fromUtf8(program), arguments);
    if (!process.waitForFinished(Patience) || process.exitStatus() != QProcess::NormalExit)
        return {};
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

QString orderName(int number)
{
    return u"%1.xml"_s.arg(number, 4, 10, QLatin1Char('0'));
}

/// A running service. Killed when it goes, if it still runs.
class RunningService {
public:
    explicit RunningService(const IntakeFixture& fixture) : _fixture(fixture)
    {
        _process.setProcessEnvironment(environmentWith(u"en_US.UTF-8"_s));
        _process.start(QString::fromUtf8(INTAKE_PROGRAM), {fixture.path("intake.properties")});
    }
    ~RunningService()
    {
        if (_process.state() == QProcess::NotRunning)
            return;
        _process.kill();
        _process.waitForFinished(Patience);
    }

    /// Waits until the log shows one more start than `before`.
    bool waitUntilReady(qsizetype before = 0) const
    {
        return QTest::qWaitFor([this, before] { return readyCount() > before; }, Patience);
    }
    qsizetype readyCount() const
    {
        return _fixture.log().count(u"Service ready"_s) + _fixture.log().count(u"Service prêt"_s);
    }
    bool isRunning() const { return _process.state() == QProcess::Running; }

    bool hasOpen(const QString& path) const
    {
        const QDir descriptors(u"/proc/%1/fd"_s.arg(_process.processId()));
        for (const QFileInfo& each : descriptors.entryInfoList(QDir::Files))
            if (each.symLinkTarget() == path)
                return true;
        return false;
    }
    void send(int signal) const { ::kill(static_cast<pid_t>(_process.processId()), signal); }

    /// The exit code; -1 when the service crashed or did not end.
    int waitUntilStopped()
    {
        if (!_process.waitForFinished(Patience))
            return -1;
        return _process.exitStatus() == QProcess::NormalExit ? _process.exitCode() : -1;
    }
    int stop()
    {
        send(SIGTERM);
        return waitUntilStopped();
    }
    QString errorOutput() { return QString::fromUtf8(_process.readAllStandardError()); }

private:
    const IntakeFixture& _fixture;
    QProcess _process;
};

} // namespace

class TestIntake : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void wrongCommandLineIsTold_data();
    void wrongCommandLineIsTold();
    void helpIsNoFault();
    void missingConfigurationIsTold();
    void everyFaultIsToldOnce();
    void faultIsTold_data();
    void faultIsTold();
    void faultsAreToldInTheConfiguredLanguage();
    void sampleConfigurationIsLegal();
    void bannerComesFirst();
    void waitingAndArrivingFilesAreHandled();
    void filesAreDeletedWithoutKeep();
    void periodZeroStillHandlesArrivals();
    void signalStopsCleanly_data();
    void signalStopsCleanly();
    void signalDuringTheStartStopsCleanly();
    void hangUpSwitchesTheLanguageThereAndBack();
    void restartBooksNothingTwice();
    void bookedFileIsOnlyArchived();
    void copyOfAnInterruptedAttemptCounts();
    void otherOrderUnderABookedNameIsSetAside();
    void unfinishedLedgerLineIsCutAway();
    void secondServiceIsRefused();
    void secondServiceOnTheLedgerIsRefused();
    void malformedOrderIsSetAside_data();
    void malformedOrderIsSetAside();
    void vanishingFilesDoNoHarm();
    void awkwardNamesAreHandled();
    void archiveFailureIsTriedAgain();
    void wrongProducerCommandLineIsTold_data();
    void wrongProducerCommandLineIsTold();
    void producerNeedsASpool();
    void producerDropsWholeFiles();
    void producerOverwritesNothing();
};

void TestIntake::wrongCommandLineIsTold_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("nothing") << QStringList();
    QTest::newRow("two files") << QStringList{u"a.properties"_s, u"b.properties"_s};
    QTest::newRow("unknown option") << QStringList{u"--daemon"_s};
    QTest::newRow("empty name") << QStringList{QString()};
}

void TestIntake::wrongCommandLineIsTold()
{
    QFETCH(const QStringList, arguments);
    const Outcome english = runToEnd(INTAKE_PROGRAM, arguments);
    QCOMPARE(english.exitCode, 2);
    QCOMPARE(english.out, QString());
    QCOMPARE(english.err, u"usage: intake FILE.properties\n"_s);
    QCOMPARE(runToEnd(INTAKE_PROGRAM, arguments, u"fr_FR.UTF-8"_s).err,
             u"usage : intake FICHIER.properties\n"_s);
}

void TestIntake::helpIsNoFault()
{
    const Outcome outcome = runToEnd(INTAKE_PROGRAM, {u"--help"_s});
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.out, u"usage: intake FILE.properties\n"_s);
    QCOMPARE(outcome.err, QString());
}

void TestIntake::missingConfigurationIsTold()
{
    const Outcome outcome = runToEnd(INTAKE_PROGRAM, {u"/nowhere/intake.properties"_s});
    QCOMPARE(outcome.exitCode, 78);
    QCOMPARE(outcome.err,
             u"/nowhere/intake.properties: the file cannot be read: No such file or directory\n"_s);
}

void TestIntake::everyFaultIsToldOnce()
{
    const QTemporaryDir directory;
    const QString properties = directory.filePath(u"i.properties"_s);
    QVERIFY(writeFile(properties,
                      "log.filename=none/log\nlog.kept=many\nqueue.path=none\nqueue.period=1s\n"
                      "queue.keep=maybe\narchive.path=i.properties\nledger.path=none/l.csv\n"
                      "lang=de_DE\n"));
    const Outcome outcome = runToEnd(INTAKE_PROGRAM, {properties});
    QCOMPARE(outcome.exitCode, 78);
    QCOMPARE(outcome.out, QString());
    const QString base = directory.path() + u'/';
    QStringList expected{
        u"Parameter \"queue.path\"=[%1none] refused: "
        "this is not a readable and writable directory"_s.arg(base),
        u"Parameter \"archive.path\"=[%1] refused: "
        "this is not a readable and writable directory"_s.arg(properties),
        u"Parameter \"ledger.path\"=[%1none/l.csv] refused: this is not a readable and writable "
        "file and cannot be created"_s.arg(base),
        u"Parameter \"queue.period\"=[1s] refused: this is not a number of milliseconds (0 or "
        "more)"_s,
        u"Parameter \"queue.keep\"=[maybe] refused: the value must be 0, 1, false or true"_s,
        u"Parameter \"lang\"=[de_DE] refused: the value must be fr_FR or en_US"_s,
        u"Invalid parameter \"log.filename\"=[%1none/log]"_s.arg(base),
        u"Invalid parameter \"log.kept\"=[many]"_s,
    };
    expected.replaceInStrings(QRegularExpression(u"^"_s), properties + u": "_s);
    QCOMPARE(outcome.err.split(u'\n', Qt::SkipEmptyParts), expected);
    QCOMPARE(entriesOf(directory.path()), QStringList{u"i.properties"_s});
}

void TestIntake::faultIsTold_data()
{
    QTest::addColumn<QByteArray>("lines"); // the first of repeated keys counts
    QTest::addColumn<QString>("fault");
    QTest::newRow("no directory to set aside in")
        << QByteArray("setaside.path=nowhere\n")
        << u"Parameter \"setaside.path\"=[%1/nowhere] refused: "
           "this is not a readable and writable directory"_s;
    QTest::newRow("archive in the spool") << QByteArray("archive.path=spool\n")
                                          << u"Parameter \"archive.path\"=[%1/spool] refused: "
                                             "this directory has another role already"_s;
    QTest::newRow("set aside in the archive, by another name")
        << QByteArray("setaside.path=spool/../archive/.\n")
        << u"Parameter \"setaside.path\"=[%1/archive] refused: "
           "this directory has another role already"_s;
    QTest::newRow("ledger in the spool") << QByteArray("ledger.path=spool/ledger.csv\n")
                                         << u"Parameter \"ledger.path\"=[%1/spool/ledger.csv] "
                                            u"refused: this file would be taken for an "
                                            "order and deleted"_s;
    QTest::newRow("log in the spool") << QByteArray("log.filename=spool/intake.log\n")
                                      << u"Parameter \"log.filename\"=[%1/spool/intake.log] "
                                         u"refused: this file would be taken for an "
                                         "order and deleted"_s;
    QTest::newRow("ledger is a directory") << QByteArray("ledger.path=archive\n")
                                           << u"Parameter \"ledger.path\"=[%1/archive] refused: "
                                              u"this is not a readable and writable file "
                                              "and cannot be created"_s;
    QTest::newRow("negative period") << QByteArray("queue.period=-1\n")
                                     << u"Parameter \"queue.period\"=[-1] refused: "
                                        "this is not a number of milliseconds (0 or more)"_s;
    QTest::newRow("period beyond an integer")
        << QByteArray("queue.period=2147483648\n")
        << u"Parameter \"queue.period\"=[2147483648] refused: this is not a number of milliseconds "
           u"(0 or "
           "more)"_s;
    QTest::newRow("unknown filter")
        << QByteArray("log.filter=loud\n") << u"Invalid parameter \"log.filter\"=[loud]"_s;
}

void TestIntake::faultIsTold()
{
    QFETCH(const QByteArray, lines);
    QFETCH(const QString, fault);
    const IntakeFixture fixture;
    fixture.writeProperties();
    const QByteArray rest = readFile(fixture.path("intake.properties"));
    QVERIFY(QFile::remove(fixture.path("intake.properties")));
    QVERIFY(writeFile(fixture.path("intake.properties"), lines + rest));
    const QStringList before = entriesOf(fixture.path(""));

    const Outcome outcome = runToEnd(INTAKE_PROGRAM, {fixture.path("intake.properties")});
    QCOMPARE(outcome.exitCode, 78);
    const QString wanted =
        fault.contains(u"%1"_s) ? fault.arg(QDir::cleanPath(fixture.path(""))) : fault;
    QCOMPARE(outcome.err, fixture.path("intake.properties") + u": "_s + wanted + u'\n');
    QCOMPARE(entriesOf(fixture.path("")), before);
    QCOMPARE(entriesOf(fixture.path("log")) + fixture.spooled(), QStringList());
}

void TestIntake::faultsAreToldInTheConfiguredLanguage()
{
    const QTemporaryDir directory;
    const QString properties = directory.filePath(u"i.properties"_s);
    QVERIFY(writeFile(properties, "lang=fr_FR\n"));
    const Outcome outcome = runToEnd(INTAKE_PROGRAM, {properties});
    QCOMPARE(outcome.exitCode, 78);
    const QStringList expected{
        properties + u" : Le paramètre \"queue.path\" est absent ou vide"_s,
        properties + u" : Le paramètre \"archive.path\" est absent ou vide"_s,
        properties + u" : Le paramètre \"ledger.path\" est absent ou vide"_s,
        properties + u" : Paramètre \"log.filename\"=[] invalide"_s,
    };
    QCOMPARE(outcome.err.split(u'\n', Qt::SkipEmptyParts), expected);
}

void TestIntake::sampleConfigurationIsLegal()
{
    const IntakeFixture fixture;
    QVERIFY(QFile::copy(QString::fromUtf8(INTAKE_DIRECTORY "/intake.properties"),
                        fixture.path("intake.properties")));
    RunningService service(fixture);
    QVERIFY2(service.waitUntilReady(), qPrintable(service.errorOutput()));
    QCOMPARE(service.stop(), 0);
    QVERIFY(fixture.logHas("Service arrêté"));
}

void TestIntake::bannerComesFirst()
{
    const IntakeFixture fixture;
    fixture.writeProperties();
    RunningService service(fixture);
    QVERIFY(service.waitUntilReady());
    QCOMPARE(service.stop(), 0);
    const QStringList lines = fixture.log().split(u'\n');
    const QString title = u"Intake, order booking, version 1.0.0"_s;
    const QString border = u"<INFOR> +"_s + QString(title.size() + 2, u'-') + u'+';
    QVERIFY2(lines.at(0).endsWith(border), qPrintable(lines.at(0)));
    QVERIFY2(lines.at(1).endsWith(u"<INFOR> | "_s + title + QStringLiteral(" |")),
             qPrintable(lines.at(1)));
    QVERIFY(lines.at(2).endsWith(border));
    QVERIFY(lines.at(3).endsWith(u"<INFOR> (c) Vandrel"_s));
    QVERIFY(lines.at(4).endsWith(u"<INFOR>   app.version = 1.0.0"_s));
    QVERIFY(lines.at(5).endsWith(u"<INFOR>  archive.path = "_s + fixture.path("archive")));
}

void TestIntake::waitingAndArrivingFilesAreHandled()
{
    const IntakeFixture fixture;
    fixture.writeProperties();
    dropFile(fixture.spool(u"a.xml"_s), goodDocument("C-1"));
    RunningService service(fixture);
    QVERIFY(service.waitUntilReady());
    dropFile(fixture.spool(u"b.xml"_s), goodDocument("C-2"));
    QTRY_COMPARE_WITH_TIMEOUT(fixture.spooled(), QStringList(), Patience);
    QCOMPARE(fixture.booked(), QStringList({u"a.xml"_s, u"b.xml"_s}));
    QCOMPARE(fixture.archived(), QStringList({u"a.xml"_s, u"b.xml"_s}));
    QCOMPARE(readFile(fixture.path("archive/b.xml")), goodDocument("C-2"));
    QCOMPARE(fixture.setAside(), QStringList());
    QCOMPARE(service.stop(), 0);
    const QByteArray secondLine = readFile(fixture.path("ledger.csv")).split('\n').value(1);
    QCOMPARE(secondLine.split(';').value(1), QByteArray("b.xml"));
    QVERIFY2(secondLine.endsWith(";C-2;Étienne Durand;12.50;EUR"), secondLine.constData());
    QVERIFY(fixture.logHas(": 2 files archived, 2 orders booked, 0 files set aside\n"));
    QVERIFY(fixture.logHas("<INFOR> Total booked: 25.00 EUR\n"));
}

void TestIntake::filesAreDeletedWithoutKeep()
{
    const IntakeFixture fixture;
    fixture.writeProperties("lang=en_US\nqueue.keep=0\n");
    dropFile(fixture.spool(u"old.xml"_s), goodDocument());
    RunningService service(fixture);
    QVERIFY(service.waitUntilReady());
    QCOMPARE(fixture.spooled(), QStringList());
    dropFile(fixture.spool(u"new.xml"_s), goodDocument());
    QTRY_COMPARE_WITH_TIMEOUT(fixture.spooled(), QStringList(), Patience);
    QCOMPARE(service.stop(), 0);
    QCOMPARE(fixture.booked(), QStringList{u"new.xml"_s});
}

void TestIntake::periodZeroStillHandlesArrivals()
{
    const IntakeFixture fixture;
    fixture.writeProperties();
    QFile properties(fixture.path("intake.properties"));
    const QByteArray text = readFile(properties.fileName()).replace("period=50", "period=0");
    QVERIFY(properties.remove());
    QVERIFY(writeFile(properties.fileName(), text));
    RunningService service(fixture);
    QVERIFY(service.waitUntilReady());
    dropFile(fixture.spool(u"a.xml"_s), goodDocument());
    QTRY_COMPARE_WITH_TIMEOUT(fixture.booked(), QStringList{u"a.xml"_s}, Patience);
    QTRY_COMPARE_WITH_TIMEOUT(fixture.archived(), QStringList{u"a.xml"_s}, Patience);
    QCOMPARE(service.stop(), 0);
}

void TestIntake::signalStopsCleanly_data()
{
    QTest::addColumn<int>("signal");
    QTest::addColumn<QByteArray>("line");
    QTest::newRow("SIGTERM") << SIGTERM << QByteArray("Stop requested (SIGTERM)");
    QTest::newRow("SIGINT") << SIGINT << QByteArray("Stop requested (SIGINT)");
}

void TestIntake::signalStopsCleanly()
{
    QFETCH(const int, signal);
    QFETCH(const QByteArray, line);
    const IntakeFixture fixture;
    fixture.writeProperties();
    for (int number = 0; number < 200; ++number)
        dropFile(fixture.spool(u"%1.xml"_s.arg(number)), goodDocument());
    RunningService service(fixture);
    QVERIFY(service.waitUntilReady());
    service.send(signal); // while it works
    QCOMPARE(service.waitUntilStopped(), 0);
    QCOMPARE(service.errorOutput(), QString());
    QVERIFY(fixture.logHas(line.constData()));
    QVERIFY(fixture.log().endsWith(u"<INFOR> Service stopped\n"_s));
}

void TestIntake::signalDuringTheStartStopsCleanly()
{
    const IntakeFixture fixture;
    // Long to read, so that the signal comes before the log is open.
    fixture.writeProperties("lang=en_US\n" + QByteArray("#\n").repeated(6'000'000));
    RunningService service(fixture);
    QTRY_VERIFY_WITH_TIMEOUT(
        service.hasOpen(fixture.path("intake.properties")) || service.readyCount() > 0, Patience);
    service.send(SIGTERM);
    QCOMPARE(service.waitUntilStopped(), 0);
    QVERIFY(fixture.logHas("Stop requested (SIGTERM)"));
}

void TestIntake::hangUpSwitchesTheLanguageThereAndBack()
{
    const IntakeFixture fixture;
    fixture.writeProperties("lang=fr_FR\n");
    dropFile(fixture.spool(u"a.xml"_s), goodDocument());
    RunningService service(fixture);
    QVERIFY(service.waitUntilReady());
    QTRY_VERIFY_WITH_TIMEOUT(fixture.logHas("<INFOR> Fichier [a.xml] archivé"), Patience);

    service.send(SIGHUP);
    QTRY_VERIFY_WITH_TIMEOUT(fixture.logHas("<INFOR> Messages are in English from now on (en_US)"),
                             Patience);
    dropFile(fixture.spool(u"b.xml"_s), goodDocument());
    QTRY_VERIFY_WITH_TIMEOUT(fixture.logHas("<INFOR> File [b.xml] archived"), Patience);

    service.send(SIGHUP);
    QTRY_VERIFY_WITH_TIMEOUT(
        fixture.logHas("<INFOR> Les messages sont désormais en français (fr_FR)"), Patience);
    dropFile(fixture.spool(u"c.xml"_s), "<commande/>");
    QTRY_VERIFY_WITH_TIMEOUT(
        fixture.logHas("<ERROR> Le fichier [c.xml] est mis en quarantaine pour "
                       "[ledger] (l'élément le plus haut "
                       "n'est pas \"order\") sous le nom [c.xml]\n"),
        Patience);
    QCOMPARE(service.stop(), 0);
    const QRegularExpression summary(
        u"<INFOR> Bilan du \\d\\d/\\d\\d/\\d{4} à \\d\\d:\\d\\d:\\d\\d : 3 fichiers archivés, "
        "2 commandes enregistrées, 1 fichiers écartés\n"_s);
    QVERIFY2(summary.match(fixture.log()).hasMatch(), qPrintable(fixture.log()));
    QVERIFY(fixture.logHas("<INFOR> Total enregistré : 25,00 EUR\n"));
}

void TestIntake::restartBooksNothingTwice()
{
    constexpr int Count = 300;
    const IntakeFixture fixture;
    fixture.writeProperties();
    QStringList names;
    for (int number = 0; number < Count; ++number) {
        names.append(orderName(number));
        dropFile(fixture.spool(names.last()), goodDocument());
    }
    qsizetype starts = 0;
    for (const int milestone : {Count / 4, Count / 2}) {
        RunningService service(fixture);
        QVERIFY(service.waitUntilReady(starts));
        QTRY_VERIFY_WITH_TIMEOUT(fixture.booked().size() >= milestone, Patience);
        service.send(SIGKILL);
        QCOMPARE(service.waitUntilStopped(), -1);
        starts = service.readyCount();
    }
    RunningService service(fixture);
    QVERIFY(service.waitUntilReady(starts));
    QTRY_COMPARE_WITH_TIMEOUT(fixture.spooled(), QStringList(), Patience);
    QCOMPARE(service.stop(), 0);
    QStringList booked = fixture.booked();
    booked.sort();
    QCOMPARE(booked, names);
    QCOMPARE(fixture.archived(), names);
}

void TestIntake::bookedFileIsOnlyArchived()
{
    const IntakeFixture fixture;
    fixture.writeProperties();
    const QByteArray line = "2026-01-02T03:04:05.678Z;a%0A.xml;"
                            "0f3c2a9e-51b7-4c0d-9a2e-7b4f10c3d8e1;C-1;Étienne Durand;12.50;EUR\n";
    QVERIFY(writeFile(fixture.path("ledger.csv"), line));
    dropFile(fixture.spool(u"a\n.xml"_s), goodDocument());
    RunningService service(fixture);
    QVERIFY(service.waitUntilReady());
    QTRY_COMPARE_WITH_TIMEOUT(fixture.spooled(), QStringList(), Patience);
    QCOMPARE(service.stop(), 0);
    QCOMPARE(readFile(fixture.path("ledger.csv")), line);
    QCOMPARE(fixture.archived(), QStringList{u"a\n.xml"_s});
    QVERIFY(fixture.logHas("File [a%0A.xml] was booked before: nothing to do"));
}

void TestIntake::copyOfAnInterruptedAttemptCounts()
{
    const IntakeFixture fixture;
    fixture.writeProperties();
    QVERIFY(writeFile(fixture.path("archive/a.xml"), goodDocument()));
    dropFile(fixture.spool(u"a.xml"_s), goodDocument());
    RunningService service(fixture);
    QVERIFY(service.waitUntilReady());
    QTRY_COMPARE_WITH_TIMEOUT(fixture.spooled(), QStringList(), Patience);
    QCOMPARE(service.stop(), 0);
    QCOMPARE(fixture.archived(), QStringList{u"a.xml"_s});
    QVERIFY(fixture.logHas("<INFOR> File [a.xml] archived\n"));
}

void TestIntake::otherOrderUnderABookedNameIsSetAside()
{
    const IntakeFixture fixture;
    fixture.writeProperties();
    RunningService service(fixture);
    QVERIFY(service.waitUntilReady());
    for (const char* number : {"C-1", "C-2"}) {
        dropFile(fixture.spool(u"a.xml"_s), goodDocument(number));
        QTRY_COMPARE_WITH_TIMEOUT(fixture.spooled(), QStringList(), Patience);
    }
    QCOMPARE(service.stop(), 0);
    QCOMPARE(fixture.booked(), QStringList{u"a.xml"_s});
    QCOMPARE(readFile(fixture.path("setaside/a.xml")), goodDocument("C-2"));
    QStringList archived = fixture.archived();
    QCOMPARE(archived.size(), 2);
    QVERIFY(archived.removeOne(u"a.xml"_s));
    QCOMPARE(readFile(fixture.path("archive/a.xml")), goodDocument("C-1"));
    QCOMPARE(readFile(fixture.path("archive/") + archived.first()), goodDocument("C-2"));
    const QString line = u"<INFOR> File [a.xml] archived as [%1]"_s.arg(archived.first());
    QVERIFY(fixture.log().contains(line));
    QVERIFY(fixture.logHas(
        "<ERROR> The file [a.xml] goes to quarantine for [ledger] (a file of this name was booked "
        "before, as order C-1), under the name [a.xml]\n"));
}

void TestIntake::unfinishedLedgerLineIsCutAway()
{
    const IntakeFixture fixture;
    fixture.writeProperties();
    const QByteArray whole = "2026-01-02T03:04:05.678Z;z.xml;"
                             "0f3c2a9e-51b7-4c0d-9a2e-7b4f10c3d8e1;C-0;Étienne Durand;12.50;EUR\n";
    QVERIFY(
        writeFile(fixture.path("ledger.csv"), whole + "2026-01-02T03:04:05.679Z;a.xml;C-1;Éti"));
    dropFile(fixture.spool(u"a.xml"_s), goodDocument());
    RunningService service(fixture);
    QVERIFY(service.waitUntilReady());
    QTRY_COMPARE_WITH_TIMEOUT(fixture.spooled(), QStringList(), Patience);
    QCOMPARE(service.stop(), 0);
    QCOMPARE(fixture.booked(), QStringList({u"z.xml"_s, u"a.xml"_s}));
    QVERIFY(readFile(fixture.path("ledger.csv")).startsWith(whole));
    QVERIFY(
        fixture.logHas("Ledger: unfinished end of line removed [2026-01-02T03:04:05.679Z%3Ba.xml"));
}

void TestIntake::secondServiceIsRefused()
{
    const IntakeFixture fixture;
    fixture.writeProperties();
    RunningService first(fixture);
    QVERIFY(first.waitUntilReady());
    const QString log = fixture.log();
    RunningService second(fixture);
    QCOMPARE(second.waitUntilStopped(), 69);
    QVERIFY(second.errorOutput().startsWith(u"Log ring: another process ("_s));
    QVERIFY(fixture.log().startsWith(log)); // the first one may go on
    QCOMPARE(fixture.log().count(u", version 1.0.0 |"_s), log.count(u", version 1.0.0 |"_s));
    QVERIFY(first.isRunning());
    QCOMPARE(first.stop(), 0);
}

void TestIntake::secondServiceOnTheLedgerIsRefused()
{
    const IntakeFixture fixture;
    fixture.writeProperties();
    RunningService first(fixture);
    QVERIFY(first.waitUntilReady());
    const QString properties = fixture.path("intake.properties");
    QVERIFY(writeFile(properties, readFile(properties).replace("log/intake", "log/second")));
    RunningService second(fixture);
    QCOMPARE(second.waitUntilStopped(), 69);
    QVERIFY(readFile(fixture.path("log/second-0.log"))
                .contains("<ERROR> The service cannot work: Ledger ["));
    QVERIFY(second.errorOutput().startsWith(u"The service cannot work: Ledger ["_s));
    QVERIFY(first.isRunning());
    QCOMPARE(first.stop(), 0);
}

void TestIntake::malformedOrderIsSetAside_data()
{
    QTest::addColumn<QByteArray>("document");
    QTest::addColumn<QByteArray>("reason");
    QTest::newRow("missing element")
        << QByteArray(R"(<order number="1"><amount currency="EUR">1</amount></order>)")
        << QByteArray("\"customer\" is absent or empty");
    QTest::newRow("unknown type") << QByteArray(R"(<order type="Gift" number="1"/>)")
                                  << QByteArray("there is no order of type [Gift]");
    QTest::newRow("oversized") << QByteArray("<order>") + QByteArray(10'000'000, 'x')
                               << QByteArray("more than 65536 bytes");
    QTest::newRow("binary noise") << QByteArray("\x00\xff\xfe\x80=\n\x00\x01", 8)
                                  << QByteArray("this is not a text in UTF-8");
    QTest::newRow("empty") << QByteArray()
                           << QByteArray("this is not XML: XML descriptor is an undefined or "
                                         "empty string");
}

void TestIntake::malformedOrderIsSetAside()
{
    QFETCH(const QByteArray, document);
    QFETCH(const QByteArray, reason);
    const IntakeFixture fixture;
    fixture.writeProperties();
    dropFile(fixture.spool(u"a.xml"_s), document);
    dropFile(fixture.spool(u"b.xml"_s), goodDocument());
    RunningService service(fixture);
    QVERIFY(service.waitUntilReady());
    QTRY_COMPARE_WITH_TIMEOUT(fixture.spooled(), QStringList(), Patience);
    QVERIFY(service.isRunning());
    QCOMPARE(service.stop(), 0);
    QCOMPARE(fixture.setAside(), QStringList{u"a.xml"_s});
    QCOMPARE(readFile(fixture.path("setaside/a.xml")), document);
    QCOMPARE(fixture.archived(), QStringList({u"a.xml"_s, u"b.xml"_s}));
    QCOMPARE(fixture.booked(), QStringList{u"b.xml"_s});
    QVERIFY(readFile(fixture.path("setaside/a.xml.txt")).contains("\nreason=" + reason + "\n"));
    const QByteArray line = "<ERROR> The file [a.xml] goes to quarantine for [ledger] (" + reason +
                            "), under the name [a.xml]\n";
    QVERIFY2(fixture.logHas(line.constData()), line.constData());
}

void TestIntake::vanishingFilesDoNoHarm()
{
    constexpr int Count = 400;
    const IntakeFixture fixture;
    fixture.writeProperties();
    for (int number = 0; number < Count; ++number)
        dropFile(fixture.spool(orderName(number)), goodDocument());
    RunningService service(fixture);
    QVERIFY(service.waitUntilReady());
    for (int number = Count - 1; number >= 0; number -= 2)
        QFile::remove(fixture.spool(orderName(number)));
    QTRY_COMPARE_WITH_TIMEOUT(fixture.spooled(), QStringList(), Patience);
    dropFile(fixture.spool(u"last.xml"_s), goodDocument());
    QTRY_VERIFY_WITH_TIMEOUT(fixture.booked().contains(u"last.xml"_s), Patience);
    QVERIFY(service.isRunning());
    QCOMPARE(service.stop(), 0);
    const QStringList booked = fixture.booked();
    for (int number = 0; number < Count; number += 2)
        QCOMPARE(booked.count(orderName(number)), 1);
}

void TestIntake::awkwardNamesAreHandled()
{
    const QStringList names{u"%1 %2 %n"_s,   u"a b"_s, u"été à Nîmes"_s,  u"line\nfeed"_s,
                            u"semi;colon"_s, u"\t"_s,  u"\u65e5\u672c"_s, QString(250, u'n')};
    const IntakeFixture fixture;
    fixture.writeProperties();
    RunningService service(fixture);
    QVERIFY(service.waitUntilReady());
    for (const QString& name : names)
        dropFile(fixture.spool(name), goodDocument());
    QTRY_COMPARE_WITH_TIMEOUT(fixture.spooled(), QStringList(), Patience);
    QCOMPARE(service.stop(), 0);
    const QStringList archived = fixture.archived();
    QCOMPARE(QSet<QString>(archived.begin(), archived.end()),
             QSet<QString>(names.begin(), names.end()));
    QStringList booked = fixture.booked();
    QStringList wanted{u"%251 %252 %25n"_s, u"a b"_s, u"été à Nîmes"_s,  u"line%0Afeed"_s,
                       u"semi%3Bcolon"_s,   u"%09"_s, u"\u65e5\u672c"_s, QString(250, u'n')};
    booked.sort();
    wanted.sort();
    QCOMPARE(booked, wanted);
    QVERIFY(fixture.logHas("<INFOR> File [line%0Afeed] archived\n"));
    QVERIFY(fixture.logHas("<INFOR> File [%251 %252 %25n] archived\n"));
}

void TestIntake::archiveFailureIsTriedAgain()
{
    const IntakeFixture fixture;
    fixture.writeProperties();
    RunningService service(fixture);
    QVERIFY(service.waitUntilReady());
    QVERIFY(QDir().rmdir(fixture.path("archive")));
    dropFile(fixture.spool(u"a.xml"_s), goodDocument());
    QTRY_VERIFY_WITH_TIMEOUT(
        fixture.logHas("<WARNG> The file [a.xml] could not be handled by [archive] (attempt 1): "
                       "File [a.xml] is not delivered to "),
        Patience);
    QTRY_COMPARE_WITH_TIMEOUT(fixture.booked(), QStringList{u"a.xml"_s}, Patience);
    QCOMPARE(fixture.spooled(), QStringList{u"a.xml"_s});

    QVERIFY(QDir().mkdir(fixture.path("archive")));
    QTRY_COMPARE_WITH_TIMEOUT(fixture.spooled(), QStringList(), Patience);
    QCOMPARE(service.stop(), 0);
    QCOMPARE(fixture.archived(), QStringList{u"a.xml"_s});
    QCOMPARE(fixture.booked(), QStringList{u"a.xml"_s});
    QCOMPARE(fixture.log().count(u"<WARNG> The file [a.xml] could not be handled"_s), 1);
}

void TestIntake::wrongProducerCommandLineIsTold_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");
    QTest::newRow("nothing") << QStringList() << u"one directory, and only one, must be given"_s;
    QTest::newRow("two directories")
        << QStringList{u"a"_s, u"b"_s} << u"one directory, and only one, must be given"_s;
    QTest::newRow("unknown option")
        << QStringList{u"--fast"_s, u"a"_s} << u"Unknown option 'fast'."_s;
    QTest::newRow("no number") << QStringList{u"--good"_s, u"few"_s, u"a"_s}
                               << u"--good: [few] is not an integer (0 or more)"_s;
    QTest::newRow("negative number")
        << QStringList{u"--bad=-1"_s, u"a"_s} << u"--bad: [-1] is not an integer (0 or more)"_s;
    QTest::newRow("no pause") << QStringList{u"--pause"_s, u"1s"_s, u"a"_s}
                              << u"--pause: [1s] is not an integer (0 or more)"_s;
    QTest::newRow("path as prefix")
        << QStringList{u"--prefix"_s, u"../x"_s, u"a"_s}
        << u"--prefix: [../x] is not the start of a visible file name"_s;
}

void TestIntake::wrongProducerCommandLineIsTold()
{
    QFETCH(const QStringList, arguments);
    QFETCH(const QString, reason);
    const Outcome outcome = runToEnd(INTAKE_DROP_PROGRAM, arguments);
    QCOMPARE(outcome.exitCode, 2);
    QCOMPARE(outcome.out, QString());
    QCOMPARE(outcome.err, reason + u"\nusage: intake-drop [--good N] [--bad N] [--pause MS] "
                                   "[--prefix TEXT] DIRECTORY\n"_s);
}

void TestIntake::producerNeedsASpool()
{
    const Outcome outcome = runToEnd(INTAKE_DROP_PROGRAM, {u"/nowhere"_s});
    QCOMPARE(outcome.exitCode, 1);
    QCOMPARE(outcome.err,
             u"Directory /nowhere cannot receive files: No such file or directory\n"_s);
}

void TestIntake::producerDropsWholeFiles()
{
    const QTemporaryDir spool;
    const Outcome outcome = runToEnd(INTAKE_DROP_PROGRAM, {u"--good"_s, u"30"_s, u"--bad"_s, u"6"_s,
                                                           u"--prefix"_s, u"p"_s, spool.path()});
    QCOMPARE(outcome.exitCode, 0);
    QCOMPARE(outcome.out, u"9 / 36\n18 / 36\n27 / 36\n36 / 36\n"
                          "Dropped into %1: 30 good orders, 6 bad ones\n"_s.arg(spool.path()));
    const QStringList names = entriesOf(spool.path()); // hidden ones too
    QCOMPARE(names.size(), 36);
    QCOMPARE(names.first(), u"p-000001.xml"_s);
    QCOMPARE(names.last(), u"p-000036.xml"_s);
    QVERIFY(readFile(spool.filePath(names.first())).contains("<amount currency=\"EUR\">"));
}

void TestIntake::producerOverwritesNothing()
{
    const QTemporaryDir spool;
    const QString taken = spool.filePath(u"p-000002.xml"_s);
    QVERIFY(writeFile(taken, "mine"));
    const Outcome outcome =
        runToEnd(INTAKE_DROP_PROGRAM, {u"--good"_s, u"3"_s, u"--prefix"_s, u"p"_s, spool.path()});
    QCOMPARE(outcome.exitCode, 1);
    QCOMPARE(outcome.err, u"File [p-000002.xml] is not delivered to %1: the name is taken\n"_s.arg(
                              spool.path()));
    QCOMPARE(readFile(taken), QByteArray("mine"));
    QCOMPARE(entriesOf(spool.path()).size(), 2);
}

QTEST_GUILESS_MAIN(TestIntake)
#include "tst_intake.moc"
