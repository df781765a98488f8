// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/randomgenerator.h"
#include "kez/text.h"

#include "support/childprocess.h"

#include <QLocale>
#include <QTest>

#include <climits>
#include <cstdio>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>

#include <sys/resource.h>

// Calls with literals, with the implicit conversions to QString that tst_text does without.
static_assert(std::is_same_v<decltype(Text::toBase64("Kez")), QString>);
static_assert(std::is_same_v<decltype(Text::bytesFromBase64("")), QByteArray>);
static_assert(std::is_same_v<decltype(Text::stringFromBase64("")), QString>);
static_assert(std::is_same_v<decltype(Text::stringFromBase64(QByteArray())), QString>);
static_assert(std::is_same_v<decltype(stringFromBase64("")), QString>);

namespace {

constexpr qsizetype HundredMegabytes = 100'000'000;
constexpr char16_t GroupSeparator = u'\u202F';

/// The expected table, written as rows of consecutive code points.
QMap<int, QString> expectedEntities()
{
    const QList<QPair<int, QString>> ranges{
        {34, QStringLiteral("&quot;")},
        {38, QStringLiteral("&amp; &apos;")},
        {60, QStringLiteral("&lt;")},
        {62, QStringLiteral("&gt;")},
        {161, QStringLiteral("&iexcl; &cent; &pound; &curren; &yen; &brvbar; &sect; &uml; &copy; "
                             "&ordf; &laquo; &not; &shy; &reg; &macr;")},
        {176, QStringLiteral("&deg; &plusmn; &sup2; &sup3; &acute; &micro; &para; &middot; "
                             "&cedil; &sup1; &ordm; &raquo; &frac14; &frac12; &frac34; &iquest;")},
        {192, QStringLiteral("&Agrave; &Aacute; &Acirc; &Atilde; &Auml; &Aring;")},
        {198, QStringLiteral("&Aelig;")},
        {199, QStringLiteral("&Ccedil; &Egrave; &Eacute; &Ecirc; &Euml;")},
        {204, QStringLiteral("&lgrave; &lacute; &lcirc; &luml;")},
        {208, QStringLiteral("&ETH; &Ntilde; &Ograve; &Oacute; &Ocirc; &Otilde; &Ouml; &times; "
                             "&Oslash; &Ugrave; &Uacute; &Ucirc; &Uuml; &Yacute; &THORN; "
                             "&szlig;")},
        {224, QStringLiteral("&agrav;")},
        {225, QStringLiteral("&aacute; &acirc; &atilde; &auml; &aring; &aelig; &ccedil; &egrave; "
                             "&eacute; &ecirc; &euml; &igrave; &iacute; &icirc; &iuml; &eth; "
                             "&ntilde; &ograve; &oacute; &ocirc; &otilde; &ouml;")},
        {247, QStringLiteral("&otilde;")},
        {248, QStringLiteral("&oslash; &ugrave; &uacute; &ucirc; &uuml;")},
        {253, QStringLiteral("&yacut;")},
        {254, QStringLiteral("&thorn; &yuml;")},
    };
    QMap<int, QString> entities;
    for (const auto& [first, texts] : ranges) {
        int codePoint = first;
        for (const QString& entity : texts.split(QLatin1Char(' ')))
            entities.insert(codePoint++, entity);
    }
    return entities;
}

/// Initialised before main(): what static objects of an application find in the library.
const qsizetype RowsBeforeMain = LATIN.size();
const QString EscapedBeforeMain = Text::latinToEscapedHtml(QStringLiteral("<é>"));

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

QByteArray dumped(const QByteArray& bytes, const QString& title = QString())
{
    const File file(std::tmpfile(), &std::fclose);
    Text::dump(file.get(), bytes, title);
    QByteArray content(std::ftell(file.get()), '\0');
    std::rewind(file.get());
    content.resize(static_cast<qsizetype>(
        std::fread(content.data(), 1, static_cast<std::size_t>(content.size()), file.get())));
    return content;
}

template <typename... Arguments>
QByteArray printed(const char* format, Arguments... arguments)
{
    QByteArray text(256, '\0');
    text.resize(std::snprintf(text.data(), 256, format, arguments...));
    return text;
}

/// A dump, written by printf field by field.
QByteArray printedDump(const QByteArray& bytes)
{
    QByteArray text;
    for (qsizetype offset = 0; offset < bytes.size(); offset += 16) {
        const QByteArray row = bytes.mid(offset, 16);
        text += printed("%4.4lx: ", static_cast<unsigned long>(offset));
        for (qsizetype i = 0; i < 16; ++i)
            text += i < row.size() ? printed("%02x ", static_cast<unsigned char>(row[i]))
                                   : QByteArray("   ");
        text += ' ';
        for (const char byte : row)
            text += static_cast<unsigned char>(byte) - 0x20U < 0x60U ? byte : '.';
        text += '\n';
    }
    return text + '\n';
}

/// The rule, one look-up per code unit.
QString escapedByTable(const QString& text)
{
    QString escaped;
    for (const QChar unit : text)
        escaped += LATIN.value(unit.unicode(), QString(unit));
    return escaped;
}

QByteArray countedBytes(qsizetype size)
{
    QByteArray bytes(size, '\0');
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i & 0xFF);
    return bytes;
}

QProcessEnvironment environmentWithLang(const QString& lang)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char* name : {"LC_ALL", "LC_TIME", "LC_NUMERIC", "LC_MESSAGES", "LANGUAGE"})
        environment.remove(QLatin1String(name));
    environment.insert(QStringLiteral("LANG"), lang);
    return environment;
}

/// The process has memory for much fewer decimals.
int formatMostDecimals()
{
    const rlimit limit{rlim_t(1) << 30, rlim_t(1) << 30};
    if (setrlimit(RLIMIT_AS, &limit) != 0)
        return 2;
    try {
        Text::frenchDecimalFormat(1.5, INT_MAX);
    } catch (const std::bad_alloc&) {
        return 0;
    }
    return 1;
}

/// Prints the texts that depend on the system's language, one per line.
int child(const QStringList& arguments)
{
    if (arguments.contains(QStringLiteral("decimals")))
        return formatMostDecimals();
    const QDateTime moment(QDate(2026, 3, 9), QTime(8, 5, 4, 7), Qt::UTC);
    const QStringList texts{Text::frenchDate(moment.date(), false),
                            Text::frenchDate(moment.date(), true),
                            Text::frenchTime(moment.time(), false),
                            Text::frenchDateTime(moment, QStringLiteral(", "), false, true),
                            Text::frenchDecimalFormat(1234.5, 2),
                            Text::frenchIntegerFormat(1234)};
    std::fputs(texts.join(QLatin1Char('\n')).toUtf8().constData(), stdout);
    return 0;
}

} // namespace

class TestTextFormat : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void latinHoldsExactlyTheRows();
    void latinKeepsTheOddEntities_data();
    void latinKeepsTheOddEntities();
    void latinIsReadyBeforeMain();

    void escaping_data();
    void escaping();
    void escapingTreatsEveryCodeUnitAsTheTableSays();
    void escapingFollowsTheTableAtEveryLength();
    void escapingOfRandomTextsFollowsTheTable();
    void escapingReturnsATextWithoutEntitiesAsItIs();
    void escapedTextTakesNoMoreThanTwiceItsRoom();

    void dateForms_data();
    void dateForms();
    void timeForms();
    void dateTimeForms();
    void dateTimeSeparatorIsPartOfThePattern_data();
    void dateTimeSeparatorIsPartOfThePattern();
    void invalidDatesAndTimesGiveNothing();
    void namesFollowTheSystemLanguage_data();
    void namesFollowTheSystemLanguage();

    void decimalFormat_data();
    void decimalFormat();
    void decimalsBeyondTheLastDigitAreZeros_data();
    void decimalsBeyondTheLastDigitAreZeros();
    void moreDecimalsThanMemoryHoldsAreABadAllocation();
    void integerFormat_data();
    void integerFormat();
    void numbersIgnoreTheDefaultLocale();

    void alignment_data();
    void alignment();
    void identText_data();
    void identText();
    void boxedTitle_data();
    void boxedTitle();
    void abrevArrayToString_data();
    void abrevArrayToString();
    void abrevArrayToStringBoundaries();

    void dumpOfText();
    void dumpOfSeventeenBytes();
    void dumpOfNothing();
    void dumpTitleComesFirst_data();
    void dumpTitleComesFirst();
    void dumpIsAsPrintfWritesIt_data();
    void dumpIsAsPrintfWritesIt();
    void dumpShowsOnlyPrintableAscii();
    void dumpAppendsToTheStream();
    void dumpToAFullDeviceSetsTheErrorFlag();
    void dumpToANullStreamIsIgnored();

    void hundredMegabytesOfEscapes();
    void hundredMegabytesOfPadding();
    void hundredMegabytesOfLines();
    void hundredMegabytesOfDump();
};

void TestTextFormat::latinHoldsExactlyTheRows()
{
    const QMap<int, QString> expected = expectedEntities();
    QCOMPARE(expected.size(), 100);
    QCOMPARE(LATIN.size(), 100);
    QCOMPARE(LATIN.keys(), expected.keys());
    for (auto row = expected.begin(); row != expected.end(); ++row)
        QCOMPARE(LATIN.value(row.key()), row.value());
    for (const int without : {0, 32, 33, 35, 65, 127, 128, 159, 160, 256, 8364})
        QVERIFY(!LATIN.contains(without));
}

void TestTextFormat::latinKeepsTheOddEntities_data()
{
    QTest::addColumn<int>("codePoint");
    QTest::addColumn<QString>("entity");

    QTest::newRow("AE ligature") << 198 << QStringLiteral("&Aelig;");
    QTest::newRow("I grave, with a small L") << 204 << QStringLiteral("&lgrave;");
    QTest::newRow("I acute, with a small L") << 205 << QStringLiteral("&lacute;");
    QTest::newRow("I circumflex, with a small L") << 206 << QStringLiteral("&lcirc;");
    QTest::newRow("I diaeresis, with a small L") << 207 << QStringLiteral("&luml;");
    QTest::newRow("a grave") << 224 << QStringLiteral("&agrav;");
    QTest::newRow("division sign, as o tilde") << 247 << QStringLiteral("&otilde;");
    QTest::newRow("y acute") << 253 << QStringLiteral("&yacut;");
}

void TestTextFormat::latinKeepsTheOddEntities()
{
    QFETCH(const int, codePoint);
    QFETCH(const QString, entity);

    QCOMPARE(LATIN.value(codePoint), entity);
    QCOMPARE(Text::latinToEscapedHtml(QString(QChar(codePoint))), entity);
}

void TestTextFormat::latinIsReadyBeforeMain()
{
    QCOMPARE(RowsBeforeMain, 100);
    QCOMPARE(EscapedBeforeMain, QStringLiteral("&lt;&eacute;&gt;"));
}

void TestTextFormat::escaping_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    QTest::newRow("nothing") << QString() << QString();
    QTest::newRow("no entity") << QStringLiteral("plain text 123")
                               << QStringLiteral("plain text 123");
    QTest::newRow("brackets") << QStringLiteral("<é>") << QStringLiteral("&lt;&eacute;&gt;");
    QTest::newRow("division sign") << QStringLiteral("÷") << QStringLiteral("&otilde;");
    QTest::newRow("entity is escaped again")
        << QStringLiteral("&lt;") << QStringLiteral("&amp;lt;");
    QTest::newRow("quotes") << QStringLiteral("\"'") << QStringLiteral("&quot;&apos;");
    QTest::newRow("first and last")
        << QStringLiteral("à bientôt é") << QStringLiteral("&agrav; bient&ocirc;t &eacute;");
    QTest::newRow("no-break space stays")
        << QStringLiteral("a\u00A0b") << QStringLiteral("a\u00A0b");
    QTest::newRow("beyond Latin-1 stays")
        << QStringLiteral("€œ Ā 日 😀") << QStringLiteral("€œ Ā 日 😀");
    QTest::newRow("low byte of a wider unit is not an entity")
        << QStringLiteral("\u0126\u013C") << QStringLiteral("\u0126\u013C");
}

void TestTextFormat::escaping()
{
    QFETCH(const QString, text);
    QFETCH(const QString, expected);

    QCOMPARE(Text::latinToEscapedHtml(text), expected);
}

void TestTextFormat::escapingTreatsEveryCodeUnitAsTheTableSays()
{
    const QMap<int, QString> entities = expectedEntities();
    QString all;
    QString expected;
    for (int unit = 0; unit <= 0xFFFF; ++unit) {
        all += QChar(unit);
        expected += entities.value(unit, QString(QChar(unit)));
    }
    QVERIFY(Text::latinToEscapedHtml(all) == expected);
}

void TestTextFormat::escapingFollowsTheTableAtEveryLength()
{
    // A long text is handled piece by piece: an entity is first, last and alone in each.
    for (int length = 1; length <= 1100; ++length) {
        const QString entities(length, QLatin1Char('<'));
        QCOMPARE(Text::latinToEscapedHtml(entities), escapedByTable(entities));
        QString last(length, QLatin1Char('a'));
        last.back() = QChar(u'À');
        QCOMPARE(Text::latinToEscapedHtml(last), escapedByTable(last));
        QString first(length, QChar(u'€'));
        first.front() = QLatin1Char('&');
        QCOMPARE(Text::latinToEscapedHtml(first), escapedByTable(first));
    }
}

void TestTextFormat::escapingOfRandomTextsFollowsTheTable()
{
    RandomGenerator random(20261122);
    for (int i = 0; i < 2000; ++i) {
        // Few entities or many; among the units are NUL and halves of surrogate pairs.
        const int highest = i % 2 == 0 ? 0x100 : 0x10000;
        QString text(random.bounded(0, 3000), Qt::Uninitialized);
        for (QChar& unit : text)
            unit = QChar(random.bounded(0, highest));
        QCOMPARE(Text::latinToEscapedHtml(text), escapedByTable(text));
    }
}

void TestTextFormat::escapingReturnsATextWithoutEntitiesAsItIs()
{
    const QString text = QString(5000, QLatin1Char('a')) + QStringLiteral("œ€😀\u00A0");
    const QString escaped = Text::latinToEscapedHtml(text);
    QCOMPARE(escaped.constData(), text.constData());
    QVERIFY(Text::latinToEscapedHtml(QString()).isNull());
    QVERIFY(!Text::latinToEscapedHtml(QLatin1String("")).isNull());
}

void TestTextFormat::escapedTextTakesNoMoreThanTwiceItsRoom()
{
    for (const int length : {1, 8, 100, 255, 256, 257, 1000, 10'000, 1'000'000}) {
        QString text(length, QLatin1Char('a'));
        text.back() = QLatin1Char('<');
        const QString escaped = Text::latinToEscapedHtml(text);
        QCOMPARE(escaped.size(), length + 3);
        QVERIFY2(escaped.capacity() <= 2 * escaped.size() + 16, QByteArray::number(length));
    }
}

void TestTextFormat::dateForms_data()
{
    QTest::addColumn<QDate>("date");
    QTest::addColumn<QString>("shortForm");

    QTest::newRow("one digit") << QDate(2026, 3, 9) << QStringLiteral("09/03/2026");
    QTest::newRow("two digits") << QDate(1999, 12, 31) << QStringLiteral("31/12/1999");
    QTest::newRow("leap day") << QDate(2024, 2, 29) << QStringLiteral("29/02/2024");
    QTest::newRow("early year") << QDate(33, 4, 3) << QStringLiteral("03/04/0033");
}

void TestTextFormat::dateForms()
{
    QFETCH(const QDate, date);
    QFETCH(const QString, shortForm);

    QCOMPARE(Text::frenchDate(date, true), shortForm);
    QCOMPARE(Text::frenchDate(date, false),
             QLocale::system().toString(date, QStringLiteral("dddd d MMMM yyyy")));
}

void TestTextFormat::timeForms()
{
    QCOMPARE(Text::frenchTime(QTime(8, 5, 4, 7), true), QStringLiteral("08:05:04"));
    QCOMPARE(Text::frenchTime(QTime(8, 5, 4, 7), false), QStringLiteral("08:05:04,007"));
    QCOMPARE(Text::frenchTime(QTime(23, 59, 59, 999), true), QStringLiteral("23:59:59"));
    QCOMPARE(Text::frenchTime(QTime(23, 59, 59, 999), false), QStringLiteral("23:59:59,999"));
    QCOMPARE(Text::frenchTime(QTime(0, 0), false), QStringLiteral("00:00:00,000"));
}

void TestTextFormat::dateTimeForms()
{
    const QDateTime moment(QDate(2026, 3, 9), QTime(18, 5, 4, 7));
    const QString blank = QStringLiteral(" ");
    QCOMPARE(Text::frenchDateTime(moment, blank, true, true),
             QStringLiteral("09/03/2026 18:05:04"));
    QCOMPARE(Text::frenchDateTime(moment, blank, true, false),
             QStringLiteral("09/03/2026 18:05:04,007"));
    const QString longDate = Text::frenchDate(moment.date(), false);
    QCOMPARE(Text::frenchDateTime(moment, blank, false, true),
             longDate + QStringLiteral(" 18:05:04"));
    QCOMPARE(Text::frenchDateTime(moment, blank, false, false),
             longDate + QStringLiteral(" 18:05:04,007"));
}

void TestTextFormat::dateTimeSeparatorIsPartOfThePattern_data()
{
    QTest::addColumn<QString>("separator");
    QTest::addColumn<QString>("expected");

    QTest::newRow("nothing") << QString() << QStringLiteral("09/03/202608:05:04");
    QTest::newRow("punctuation") << QStringLiteral(" - ")
                                 << QStringLiteral("09/03/2026 - 08:05:04");
    QTest::newRow("year") << QStringLiteral(" yy ") << QStringLiteral("09/03/2026 26 08:05:04");
    QTest::newRow("quoted year") << QStringLiteral(" 'yy' ")
                                 << QStringLiteral("09/03/2026 yy 08:05:04");
    QTest::newRow("letter next to the time's")
        << QStringLiteral(" 'T'") << QStringLiteral("09/03/2026 T08:05:04");
    QTest::newRow("place markers are plain text")
        << QStringLiteral(" %1%3 ") << QStringLiteral("09/03/2026 %1%3 08:05:04");
    QTest::newRow("accented letter")
        << QStringLiteral(" à ") << QStringLiteral("09/03/2026 à 08:05:04");
}

void TestTextFormat::dateTimeSeparatorIsPartOfThePattern()
{
    QFETCH(const QString, separator);
    QFETCH(const QString, expected);

    const QDateTime moment(QDate(2026, 3, 9), QTime(8, 5, 4, 7));
    QCOMPARE(Text::frenchDateTime(moment, separator, true, true), expected);
}

void TestTextFormat::invalidDatesAndTimesGiveNothing()
{
    QCOMPARE(Text::frenchDate(QDate(), true), QString());
    QCOMPARE(Text::frenchDate(QDate(), false), QString());
    QCOMPARE(Text::frenchTime(QTime(), true), QString());
    QCOMPARE(Text::frenchTime(QTime(), false), QString());
    QCOMPARE(Text::frenchDateTime(QDateTime(), QStringLiteral(" "), true, true), QString());
}

void TestTextFormat::namesFollowTheSystemLanguage_data()
{
    QTest::addColumn<QString>("lang");
    QTest::addColumn<QString>("longDate");

    QTest::newRow("French") << QStringLiteral("fr_FR.UTF-8") << QStringLiteral("lundi 9 mars 2026");
    QTest::newRow("English") << QStringLiteral("en_US.UTF-8")
                             << QStringLiteral("Monday 9 March 2026");
    QTest::newRow("German") << QStringLiteral("de_DE.UTF-8")
                            << QStringLiteral("Montag 9 März 2026");
    QTest::newRow("none") << QStringLiteral("C") << QStringLiteral("Monday 9 March 2026");
}

void TestTextFormat::namesFollowTheSystemLanguage()
{
    QFETCH(const QString, lang);
    QFETCH(const QString, longDate);

    const ChildResult child = runChild({}, environmentWithLang(lang));
    QCOMPARE(child.exitCode, 0);
    const QStringList expected{longDate,
                               QStringLiteral("09/03/2026"),
                               QStringLiteral("08:05:04,007"),
                               longDate + QStringLiteral(", 08:05:04"),
                               QStringLiteral("1\u202F234,50"),
                               QStringLiteral("1\u202F234")};
    QCOMPARE(QString::fromUtf8(child.out).split(QLatin1Char('\n')), expected);
}

void TestTextFormat::decimalFormat_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<int>("decimals");
    QTest::addColumn<QString>("expected");

    QTest::newRow("millions") << 1234567.891 << 2 << QStringLiteral("1_234_567,89");
    QTest::newRow("thousand") << 1000.0 << 2 << QStringLiteral("1_000,00");
    QTest::newRow("below a thousand") << 999.5 << 1 << QStringLiteral("999,5");
    QTest::newRow("rounded up into a group") << 999.96 << 1 << QStringLiteral("1_000,0");
    QTest::newRow("no decimals") << 1234.0 << 0 << QStringLiteral("1_234");
    QTest::newRow("negative") << -1234.5 << 2 << QStringLiteral("-1_234,50");
    QTest::newRow("zero") << 0.0 << 3 << QStringLiteral("0,000");
    QTest::newRow("small") << 0.0004 << 3 << QStringLiteral("0,000");
    QTest::newRow("never exponential") << 1e15 << 1 << QStringLiteral("1_000_000_000_000_000,0");
}

void TestTextFormat::decimalFormat()
{
    QFETCH(const double, value);
    QFETCH(const int, decimals);
    QFETCH(QString, expected);

    expected.replace(QLatin1Char('_'), QChar(GroupSeparator));
    QCOMPARE(Text::frenchDecimalFormat(value, decimals), expected);
}

void TestTextFormat::decimalsBeyondTheLastDigitAreZeros_data()
{
    QTest::addColumn<double>("value");
    using Limits = std::numeric_limits<double>;
    QTest::newRow("one and a half") << 1.5;
    QTest::newRow("a tenth") << -0.1;
    QTest::newRow("smallest") << Limits::denorm_min();
    QTest::newRow("greatest") << Limits::max();
    QTest::newRow("infinite") << Limits::infinity();
    QTest::newRow("not a number") << Limits::quiet_NaN();
}

void TestTextFormat::decimalsBeyondTheLastDigitAreZeros()
{
    QFETCH(const double, value);

    const QLocale french(QLocale::French, QLocale::France);
    for (const int decimals : {1073, 1074, 1075, 5000})
        QCOMPARE(Text::frenchDecimalFormat(value, decimals), french.toString(value, 'f', decimals));
}

void TestTextFormat::moreDecimalsThanMemoryHoldsAreABadAllocation()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    QSKIP("The sanitizer itself needs more memory than the child may have.");
#endif
    const ChildResult result = runChild({QStringLiteral("decimals")});
    QVERIFY2(!result.crashed, result.err.constData());
    QCOMPARE(result.exitCode, 0);
}

void TestTextFormat::integerFormat_data()
{
    QTest::addColumn<qint64>("value");
    QTest::addColumn<QString>("expected");

    QTest::newRow("zero") << qint64{0} << QStringLiteral("0");
    QTest::newRow("three digits") << qint64{999} << QStringLiteral("999");
    QTest::newRow("four digits") << qint64{1000} << QStringLiteral("1_000");
    QTest::newRow("negative") << qint64{-1234567} << QStringLiteral("-1_234_567");
    QTest::newRow("largest") << qint64{LLONG_MAX} << QStringLiteral("9_223_372_036_854_775_807");
    QTest::newRow("smallest") << qint64{LLONG_MIN} << QStringLiteral("-9_223_372_036_854_775_808");
}

void TestTextFormat::integerFormat()
{
    QFETCH(const qint64, value);
    QFETCH(QString, expected);

    expected.replace(QLatin1Char('_'), QChar(GroupSeparator));
    QCOMPARE(Text::frenchIntegerFormat(value), expected);
}

void TestTextFormat::numbersIgnoreTheDefaultLocale()
{
    const QLocale previous;
    QLocale german(QLocale::German);
    german.setNumberOptions(QLocale::OmitGroupSeparator);
    QLocale::setDefault(german);
    const QString decimal = Text::frenchDecimalFormat(1234.5, 1);
    const QString integer = Text::frenchIntegerFormat(1234);
    QLocale::setDefault(previous);
    QCOMPARE(decimal, QStringLiteral("1\u202F234,5"));
    QCOMPARE(integer, QStringLiteral("1\u202F234"));
}

void TestTextFormat::alignment_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("width");
    QTest::addColumn<char>("fill");
    QTest::addColumn<QString>("left");
    QTest::addColumn<QString>("right");

    QTest::newRow("digit") << QStringLiteral("7") << 3 << '0' << QStringLiteral("007")
                           << QStringLiteral("700");
    QTest::newRow("dots") << QStringLiteral("ab") << 4 << '.' << QStringLiteral("..ab")
                          << QStringLiteral("ab..");
    QTest::newRow("never cut") << QStringLiteral("abcdef") << 3 << ' ' << QStringLiteral("abcdef")
                               << QStringLiteral("abcdef");
    QTest::newRow("exact width") << QStringLiteral("abc") << 3 << '-' << QStringLiteral("abc")
                                 << QStringLiteral("abc");
    QTest::newRow("one short") << QStringLiteral("ab") << 3 << '-' << QStringLiteral("-ab")
                               << QStringLiteral("ab-");
    QTest::newRow("nothing") << QString() << 2 << '*' << QStringLiteral("**")
                             << QStringLiteral("**");
    QTest::newRow("no width") << QStringLiteral("a") << 0 << '*' << QStringLiteral("a")
                              << QStringLiteral("a");
    QTest::newRow("negative width")
        << QStringLiteral("a") << INT_MIN << '*' << QStringLiteral("a") << QStringLiteral("a");
    QTest::newRow("Latin-1 fill") << QStringLiteral("a") << 2 << '\xe9' << QStringLiteral("éa")
                                  << QStringLiteral("aé");
    QTest::newRow("blanks are kept")
        << QStringLiteral(" a ") << 5 << '.' << QStringLiteral(".. a ") << QStringLiteral(" a ..");
}

void TestTextFormat::alignment()
{
    QFETCH(const QString, text);
    QFETCH(const int, width);
    QFETCH(const char, fill);
    QFETCH(const QString, left);
    QFETCH(const QString, right);

    QCOMPARE(Text::leftAlign(text, width, fill), left);
    QCOMPARE(Text::rightAlign(text, width, fill), right);
    if (fill == ' ') {
        QCOMPARE(Text::leftAlign(text, width), left);
        QCOMPARE(Text::rightAlign(text, width), right);
    }
}

void TestTextFormat::identText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("indent");
    QTest::addColumn<QString>("expected");

    QTest::newRow("line feed at the end")
        << QStringLiteral("a\n  b\n") << 2 << QStringLiteral("  a\n  b\n  ");
    QTest::newRow("one line") << QStringLiteral("a") << 3 << QStringLiteral("   a");
    QTest::newRow("nothing") << QString() << 2 << QStringLiteral("  ");
    QTest::newRow("nothing, no indent") << QString() << 0 << QString();
    QTest::newRow("trimmed at both ends")
        << QStringLiteral("\t a b \r\n c\u00A0") << 1 << QStringLiteral(" a b\n c");
    QTest::newRow("empty lines in between")
        << QStringLiteral("a\n\n\nb") << 1 << QStringLiteral(" a\n \n \n b");
    QTest::newRow("empty lines first")
        << QStringLiteral("\n\na") << 1 << QStringLiteral(" \n \n a");
    QTest::newRow("empty lines first, no indent")
        << QStringLiteral("\n \na\n\nb\n") << 0 << QStringLiteral("a\n\nb\n");
    QTest::newRow("negative indent") << QStringLiteral(" a\n b") << -3 << QStringLiteral("a\nb");
}

void TestTextFormat::identText()
{
    QFETCH(const QString, text);
    QFETCH(const int, indent);
    QFETCH(const QString, expected);

    QCOMPARE(Text::identText(text, indent), expected);
}

void TestTextFormat::boxedTitle_data()
{
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("trailer");
    QTest::addColumn<QString>("expected");

    QTest::newRow("version appended")
        << QStringLiteral("Demo") << QStringLiteral("1.2") << QString()
        << QStringLiteral("+-----------+\n| Demo v1.2 |\n+-----------+\n");
    QTest::newRow("no version") << QStringLiteral("Demo") << QString() << QString()
                                << QStringLiteral("+------+\n| Demo |\n+------+\n");
    QTest::newRow("version at the marker")
        << QStringLiteral("Run %1!") << QStringLiteral("3") << QString()
        << QStringLiteral("+--------+\n| Run 3! |\n+--------+\n");
    QTest::newRow("empty version at the marker")
        << QStringLiteral("Run %1") << QString() << QString()
        << QStringLiteral("+------+\n| Run  |\n+------+\n");
    QTest::newRow("marker twice") << QStringLiteral("%1/%1") << QStringLiteral("2") << QString()
                                  << QStringLiteral("+-----+\n| 2/2 |\n+-----+\n");
    QTest::newRow("marker before a digit")
        << QStringLiteral("%10") << QStringLiteral("2") << QString()
        << QStringLiteral("+----+\n| 20 |\n+----+\n");
    QTest::newRow("marker inside the version")
        << QStringLiteral("a %1") << QStringLiteral("%1") << QString()
        << QStringLiteral("+------+\n| a %1 |\n+------+\n");
    QTest::newRow("other markers are plain text")
        << QStringLiteral("a %2") << QStringLiteral("1") << QString()
        << QStringLiteral("+---------+\n| a %2 v1 |\n+---------+\n");
    QTest::newRow("trailer") << QStringLiteral("A") << QString() << QStringLiteral("(c) %1")
                             << QStringLiteral("+---+\n| A |\n+---+\n(c) %1\n");
    QTest::newRow("nothing") << QString() << QString() << QString()
                             << QStringLiteral("+--+\n|  |\n+--+\n");
    QTest::newRow("blanks are kept") << QStringLiteral(" A ") << QString() << QString()
                                     << QStringLiteral("+-----+\n|  A  |\n+-----+\n");
    QTest::newRow("accented letters") << QStringLiteral("Été") << QString() << QString()
                                      << QStringLiteral("+-----+\n| Été |\n+-----+\n");
}

void TestTextFormat::boxedTitle()
{
    QFETCH(const QString, title);
    QFETCH(const QString, version);
    QFETCH(const QString, trailer);
    QFETCH(const QString, expected);

    QCOMPARE(Text::boxedTitle(title, version, trailer), expected);
    if (trailer.isEmpty())
        QCOMPARE(Text::boxedTitle(title, version), expected);
}

void TestTextFormat::abrevArrayToString_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("expected");

    QTest::newRow("nothing") << 0 << 4 << QStringLiteral("[]");
    QTest::newRow("nothing, no count") << 0 << 0 << QStringLiteral("[]");
    QTest::newRow("nothing, negative count") << 0 << -100 << QStringLiteral("[]");
    QTest::newRow("one byte") << 1 << 4 << QStringLiteral("[00]");
    QTest::newRow("last shown whole")
        << 17 << 4 << QStringLiteral("[00,01,02,03,04,05,06,07,08,09,0A,0B,0C,0D,0E,0F,10]");
    QTest::newRow("first abridged") << 18 << 4 << QStringLiteral("(18)[00,01,02,03...0E,0F,10,11]");
    QTest::newRow("no count, whole") << 9 << 0 << QStringLiteral("[00,01,02,03,04,05,06,07,08]");
    QTest::newRow("no count, abridged") << 10 << 0 << QStringLiteral("(10)[...]");
    QTest::newRow("negative count, whole") << 7 << -1 << QStringLiteral("[00,01,02,03,04,05,06]");
    QTest::newRow("negative count, abridged") << 8 << -1 << QStringLiteral("(8)[...]");
    QTest::newRow("smallest count") << 1 << INT_MIN << QStringLiteral("(1)[...]");
    QTest::newRow("largest count") << 2 << INT_MAX << QStringLiteral("[00,01]");
}

void TestTextFormat::abrevArrayToString()
{
    QFETCH(const int, size);
    QFETCH(const int, count);
    QFETCH(const QString, expected);

    QCOMPARE(Text::abrevArrayToString(countedBytes(size), count), expected);
}

void TestTextFormat::abrevArrayToStringBoundaries()
{
    for (int count = 0; count < 40; ++count) {
        const QString whole = Text::abrevArrayToString(countedBytes(2 * count + 9), count);
        QVERIFY(whole.startsWith(QLatin1String("[")));
        QCOMPARE(whole.size(), 3 * (2 * count + 9) + 1);
        const QString abridged = Text::abrevArrayToString(countedBytes(2 * count + 10), count);
        QVERIFY(abridged.startsWith(QStringLiteral("(%1)[").arg(2 * count + 10)));
        QCOMPARE(abridged.count(QLatin1Char(',')), 2 * qMax(0, count - 1));
    }
}

void TestTextFormat::dumpOfText()
{
    QCOMPARE(dumped(QByteArray("Kez"), QStringLiteral("key")),
             QByteArray("key 3 octets (0x00000003)\n"
                        "0000: 4b 65 7a                                         Kez\n"
                        "\n"));
}

void TestTextFormat::dumpOfSeventeenBytes()
{
    QCOMPARE(dumped(QByteArray("0123456789abcdef\n")),
             QByteArray("0000: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66  0123456789abcdef\n"
                        "0010: 0a                                               .\n"
                        "\n"));
}

void TestTextFormat::dumpOfNothing()
{
    QCOMPARE(dumped(QByteArray()), QByteArray("\n"));
    QCOMPARE(dumped(QByteArray(), QStringLiteral("void")),
             QByteArray("void 0 octets (0x00000000)\n\n"));
}

void TestTextFormat::dumpTitleComesFirst_data()
{
    QTest::addColumn<QString>("title");
    QTest::addColumn<int>("size");
    QTest::addColumn<QByteArray>("firstLine");

    QTest::newRow("plain") << QStringLiteral("Reply") << 300
                           << QByteArray("Reply 300 octets (0x0000012c)");
    QTest::newRow("accented letters, as 8-bit text")
        << QStringLiteral("Réponse") << 1
        << QStringLiteral("Réponse").toLocal8Bit() + " 1 octets (0x00000001)";
    QTest::newRow("formats are plain text")
        << QStringLiteral("%s%n %ld") << 1 << QByteArray("%s%n %ld 1 octets (0x00000001)");
    QTest::newRow("none") << QString() << 1
                          << QByteArray("0000: 00                                               .");
}

void TestTextFormat::dumpTitleComesFirst()
{
    QFETCH(const QString, title);
    QFETCH(const int, size);
    QFETCH(const QByteArray, firstLine);

    const QByteArray text = dumped(QByteArray(size, '\0'), title);
    QCOMPARE(text.left(text.indexOf('\n')), firstLine);
}

void TestTextFormat::dumpIsAsPrintfWritesIt_data()
{
    QTest::addColumn<int>("size");
    for (int size = 0; size <= 48; ++size)
        QTest::addRow("%d bytes", size) << size;
    QTest::newRow("every byte") << 256;
    QTest::newRow("last offset of 16 bits") << 0x10000;
    QTest::newRow("offsets beyond 16 bits") << 0x10000 + 33;
    QTest::newRow("offsets beyond 20 bits") << 0x100000 + 16;
}

void TestTextFormat::dumpIsAsPrintfWritesIt()
{
    QFETCH(const int, size);

    const QByteArray bytes = countedBytes(size);
    const QByteArray text = dumped(bytes);
    QVERIFY(text == printedDump(bytes));
}

void TestTextFormat::dumpShowsOnlyPrintableAscii()
{
    QCOMPARE(dumped(QByteArray("\x1f\x20\x7e\x7f\x80\xe9\xff")).mid(6),
             QByteArray("1f 20 7e 7f 80 e9 ff                             . ~\x7f...\n\n"));
}

void TestTextFormat::dumpAppendsToTheStream()
{
    const File file(std::tmpfile(), &std::fclose);
    QVERIFY(file != nullptr);
    std::fputs("before\n", file.get());
    Text::dump(file.get(), QByteArray("a"));
    std::fputs("after", file.get());
    std::rewind(file.get());
    QByteArray content(200, '\0');
    content.resize(static_cast<qsizetype>(std::fread(content.data(), 1, 200, file.get())));
    QCOMPARE(content, "before\n" + printedDump("a") + "after");
}

void TestTextFormat::dumpToAFullDeviceSetsTheErrorFlag()
{
    const File file(std::fopen("/dev/full", "w"), &std::fclose);
    QVERIFY(file != nullptr);
    Text::dump(file.get(), QByteArray(100000, 'a'));
    QVERIFY(std::ferror(file.get()) != 0);
}

void TestTextFormat::dumpToANullStreamIsIgnored()
{
    Text::dump(nullptr, QByteArray("a"), QStringLiteral("title"));
}

void TestTextFormat::hundredMegabytesOfEscapes()
{
    const QString text(HundredMegabytes / 2, QLatin1Char('<'));
    const QString escaped = Text::latinToEscapedHtml(text);
    QCOMPARE(escaped.size(), text.size() * 4);
    QVERIFY(escaped.startsWith(QLatin1String("&lt;&lt;")));
    QVERIFY(escaped.endsWith(QLatin1String("&lt;&lt;")));
}

void TestTextFormat::hundredMegabytesOfPadding()
{
    const int width = int{HundredMegabytes / 2};
    const QString left = Text::leftAlign(QStringLiteral("a"), width, '.');
    QCOMPARE(left.size(), width);
    QVERIFY(left.endsWith(QLatin1String("..a")));
    const QString right = Text::rightAlign(QStringLiteral("a"), width, '.');
    QCOMPARE(right.size(), width);
    QVERIFY(right.startsWith(QLatin1String("a..")));
}

void TestTextFormat::hundredMegabytesOfLines()
{
    const qsizetype lines = HundredMegabytes / 10;
    const QString text = QStringLiteral(" a \n ").repeated(lines);
    const QString idented = Text::identText(text, 2);
    QCOMPARE(idented.size(), lines * 4 + 2);
    QVERIFY(idented.startsWith(QLatin1String("  a\n  a\n")));
}

void TestTextFormat::hundredMegabytesOfDump()
{
    const File file(std::tmpfile(), &std::fclose);
    QVERIFY(file != nullptr);
    Text::dump(file.get(), QByteArray(HundredMegabytes, 'a'));
    long expected = 1;
    for (unsigned long offset = 0; offset < HundredMegabytes; offset += 16) {
        const int digits = offset < 0x10000     ? 4
                           : offset < 0x100000  ? 5
                           : offset < 0x1000000 ? 6
                                                : 7;
        expected += digits + 2 + 48 + 1 + 16 + 1;
    }
    QCOMPARE(std::ftell(file.get()), expected);
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestTextFormat, child)
#include "tst_textformat.moc"
