// What a thread's start costs once an AppLog exists, and so every new thread
// gets an alternate signal stack as it starts (given back when it ends),
// against the same start before any AppLog: the creation and join of a thread
// that does nothing. The first is measured first, as an AppLog's handler
// stays for the rest of the process.

#include <dv/env/AppLog.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <sstream>
#include <thread>
#include <vector>

namespace {

// The machine may be shared: the fastest repetition is the least disturbed.
double fastest(const std::vector<double>& times) { return *std::min_element(times.begin(), times.end()); }

void startAndJoinEmptyThreads(benchmark::State& state) {
    for (auto _ : state)
        std::thread([] {}).join();
}

void BM_ThreadStartWithoutAppLog(benchmark::State& state) { startAndJoinEmptyThreads(state); }

void BM_ThreadStartWithAppLog(benchmark::State& state) {
    static std::ostringstream sink;
    static std::ostream stream(sink.rdbuf());
    static const auto log = std::make_unique<dv::env::AppLog>(stream);
    startAndJoinEmptyThreads(state);
}

}  // namespace

BENCHMARK(BM_ThreadStartWithoutAppLog)->Repetitions(5)->ComputeStatistics("min", fastest);
BENCHMARK(BM_ThreadStartWithAppLog)->Repetitions(5)->ComputeStatistics("min", fastest);

BENCHMARK_MAIN();
