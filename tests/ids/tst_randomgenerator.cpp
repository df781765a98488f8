// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/randomgenerator.h"

#include <QRegularExpression>
#include <QSet>
#include <QTest>

#include <algorithm>
#include <climits>
#include <iterator>
#include <random>
#include <type_traits>

static_assert(std::is_base_of_v<QRandomGenerator, RandomGenerator>);
static_assert(sizeof(RandomGenerator) == sizeof(QRandomGenerator));
static_assert(std::is_copy_constructible_v<RandomGenerator>);

namespace {

constexpr quint32 Seed = 20261121;

/// The rules, applied to Qt's own generator: the library must give exactly these values.
class Reference {
public:
    explicit Reference(quint32 seed) : _random(seed) {}

    int bounded(int low, int high)
    {
        const qint64 span = qint64{high} - low;
        const quint64 product = quint64{_random.generate()} * static_cast<quint64>(span);
        return static_cast<int>(low + static_cast<qint64>(product >> 32));
    }

    /// For spans that a signed number can hold.
    qint64 bounded64(qint64 low, qint64 high)
    {
        const qint64 span = high - low;
        if (span == 1) {
            _random.generate64();
            return low;
        }
        quint64 mask = 0;
        while (mask < static_cast<quint64>(span - 1))
            mask = mask * 2 + 1;
        for (;;) {
            const quint64 value = _random.generate64() & mask;
            if (value < static_cast<quint64>(span))
                return low + static_cast<qint64>(value);
        }
    }

    QByteArray filled(qsizetype size, bool unique)
    {
        QByteArray bytes(size, '\0');
        for (qsizetype i = 0; i < size; ++i) {
            char byte = static_cast<char>(bounded(0, 256));
            while (unique && size <= 256 && bytes.contains(byte))
                byte = static_cast<char>(bounded(0, 256));
            bytes[i] = byte;
        }
        return bytes;
    }

    quint32 next() { return _random.generate(); }

private:
    QRandomGenerator _random;
};

bool allDifferentAndNotZero(const QByteArray& bytes)
{
    const QSet<char> values(bytes.begin(), bytes.end());
    return values.size() == bytes.size() && !values.contains('\0');
}

} // namespace

class TestRandomGenerator : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void constructorsAreThoseOfTheBase();
    void copyGoesOnAlike();
    void securelySeededGeneratorsDiffer();
    void baseOverloadsStayReachable();

    void boundedFollowsTheDraws_data();
    void boundedFollowsTheDraws();
    void boundedOfOneValueStillDraws();
    void boundedReachesBothEnds();

    void bounded64FollowsTheDraws_data();
    void bounded64FollowsTheDraws();
    void bounded64OfOneValueTakesOneDraw();
    void bounded64OfAnEmptyRangeEnds();
    void bounded64OfTheWidestRanges_data();
    void bounded64OfTheWidestRanges();
    void bounded64RejectsWhatIsOutOfRange();

    void fillFollowsTheDraws_data();
    void fillFollowsTheDraws();
    void fillKeepsTheSizeAndReplacesEveryByte();
    void fillLeavesCopiesAlone();
    void uniqueFillNeverRepeatsNorHoldsZero_data();
    void uniqueFillNeverRepeatsNorHoldsZero();
    void uniqueFillOf256BytesIsAPlainFill();
    void pointerFillFollowsTheDraws_data();
    void pointerFillFollowsTheDraws();
    void pointerFillOfNothingDrawsNothing_data();
    void pointerFillOfNothingDrawsNothing();

    void uuidIsSixteenDifferentBytes();
    void key_data();
    void key();
    void keyLooksAsDocumented();
};

void TestRandomGenerator::constructorsAreThoseOfTheBase()
{
    const quint32 seeds[] = {1, 2, 3};
    std::seed_seq sequence{4, 5, 6};
    std::seed_seq sameSequence{4, 5, 6};
    QCOMPARE(RandomGenerator().generate(), QRandomGenerator().generate());
    QCOMPARE(RandomGenerator(7).generate(), QRandomGenerator(7).generate());
    QCOMPARE(RandomGenerator(seeds).generate(), QRandomGenerator(seeds).generate());
    QCOMPARE(RandomGenerator(seeds, 2).generate(), QRandomGenerator(seeds, 2).generate());
    QCOMPARE(RandomGenerator(seeds, seeds + 3).generate(), QRandomGenerator(seeds).generate());
    QCOMPARE(RandomGenerator(sequence).generate(), QRandomGenerator(sameSequence).generate());
    QRandomGenerator base(9);
    base.discard(5);
    RandomGenerator derived(base);
    QCOMPARE(derived.generate(), base.generate());
}

void TestRandomGenerator::copyGoesOnAlike()
{
    RandomGenerator random(Seed);
    random.bounded(0, 10);
    RandomGenerator copy = random;
    QCOMPARE(copy.uuid(), random.uuid());
    QVERIFY(copy == random);
    copy.generate();
    QVERIFY(copy != random);
    random = copy;
    QVERIFY(copy == random);
}

void TestRandomGenerator::securelySeededGeneratorsDiffer()
{
    RandomGenerator one(QRandomGenerator::securelySeeded());
    RandomGenerator two(QRandomGenerator::securelySeeded());
    QVERIFY(one.uuid() != two.uuid());
}

void TestRandomGenerator::baseOverloadsStayReachable()
{
    RandomGenerator random(Seed);
    QRandomGenerator base(Seed);
    QCOMPARE(random.bounded(10), base.bounded(10));
    QCOMPARE(random.bounded(10U), base.bounded(10U));
    QCOMPARE(random.bounded(1.5), base.bounded(1.5));
    quint32 words[4] = {};
    quint32 expected[4] = {};
    random.fillRange(words);
    base.fillRange(expected);
    for (int i = 0; i < 4; ++i)
        QCOMPARE(words[i], expected[i]);
}

void TestRandomGenerator::boundedFollowsTheDraws_data()
{
    QTest::addColumn<int>("low");
    QTest::addColumn<int>("high");

    QTest::newRow("a die") << 1 << 7;
    QTest::newRow("a byte") << 0 << 256;
    QTest::newRow("around zero") << -5 << 5;
    QTest::newRow("all below zero") << -10 << -3;
    QTest::newRow("up to the largest") << 0 << INT_MAX;
    QTest::newRow("from the smallest") << INT_MIN << 0;
    QTest::newRow("span of 2^31") << INT_MIN / 2 << INT_MAX / 2 + 1;
    QTest::newRow("widest") << INT_MIN << INT_MAX;
    QTest::newRow("two smallest values") << INT_MIN << INT_MIN + 2;
    QTest::newRow("two largest values") << INT_MAX - 2 << INT_MAX;
}

void TestRandomGenerator::boundedFollowsTheDraws()
{
    QFETCH(const int, low);
    QFETCH(const int, high);

    RandomGenerator random(Seed);
    Reference reference(Seed);
    for (int i = 0; i < 2000; ++i) {
        const int value = random.bounded(low, high);
        QCOMPARE(value, reference.bounded(low, high));
        QVERIFY(value >= low && value < high);
    }
    QCOMPARE(random.generate(), reference.next());
}

void TestRandomGenerator::boundedOfOneValueStillDraws()
{
    RandomGenerator random(Seed);
    QRandomGenerator base(Seed);
    QCOMPARE(random.bounded(5, 6), 5);
    QCOMPARE(random.bounded(INT_MIN, INT_MIN + 1), INT_MIN);
    base.discard(2);
    QCOMPARE(random.generate(), base.generate());
}

void TestRandomGenerator::boundedReachesBothEnds()
{
    RandomGenerator random(Seed);
    QSet<int> seen;
    for (int i = 0; i < 1000; ++i)
        seen.insert(random.bounded(-1, 2));
    QCOMPARE(seen, (QSet<int>{-1, 0, 1}));
}

void TestRandomGenerator::bounded64FollowsTheDraws_data()
{
    QTest::addColumn<qint64>("low");
    QTest::addColumn<qint64>("high");

    QTest::newRow("one value") << qint64{7} << qint64{8};
    QTest::newRow("two values") << qint64{7} << qint64{9};
    QTest::newRow("three values") << qint64{7} << qint64{10};
    QTest::newRow("power of two") << qint64{0} << qint64{1024};
    QTest::newRow("one above a power of two") << qint64{0} << qint64{1025};
    QTest::newRow("one below a power of two") << qint64{0} << qint64{1023};
    QTest::newRow("around zero") << qint64{-5} << qint64{5};
    QTest::newRow("span of 2^32") << qint64{0} << qint64{1} * 4294967296;
    QTest::newRow("span of 2^32 and one") << qint64{0} << qint64{1} * 4294967297;
    QTest::newRow("up to the largest") << qint64{0} << qint64{LLONG_MAX};
    QTest::newRow("below zero, from the smallest") << qint64{LLONG_MIN} << qint64{-1};
}

void TestRandomGenerator::bounded64FollowsTheDraws()
{
    QFETCH(const qint64, low);
    QFETCH(const qint64, high);

    RandomGenerator random(Seed);
    Reference reference(Seed);
    for (int i = 0; i < 2000; ++i) {
        const qint64 value = random.bounded64(low, high);
        QCOMPARE(value, reference.bounded64(low, high));
        QVERIFY(value >= low && value < high);
    }
    QCOMPARE(random.generate(), reference.next());
}

void TestRandomGenerator::bounded64OfOneValueTakesOneDraw()
{
    RandomGenerator random(Seed);
    QRandomGenerator base(Seed);
    QCOMPARE(random.bounded64(7, 8), 7);
    QCOMPARE(random.bounded64(LLONG_MIN, LLONG_MIN + 1), LLONG_MIN);
    base.generate64();
    base.generate64();
    QCOMPARE(random.generate(), base.generate());
}

void TestRandomGenerator::bounded64OfAnEmptyRangeEnds()
{
    RandomGenerator random(Seed);
    QRandomGenerator base(Seed);
    QCOMPARE(random.bounded64(7, 7), 7);
    base.generate64();
    QCOMPARE(random.generate(), base.generate());
}

void TestRandomGenerator::bounded64OfTheWidestRanges_data()
{
    QTest::addColumn<qint64>("low");
    QTest::addColumn<qint64>("high");
    QTest::addColumn<quint64>("span");

    QTest::newRow("span of 2^63") << qint64{LLONG_MIN} << qint64{0} << (quint64{1} << 63);
    QTest::newRow("span of 2^63 and one")
        << qint64{LLONG_MIN} << qint64{1} << (quint64{1} << 63) + 1;
    QTest::newRow("widest") << qint64{LLONG_MIN} << qint64{LLONG_MAX} << ~quint64{0};
}

void TestRandomGenerator::bounded64OfTheWidestRanges()
{
    QFETCH(const qint64, low);
    QFETCH(const qint64, high);
    QFETCH(const quint64, span);

    const quint64 mask = span <= quint64{1} << 63 ? ~quint64{0} >> 1 : ~quint64{0};
    RandomGenerator random(Seed);
    QRandomGenerator base(Seed);
    for (int i = 0; i < 1000; ++i) {
        quint64 draw = base.generate64() & mask;
        while (draw >= span)
            draw = base.generate64() & mask;
        // Adding to the smallest number is the same as changing the highest bit.
        const qint64 expected = static_cast<qint64>(draw ^ (quint64{1} << 63));
        const qint64 value = random.bounded64(low, high);
        QCOMPARE(value, expected);
        QVERIFY(value >= low && value < high);
    }
}

void TestRandomGenerator::bounded64RejectsWhatIsOutOfRange()
{
    RandomGenerator random(Seed);
    QSet<qint64> seen;
    for (int i = 0; i < 1000; ++i)
        seen.insert(random.bounded64(10, 15));
    QCOMPARE(seen, (QSet<qint64>{10, 11, 12, 13, 14}));
}

void TestRandomGenerator::fillFollowsTheDraws_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("unique");

    for (const int size : {0, 1, 2, 16, 32, 128, 250, 255, 257, 1000})
        for (const bool unique : {false, true})
            QTest::addRow("%d bytes, %s", size, unique ? "unique" : "plain") << size << unique;
    QTest::newRow("256 bytes, plain") << 256 << false;
}

void TestRandomGenerator::fillFollowsTheDraws()
{
    QFETCH(const int, size);
    QFETCH(const bool, unique);

    for (quint32 seed = 1; seed <= 20; ++seed) {
        RandomGenerator random(seed);
        Reference reference(seed);
        QByteArray bytes(size, 'x');
        random.fillRange(bytes, unique);
        QCOMPARE(bytes, reference.filled(size, unique));
        QCOMPARE(random.generate(), reference.next());
    }
}

void TestRandomGenerator::fillKeepsTheSizeAndReplacesEveryByte()
{
    RandomGenerator random(Seed);
    QByteArray bytes(10000, '\x01');
    random.fillRange(bytes, false);
    QCOMPARE(bytes.size(), 10000);
    QCOMPARE(QSet<char>(bytes.begin(), bytes.end()).size(), 256);
    QVERIFY(bytes.count('\x01') < 200);
}

void TestRandomGenerator::fillLeavesCopiesAlone()
{
    RandomGenerator random(Seed);
    QByteArray bytes(16, '\x01');
    const QByteArray copy = bytes;
    random.fillRange(bytes, true);
    QCOMPARE(copy, QByteArray(16, '\x01'));
    QVERIFY(bytes != copy);
}

void TestRandomGenerator::uniqueFillNeverRepeatsNorHoldsZero_data()
{
    QTest::addColumn<int>("size");
    for (const int size : {1, 16, 100, 254, 255})
        QTest::addRow("%d bytes", size) << size;
}

void TestRandomGenerator::uniqueFillNeverRepeatsNorHoldsZero()
{
    QFETCH(const int, size);

    RandomGenerator random(Seed);
    for (int i = 0; i < 50; ++i) {
        QByteArray bytes(size, '\0');
        random.fillRange(bytes, true);
        QVERIFY(allDifferentAndNotZero(bytes));
    }
}

void TestRandomGenerator::uniqueFillOf256BytesIsAPlainFill()
{
    RandomGenerator random(Seed);
    Reference reference(Seed);
    QByteArray bytes(256, '\0');
    random.fillRange(bytes, true);
    QCOMPARE(bytes, reference.filled(256, false));
    QCOMPARE(random.generate(), reference.next());
}

void TestRandomGenerator::pointerFillFollowsTheDraws_data()
{
    QTest::addColumn<bool>("unique");
    QTest::newRow("plain") << false;
    QTest::newRow("unique is ignored") << true;
}

void TestRandomGenerator::pointerFillFollowsTheDraws()
{
    QFETCH(const bool, unique);

    RandomGenerator random(Seed);
    Reference reference(Seed);
    char bytes[204] = "";
    std::fill(std::begin(bytes), std::end(bytes), 'x');
    char* buffer = bytes + 2;
    random.fillRange(buffer, 200, unique);
    QCOMPARE(QByteArray(bytes, 204), "xx" + reference.filled(200, false) + "xx");
    QCOMPARE(random.generate(), reference.next());
}

void TestRandomGenerator::pointerFillOfNothingDrawsNothing_data()
{
    QTest::addColumn<int>("length");
    QTest::newRow("zero") << 0;
    QTest::newRow("negative") << -1;
    QTest::newRow("most negative") << INT_MIN;
}

void TestRandomGenerator::pointerFillOfNothingDrawsNothing()
{
    QFETCH(const int, length);

    RandomGenerator random(Seed);
    char bytes[] = "untouched";
    char* buffer = bytes;
    random.fillRange(buffer, length, false);
    QCOMPARE(QByteArray(bytes), QByteArray("untouched"));
    QCOMPARE(random.generate(), QRandomGenerator(Seed).generate());
}

void TestRandomGenerator::uuidIsSixteenDifferentBytes()
{
    RandomGenerator random(Seed);
    Reference reference(Seed);
    for (int i = 0; i < 1000; ++i) {
        const QByteArray uuid = random.uuid();
        QCOMPARE(uuid.size(), 16);
        QVERIFY(allDifferentAndNotZero(uuid));
        QCOMPARE(uuid, reference.filled(16, true));
    }
}

void TestRandomGenerator::key_data()
{
    QTest::addColumn<int>("length");
    QTest::addColumn<bool>("lowerCase");
    QTest::addColumn<char>("separator");

    QTest::newRow("lower case, separated") << 4 << true << ':';
    QTest::newRow("upper case") << 4 << false << '\0';
    QTest::newRow("upper case, letter as separator") << 4 << false << 'x';
    QTest::newRow("one byte") << 1 << true << ':';
    QTest::newRow("nothing") << 0 << true << ':';
    QTest::newRow("negative") << -1 << true << ':';
    QTest::newRow("255 bytes") << 255 << true << '\0';
    QTest::newRow("longer than can be unique") << 300 << false << '-';
}

void TestRandomGenerator::key()
{
    QFETCH(const int, length);
    QFETCH(const bool, lowerCase);
    QFETCH(const char, separator);

    RandomGenerator random(Seed);
    Reference reference(Seed);
    QByteArray expected = reference.filled(qMax(0, length), true).toHex(separator);
    if (!lowerCase)
        expected = expected.toUpper();
    QCOMPARE(random.key(length, lowerCase, separator), QString::fromLatin1(expected));
    QCOMPARE(random.generate(), reference.next());
}

void TestRandomGenerator::keyLooksAsDocumented()
{
    RandomGenerator random(Seed);
    const QRegularExpression pairs(QStringLiteral("^[0-9a-f]{2}(:[0-9a-f]{2}){3}$"));
    const QRegularExpression digits(QStringLiteral("^[0-9A-F]{8}$"));
    QVERIFY(pairs.match(random.key(4, true, ':')).hasMatch());
    QVERIFY(digits.match(random.key(4, false, 0)).hasMatch());
    QVERIFY(digits.match(random.key(4, false)).hasMatch());
}

QTEST_GUILESS_MAIN(TestRandomGenerator)
#include "tst_randomgenerator.moc"
