#include <dv/env/ConfigRecorder.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace dv::env {
namespace {

using Params = std::vector<std::pair<std::string, ConfigValue>>;

Params listed(const IConfigRecorder& recorder, bool sorted = false) {
    Params params;
    const auto configuration = recorder.getConfiguration();
    for (auto& parameter : configuration->params())
        params.emplace_back(parameter.name, parameter.value);
    if (sorted)
        std::sort(params.begin(), params.end());
    return params;
}

TEST(Configuration, CopiesDeepAndMovesOut) {
    Configuration original, target;
    original.parameters.push_back({"A", ConfigValue(1)});
    target.parameters.push_back({"Old", ConfigValue()});
    Configuration copy(original);
    copy.params().front().value = 2;
    EXPECT_EQ(original.params().front().value, ConfigValue(1));
    target = std::move(original);
    ASSERT_EQ(target.params().size(), 1u);
    EXPECT_EQ(target.params().front().name, "A");
    EXPECT_TRUE(original.params().empty());
}

TEST(ConfigRecorder, ConcatenatesChildrenInOrderAndCopiesShareThem) {
    ConfigRecorder recorder;
    EXPECT_TRUE(listed(recorder).empty());
    auto first = std::make_shared<OptionsConfigRecorder>(), last = std::make_shared<OptionsConfigRecorder>();
    first->record("A", 1);
    last->record("A", 3);
    recorder.addRecorder(first);
    recorder.addRecorder(std::make_shared<OptionsConfigRecorder>());
    recorder.addRecorder(last);
    EXPECT_EQ(listed(recorder), (Params{{"A", 1}, {"A", 3}}));

    ConfigRecorder copy(recorder);
    copy = copy;
    copy.clear();
    EXPECT_TRUE(listed(recorder).empty());
    first->record("C", 4);
    EXPECT_EQ(listed(recorder), (Params{{"C", 4}}));

    ConfigRecorder moved(std::move(copy));
    EXPECT_EQ(moved.recorders.size(), 3u);
    EXPECT_TRUE(copy.recorders.empty());
}

TEST(OptionsConfigRecorder, ListsTheLastReadOfEachExactNameUnlessItEqualsTheDefault) {
    OptionsConfigRecorder recorder;
    recorder.setDefault("Value", 32);
    recorder.record("Value", 64);
    EXPECT_EQ(listed(recorder), (Params{{"Value", 64}}));
    recorder.record("Value", 32);
    EXPECT_TRUE(listed(recorder).empty());
    recorder.record("Value", 64);
    recorder.clear();  // forgets the reads, keeps the defaults
    EXPECT_TRUE(listed(recorder).empty());
    recorder.record("Value", 32);
    EXPECT_TRUE(listed(recorder).empty());

    // Names compare exactly, values by alternative too; the formats get no default.
    const ConfigValue on(std::in_place_type<bool>, true), dxf(std::in_place_type<std::string>, "DXF");
    recorder.setDefault("Flag", on);
    recorder.record("flag", on);
    recorder.record("Flag", 1);
    recorder.record("NoDefault", ConfigValue());
    for (const char* format : {"DvImportFormat", "dvexportformat"}) {
        recorder.setDefault(format, dxf);
        recorder.record(format, dxf);
    }
    EXPECT_EQ(listed(recorder, true),
              (Params{{"DvImportFormat", dxf}, {"Flag", 1}, {"NoDefault", ConfigValue()}, {"flag", on}}));
    recorder.setDefault("NoDefault", ConfigValue());
    EXPECT_EQ(listed(recorder).size(), 3u);
}

TEST(OptionsConfigRecorder, IsOneInstanceSafeFromManyThreads) {
    auto recorder = optionsRecorder();
    EXPECT_EQ(recorder.get(), optionsRecorder().get());
    auto& options = dynamic_cast<OptionsConfigRecorder&>(*recorder);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&options, t] {
            for (int i = 0; i < 200; ++i) {
                options.setDefault("Thread" + std::to_string(t), 0);
                options.record("Thread" + std::to_string(t), i);
                options.getConfiguration();
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    const Params params = listed(options);
    EXPECT_EQ(std::count(params.begin(), params.end(), Params::value_type{"Thread0", 199}), 1);
    options.clear();
}

}  // namespace
}  // namespace dv::env
