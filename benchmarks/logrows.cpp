// SPDX-License-Identifier: LGPL-2.1-or-later

// Lines whose level is off.

#include "benchmarks/row.h"
#include "log/ratelimitedlog.h"

#include <benchmark/benchmark.h>

#include <thread>

#include <time.h>

namespace {

constexpr int LinesOfAnInterval = 1000; // after these the channel would only look

void askInfo(int calls)
{
    for (int call = 0; call < calls; ++call)
        benchmark::DoNotOptimize(QLoggingCategory::defaultCategory()->isInfoEnabled());
}

void askDebug(int calls)
{
    for (int call = 0; call < calls; ++call)
        benchmark::DoNotOptimize(QLoggingCategory::defaultCategory()->isDebugEnabled());
}

void writeLimited(int calls)
{
    for (int call = 0; call < calls; call += LinesOfAnInterval) {
        RateLimitedLog log("infoLogOutput");
        benchmark::DoNotOptimize(&log); // others may see it
        for (int line = 0; line < LinesOfAnInterval; ++line)
            log.write([] { return QStringLiteral(" Redirect device by deviceID"); });
    }
}

void writePlain(int calls)
{
    for (int call = 0; call < calls; ++call)
        Log::module(QtDebugMsg, __func__, " enter to call function. ", call);
}

// Each thread writes a line for each call, into a message handler that drops it.
Row::Work writeFrom(int threads)
{
    QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, true);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    return [threads](int calls) {
        std::vector<std::thread> writers;
        for (int thread = 0; thread < threads; ++thread)
            writers.emplace_back(writePlain, calls);
        for (std::thread &writer : writers)
            writer.join();
    };
}

} // namespace

std::vector<Growth> logGrowths()
{
    return {{"threads", {1, 2, 4, 8, 16}, writeFrom}};
}

std::vector<Row> logRows()
{
    constexpr int Calls = 10 * LinesOfAnInterval;
    return {
        Row::timed("limited-line", CLOCK_THREAD_CPUTIME_ID, Calls, askInfo, writeLimited),
        Row::timed("line", CLOCK_THREAD_CPUTIME_ID, Calls, askDebug, writePlain),
    };
}
