#include <dv/env/ConfigSerializer.h>
#include <dv/env/Options.h>

#include "OptionTables.h"
#include "OptionsRecorder.h"
#include "support/TempDir.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>

namespace dv::env {
namespace {

std::string written(ConfigSerializer& serializer, std::ostringstream& os) {
    serializer.write(os);
    return os.str();
}

TEST(ConfigSerializer, EmptyListWritesTheTwoHeadLines) {
    ConfigSerializer serializer({});
    std::ostringstream os;
    EXPECT_EQ(written(serializer, os), "[Dravik]\nDvLoadDefaults=true\n");
}

TEST(ConfigSerializer, EachAlternativeHasItsForm) {
    ConfigSerializer serializer({{"None", ConfigValue()},
                                 {"Text", ConfigValue(std::string("a=b \"c\""))},
                                 {"Tenth", ConfigValue(0.1)},
                                 {"One", ConfigValue(1.0)},
                                 {"Huge", ConfigValue(1e20)},
                                 {"Count", ConfigValue(42)},
                                 {"Flag", ConfigValue(true)}});
    std::ostringstream os;
    os << std::noboolalpha;
    EXPECT_EQ(written(serializer, os),
              "[Dravik]\nDvLoadDefaults=true\nNone=<empty>\nText=a=b \"c\"\nTenth=0.10000000000000001\nOne=1\n"
              "Huge=1e+20\nCount=42\nFlag=true\n");
    EXPECT_EQ(os.precision(), 17);
    EXPECT_TRUE(os.flags() & std::ios::boolalpha);

    // Written again, the same; the integer base stays the caller's.
    std::ostringstream hex;
    hex << std::hex;
    EXPECT_NE(written(serializer, hex).find("\nCount=2a\n"), std::string::npos);
}

TEST(ConfigSerializer, MovesLeaveTheSourceEmpty) {
    ConfigSerializer original({{"A", ConfigValue(1)}});
    ConfigSerializer moved(std::move(original));
    EXPECT_TRUE(original.parameters.empty());
    ConfigSerializer assigned({{"B", ConfigValue(2)}});
    assigned = std::move(moved);
    EXPECT_TRUE(moved.parameters.empty());
    ASSERT_EQ(assigned.parameters.size(), 1u);
    EXPECT_EQ(assigned.parameters.front().name, "A");
}

TEST(ConfigSerializer, RealsSurviveTheTextExactly) {
    for (const double value : {0.1 + 0.2, 0.1, 1e20, -1.0 / 3.0, 5e-324, 1.7976931348623157e308}) {
        ConfigSerializer serializer({{"R", ConfigValue(value)}});
        std::ostringstream os;
        const std::string text = written(serializer, os);
        double read = 0;
        ASSERT_EQ(std::sscanf(text.c_str(), "[Dravik]\nDvLoadDefaults=true\nR=%lf", &read), 1) << text;
        EXPECT_EQ(read, value) << text;
    }
}

class ConfigRoundTrip : public test::WithApp, public ::testing::Test {
protected:
    void SetUp() override {
        internal::buildOptionTables();
        char name[] = "dravik";
        char* argv[] = {name, nullptr};
        parseCommandLine(1, argv);  // the recorder learns every default
    }

    // The configuration of a run that reads every option with recording on.
    std::list<ConfigParameter> recordEverything() {
        auto recorder = internal::optionsRecorderInstance();
        recorder->clear();
        for (const auto& row : internal::intOptions)
            getOptionInt(row.name, true);
        for (const auto& row : internal::realOptions)
            getOptionReal(row.name, true);
        for (const auto& row : internal::stringOptions)
            getOptionString(row.name, true);
        for (const auto& row : internal::boolOptions)
            getOptionBoolean(row.name, true);
        auto parameters = recorder->getConfiguration()->params();
        parameters.sort([](const ConfigParameter& a, const ConfigParameter& b) { return a.name < b.name; });
        return parameters;
    }

    test::TempDir dir;
    test::ClogCapture clog;
};

TEST_F(ConfigRoundTrip, ReadingTheTextBackGivesTheSameStore) {
    setOption("ToolArcPrecValue", "64");
    setOption("ToolCropX0", "0.1");
    setOption("ToolCropX1", "1e20");
    setOption("DvImportFile", "in=out.gds");
    setOption("DxfOutFlatten", "true");
    setOption("CifOutHeader", "(header)");
    const auto before = recordEverything();
    ASSERT_GE(before.size(), 6u);

    std::ostringstream text;
    ConfigSerializer(before).write(text);
    const std::string file = dir.write("run.cmd", text.str());

    // Another run changes listed and unlisted options, persistent ones too.
    setOption("ToolArcPrecValue", "5");
    setOption("ToolCropX1", "2");
    setOption("DvImportFile", "other.gds");
    setOption("ToolQuasiCircleMinFacets", "7");
    setOption("DvExitWhenFinished", "1");
    EXPECT_TRUE(parseCommandFile(file));

    const auto after = recordEverything();
    ASSERT_EQ(after.size(), before.size());
    for (auto b = before.begin(), a = after.begin(); b != before.end(); ++a, ++b) {
        EXPECT_EQ(a->name, b->name);
        EXPECT_EQ(a->value, b->value) << b->name;
    }
    EXPECT_EQ(getOptionInt("ToolQuasiCircleMinFacets", false), 32);
    EXPECT_FALSE(getOptionBoolean("DvExitWhenFinished", false));
}

TEST_F(ConfigRoundTrip, TheRegistryKeepsRealsToItsOwnPrecision) {
    const double sum = 0.1 + 0.2;
    std::ostringstream text;
    ConfigSerializer({{"ToolCropX0", ConfigValue(sum)}}).write(text);
    parseCommandFile(dir.write("run.cmd", text.str()));
    registry().writeRealEntry("Scratch", "Sum", sum);
    EXPECT_EQ(getOptionReal("ToolCropX0", false), registry().readRealEntry("Scratch", "Sum", 0));
}

}  // namespace
}  // namespace dv::env
