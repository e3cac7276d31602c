#include <dv/env/ConfigRecorder.h>

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <thread>
#include <vector>

namespace dv::env {
namespace {

using Params = std::multimap<std::string, ConfigValue>;

Params asMap(IConfiguration& configuration) {
    Params params;
    for (auto& parameter : configuration.params())
        params.emplace(parameter.name, parameter.value);
    return params;
}

// A child recorder with a fixed list and a count of clears.
class FixedRecorder : public IConfigRecorder {
public:
    explicit FixedRecorder(std::list<ConfigParameter> initial) : params(std::move(initial)) {}
    void clear() override {
        ++clears;
        params.clear();
    }
    std::unique_ptr<IConfiguration> getConfiguration() const override {
        auto configuration = std::make_unique<Configuration>();
        configuration->parameters = params;
        return configuration;
    }
    std::list<ConfigParameter> params;
    int clears = 0;
};

TEST(ConfigValue, KeepsAlternativeOrderAndNeverEqualsAcrossThem) {
    EXPECT_EQ(ConfigValue().index(), 0u);
    EXPECT_EQ(ConfigValue(std::in_place_type<std::string>, "x").index(), 1u);
    EXPECT_EQ(ConfigValue(2.5).index(), 2u);
    EXPECT_EQ(ConfigValue(7).index(), 3u);
    EXPECT_EQ(ConfigValue(std::in_place_type<bool>, true).index(), 4u);
    EXPECT_NE(ConfigValue(1), ConfigValue(std::in_place_type<bool>, true));
    EXPECT_NE(ConfigValue(1), ConfigValue(1.0));
}

TEST(Configuration, CopiesDeepAndMovesOut) {
    Configuration original;
    original.parameters.push_back({"A", ConfigValue(1)});
    Configuration copy(original);
    copy.params().front().value = 2;
    EXPECT_EQ(original.params().front().value, ConfigValue(1));

    Configuration target;
    target.parameters.push_back({"Old", ConfigValue()});
    target = std::move(original);
    ASSERT_EQ(target.params().size(), 1u);
    EXPECT_EQ(target.params().front().name, "A");
    EXPECT_TRUE(original.params().empty());
    original.params().push_back({"B", ConfigValue(3)});  // still usable
    EXPECT_EQ(original.params().size(), 1u);
}

TEST(ConfigRecorder, WithoutChildrenGivesEmptyConfiguration) {
    ConfigRecorder recorder;
    auto configuration = recorder.getConfiguration();
    ASSERT_NE(configuration, nullptr);
    EXPECT_TRUE(configuration->params().empty());
}

TEST(ConfigRecorder, ConcatenatesChildrenInOrderWithoutMerging) {
    auto first = std::make_shared<FixedRecorder>(std::list<ConfigParameter>{{"A", 1}, {"B", 2}});
    auto empty = std::make_shared<FixedRecorder>(std::list<ConfigParameter>{});
    auto last = std::make_shared<FixedRecorder>(std::list<ConfigParameter>{{"A", 3}});
    ConfigRecorder recorder;
    recorder.addRecorder(first);
    recorder.addRecorder(empty);
    recorder.addRecorder(last);
    auto configuration = recorder.getConfiguration();
    std::vector<std::string> names;
    for (auto& parameter : configuration->params())
        names.push_back(parameter.name + "=" + std::to_string(std::get<int>(parameter.value)));
    EXPECT_EQ(names, (std::vector<std::string>{"A=1", "B=2", "A=3"}));
}

TEST(ConfigRecorder, CopiesShareChildrenAndClearKeepsThem) {
    auto child = std::make_shared<FixedRecorder>(std::list<ConfigParameter>{{"A", 1}});
    ConfigRecorder recorder;
    recorder.addRecorder(child);
    ConfigRecorder copy(recorder);
    copy = copy;
    copy.clear();
    EXPECT_EQ(child->clears, 1);
    EXPECT_TRUE(recorder.getConfiguration()->params().empty());
    child->params.push_back({"C", 4});
    EXPECT_EQ(recorder.getConfiguration()->params().size(), 1u);

    ConfigRecorder moved(std::move(copy));
    EXPECT_EQ(moved.recorders.size(), 1u);
    EXPECT_TRUE(copy.recorders.empty());
}

TEST(OptionsConfigRecorder, ListsReadsThatDifferFromTheirDefault) {
    OptionsConfigRecorder recorder;
    recorder.setDefault("Value", 32);
    recorder.record("Value", 32);
    EXPECT_TRUE(recorder.getConfiguration()->params().empty());
    recorder.record("Value", 64);
    EXPECT_EQ(asMap(*recorder.getConfiguration()), (Params{{"Value", 64}}));
    recorder.record("Value", 32);
    EXPECT_TRUE(recorder.getConfiguration()->params().empty());
}

TEST(OptionsConfigRecorder, ComparesNamesExactlyAndAlternativesStrictly) {
    OptionsConfigRecorder recorder;
    recorder.setDefault("Flag", ConfigValue(std::in_place_type<bool>, true));
    recorder.record("flag", ConfigValue(std::in_place_type<bool>, true));
    recorder.record("Flag", ConfigValue(1));
    recorder.record("NoDefault", ConfigValue());
    EXPECT_EQ(asMap(*recorder.getConfiguration()),
              (Params{{"flag", ConfigValue(std::in_place_type<bool>, true)}, {"Flag", 1}, {"NoDefault", ConfigValue()}}));
    recorder.setDefault("NoDefault", ConfigValue());
    EXPECT_EQ(recorder.getConfiguration()->params().size(), 2u);
}

TEST(OptionsConfigRecorder, FormatsNeverGetADefault) {
    OptionsConfigRecorder recorder;
    const ConfigValue dxf(std::in_place_type<std::string>, "DXF");
    recorder.setDefault("DvImportFormat", dxf);
    recorder.setDefault("dvexportformat", dxf);
    recorder.record("DvImportFormat", dxf);
    recorder.record("dvexportformat", dxf);
    EXPECT_EQ(asMap(*recorder.getConfiguration()), (Params{{"DvImportFormat", dxf}}));
}

TEST(OptionsConfigRecorder, ClearForgetsReadsButKeepsDefaults) {
    OptionsConfigRecorder recorder;
    recorder.setDefault("Value", 1);
    recorder.record("Value", 2);
    recorder.clear();
    EXPECT_TRUE(recorder.getConfiguration()->params().empty());
    recorder.record("Value", 1);
    EXPECT_TRUE(recorder.getConfiguration()->params().empty());
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
    EXPECT_EQ(asMap(*options.getConfiguration()).count("Thread0"), 1u);
    options.clear();
}

}  // namespace
}  // namespace dv::env
