// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/queuefixture.h"
#include "support/messagecapture.h"
#include "support/tracelog.h"

#include <kez/exception.h>
#include <kez/FilesQueue.h>
#include <kez/log.h>

#include <QTest>

#include <stdexcept>

namespace {

const QList<ConsumerEntry> OneConsumer{{"c", nullptr}};

/// What a formatter throws.
enum class Thrown { Standard, Library, LibraryPointer, Number };
Thrown s_thrown = Thrown::Standard;

[[noreturn]] void throwingFormatter(LoggerLevel::LogLevel, const QString&, QString&)
{
    switch (s_thrown) {
    case Thrown::Standard:
        throw std::runtime_error("formatter");
    case Thrown::Library:
        throw Exception("formatter");
    case Thrown::LibraryPointer:
        throw new Exception("formatter");
    case Thrown::Number:
        break;
    }
    throw 42;
}

void throwingHandler(QtMsgType, const QMessageLogContext&, const QString&)
{
    throw std::runtime_error("handler");
}

} // namespace

Q_DECLARE_METATYPE(Thrown)

class QueueTracesTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void formatterThatThrowsLosesOnlyTheTrace_data();
    void formatterThatThrowsLosesOnlyTheTrace();
    void handlerThatThrowsAsWellLosesOnlyTheTrace();
};

void QueueTracesTest::formatterThatThrowsLosesOnlyTheTrace_data()
{
    QTest::addColumn<Thrown>("thrown");
    QTest::addColumn<QString>("reason");
    QTest::newRow("standard exception") << Thrown::Standard << "formatter";
    QTest::newRow("library's exception") << Thrown::Library << "formatter";
    QTest::newRow("pointer to one") << Thrown::LibraryPointer << "formatter";
    QTest::newRow("number") << Thrown::Number << "?";
}

void QueueTracesTest::formatterThatThrowsLosesOnlyTheTrace()
{
    QFETCH(Thrown, thrown);
    QFETCH(QString, reason);
    s_thrown = thrown;
    const QTemporaryDir logs;
    Log log(logs.filePath("log"), false, 1 << 20, 2, 365, LoggerLevel::debug, &throwingFormatter);
    const MessageCapture output;
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    QVERIFY(directory.makeLink("b", "/dev/null"));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    const QSignalSpy answered(&queue, &FilesQueue::filesNotConsumed);
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);

    queue.onProcess();
    queue.onRequestForFiles("c");
    QCOMPARE(answered.size(), 1);
    queue.onConsumed("c", "a");
    QVERIFY(queue.isConsumedFromAll("a"));
    QVERIFY(directory.create("d"));
    queue.onDirectoryChanged();
    QVERIFY(!directory.exists("a"));
    QCOMPARE(updated.size(), 1);

    // One for each trace: of the start, the request, the report, and three of the re-scan.
    QCOMPARE(output.texts(), QStringList(6, "FilesQueue: a trace could not be written: " + reason));
}

void QueueTracesTest::handlerThatThrowsAsWellLosesOnlyTheTrace()
{
    s_thrown = Thrown::Standard;
    const QTemporaryDir logs;
    Log log(logs.filePath("log"), false, 1 << 20, 2, 365, LoggerLevel::debug, &throwingFormatter);
    const QueueDirectory directory;
    QVERIFY(directory.create("a"));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    const QtMessageHandler before = qInstallMessageHandler(&throwingHandler);
    queue.onConsumed("c", "a");
    queue.onDirectoryChanged();
    qInstallMessageHandler(before);
    QVERIFY(!directory.exists("a"));
    QCOMPARE(queue.size(), 0);
}

QTEST_GUILESS_MAIN(QueueTracesTest)
#include "tst_queuetraces.moc"
