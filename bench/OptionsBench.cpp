// The option store against the registry access it cannot avoid, and its
// look-ups with 10,000 options registered by modules against none.

#include <dv/env/OptionRegistration.h>
#include <dv/env/Options.h>

#include "OptionStore.h"

#include <benchmark/benchmark.h>
#include <fx.h>

#include <cctype>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct QuietApp {
    QuietApp() : app("DravikBench", "DravikBench"), previous(std::clog.rdbuf(discarded.rdbuf())) {}
    ~QuietApp() { std::clog.rdbuf(previous); }
    FXApp app;
    std::ostringstream discarded;
    std::streambuf* previous;
};

// Registers options of all four types until `count` have been.
void registerModuleOptions(std::int64_t count) {
    static std::int64_t registered = 0;
    for (; registered < count; ++registered) {
        const std::string name = "ModuleOption" + std::to_string(registered);
        switch (registered % 4) {
        case 0: dv::env::registerOptionInt(name, 1, "", true); break;
        case 1: dv::env::registerOptionReal(name, 1.0, "", true); break;
        case 2: dv::env::registerOptionString(name, "x", "", true); break;
        case 3: dv::env::registerOptionBoolean(name, true, "", true); break;
        }
    }
}

void RawRegistryRead(benchmark::State& state) {
    QuietApp quiet;
    quiet.app.reg().writeIntEntry("Integer", "ToolArcPrecValue", 64);
    for (auto _ : state)
        benchmark::DoNotOptimize(quiet.app.reg().readIntEntry("Integer", "ToolArcPrecValue", 32));
}
BENCHMARK(RawRegistryRead);

void TypedRead(benchmark::State& state) {
    QuietApp quiet;
    quiet.app.reg().writeIntEntry("Integer", "ToolArcPrecValue", 64);
    dv::env::getOptionInt("ToolArcPrecValue", false);
    for (auto _ : state)
        benchmark::DoNotOptimize(dv::env::getOptionInt("ToolArcPrecValue", false));
}
BENCHMARK(TypedRead);

void RawRegistryWrite(benchmark::State& state) {
    QuietApp quiet;
    for (auto _ : state)
        benchmark::DoNotOptimize(quiet.app.reg().writeIntEntry("Integer", "ToolArcPrecValue", 64));
}
BENCHMARK(RawRegistryWrite);

void SetOption(benchmark::State& state) {
    QuietApp quiet;
    registerModuleOptions(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(dv::env::setOption("ToolArcPrecValue", "64"));
}
BENCHMARK(SetOption)->Arg(0);

// Two values in turn, so that every iteration stores something.
void SetOptionReal(benchmark::State& state) {
    QuietApp quiet;
    registerModuleOptions(state.range(0));
    bool other = false;
    for (auto _ : state) {
        other = !other;
        benchmark::DoNotOptimize(dv::env::setOption("DxfInScaling", other ? "1.5" : "2.25"));
    }
}
BENCHMARK(SetOptionReal)->Arg(0);

// A typed look-up of a name spelled at an address the store has not seen:
// 4,096 texts in turn, more than its cache of recent texts holds.
void FirstTypedLookUp(benchmark::State& state) {
    registerModuleOptions(state.range(0));
    auto& store = dv::env::internal::optionStore();
    store.build();
    std::vector<std::string> texts;
    for (std::size_t i = 0; texts.size() < 4096; ++i) {
        std::string name = store.ints[i % store.ints.size()].name;
        for (std::size_t c = 0; c < name.size(); ++c)
            name[c] = static_cast<char>((i >> (c % 8)) & 1 ? std::tolower(name[c]) : std::toupper(name[c]));
        texts.push_back(name);
    }
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(&store.ints.rowForTypedAccess(texts[next]));
        next = (next + 1) % texts.size();
    }
}
BENCHMARK(FirstTypedLookUp)->Arg(0);

void TextualRead(benchmark::State& state) {
    QuietApp quiet;
    registerModuleOptions(state.range(0));
    std::string value;
    for (auto _ : state)
        benchmark::DoNotOptimize(dv::env::getOption("ToolArcPrecValue", value, false));
}
BENCHMARK(TextualRead)->Arg(0);

// Every iteration spells the name with another mix of cases.
void LookUpNewSpelling(benchmark::State& state) {
    registerModuleOptions(state.range(0));
    auto& store = dv::env::internal::optionStore();
    store.build();
    const std::string name = "ToolWireWidthToleranceUnits";
    std::string spelled = name;
    std::uint64_t mask = 0;
    for (auto _ : state) {
        ++mask;
        for (std::size_t i = 0; i < name.size(); ++i)
            spelled[i] = static_cast<char>((mask >> i) & 1 ? std::tolower(name[i]) : std::toupper(name[i]));
        benchmark::DoNotOptimize(store.ints.findName(spelled));
    }
}
BENCHMARK(LookUpNewSpelling)->Arg(0);

// Benchmarks run in the order they are declared: these after every run with
// none registered.
BENCHMARK(SetOption)->Arg(10000);
BENCHMARK(SetOptionReal)->Arg(10000);
BENCHMARK(FirstTypedLookUp)->Arg(10000);
BENCHMARK(TextualRead)->Arg(10000);
BENCHMARK(LookUpNewSpelling)->Arg(10000);

}  // namespace

BENCHMARK_MAIN();
