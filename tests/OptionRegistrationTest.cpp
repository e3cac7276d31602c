#include <dv/env/ConfigRecorder.h>
#include <dv/env/OptionQueries.h>
#include <dv/env/OptionRegistration.h>
#include <dv/env/Options.h>

#include "OptionStore.h"
#include "OptionsRecorder.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <map>
#include <stdexcept>

namespace dv::env {
namespace {

using namespace internal;

// The tables are not built when a case starts: each runs in a process of its own.
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

TEST_F(OptionRegistration, RowsBeforeTheBuildLieInFrontRowsAfterBehind) {
    registerOptionReal("EarlyScale", 2.5, "", true);
    registerOptionReal("EarlierShadow", 1.0, "", true);
    ASSERT_EQ(optionStore().reals.size(), 2u);
    EXPECT_DOUBLE_EQ(getOptionReal("EarlyScale", false), 2.5);  // the first look-up builds
    EXPECT_EQ(optionStore().reals.findName("earlyscale"), 0u);
    EXPECT_EQ(optionStore().reals.findName("EarlierShadow"), 1u);
    EXPECT_EQ(optionStore().reals[2].name, "ToolErrorMargin");

    // A name missed before its registration is found after it.
    const auto margin = optionStore().reals.findName("ToolErrorMargin");
    EXPECT_DOUBLE_EQ(getOptionReal("LateScale7", false), 2.5) << "row 0 answers an unknown name";
    for (int i = 0; i < 200; ++i)
        registerOptionReal("LateScale" + std::to_string(i), i, "", true);
    EXPECT_EQ(optionStore().reals.findName("LateScale199"), optionStore().reals.size() - 1);
    EXPECT_EQ(optionStore().reals.findName("ToolErrorMargin"), margin);
    EXPECT_DOUBLE_EQ(getOptionReal("ToolErrorMargin", false), 1.5);
    EXPECT_DOUBLE_EQ(getOptionReal("latescale7", false), 7.0);
}

TEST_F(OptionRegistration, RegisteredRowsMeetAssignmentAndTheCommandLine) {
    optionStore().build();
    registerOptionInt("", 1, "x", true);  // an empty name is ignored
    registerOptionReal("", 1.0, "", true);
    registerOptionString("", "a", "", false);
    registerOptionBoolean("", true, "", true);
    const OptionStore& store = optionStore();
    EXPECT_FALSE(store.ints.findName("") || store.reals.findName("") || store.strings.findName("") ||
                 store.booleans.findName(""));
    // Names the settings file cannot hold are refused (the reasons: SettingsTextTest).
    const std::size_t strings = store.strings.size();
    registerOptionString(std::string(200, 'n'), "a", "", true);
    registerOptionString("Key=Value", "a", "", true);
    registerOptionString(std::string(199, 'n'), "a", "", true);
    EXPECT_EQ(store.strings.size(), strings + 1);
    registerOptionInt("MeshDensity", 12, "x", true);
    registerOptionBoolean("DryRun", false, "", false);
    std::string text;
    ASSERT_TRUE(getOption("x", text, false));
    EXPECT_EQ(text, "12");
    EXPECT_EQ(optionStore().ints.findName("x"), std::nullopt) << "typed look-ups know no short names";
    EXPECT_TRUE(setOption("x", "40"));
    EXPECT_EQ(getOptionInt("MeshDensity", false), 40);

    setOptionBoolean("DryRun", true);
    char program[] = "app", density[] = "-meshdensity=41";
    char* argv[] = {program, density};
    EXPECT_TRUE(parseCommandLine(2, argv));
    EXPECT_FALSE(getOptionBoolean("DryRun", false)) << "transient: reset by the command line";
    EXPECT_EQ(getOptionInt("MeshDensity", false), 41);
}

TEST_F(OptionRegistration, RecorderLearnsEachRegisteredDefaultWithItsType) {
    optionStore().build();
    registerOptionInt("RegInt", 3, "", true);
    registerOptionReal("RegReal", 0.5, "", true);
    registerOptionString("RegText", "abc", "", true);
    registerOptionBoolean("RegFlag", true, "", true);
    registerOptionUnits("RegUnits", Unit::Mil, "", true);
    std::string text;
    for (const char* name : {"RegInt", "RegReal", "RegText", "RegFlag", "RegUnits"})
        EXPECT_TRUE(getOption(name, text, true)) << name;
    EXPECT_TRUE(listed().empty());
    setOptionUnits("RegUnits", Unit::Foot);
    getOptionUnits("RegUnits", true);
    EXPECT_EQ(listed(), (std::map<std::string, ConfigValue>{{"RegUnits", ConfigValue(8)}}));

    registerOptionUnits("BadUnits", static_cast<Unit>(42), "", true);  // no range check here
    EXPECT_THROW(getOptionUnits("BadUnits", false), std::out_of_range);

    // A second row of a name is never read, but its default is the one recorded.
    optionsRecorderInstance()->clear();
    registerOptionInt("ToolArcPrecValue", 7, "", true);
    EXPECT_EQ(getOptionInt("ToolArcPrecValue", true), 32);
    EXPECT_EQ(listed(), (std::map<std::string, ConfigValue>{{"ToolArcPrecValue", ConfigValue(32)}}));
    registerOptionInt("ToolArcPrecValue", 32, "", true);
    EXPECT_TRUE(listed().empty());
}

TEST_F(OptionRegistration, SettingsKeepTheirValueUntilTheDefaultsPass) {
    registry().writeIntEntry("Boolean", "KeepTemporary", 1);
    optionStore().build();
    registerOptionBoolean("KeepTemporary", false, "", false);
    registerOptionString("PersistentLabel", "none", "", true);
    EXPECT_FALSE(registry().existingEntry("String", "PersistentLabel")) << "registration writes nothing";
    EXPECT_TRUE(getOptionBoolean("KeepTemporary", false)) << "an earlier run's value wins";

    registry().writeStringEntry("String", "PersistentLabel", "kept");
    optionStore().loadDefaults(true);
    EXPECT_FALSE(getOptionBoolean("KeepTemporary", false));
    EXPECT_EQ(getOptionString("PersistentLabel", false), "kept");
}

}  // namespace
}  // namespace dv::env
