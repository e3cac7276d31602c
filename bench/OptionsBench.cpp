// The option store against the registry access it cannot avoid, and its
// look-ups with 10,000 options registered by modules against none.

#include <dv/env/OptionRegistration.h>
#include <dv/env/Options.h>

#include "OptionStore.h"

#include <benchmark/benchmark.h>
#include <fx.h>

#include <cctype>
#include <random>
#include <unordered_map>
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

// The store's index of names against the standard map with the same hash
// and equality, at the catalogue's 256 rows and at 10,000: look-ups of
// present names, each in a random mix of cases.
struct FoldedHash {
    std::size_t operator()(std::string_view name) const { return dv::env::internal::optionNameHash(name, true); }
};
struct SameName {
    bool operator()(std::string_view a, std::string_view b) const { return dv::env::internal::sameOptionName(a, b); }
};
using StandardIndex = std::unordered_map<std::string_view, std::size_t, FoldedHash, SameName>;

std::vector<std::string> randomNames(std::size_t count) {
    std::mt19937_64 random(7);
    std::vector<std::string> names;
    for (std::size_t i = 0; i < count; ++i) {
        std::string name = "Option";
        for (std::size_t length = 4 + random() % 24; length > 0; --length)
            name += static_cast<char>('a' + random() % 26);
        names.push_back(name + std::to_string(i));
    }
    return names;
}

std::vector<std::string> respelled(const std::vector<std::string>& names) {
    std::mt19937_64 random(11);
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < 4096; ++i) {
        std::string text = names[random() % names.size()];
        for (char& c : text)
            c = static_cast<char>(random() % 2 ? std::toupper(c) : c);
        texts.push_back(text);
    }
    return texts;
}

void NameIndexLookUp(benchmark::State& state) {
    const auto names = randomNames(static_cast<std::size_t>(state.range(0)));
    dv::env::internal::NameIndex index(true);
    for (std::size_t i = 0; i < names.size(); ++i)
        index.insertIfAbsent(names[i], i);
    const auto texts = respelled(names);
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(index.find(texts[next]));
        next = (next + 1) % texts.size();
    }
}
BENCHMARK(NameIndexLookUp)->Arg(256)->Arg(10000);

void StandardMapLookUp(benchmark::State& state) {
    const auto names = randomNames(static_cast<std::size_t>(state.range(0)));
    StandardIndex index;
    for (std::size_t i = 0; i < names.size(); ++i)
        index.emplace(names[i], i);
    const auto texts = respelled(names);
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(index.find(texts[next]));
        next = (next + 1) % texts.size();
    }
}
BENCHMARK(StandardMapLookUp)->Arg(256)->Arg(10000);

// Benchmarks run in the order they are declared: these after every run with
// none registered.
BENCHMARK(SetOption)->Arg(10000);
BENCHMARK(SetOptionReal)->Arg(10000);
BENCHMARK(FirstTypedLookUp)->Arg(10000);
BENCHMARK(TextualRead)->Arg(10000);
BENCHMARK(LookUpNewSpelling)->Arg(10000);

}  // namespace

BENCHMARK_MAIN();
