// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "frame/lines_p.h"

#include <QBuffer>
#include <QObject>
#include <QRandomGenerator>
#include <QStringList>
#include <QTest>
#include <QTextStream>

#include <cstring>
#include <functional>
#include <memory>

using OpenMode = QIODevice::OpenMode;
using Device = std::unique_ptr<QIODevice>;

namespace {

constexpr int Chunk = 16384; // what is read at once
const OpenMode Binary = QIODevice::ReadOnly;
const OpenMode Translated = QIODevice::ReadOnly | QIODevice::Text;

/// Gives its parts one after the other, as a pipe does. An empty part is an end, after which the
/// device grows. Fails after the last part if it shall.
class PartsDevice : public QIODevice {
    Q_OBJECT

public:
    explicit PartsDevice(const QByteArrayList& parts, bool fails = false)
        : _parts(parts), _fails(fails)
    {}

    bool isSequential() const override { return true; }

protected:
    qint64 readData(char* data, qint64 maxSize) override
    {
        if (_parts.isEmpty())
            return _fails ? -1 : 0;
        QByteArray& part = _parts.first();
        const qint64 size = std::min<qint64>(maxSize, part.size());
        if (size > 0)
            std::memcpy(data, part.constData(), static_cast<size_t>(size));
        part.remove(0, size);
        if (part.isEmpty())
            _parts.removeFirst();
        return size;
    }

    qint64 writeData(const char*, qint64) override { return -1; }

private:
    QByteArrayList _parts;
    bool _fails;
};

/// The lines up to the third time that there is none.
template <typename Next>
QStringList linesBy(Next next)
{
    QStringList lines;
    for (int ends = 0; ends < 3;) {
        const std::optional<QString> line = next();
        lines.append(line ? '[' + *line + ']' : QString("end"));
        if (!line)
            ++ends;
    }
    return lines;
}

QStringList linesOfStream(QIODevice& device, int limit)
{
    QTextStream stream(&device);
    return linesBy([&]() -> std::optional<QString> {
        QString line;
        return stream.readLineInto(&line, limit) ? std::optional(line) : std::nullopt;
    });
}

QStringList linesOfReader(QIODevice& device, int limit)
{
    LineReader reader(device, limit);
    return linesBy([&]() -> std::optional<QString> {
        const auto line = reader.next();
        return line ? std::optional(line->toString()) : std::nullopt;
    });
}

Device buffer(const QByteArray& bytes)
{
    auto device = std::make_unique<QBuffer>();
    device->setData(bytes);
    return device;
}

QByteArray quoted(const QByteArray& bytes)
{
    return bytes.size() < 400 ? bytes.toPercentEncoding() : QByteArray("(large)");
}

/// Whether the reader returns what QTextStream does.
bool isAsStream(const std::function<Device()>& make, OpenMode mode, int limit,
                const QByteArray& described)
{
    const Device first = make();
    const Device second = make();
    if (!first->open(mode) || !second->open(mode))
        return false;
    const QStringList expected = linesOfStream(*first, limit);
    const QStringList read = linesOfReader(*second, limit);
    const bool isSame = read == expected && second->isTextModeEnabled() == (mode == Translated);
    if (!isSame)
        qWarning("limit %d, text mode %d, input %s", limit, mode == Translated,
                 quoted(described).constData());
    return isSame;
}

bool isAsStream(const QByteArray& bytes, int limit)
{
    const auto make = [&bytes] { return buffer(bytes); };
    return isAsStream(make, Binary, limit, bytes) && isAsStream(make, Translated, limit, bytes);
}

/// What is between ordinary characters in the inputs: line ends, blanks, characters of each length,
/// byte order marks, broken and forbidden sequences.
const QByteArrayList& oddities()
{
    static const QByteArrayList list{"\n",
                                     "\r",
                                     "\r\n",
                                     "\n\r",
                                     "\r\r\n",
                                     " ",
                                     "=",
                                     "#",
                                     "\t",
                                     "\xC3\xA9",
                                     "\xE2\x82\xAC",
                                     "\xF0\x9F\x98\x80",
                                     "\xEF\xBB\xBF",
                                     "\xC2\x85",
                                     "\xE2\x80\xA8",
                                     QByteArray("\0", 1),
                                     "\xFF",
                                     "\xFE",
                                     "\x80",
                                     "\xC3",
                                     "\xE2\x82",
                                     "\xF0\x9F\x98",
                                     "\xC0\xAF",
                                     "\xED\xA0\x80",
                                     "\xF4\x90\x80\x80"};
    return list;
}

QByteArray randomBytes(QRandomGenerator& random, int pieces)
{
    QByteArray bytes;
    for (int i = 0; i < pieces; ++i) {
        if (random.bounded(2) == 0)
            bytes += QByteArray(random.bounded(1, 6), static_cast<char>('a' + random.bounded(26)));
        else
            bytes += oddities().at(random.bounded(static_cast<int>(oddities().size())));
    }
    return bytes;
}

/// The bytes in parts of random sizes, with an end now and then.
QByteArrayList randomParts(QRandomGenerator& random, const QByteArray& bytes)
{
    QByteArrayList parts;
    for (qsizetype begin = 0; begin < bytes.size();) {
        parts.append(bytes.mid(begin, random.bounded(6)));
        begin += parts.last().size();
    }
    return parts;
}

} // namespace

class TestLines : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void readsLines_data();
    void readsLines();
    void readsAsQTextStream();
    void readsMarkedTextAsQTextStream_data();
    void readsMarkedTextAsQTextStream();
    void readsPartsAsQTextStream();
    void readsChunkEdgesAsQTextStream_data();
    void readsChunkEdgesAsQTextStream();
    void readsLargeTextsAsQTextStream();
    void cutsTheReturnOffIfTheDeviceIsAtItsEnd();
    void goesOnAfterTheEnd();
    void takesTheLinesBeforeAReadError();
    void handsEachLineToTheCaller();
};

void TestLines::readsLines_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QStringList>("lines");
    const QStringList end{"end", "end", "end"};
    QTest::newRow("nothing") << QByteArray() << end;
    QTest::newRow("no line end") << QByteArray("a") << QStringList{"[a]"} + end;
    QTest::newRow("line ends") << QByteArray("a\n\r\nb\r\r\n")
                               << QStringList{"[a]", "[]", "[b\r]"} + end;
    QTest::newRow("return at the end") << QByteArray("a\rb\r") << QStringList{"[a\rb]"} + end;
    QTest::newRow("mark") << QByteArray("\xEF\xBB\xBF"
                                        "a\n")
                          << QStringList{"[a]"} + end;
    QTest::newRow("UTF-16") << QByteArray("\xFE\xFF\0a\0\n\0b", 8)
                            << QStringList{"[a]", "[b]"} + end;
}

void TestLines::readsLines()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QStringList, lines);
    const Device device = buffer(bytes);
    QVERIFY(device->open(Binary));
    QCOMPARE(linesOfReader(*device, 0), lines);
}

void TestLines::readsAsQTextStream()
{
    QRandomGenerator random(1);
    for (int run = 0; run < 400; ++run) {
        const QByteArray bytes = randomBytes(random, random.bounded(24));
        for (int limit = 0; limit <= bytes.size() + 1; ++limit)
            QVERIFY(isAsStream(bytes, limit));
    }
}

void TestLines::readsMarkedTextAsQTextStream_data()
{
    QTest::addColumn<int>("encoding");
    QTest::newRow("UTF-8") << static_cast<int>(QStringConverter::Utf8);
    QTest::newRow("UTF-16, little end first") << static_cast<int>(QStringConverter::Utf16LE);
    QTest::newRow("UTF-16, big end first") << static_cast<int>(QStringConverter::Utf16BE);
    QTest::newRow("UTF-32, little end first") << static_cast<int>(QStringConverter::Utf32LE);
    QTest::newRow("UTF-32, big end first") << static_cast<int>(QStringConverter::Utf32BE);
}

void TestLines::readsMarkedTextAsQTextStream()
{
    QFETCH(int, encoding);
    QRandomGenerator random(2);
    for (int run = 0; run < 100; ++run) {
        const QString text = QString::fromUtf8(randomBytes(random, random.bounded(16)));
        QStringEncoder encode(static_cast<QStringConverter::Encoding>(encoding),
                              QStringConverter::Flag::WriteBom);
        QByteArray bytes = encode(text);
        bytes.chop(random.bounded(3)); // often within a character
        for (int limit = 0; limit <= text.size() + 2; ++limit)
            QVERIFY(isAsStream(bytes, limit));
        const QByteArrayList parts = randomParts(random, bytes);
        const auto make = [&parts] { return std::make_unique<PartsDevice>(parts); };
        QVERIFY(isAsStream(make, Binary, 0, bytes));
        QVERIFY(isAsStream(make, Translated, 3, bytes));
    }
}

void TestLines::readsPartsAsQTextStream()
{
    QRandomGenerator random(3);
    for (int run = 0; run < 400; ++run) {
        const QByteArray bytes = randomBytes(random, random.bounded(24));
        const QByteArrayList parts = randomParts(random, bytes);
        const bool fails = random.bounded(2) == 0;
        const auto make = [&] { return std::make_unique<PartsDevice>(parts, fails); };
        for (const int limit : {0, 1, 2, 3, 5, 8, 13}) {
            QVERIFY(isAsStream(make, Binary, limit, parts.join('|')));
            QVERIFY(isAsStream(make, Translated, limit, parts.join('|')));
        }
    }
}

void TestLines::readsChunkEdgesAsQTextStream_data()
{
    QTest::addColumn<QByteArray>("oddity");
    for (const QByteArray& oddity : oddities())
        QTest::newRow(oddity.toHex().constData()) << oddity;
}

/// The oddity lies before, across and behind the edge, at the end of the text or not.
void TestLines::readsChunkEdgesAsQTextStream()
{
    QFETCH(QByteArray, oddity);
    for (qsizetype begin = Chunk - oddity.size() - 1; begin <= Chunk + 1; ++begin) {
        for (const char* rest : {"", "\n", "\r", "x", "x\r\ny"}) {
            const QByteArray bytes = QByteArray(begin, 'a') + oddity + rest;
            for (const int limit : {0, 1000, Chunk - 2, Chunk - 1, Chunk, Chunk + 1, Chunk + 2})
                QVERIFY(isAsStream(bytes, limit));
            QVERIFY(isAsStream(QByteArray("k=v\r\n").repeated(3000) + bytes, 0));
        }
    }
}

void TestLines::readsLargeTextsAsQTextStream()
{
    QRandomGenerator random(4);
    for (int run = 0; run < 5; ++run) {
        const QByteArray bytes = randomBytes(random, 20000);
        for (const int limit : {0, 1, 2, 7, 100, Chunk})
            QVERIFY(isAsStream(bytes, limit));
        QByteArray oneLine = bytes;
        oneLine.replace('\n', 'n');
        QVERIFY(isAsStream(oneLine, 0));
        QVERIFY(isAsStream(oneLine, 20000));
    }
}

/// This is why the size of a chunk counts: what is left to read decides about a cut line.
void TestLines::cutsTheReturnOffIfTheDeviceIsAtItsEnd()
{
    for (const int rest : {0, 1, Chunk - 6, Chunk - 5, Chunk - 4, Chunk, 2 * Chunk})
        QVERIFY(isAsStream("a\rb\rc" + QByteArray(rest, 'x'), 2));
}

void TestLines::goesOnAfterTheEnd()
{
    PartsDevice device({"a\nb", "", "c\n", "", "d"});
    QVERIFY(device.open(Binary));
    const QStringList expected{"[a]", "[b]", "[c]", "end", "[d]", "end", "end"};
    QCOMPARE(linesOfReader(device, 0), expected);
}

void TestLines::takesTheLinesBeforeAReadError()
{
    PartsDevice device({"a\nb", "c"}, true);
    QVERIFY(device.open(Binary));
    const QStringList expected{"[a]", "[bc]", "end", "end", "end"};
    QCOMPARE(linesOfReader(device, 0), expected);
}

void TestLines::handsEachLineToTheCaller()
{
    const Device device = buffer("a\nb\n\nc");
    QVERIFY(device->open(Binary));
    QStringList lines;
    forEachLine(*device, 0, [&lines](QStringView line) { lines.append(line.toString()); });
    const QStringList expected{"a", "b", "", "c"};
    QCOMPARE(lines, expected);
}

QTEST_GUILESS_MAIN(TestLines)

#include "tst_lines.moc"
