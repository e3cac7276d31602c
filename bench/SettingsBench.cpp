// The merging save of a 600-entry registry against FOX's own write of the
// same registry, in the same folder ($TMPDIR, else /tmp: its file system
// decides what the flush of the merging save costs).

#include <dv/env/Settings.h>

#include <benchmark/benchmark.h>
#include <fx.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include <unistd.h>

namespace {

struct BenchRegistry {
    BenchRegistry() {
        const char* base = std::getenv("TMPDIR");
        home = std::filesystem::path(base && *base ? base : "/tmp") / ("dvenv2-bench-" + std::to_string(::getpid()));
        std::filesystem::create_directories(home);
        ::setenv("HOME", home.c_str(), 1);
        app = new FXApp("DravikBench", "DravikBench");
        static const char* const sections[] = {"Integer", "Real", "String", "Boolean"};
        for (int i = 0; i < 600; ++i)
            app->reg().writeStringEntry(sections[i % 4], ("BenchOption" + std::to_string(i)).c_str(),
                                        ("a value of some length, number " + std::to_string(i)).c_str());
        app->reg().write();
    }
    ~BenchRegistry() {
        delete app;
        std::filesystem::remove_all(home);
    }
    std::filesystem::path home;
    FXApp* app;
};

BenchRegistry& registry() {
    static BenchRegistry instance;
    return instance;
}

void FoxWrite(benchmark::State& state) {
    FXRegistry& reg = registry().app->reg();
    int round = 0;
    for (auto _ : state) {
        reg.writeIntEntry("Integer", "BenchOption0", ++round);
        if (!reg.write())
            state.SkipWithError("FOX's write failed");
    }
}
BENCHMARK(FoxWrite)->Unit(benchmark::kMicrosecond);

void MergingSave(benchmark::State& state) {
    FXRegistry& reg = registry().app->reg();
    int round = 0;
    for (auto _ : state) {
        reg.writeIntEntry("Integer", "BenchOption0", ++round);
        if (!dv::env::saveSettings())
            state.SkipWithError("the merging save failed");
    }
}
BENCHMARK(MergingSave)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
