// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "durablecopy.h"
#include "intakefixture.h"
#include "support/childprocess.h"
#include "texts.h"

#include <kez/exception.h>

#include <sys/stat.h>

using namespace Qt::StringLiterals;
using intake::keepCopy;

namespace {

void loadEnglishTexts()
{
    intake::loadTexts();
    intake::startInLanguage(u"en_US"_s);
}

QString failureOf(const QString& source, const QString& directory)
{
    try {
        keepCopy(source, directory);
        return {};
    } catch (const Exception& failure) {
        return failure.detail();
    }
}

/// Copies as an ordinary user, who cannot read a file without permissions.
int copyUnreadable()
{
    if (!becomeOrdinaryUser())
        return 2;
    int argc = 1;
    char name[] = "child";
    char* argv[] = {name, nullptr};
    const QCoreApplication application(argc, argv);
    loadEnglishTexts();
    const QTemporaryDir directory;
    const QString source = directory.filePath(u"source"_s);
    const QString target = directory.filePath(u"target"_s);
    if (!writeFile(source, "secret"))
        return 5;
    QDir().mkdir(target);
    ::chmod(QFile::encodeName(source).constData(), 0);
    try {
        keepCopy(source, target);
    } catch (const Exception&) {
        return QDir(target).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot) ? 0 : 3;
    }
    return 4;
}

} // namespace

class TestDurableCopy : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void contentIsCopied_data();
    void contentIsCopied();
    void sameContentIsKeptOnce();
    void otherContentIsNumbered();
    void remainderOfACrashIsReplaced();
    void missingSourceIsTold();
    void missingDirectoryIsTold();
    void unreadableFileIsRefused();

private:
    QStringList kept() const { return entriesOf(_target); }

    std::unique_ptr<QTemporaryDir> _directory;
    QString _source;
    QString _target;
};

void TestDurableCopy::initTestCase()
{
    loadEnglishTexts();
}

void TestDurableCopy::init()
{
    _directory = std::make_unique<QTemporaryDir>();
    _source = _directory->filePath(u"a b\n%1"_s);
    _target = _directory->filePath(u"target"_s);
    QVERIFY(QDir().mkdir(_target));
}

void TestDurableCopy::contentIsCopied_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("binary") << QByteArray("\x00\xff\r\n\x1a", 5);
    QTest::newRow("one chunk") << QByteArray(64 * 1024, 'x');
    QTest::newRow("many chunks") << QByteArray(1'000'001, 'x');
}

void TestDurableCopy::contentIsCopied()
{
    QFETCH(const QByteArray, content);
    QVERIFY(writeFile(_source, content));
    keepCopy(_source, _target);
    QCOMPARE(kept(), QStringList{u"a b\n%1"_s});
    QCOMPARE(readFile(_target + u"/a b\n%1"_s), content);
    QCOMPARE(readFile(_source), content);
}

void TestDurableCopy::sameContentIsKeptOnce()
{
    QVERIFY(writeFile(_source, "x"));
    keepCopy(_source, _target);
    keepCopy(_source, _target);
    QCOMPARE(kept().size(), 1);
}

void TestDurableCopy::otherContentIsNumbered()
{
    for (const char* content : {"x", "y", "zz", "y"}) {
        QFile::remove(_source);
        QVERIFY(writeFile(_source, content));
        keepCopy(_source, _target);
    }
    QCOMPARE(kept(), QStringList({u"a b\n%1"_s, u"a b\n%1.1"_s, u"a b\n%1.2"_s}));
    QCOMPARE(readFile(_target + u"/a b\n%1"_s), QByteArray("x"));
    QCOMPARE(readFile(_target + u"/a b\n%1.1"_s), QByteArray("y"));
    QCOMPARE(readFile(_target + u"/a b\n%1.2"_s), QByteArray("zz"));
}

void TestDurableCopy::remainderOfACrashIsReplaced()
{
    QVERIFY(writeFile(_source, "x"));
    QVERIFY(writeFile(_target + u"/.intake.part"_s, "a longer remainder"));
    keepCopy(_source, _target);
    QCOMPARE(kept().size(), 1);
    QCOMPARE(readFile(_target + u"/a b\n%1"_s), QByteArray("x"));
}

void TestDurableCopy::missingSourceIsTold()
{
    const QString wanted =
        u"cannot read [%1]: No such file or directory"_s.arg(intake::printable(_source));
    QCOMPARE(failureOf(_source, _target), wanted);
    QCOMPARE(kept(), QStringList());
}

void TestDurableCopy::missingDirectoryIsTold()
{
    QVERIFY(writeFile(_source, "x"));
    const QString nowhere = _directory->filePath(u"none"_s);
    QCOMPARE(failureOf(_source, nowhere),
             u"cannot write [%1/.intake.part]: No such file or directory"_s.arg(nowhere));
    QVERIFY(!QFile::exists(nowhere));
}

void TestDurableCopy::unreadableFileIsRefused()
{
    const ChildResult result = runChild({u"copyUnreadable"_s});
    QVERIFY(result.finished);
    QVERIFY2(!result.crashed, result.err.constData());
    QCOMPARE(result.exitCode, 0);
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestDurableCopy, [](const QStringList&) { return copyUnreadable(); })
#include "tst_durablecopy.moc"
