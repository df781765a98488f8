// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Without the implicit conversions to QString; tst_textformat is built with them.
#define QT_NO_CAST_FROM_ASCII

#include "kez/randomgenerator.h"
#include "kez/text.h"

#include <QRegularExpression>
#include <QTest>

#include <algorithm>
#include <climits>
#include <memory>
#include <type_traits>

static_assert(!std::is_default_constructible_v<Text>);

namespace {

constexpr qsizetype HundredMegabytes = 100'000'000;

QByteArray everyByte()
{
    QByteArray bytes(256, '\0');
    for (int i = 0; i < 256; ++i)
        bytes[i] = static_cast<char>(i);
    return bytes;
}

/// The expected text, written by printf byte for byte.
QString printedHexa(const QByteArray& bytes, const char* format, const QString& separator)
{
    QStringList pairs;
    for (const char byte : bytes)
        pairs.append(QString::asprintf(format, static_cast<unsigned char>(byte)));
    return pairs.join(separator);
}

/// Percent-decoded: each escape that the pattern finds, from left to right.
QString decodedByPattern(const QString& text)
{
    const QByteArray utf8 = text.toUtf8();
    static const QRegularExpression escape(QStringLiteral("%[0-9a-fA-F]{2}"));
    QByteArray decoded;
    qsizetype end = 0;
    for (const auto& match : escape.globalMatch(QString::fromLatin1(utf8))) {
        decoded += utf8.mid(end, match.capturedStart() - end);
        decoded += QByteArray::fromHex(utf8.mid(match.capturedStart() + 1, 2));
        end = match.capturedEnd();
    }
    return QString::fromUtf8(decoded + utf8.mid(end));
}

/// An array without any memory behind its last byte: AddressSanitizer reports a read beyond it.
class ExactArray {
public:
    explicit ExactArray(const QByteArray& bytes)
        : _size(bytes.size()), _data(new char[static_cast<std::size_t>(bytes.size())])
    {
        std::copy(bytes.begin(), bytes.end(), _data.get());
    }
    QByteArray bytes() const { return QByteArray::fromRawData(_data.get(), _size); }

private:
    qsizetype _size;
    std::unique_ptr<char[]> _data;
};

} // namespace

class TestText : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void base64_data();
    void base64();
    void base64UsesTheStandardAlphabet();
    void base64OfLongArraysHasNoLineBreaks();
    void base64OfTextIsThatOfItsUtf8Bytes();
    void base64IsReadLeniently_data();
    void base64IsReadLeniently();
    void base64SurvivesEveryLength();
    void stringFromBase64ReadsUtf8();
    void base64TakesLiterals();
    void base64OfANullPointerIsEmpty();

    void hexa_data();
    void hexa();
    void hexaOfEveryByteIsAsPrinted();
    void hexaIsThatOfQt_data();
    void hexaIsThatOfQt();
    void hexaTakesEverySeparator();
    void hexaLetterAsSeparatorFollowsTheCase_data();
    void hexaLetterAsSeparatorFollowsTheCase();
    void hexaOfANumber_data();
    void hexaOfANumber();
    void hexaOfEveryMagnitudeIsThatOfQt();
    void hexaOverloadsAreToldApart();
    void fromHexa_data();
    void fromHexa();

    void urlEncoding_data();
    void urlEncoding();
    void urlEncodingOfEveryAsciiCharacter();
    void urlDecoding_data();
    void urlDecoding();
    void urlDecodingUndoesEncoding();
    void urlDecodingOfRandomTexts();

    void bigEndianToInt32_data();
    void bigEndianToInt32();
    void bigEndianToUInt32_data();
    void bigEndianToUInt32();
    void bigEndianToInt64_data();
    void bigEndianToInt64();
    void bigEndianToUInt64_data();
    void bigEndianToUInt64();
    void bigEndianReadersRefuseShortArrays_data();
    void bigEndianReadersRefuseShortArrays();
    void bigEndianReadersStayInsideTheArray();
    void integersToBigEndian();
    void bigEndianWritersGrowShortArrays_data();
    void bigEndianWritersGrowShortArrays();
    void bigEndianWritersKeepTheRestOfLongArrays();
    void bigEndianWritersLeaveCopiesAlone();
    void bigEndianReadersUndoWriters_data();
    void bigEndianReadersUndoWriters();

    void pointerToString();

    void hundredMegabytesOfHexa();
    void hundredMegabytesOfBase64();
    void hundredMegabytesOfUrlEncoding();
};

void TestText::base64_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("expected");

    QTest::newRow("nothing") << QByteArray() << QString();
    QTest::newRow("one byte") << QByteArray("f") << QStringLiteral("Zg==");
    QTest::newRow("two bytes") << QByteArray("fo") << QStringLiteral("Zm8=");
    QTest::newRow("three bytes") << QByteArray("foo") << QStringLiteral("Zm9v");
    QTest::newRow("four bytes") << QByteArray("foob") << QStringLiteral("Zm9vYg==");
    QTest::newRow("five bytes") << QByteArray("fooba") << QStringLiteral("Zm9vYmE=");
    QTest::newRow("six bytes") << QByteArray("foobar") << QStringLiteral("Zm9vYmFy");
    QTest::newRow("zero bytes") << QByteArray(3, '\0') << QStringLiteral("AAAA");
    QTest::newRow("all bits set") << QByteArray(3, '\xff') << QStringLiteral("////");
}

void TestText::base64()
{
    QFETCH(const QByteArray, bytes);
    QFETCH(const QString, expected);

    QCOMPARE(Text::toBase64(bytes), expected);
    QCOMPARE(Text::bytesFromBase64(expected), bytes);
    QCOMPARE(Text::bytesFromBase64(expected.toLatin1()), bytes);
}

void TestText::base64UsesTheStandardAlphabet()
{
    const QString alphabet =
        QStringLiteral("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
    // The 6-bit numbers 0 to 63, one after the other.
    QByteArray bytes;
    for (quint32 value = 0; value < 64; value += 4) {
        const quint32 bits = value << 18 | (value + 1) << 12 | (value + 2) << 6 | (value + 3);
        for (const int shift : {16, 8, 0})
            bytes.append(static_cast<char>(bits >> shift & 0xFF));
    }
    QCOMPARE(Text::toBase64(bytes), alphabet);
    QCOMPARE(Text::bytesFromBase64(alphabet), bytes);
}

void TestText::base64OfLongArraysHasNoLineBreaks()
{
    QCOMPARE(Text::toBase64(QByteArray(3000, '\0')), QString(4000, QLatin1Char('A')));
}

void TestText::base64OfTextIsThatOfItsUtf8Bytes()
{
    QCOMPARE(Text::toBase64(QString()), QString());
    QCOMPARE(Text::toBase64(QStringLiteral("Kez")), QStringLiteral("S2V6"));
    QCOMPARE(Text::toBase64(QStringLiteral("é€😀")), QStringLiteral("w6nigqzwn5iA"));
}

void TestText::base64IsReadLeniently_data()
{
    QTest::addColumn<QString>("base64");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("nothing") << QStringLiteral("") << QByteArray();
    QTest::newRow("blanks and line feeds") << QStringLiteral(" S2\nV\r\n6\t") << QByteArray("Kez");
    QTest::newRow("punctuation") << QStringLiteral("S2!V#6.") << QByteArray("Kez");
    QTest::newRow("letters beyond ASCII") << QStringLiteral("S2é€V😀6") << QByteArray("Kez");
    QTest::newRow("padding left out") << QStringLiteral("Zg") << QByteArray("f");
    QTest::newRow("only padding") << QStringLiteral("====") << QByteArray();
    QTest::newRow("only noise") << QStringLiteral("!?*%") << QByteArray();
    QTest::newRow("the other alphabet is noise") << QStringLiteral("-_S2V6") << QByteArray("Kez");
}

void TestText::base64IsReadLeniently()
{
    QFETCH(const QString, base64);
    QFETCH(const QByteArray, expected);

    QCOMPARE(Text::bytesFromBase64(base64), expected);
    QCOMPARE(Text::bytesFromBase64(base64.toUtf8()), expected);
    QCOMPARE(Text::stringFromBase64(base64), QString::fromUtf8(expected));
    QCOMPARE(stringFromBase64(base64.toUtf8()), QString::fromUtf8(expected));
}

void TestText::base64SurvivesEveryLength()
{
    for (int length = 0; length <= 256; ++length) {
        const QByteArray bytes = everyByte().right(length);
        QCOMPARE(Text::bytesFromBase64(Text::toBase64(bytes)), bytes);
    }
}

void TestText::stringFromBase64ReadsUtf8()
{
    const QString text = QStringLiteral("Élève €5 😀");
    const QString encoded = Text::toBase64(text);
    QCOMPARE(Text::stringFromBase64(encoded), text);
    QCOMPARE(stringFromBase64(encoded.toLatin1()), text);

    const QString damaged = Text::toBase64(QByteArray("a\xff"));
    QCOMPARE(Text::stringFromBase64(damaged), QStringLiteral("a\uFFFD"));
    QCOMPARE(stringFromBase64(QByteArray()), QString());
}

void TestText::base64TakesLiterals()
{
    QCOMPARE(Text::toBase64("Kez"), QStringLiteral("S2V6"));
    QCOMPARE(Text::toBase64("\xc3\xa9\xe2\x82\xac"), Text::toBase64(QStringLiteral("é€")));
    QCOMPARE(Text::toBase64(""), QString());
    QCOMPARE(Text::bytesFromBase64(""), QByteArray());
    QCOMPARE(Text::bytesFromBase64("S2V6"), QByteArray("Kez"));
    QCOMPARE(Text::stringFromBase64("w6nigqw="), QStringLiteral("é€"));
    QCOMPARE(stringFromBase64("w6nigqw="), QStringLiteral("é€"));
    QCOMPARE(Text::stringFromBase64(QByteArray("w6nigqw=")), QStringLiteral("é€"));
    const char array[] = "S2V6";
    const char* const pointer = array;
    QCOMPARE(Text::bytesFromBase64(array), QByteArray("Kez"));
    QCOMPARE(Text::stringFromBase64(pointer), QStringLiteral("Kez"));
}

void TestText::base64OfANullPointerIsEmpty()
{
    const char* const none = nullptr;
    QCOMPARE(Text::toBase64(none), QString());
    QCOMPARE(Text::bytesFromBase64(none), QByteArray());
    QCOMPARE(Text::stringFromBase64(none), QString());
    QCOMPARE(Text::toBase64({}), QString());
}

void TestText::hexa_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("lowerCase");
    QTest::addColumn<char>("separator");
    QTest::addColumn<QString>("expected");

    const QByteArray two("\x01\xab");
    QTest::newRow("upper case, separated") << two << false << ':' << QStringLiteral("01:AB");
    QTest::newRow("lower case, separated") << two << true << ':' << QStringLiteral("01:ab");
    QTest::newRow("upper case") << two << false << '\0' << QStringLiteral("01AB");
    QTest::newRow("lower case") << two << true << '\0' << QStringLiteral("01ab");
    QTest::newRow("one byte has no separator")
        << QByteArray("\x0f") << true << ':' << QStringLiteral("0f");
    QTest::newRow("nothing") << QByteArray() << false << ':' << QString();
    QTest::newRow("zero byte") << QByteArray(1, '\0') << false << '\0' << QStringLiteral("00");
    QTest::newRow("digit as separator") << two << true << '0' << QStringLiteral("010ab");
}

void TestText::hexa()
{
    QFETCH(const QByteArray, bytes);
    QFETCH(const bool, lowerCase);
    QFETCH(const char, separator);
    QFETCH(const QString, expected);

    QCOMPARE(Text::toHexa(bytes, lowerCase, separator), expected);
    if (separator == '\0')
        QCOMPARE(Text::toHexa(bytes, lowerCase), expected);
}

void TestText::hexaOfEveryByteIsAsPrinted()
{
    const QByteArray bytes = everyByte();
    QCOMPARE(Text::toHexa(bytes, true, '\0'), printedHexa(bytes, "%02x", QString()));
    QCOMPARE(Text::toHexa(bytes, false, '\0'), printedHexa(bytes, "%02X", QString()));
    QCOMPARE(Text::toHexa(bytes, true, ','), printedHexa(bytes, "%02x", QStringLiteral(",")));
    QCOMPARE(Text::toHexa(bytes, false, ','), printedHexa(bytes, "%02X", QStringLiteral(",")));
}

void TestText::hexaIsThatOfQt_data()
{
    QTest::addColumn<char>("separator");
    QTest::newRow("plain") << '\0';
    QTest::newRow("separated") << ' ';
}

void TestText::hexaIsThatOfQt()
{
    QFETCH(const char, separator);

    RandomGenerator random(20261122);
    for (int length = 0; length <= 1000; ++length) {
        QByteArray bytes(length, '\0');
        random.fillRange(bytes, false);
        const ExactArray exact(bytes);
        const QString expected = QString::fromLatin1(bytes.toHex(separator));
        QCOMPARE(Text::toHexa(exact.bytes(), true, separator), expected);
        QCOMPARE(Text::toHexa(exact.bytes(), false, separator), expected.toUpper());
    }
}

void TestText::hexaTakesEverySeparator()
{
    for (const char separator : everyByte()) {
        const QString between = separator == '\0' ? QString() : QString(QLatin1Char(separator));
        const QByteArray bytes("\x01\xab\xff");
        QCOMPARE(Text::toHexa(bytes, true, separator), printedHexa(bytes, "%02x", between));
        // The sharp s alone has no upper-case form of one letter: it stays.
        if (separator != '\xdf')
            QCOMPARE(Text::toHexa(bytes, false, separator),
                     printedHexa(bytes, "%02x", between).toUpper());
    }
    QCOMPARE(Text::toHexa(QByteArray("ab"), false, '\xdf'), QStringLiteral("61ß62"));
}

void TestText::hexaLetterAsSeparatorFollowsTheCase_data()
{
    QTest::addColumn<char>("separator");
    QTest::addColumn<bool>("lowerCase");
    QTest::addColumn<QString>("expected");

    QTest::newRow("small letter, upper case") << 'x' << false << QStringLiteral("01XAB");
    QTest::newRow("small letter, lower case") << 'x' << true << QStringLiteral("01xab");
    QTest::newRow("capital letter, lower case") << 'X' << true << QStringLiteral("01Xab");
    QTest::newRow("capital letter, upper case") << 'X' << false << QStringLiteral("01XAB");
    QTest::newRow("Latin-1 letter, upper case") << '\xe9' << false << QStringLiteral("01ÉAB");
    QTest::newRow("Latin-1 letter, lower case") << '\xe9' << true << QStringLiteral("01éab");
}

void TestText::hexaLetterAsSeparatorFollowsTheCase()
{
    QFETCH(const char, separator);
    QFETCH(const bool, lowerCase);
    QFETCH(const QString, expected);

    QCOMPARE(Text::toHexa(QByteArray("\x01\xab"), lowerCase, separator), expected);
}

void TestText::hexaOfANumber_data()
{
    QTest::addColumn<quint64>("value");
    QTest::addColumn<unsigned int>("width");
    QTest::addColumn<QString>("expected");

    QTest::newRow("filled up") << quint64{255} << 4U << QStringLiteral("00ff");
    QTest::newRow("width is a minimum") << quint64{0x12345} << 2U << QStringLiteral("12345");
    QTest::newRow("exact width") << quint64{0xABCD} << 4U << QStringLiteral("abcd");
    QTest::newRow("no width") << quint64{0xA} << 0U << QStringLiteral("a");
    QTest::newRow("zero, no width") << quint64{0} << 0U << QStringLiteral("0");
    QTest::newRow("zero, some width") << quint64{0} << 3U << QStringLiteral("000");
    QTest::newRow("largest") << ~quint64{0} << 16U << QStringLiteral("ffffffffffffffff");
    QTest::newRow("wider than any number")
        << quint64{1} << 20U << QStringLiteral("00000000000000000001");
}

void TestText::hexaOfANumber()
{
    QFETCH(const quint64, value);
    QFETCH(const unsigned int, width);
    QFETCH(const QString, expected);

    QCOMPARE(Text::toHexa(value, width), expected);
}

void TestText::hexaOfEveryMagnitudeIsThatOfQt()
{
    RandomGenerator random(20261122);
    for (int bits = 0; bits < 64; ++bits) {
        const quint64 power = quint64{1} << bits;
        for (const quint64 value : {power - 1, power, power + 1, random.generate64() >> bits}) {
            for (unsigned int width = 0; width <= 20; ++width)
                QCOMPARE(Text::toHexa(value, width),
                         QString::number(value, 16).rightJustified(width, QLatin1Char('0')));
        }
    }
}

void TestText::hexaOverloadsAreToldApart()
{
    QCOMPARE(Text::toHexa(255, 4), QStringLiteral("00ff"));
    QCOMPARE(Text::toHexa(0, 4), QStringLiteral("0000"));
    QCOMPARE(Text::toHexa(0x12345, 2), QStringLiteral("12345"));
    QCOMPARE(Text::toHexa(QByteArray("\xff"), true), QStringLiteral("ff"));
}

void TestText::fromHexa_data()
{
    QTest::addColumn<QString>("hexa");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("nothing") << QString() << QByteArray();
    QTest::newRow("lower case") << QStringLiteral("01abef") << QByteArray("\x01\xab\xef");
    QTest::newRow("upper case") << QStringLiteral("01ABEF") << QByteArray("\x01\xab\xef");
    QTest::newRow("mixed case") << QStringLiteral("aBAb") << QByteArray("\xab\xab");
    QTest::newRow("separators") << QStringLiteral("01:ab, EF\n") << QByteArray("\x01\xab\xef");
    QTest::newRow("separator inside a pair") << QStringLiteral("0-1a-b") << QByteArray("\x01\xab");
    QTest::newRow("letters beyond ASCII") << QStringLiteral("é01😀ab€") << QByteArray("\x01\xab");
    QTest::newRow("full-width digits are none") << QStringLiteral("\uFF11ab") << QByteArray("\xab");
    QTest::newRow("odd number of digits") << QStringLiteral("1ab") << QByteArray("\x01\xab");
    QTest::newRow("one digit") << QStringLiteral("f") << QByteArray("\x0f");
    QTest::newRow("no digits") << QStringLiteral("xyz ,;") << QByteArray();
    QTest::newRow("prefix reads as a digit") << QStringLiteral("0x1ab") << QByteArray("\x01\xab");
}

void TestText::fromHexa()
{
    QFETCH(const QString, hexa);
    QFETCH(const QByteArray, expected);

    QCOMPARE(Text::fromHexa(hexa), expected);
}

void TestText::urlEncoding_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    QTest::newRow("nothing") << QString() << QString();
    QTest::newRow("mixed") << QStringLiteral("a b/é") << QStringLiteral("a%20b%2F%C3%A9");
    QTest::newRow("unreserved") << QStringLiteral("AZaz09-._~") << QStringLiteral("AZaz09-._~");
    QTest::newRow("reserved") << QStringLiteral(":/?#[]@!$&'()*+,;=")
                              << QStringLiteral(
                                     "%3A%2F%3F%23%5B%5D%40%21%24%26%27%28%29%2A%2B%2C%3B%3D");
    QTest::newRow("percent sign") << QStringLiteral("100%") << QStringLiteral("100%25");
    QTest::newRow("escape is escaped again") << QStringLiteral("%41") << QStringLiteral("%2541");
    QTest::newRow("three bytes") << QStringLiteral("€") << QStringLiteral("%E2%82%AC");
    QTest::newRow("four bytes") << QStringLiteral("😀") << QStringLiteral("%F0%9F%98%80");
    QTest::newRow("control characters")
        << QStringLiteral("\n\t\x7f") << QStringLiteral("%0A%09%7F");
    QTest::newRow("NUL") << QString(QChar(u'\0')) << QStringLiteral("%00");
}

void TestText::urlEncoding()
{
    QFETCH(const QString, text);
    QFETCH(const QString, expected);

    QCOMPARE(Text::toUrlEncoding(text), expected);
}

void TestText::urlEncodingOfEveryAsciiCharacter()
{
    const QByteArray kept("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~");
    for (int code = 0; code < 128; ++code) {
        const char character = static_cast<char>(code);
        const QString expected = kept.contains(character)
                                     ? QString(QLatin1Char(character))
                                     : QString::asprintf("%%%02X", static_cast<unsigned>(code));
        QCOMPARE(Text::toUrlEncoding(QString(QLatin1Char(character))), expected);
    }
}

void TestText::urlDecoding_data()
{
    QTest::addColumn<QString>("encoded");
    QTest::addColumn<QString>("expected");

    QTest::newRow("nothing") << QString() << QString();
    QTest::newRow("mixed") << QStringLiteral("a%20b%2F%C3%A9") << QStringLiteral("a b/é");
    QTest::newRow("lower-case digits") << QStringLiteral("%c3%a9%2f") << QStringLiteral("é/");
    QTest::newRow("plus is not a blank") << QStringLiteral("a+b") << QStringLiteral("a+b");
    QTest::newRow("unescaped letters") << QStringLiteral("é%20€") << QStringLiteral("é €");
    QTest::newRow("NUL") << QStringLiteral("%00") << QString(QChar(u'\0'));
    QTest::newRow("decoded once only") << QStringLiteral("%2541") << QStringLiteral("%41");
    QTest::newRow("percent at the end") << QStringLiteral("100%") << QStringLiteral("100%");
    QTest::newRow("one digit at the end") << QStringLiteral("a%4") << QStringLiteral("a%4");
    QTest::newRow("escape at the end") << QStringLiteral("a%41") << QStringLiteral("aA");
    QTest::newRow("no digits") << QStringLiteral("%zz") << QStringLiteral("%zz");
    QTest::newRow("second is not a digit") << QStringLiteral("%4g") << QStringLiteral("%4g");
    QTest::newRow("first is not a digit") << QStringLiteral("%g4") << QStringLiteral("%g4");
    QTest::newRow("percent before an escape") << QStringLiteral("%%41") << QStringLiteral("%A");
    QTest::newRow("digits cut by an escape") << QStringLiteral("%4%41") << QStringLiteral("%4A");
    QTest::newRow("letter beyond ASCII after percent")
        << QStringLiteral("%é1") << QStringLiteral("%é1");
    QTest::newRow("neighbours of the digits")
        << QStringLiteral("%/0%:0%@0%G0%`0%g0") << QStringLiteral("%/0%:0%@0%G0%`0%g0");
    QTest::newRow("outermost digits")
        << QStringLiteral("%30%39%4a%4F%4A%4f") << QStringLiteral("09JOJO");
    QTest::newRow("bytes that are not UTF-8")
        << QStringLiteral("a%FF") << QStringLiteral("a\uFFFD");
}

void TestText::urlDecoding()
{
    QFETCH(const QString, encoded);
    QFETCH(const QString, expected);

    QCOMPARE(Text::fromUrlEncoding(encoded), expected);
}

void TestText::urlDecodingUndoesEncoding()
{
    QString text;
    for (char32_t code = 0; code < 0x3000; ++code)
        text += QString::fromUcs4(&code, 1);
    text += QStringLiteral("😀%41%zz%");
    QCOMPARE(Text::fromUrlEncoding(Text::toUrlEncoding(text)), text);
}

void TestText::urlDecodingOfRandomTexts()
{
    const QString alphabet = QStringLiteral("%%%%04bFcC39aAgé€");
    RandomGenerator random(20261122);
    for (int i = 0; i < 3000; ++i) {
        QString text(random.bounded(0, 40), Qt::Uninitialized);
        for (QChar& c : text)
            c = alphabet.at(random.bounded(0, static_cast<int>(alphabet.size())));
        QCOMPARE(Text::fromUrlEncoding(text), decodedByPattern(text));
    }
}

void TestText::bigEndianToInt32_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("expected");

    QTest::newRow("zero") << QByteArray(4, '\0') << 0;
    QTest::newRow("order") << QByteArray::fromHex("01020304") << 0x01020304;
    QTest::newRow("negative") << QByteArray::fromHex("fffffffe") << -2;
    QTest::newRow("largest") << QByteArray::fromHex("7fffffff") << INT_MAX;
    QTest::newRow("smallest") << QByteArray::fromHex("80000000") << INT_MIN;
    QTest::newRow("surplus is ignored") << QByteArray::fromHex("00000001ffff") << 1;
}

void TestText::bigEndianToInt32()
{
    QFETCH(const QByteArray, bytes);
    QFETCH(const int, expected);

    int value = 77;
    QVERIFY(Text::bigEndianToInt32(bytes, value));
    QCOMPARE(value, expected);
}

void TestText::bigEndianToUInt32_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<unsigned int>("expected");

    QTest::newRow("order") << QByteArray::fromHex("01020304") << 0x01020304U;
    QTest::newRow("high bit") << QByteArray::fromHex("fffffffe") << 0xFFFFFFFEU;
    QTest::newRow("surplus is ignored") << QByteArray::fromHex("8000000000ff") << 0x80000000U;
}

void TestText::bigEndianToUInt32()
{
    QFETCH(const QByteArray, bytes);
    QFETCH(const unsigned int, expected);

    unsigned int value = 77;
    QVERIFY(Text::bigEndianToUInt32(bytes, value));
    QCOMPARE(value, expected);
}

void TestText::bigEndianToInt64_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<qint64>("expected");

    QTest::newRow("order") << QByteArray::fromHex("0102030405060708") << qint64{0x0102030405060708};
    QTest::newRow("negative") << QByteArray::fromHex("fffffffffffffffe") << qint64{-2};
    QTest::newRow("largest") << QByteArray::fromHex("7fffffffffffffff") << qint64{LLONG_MAX};
    QTest::newRow("smallest") << QByteArray::fromHex("8000000000000000") << qint64{LLONG_MIN};
    QTest::newRow("surplus is ignored") << QByteArray::fromHex("0000000000000001ff") << qint64{1};
}

void TestText::bigEndianToInt64()
{
    QFETCH(const QByteArray, bytes);
    QFETCH(const qint64, expected);

    long long value = 77;
    QVERIFY(Text::bigEndianToInt64(bytes, value));
    QCOMPARE(value, expected);
}

void TestText::bigEndianToUInt64_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<quint64>("expected");

    QTest::newRow("order") << QByteArray::fromHex("0102030405060708")
                           << quint64{0x0102030405060708};
    QTest::newRow("high bit") << QByteArray::fromHex("fffffffffffffffe")
                              << quint64{0xFFFFFFFFFFFFFFFE};
    QTest::newRow("surplus is ignored") << QByteArray::fromHex("0000000000000001ff") << quint64{1};
}

void TestText::bigEndianToUInt64()
{
    QFETCH(const QByteArray, bytes);
    QFETCH(const quint64, expected);

    unsigned long long value = 77;
    QVERIFY(Text::bigEndianToUInt64(bytes, value));
    QCOMPARE(value, expected);
}

void TestText::bigEndianReadersRefuseShortArrays_data()
{
    QTest::addColumn<int>("length");
    for (int length = 0; length < 8; ++length)
        QTest::addRow("%d bytes", length) << length;
}

void TestText::bigEndianReadersRefuseShortArrays()
{
    QFETCH(const int, length);

    const QByteArray bytes(length, '\x01');
    int int32 = -7;
    unsigned int uint32 = 7;
    long long int64 = -77;
    unsigned long long uint64 = 77;
    QCOMPARE(Text::bigEndianToInt32(bytes, int32), length >= 4);
    QCOMPARE(Text::bigEndianToUInt32(bytes, uint32), length >= 4);
    QVERIFY(!Text::bigEndianToInt64(bytes, int64));
    QVERIFY(!Text::bigEndianToUInt64(bytes, uint64));
    QCOMPARE(int32, length >= 4 ? 0x01010101 : -7);
    QCOMPARE(uint32, length >= 4 ? 0x01010101U : 7U);
    QCOMPARE(int64, -77LL);
    QCOMPARE(uint64, 77ULL);
}

void TestText::bigEndianReadersStayInsideTheArray()
{
    int int32 = 0;
    unsigned int uint32 = 0;
    long long int64 = 0;
    unsigned long long uint64 = 0;
    const ExactArray three(QByteArray(3, '\x01'));
    QVERIFY(!Text::bigEndianToInt32(three.bytes(), int32));
    QVERIFY(!Text::bigEndianToUInt32(three.bytes(), uint32));
    const ExactArray four(QByteArray(4, '\x01'));
    QVERIFY(Text::bigEndianToInt32(four.bytes(), int32));
    QVERIFY(Text::bigEndianToUInt32(four.bytes(), uint32));
    const ExactArray seven(QByteArray(7, '\x01'));
    QVERIFY(!Text::bigEndianToInt64(seven.bytes(), int64));
    QVERIFY(!Text::bigEndianToUInt64(seven.bytes(), uint64));
    const ExactArray eight(QByteArray(8, '\x01'));
    QVERIFY(Text::bigEndianToInt64(eight.bytes(), int64));
    QVERIFY(Text::bigEndianToUInt64(eight.bytes(), uint64));
}

void TestText::integersToBigEndian()
{
    QByteArray bytes;
    Text::int32ToBigEndian(1, bytes);
    QCOMPARE(bytes.toHex(), QByteArray("00000001"));
    Text::int32ToBigEndian(-2, bytes);
    QCOMPARE(bytes.toHex(), QByteArray("fffffffe"));
    Text::int32ToBigEndian(INT_MIN, bytes);
    QCOMPARE(bytes.toHex(), QByteArray("80000000"));
    Text::uint32ToBigEndian(0xFEDCBA98U, bytes);
    QCOMPARE(bytes.toHex(), QByteArray("fedcba98"));
    Text::int64ToBigEndian(-2, bytes);
    QCOMPARE(bytes.toHex(), QByteArray("fffffffffffffffe"));
    Text::int64ToBigEndian(LLONG_MIN, bytes);
    QCOMPARE(bytes.toHex(), QByteArray("8000000000000000"));
    Text::uint64ToBigEndian(0xFEDCBA9876543210ULL, bytes);
    QCOMPARE(bytes.toHex(), QByteArray("fedcba9876543210"));
}

void TestText::bigEndianWritersGrowShortArrays_data()
{
    QTest::addColumn<int>("length");
    for (int length = 0; length < 8; ++length)
        QTest::addRow("%d bytes", length) << length;
}

void TestText::bigEndianWritersGrowShortArrays()
{
    QFETCH(const int, length);

    const QByteArray before(length, '\x09');
    QByteArray bytes = before;
    Text::int64ToBigEndian(0x0102030405060708, bytes);
    QCOMPARE(bytes.toHex(), QByteArray("0102030405060708"));
    bytes = before;
    Text::uint64ToBigEndian(0x0102030405060708, bytes);
    QCOMPARE(bytes.toHex(), QByteArray("0102030405060708"));
    bytes = before;
    Text::int32ToBigEndian(0x01020304, bytes);
    QCOMPARE(bytes, QByteArray("\x01\x02\x03\x04") + before.mid(4));
    bytes = before;
    Text::uint32ToBigEndian(0x01020304, bytes);
    QCOMPARE(bytes, QByteArray("\x01\x02\x03\x04") + before.mid(4));
}

void TestText::bigEndianWritersKeepTheRestOfLongArrays()
{
    QByteArray bytes(6, '\x09');
    Text::int32ToBigEndian(1, bytes);
    QCOMPARE(bytes.toHex(), QByteArray("000000010909"));
    Text::uint32ToBigEndian(2, bytes);
    QCOMPARE(bytes.toHex(), QByteArray("000000020909"));
    bytes = QByteArray(10, '\x09');
    Text::int64ToBigEndian(1, bytes);
    QCOMPARE(bytes.toHex(), QByteArray("00000000000000010909"));
    Text::uint64ToBigEndian(2, bytes);
    QCOMPARE(bytes.toHex(), QByteArray("00000000000000020909"));
}

void TestText::bigEndianWritersLeaveCopiesAlone()
{
    QByteArray bytes(8, '\x09');
    const QByteArray copy = bytes;
    Text::int32ToBigEndian(1, bytes);
    Text::uint64ToBigEndian(1, bytes);
    QCOMPARE(copy, QByteArray(8, '\x09'));
}

void TestText::bigEndianReadersUndoWriters_data()
{
    QTest::addColumn<quint64>("value");
    for (int bit = 0; bit < 64; ++bit)
        QTest::addRow("bit %d", bit) << (quint64{1} << bit);
    QTest::newRow("none") << quint64{0};
    QTest::newRow("all") << ~quint64{0};
}

void TestText::bigEndianReadersUndoWriters()
{
    QFETCH(const quint64, value);

    QByteArray bytes;
    unsigned long long uint64 = 0;
    Text::uint64ToBigEndian(value, bytes);
    QVERIFY(Text::bigEndianToUInt64(bytes, uint64));
    QCOMPARE(uint64, value);
    long long int64 = 0;
    Text::int64ToBigEndian(static_cast<long long>(value), bytes);
    QVERIFY(Text::bigEndianToInt64(bytes, int64));
    QCOMPARE(int64, static_cast<long long>(value));
    unsigned int uint32 = 0;
    Text::uint32ToBigEndian(static_cast<unsigned int>(value), bytes);
    QVERIFY(Text::bigEndianToUInt32(bytes, uint32));
    QCOMPARE(uint32, static_cast<unsigned int>(value));
    int int32 = 0;
    Text::int32ToBigEndian(static_cast<int>(value), bytes);
    QVERIFY(Text::bigEndianToInt32(bytes, int32));
    QCOMPARE(int32, static_cast<int>(value));
}

void TestText::pointerToString()
{
    QCOMPARE(Text::pointerToString(nullptr), QStringLiteral("0x0000000000000000"));
    QCOMPARE(Text::pointerToString(reinterpret_cast<void*>(quintptr{0xDEADBEEF})),
             QStringLiteral("0x00000000deadbeef"));
    QCOMPARE(Text::pointerToString(reinterpret_cast<void*>(~quintptr{0})),
             QStringLiteral("0xffffffffffffffff"));
    const int here = 0;
    QCOMPARE(Text::pointerToString(&here),
             QString::asprintf("0x%016llx",
                               static_cast<unsigned long long>(reinterpret_cast<quintptr>(&here))));
}

void TestText::hundredMegabytesOfHexa()
{
    const QByteArray bytes(HundredMegabytes, '\xab');
    const QString hexa = Text::toHexa(bytes, false, ':');
    QCOMPARE(hexa.size(), HundredMegabytes * 3 - 1);
    QVERIFY(hexa.startsWith(QLatin1String("AB:AB:AB")));
    QVERIFY(hexa.endsWith(QLatin1String("AB:AB:AB")));
    QVERIFY(Text::fromHexa(hexa) == bytes);
}

void TestText::hundredMegabytesOfBase64()
{
    const QByteArray bytes(HundredMegabytes, '\0');
    const QString encoded = Text::toBase64(bytes);
    QCOMPARE(encoded.size(), (HundredMegabytes + 2) / 3 * 4);
    QVERIFY(Text::bytesFromBase64(encoded) == bytes);
}

void TestText::hundredMegabytesOfUrlEncoding()
{
    const QString text(HundredMegabytes / 4, QLatin1Char('/'));
    const QString encoded = Text::toUrlEncoding(text);
    QCOMPARE(encoded.size(), text.size() * 3);
    QVERIFY(Text::fromUrlEncoding(encoded) == text);
    const QString unescaped(HundredMegabytes, QLatin1Char('a'));
    QVERIFY(Text::fromUrlEncoding(unescaped) == unescaped);
}

QTEST_GUILESS_MAIN(TestText)
#include "tst_text.moc"
