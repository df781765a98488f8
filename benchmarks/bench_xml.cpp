// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Compares a tree with the stream reader that it is built with, which keeps nothing, and with Qt's
// own document class if that is installed: reading, a search, writing, releasing. Times are medians
// of rounds in which the contenders take turns. Compare the ratios (to Kez) within one run.

#include <kez/simpledom.h>

#include <QXmlStreamReader>
#include <QXmlStreamWriter>
#ifdef KEZ_BENCH_QTXML
#include <QDomDocument>
#endif

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int Rounds = 5;

/// Receives the results, so that the compiler cannot omit a call.
volatile qsizetype s_sink = 0;

using Step = std::function<qsizetype()>;

/// One way of handling a document; steps that it does not have are empty.
struct Contender {
    std::string name;
    Step read;
    Step search;
    Step write;
    Step release;
};

double timed(const Step& step)
{
    const auto start = std::chrono::steady_clock::now();
    s_sink = step();
    const std::chrono::duration<double, std::milli> elapsed =
        std::chrono::steady_clock::now() - start;
    return elapsed.count();
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void compare(const char* title, const std::vector<Contender>& contenders)
{
    using StepOf = Step Contender::*;
    const std::vector<std::pair<const char*, StepOf>> steps = {{"read", &Contender::read},
                                                               {"search", &Contender::search},
                                                               {"write", &Contender::write},
                                                               {"release", &Contender::release}};
    std::vector<std::vector<double>> times(steps.size() * contenders.size());
    for (int round = 0; round < Rounds; ++round) {
        for (size_t c = 0; c < contenders.size(); ++c) {
            for (size_t s = 0; s < steps.size(); ++s) {
                const Step& step = contenders[c].*steps[s].second;
                if (step)
                    times[s * contenders.size() + c].push_back(timed(step));
            }
        }
    }
    std::printf("%s\n", title);
    for (size_t s = 0; s < steps.size(); ++s) {
        const double reference = median(times[s * contenders.size()]);
        for (size_t c = 0; c < contenders.size(); ++c) {
            const auto& measured = times[s * contenders.size() + c];
            if (measured.empty())
                continue;
            std::printf("  %-8s %-32s %10.3f ms  %8.2f\n", steps[s].first,
                        contenders[c].name.c_str(), median(measured), median(measured) / reference);
        }
    }
}

Contender kezTree(const QString& xml)
{
    const auto dom = std::make_shared<std::unique_ptr<SimpleDom>>();
    return {"Kez SimpleDom",
            [dom, xml] {
                *dom = std::make_unique<SimpleDom>(xml);
                return xml.size();
            },
            [dom] { return (*dom)->elementsByName(QStringLiteral("item")).size(); },
            [dom] { return (*dom)->toString(false).size(); },
            [dom] {
                dom->reset();
                return qsizetype(0);
            }};
}

qsizetype readTokens(const QString& xml)
{
    QXmlStreamReader reader(xml);
    qsizetype tokens = 0;
    while (!reader.atEnd()) {
        reader.readNext();
        ++tokens;
    }
    return tokens;
}

qsizetype searchTokens(const QString& xml)
{
    QXmlStreamReader reader(xml);
    qsizetype found = 0;
    while (!reader.atEnd()) {
        if (reader.readNext() == QXmlStreamReader::StartElement)
            found += reader.name() == QLatin1String("item");
    }
    return found;
}

qsizetype copyTokens(const QString& xml)
{
    QXmlStreamReader reader(xml);
    QString text;
    QXmlStreamWriter writer(&text);
    while (!reader.atEnd()) {
        if (reader.readNext() != QXmlStreamReader::Invalid)
            writer.writeCurrentToken(reader);
    }
    return text.size();
}

Contender streamReader(const QString& xml)
{
    return {"QXmlStreamReader, keeping nothing",
            [xml] { return readTokens(xml); },
            [xml] { return searchTokens(xml); },
            [xml] { return copyTokens(xml); },
            {}};
}

#ifdef KEZ_BENCH_QTXML
Contender qtTree(const QString& xml)
{
    const auto document = std::make_shared<QDomDocument>();
    return {"QDomDocument",
            [document, xml] {
                document->setContent(xml);
                return xml.size();
            },
            [document] {
                // The list searches again at every access, so only its length is taken.
                qsizetype found = 0;
                const QDomNodeList list = document->elementsByTagName(QStringLiteral("item"));
                found += list.length();
                return found;
            },
            [document] { return document->toString(-1).size(); },
            [document] {
                *document = QDomDocument();
                return qsizetype(0);
            }};
}
#endif

void compareDocuments(const char* title, const QString& xml, bool isDeep)
{
    std::vector<Contender> contenders = {kezTree(xml), streamReader(xml)};
#ifdef KEZ_BENCH_QTXML
    if (!isDeep) // it recurses, and a deep document ends the process
        contenders.push_back(qtTree(xml));
#else
    static_cast<void>(isDeep);
#endif
    compare(title, contenders);
}

QString orders(int count)
{
    QString xml = QStringLiteral("<orders>");
    for (int i = 0; i < count; ++i)
        xml += QStringLiteral("<item id=\"%1\" client=\"ACME\"><name>Nuts and bolts</name></item>")
                   .arg(i);
    return xml + QStringLiteral("</orders>");
}

QString nested(int depth)
{
    return QStringLiteral("<item>").repeated(depth) + QStringLiteral("</item>").repeated(depth);
}

} // namespace

int main()
{
    compareDocuments("20 elements", orders(10), false);
    compareDocuments("20,000 elements", orders(10'000), false);
    compareDocuments("1,000,000 elements", orders(500'000), false);
    compareDocuments("nested 100,000 deep", nested(100'000), true);
    return 0;
}
