// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// The registry of classes with more and more of them: no function may become slower than a search
// in Qt's map does.

#include <kez/metatypes.h>

#include <benchmark/benchmark.h>

#include <QMap>

#include <algorithm>
#include <numeric>
#include <random>

namespace {

constexpr int FirstId = 10000;

QString className(int number)
{
    return QStringLiteral("Application::Class%1").arg(number, 6, 10, QLatin1Char('0'));
}

/// The numbers below `count` in an order that is always the same.
std::vector<int> shuffled(int count)
{
    std::vector<int> numbers(static_cast<std::size_t>(count));
    std::iota(numbers.begin(), numbers.end(), 0);
    std::shuffle(numbers.begin(), numbers.end(), std::mt19937(4711));
    return numbers;
}

QStringList shuffledNames(int count)
{
    QStringList names;
    for (const int number : shuffled(count))
        names.append(className(number));
    return names;
}

/// That many classes in the registry, as long as it lives. The ids are not Qt's.
class RegisteredClasses {
public:
    explicit RegisteredClasses(int count) : _names(shuffledNames(count))
    {
        for (int i = 0; i < count; ++i)
            MetaTypes::getInstance()->insertMetaType(_names.at(i), FirstId + i, i);
    }

    ~RegisteredClasses()
    {
        for (const QString& name : std::as_const(_names))
            MetaTypes::getInstance()->removeMetaType(name);
    }

    Q_DISABLE_COPY_MOVE(RegisteredClasses)

private:
    QStringList _names;
};

template <typename Argument, typename LookUp>
void forEach(benchmark::State& state, const Argument& arguments, LookUp lookUp)
{
    for (auto _ : state) {
        for (const auto& argument : arguments)
            benchmark::DoNotOptimize(lookUp(argument));
    }
    state.SetItemsProcessed(state.iterations() * static_cast<qint64>(arguments.size()));
}

void lookUpByName(benchmark::State& state)
{
    const auto count = static_cast<int>(state.range(0));
    const RegisteredClasses classes(count);
    forEach(state, shuffledNames(count),
            [](const QString& name) { return MetaTypes::getInstance()->typeId(name); });
}

void lookUpInMap(benchmark::State& state)
{
    const auto count = static_cast<int>(state.range(0));
    QMap<QString, int> ids;
    for (int i = 0; i < count; ++i)
        ids.insert(className(i), i);
    forEach(state, shuffledNames(count),
            [&](const QString& name) { return std::as_const(ids).value(name); });
}

void lookUpByInvariantId(benchmark::State& state)
{
    const auto count = static_cast<int>(state.range(0));
    const RegisteredClasses classes(count);
    forEach(state, shuffled(count),
            [](int number) { return MetaTypes::getInstance()->typeId(FirstId + number); });
}

void lookUpByTypeId(benchmark::State& state)
{
    const auto count = static_cast<int>(state.range(0));
    const RegisteredClasses classes(count);
    forEach(state, shuffled(count),
            [](int number) { return MetaTypes::getInstance()->invariantType(number); });
}

void nextInvariantId(benchmark::State& state)
{
    const RegisteredClasses classes(static_cast<int>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(MetaTypes::getInstance()->nextInvariantId());
    state.SetItemsProcessed(state.iterations());
}

/// Registers every class with the next invariant id, and removes it again.
void registerAndRemove(benchmark::State& state)
{
    const QStringList names = shuffledNames(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        int typeId = 0;
        for (const QString& name : names)
            MetaTypes::getInstance()->insertMetaType(name, ++typeId);
        for (const QString& name : names)
            MetaTypes::getInstance()->removeMetaType(name);
    }
    state.SetItemsProcessed(state.iterations() * names.size());
}

void insertAndRemoveInMap(benchmark::State& state)
{
    const QStringList names = shuffledNames(static_cast<int>(state.range(0)));
    QMap<QString, int> ids;
    for (auto _ : state) {
        int typeId = 0;
        for (const QString& name : names)
            ids.insert(name, ++typeId);
        for (const QString& name : names)
            ids.remove(name);
    }
    state.SetItemsProcessed(state.iterations() * names.size());
}

void sizes(benchmark::internal::Benchmark* growing)
{
    growing->RangeMultiplier(10)->Range(1000, 100000);
}

BENCHMARK(lookUpByName)->Name("RegistryByName/kez")->Apply(sizes);
BENCHMARK(lookUpInMap)->Name("RegistryByName/QMap")->Apply(sizes);
BENCHMARK(lookUpByInvariantId)->Name("RegistryByInvariantId/kez")->Apply(sizes);
BENCHMARK(lookUpByTypeId)->Name("RegistryByTypeId/kez")->Apply(sizes);
BENCHMARK(nextInvariantId)->Name("RegistryNextId/kez")->Apply(sizes);
BENCHMARK(registerAndRemove)->Name("RegistryInsertRemove/kez")->Apply(sizes);
BENCHMARK(insertAndRemoveInMap)->Name("RegistryInsertRemove/QMap")->Apply(sizes);

} // namespace
