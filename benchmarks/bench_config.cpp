// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Properties files, read and written, compared with the INI readers of Boost and Qt. The limits
// read the file whole and split its lines, and write ready lines to the kernel one by one.

#include <kez/configuration.h>
#include <kez/filehelper.h>
#include <kez/properties.h>

#include <benchmark/benchmark.h>

#include <QDateTime>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

#ifdef KEZ_BENCH_BOOST
#include <boost/property_tree/ini_parser.hpp>
#endif

#include <algorithm>
#include <random>

#include <fcntl.h>
#include <unistd.h>

namespace {

/// Mixed: 20 characters, and a value of up to 40. Short: texts that a std::string holds in place.
enum class Texts { Mixed, Short };
enum class Order { Shuffled, Sorted };

QByteArray mixedLine(int index, const QByteArray& number)
{
    const QByteArray key = "module" + number.last(2) + ".setting" + number.first(4);
    switch (index % 3) {
    case 0:
        return key + "=" + QByteArray::number(index * 64);
    case 1:
        return key + "=/var/lib/application/data/" + number;
    default:
        return key + "=text that an operator reads, no. " + number;
    }
}

QByteArray lineOf(int index, Texts texts)
{
    const QByteArray number = QByteArray::number(index).rightJustified(6, '0');
    return texts == Texts::Short ? "key." + number + "=value " + number : mixedLine(index, number);
}

QByteArrayList lines(qint64 count, Order order, Texts texts)
{
    QByteArrayList result;
    for (int i = 0; i < count; ++i)
        result.append(lineOf(i, texts));
    if (order == Order::Sorted)
        std::sort(result.begin(), result.end());
    else
        std::shuffle(result.begin(), result.end(), std::mt19937(7));
    return result;
}

/// A properties file for as long as the benchmark runs.
class PropertiesFile {
public:
    PropertiesFile(benchmark::State& state, Order order, Texts texts)
    {
        QFile file(path());
        if (!file.open(QIODevice::WriteOnly) ||
            file.write(lines(state.range(0), order, texts).join('\n') + '\n') < 0)
            state.SkipWithError("The file cannot be written");
    }

    QString path() const { return _directory.filePath(QStringLiteral("app.properties")); }

private:
    QTemporaryDir _directory;
};

/// Measures `read(path)` per line of the file, with the end of what it returns.
template <typename Read>
void readFile(benchmark::State& state, Texts texts, Order order, Read read)
{
    const PropertiesFile file(state, order, texts);
    const QString path = file.path();
    for (auto _ : state)
        benchmark::DoNotOptimize(read(path));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

std::shared_ptr<Properties> readProperties(const QString& path)
{
    return Properties::loadProperties(path);
}

Dictionnary readByHelper(const QString& path)
{
    return FileHelper::loadProperties(path);
}

std::shared_ptr<Config> readConfig(const QString& path)
{
    return Config::load(path, QString());
}

qsizetype readBySettings(const QString& path)
{
    static qint64 time = 0; // QSettings reads a file again if it has a new time
    QFile file(path);
    file.open(QIODevice::ReadWrite);
    file.setFileTime(QDateTime::fromSecsSinceEpoch(++time), QFile::FileModificationTime);
    return QSettings(path, QSettings::IniFormat).allKeys().size();
}

qsizetype splitIntoLines(const QString& path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n')).size();
}

constexpr qint64 Many = 100'000;

void growing(benchmark::internal::Benchmark* registered)
{
    registered->RangeMultiplier(10)->Range(1000, Many);
}

// READ(name, texts, order, function)
#define READ(NAME, TEXTS, ORDER, FUNCTION)                                                         \
    BENCHMARK_CAPTURE(readFile, NAME, Texts::TEXTS, Order::ORDER, FUNCTION)->Name(NAME)

READ("PropertiesRead/kez", Mixed, Shuffled, readProperties)->Apply(growing);
READ("PropertiesRead/QSettings", Mixed, Shuffled, readBySettings)->Arg(Many);
READ("PropertiesRead/limit_split", Mixed, Shuffled, splitIntoLines)->Arg(Many);
READ("PropertiesReadSorted/kez", Mixed, Sorted, readProperties)->Arg(Many);
READ("PropertiesReadShort/kez", Short, Shuffled, readProperties)->Arg(Many);
READ("PropertiesReadShortSorted/kez", Short, Sorted, readProperties)->Arg(Many);
READ("DictionnaryRead/kez", Mixed, Shuffled, readByHelper)->Arg(Many);
READ("DictionnaryReadSorted/kez", Mixed, Sorted, readByHelper)->Arg(Many);
READ("ConfigLoad/kez", Mixed, Shuffled, readConfig)->Arg(Many);

#ifdef KEZ_BENCH_BOOST

boost::property_tree::ptree readByBoost(const QString& path)
{
    boost::property_tree::ptree tree;
    boost::property_tree::read_ini(path.toStdString(), tree);
    return tree;
}

READ("PropertiesRead/boost_ini", Mixed, Shuffled, readByBoost)->Apply(growing);
READ("PropertiesReadSorted/boost_ini", Mixed, Sorted, readByBoost)->Arg(Many);
READ("PropertiesReadShort/boost_ini", Short, Shuffled, readByBoost)->Arg(Many);
READ("PropertiesReadShortSorted/boost_ini", Short, Sorted, readByBoost)->Arg(Many);
READ("DictionnaryRead/boost_ini", Mixed, Shuffled, readByBoost)->Arg(Many);
READ("DictionnaryReadSorted/boost_ini", Mixed, Sorted, readByBoost)->Arg(Many);
READ("ConfigLoad/boost_ini", Mixed, Shuffled, readByBoost)->Arg(Many);

#endif

Dictionnary entries(qint64 count)
{
    Dictionnary result;
    for (int i = 0; i < count; ++i) {
        const QString line = QString::fromLatin1(lineOf(i, Texts::Mixed));
        result.insert(line.section(QLatin1Char('='), 0, 0), line.section(QLatin1Char('='), 1));
    }
    return result;
}

void write(benchmark::State& state)
{
    const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("app.properties"));
    const Dictionnary map = entries(state.range(0));
    for (auto _ : state)
        Properties::saveProperties(path, map, true);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

/// What any writer has to do that hands each line to the kernel.
void writeReadyLines(benchmark::State& state)
{
    const QTemporaryDir directory;
    const QByteArray path = QFile::encodeName(directory.filePath(QStringLiteral("app.properties")));
    QByteArrayList ready = lines(state.range(0), Order::Sorted, Texts::Mixed);
    for (QByteArray& line : ready)
        line += '\n';
    for (auto _ : state) {
        unlink(path.constData());
        const int file = open(path.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        for (const QByteArray& line : std::as_const(ready)) {
            if (::write(file, line.constData(), static_cast<size_t>(line.size())) != line.size())
                state.SkipWithError("The line cannot be written");
        }
        close(file);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(write)->Name("PropertiesWrite/kez")->Arg(1000);
BENCHMARK(writeReadyLines)->Name("PropertiesWrite/limit_write")->Arg(1000);

} // namespace
