// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/queuefixture.h"
#include "support/childprocess.h"
#include "support/environmentguard.h"
#include "support/failuretext.h"
#include "support/tracelog.h"

#include <kez/FilesQueue.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <cstdio>
#include <memory>

namespace {

// The library reads its language when the application object is made.
const EnvironmentGuard s_english("LANG", "en_US.UTF-8");

const QString Prefix =
    QStringLiteral("FilesQueue* FilesQueue::initFilesQueue(const QJsonObject&) -> ");
const QString NoPath = Prefix + "Property [path] does not exist";
const QString NoInteger = Prefix + "Illegal parameter [period]: this is not an integer";
const QString NoBoolean = Prefix + "Illegal parameter [keep]: his is not a boolean";

QString noAccess(const QString& path)
{
    return Prefix + "Access to directory [" + path +
           "] is impossible or file rights are insufficient.";
}

/// `json`, in which "$" stands for the path `directory`.
QJsonArray described(const QByteArray& json, const QString& directory)
{
    const QJsonDocument document =
        QJsonDocument::fromJson(QByteArray(json).replace('$', directory.toUtf8()));
    Q_ASSERT(document.isArray());
    return document.array();
}

QString failureOf(const QJsonArray& description)
{
    return failureText(
        [&] { const std::unique_ptr<FilesQueue> queue(FilesQueue::initFilesQueue(description)); });
}

int childUnreadable()
{
    if (!becomeOrdinaryUser())
        return 1;
    const QueueDirectory directory;
    int exitCode = 0;
    for (const mode_t mode : {0500U, 0300U, 0000U}) {
        directory.setOwnMode(mode);
        if (failureOf(described(R"([{"path":"$"}])", directory.path())) !=
            noAccess(directory.path()))
            exitCode = 1;
    }
    directory.setOwnMode(0700);
    return exitCode;
}

int childPrintFailures()
{
    const QTemporaryDir directory;
    for (const char* const json :
         {R"([{"path":"/absent"}])", R"([{"period":"1"}])", R"([{"keep":1}])", "[]"})
        std::printf("%s\n", failureOf(described(json, directory.path())).toUtf8().constData());
    return 0;
}

int childMain(const QStringList& arguments)
{
    int argc = 1;
    char name[] = "queuejson";
    char* argv[] = {name, nullptr};
    if (arguments.value(0) == QLatin1String("unreadable")) {
        const QCoreApplication application(argc, argv);
        return childUnreadable();
    }
    qputenv("LANG", "fr_FR.UTF-8");
    const QCoreApplication application(argc, argv);
    return childPrintFailures();
}

} // namespace

class QueueJsonTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void descriptions_data();
    void descriptions();
    void failures_data();
    void failures();
    void failureHasNoParent();
    void refusedPath_data();
    void refusedPath();
    void pathWithoutPermissions();
    void failuresInFrench();
    void firstFailureWins();
    void onlyTheLastPathIsPurged();
    void queueIsNotStarted();
};

void QueueJsonTest::descriptions_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<int>("period");
    QTest::addColumn<bool>("keep");
    const auto row = [](const char* name, const char* json, int period, bool keep) {
        QTest::newRow(name) << QByteArray(json) << period << keep;
    };
    row("defaults", R"([{"path":"$"}])", 10000, true);
    row("everything", R"([{"path":"$","period":500,"keep":false}])", 500, false);
    row("keep said", R"([{"path":"$","keep":true}])", 10000, true);
    row("one key an object", R"([{"keep":false},{"period":7},{"path":"$"}])", 7, false);
    row("later overrides", R"([{"path":"$","period":1,"keep":false},{"period":2,"keep":true}])", 2,
        true);
    row("later leaves the rest", R"([{"path":"$","period":1,"keep":false},{"period":2}])", 2,
        false);
    row("later path", R"([{"path":"$/.."},{"path":"$"}])", 10000, true);
    row("no period", R"([{"path":"$","period":0}])", 0, true);
    row("negative period", R"([{"path":"$","period":-1}])", -1, true);
    row("largest period", R"([{"path":"$","period":2147483647}])", 2147483647, true);
    row("whole number with a point", R"([{"path":"$","period":2000.0}])", 2000, true);
    row("whole number with an exponent", R"([{"path":"$","period":2e3}])", 2000, true);
    row("fraction", R"([{"path":"$","period":1500.5}])", 1500, true);
    row("more than an int", R"([{"path":"$","period":1e12}])", 2147483647, true);
    row("less than an int", R"([{"path":"$","period":-1e12}])", -2147483647 - 1, true);
    row("other keys", R"([{"path":"$","Period":1,"KEEP":false,"consumers":["a"],"":0}])", 10000,
        true);
    row("elements that are not objects",
        R"(["$",1,true,null,[{"period":1}],{"path":"$"},[],"period"])", 10000, true);
    row("empty objects", R"([{},{"path":"$"},{}])", 10000, true);
    row("path that is not a string, before", R"([{"path":1},{"path":"$"}])", 10000, true);
    row("path that is not a string, after", R"([{"path":"$"},{"path":null},{"path":["/"]}])", 10000,
        true);
}

void QueueJsonTest::descriptions()
{
    QFETCH(QByteArray, json);
    QFETCH(bool, keep);
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "b"}));
    const std::unique_ptr<FilesQueue> queue(
        FilesQueue::initFilesQueue(described(json, directory.path())));
    QVERIFY(queue);
    QCOMPARE(queue->path().absolutePath(), directory.path());
    QTEST(queue->scrutationIntervall(), "period");
    QCOMPARE(queue->size(), keep ? 2 : 0);
    QCOMPARE(directory.names(), keep ? QStringList({"a", "b"}) : QStringList());
}

void QueueJsonTest::failures_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("detail");
    const auto row = [](const char* name, const char* json, const QString& detail) {
        QTest::newRow(name) << QByteArray(json) << detail;
    };
    row("empty array", "[]", NoPath);
    row("empty object", "[{}]", NoPath);
    row("no object", R"(["$",1,null])", NoPath);
    row("path in another case", R"([{"Path":"$"}])", NoPath);
    row("path is a number", R"([{"path":1}])", NoPath);
    row("path is null", R"([{"path":null}])", NoPath);
    row("path is an object", R"([{"path":{"path":"$"}}])", NoPath);
    row("path in a nested array", R"([[{"path":"$"}]])", NoPath);
    row("no path, but the rest", R"([{"period":1,"keep":false}])", NoPath);

    row("period is a string", R"([{"path":"$","period":"500"}])", NoInteger);
    row("period is a boolean", R"([{"path":"$","period":true}])", NoInteger);
    row("period is null", R"([{"path":"$","period":null}])", NoInteger);
    row("period is an array", R"([{"path":"$","period":[1]}])", NoInteger);
    row("period is an object", R"([{"path":"$","period":{}}])", NoInteger);
    row("period without path", R"([{"period":"500"}])", NoInteger);
    row("later period", R"([{"path":"$","period":1},{"period":"2"}])", NoInteger);
    row("earlier period", R"([{"period":"2"},{"path":"$","period":1}])", NoInteger);

    row("keep is a number", R"([{"path":"$","keep":1}])", NoBoolean);
    row("keep is a string", R"([{"path":"$","keep":"true"}])", NoBoolean);
    row("keep is null", R"([{"path":"$","keep":null}])", NoBoolean);
    row("keep is an array", R"([{"path":"$","keep":[]}])", NoBoolean);
    row("later keep", R"([{"path":"$","keep":true},{"keep":0}])", NoBoolean);

    row("path is empty", R"([{"path":""}])", noAccess(""));
    row("path is absent", R"([{"path":"/absent/%1"}])", noAccess("/absent/%1"));
    row("later path is absent", R"([{"path":"$"},{"path":"/absent"}])", noAccess("/absent"));
    row("earlier path is absent", R"([{"path":"/absent"},{"path":"$"}])", noAccess("/absent"));
}

void QueueJsonTest::failures()
{
    QFETCH(QByteArray, json);
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    QTEST(failureOf(described(json, directory.path())), "detail");
    QVERIFY(directory.exists("a"));
}

void QueueJsonTest::failureHasNoParent()
{
    try {
        FilesQueue::initFilesQueue(QJsonArray());
        QFAIL("no exception");
    } catch (const Exception& failure) {
        QVERIFY(!failure.parent());
    }
}

void QueueJsonTest::refusedPath_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("regular file") << "file";
    QTest::newRow("fifo") << "fifo";
    QTest::newRow("broken link") << "broken";
    QTest::newRow("absent, with place holders") << "%1 %2";
    QTest::newRow("absent, with accents") << "l'été";
}

void QueueJsonTest::refusedPath()
{
    QFETCH(QString, name);
    const QueueDirectory directory;
    QVERIFY(directory.create("file"));
    QVERIFY(directory.makeFifo("fifo"));
    QVERIFY(directory.makeLink("broken", "nowhere"));
    const QString path = directory.filePath(name);
    QCOMPARE(failureOf(QJsonArray{QJsonObject{{"path", path}}}), noAccess(path));
}

void QueueJsonTest::pathWithoutPermissions()
{
    const ChildResult child = runChild({"unreadable"});
    QVERIFY2(child.exitCode == 0, child.err.constData());
}

void QueueJsonTest::failuresInFrench()
{
    const ChildResult child = runChild({"french"});
    QCOMPARE(QString::fromUtf8(child.out).split('\n', Qt::SkipEmptyParts),
             QStringList({Prefix + "L'accès au répertoire [/absent] est impossible ou les droits "
                                   "du compte utilisé sont insuffisants",
                          Prefix + "Paramètre [period] invalide : ce n'est pas un entier",
                          Prefix + "Paramètre [keep] invalide : ce n'est pas un booléen",
                          Prefix + "La propriété [path] n'existe pas"}));
}

void QueueJsonTest::firstFailureWins()
{
    const QueueDirectory directory;
    QCOMPARE(failureOf(described(R"([{"period":"1"},{"keep":1},{"path":"/absent"}])", "")),
             NoInteger);
    QCOMPARE(failureOf(described(R"([{"keep":1},{"path":"/absent"},{"period":"1"}])", "")),
             NoBoolean);
    QCOMPARE(failureOf(described(R"([{"path":"/absent"},{"period":"1"},{"keep":1}])", "")),
             noAccess("/absent"));
}

void QueueJsonTest::onlyTheLastPathIsPurged()
{
    const QueueDirectory directory;
    QVERIFY(directory.makeDirectory("one"));
    QVERIFY(directory.makeDirectory("two"));
    QVERIFY(directory.create("one/a"));
    QVERIFY(directory.create("two/b"));
    const std::unique_ptr<FilesQueue> queue(FilesQueue::initFilesQueue(
        described(R"([{"path":"$/one","keep":false},{"path":"$/two"}])", directory.path())));
    QCOMPARE(queue->path().absolutePath(), directory.filePath("two"));
    QVERIFY(directory.exists("one/a"));
    QVERIFY(!directory.exists("two/b"));
}

void QueueJsonTest::queueIsNotStarted()
{
    const TraceLog traces;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    const std::unique_ptr<FilesQueue> queue(
        FilesQueue::initFilesQueue(described(R"([{"path":"$","period":10}])", directory.path())));
    QVERIFY(!queue->parent());
    QVERIFY(queue->children().isEmpty());
    QCOMPARE(queue->index(""), -1);
    QVERIFY(queue->isConsumedFromAll("a"));
    QVERIFY(directory.deliver("b"));
    QTest::qWait(50);
    QCOMPARE(queue->size(), 1);
    QCOMPARE(traces.texts(), QStringList());

    ConsumerAncestor consumer("c");
    queue->appendConsumer(&consumer);
    queue->onProcess();
    QTRY_COMPARE(queue->size(), 2);
}

KEZ_TEST_MAIN_WITH_CHILDREN(QueueJsonTest, childMain)
#include "tst_queuejson.moc"
