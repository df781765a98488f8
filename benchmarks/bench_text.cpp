// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Hexadecimal texts, compared with Qt's ways to the same texts.

#include <kez/text.h>

#include <benchmark/benchmark.h>

#include <QByteArray>
#include <QString>

namespace {

constexpr qsizetype Mebibyte = 1 << 20;

QByteArray everyByte(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 31 % 256);
    return bytes;
}

void hexa(benchmark::State& state, char separator)
{
    const QByteArray bytes = everyByte(Mebibyte);
    for (auto _ : state)
        benchmark::DoNotOptimize(Text::toHexa(bytes, true, separator));
}

void hexaByQt(benchmark::State& state, char separator)
{
    const QByteArray bytes = everyByte(Mebibyte);
    for (auto _ : state)
        benchmark::DoNotOptimize(QString::fromLatin1(bytes.toHex(separator)));
}

BENCHMARK_CAPTURE(hexa, plain, '\0')->Name("Hexa/kez");
BENCHMARK_CAPTURE(hexaByQt, plain, '\0')->Name("Hexa/QByteArray");
BENCHMARK_CAPTURE(hexa, separated, ':')->Name("HexaSeparated/kez");
BENCHMARK_CAPTURE(hexaByQt, separated, ':')->Name("HexaSeparated/QByteArray");

} // namespace
