// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// The conversions, escapes, searches and tests of texts, compared with Qt's nearest function, with
// the C library or with a plain loop.

#include <kez/memory.h>
#include <kez/regexprovider.h>
#include <kez/text.h>
#include <kez/urlhelper.h>

#include <benchmark/benchmark.h>

#include <QByteArray>
#include <QLocale>
#include <QString>
#include <QUrl>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

constexpr qsizetype Mebibyte = 1 << 20;

QByteArray everyByte(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 31 % 256);
    return bytes;
}

QString repeated(const QString& piece, qsizetype size)
{
    return piece.repeated(size / piece.size() + 1).left(size);
}

QString frenchProse()
{
    return repeated(
        QStringLiteral("Le dépôt du matin a reçu douze fichiers ; l’un d'eux était vide, et le "
                       "service l'a donc rejeté. À midi, l'opérateur a relevé « Prévu & livré » "
                       "dans le journal, puis il a relancé la file d'attente <sortie> sans rien "
                       "perdre de ce qui précède. Où en est-on ? Tout est arrêté depuis l'été. "),
        Mebibyte);
}

QString asciiProse()
{
    return repeated(QStringLiteral("The morning run took twelve files and refused one. "),
                    Mebibyte);
}

QString markup()
{
    return repeated(QStringLiteral("<&é>\"à'"), Mebibyte);
}

/// Registers CASE/CONTENDER: the time of one call of `function` with what `input` makes.
template <typename Input, typename Function>
void compare(const char* name, Input input, Function function)
{
    benchmark::RegisterBenchmark(name, [input, function](benchmark::State& state) {
        const auto value = input();
        for (auto _ : state)
            benchmark::DoNotOptimize(function(value));
    });
}

// Hexadecimal, Base64 and percent encoding

QByteArray mebibyte()
{
    return everyByte(Mebibyte);
}

QString mebibyteInHexa()
{
    return Text::toHexa(everyByte(Mebibyte), true);
}

QString mebibyteInBase64()
{
    return Text::toBase64(everyByte(Mebibyte));
}

QString frenchProseInAUrl()
{
    return Text::toUrlEncoding(frenchProse());
}

void registerCodecs()
{
    compare("Hexa/kez", mebibyte,
            [](const QByteArray& bytes) { return Text::toHexa(bytes, true); });
    compare("Hexa/QByteArray", mebibyte,
            [](const QByteArray& bytes) { return QString::fromLatin1(bytes.toHex()); });
    compare("HexaSeparated/kez", mebibyte,
            [](const QByteArray& bytes) { return Text::toHexa(bytes, true, ':'); });
    compare("HexaSeparated/QByteArray", mebibyte,
            [](const QByteArray& bytes) { return QString::fromLatin1(bytes.toHex(':')); });
    compare("HexaUpperCase/kez", mebibyte,
            [](const QByteArray& bytes) { return Text::toHexa(bytes, false, ','); });
    compare("HexaUpperCase/QByteArray", mebibyte, [](const QByteArray& bytes) {
        return QString::fromLatin1(bytes.toHex(',').toUpper());
    });
    compare("HexaRead/kez", mebibyteInHexa,
            [](const QString& hexa) { return Text::fromHexa(hexa); });
    compare("HexaRead/QByteArray", mebibyteInHexa,
            [](const QString& hexa) { return QByteArray::fromHex(hexa.toLatin1()); });

    compare("Base64/kez", mebibyte, [](const QByteArray& bytes) { return Text::toBase64(bytes); });
    compare("Base64/QByteArray", mebibyte,
            [](const QByteArray& bytes) { return QString::fromLatin1(bytes.toBase64()); });
    compare("Base64Read/kez", mebibyteInBase64,
            [](const QString& base64) { return Text::bytesFromBase64(base64); });
    compare("Base64Read/QByteArray", mebibyteInBase64,
            [](const QString& base64) { return QByteArray::fromBase64(base64.toLatin1()); });

    compare("UrlEncode/kez", frenchProse,
            [](const QString& text) { return Text::toUrlEncoding(text); });
    compare("UrlEncode/QUrl", frenchProse,
            [](const QString& text) { return QString::fromLatin1(QUrl::toPercentEncoding(text)); });
    compare("UrlDecode/kez", frenchProseInAUrl,
            [](const QString& text) { return Text::fromUrlEncoding(text); });
    compare("UrlDecode/QUrl", frenchProseInAUrl,
            [](const QString& text) { return QUrl::fromPercentEncoding(text.toLatin1()); });
}

// Entities

QString escapedByKez(const QString& text)
{
    return Text::latinToEscapedHtml(text);
}

/// Four entities only.
QString escapedByQt(const QString& text)
{
    return text.toHtmlEscaped();
}

QString escapedByMap(const QString& text)
{
    QString result;
    for (const QChar unit : text) {
        const auto row = LATIN.find(unit.unicode());
        if (row == LATIN.end())
            result += unit;
        else
            result += *row;
    }
    return result;
}

void registerEscapes()
{
    compare("HtmlEscape/kez", frenchProse, escapedByKez);
    compare("HtmlEscape/QString", frenchProse, escapedByQt);
    compare("HtmlEscape/map_of_entities", frenchProse, escapedByMap);
    compare("HtmlEscapeNothing/kez", asciiProse, escapedByKez);
    compare("HtmlEscapeNothing/QString", asciiProse, escapedByQt);
    compare("HtmlEscapeAll/kez", markup, escapedByKez);
    compare("HtmlEscapeAll/QString", markup, escapedByQt);
}

// Layout

void dumpByPrintf(FILE* stream, const QByteArray& bytes)
{
    for (qsizetype offset = 0; offset < bytes.size(); offset += 16) {
        const QByteArray row = bytes.mid(offset, 16);
        std::fprintf(stream, "%4.4lx: ", static_cast<unsigned long>(offset));
        for (const char byte : row)
            std::fprintf(stream, "%02x ", static_cast<unsigned char>(byte));
        std::fputc(' ', stream);
        for (const char byte : row)
            std::fputc(static_cast<signed char>(byte) >= ' ' ? byte : '.', stream);
        std::fputc('\n', stream);
    }
    std::fputc('\n', stream);
}

void dumpByKez(FILE* stream, const QByteArray& bytes)
{
    Text::dump(stream, bytes);
}

void dump(benchmark::State& state, void (*write)(FILE*, const QByteArray&))
{
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen("/dev/null", "w"), &std::fclose);
    if (!file)
        return state.SkipWithError("/dev/null cannot be opened");
    const QByteArray bytes = everyByte(Mebibyte);
    for (auto _ : state)
        write(file.get(), bytes);
}

QString shortText()
{
    return QStringLiteral("total");
}

QString indentedByLoop(const QString& text)
{
    QStringList lines = text.split(QLatin1Char('\n'));
    for (QString& line : lines)
        line = QStringLiteral("    ") + line.trimmed();
    return lines.join(QLatin1Char('\n'));
}

QString manyLines()
{
    return repeated(QStringLiteral("  une ligne d'un long message\n"), Mebibyte);
}

qint64 largeNumber()
{
    return 1'234'567'890;
}

void registerLayout()
{
    benchmark::RegisterBenchmark("Dump/kez", dump, dumpByKez);
    benchmark::RegisterBenchmark("Dump/printf", dump, dumpByPrintf);
    compare("Indent/kez", manyLines, [](const QString& text) { return Text::identText(text, 4); });
    compare("Indent/split_and_join", manyLines, indentedByLoop);
    compare("Pad/kez", shortText,
            [](const QString& text) { return Text::leftAlign(text, 40, '.'); });
    compare("Pad/QString", shortText,
            [](const QString& text) { return text.rightJustified(40, QLatin1Char('.')); });
    compare("FrenchNumber/kez", largeNumber,
            [](qint64 value) { return Text::frenchIntegerFormat(value); });
    compare("FrenchNumber/QLocale", largeNumber,
            [french = QLocale(QLocale::French)](qint64 value) { return french.toString(value); });
    compare("HexaNumber/kez", largeNumber,
            [](qint64 value) { return Text::toHexa(static_cast<quint64>(value), 16); });
    compare("HexaNumber/printf", largeNumber,
            [](qint64 value) { return QString::asprintf("%016llx", value); });
}

// Searches and tests

const unsigned char* data(const QByteArray& bytes)
{
    return reinterpret_cast<const unsigned char*>(bytes.constData());
}

struct Search {
    QByteArray haystack, needle;
};

/// The needle is at the end.
Search searchInProse()
{
    const QByteArray needle("the needle");
    return {asciiProse().toLatin1() + needle, needle};
}

/// Each position begins like the needle.
Search searchInRepetitions()
{
    return {QByteArray(Mebibyte, 'a'), QByteArray(1000, 'a') + 'b'};
}

qint64 searchByKez(const Search& search)
{
    return Memory::indexOf(data(search.haystack), search.haystack.size(), data(search.needle),
                           search.needle.size());
}

const void* searchByMemmem(const Search& search)
{
    return memmem(search.haystack.constData(), static_cast<size_t>(search.haystack.size()),
                  search.needle.constData(), static_cast<size_t>(search.needle.size()));
}

qsizetype searchByQt(const Search& search)
{
    return search.haystack.indexOf(search.needle);
}

void registerSearches()
{
    compare("ByteSearch/kez", searchInProse, searchByKez);
    compare("ByteSearch/memmem", searchInProse, searchByMemmem);
    compare("ByteSearch/QByteArray", searchInProse, searchByQt);
    compare("ByteSearchRepetitive/kez", searchInRepetitions, searchByKez);
    compare("ByteSearchRepetitive/memmem", searchInRepetitions, searchByMemmem);
    compare("ByteSearchRepetitive/QByteArray", searchInRepetitions, searchByQt);
    compare("CodePoints/kez", asciiProse,
            [](const QString& text) { return RegexProvider::hasCodePoint(text, 0x80, 0xFFFF); });
    compare("CodePoints/any_of", asciiProse, [](const QString& text) {
        return std::any_of(text.begin(), text.end(), [](QChar c) { return c.unicode() >= 0x80; });
    });
    compare("CodePointShort/kez", shortText,
            [](const QString& text) { return RegexProvider::hasCodePoint(text, 0x80, 0xFFFF); });
    compare("CodePointShort/any_of", shortText, [](const QString& text) {
        return std::any_of(text.begin(), text.end(), [](QChar c) { return c.unicode() >= 0x80; });
    });
}

QString address()
{
    return QStringLiteral("marie.curie@institut.example.org");
}

QString url()
{
    return QStringLiteral("https://example.org:8443/depots/2026/liste.html?page=2#fin");
}

void registerValidations()
{
    compare("Email/kez", address,
            [](const QString& text) { return UrlHelper::isEmailValid(text); });
    compare("Email/compiled_once", address,
            [email = RegexProvider::regexForEmail()](const QString& text) {
                return email.match(text).hasMatch();
            });
    compare("EmailPattern/kez", address, [](const QString& text) {
        return RegexProvider::regexForEmail().match(text).hasMatch();
    });
    compare("EmailPattern/compiled_once", address,
            [email = RegexProvider::regexForEmail()](const QString& text) {
                return email.match(text).hasMatch();
            });
    compare("Url/kez", url, [](const QString& text) { return UrlHelper::isHttpUrlValid(text); });
    compare("Url/QUrl", url, [](const QString& text) { return QUrl(text).isValid(); });
}

const int s_registered = (registerCodecs(), registerEscapes(), registerLayout(), registerSearches(),
                          registerValidations(), 0);

} // namespace
