#include <dv/env/ConfigRecorder.h>
#include <dv/env/OptionQueries.h>
#include <dv/env/OptionRegistration.h>
#include <dv/env/Options.h>

#include "OptionTables.h"
#include "OptionsRecorder.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>

namespace dv::env {
namespace {

using namespace internal;

// Each case runs in a process of its own, so the tables are not built yet when
// it starts.
class OptionRegistration : public test::WithApp, public ::testing::Test {
protected:
    void SetUp() override { optionsRecorderInstance()->clear(); }

    static std::map<std::string, ConfigValue> listed() {
        std::map<std::string, ConfigValue> result;
        const auto configuration = optionsRecorder()->getConfiguration();
        for (const auto& parameter : configuration->params())
            result.emplace(parameter.name, parameter.value);
        return result;
    }

    test::ClogCapture clog;
};

TEST_F(OptionRegistration, EmptyNameIsIgnored) {
    buildOptionTables();
    const auto sizes = [] {
        return std::vector{intOptions.size(), realOptions.size(), stringOptions.size(), boolOptions.size()};
    };
    const auto before = sizes();
    registerOptionInt("", 1, "x", true);
    registerOptionReal("", 1.0, "", true);
    registerOptionString("", "a", "", false);
    registerOptionBoolean("", true, "", true);
    registerOptionUnits("", Unit::Inch, "", true);
    EXPECT_EQ(sizes(), before);
}

TEST_F(OptionRegistration, RowsBeforeTheBuildLieInFrontRowsAfterBehind) {
    registerOptionReal("EarlyScale", 2.5, "", true);
    registerOptionReal("EarlierShadow", 1.0, "", true);
    ASSERT_EQ(realOptions.size(), 2u);
    EXPECT_DOUBLE_EQ(getOptionReal("EarlyScale", false), 2.5);  // the first look-up builds
    EXPECT_GT(realOptions.size(), 2u);
    EXPECT_EQ(findRealOption("earlyscale"), 0u);
    EXPECT_EQ(findRealOption("EarlierShadow"), 1u);
    EXPECT_EQ(realOptions[2].name, "ToolErrorMargin");

    const auto margin = findRealOption("ToolErrorMargin");
    for (int i = 0; i < 200; ++i)
        registerOptionReal("LateScale" + std::to_string(i), i, "", true);
    EXPECT_EQ(findRealOption("LateScale199"), realOptions.size() - 1);
    EXPECT_EQ(findRealOption("ToolErrorMargin"), margin);
    EXPECT_DOUBLE_EQ(getOptionReal("ToolErrorMargin", false), 1.5);
    EXPECT_DOUBLE_EQ(getOptionReal("LateScale7", false), 7.0);
}

TEST_F(OptionRegistration, NameMissedBeforeRegistrationIsFoundAfter) {
    registry().writeIntEntry("Integer", "RasterInMergeType", 5);
    EXPECT_EQ(getOptionInt("PassCount", false), 5) << "row 0 answers an unknown name";
    registerOptionInt("PassCount", 3, "", true);
    EXPECT_EQ(getOptionInt("passcount", false), 3);
}

TEST_F(OptionRegistration, ShortNameServesOnlyTheTextualAccess) {
    buildOptionTables();
    registerOptionInt("MeshDensity", 12, "x", true);
    std::string text;
    ASSERT_TRUE(getOption("x", text, false));
    EXPECT_EQ(text, "12");
    EXPECT_EQ(findIntOption("x"), std::nullopt);
    EXPECT_NE(getOptionInt("x", false), 12) << "typed reads know no short names";
}

TEST_F(OptionRegistration, RegisteredRowsMeetAssignmentAndTheCommandLine) {
    buildOptionTables();
    registerOptionInt("MeshDensity", 12, "x", true);
    registerOptionBoolean("DryRun", false, "", false);
    EXPECT_TRUE(setOption("x", "40"));
    EXPECT_EQ(getOptionInt("MeshDensity", false), 40);

    setOptionBoolean("DryRun", true);
    char program[] = "app", density[] = "-meshdensity=41";
    char* argv[] = {program, density};
    EXPECT_TRUE(parseCommandLine(2, argv));
    EXPECT_FALSE(getOptionBoolean("DryRun", false)) << "transient: reset by the command line";
    EXPECT_EQ(getOptionInt("MeshDensity", false), 41);
}

TEST_F(OptionRegistration, SecondRowShadowedForReadsButItsDefaultIsRecorded) {
    buildOptionTables();
    registerOptionInt("ToolArcPrecValue", 7, "", true);
    EXPECT_EQ(getOptionInt("ToolArcPrecValue", true), 32) << "the built-in row answers";
    EXPECT_EQ(listed().at("ToolArcPrecValue"), ConfigValue(32)) << "32 now differs from the recorded default";

    registerOptionInt("ToolArcPrecValue", 32, "", true);
    EXPECT_TRUE(listed().empty());
}

TEST_F(OptionRegistration, RecorderLearnsEachDefaultWithItsType) {
    buildOptionTables();
    registerOptionInt("RegInt", 3, "", true);
    registerOptionReal("RegReal", 0.5, "", true);
    registerOptionString("RegText", "abc", "", true);
    registerOptionBoolean("RegFlag", true, "", true);
    registerOptionUnits("RegUnits", Unit::Mil, "", true);
    getOptionInt("RegInt", true);
    getOptionReal("RegReal", true);
    getOptionString("RegText", true);
    getOptionBoolean("RegFlag", true);
    getOptionUnits("RegUnits", true);
    EXPECT_TRUE(listed().empty());

    setOptionString("RegText", "abd");
    setOptionUnits("RegUnits", Unit::Foot);
    getOptionString("RegText", true);
    getOptionUnits("RegUnits", true);
    EXPECT_EQ(listed(), (std::map<std::string, ConfigValue>{{"RegText", ConfigValue(std::string("abd"))},
                                                            {"RegUnits", ConfigValue(8)}}));

    registerOptionUnits("BadUnits", static_cast<Unit>(42), "", true);  // no range check here
    EXPECT_THROW(getOptionUnits("BadUnits", false), std::out_of_range);
}

TEST_F(OptionRegistration, SettingsKeepTheirValueUntilTheDefaultsPass) {
    registry().writeIntEntry("Boolean", "KeepTemporary", 1);
    buildOptionTables();
    registerOptionBoolean("KeepTemporary", false, "", false);
    registerOptionString("PersistentLabel", "none", "", true);
    EXPECT_FALSE(registry().existingEntry("String", "PersistentLabel")) << "registration writes nothing";
    EXPECT_TRUE(getOptionBoolean("KeepTemporary", false)) << "an earlier run's value wins";

    registry().writeStringEntry("String", "PersistentLabel", "kept");
    loadDefaults(true);
    EXPECT_FALSE(getOptionBoolean("KeepTemporary", false));
    EXPECT_EQ(getOptionString("PersistentLabel", false), "kept");
}

}  // namespace
}  // namespace dv::env
