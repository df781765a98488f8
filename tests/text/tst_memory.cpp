// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/memory.h>

#include <QByteArray>
#include <QTest>

#include <limits>

#include <sys/mman.h>
#include <unistd.h>

namespace {

const unsigned char* bytes(const QByteArray& array)
{
    return reinterpret_cast<const unsigned char*>(array.constData());
}

qint64 indexOf(const QByteArray& haystack, const QByteArray& needle, qint64 from)
{
    return Memory::indexOf(bytes(haystack), haystack.size(), bytes(needle), needle.size(), from);
}

/// Bytes that are followed by memory that must not be read.
class GuardedBytes {
public:
    explicit GuardedBytes(const QByteArray& content)
        : _pageSize(static_cast<size_t>(sysconf(_SC_PAGESIZE)))
    {
        _pages = mmap(nullptr, 2 * _pageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS,
                      -1, 0);
        auto* const guard = static_cast<unsigned char*>(_pages) + _pageSize;
        mprotect(guard, _pageSize, PROT_NONE);
        _begin = guard - content.size();
        std::copy(content.begin(), content.end(), _begin);
    }
    ~GuardedBytes() { munmap(_pages, 2 * _pageSize); }
    GuardedBytes(const GuardedBytes&) = delete;
    GuardedBytes& operator=(const GuardedBytes&) = delete;

    const unsigned char* begin() const { return _begin; }

private:
    size_t _pageSize;
    void* _pages = nullptr;
    unsigned char* _begin = nullptr;
};

} // namespace

class tst_Memory : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void findsFirstPosition_data();
    void findsFirstPosition();
    void needleLengthOfZeroSearchesFirstByte();
    void startCountsInItsLow32Bits();
    void longerNeedleReadsNothing();
    void haystackOfNoLengthIsNotRead_data();
    void haystackOfNoLengthIsNotRead();
    void readsNothingBeyondHaystack();
    void searchesRepetitiveBytesInLinearTime();
};

void tst_Memory::findsFirstPosition_data()
{
    QTest::addColumn<QByteArray>("haystack");
    QTest::addColumn<QByteArray>("needle");
    QTest::addColumn<qint64>("from");
    QTest::addColumn<qint64>("expected");

    QTest::newRow("second occurrence")
        << QByteArray("abcabc") << QByteArray("bc") << qint64(2) << qint64(4);
    QTest::newRow("from its own position")
        << QByteArray("abcabc") << QByteArray("bc") << qint64(1) << qint64(1);
    QTest::newRow("whole haystack")
        << QByteArray("abc") << QByteArray("abc") << qint64(0) << qint64(0);
    QTest::newRow("absent") << QByteArray("abcabc") << QByteArray("bd") << qint64(0) << qint64(-1);
    QTest::newRow("one byte") << QByteArray("abc") << QByteArray("c") << qint64(0) << qint64(2);
    QTest::newRow("after a false start")
        << QByteArray("aab") << QByteArray("ab") << qint64(0) << qint64(1);
    QTest::newRow("begins at the end")
        << QByteArray("xxab") << QByteArray("abc") << qint64(0) << qint64(-1);
    QTest::newRow("from beyond the end")
        << QByteArray("abc") << QByteArray("a") << qint64(3) << qint64(-1);
    QTest::newRow("longer needle")
        << QByteArray("ab") << QByteArray("abc") << qint64(0) << qint64(-1);
    QTest::newRow("zero and high bytes")
        << QByteArray("\x00\xff\x00\x80", 4) << QByteArray("\x00\x80", 2) << qint64(0) << qint64(2);
    QTest::newRow("empty haystack") << QByteArray() << QByteArray("a") << qint64(0) << qint64(-1);
}

void tst_Memory::findsFirstPosition()
{
    QFETCH(QByteArray, haystack);
    QFETCH(QByteArray, needle);
    QFETCH(qint64, from);
    QFETCH(qint64, expected);
    QCOMPARE(indexOf(haystack, needle, from), expected);
}

void tst_Memory::needleLengthOfZeroSearchesFirstByte()
{
    const QByteArray haystack("abc");
    const QByteArray needle("c");
    QCOMPARE(Memory::indexOf(bytes(haystack), 3, bytes(needle), 0, 0), qint64(2));
    QCOMPARE(Memory::indexOf(bytes(haystack), 0, bytes(needle), 0, 0), qint64(-1));
}

void tst_Memory::startCountsInItsLow32Bits()
{
    QCOMPARE(indexOf("abcabc", "bc", (qint64(1) << 32) + 2), qint64(4));
    QCOMPARE(indexOf("abcabc", "bc", -1), qint64(-1)); // 4294967295
}

void tst_Memory::longerNeedleReadsNothing()
{
    QCOMPARE(Memory::indexOf(nullptr, 2, nullptr, 3, 0), qint64(-1));
}

void tst_Memory::haystackOfNoLengthIsNotRead_data()
{
    QTest::addColumn<qint64>("haystackLength");
    QTest::addColumn<qint64>("needleLength");
    QTest::addColumn<qint64>("from");
    constexpr qint64 Least = std::numeric_limits<qint64>::min();
    constexpr qint64 Greatest = std::numeric_limits<qint64>::max();
    QTest::newRow("zero") << qint64(0) << qint64(0) << qint64(0);
    QTest::newRow("negative") << qint64(-1) << qint64(1) << qint64(0);
    QTest::newRow("least") << Least << qint64(1) << qint64(0);
    QTest::newRow("least, from a later start") << Least << qint64(1) << qint64(1);
    QTest::newRow("least, from the latest start") << Least + 10 << qint64(1) << qint64(-1);
    QTest::newRow("least, needle of least length") << Least << Least << qint64(100);
    QTest::newRow("needle of greatest length") << qint64(3) << Greatest << qint64(-1);
}

void tst_Memory::haystackOfNoLengthIsNotRead()
{
    QFETCH(qint64, haystackLength);
    QFETCH(qint64, needleLength);
    QFETCH(qint64, from);
    QCOMPARE(Memory::indexOf(nullptr, haystackLength, nullptr, needleLength, from), qint64(-1));
}

void tst_Memory::readsNothingBeyondHaystack()
{
    const GuardedBytes haystack("xxab");
    const QByteArray needle("abc");
    QCOMPARE(Memory::indexOf(haystack.begin(), 4, bytes(needle), 3, 0), qint64(-1));
    QCOMPARE(Memory::indexOf(haystack.begin(), 4, bytes(needle), 2, 0), qint64(2));
}

void tst_Memory::searchesRepetitiveBytesInLinearTime()
{
    const QByteArray haystack(8'000'000, 'a');
    const QByteArray needle = QByteArray(100'000, 'a') + 'b';
    QCOMPARE(indexOf(haystack, needle, 0), qint64(-1));
}

QTEST_GUILESS_MAIN(tst_Memory)
#include "tst_memory.moc"
