// Reading the clock and updating a published counter, beside the bare system call and what a program
// has without the library.

#include "bench/support/row.h"

#include "general/chrono.h"
#include "general/perf.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <vector>
#include <windows.h>

namespace {

void readClock(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(ChronoNow());
}

void readCounter(benchmark::State &state)
{
    LARGE_INTEGER ticks;
    for (auto _ : state) {
        QueryPerformanceCounter(&ticks);
        benchmark::DoNotOptimize(ticks.QuadPart);
    }
}

void readSteadyClock(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(std::chrono::steady_clock::now());
}

void readStopwatch(benchmark::State &state)
{
    ChronoRec stopwatch;
    ChronoInit(&stopwatch);
    for (auto _ : state)
        benchmark::DoNotOptimize(ChronoTime(&stopwatch, 1));
}

void readSteadyStopwatch(benchmark::State &state)
{
    auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        auto now = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(std::chrono::duration<double>(now - start).count());
        start = now;
    }
}

constexpr uint32_t counters = 8;

void applyDelta(benchmark::State &state)
{
    std::vector<PerfCounterDef> definitions;
    for (uint32_t id = 1; id <= counters; ++id)
        definitions.push_back(PerfCounterDef{id, 0, 0, 0, 0, 0});
    PerfObjectDef object = {0, 0, 0, definitions.data(), counters, 0, 0};
    if (PerfInit("general_time_bench", &object, 1) != PERF_OK)
        state.SkipWithError("no segment");
    for (auto _ : state)
        PerfApplyDelta(counters, 1); // the last of the records
    PerfShutdown();
}

std::atomic<uint32_t> atomicCounter;

void addToAtomic(benchmark::State &state)
{
    for (auto _ : state)
        atomicCounter.fetch_add(1, std::memory_order_relaxed);
}

const bool registered = [] {
    // An aim of 1 / 1.2: at most 1.2 times what the bare call costs.
    bench::contend("clock: read the present tick", "general", readClock, 1 / 1.2);
    bench::contend("clock: read the present tick", "QueryPerformanceCounter", readCounter);
    bench::contend("clock: read the present tick", "std::chrono", readSteadyClock);
    bench::contend("clock: seconds since the last reading", "general", readStopwatch);
    bench::contend("clock: seconds since the last reading", "std::chrono", readSteadyStopwatch);
    bench::contend("counter: add 1 to the last of 8 published counters", "general", applyDelta);
    bench::contend("counter: add 1 to the last of 8 published counters", "limit: one atomic add", addToAtomic);
    return true;
}();

} // namespace
