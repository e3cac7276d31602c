// The cost of a typed read against the registry read it cannot avoid, and the
// cost of the first look-up of a spelling.

#include <dv/env/Options.h>

#include "OptionTables.h"

#include <benchmark/benchmark.h>
#include <fx.h>

#include <cctype>
#include <iostream>
#include <sstream>
#include <string>

namespace {

struct QuietApp {
    QuietApp() : app("DravikBench", "DravikBench"), previous(std::clog.rdbuf(discarded.rdbuf())) {}
    ~QuietApp() { std::clog.rdbuf(previous); }
    FXApp app;
    std::ostringstream discarded;
    std::streambuf* previous;
};

void RawRegistryRead(benchmark::State& state) {
    QuietApp quiet;
    quiet.app.reg().writeIntEntry("Integer", "ToolArcPrecValue", 64);
    for (auto _ : state)
        benchmark::DoNotOptimize(quiet.app.reg().readIntEntry("Integer", "ToolArcPrecValue", 32));
}
BENCHMARK(RawRegistryRead);

void TypedReadCachedName(benchmark::State& state) {
    QuietApp quiet;
    quiet.app.reg().writeIntEntry("Integer", "ToolArcPrecValue", 64);
    dv::env::getOptionInt("ToolArcPrecValue", false);
    for (auto _ : state)
        benchmark::DoNotOptimize(dv::env::getOptionInt("ToolArcPrecValue", false));
}
BENCHMARK(TypedReadCachedName);

// Every iteration spells the name with another mix of cases, so each look-up
// misses the cache, scans the table and adds an entry.
void LookUpNewSpelling(benchmark::State& state) {
    const std::string name = "ToolWireWidthToleranceUnits";
    std::string spelled = name;
    std::uint64_t mask = 0;
    for (auto _ : state) {
        ++mask;
        for (std::size_t i = 0; i < name.size(); ++i)
            spelled[i] = static_cast<char>((mask >> i) & 1 ? std::tolower(name[i]) : std::toupper(name[i]));
        benchmark::DoNotOptimize(dv::env::internal::intOptionIndex(spelled));
    }
}
BENCHMARK(LookUpNewSpelling)->Iterations(200000);

}  // namespace

BENCHMARK_MAIN();
