// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Identifiers and random values, compared with Qt's.

#include <kez/defaultuidverifier.h>
#include <kez/randomgenerator.h>
#include <kez/text.h>
#include <kez/uidgenerator.h>

#include <benchmark/benchmark.h>

#include <QSet>
#include <QUuid>

#include <algorithm>

namespace {

constexpr unsigned char UidSize = 16;

QByteArray uid()
{
    return QByteArray::fromHex("0f3c2a9e51b74c0d9a2e7b4f10c3d8e1");
}

void uidText(benchmark::State& state)
{
    const QByteArray bytes = uid();
    for (auto _ : state)
        benchmark::DoNotOptimize(UidGenerator::toUUID(bytes));
}
BENCHMARK(uidText)->Name("UidText/kez");

void uidTextByQt(benchmark::State& state)
{
    const QUuid uuid = QUuid::fromRfc4122(uid());
    for (auto _ : state)
        benchmark::DoNotOptimize(uuid.toString(QUuid::WithoutBraces));
}
BENCHMARK(uidTextByQt)->Name("UidText/QUuid");

void uidOfAnotherSizeText(benchmark::State& state)
{
    const QByteArray bytes = uid().first(state.range());
    for (auto _ : state)
        benchmark::DoNotOptimize(UidGenerator::toUUID(bytes));
}
BENCHMARK(uidOfAnotherSizeText)->Name("UidText/kez_padded")->Arg(8);

void generate(benchmark::State& state)
{
    UidGenerator* const generator = UidGenerator::getInstance(UidSize);
    for (auto _ : state)
        benchmark::DoNotOptimize(generator->generate());
}
BENCHMARK(generate)->Name("UidNew/kez");

void generateByQt(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(QUuid::createUuid().toRfc4122());
}
BENCHMARK(generateByQt)->Name("UidNew/QUuid");

// The store: one append or question of an identifier, by the number of identifiers

QList<QByteArray> uids(qint64 count)
{
    RandomGenerator random(1);
    QList<QByteArray> result;
    for (qint64 i = 0; i < count; ++i) {
        QByteArray bytes(UidSize, Qt::Uninitialized);
        random.fillRange(bytes, false);
        result.append(bytes);
    }
    return result;
}

/// What DefaultUidVerifier would be at least.
class Set {
public:
    bool contains(const QByteArray& bytes) const { return _set.contains(bytes); }
    void append(const QByteArray& bytes) { _set.insert(bytes); }

private:
    QSet<QByteArray> _set;
};

class Verifier : public DefaultUidVerifier {
public:
    Verifier() : DefaultUidVerifier(UidSize) {}
};

template <typename Store>
void append(benchmark::State& state)
{
    const QList<QByteArray> all = uids(state.range());
    for (auto _ : state) {
        Store store;
        for (const QByteArray& bytes : all)
            store.append(bytes);
        benchmark::DoNotOptimize(store);
    }
    state.SetItemsProcessed(state.iterations() * all.size());
}

/// Half of the questions are about identifiers that are in the store.
template <typename Store>
void contains(benchmark::State& state)
{
    const QList<QByteArray> all = uids(2 * state.range());
    Store store;
    for (qsizetype i = 0; i < all.size(); i += 2)
        store.append(all[i]);
    for (auto _ : state)
        benchmark::DoNotOptimize(
            std::count_if(all.begin(), all.end(),
                          [&](const QByteArray& bytes) { return store.contains(bytes); }));
    state.SetItemsProcessed(state.iterations() * all.size());
}

void sizes(benchmark::internal::Benchmark* store)
{
    store->Arg(1'000)->Arg(10'000)->Arg(100'000);
}

BENCHMARK_TEMPLATE(append, Verifier)->Name("IdStoreAppend/kez")->Apply(sizes);
BENCHMARK_TEMPLATE(append, Set)->Name("IdStoreAppend/QSet")->Apply(sizes);
BENCHMARK_TEMPLATE(contains, Verifier)->Name("IdStoreContains/kez")->Apply(sizes);
BENCHMARK_TEMPLATE(contains, Set)->Name("IdStoreContains/QSet")->Apply(sizes);

// Random bytes and keys

/// 255 different bytes; each draw is searched for in the whole array.
void fillByRule(RandomGenerator& random, QByteArray& bytes)
{
    bytes.fill('\0');
    for (char& byte : bytes) {
        auto drawn = static_cast<char>(random.bounded(0, 256));
        while (bytes.contains(drawn))
            drawn = static_cast<char>(random.bounded(0, 256));
        byte = drawn;
    }
}

void fillByKez(RandomGenerator& random, QByteArray& bytes)
{
    random.fillRange(bytes, true);
}

void uniqueFill(benchmark::State& state, void (*fill)(RandomGenerator&, QByteArray&))
{
    RandomGenerator random(1);
    QByteArray bytes(255, Qt::Uninitialized);
    for (auto _ : state) {
        fill(random, bytes);
        benchmark::DoNotOptimize(bytes.data());
    }
}
BENCHMARK_CAPTURE(uniqueFill, kez, fillByKez)->Name("UniqueFill/kez");
BENCHMARK_CAPTURE(uniqueFill, rule, fillByRule)->Name("UniqueFill/search_per_draw");

void key(benchmark::State& state)
{
    RandomGenerator random(1);
    for (auto _ : state)
        benchmark::DoNotOptimize(random.key(16, true, ':'));
}
BENCHMARK(key)->Name("Key/kez");

void keyByQt(benchmark::State& state)
{
    RandomGenerator random(1);
    for (auto _ : state)
        benchmark::DoNotOptimize(QString::fromLatin1(random.uuid().toHex(':')));
}
BENCHMARK(keyByQt)->Name("Key/QByteArray");

} // namespace
