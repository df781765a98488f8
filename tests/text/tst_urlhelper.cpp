// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/urlhelper.h>

#include <QTest>

class tst_UrlHelper : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void email_data();
    void email();
    void httpUrl_data();
    void httpUrl();
    void url_data();
    void url();
    void relativeUrl_data();
    void relativeUrl();
};

void tst_UrlHelper::email_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("expected");
    QTest::newRow("empty") << QString() << false;
    QTest::newRow("address") << QStringLiteral("marie.curie@example.org") << true;
    QTest::newRow("among words") << QStringLiteral("write to marie@example.org today") << true;
    QTest::newRow("accent in the domain") << QStringLiteral("a@école.fr") << true;
    QTest::newRow("no domain") << QStringLiteral("marie@") << false;
    QTest::newRow("no dot") << QStringLiteral("marie@example") << false;
    QTest::newRow("words") << QStringLiteral("no address here") << false;
    QTest::newRow("capitals") << QStringLiteral("M@EXAMPLE.ORG") << false;
    QTest::newRow("very long") << QString(200'000, QLatin1Char('a')) << false;
}

void tst_UrlHelper::email()
{
    QFETCH(QString, text);
    QFETCH(bool, expected);
    QCOMPARE(UrlHelper::isEmailValid(text), expected);
}

void tst_UrlHelper::httpUrl_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("expected");
    QTest::newRow("empty") << QString() << false;
    QTest::newRow("http") << QStringLiteral("http://example.org/a") << true;
    QTest::newRow("https") << QStringLiteral("https://example.org") << true;
    QTest::newRow("scheme in capitals") << QStringLiteral("HTTP://example.org") << false;
    QTest::newRow("ftp") << QStringLiteral("ftp://example.org") << false;
    QTest::newRow("no slashes") << QStringLiteral("http:example.org") << false;
    QTest::newRow("bad port") << QStringLiteral("http://example.org:99999999/") << false;
    QTest::newRow("blank in the path") << QStringLiteral("http://example.org/a b") << true;
}

void tst_UrlHelper::httpUrl()
{
    QFETCH(QString, text);
    QFETCH(bool, expected);
    QCOMPARE(UrlHelper::isHttpUrlValid(text), expected);
}

void tst_UrlHelper::url_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("acceptMailto");
    QTest::addColumn<bool>("expected");
    QTest::newRow("empty") << QString() << true << false;
    QTest::newRow("mailto refused") << QStringLiteral("mailto:a@example.org") << false << false;
    QTest::newRow("mailto accepted") << QStringLiteral("mailto:a@example.org") << true << true;
    QTest::newRow("mailto in capitals") << QStringLiteral("MAILTO:a@example.org") << false << true;
    QTest::newRow("ftp") << QStringLiteral("ftp://example.org/x") << false << true;
    QTest::newRow("relative") << QStringLiteral("dir/page.html") << false << true;
    QTest::newRow("bad host") << QStringLiteral("http://[::1/") << false << false;
}

void tst_UrlHelper::url()
{
    QFETCH(QString, text);
    QFETCH(bool, acceptMailto);
    QFETCH(bool, expected);
    QCOMPARE(UrlHelper::isUrlValid(text, acceptMailto), expected);
}

void tst_UrlHelper::relativeUrl_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("expected");
    QTest::newRow("empty") << QString() << false;
    QTest::newRow("path") << QStringLiteral("dir/page.html") << true;
    QTest::newRow("absolute path") << QStringLiteral("/dir/page.html") << true;
    QTest::newRow("no scheme but a host") << QStringLiteral("//example.org/a") << true;
    QTest::newRow("https") << QStringLiteral("https://example.org") << false;
    QTest::newRow("mailto") << QStringLiteral("mailto:a@example.org") << false;
}

void tst_UrlHelper::relativeUrl()
{
    QFETCH(QString, text);
    QFETCH(bool, expected);
    QCOMPARE(UrlHelper::isRelativeUrl(text), expected);
}

QTEST_GUILESS_MAIN(tst_UrlHelper)
#include "tst_urlhelper.moc"
