// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "consumer/fileconsumer.h"
#include "intakefixture.h"
#include "support/messagecapture.h"

#include <functional>
#include <stdexcept>

using namespace Qt::StringLiterals;

class TestFileConsumer : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void fileThatLeftTheQueueIsSurvived();
    void fileThatVanishedIsSurvived();
    void failedFileIsHandledAgainAtTheNextChange_data();
    void failedFileIsHandledAgainAtTheNextChange();
    void eventLoopHasItsTurnBetweenFiles();

private:
    QString spool(const QString& name) const { return _spool->filePath(name); }

    /// Handles the files "a" and "b", and then "last", which arrives once "a" has been handled.
    void handleAll(std::function<void(FilesQueue&, const QString& name)> handle);

    std::unique_ptr<QTemporaryDir> _spool;
    QStringList _handled;
};

void TestFileConsumer::init()
{
    _spool = std::make_unique<QTemporaryDir>();
    _handled.clear();
    dropFile(spool(u"a"_s), "x");
    dropFile(spool(u"b"_s), "x");
}

void TestFileConsumer::handleAll(std::function<void(FilesQueue&, const QString& name)> handle)
{
    FilesQueue* served = nullptr;
    FileConsumer consumer(u"only"_s, [&](QFile& file) {
        _handled.append(QFileInfo(file.fileName()).fileName());
        handle(*served, _handled.last());
    });
    FilesQueue queue(_spool->path(), {{consumer.id(), &consumer}}, true, 0);
    served = &queue;
    queue.onProcess();
    consumer.consume(queue);
    QTRY_VERIFY_WITH_TIMEOUT(_handled.contains(u"a"_s), Patience);
    dropFile(spool(u"last"_s), "x"); // announced by the watch alone
    QTRY_VERIFY_WITH_TIMEOUT(_handled.contains(u"last"_s), Patience);
}

void TestFileConsumer::fileThatLeftTheQueueIsSurvived()
{
    const MessageCapture capture;
    handleAll([this](FilesQueue& queue, const QString& name) {
        if (name != u"a")
            return;
        QFile::remove(spool(name));
        queue.onDirectoryChanged();
    });
    QCOMPARE(_handled, QStringList({u"a"_s, u"b"_s, u"last"_s}));
    const QStringList warnings =
        capture.texts().filter(u"Le fichier [a] n'existe pas dans la file d'attente"_s);
    QCOMPARE(warnings.size(), 1);
}

void TestFileConsumer::fileThatVanishedIsSurvived()
{
    const MessageCapture capture;
    handleAll([this](FilesQueue&, const QString& name) {
        if (name == u"a")
            QFile::remove(spool(u"b"_s));
    });
    QVERIFY(_handled.contains(u"a"_s));
    QVERIFY(!_handled.contains(u"b"_s));
}

void TestFileConsumer::failedFileIsHandledAgainAtTheNextChange_data()
{
    QTest::addColumn<std::function<void()>>("fail");
    QTest::newRow("Exception") << std::function([] { throw Exception(u"disk full"_s); });
    QTest::newRow("std::exception") << std::function([] { throw std::runtime_error("disk full"); });
}

void TestFileConsumer::failedFileIsHandledAgainAtTheNextChange()
{
    QFETCH(const std::function<void()>, fail);
    const MessageCapture capture;
    bool hasFailed = false;
    handleAll([&](FilesQueue&, const QString& name) {
        if (name == u"a" && !std::exchange(hasFailed, true))
            fail();
    });
    QCOMPARE(_handled.count(u"a"_s), 2);
    QCOMPARE(_handled.count(u"b"_s), 1);
    QCOMPARE(capture.texts().filter(u"disk full"_s).size(), 1);
}

void TestFileConsumer::eventLoopHasItsTurnBetweenFiles()
{
    const MessageCapture capture;
    QStringList turns;
    handleAll([&turns](FilesQueue&, const QString& name) {
        turns.append(name);
        QMetaObject::invokeMethod(
            qApp, [&turns] { turns.append(u"other work"_s); }, Qt::QueuedConnection);
    });
    QCOMPARE(turns.mid(0, 3), QStringList({u"a"_s, u"other work"_s, u"b"_s}));
}

QTEST_GUILESS_MAIN(TestFileConsumer)
#include "tst_fileconsumer.moc"
