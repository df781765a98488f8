// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/defaultuidverifier.h"
#include "kez/text.h"

#include <QPointer>
#include <QTest>

#include <memory>
#include <type_traits>

static_assert(std::is_abstract_v<IUidVerifier>);
static_assert(std::is_base_of_v<QObject, IUidVerifier>);
static_assert(std::is_base_of_v<IUidVerifier, DefaultUidVerifier>);

namespace {

QByteArray numbered(quint64 number)
{
    QByteArray uid(16, '\0');
    Text::uint64ToBigEndian(number, uid);
    return uid;
}

/// Always gives the same answer, and counts the questions.
class Stubborn : public DefaultUidVerifier {
public:
    Stubborn(unsigned char uidSize, bool answer) : DefaultUidVerifier(uidSize), _answer(answer) {}

    bool contains(const QByteArray&) override
    {
        ++questions;
        return _answer;
    }

    int questions = 0;

private:
    bool _answer;
};

/// Overrides every virtual member, as an application may.
class Everything : public DefaultUidVerifier {
public:
    Everything() : DefaultUidVerifier(1) {}
    bool contains(const QByteArray&) override { return true; }
    void append(const QByteArray&) override { ++appended; }
    int size() override { return 41; }
    unsigned char uidSize() override { return 42; }
    bool empty() override { return false; }

    int appended = 0;
};

} // namespace

class TestDefaultUidVerifier : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void startsEmpty();
    void acceptsItsSizeOnly_data();
    void acceptsItsSizeOnly();
    void ignoresDuplicates();
    void containsComparesSizeAndContent();
    void storesWhatWasGivenThen();
    void sizeZeroAcceptsTheEmptyIdentifierOnce();
    void appendAsksTheOverriddenContains();
    void virtualMembersAreCalledThroughTheInterface();
    void belongsToItsParent();
    void everyByteOfEverySizeCounts();
    void shorterAndLongerIdentifiersAreOthers();
    void millionIdentifiersAreFoundAtOnce();
};

void TestDefaultUidVerifier::startsEmpty()
{
    DefaultUidVerifier verifier(16, nullptr);
    QCOMPARE(verifier.size(), 0);
    QCOMPARE(verifier.uidSize(), static_cast<unsigned char>(16));
    QVERIFY(verifier.empty());
    QVERIFY(!verifier.contains(numbered(0)));
    QVERIFY(!verifier.contains(QByteArray()));
}

void TestDefaultUidVerifier::acceptsItsSizeOnly_data()
{
    QTest::addColumn<int>("uidSize");
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("accepted");

    QTest::newRow("its size") << 16 << 16 << true;
    QTest::newRow("shorter") << 16 << 8 << false;
    QTest::newRow("one shorter") << 16 << 15 << false;
    QTest::newRow("one longer") << 16 << 17 << false;
    QTest::newRow("nothing") << 16 << 0 << false;
    QTest::newRow("same size modulo 256") << 16 << 272 << false;
    QTest::newRow("largest size") << 255 << 255 << true;
    QTest::newRow("negative as a signed number") << 200 << 200 << true;
}

void TestDefaultUidVerifier::acceptsItsSizeOnly()
{
    QFETCH(const int, uidSize);
    QFETCH(const int, size);
    QFETCH(const bool, accepted);

    DefaultUidVerifier verifier(static_cast<unsigned char>(uidSize), nullptr);
    const QByteArray uid(size, 'u');
    verifier.append(uid);
    QCOMPARE(verifier.size(), accepted ? 1 : 0);
    QCOMPARE(verifier.empty(), !accepted);
    QCOMPARE(verifier.contains(uid), accepted);
}

void TestDefaultUidVerifier::ignoresDuplicates()
{
    DefaultUidVerifier verifier(16, nullptr);
    verifier.append(numbered(1));
    verifier.append(numbered(1));
    QCOMPARE(verifier.size(), 1);
    verifier.append(numbered(2));
    verifier.append(numbered(1));
    QCOMPARE(verifier.size(), 2);
}

void TestDefaultUidVerifier::containsComparesSizeAndContent()
{
    DefaultUidVerifier verifier(4, nullptr);
    verifier.append(QByteArray("a\0b\0", 4));
    QVERIFY(verifier.contains(QByteArray("a\0b\0", 4)));
    QVERIFY(!verifier.contains(QByteArray("a\0b", 3)));
    QVERIFY(!verifier.contains(QByteArray("a\0b\0\0", 5)));
    QVERIFY(!verifier.contains(QByteArray("a\0c\0", 4)));
    QVERIFY(!verifier.contains(QByteArray("A\0b\0", 4)));
}

void TestDefaultUidVerifier::storesWhatWasGivenThen()
{
    DefaultUidVerifier verifier(4, nullptr);
    QByteArray uid("abcd");
    verifier.append(uid);
    uid[0] = 'x';
    QVERIFY(verifier.contains(QByteArray("abcd")));
    QVERIFY(!verifier.contains(uid));
}

void TestDefaultUidVerifier::sizeZeroAcceptsTheEmptyIdentifierOnce()
{
    DefaultUidVerifier verifier(0, nullptr);
    verifier.append(QByteArray());
    verifier.append(QByteArray(""));
    QCOMPARE(verifier.size(), 1);
    QVERIFY(verifier.contains(QByteArray()));
}

void TestDefaultUidVerifier::appendAsksTheOverriddenContains()
{
    Stubborn knowsAll(4, true);
    knowsAll.append(QByteArray("abcd"));
    QCOMPARE(knowsAll.questions, 1);
    QCOMPARE(knowsAll.size(), 0);

    Stubborn knowsNothing(4, false);
    knowsNothing.append(QByteArray("abcd"));
    knowsNothing.append(QByteArray("abcd"));
    QCOMPARE(knowsNothing.questions, 2);
    QCOMPARE(knowsNothing.size(), 2);
    knowsNothing.append(QByteArray("abc"));
    QCOMPARE(knowsNothing.size(), 2);
}

void TestDefaultUidVerifier::virtualMembersAreCalledThroughTheInterface()
{
    Everything everything;
    IUidVerifier& store = everything;
    DefaultUidVerifier& verifier = everything;
    QVERIFY(store.contains(QByteArray()));
    store.append(QByteArray());
    QCOMPARE(everything.appended, 1);
    QCOMPARE(verifier.size(), 41);
    QCOMPARE(verifier.uidSize(), static_cast<unsigned char>(42));
    QVERIFY(!verifier.empty());
    QCOMPARE(QByteArray(IUidVerifier::staticMetaObject.className()), QByteArray("IUidVerifier"));
    QCOMPARE(QByteArray(DefaultUidVerifier::staticMetaObject.className()),
             QByteArray("DefaultUidVerifier"));
}

void TestDefaultUidVerifier::belongsToItsParent()
{
    auto parent = std::make_unique<QObject>();
    const QPointer<DefaultUidVerifier> verifier = new DefaultUidVerifier(16, parent.get());
    QCOMPARE(verifier->parent(), parent.get());
    parent.reset();
    QVERIFY(verifier.isNull());
}

void TestDefaultUidVerifier::everyByteOfEverySizeCounts()
{
    for (int size = 1; size <= 33; ++size) {
        DefaultUidVerifier verifier(static_cast<unsigned char>(size));
        const QByteArray zeros(size, '\0');
        verifier.append(zeros);
        for (int i = 0; i < size; ++i) {
            for (const char byte : {'\x01', '\x80', '\xff'}) {
                QByteArray uid = zeros;
                uid[i] = byte;
                QVERIFY(!verifier.contains(uid));
                verifier.append(uid);
                QVERIFY(verifier.contains(uid));
            }
        }
        QCOMPARE(verifier.size(), 3 * size + 1);
        QVERIFY(verifier.contains(zeros));
    }
}

void TestDefaultUidVerifier::shorterAndLongerIdentifiersAreOthers()
{
    for (int size = 1; size <= 33; ++size) {
        DefaultUidVerifier verifier(static_cast<unsigned char>(size));
        verifier.append(QByteArray(size, '\0'));
        for (int other = 0; other <= 40; ++other)
            QCOMPARE(verifier.contains(QByteArray(other, '\0')), other == size);
        QVERIFY(!verifier.contains(QByteArray()));
    }
}

void TestDefaultUidVerifier::millionIdentifiersAreFoundAtOnce()
{
    constexpr quint64 Million = 1'000'000;
    DefaultUidVerifier verifier(16, nullptr);
    for (quint64 i = 0; i < Million; ++i)
        verifier.append(numbered(i));
    QCOMPARE(verifier.size(), int{Million});
    for (quint64 i = 0; i < Million; ++i) {
        if (!verifier.contains(numbered(i)) || verifier.contains(numbered(Million + i)))
            QFAIL("an identifier was mistaken");
    }
}

QTEST_GUILESS_MAIN(TestDefaultUidVerifier)
#include "tst_defaultuidverifier.moc"
