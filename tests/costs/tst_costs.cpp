// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Counts what the operations of the page on performance cost in system calls and allocations, and
// compares that with its table.

#include "support/allocations.h"
#include "support/systemcalls.h"

#include <kez/kez.h>

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <functional>
#include <map>
#include <memory>

namespace {

/// Prepares an action on that many items: what is done before the action does not count.
using Prepare = std::function<std::function<void()>(int items)>;

/// Of one item.
struct Cost {
    double systemCalls = 0;
    double allocations = 0;
};

constexpr int Items = 2000;

std::shared_ptr<QTemporaryDir> newDirectory()
{
    return std::make_shared<QTemporaryDir>();
}

QString numbered(const QString& text, int number)
{
    return text + QString::number(number).rightJustified(6, QLatin1Char('0'));
}

std::function<void()> repeat(int times, std::function<void()> action)
{
    return [times, action] {
        for (int i = 0; i < times; ++i)
            action();
    };
}

// --- Log

Prepare logLines(LoggerLevel::LogLevel filter)
{
    return [filter](int lines) {
        const auto directory = newDirectory();
        const auto logger =
            std::make_shared<Logger>(directory->filePath("app"), 1 << 30, 5U, 3650U, filter);
        logger->disableTee();
        const QString text = QStringLiteral("Request 48213 of client 10.1.2.3 served in 12 ms");
        logger->info(text);
        return repeat(lines, [directory, logger, text] { logger->info(text); });
    };
}

// --- Texts

std::function<void()> lookUp(int times, const std::function<QString(const Translator&)>& text)
{
    const Translator* const translator = Translator::getInstance();
    return repeat(times, [translator, text] {
        if (text(*translator).isEmpty())
            qFatal("no text");
    });
}

const QString Key = QStringLiteral("PropertyNotFound");
const QString Module = QStringLiteral("kez");

std::function<void()> failures(int times)
{
    const auto properties = std::make_shared<Properties>();
    const QString key = QStringLiteral("missing.key");
    return repeat(times, [properties, key] {
        try {
            properties->value(key);
        } catch (const Exception&) {
            return;
        }
        qFatal("no failure");
    });
}

// --- Properties

QMap<QString, QString> numberedProperties(int count)
{
    QMap<QString, QString> map;
    for (int i = 0; i < count; ++i)
        map.insert(numbered("service.section.key", i), numbered("a value ", i));
    return map;
}

Prepare readingOf(std::function<void(const QString& path)> read)
{
    return [read](int lines) -> std::function<void()> {
        const auto directory = newDirectory();
        const QString path = directory->filePath("service.properties");
        Properties::saveProperties(path, numberedProperties(lines), false);
        return [directory, path, read] { read(path); };
    };
}

std::function<void()> propertiesWritten(int lines)
{
    const auto directory = newDirectory();
    const auto map = numberedProperties(lines);
    return [directory, map] {
        Properties::saveProperties(directory->filePath("service.properties"), map, false);
    };
}

// --- Queue

const QString ConsumerId = QStringLiteral("archive");

/// A queue with one consumer, over a directory with that many files that the queue knows.
struct SpoolQueue {
    explicit SpoolQueue(int files)
    {
        for (int i = 0; i < files; ++i)
            names.append(numbered("order-", i));
        createFiles();
        queue = std::make_unique<FilesQueue>(directory.path(),
                                             QList<ConsumerEntry>{{ConsumerId, nullptr}}, true, 0);
    }

    void createFiles() const
    {
        for (const QString& name : names) {
            QFile file(directory.filePath(name));
            if (!file.open(QIODevice::WriteOnly))
                qFatal("a file cannot be created");
        }
    }

    void report()
    {
        for (const QString& name : std::as_const(names))
            queue->onConsumed(ConsumerId, name);
    }

    QTemporaryDir directory;
    QStringList names;
    std::unique_ptr<FilesQueue> queue;
};

std::function<void()> knownFilesScanned(int files)
{
    const auto spool = std::make_shared<SpoolQueue>(files);
    spool->queue->onDirectoryChanged();
    return [spool] { spool->queue->onDirectoryChanged(); };
}

std::function<void()> consumedFilesDeleted(int files)
{
    const auto spool = std::make_shared<SpoolQueue>(files);
    spool->report();
    return [spool] { spool->queue->onDirectoryChanged(); };
}

std::function<void()> filesReported(int files)
{
    const auto spool = std::make_shared<SpoolQueue>(files);
    return [spool] { spool->report(); };
}

std::function<void()> filesRequested(int files)
{
    const auto spool = std::make_shared<SpoolQueue>(files);
    return [spool] { spool->queue->onRequestForFiles(ConsumerId); };
}

// --- XML

QString document(int elements)
{
    QString text = QStringLiteral("<orders>");
    for (int i = 1; i < elements; ++i)
        text += QStringLiteral("<order number=\"%1\" state=\"new\">three pieces</order>").arg(i);
    return text + QStringLiteral("</orders>");
}

std::function<void()> elementsRead(int elements)
{
    const QString text = document(elements);
    return [text] {
        static std::shared_ptr<SimpleDom> dom; // only reading counts: this one is released later
        dom = std::make_shared<SimpleDom>(text);
    };
}

std::function<void()> elementsWritten(int elements)
{
    const auto dom = std::make_shared<SimpleDom>(document(elements));
    return [dom] {
        if (dom->toString(true).isEmpty())
            qFatal("no text");
    };
}

// --- Identifiers

std::function<void()> identifiersShown(int times)
{
    const QByteArray uid(16, 'x');
    return repeat(times, [uid] {
        if (UidGenerator::toUUID(uid).isEmpty())
            qFatal("no text");
    });
}

/// By the names that the page gives them.
const std::map<QString, Prepare> Operations{
    {"a log line", logLines(LoggerLevel::debug)},
    {"a log line below the filter", logLines(LoggerLevel::error)},
    {"a text by its key",
     [](int times) { return lookUp(times, [](const Translator& t) { return t.string(Key); }); }},
    {"a text by key and module",
     [](int times) {
         return lookUp(times, [](const Translator& t) { return t.string(Key, Module); });
     }},
    {"a text by key, module and language",
     [](int times) {
         const QString lang = Translator::getInstance()->defaultLang();
         return lookUp(times, [lang](const Translator& t) { return t.string(Key, Module, lang); });
     }},
    {"a failure, thrown and caught", failures},
    {"a line read by `Properties`",
     readingOf([](const QString& path) { Properties::loadProperties(path); })},
    {"a line read by `Config`", readingOf([](const QString& path) { Config::load(path); })},
    {"a line written by `Properties`", propertiesWritten},
    {"a file that the queue knows, at a re-scan", knownFilesScanned},
    {"a consumed file, at a re-scan", consumedFilesDeleted},
    {"a report to the queue", filesReported},
    {"a name in the answer to a request", filesRequested},
    {"an XML element read", elementsRead},
    {"an XML element written", elementsWritten},
    {"an identifier as text", identifiersShown},
};

/// The page's table: operation, system calls, allocations, as they stand there.
QList<QStringList> statedCosts()
{
    QFile page(PERFORMANCE_PAGE);
    if (!page.open(QIODevice::ReadOnly))
        qFatal("the page on performance cannot be read");
    const QString text = QString::fromUtf8(page.readAll());
    const QString table =
        text.section("| operation | system calls | allocations |", 1).section("\n\n", 0, 0);
    QList<QStringList> rows;
    for (const QString& line : table.split('\n')) {
        if (!line.startsWith("| "))
            continue;
        QStringList cells = line.split('|').mid(1, 3);
        for (QString& cell : cells)
            cell = cell.trimmed();
        rows.append(cells);
    }
    return rows;
}

double allocationsOf(const Prepare& prepare, int items)
{
    const auto action = prepare(items);
    const long before = Allocations::count;
    action();
    return double(Allocations::count - before);
}

/// What is stated is at least what is counted, and not far above it.
bool isStatedWell(double stated, double counted)
{
    return counted <= stated + 0.005 && stated <= 1.5 * counted + 0.01;
}

} // namespace

class TestCosts : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { Log::initInstance()->setFilter(LoggerLevel::info); }

    void everyOperationIsOnThePage()
    {
        QStringList stated;
        for (const QStringList& row : statedCosts())
            stated.append(row.value(0));
        QStringList known;
        for (const auto& [name, prepare] : Operations)
            known.append(name);
        stated.sort();
        QCOMPARE(stated, known);
    }

    void costsAreAsStated_data()
    {
        QTest::addColumn<double>("systemCalls");
        QTest::addColumn<double>("allocations");
        for (const QStringList& row : statedCosts())
            QTest::newRow(qPrintable(row.at(0))) << row.at(1).toDouble() << row.at(2).toDouble();
    }

    /// The difference of two sizes is free of what an operation costs once.
    void costsAreAsStated()
    {
        QFETCH(const double, systemCalls);
        QFETCH(const double, allocations);
        const Prepare& prepare = Operations.at(QTest::currentDataTag());

        if (!Allocations::AreCounted)
            QSKIP("The sanitizer makes calls of its own.");
        const double allocated =
            (allocationsOf(prepare, 2 * Items) - allocationsOf(prepare, Items)) / Items;
        QVERIFY2(isStatedWell(allocations, allocated),
                 qPrintable(QStringLiteral("%1 allocations").arg(allocated)));
        const auto fewer = SystemCalls::count([&] { return prepare(Items); });
        const auto more = SystemCalls::count([&] { return prepare(2 * Items); });
        if (!fewer || !more)
            QSKIP("This process must not trace another one.");
        const double counted = double(*more - *fewer) / Items;
        QVERIFY2(isStatedWell(systemCalls, counted),
                 qPrintable(QStringLiteral("%1 system calls").arg(counted)));
    }
};

QTEST_GUILESS_MAIN(TestCosts)
#include "tst_costs.moc"
