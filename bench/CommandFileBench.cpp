// Reading a command file of 100,000 assignments spread over the four types of
// option, against Boost.ProgramOptions reading the same file into typed values.
// Both sides convert every value and keep it: this library in the registry,
// Boost in a variables_map. A third case gives Boost's bare syntax pass.

#include <dv/env/OptionReflection.h>
#include <dv/env/Options.h>

#include <benchmark/benchmark.h>
#include <boost/program_options.hpp>
#include <fx.h>

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace po = boost::program_options;
using dv::env::OptionType;

constexpr int lineCount = 100000;

// Options of a type whose names a file may carry; ToolApply is left out, since
// its lines join into one ever longer list.
std::vector<std::string> namesOf(OptionType type) {
    std::vector<std::string> names;
    for (const auto& option : dv::env::listOptions())
        if (option.type == type && option.name != "ToolApply")
            names.push_back(option.name);
    return names;
}

struct Content {
    std::vector<std::string> ints = namesOf(OptionType::Integer);
    std::vector<std::string> reals = namesOf(OptionType::Real);
    std::vector<std::string> strings = namesOf(OptionType::String);
    std::vector<std::string> bools = namesOf(OptionType::Boolean);
    std::string path;

    Content() {
        char pattern[] = "/tmp/dvenv2-bench-XXXXXX";
        const int fd = ::mkstemp(pattern);
        if (fd < 0)
            std::abort();
        ::close(fd);
        path = pattern;
        std::ofstream file(path, std::ios::binary);
        file << "[Dravik]\n";
        for (int i = 0; i < lineCount; ++i) {
            const auto n = static_cast<std::size_t>(i / 4);
            switch (i % 4) {
            case 0: file << ints[n % ints.size()] << '=' << (i % 1000) << '\n'; break;
            case 1: file << reals[n % reals.size()] << " = " << (i % 1000) * 0.125 << '\n'; break;
            case 2: file << strings[n % strings.size()] << "=file" << i << ".gds\n"; break;
            case 3: file << bools[n % bools.size()] << '=' << (i % 3 == 0 ? "true" : "false") << '\n'; break;
            }
        }
    }
    ~Content() { std::remove(path.c_str()); }
    Content(const Content&) = delete;
    Content& operator=(const Content&) = delete;
};

const Content& content() {
    static const Content instance;
    return instance;
}

void ParseCommandFile(benchmark::State& state) {
    FXApp app("DravikBench", "DravikBench");
    std::ostringstream discarded;
    std::streambuf* log = std::clog.rdbuf(discarded.rdbuf());
    const std::string& path = content().path;
    for (auto _ : state)
        dv::env::parseCommandFile(path);
    std::clog.rdbuf(log);
    state.SetItemsProcessed(state.iterations() * lineCount);
}
BENCHMARK(ParseCommandFile)->Unit(benchmark::kMillisecond);

// Repeated names are kept as vectors: a scalar value refuses a second line.
template <typename Value>
void describe(po::options_description& description, const std::vector<std::string>& names) {
    for (const std::string& name : names)
        description.add_options()(("Dravik." + name).c_str(), po::value<std::vector<Value>>());
}

void BoostParseConfigFile(benchmark::State& state) {
    const Content& file = content();
    po::options_description description;
    describe<int>(description, file.ints);
    describe<double>(description, file.reals);
    describe<std::string>(description, file.strings);
    describe<bool>(description, file.bools);
    for (auto _ : state) {
        std::ifstream stream(file.path);
        po::variables_map values;
        po::store(po::parse_config_file(stream, description), values);
        benchmark::DoNotOptimize(values.size());
    }
    state.SetItemsProcessed(state.iterations() * lineCount);
}
BENCHMARK(BoostParseConfigFile)->Unit(benchmark::kMillisecond);

// Boost's floor: the lines split into names and values, with no option
// declared, so nothing is looked up or converted.
void BoostParseConfigFileSyntaxOnly(benchmark::State& state) {
    const Content& file = content();
    const po::options_description nothing;
    for (auto _ : state) {
        std::ifstream stream(file.path);
        benchmark::DoNotOptimize(po::parse_config_file(stream, nothing, true).options.size());
    }
    state.SetItemsProcessed(state.iterations() * lineCount);
}
BENCHMARK(BoostParseConfigFileSyntaxOnly)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
