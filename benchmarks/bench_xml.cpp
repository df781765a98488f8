// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// An XML tree: reading, searching, writing, releasing, and the memory that it needs. The limits are
// Qt's stream reader, which reads the trees and keeps nothing itself, and the release by recursion
// of a plain tree of the same values.

#include <kez/simpledom.h>

#include "harness/stopwatch.h"

#include <benchmark/benchmark.h>

#include <QMap>
#include <QXmlStreamReader>
#ifdef KEZ_BENCH_PUGIXML
#include <pugixml.hpp>
#endif
#ifdef KEZ_BENCH_QDOMDOCUMENT
#include <QDomDocument>
#endif

#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <malloc.h>

namespace {

/// Orders on one line: of its two elements, one has attributes and the other has a text.
struct Document {
    QString xml;
    qsizetype elements;
};

const Document& orders(qint64 size)
{
    static std::map<qint64, Document> s_documents;
    const auto [place, isNew] = s_documents.try_emplace(size);
    auto& [xml, elements] = place->second;
    if (!isNew)
        return place->second;
    xml = QStringLiteral("<orders>");
    elements = 1;
    for (int id = 0; xml.size() < size; ++id, elements += 2)
        xml += QStringLiteral("<item id=\"%1\" client=\"ACME\"><name>Nuts and bolts</name></item>")
                   .arg(id);
    xml += QStringLiteral("</orders>");
    return place->second;
}

void countElements(benchmark::State& state)
{
    state.SetItemsProcessed(state.iterations() * orders(state.range(0)).elements);
}

// Trees

struct Kez {
    static std::unique_ptr<SimpleDom> read(const QString& xml)
    {
        return std::make_unique<SimpleDom>(xml);
    }
    static qsizetype search(const SimpleDom& tree)
    {
        return tree.elementsByName(QStringLiteral("item")).size();
    }
    static QString write(const SimpleDom& tree) { return tree.toString(false); }
};

#ifdef KEZ_BENCH_PUGIXML
struct PugiXml {
    /// The bytes are encoded beforehand: the parser is made for them.
    static std::unique_ptr<pugi::xml_document> read(const std::string& xml)
    {
        auto tree = std::make_unique<pugi::xml_document>();
        tree->load_buffer(xml.data(), xml.size());
        return tree;
    }
    static qsizetype search(const pugi::xml_document& tree)
    {
        return static_cast<qsizetype>(tree.select_nodes("//item").size());
    }
    static std::string write(const pugi::xml_document& tree)
    {
        struct Output : pugi::xml_writer {
            void write(const void* data, size_t size) override
            {
                text.append(static_cast<const char*>(data), size);
            }
            std::string text;
        } output;
        tree.save(output, "",
                  pugi::format_raw | pugi::format_no_declaration | pugi::format_no_escapes);
        return std::move(output.text);
    }
};
#endif

#ifdef KEZ_BENCH_QDOMDOCUMENT
struct QtDom {
    static std::unique_ptr<QDomDocument> read(const QString& xml)
    {
        auto tree = std::make_unique<QDomDocument>();
        tree->setContent(xml);
        return tree;
    }
    static qsizetype search(const QDomDocument& tree)
    {
        return tree.elementsByTagName(QStringLiteral("item")).length();
    }
    static QString write(const QDomDocument& tree) { return tree.toString(-1); }
};
#endif

/// The document as the tree's reader takes it.
template <typename Tree>
auto input(qint64 size)
{
#ifdef KEZ_BENCH_PUGIXML
    if constexpr (std::is_same_v<Tree, PugiXml>)
        return orders(size).xml.toStdString();
    else
#endif
        return orders(size).xml;
}

template <typename Tree>
void read(benchmark::State& state)
{
    const auto xml = input<Tree>(state.range(0));
    for (auto _ : state) {
        auto tree = Tree::read(xml);
        state.PauseTiming();
        tree.reset();
        state.ResumeTiming();
    }
    countElements(state);
}

template <typename Tree>
void search(benchmark::State& state)
{
    const auto tree = Tree::read(input<Tree>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(Tree::search(*tree));
    countElements(state);
}

template <typename Tree>
void write(benchmark::State& state)
{
    const auto tree = Tree::read(input<Tree>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(Tree::write(*tree));
    countElements(state);
}

/// Not for pugixml, which frees blocks of memory and not elements.
template <typename Tree>
void release(benchmark::State& state)
{
    const auto xml = input<Tree>(state.range(0));
    for (auto _ : state) {
        auto tree = Tree::read(xml);
        timeAlone(state, [&tree] { tree.reset(); });
    }
    countElements(state);
}

double allocatedBytes()
{
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

template <typename Tree>
void memory(benchmark::State& state)
{
    constexpr qint64 Size = 10'000'000;
    const auto xml = input<Tree>(Size);
    double bytes = 0;
    for (auto _ : state) {
        const double before = allocatedBytes();
        const auto tree = Tree::read(xml);
        bytes = allocatedBytes() - before;
    }
    state.counters["bytes_per_element"] = bytes / static_cast<double>(orders(Size).elements);
}

// Limits

void readByStreamReader(benchmark::State& state)
{
    const QString& xml = orders(state.range(0)).xml;
    for (auto _ : state) {
        QXmlStreamReader reader(xml);
        while (!reader.atEnd())
            benchmark::DoNotOptimize(reader.readNext());
    }
    countElements(state);
}

struct Plain {
    static std::unique_ptr<Plain> read(const QString& xml);

    QString name;
    QString text;
    QMap<QString, QString> attributes;
    std::vector<std::unique_ptr<Plain>> children;
};

std::unique_ptr<Plain> Plain::read(const QString& xml)
{
    QXmlStreamReader reader(xml);
    auto document = std::make_unique<Plain>();
    std::vector<Plain*> open{document.get()};
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            open.push_back(open.back()->children.emplace_back(std::make_unique<Plain>()).get());
            open.back()->name = reader.name().toString();
            for (const QXmlStreamAttribute& attribute : reader.attributes())
                open.back()->attributes.insert(attribute.name().toString(),
                                               attribute.value().toString());
            break;
        case QXmlStreamReader::EndElement:
            open.pop_back();
            break;
        case QXmlStreamReader::Characters:
            open.back()->text = reader.text().toString();
            break;
        default:
            break;
        }
    }
    return document;
}

// A tree as deep as the document is long.

QString nested(const benchmark::State& state)
{
    const qsizetype depth = static_cast<qsizetype>(state.range(0));
    return QStringLiteral("<item>").repeated(depth) + QStringLiteral("</item>").repeated(depth);
}

void nestedByKez(benchmark::State& state)
{
    const QString xml = nested(state);
    for (auto _ : state)
        benchmark::DoNotOptimize(SimpleDom(xml).toString(false));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void nestedByStreamReader(benchmark::State& state)
{
    const QString xml = nested(state);
    for (auto _ : state) {
        QXmlStreamReader reader(xml);
        while (!reader.atEnd())
            benchmark::DoNotOptimize(reader.readNext());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// In characters.
void sizes(benchmark::internal::Benchmark* registered)
{
    registered->RangeMultiplier(10)->Range(100'000, 10'000'000)->Unit(benchmark::kMillisecond);
}

BENCHMARK(read<Kez>)->Name("XmlRead/kez")->Apply(sizes);
#ifdef KEZ_BENCH_PUGIXML
BENCHMARK(read<PugiXml>)->Name("XmlRead/pugixml")->Apply(sizes);
#endif
#ifdef KEZ_BENCH_QDOMDOCUMENT
BENCHMARK(read<QtDom>)->Name("XmlRead/QDomDocument")->Apply(sizes);
#endif
BENCHMARK(readByStreamReader)->Name("XmlRead/limit_stream_reader")->Apply(sizes);

BENCHMARK(search<Kez>)->Name("XmlSearch/kez")->Apply(sizes);
#ifdef KEZ_BENCH_PUGIXML
BENCHMARK(search<PugiXml>)->Name("XmlSearch/pugixml")->Apply(sizes);
#endif
#ifdef KEZ_BENCH_QDOMDOCUMENT
BENCHMARK(search<QtDom>)->Name("XmlSearch/QDomDocument")->Apply(sizes);
#endif

BENCHMARK(write<Kez>)->Name("XmlWrite/kez")->Apply(sizes);
#ifdef KEZ_BENCH_PUGIXML
BENCHMARK(write<PugiXml>)->Name("XmlWrite/pugixml")->Apply(sizes);
#endif
#ifdef KEZ_BENCH_QDOMDOCUMENT
BENCHMARK(write<QtDom>)->Name("XmlWrite/QDomDocument")->Apply(sizes);
#endif

BENCHMARK(release<Kez>)->Name("XmlRelease/kez")->Apply(sizes)->UseManualTime();
#ifdef KEZ_BENCH_QDOMDOCUMENT
BENCHMARK(release<QtDom>)->Name("XmlRelease/QDomDocument")->Apply(sizes)->UseManualTime();
#endif
BENCHMARK(release<Plain>)
    ->Name("XmlRelease/limit_recursive_release")
    ->Apply(sizes)
    ->UseManualTime();

BENCHMARK(memory<Kez>)->Name("XmlMemory/kez")->Iterations(1);
#ifdef KEZ_BENCH_PUGIXML
BENCHMARK(memory<PugiXml>)->Name("XmlMemory/pugixml")->Iterations(1);
#endif
#ifdef KEZ_BENCH_QDOMDOCUMENT
BENCHMARK(memory<QtDom>)->Name("XmlMemory/QDomDocument")->Iterations(1);
#endif
BENCHMARK(memory<Plain>)->Name("XmlMemory/limit_plain_tree")->Iterations(1);

BENCHMARK(nestedByKez)->Name("XmlNested/kez")->RangeMultiplier(10)->Range(1'000, 100'000);
BENCHMARK(nestedByStreamReader)
    ->Name("XmlNested/limit_stream_reader")
    ->RangeMultiplier(10)
    ->Range(1'000, 100'000);

} // namespace
