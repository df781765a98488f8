// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/regexprovider.h>

#include <QTest>

#include <atomic>
#include <thread>
#include <vector>

using Maker = QRegularExpression (*)(RegexProvider::Options);
using Ranges = QList<std::pair<unsigned int, unsigned int>>;
Q_DECLARE_METATYPE(Maker)

class tst_RegexProvider : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void patternIsExact_data();
    void patternIsExact();
    void optionsAreHandedOn();
    void optionsOfOneCopyLeaveTheOthersAlone();
    void threadsShareTheExpressions();
    void patternMatches_data();
    void patternMatches();
    void strictUrlPatternIsInvalid();
    void urlPatternNamesItsGroups();
    void emailPatternIsInLowerCase();
    void codePointIsTheCodeUnit();
    void codePointRange_data();
    void codePointRange();
    void noRangeHoldsNothing();
    void rangeFormTakesBounds();
    void bothFormsAgreeOnEveryCodeUnit();
};

void tst_RegexProvider::patternIsExact_data()
{
    QTest::addColumn<Maker>("maker");
    QTest::addColumn<QByteArray>("pattern");

    // clang-format off
    QTest::newRow("line break")
        << &RegexProvider::regexForLineBreak
        << QByteArray("^.*[" "\x0d" "|" "\x0a" "].*$");
    QTest::newRow("html color")
        << &RegexProvider::regexForHtmlColor
        << QByteArray("^\\x23[0-9a-zA-Z]{6}$");
    QTest::newRow("email")
        << &RegexProvider::regexForEmail
        << QByteArray("(?:[a-z0-9!#$%&'*+\\/=?^_`{|}~-]+(?:\\.[a-z0-9!#$%&'*+\\/=?^_`{|}~"
        "-]+)*|\\\"(?:[\\x01-\\x08\\x0b\\x0c\\x0e-\\x1f\\x21\\x23-\\x5b\\x5"
        "d-\\x7f]|\\[\\x01-\\\\x09\\\\x0b\\\\x0c\\\\x0e-\\\\x7f])*\\\")@(?:"
        "(?:[a-z0-9À-ÿ](?:[-a-z0-9]*[a-z0-9])?\\.)+[a-z0-9](?:[-a-z0-9]*[a-"
        "z0-9])?|\\[(?:(?:25[0-5]|2[0-4][0-9]|[01]?[0-9][0-9]?)\\.){3}(?:25"
        "[0-5]|2[0-4][0-9]|[01]?[0-9][0-9]?|[a-z0-9-]*[a-z0-9]:(?:[\\x01-\\"
        "x08\\x0b\\x0c\\x0e-\\x1f\\x21-\\x5a\\x53-\\x7f]|\\[\\x01-\\x09\\x0"
        "b\\x0c\\x0e-\\x7f])+)\\])");
    QTest::newRow("url strict")
        << &RegexProvider::regexForUrlStrict
        << QByteArray("^(?:(?:https?|ftps?):\\/\\/)(?:\\S+(?::\\S*)?@)?(?:(?!(?:10|127)(?"
        ":\\.\\d{1,3}){3})(?!(?:169\\.254|192\\.168)(?:\\.\\d{1,3}){2})(?!1"
        "72\\.(?:1[6-9]|2\\d|3[0-1])(?:\\.\\d{1,3}){2})(?:[1-9]\\d?|1\\d\\d"
        "|2[01]\\d|22[0-3])(?:\\.(?:1?\\d{1,2}|2[0-4]\\d|25[0-5])){2}(?:\\."
        "(?:[1-9]\\d?|1\\d\\d|2[0-4]\\d|25[0-4]))|(?:(?:[a-z\\u00a1-\\uffff"
        "0-9]-*)*[a-z\\u00a1-\\uffff0-9]+)(?:\\.(?:[a-z\\u00a1-\\uffff0-9]-"
        "*)*[a-z\\u00a1-\\uffff0-9]+)*(?:\\.(?:[a-z\\u00a1-\\uffff]{2,}))\\"
        ".?)(?::\\d{2,5})?(?:[/?#]\\S*)?$");
    QTest::newRow("url without domain")
        << &RegexProvider::regexForUrlWithoutDomain
        << QByteArray("((?<Protocol>\\w+):\\/\\/(?<Domain>[\\w@][\\w.:@]+)\\/?)?[\\w\\.?="
        "%&=\\-@/$,\\s\\+\\#]*");
    QTest::newRow("relative url")
        << &RegexProvider::regexForRelativeUrl
        << QByteArray("((?<Protocol>\\w+):\\/\\/(?<Domain>[\\w@][\\w.:@]+)\\/?)?[\\w\\.?="
        "%&=\\-@/$,\\s\\+\\#]*");
    QTest::newRow("url leak")
        << &RegexProvider::regexForUrlLeak
        << QByteArray("https?:\\/\\/(www\\.)?[-a-zA-Z0-9@:%._\\+~#=]{1,256}\\.[a-zA-Z0-9À"
        "-ÿ()]{1,6}\\b([-a-zA-Z0-9À-ÿ()@:%_\\+.~#?&//=]*)");
    QTest::newRow("mime")
        << &RegexProvider::regexForMime
        << QByteArray("^([a-z]+)/([a-z]+)(\\+([a-z]+))?(; *?charset=\"\"?([a-z0-9\\-]+)\""
        "\"?)?$");
    QTest::newRow("xml comment")
        << &RegexProvider::regexForXmlComment
        << QByteArray("<!--[\\s\\S\\n]*?-->");
    // clang-format on
}

void tst_RegexProvider::patternIsExact()
{
    QFETCH(Maker, maker);
    QFETCH(QByteArray, pattern);
    const QRegularExpression regex = maker(QRegularExpression::NoPatternOption);
    QCOMPARE(regex.pattern(), QString::fromUtf8(pattern));
    QCOMPARE(regex.patternOptions(), RegexProvider::Options(QRegularExpression::NoPatternOption));
}

void tst_RegexProvider::optionsAreHandedOn()
{
    const auto options =
        QRegularExpression::CaseInsensitiveOption | QRegularExpression::MultilineOption;
    for (const Maker maker : {&RegexProvider::regexForLineBreak, &RegexProvider::regexForHtmlColor,
                              &RegexProvider::regexForEmail, &RegexProvider::regexForUrlStrict,
                              &RegexProvider::regexForUrlWithoutDomain,
                              &RegexProvider::regexForRelativeUrl, &RegexProvider::regexForUrlLeak,
                              &RegexProvider::regexForMime, &RegexProvider::regexForXmlComment})
        QCOMPARE(maker(options).patternOptions(), options);
}

void tst_RegexProvider::optionsOfOneCopyLeaveTheOthersAlone()
{
    const QString capitals = QStringLiteral("MARIE@EXAMPLE.ORG");
    QRegularExpression changed = RegexProvider::regexForEmail();
    QVERIFY(!changed.match(capitals).hasMatch());
    changed.setPatternOptions(QRegularExpression::CaseInsensitiveOption);
    QVERIFY(changed.match(capitals).hasMatch());
    changed.setPattern(QStringLiteral("x"));

    const QRegularExpression next = RegexProvider::regexForEmail();
    QCOMPARE(next.patternOptions(), QRegularExpression::NoPatternOption);
    QVERIFY(next.pattern() != changed.pattern());
    QVERIFY(!next.match(capitals).hasMatch());
    QVERIFY(next.match(QStringLiteral("marie@example.org")).hasMatch());
}

void tst_RegexProvider::threadsShareTheExpressions()
{
    std::atomic<int> matches = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&matches, isPlain = i % 2 == 0] {
            for (int round = 0; round < 500; ++round) {
                const auto options = isPlain ? QRegularExpression::NoPatternOption
                                             : QRegularExpression::CaseInsensitiveOption;
                const auto mime = RegexProvider::regexForMime(options);
                matches += mime.match(QStringLiteral("text/html")).hasMatch() ? 1 : 0;
                matches += mime.match(QStringLiteral("TEXT/html")).hasMatch() ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    QCOMPARE(matches, 2 * 500 + 2 * 2 * 500);
}

void tst_RegexProvider::patternMatches_data()
{
    QTest::addColumn<Maker>("maker");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("isMatch");

    QTest::newRow("line break: vertical bar")
        << &RegexProvider::regexForLineBreak << QStringLiteral("a|b") << true;
    QTest::newRow("line break: carriage return")
        << &RegexProvider::regexForLineBreak << QStringLiteral("a\rb") << true;
    QTest::newRow("line break: none")
        << &RegexProvider::regexForLineBreak << QStringLiteral("ab") << false;
    QTest::newRow("colour: letters beyond F")
        << &RegexProvider::regexForHtmlColor << QStringLiteral("#a1B2zz") << true;
    QTest::newRow("colour: three digits")
        << &RegexProvider::regexForHtmlColor << QStringLiteral("#abc") << false;
    QTest::newRow("colour: text around")
        << &RegexProvider::regexForHtmlColor << QStringLiteral(" #a1B2zz") << false;
    QTest::newRow("leak: address in a text")
        << &RegexProvider::regexForUrlLeak << QStringLiteral("see https://example.org/a?b=c .")
        << true;
    QTest::newRow("leak: no address")
        << &RegexProvider::regexForUrlLeak << QStringLiteral("see example") << false;
    QTest::newRow("mime: plain") << &RegexProvider::regexForMime << QStringLiteral("text/html")
                                 << true;
    QTest::newRow("mime: suffix and charset")
        << &RegexProvider::regexForMime
        << QStringLiteral("application/xml+soap; charset=\"\"utf-8\"\"") << true;
    QTest::newRow("mime: charset in one pair of quotes")
        << &RegexProvider::regexForMime << QStringLiteral("text/html; charset=\"utf-8\"") << true;
    QTest::newRow("mime: capitals")
        << &RegexProvider::regexForMime << QStringLiteral("Text/html") << false;
    QTest::newRow("comment: over lines")
        << &RegexProvider::regexForXmlComment << QStringLiteral("<a><!-- b\nc --></a>") << true;
    QTest::newRow("comment: open")
        << &RegexProvider::regexForXmlComment << QStringLiteral("<!-- b ->") << false;
}

void tst_RegexProvider::patternMatches()
{
    QFETCH(Maker, maker);
    QFETCH(QString, text);
    QFETCH(bool, isMatch);
    const QRegularExpression regex = maker(QRegularExpression::NoPatternOption);
    QVERIFY2(regex.isValid(), qUtf8Printable(regex.errorString()));
    QCOMPARE(regex.match(text).hasMatch(), isMatch);
}

void tst_RegexProvider::strictUrlPatternIsInvalid()
{
    QVERIFY(!RegexProvider::regexForUrlStrict().isValid());
}

void tst_RegexProvider::urlPatternNamesItsGroups()
{
    const auto match =
        RegexProvider::regexForUrlWithoutDomain().match(QStringLiteral("ftp://example.org/a/b"));
    QCOMPARE(match.captured(QStringLiteral("Protocol")), QStringLiteral("ftp"));
    QCOMPARE(match.captured(QStringLiteral("Domain")), QStringLiteral("example.org"));
}

void tst_RegexProvider::emailPatternIsInLowerCase()
{
    const QString address = QStringLiteral("MARIE@EXAMPLE.ORG");
    QVERIFY(!RegexProvider::regexForEmail().match(address).hasMatch());
    QVERIFY(RegexProvider::regexForEmail(QRegularExpression::CaseInsensitiveOption)
                .match(address)
                .hasMatch());
}

void tst_RegexProvider::codePointIsTheCodeUnit()
{
    QCOMPARE(RegexProvider::codePoint(QChar(0x20AC)), 0x20ACu);
}

void tst_RegexProvider::codePointRange_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<Ranges>("ranges");
    QTest::addColumn<bool>("expected");

    QTest::newRow("lower bound") << QStringLiteral("xbx") << Ranges{{0x62, 0x64}} << true;
    QTest::newRow("upper bound") << QStringLiteral("xdx") << Ranges{{0x62, 0x64}} << true;
    QTest::newRow("below") << QStringLiteral("a") << Ranges{{0x62, 0x64}} << false;
    QTest::newRow("above") << QStringLiteral("e") << Ranges{{0x62, 0x64}} << false;
    QTest::newRow("second range") << QStringLiteral("e") << Ranges{{1, 2}, {0x65, 0x65}} << true;
    QTest::newRow("last unit") << QStringLiteral("abcd") << Ranges{{0x64, 0x64}} << true;
    QTest::newRow("half of a pair")
        << QStringLiteral("\U0001F600") << Ranges{{0xD83D, 0xD83D}} << true;
    QTest::newRow("pair as a whole")
        << QStringLiteral("\U0001F600") << Ranges{{0x1F600, 0x1F600}} << false;
    QTest::newRow("reversed bounds") << QStringLiteral("c") << Ranges{{0x64, 0x62}} << false;
    QTest::newRow("empty text") << QString() << Ranges{{0, 0xFFFF}} << false;
}

void tst_RegexProvider::codePointRange()
{
    QFETCH(QString, text);
    QFETCH(Ranges, ranges);
    QFETCH(bool, expected);
    QCOMPARE(RegexProvider::hasCodePoint(text, ranges), expected);
}

void tst_RegexProvider::noRangeHoldsNothing()
{
    QVERIFY(!RegexProvider::hasCodePoint(QStringLiteral("abc"), Ranges()));
}

void tst_RegexProvider::rangeFormTakesBounds()
{
    QVERIFY(RegexProvider::hasCodePoint(QStringLiteral("abc"), 0x62, 0x62));
    QVERIFY(!RegexProvider::hasCodePoint(QStringLiteral("abc"), 0x64, 0x7F));
    QVERIFY(!RegexProvider::hasCodePoint(QString(), 0, 0xFFFF));
}

void tst_RegexProvider::bothFormsAgreeOnEveryCodeUnit()
{
    for (uint unit = 0; unit <= 0xFFFF; ++unit) {
        const QString text(QChar(static_cast<char16_t>(unit)));
        const bool expected = 0xD83D <= unit && unit <= 0xE000;
        QCOMPARE(RegexProvider::hasCodePoint(text, 0xD83D, 0xE000), expected);
        QCOMPARE(RegexProvider::hasCodePoint(text, Ranges{{0xD83D, 0xE000}}), expected);
    }
    QVERIFY(!RegexProvider::hasCodePoint(QStringLiteral("c"), 0x64, 0x62));
    QVERIFY(!RegexProvider::hasCodePoint(QStringLiteral("c"), 0x10063, 0x10063));
}

QTEST_GUILESS_MAIN(tst_RegexProvider)
#include "tst_regexprovider.moc"
