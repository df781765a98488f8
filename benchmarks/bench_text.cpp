// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Compares the text and identifier services with Qt's nearest function and with a simple loop.
// Times are medians of rounds in which the contenders take turns, so that a disturbance affects all
// of them. Compare the ratios (to the first contender, Kez) within one run, not the times of two.

#include <kez/defaultuidverifier.h>
#include <kez/randomgenerator.h>
#include <kez/text.h>

#include <QUrl>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int Rounds = 9;
constexpr qsizetype Megabyte = 1'000'000;

/// Receives the results, so that the compiler cannot omit a call.
volatile qsizetype s_sink = 0;

struct Contender {
    std::string name;
    std::function<qsizetype()> run;
    std::vector<double> milliseconds = {};
};

double timed(const Contender& contender)
{
    const auto start = std::chrono::steady_clock::now();
    s_sink = contender.run();
    const std::chrono::duration<double, std::milli> elapsed =
        std::chrono::steady_clock::now() - start;
    return elapsed.count();
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void compare(const char* title, std::vector<Contender> contenders)
{
    for (int round = 0; round < Rounds; ++round)
        for (Contender& contender : contenders)
            contender.milliseconds.push_back(timed(contender));
    std::printf("%s\n", title);
    const double reference = median(contenders.front().milliseconds);
    for (const Contender& contender : contenders) {
        const double time = median(contender.milliseconds);
        std::printf("  %-34s %10.3f ms  %8.2f\n", contender.name.c_str(), time, time / reference);
    }
}

QByteArray sampleBytes(qsizetype size)
{
    RandomGenerator random(1);
    QByteArray bytes(size, '\0');
    random.fillRange(bytes, false);
    return bytes;
}

QString frenchProse(qsizetype size)
{
    const QString sentence =
        QStringLiteral("Le dépôt a reçu 12 fichiers & en a rejeté un <vide>. ");
    return sentence.repeated(size / sentence.size());
}

qsizetype naiveHexa(const QByteArray& bytes)
{
    QString text;
    for (const char byte : bytes)
        text += QString::asprintf("%02x", static_cast<unsigned char>(byte));
    return text.size();
}

qsizetype naiveEscape(const QString& text)
{
    QString result;
    for (const QChar unit : text) {
        const auto row = LATIN.find(unit.unicode());
        if (row == LATIN.end())
            result += unit;
        else
            result += *row;
    }
    return result.size();
}

qsizetype naivePadding(QString text, qsizetype width)
{
    while (text.size() < width)
        text = QLatin1Char('.') + text;
    return text.size();
}

qsizetype naiveDump(FILE* stream, const QByteArray& bytes)
{
    for (qsizetype offset = 0; offset < bytes.size(); offset += 16) {
        const QByteArray row = bytes.mid(offset, 16);
        std::fprintf(stream, "%4.4lx: ", static_cast<unsigned long>(offset));
        for (qsizetype i = 0; i < 16; ++i) {
            if (i < row.size())
                std::fprintf(stream, "%02x ", static_cast<unsigned char>(row[i]));
            else
                std::fprintf(stream, "   ");
        }
        std::fputc(' ', stream);
        for (const char byte : row)
            std::fputc(static_cast<signed char>(byte) >= 32 ? byte : '.', stream);
        std::fputc('\n', stream);
    }
    return bytes.size();
}

/// 255 different bytes; each draw is searched for in the whole array.
qsizetype naiveUniqueFill(RandomGenerator& random)
{
    QByteArray bytes(255, '\0');
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        char byte = static_cast<char>(random.bounded(0, 256));
        while (bytes.contains(byte))
            byte = static_cast<char>(random.bounded(0, 256));
        bytes[i] = byte;
    }
    return bytes.size();
}

void compareHexa()
{
    const QByteArray bytes = sampleBytes(Megabyte);
    compare("hexadecimal form of 1 MB",
            {{"Text::toHexa", [&] { return Text::toHexa(bytes, true).size(); }},
             {"Text::toHexa, upper case, commas",
              [&] { return Text::toHexa(bytes, false, ',').size(); }},
             {"QByteArray::toHex", [&] { return bytes.toHex().size(); }},
             {"one printf per byte", [&] { return naiveHexa(bytes); }}});
    const QString hexa = Text::toHexa(bytes, true);
    compare("1 MB from its hexadecimal form",
            {{"Text::fromHexa", [&] { return Text::fromHexa(hexa).size(); }},
             {"QByteArray::fromHex", [&] { return QByteArray::fromHex(hexa.toLatin1()).size(); }}});
}

void compareUrlEncoding()
{
    const QString encoded = Text::toUrlEncoding(frenchProse(Megabyte));
    compare("1 MB of prose from its percent-encoding",
            {{"Text::fromUrlEncoding", [&] { return Text::fromUrlEncoding(encoded).size(); }},
             {"QUrl::fromPercentEncoding",
              [&] { return QUrl::fromPercentEncoding(encoded.toLatin1()).size(); }}});
}

void compareEscapes()
{
    const QString prose = frenchProse(Megabyte);
    compare("entities in 1 MB of French prose",
            {{"Text::latinToEscapedHtml", [&] { return Text::latinToEscapedHtml(prose).size(); }},
             {"QString::toHtmlEscaped (4 entities)", [&] { return prose.toHtmlEscaped().size(); }},
             {"one map look-up per character", [&] { return naiveEscape(prose); }}});
    const QString plain(Megabyte, QLatin1Char('a'));
    compare("no entity in 1 MB",
            {{"Text::latinToEscapedHtml", [&] { return Text::latinToEscapedHtml(plain).size(); }},
             {"QString::toHtmlEscaped (4 entities)", [&] { return plain.toHtmlEscaped().size(); }},
             {"one map look-up per character", [&] { return naiveEscape(plain); }}});
}

void comparePadding()
{
    const QString text = QStringLiteral("total");
    compare("padding to 20,000 characters",
            {{"Text::leftAlign", [&] { return Text::leftAlign(text, 20000, '.').size(); }},
             {"one prepended at a time", [&] { return naivePadding(text, 20000); }}});
}

void compareDumps()
{
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen("/dev/null", "w"), &std::fclose);
    if (!file)
        return;
    const QByteArray bytes = sampleBytes(Megabyte);
    compare("dump of 1 MB",
            {{"Text::dump",
              [&] {
                  Text::dump(file.get(), bytes);
                  return bytes.size();
              }},
             {"one printf per byte", [&] { return naiveDump(file.get(), bytes); }}});
}

void compareUniqueFills()
{
    RandomGenerator random(1);
    compare("255 different bytes",
            {{"RandomGenerator::fillRange",
              [&] {
                  QByteArray bytes(255, '\0');
                  random.fillRange(bytes, true);
                  return bytes.size();
              }},
             {"one search of the array per draw", [&] { return naiveUniqueFill(random); }}});
}

void compareVerifiers()
{
    constexpr int Count = 10000;
    RandomGenerator random(1);
    DefaultUidVerifier verifier(16);
    QList<QByteArray> list;
    for (int i = 0; i < Count; ++i) {
        list.append(random.uuid());
        verifier.append(list.last());
    }
    const QByteArray unknown(16, '\0');
    const auto thousandTimes = [](auto contains) {
        qsizetype found = 0;
        for (int i = 0; i < 1000; ++i)
            found += contains() ? 1 : 0;
        return found;
    };
    compare("1,000 questions to a store of 10,000",
            {{"DefaultUidVerifier::contains",
              [&] { return thousandTimes([&] { return verifier.contains(unknown); }); }},
             {"QList::contains",
              [&] { return thousandTimes([&] { return list.contains(unknown); }); }}});
}

} // namespace

int main()
{
    compareHexa();
    compareUrlEncoding();
    compareEscapes();
    comparePadding();
    compareDumps();
    compareUniqueFills();
    compareVerifiers();
    return 0;
}
