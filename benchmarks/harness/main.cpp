// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/log.h>

#include <benchmark/benchmark.h>

#include <QCoreApplication>

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    Log::initInstance()->setFilter(LoggerLevel::info); // debug traces are off, as in a service

    benchmark::AddCustomContext("qt", qVersion());
    benchmark::AddCustomContext("peers", PEERS);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
