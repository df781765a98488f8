// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "queue/queuefixture.h"
#include "support/messagecapture.h"
#include "support/tracelog.h"

#include <kez/exception.h>
#include <kez/FilesQueue.h>
#include <kez/log.h>

#include <QTest>
#include <QThread>

#include <functional>
#include <stdexcept>
#include <utility>

namespace {

const QList<ConsumerEntry> OneConsumer{{"c", nullptr}};

/// Sends debug traces to Qt's message output, and runs `action` inside the message handler for each
/// trace that contains `text`. The log is off during the action, since it is writing that trace.
class HandlerAction {
public:
    HandlerAction(const QString& text, const std::function<void()>& action)
        : _text(text), _action(action)
    {
        _log.setFilter(LoggerLevel::debug);
        s_current = this;
        _previous = qInstallMessageHandler(&HandlerAction::handle);
    }
    ~HandlerAction()
    {
        qInstallMessageHandler(_previous);
        s_current = nullptr;
    }
    HandlerAction(const HandlerAction&) = delete;
    HandlerAction& operator=(const HandlerAction&) = delete;

    QStringList seen() const { return _seen; }

private:
    static void handle(QtMsgType, const QMessageLogContext&, const QString& text)
    {
        s_current->_seen.append(text);
        if (!text.contains(s_current->_text))
            return;
        s_current->_log.setFilter(LoggerLevel::fatal);
        s_current->_action();
        s_current->_log.setFilter(LoggerLevel::debug);
    }

    static inline HandlerAction* s_current = nullptr;

    Log _log;
    QString _text;
    std::function<void()> _action;
    QStringList _seen;
    QtMessageHandler _previous = nullptr;
};

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
    void everyTraceMayRunAnotherRescan_data();
    void everyTraceMayRunAnotherRescan();
    void announcementsKeepTheirOrder();
    void traceMayRunAnEventLoop();

    void formatterThatThrowsLosesOnlyTheTrace_data();
    void formatterThatThrowsLosesOnlyTheTrace();
    void handlerThatThrowsAsWellLosesOnlyTheTrace();
};

void QueueTracesTest::everyTraceMayRunAnotherRescan_data()
{
    QTest::addColumn<QString>("trace");
    QTest::newRow("listing") << QStringLiteral("modifié");
    QTest::newRow("first refusal") << QStringLiteral("Rejet du fichier b.1");
    QTest::newRow("last refusal") << QStringLiteral("Rejet du fichier b.3");
    QTest::newRow("summary") << QStringLiteral("Ajoutés");
}

void QueueTracesTest::everyTraceMayRunAnotherRescan()
{
    QFETCH(QString, trace);
    const QueueDirectory directory;
    QVERIFY(directory.createAll({"a", "c", "d", "e", "f"}));
    for (const char* const name : {"b.1", "b.2", "b.3"})
        QVERIFY(directory.makeLink(name, "/dev/null"));
    FilesQueue queue(directory.path(), OneConsumer, true, 0);
    QVERIFY(directory.createAll({"new.1", "new.2"}));
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    {
        // The nested re-scan finds that most files are gone and that others are there.
        bool isDone = false;
        const HandlerAction again(trace, [&] {
            if (std::exchange(isDone, true))
                return;
            for (const char* const name : {"a", "c", "d", "new.1"})
                QVERIFY(directory.remove(name));
            QVERIFY(directory.createAll({"new.3", "new.4"}));
            queue.onDirectoryChanged();
        });
        queue.onConsumed("c", "f");
        queue.onDirectoryChanged();
        QVERIFY(isDone);
        const QStringList last{"e", "new.2", "new.3", "new.4"};
        QCOMPARE(queuedNames(queue, last), last);
        QVERIFY(!directory.exists("f"));
        queue.onDirectoryChanged();
        QCOMPARE(queuedNames(queue, last), last);
    }
    QStringList announced;
    for (const QList<QVariant>& update : updated) {
        announced += update.at(0).value<QList<QString>>();
        for (const QString& name : update.at(1).value<QList<QString>>())
            announced.append('-' + name);
    }
    QCOMPARE(announced,
             QStringList({"new.1", "new.2", "new.3", "new.4", "-a", "-c", "-d", "-new.1"}));
}

void QueueTracesTest::announcementsKeepTheirOrder()
{
    const QueueDirectory directory;
    QVERIFY(directory.makeLink("b", "/dev/null"));
    FilesQueue queue(directory.path(), {}, true, 0);
    QVERIFY(directory.create("a"));
    const QSignalSpy updated(&queue, &FilesQueue::queueUpdated);
    bool isDone = false;
    const HandlerAction again("Rejet", [&] {
        if (std::exchange(isDone, true))
            return;
        QVERIFY(directory.remove("a"));
        queue.onDirectoryChanged();
    });
    queue.onDirectoryChanged();
    QCOMPARE(updated.size(), 2);
    QCOMPARE(updated.at(0).at(0).value<QList<QString>>(), QList<QString>({"a"}));
    QCOMPARE(updated.at(1).at(1).value<QList<QString>>(), QList<QString>({"a"}));
    QCOMPARE(queue.size(), 0);
}

void QueueTracesTest::traceMayRunAnEventLoop()
{
    // The watch and the timer start re-scans while a refusal is traced.
    const QueueDirectory directory;
    QVERIFY(directory.makeLink("b", "/dev/null"));
    FilesQueue queue(directory.path(), OneConsumer, true, 1);
    const HandlerAction loop("Rejet", [&] {
        QThread::msleep(2);
        QCoreApplication::processEvents();
    });
    queue.onProcess();
    for (int i = 0; i < 30; ++i) {
        const QString name = QString::number(i);
        QVERIFY(directory.deliver(name));
        QTRY_VERIFY(queue.existsFileEntry(name));
        queue.onConsumed("c", name);
        QTRY_VERIFY(!queue.existsFileEntry(name));
        QVERIFY(!directory.exists(name));
    }
    QCOMPARE(queue.size(), 0);
}

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
