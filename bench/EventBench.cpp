// What folding a repeated message costs against formatting it once, which no
// repeat with a new context can avoid; and what a repeat costs once its event
// is full, when nothing needs formatting at all.

#include <dv/env/Event.h>
#include <dv/notelib/MessageFormatStream.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using dv::notelib::MessageFormatStream;

constexpr unsigned int openPolygon = 0x8000007eu;

MessageFormatStream repeat(const std::string& cell) {
    return MessageFormatStream(openPolygon,
                               "Layer %1% has an open polygon\nin cell %2% of library %3%\n"
                               "The polygon was closed by joining its last point to its first.\n")
           << 12 << cell << "chip_top.gds";
}

// The machine may be shared: the fastest repetition is the least disturbed.
double fastest(const std::vector<double>& times) { return *std::min_element(times.begin(), times.end()); }

struct QuietLog {
    QuietLog() : previous(std::clog.rdbuf(discarded.rdbuf())) {}
    ~QuietLog() { std::clog.rdbuf(previous); }
    std::ostringstream discarded;
    std::streambuf* previous;
};

void BareToString(benchmark::State& state) {
    const MessageFormatStream message = repeat("ALU_CORE_REGFILE");
    for (auto _ : state)
        benchmark::DoNotOptimize(message.toString());
}
BENCHMARK(BareToString)->ComputeStatistics("min", fastest);

void AddLogKnownContext(benchmark::State& state) {
    QuietLog quiet;
    dv::env::EventLog log;
    const MessageFormatStream message = repeat("ALU_CORE_REGFILE");
    log.addLog(message);
    for (auto _ : state)
        benchmark::DoNotOptimize(log.addLog(message));
}
BENCHMARK(AddLogKnownContext)->ComputeStatistics("min", fastest);

void AddLogFullEvent(benchmark::State& state) {
    QuietLog quiet;
    dv::env::EventLog log;
    for (int i = 0; i < 20; ++i)
        log.addLog(repeat("CELL_" + std::to_string(i)));
    const MessageFormatStream message = repeat("ALU_CORE_REGFILE");
    for (auto _ : state)
        benchmark::DoNotOptimize(log.addLog(message));
}
BENCHMARK(AddLogFullEvent)->ComputeStatistics("min", fastest);

}  // namespace

BENCHMARK_MAIN();
