// The wall time of the hardware report per processor, against the longest a
// measure may take: 20 windows of about 1,050 ticks of the 10 MHz counter,
// 2.1 ms per processor.

#include <dv/env/AppLog.h>

#include "platform/Hardware.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <sstream>

namespace {

constexpr double boundPerProcessorSeconds = 20 * 1050 / 10e6;

void LogHardwareInfo(benchmark::State& state) {
    std::ostringstream sink;
    dv::env::AppLog log(sink);
    const unsigned processors = std::min(dv::env::platform::hardware().processorCount(), 32u);
    double seconds = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        log.logHardwareInfo();
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        sink.str("");
    }
    const double perProcessor = seconds / static_cast<double>(state.iterations()) / processors;
    state.counters["processors"] = processors;
    state.counters["us_per_processor"] = perProcessor * 1e6;
    state.counters["of_bound"] = perProcessor / boundPerProcessorSeconds;
}
BENCHMARK(LogHardwareInfo)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
