// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "frame/failure_p.h"
#include "support/allocations.h"
#include "support/failuretext.h"
#include "support/language.h"
#include "support/messagecapture.h"

#include <QRandomGenerator>
#include <QTest>

namespace {

/// What completed() stands for.
QString completedByQt(const QString& text, const QString& argument)
{
    return text.contains(QLatin1Char('%')) ? text.arg(argument) : text;
}

} // namespace

/// How the texts of failures are composed.
class TestFailure : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { useLanguage(QStringLiteral("en_US")); }

    void markersAreReplacedAsQtDoes_data()
    {
        QTest::addColumn<QString>("text");
        for (const char16_t* text : {u"",         u"%",          u"%1",
                                     u"%2",       u"a",          u"[key]",
                                     u"a%1",      u"%1b",        u"a%1b",
                                     u"a%1b%1c",  u"%1%2",       u"%1%",
                                     u"%%1",      u"%1%%",       u"%10",
                                     u"%12",      u"%1 0",       u"%01",
                                     u"%0",       u"%L1",        u"%1L",
                                     u"%l1",      u"% 1",        u"%1é",
                                     u"%1\u0661", u"%\u0661",    u"%1\u4e00",
                                     u"%1\u00b2", u"%99",        u"%100",
                                     u"100%",     u"100% of %1", u"File [%1] isn't readable",
                                     u"é%1а"}) {
            const QString row = QString::fromUtf16(text);
            QTest::newRow(row.isEmpty() ? "empty" : qPrintable(row)) << row;
        }
    }

    void markersAreReplacedAsQtDoes()
    {
        QFETCH(QString, text);
        const MessageCapture messages; // Qt reports a missing marker
        for (const char16_t* argument : {u"", u"x", u"%1", u"%2", u"a longer argument", u"é中"}) {
            const QString value = QString::fromUtf16(argument);
            QCOMPARE(Failure::completed(text, value), completedByQt(text, value));
        }
        QCOMPARE(Failure::completed(text, QString()), completedByQt(text, QString()));
    }

    void anyTextIsCompletedAsByQt()
    {
        const MessageCapture messages;
        const QString characters = QStringLiteral("%%%112L0a\u0661 ");
        QRandomGenerator generator(4711);
        bool isRight = true;
        for (int i = 0; i < 20000; ++i) {
            QString text(generator.bounded(12), QChar::Null);
            for (QChar& character : text)
                character = characters.at(generator.bounded(static_cast<int>(characters.size())));
            const QString argument = text.left(generator.bounded(4));
            isRight &= Failure::completed(text, argument) == completedByQt(text, argument);
        }
        QVERIFY(isRight);
    }

    void severalArgumentsComeInOneSubstitution()
    {
        QCOMPARE(Failure::completed(QStringLiteral("%1=[%2]"), QStringLiteral("%2"),
                                    QStringLiteral("%1")),
                 QStringLiteral("%2=[%1]"));
        QCOMPARE(Failure::completed(QStringLiteral("%1 files"), 3), QStringLiteral("3 files"));
        QCOMPARE(Failure::completed(QStringLiteral("%1")), QStringLiteral("%1"));
    }

    void messageIsTheTextOfTheKey()
    {
        QCOMPARE(Failure::message("FileNotReadable", QStringLiteral("a%1")),
                 QStringLiteral("File [a%1] isn't readable"));
        QCOMPARE(Failure::libraryMessage("Yes"), QStringLiteral("yes"));
    }

    void unknownKeyIsShown_data()
    {
        QTest::addColumn<QByteArray>("key");
        QTest::newRow("empty") << QByteArray("");
        QTest::newRow("ordinary") << QByteArray("NoSuchKey");
        QTest::newRow("63 characters") << QByteArray(63, 'k');
        QTest::newRow("64 characters") << QByteArray(64, 'k');
        QTest::newRow("65 characters") << QByteArray(65, 'k');
        QTest::newRow("1,000 characters") << QByteArray(1000, 'k');
        QTest::newRow("Latin-1") << QByteArray("cl\xe9\xff\x80");
        QTest::newRow("with a marker") << QByteArray("%1");
    }

    void unknownKeyIsShown()
    {
        QFETCH(QByteArray, key);
        const QString expected = QLatin1Char('[') + QString::fromLatin1(key) + QLatin1Char(']');
        const QString message = Failure::message(key.constData());
        const QString libraryMessage = Failure::libraryMessage(key.constData());
        key.fill('x'); // the texts do not refer to it
        QCOMPARE(message, expected);
        QCOMPARE(libraryMessage, expected);
    }

    void signatureStandsInFront()
    {
        QCOMPARE(Failure::text("void f()", QStringLiteral("why é")),
                 QStringLiteral("void f() -> why é"));
        QCOMPARE(Failure::text("", QString()), QStringLiteral(" -> "));
        QCOMPARE(failureText([] { Failure::raise("void f()", QStringLiteral("why")); }),
                 QStringLiteral("void f() -> why"));
    }

    void textTakesTwoAllocations()
    {
        if (!Allocations::AreCounted)
            QSKIP("The sanitizer has the functions that would count.");
        const QString file = QStringLiteral("/etc/a");
        const long before = Allocations::count;
        const QString text = Failure::text("void f()", Failure::message("FileNotReadable", file));
        const long after = Allocations::count;
        QCOMPARE(text, QStringLiteral("void f() -> File [/etc/a] isn't readable"));
        QCOMPARE(after - before, 2L); // the completed message and the whole
    }
};

QTEST_GUILESS_MAIN(TestFailure)
#include "tst_failure.moc"
