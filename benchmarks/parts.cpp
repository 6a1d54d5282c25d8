// SPDX-License-Identifier: LGPL-2.1-or-later

// The library's parts beside their limits. Each repetition of Google Benchmark is one pair.
// usage: parts [--benchmark_...] | parts --count ROW | parts --grow GROWTH
// The second, under callgrind, runs the library's side of a row and then the limit's, and dumps the instructions of
// each. The third prints sizes and nanoseconds.

#include "benchmarks/row.h"

#include <QCoreApplication>
#include <QThread>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <valgrind/callgrind.h>

namespace {

constexpr int Pairs = 11;
constexpr int SlicesInPair = 20;
constexpr int SlicesCounted = 2;

double nanoseconds(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return double(now.tv_sec) * 1e9 + double(now.tv_nsec);
}

double timeOf(const Row::Work &work, clockid_t clock, int calls)
{
    const double began = nanoseconds(clock);
    work(calls);
    return (nanoseconds(clock) - began) / calls;
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

std::vector<Row> allRows()
{
    std::vector<Row> all;
    for (const auto rows : {listRows, logRows, threadRows, channelRows}) {
        for (Row &row : rows())
            all.push_back(std::move(row));
    }
    return all;
}

void runPair(benchmark::State &state, const Row &row)
{
    while (state.KeepRunning()) {
        const Row::Pair pair = row.measure();
        state.counters["limit"] = pair.limit;
        state.counters["library"] = pair.library;
        state.SetIterationTime(pair.library * 1e-9);
    }
}

int count(const Row &row)
{
    row.library(row.calls); // what is done once only
    row.limit(row.calls);
    const int calls = row.calls * SlicesCounted;
    CALLGRIND_ZERO_STATS;
    row.library(calls);
    CALLGRIND_DUMP_STATS_AT("library");
    CALLGRIND_ZERO_STATS;
    row.limit(calls);
    CALLGRIND_DUMP_STATS_AT("limit");
    std::printf("%d\n", calls);
    return 0;
}

int countRow(const std::string &name)
{
    for (const Row &row : allRows()) {
        if (row.name == name && row.calls)
            return count(row);
    }
    std::fprintf(stderr, "parts: no row of time is called %s\n", name.c_str());
    return 2;
}

// Long enough for the clock; the median of a few.
double timeOfOne(const Row::Work &work)
{
    constexpr double Enough = 2e7;
    constexpr int Times = 5;
    int calls = 1;
    while (timeOf(work, CLOCK_MONOTONIC, calls) * calls < Enough)
        calls *= 2;
    std::vector<double> times;
    for (int time = 0; time < Times; ++time)
        times.push_back(timeOf(work, CLOCK_MONOTONIC, calls));
    return median(times);
}

int grow(const std::string &name)
{
    for (const auto growths : {listGrowths, channelGrowths, logGrowths}) {
        for (const Growth &growth : growths()) {
            if (growth.name != name)
                continue;
            for (const int size : growth.sizes)
                std::printf("%d %.0f\n", size, timeOfOne(growth.work(size)));
            return 0;
        }
    }
    std::fprintf(stderr, "parts: nothing that grows is called %s\n", name.c_str());
    return 2;
}

} // namespace

Row Row::timed(std::string name, clockid_t clock, int calls, Work limit, Work library)
{
    const auto measure = [=] {
        std::vector<double> limits;
        std::vector<double> libraries;
        for (int slice = 0; slice < SlicesInPair; ++slice) {
            limits.push_back(timeOf(limit, clock, calls));
            libraries.push_back(timeOf(library, clock, calls));
            libraries.push_back(timeOf(library, clock, calls)); // so that neither is always the second
            limits.push_back(timeOf(limit, clock, calls));
        }
        return Pair{median(limits), median(libraries)};
    };
    return {std::move(name), measure, calls, limit, library};
}

int main(int argc, char **argv)
{
    qputenv("QT_LOGGING_RULES", "*=false");
    QCoreApplication application(argc, argv);
    const std::string option = argc == 3 ? argv[1] : "";
    if (option == "--count" || option == "--grow") {
        const int status = option == "--count" ? countRow(argv[2]) : grow(argv[2]);
        std::fflush(nullptr);
        std::_Exit(status);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    for (const Row &row : allRows()) {
        benchmark::RegisterBenchmark(row.name.c_str(), runPair, row)
            ->Iterations(1)
            ->Repetitions(Pairs)
            ->UseManualTime();
    }
    benchmark::RunSpecifiedBenchmarks();
    std::fflush(nullptr);
    std::_Exit(0); // a thread that waits for the mount table has no other end
}
