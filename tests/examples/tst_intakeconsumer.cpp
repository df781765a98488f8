// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "intakeconsumer.h"
#include "intakefixture.h"
#include "support/messagecapture.h"
#include "texts.h"

#include <kez/exception.h>
#include <kez/FilesQueue.h>

#include <QElapsedTimer>

#include <functional>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

/// Notes what it is given, and does with it what a test wants.
class RecordingConsumer : public intake::IntakeConsumer {
public:
    using IntakeConsumer::IntakeConsumer;

    QStringList handled;
    std::function<void(const QString& name)> action;

protected:
    void handle(const QString& path, const QString& name) override
    {
        QCOMPARE(QFileInfo(path).fileName(), name);
        handled.append(name);
        if (action)
            action(name);
    }
};

} // namespace

class TestIntakeConsumer : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void eachHandlesEveryFileOnce();
    void answersToOthersAreLeftAlone();
    void oneFileForEachTurnOfTheEventLoop();
    void fileThatLeftTheQueueIsSurvived();
    void unknownConsumerIsSurvived();
    void failureIsToldOnceAndTriedAgain_data();
    void failureIsToldOnceAndTriedAgain();
    void arrivalsDoNotHastenTheNextTry();

private:
    QString write(const QString& name) const
    {
        dropFile(_spool->filePath(name), "x");
        return name;
    }

    std::unique_ptr<QTemporaryDir> _spool;
};

void TestIntakeConsumer::initTestCase()
{
    intake::loadTexts();
    intake::startInLanguage(u"en_US"_s);
}

void TestIntakeConsumer::init()
{
    _spool = std::make_unique<QTemporaryDir>();
}

void TestIntakeConsumer::eachHandlesEveryFileOnce()
{
    const MessageCapture capture;
    const QStringList names{write(u"a"_s), write(u"b"_s), write(u"c"_s)};
    RecordingConsumer first(u"first"_s, _spool->path());
    RecordingConsumer second(u"second"_s, _spool->path());
    FilesQueue queue(_spool->path(), {{first.id(), &first}, {second.id(), &second}}, true, 0);
    first.listenTo(queue);
    second.listenTo(queue);
    queue.onProcess();
    first.ask();
    second.ask();
    QTRY_COMPARE(first.handled, names);
    QTRY_COMPARE(second.handled, names);
    QTRY_VERIFY(queue.isConsumedFromAll(u"c"_s));

    const QString late = write(u"d"_s); // announced by the watch alone
    QTRY_COMPARE(first.handled, names + QStringList{late});
    QTRY_COMPARE(second.handled, names + QStringList{late});
}

void TestIntakeConsumer::answersToOthersAreLeftAlone()
{
    const MessageCapture capture;
    write(u"a"_s);
    RecordingConsumer first(u"first"_s, _spool->path());
    RecordingConsumer second(u"second"_s, _spool->path());
    FilesQueue queue(_spool->path(), {{first.id(), &first}, {second.id(), &second}}, true, 0);
    first.listenTo(queue);
    second.listenTo(queue);
    queue.onProcess();
    first.ask();
    QTRY_COMPARE(first.handled, QStringList{u"a"_s});
    second.ask(); // answered with "a", which both hear
    QTRY_COMPARE(second.handled, QStringList{u"a"_s});
    queue.onRequestForFiles(u"nobody"_s); // an error, which is for nobody
    QCoreApplication::processEvents();
    QCOMPARE(first.handled, QStringList{u"a"_s});
    QCOMPARE(capture.texts().filter(u"ERROR"_s), QStringList());
}

void TestIntakeConsumer::oneFileForEachTurnOfTheEventLoop()
{
    const MessageCapture capture;
    write(u"a"_s);
    write(u"b"_s);
    RecordingConsumer consumer(u"only"_s, _spool->path());
    FilesQueue queue(_spool->path(), {{consumer.id(), &consumer}}, true, 0);
    consumer.listenTo(queue);
    queue.onProcess();
    QStringList turns;
    consumer.action = [&turns](const QString& name) {
        turns.append(name);
        QMetaObject::invokeMethod(
            qApp, [&turns] { turns.append(u"other work"_s); }, Qt::QueuedConnection);
    };
    consumer.ask();
    QCOMPARE(consumer.handled, QStringList());
    QTRY_COMPARE(turns, QStringList({u"a"_s, u"other work"_s, u"b"_s, u"other work"_s}));
}

void TestIntakeConsumer::fileThatLeftTheQueueIsSurvived()
{
    const MessageCapture capture;
    write(u"a"_s);
    write(u"b"_s);
    RecordingConsumer consumer(u"only"_s, _spool->path());
    FilesQueue queue(_spool->path(), {{consumer.id(), &consumer}}, true, 0);
    consumer.listenTo(queue);
    queue.onProcess();
    consumer.action = [&](const QString& name) {
        if (name != u"a")
            return;
        QFile::remove(_spool->filePath(name));
        queue.onDirectoryChanged();
    };
    consumer.ask();
    QTRY_COMPARE(consumer.handled, QStringList({u"a"_s, u"b"_s}));
    QTRY_VERIFY(!QFile::exists(_spool->filePath(u"b"_s))); // reported: the next re-scan deleted it
    const QStringList warnings =
        capture.texts().filter(u"<WARNG> File [a] handled, but no longer in the queue: "
                               "void FilesQueue::consumed(const QString&, const QString&) -> "
                               "Le fichier [a] n'existe pas dans la file d'attente"_s);
    QCOMPARE(warnings.size(), 1);
}

void TestIntakeConsumer::unknownConsumerIsSurvived()
{
    const MessageCapture capture;
    write(u"a"_s);
    RecordingConsumer known(u"known"_s, _spool->path());
    RecordingConsumer stranger(u"stranger"_s, _spool->path());
    FilesQueue queue(_spool->path(), {{known.id(), &known}}, true, 0);
    known.listenTo(queue);
    queue.onProcess();
    connect(&known, &ConsumerAncestor::consumed, &queue,
            [&queue] { queue.onConsumed(u"stranger"_s, u"a"_s); });
    known.ask();
    QTRY_COMPARE(known.handled, QStringList{u"a"_s});
    const QStringList errors =
        capture.texts().filter(u"L'identifiant de consommateur stranger n'existe pas"_s);
    QCOMPARE(errors.size(), 1);
    QVERIFY2(errors.first().contains(u"<ERROR>"_s), qPrintable(errors.first()));
}

void TestIntakeConsumer::failureIsToldOnceAndTriedAgain_data()
{
    QTest::addColumn<bool>("isOwnException");
    QTest::newRow("the library's exception") << true;
    QTest::newRow("a standard exception") << false;
}

void TestIntakeConsumer::failureIsToldOnceAndTriedAgain()
{
    QFETCH(const bool, isOwnException);
    const MessageCapture capture;
    write(u"a"_s);
    write(u"b"_s);
    RecordingConsumer consumer(u"only"_s, _spool->path());
    FilesQueue queue(_spool->path(), {{consumer.id(), &consumer}}, true, 0);
    consumer.listenTo(queue);
    queue.onProcess();
    int attempts = 0;
    consumer.action = [&](const QString& name) {
        if (name != u"a" || ++attempts > 2)
            return;
        if (isOwnException)
            throw Exception(u"disk full"_s);
        throw std::runtime_error("disk full");
    };
    consumer.ask();
    const QStringList wanted{u"a"_s, u"b"_s, u"a"_s, u"a"_s};
    QTRY_COMPARE_WITH_TIMEOUT(consumer.handled, wanted, Patience);
    QTRY_VERIFY(queue.isConsumedFromAll(u"a"_s));
    const QStringList warnings =
        capture.texts().filter(u"<WARNG> File [a] put off by [only]: disk full"_s);
    QCOMPARE(warnings.size(), 1);
}

void TestIntakeConsumer::arrivalsDoNotHastenTheNextTry()
{
    const MessageCapture capture;
    write(u"a"_s);
    RecordingConsumer consumer(u"only"_s, _spool->path());
    FilesQueue queue(_spool->path(), {{consumer.id(), &consumer}}, true, 0);
    consumer.listenTo(queue);
    queue.onProcess();
    consumer.action = [](const QString& name) {
        if (name == u"a")
            throw Exception(u"disk full"_s);
    };
    QElapsedTimer time;
    time.start();
    consumer.ask();
    QTRY_COMPARE(consumer.handled, QStringList{u"a"_s});
    for (int number = 0; number < 20; ++number) {
        const QString late = write(u"late %1"_s.arg(number));
        queue.onDirectoryChanged();
        consumer.ask();
        QTRY_VERIFY_WITH_TIMEOUT(consumer.handled.contains(late), Patience);
    }
    // There is a second between two tries; a coarse timer may be a little early.
    const qint64 tries = consumer.handled.count(u"a"_s);
    QVERIFY(tries <= 1 + time.elapsed() / 900);
    QTRY_VERIFY_WITH_TIMEOUT(consumer.handled.count(u"a"_s) > tries, Patience);
}

QTEST_GUILESS_MAIN(TestIntakeConsumer)
#include "tst_intakeconsumer.moc"
