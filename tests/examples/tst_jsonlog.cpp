// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/files.h"
#include "support/logring.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

#include <signal.h>

namespace {

constexpr int Patience = 60000;

/// One run of the program.
class Service {
public:
    Service()
    {
        writeFile(configuration(), "log.filename=" + ring.name().toUtf8() + "\nlog.filter=info\n");
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert("LC_ALL", "C.UTF-8"); // Qt warns of a locale without UTF-8
        process.setProcessEnvironment(environment);
        process.start(JSON_LOG_PROGRAM, {configuration()});
    }

    QString configuration() const { return ring.path() + "/service.properties"; }

    /// The objects of the log; fails for a line that is none.
    QList<QJsonObject> objects() const
    {
        QList<QJsonObject> objects;
        for (const QByteArray& line : ring.lines(0)) {
            QJsonParseError error{};
            objects.append(QJsonDocument::fromJson(line, &error).object());
            if (error.error != QJsonParseError::NoError)
                qFatal("no JSON: %s", line.constData());
        }
        return objects;
    }

    const LogRing ring;
    QProcess process;
};

} // namespace

class TestJsonLog : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void everyLineIsAnObject();
    void stopsOnASignal();
    void wrongConfigurationIsSaid();
};

void TestJsonLog::everyLineIsAnObject()
{
    const QByteArrayList sent = {
        R"(A-2;"free")", R"(\",\"level\":\"fatal)", "\x1b[2J", "r\xc3\xa9seau \xff",
        "\xe2\x80\xa8",  QByteArray(100000, 'x'),   "",        "without an end"};
    Service service;
    service.process.write("A-1;12.50\n" + sent.join('\n'));
    service.process.closeWriteChannel();
    QVERIFY(service.process.waitForFinished(Patience));
    QCOMPARE(service.process.exitCode(), 0);
    QCOMPARE(service.process.readAllStandardError(), QByteArray());

    QList<QJsonObject> objects = service.objects();
    QCOMPARE(objects.size(), sent.size() + 3);
    for (const QJsonObject& object : objects) {
        QCOMPARE(object.keys(), (QStringList{"category", "level", "message", "thread", "time"}));
        const QString time = object["time"].toString();
        QVERIFY2(time.endsWith('Z') && QDateTime::fromString(time, Qt::ISODateWithMs).isValid(),
                 qPrintable(time));
    }
    QCOMPARE(objects.takeFirst()["message"].toString(), QString("started"));
    QCOMPARE(objects.takeLast()["message"].toString(), QString("stopped"));
    QCOMPARE(objects.takeFirst()["message"].toString(), QString("A-1 costs 12.5"));
    for (qsizetype i = 0; i < objects.size(); ++i) {
        QCOMPARE(objects[i]["message"].toString(), "not an order: " + QString::fromUtf8(sent[i]));
        QCOMPARE(objects[i]["level"].toString(), QString("warning"));
        QCOMPARE(objects[i]["thread"].toString(), QString("orders"));
        QCOMPARE(objects[i]["category"].toString(), QString("app.orders"));
    }
}

void TestJsonLog::stopsOnASignal()
{
    Service service;
    service.process.write("A-1;1\n");
    QTRY_COMPARE_WITH_TIMEOUT(service.ring.lines(0).size(), 2, Patience);
    QCOMPARE(kill(pid_t(service.process.processId()), SIGTERM), 0);
    QVERIFY(service.process.waitForFinished(Patience));
    QCOMPARE(service.process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(service.process.exitCode(), 0);
    QCOMPARE(service.objects().last()["message"].toString(), QString("stopped"));
}

void TestJsonLog::wrongConfigurationIsSaid()
{
    QProcess process;
    process.start(JSON_LOG_PROGRAM, {"/nowhere/service.properties"});
    QVERIFY(process.waitForFinished(Patience));
    QCOMPARE(process.exitCode(), 1);
    QVERIFY(process.readAllStandardError().contains("[/nowhere/service.properties]"));
}

QTEST_GUILESS_MAIN(TestJsonLog)
#include "tst_jsonlog.moc"
