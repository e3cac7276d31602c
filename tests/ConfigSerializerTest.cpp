#include <dv/env/ConfigSerializer.h>
#include <dv/env/Options.h>

#include "OptionStore.h"
#include "OptionsRecorder.h"
#include "support/TempDir.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <locale>
#include <map>
#include <sstream>
#include <utility>
#include <vector>

namespace dv::env {
namespace {

std::string written(std::list<ConfigParameter> parameters) {
    std::ostringstream os;
    ConfigSerializer(std::move(parameters)).write(os);
    return os.str();
}

TEST(ConfigSerializer, WritesTheHeadLinesThenEachAlternativeInItsForm) {
    EXPECT_EQ(written({}), "[Dravik]\nDvLoadDefaults=true\n");
    ConfigSerializer serializer({{"None", ConfigValue()}, {"Text", ConfigValue(std::string("a=b \"c\""))},
                                 {"Tenth", ConfigValue(0.1)}, {"One", ConfigValue(1.0)}, {"Huge", ConfigValue(1e20)},
                                 {"Count", ConfigValue(42)}, {"Flag", ConfigValue(true)}});
    std::ostringstream os, hex;
    os << std::noboolalpha;
    serializer.write(os);
    EXPECT_EQ(os.str(), "[Dravik]\nDvLoadDefaults=true\nNone=<empty>\nText=a=b \"c\"\nTenth=0.10000000000000001\n"
                        "One=1\nHuge=1e+20\nCount=42\nFlag=true\n");
    EXPECT_EQ(os.precision(), 17);
    EXPECT_TRUE(os.flags() & std::ios::boolalpha);
    // Written again, the same; the integer base stays the caller's.
    hex << std::hex;
    serializer.write(hex);
    EXPECT_NE(hex.str().find("\nCount=2a\n"), std::string::npos);
}

// A locale that groups thousands with "." and writes a decimal comma.
struct CommaNumbers : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST(ConfigSerializer, WritesNumbersInTheClassicLocaleAndGivesTheCallersBack) {
    const std::locale comma(std::locale::classic(), new CommaNumbers);
    std::ostringstream os;
    os.imbue(comma);
    ConfigSerializer({{"Count", ConfigValue(64000)}, {"Length", ConfigValue(1234.5)}}).write(os);
    EXPECT_EQ(os.str(), "[Dravik]\nDvLoadDefaults=true\nCount=64000\nLength=1234.5\n");
    EXPECT_TRUE(std::has_facet<CommaNumbers>(os.getloc()));
    os.str("");
    os << 64000;
    EXPECT_EQ(os.str(), "64.000");
}

TEST(ConfigSerializer, MovesLeaveTheSourceEmpty) {
    ConfigSerializer original({{"A", ConfigValue(1)}}), assigned({{"B", ConfigValue(2)}});
    ConfigSerializer moved(std::move(original));
    EXPECT_TRUE(original.parameters.empty());
    assigned = std::move(moved);
    EXPECT_TRUE(moved.parameters.empty());
    ASSERT_EQ(assigned.parameters.size(), 1u);
    EXPECT_EQ(assigned.parameters.front().name, "A");
}

TEST(ConfigSerializer, RealsSurviveTheTextExactly) {
    for (const double value : {0.1 + 0.2, 0.1, 1e20, -1.0 / 3.0, 5e-324, 1.7976931348623157e308}) {
        const std::string text = written({{"R", ConfigValue(value)}});
        double read = 0;
        ASSERT_EQ(std::sscanf(text.c_str(), "[Dravik]\nDvLoadDefaults=true\nR=%lf", &read), 1) << text;
        EXPECT_EQ(read, value) << text;
    }
}

class ConfigRoundTrip : public test::WithApp, public ::testing::Test {
protected:
    void SetUp() override {
        char name[] = "dravik";
        char* argv[] = {name, nullptr};
        parseCommandLine(1, argv);  // the recorder learns every default
    }

    // What a run that reads every option with recording on lists.
    static std::map<std::string, ConfigValue> recordEverything() {
        auto recorder = internal::optionsRecorderInstance();
        recorder->clear();
        const internal::OptionStore& store = internal::optionStore();
        for (const auto& row : store.ints)
            getOptionInt(row.name, true);
        for (const auto& row : store.reals)
            getOptionReal(row.name, true);
        for (const auto& row : store.strings)
            getOptionString(row.name, true);
        for (const auto& row : store.booleans)
            getOptionBoolean(row.name, true);
        std::map<std::string, ConfigValue> listed;
        const auto configuration = recorder->getConfiguration();
        for (const auto& parameter : configuration->params())
            listed.emplace(parameter.name, parameter.value);
        return listed;
    }

    test::TempDir dir;
    test::ClogCapture clog;
};

TEST_F(ConfigRoundTrip, ReadingTheTextBackGivesTheSameStore) {
    using Assignments = std::vector<std::pair<const char*, const char*>>;
    for (const auto& [name, value] : Assignments{{"ToolArcPrecValue", "64"}, {"ToolCropX0", "0.1"},
                                                 {"ToolCropX1", "1e20"}, {"DvImportFile", "in=out.gds"},
                                                 {"DxfOutFlatten", "true"}, {"CifOutHeader", "(header)"}})
        setOption(name, value);
    const auto before = recordEverything();
    ASSERT_GE(before.size(), 6u);
    std::list<ConfigParameter> parameters;
    for (const auto& [name, value] : before)
        parameters.push_back({name, value});
    const std::string file = dir.write("run.cmd", written(parameters));

    // Another run changes listed and unlisted options, persistent ones too.
    for (const auto& [name, value] : Assignments{{"ToolArcPrecValue", "5"}, {"ToolCropX1", "2"},
                                                 {"DvImportFile", "other.gds"}, {"ToolQuasiCircleMinFacets", "7"},
                                                 {"DvExitWhenFinished", "1"}})
        setOption(name, value);
    EXPECT_TRUE(parseCommandFile(file));
    EXPECT_EQ(recordEverything(), before);

    // The registry keeps reals to its own precision, as if written directly.
    const double sum = 0.1 + 0.2;
    parseCommandFile(dir.write("sum.cmd", written({{"ToolCropX0", ConfigValue(sum)}})));
    registry().writeRealEntry("Scratch", "Sum", sum);
    EXPECT_EQ(getOptionReal("ToolCropX0", false), registry().readRealEntry("Scratch", "Sum", 0));
}

}  // namespace
}  // namespace dv::env
