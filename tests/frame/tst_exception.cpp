// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/failuretext.h"

#include <kez/exception.h>

#include <QFuture>
#include <QPromise>
#include <QTest>

#include <exception>
#include <memory>
#include <thread>
#include <type_traits>
#include <typeinfo>

static_assert(std::is_base_of_v<QException, Exception>);
static_assert(std::is_base_of_v<std::exception, Exception>);
static_assert(std::has_virtual_destructor_v<Exception>);
static_assert(std::is_copy_constructible_v<Exception>);

namespace {

class Renamed : public Exception {
public:
    Renamed() : Exception(QStringLiteral("stored")) {}
    QString detail() const override { return QStringLiteral("overridden"); }
    std::shared_ptr<Exception> parent() const override
    {
        return std::make_shared<Exception>(QStringLiteral("other cause"));
    }
};

QStringList story(const Exception& e)
{
    QStringList result{e.detail()};
    for (auto cause = e.parent(); cause; cause = cause->parent())
        result.append(cause->detail());
    return result;
}

} // namespace

class TestException : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void detailIsKeptAsGiven_data();
    void detailIsKeptAsGiven();
    void parentIsSharedNotCopied();
    void emptyParentReadsAsEmptyPointer();
    void parentCanBeLeftOut();
    void copySharesTheParent();
    void copyKeepsTheDetail();
    void assignmentReplacesDetailAndParent();
    void chainOfCausesReadsUpward();
    void parentOutlivesItsChild();
    void whatIsTheGenericText();
    void isCaughtByEachBase();
    void accessorsAreVirtual();
    void raiseAndCloneAreThoseOfQException();
    void crossesThreads();
    void promiseKeepsTheCurrentExceptionOnly();
};

void TestException::detailIsKeptAsGiven_data()
{
    QTest::addColumn<QString>("detail");
    QTest::newRow("plain") << QStringLiteral("void f() -> failed");
    QTest::newRow("empty") << QString(u""_qs);
    QTest::newRow("null") << QString();
    QTest::newRow("accents and beyond the basic plane") << QStringLiteral("Echec d'écriture 𝄞");
    QTest::newRow("place markers") << QStringLiteral("%1 %2 %n");
    QTest::newRow("several lines") << QStringLiteral("one\ntwo\r\n\tthree\n");
    QTest::newRow("blanks at the ends") << QStringLiteral("  text  ");
    QTest::newRow("a megabyte") << QString(1'000'000, QLatin1Char('x'));
}

void TestException::detailIsKeptAsGiven()
{
    QFETCH(QString, detail);
    const Exception e(detail, nullptr);
    QCOMPARE(e.detail(), detail);
    QCOMPARE(e.detail().isNull(), detail.isNull());
}

void TestException::parentIsSharedNotCopied()
{
    const auto cause = std::make_shared<Exception>(QStringLiteral("cause"), nullptr);
    const Exception e(QStringLiteral("effect"), cause);
    QCOMPARE(e.parent().get(), cause.get());
    QCOMPARE(cause.use_count(), 2L);
}

void TestException::emptyParentReadsAsEmptyPointer()
{
    const Exception e(QStringLiteral("alone"), std::shared_ptr<Exception>());
    QVERIFY(e.parent() == nullptr);
}

void TestException::parentCanBeLeftOut()
{
    QVERIFY(Exception(QStringLiteral("alone")).parent() == nullptr);
}

void TestException::copySharesTheParent()
{
    const auto cause = std::make_shared<Exception>(QStringLiteral("cause"), nullptr);
    const Exception original(QStringLiteral("effect"), cause);
    const Exception copy(original);
    QCOMPARE(copy.parent().get(), original.parent().get());
    QCOMPARE(copy.parent().get(), cause.get());
}

void TestException::copyKeepsTheDetail()
{
    auto original = std::make_unique<Exception>(QStringLiteral("effect"), nullptr);
    const Exception copy(*original);
    original.reset();
    QCOMPARE(copy.detail(), QStringLiteral("effect"));
}

void TestException::assignmentReplacesDetailAndParent()
{
    const auto cause = std::make_shared<Exception>(QStringLiteral("cause"), nullptr);
    Exception target(QStringLiteral("before"), nullptr);
    target = Exception(QStringLiteral("after"), cause);
    QCOMPARE(target.detail(), QStringLiteral("after"));
    QCOMPARE(target.parent().get(), cause.get());
}

void TestException::chainOfCausesReadsUpward()
{
    const auto disk = std::make_shared<Exception>(QStringLiteral("disk"), nullptr);
    const auto file = std::make_shared<Exception>(QStringLiteral("file"), disk);
    const Exception config(QStringLiteral("config"), file);
    QCOMPARE(story(config), QStringList({"config", "file", "disk"}));
}

void TestException::parentOutlivesItsChild()
{
    std::shared_ptr<Exception> parent;
    {
        const Exception e(QStringLiteral("effect"),
                          std::make_shared<Exception>(QStringLiteral("cause"), nullptr));
        parent = e.parent();
    }
    QCOMPARE(parent->detail(), QStringLiteral("cause"));
    QCOMPARE(parent.use_count(), 1L);
}

void TestException::whatIsTheGenericText()
{
    const Exception e(QStringLiteral("effect"), nullptr);
    QCOMPARE(e.what(), std::exception().what());
    QVERIFY(!QByteArray(e.what()).contains("effect"));
}

void TestException::isCaughtByEachBase()
{
    const auto raise = [] { throw Exception(QStringLiteral("effect"), nullptr); };
    QVERIFY_EXCEPTION_THROWN(raise(), Exception);
    QVERIFY_EXCEPTION_THROWN(raise(), QException);
    QVERIFY_EXCEPTION_THROWN(raise(), std::exception);
}

void TestException::accessorsAreVirtual()
{
    try {
        throw Renamed();
    } catch (const Exception& e) {
        QCOMPARE(story(e), QStringList({"overridden", "other cause"}));
    }
}

void TestException::raiseAndCloneAreThoseOfQException()
{
    const Exception e(QStringLiteral("effect"), nullptr);
    const std::unique_ptr<QException> clone(e.clone());
    QVERIFY(dynamic_cast<Exception*>(clone.get()) == nullptr);
    try {
        e.raise();
        QFAIL("raise() did not throw");
    } catch (const QException& raised) {
        QVERIFY(typeid(raised) == typeid(QException));
    }
}

void TestException::crossesThreads()
{
    const auto cause = std::make_shared<Exception>(QStringLiteral("cause"), nullptr);
    std::exception_ptr carried;
    std::thread([&] {
        try {
            throw Exception(QStringLiteral("effect"), cause);
        } catch (...) {
            carried = std::current_exception();
        }
    }).join();

    try {
        std::rethrow_exception(carried);
    } catch (const Exception& e) {
        QCOMPARE(e.detail(), QStringLiteral("effect"));
        QCOMPARE(e.parent().get(), cause.get());
    }
}

void TestException::promiseKeepsTheCurrentExceptionOnly()
{
    const auto answer = [](const auto& setException) {
        QPromise<void> promise;
        promise.start();
        try {
            throw Exception(QStringLiteral("effect"), nullptr);
        } catch (const Exception& e) {
            setException(promise, e);
        }
        promise.finish();
        QFuture<void> future = promise.future();
        return failureText([&] {
            try {
                future.waitForFinished();
            } catch (const QException& e) {
                if (typeid(e) == typeid(QException))
                    throw Exception(QStringLiteral("a plain QException"), nullptr);
                throw;
            }
        });
    };
    QCOMPARE(answer([](QPromise<void>& promise, const Exception& e) { promise.setException(e); }),
             QStringLiteral("a plain QException"));
    QCOMPARE(answer([](QPromise<void>& promise, const Exception&) {
                 promise.setException(std::current_exception());
             }),
             QStringLiteral("effect"));
}

QTEST_GUILESS_MAIN(TestException)
#include "tst_exception.moc"
