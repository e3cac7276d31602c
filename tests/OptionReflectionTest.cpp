#include <dv/env/OptionReflection.h>
#include <dv/env/OptionRegistration.h>
#include <dv/env/Options.h>

#include "support/StoredEntries.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <tuple>

namespace dv::env {
namespace {

class OptionReflection : public test::WithApp, public ::testing::Test {
protected:
    test::ClogCapture clog;
};

TEST_F(OptionReflection, ListsEveryOptionOnceInTextualOrderWithItsDescription) {
    listOptions();  // builds: what is registered now goes behind the catalogue
    registerOptionInt("ToolArcPrecValue", 7, "", true);  // a second row of a name is never reached
    registerOptionReal("PlotScale", 1e-9, "p", false);
    const auto options = listOptions();
    ASSERT_EQ(options.size(), 26u + 120u + 83u + 27u + 1u);
    EXPECT_EQ(options.front().type, OptionType::String);
    EXPECT_EQ(options.back().name, "PlotScale");
    EXPECT_TRUE(std::is_sorted(options.begin(), options.end(), [](const OptionInfo& a, const OptionInfo& b) {
        const auto rank = [](OptionType type) {
            return type == OptionType::String ? 0 : type == OptionType::Boolean ? 1 : type == OptionType::Integer ? 2 : 3;
        };
        return rank(a.type) < rank(b.type);
    }));
    std::map<std::string, OptionInfo> byName;
    for (const OptionInfo& option : options)
        EXPECT_TRUE(byName.emplace(option.name, option).second) << option.name;
    const std::tuple<const char*, OptionType, const char*, bool, const char*> expected[] = {
        {"ToolArcPrecValue", OptionType::Integer, "32", true, ""},
        {"ToolErrorMargin", OptionType::Real, "1.5", true, ""},
        {"PlotScale", OptionType::Real, "1e-09", false, "p"},
        {"DvExportFile", OptionType::String, "", false, "o"},
        {"DvExitWhenFinished", OptionType::Boolean, "false", false, "q"},
        {"CifOutHeader", OptionType::String, "(CIF written by Dravik);", true, ""},
    };
    for (const auto& [name, type, defaultText, persistent, shortName] : expected) {
        const OptionInfo& option = byName.at(name);
        EXPECT_EQ(option.type, type) << name;
        EXPECT_EQ(option.defaultText, defaultText) << name;
        EXPECT_EQ(option.persistent, persistent) << name;
        EXPECT_EQ(option.shortName, shortName) << name;
    }
}

TEST_F(OptionReflection, FindsByNameShortNameOrOldName) {
    const std::pair<const char*, const char*> names[] = {{"toolarcprecvalue", "ToolArcPrecValue"},
                                                         {"DvArcPrecValue", "ToolArcPrecValue"},
                                                         {"dvmergekeepboundaries", "ToolKeepInternalEdges"},
                                                         {"O", "DvExportFile"},
                                                         {"q", "DvExitWhenFinished"}};
    for (const auto& [given, found] : names) {
        const auto option = findOption(given);
        ASSERT_TRUE(option) << given;
        EXPECT_EQ(option->name, found) << given;
    }
    for (const char* unknown : {"Q", "DvProgramType", "DvCropAddBounds", "", "c"})
        EXPECT_FALSE(findOption(unknown)) << unknown;
}

// The rules of setOption (its own tests hold them case by case), reported
// instead of carried out, and nothing stored but by an assignment that
// succeeds.
TEST_F(OptionReflection, AssignsByTheRulesOfSetOptionAndReportsWhatFails) {
    const std::tuple<const char*, const char*, AssignStatus, const char*> cases[] = {
        {"DvArcPrecValue", "5", AssignStatus::Assigned, "ToolArcPrecValue"},
        {"toolcropx0", "1.5mm", AssignStatus::Assigned, "ToolCropX0"},
        {"q", "", AssignStatus::Assigned, "DvExitWhenFinished"},
        {"i", "in.gds", AssignStatus::Assigned, "DvImportFile"},
        {"DvCropAddBounds", "1", AssignStatus::UnknownName, "ToolCropAddBounds"},
        {"NoSuchOption", "", AssignStatus::MissingValue, "NoSuchOption"},
        {"DxfOutFlatten", "2", AssignStatus::InvalidNumber, "DxfOutFlatten"},
        {"ToolCropX0", "true", AssignStatus::InvalidNumber, "ToolCropX0"},
        {"C", "file.cmd", AssignStatus::Command, "C"},
        {"dvcommandfile", "", AssignStatus::Command, "dvcommandfile"},
        {"DvLoadDefaults", "Yes", AssignStatus::Command, "DvLoadDefaults"},
        {"DvLoadDefaults", "false", AssignStatus::UnknownName, "DvLoadDefaults"},
    };
    for (const auto& [name, value, status, reported] : cases) {
        const std::string before = test::storedEntries(registry());
        const Assignment done = assignOption(name, value);
        EXPECT_EQ(done.status, status) << name << "=" << value;
        EXPECT_EQ(done.name, reported) << name << "=" << value;
        if (status != AssignStatus::Assigned) {
            EXPECT_EQ(test::storedEntries(registry()), before) << name << "=" << value;
        }
    }
    EXPECT_EQ(test::storedEntries(registry()), "Boolean/DvExitWhenFinished=1\nInteger/ToolArcPrecValue=5\n"
                                               "Real/ToolCropX0=1.5\nString/DvImportFile=in.gds\n");
    EXPECT_TRUE(isCommandName("c") && isCommandName("DVLOADDEFAULTS") && !isCommandName("DvLoadDefault"));
    EXPECT_EQ(describe(assignOption("ToolCropX0", "x")), "Invalid numeric parameter for option: ToolCropX0");
    EXPECT_EQ(describe(assignOption("Nope", "")), "Missing parameter for option: Nope");
    EXPECT_EQ(describe(assignOption("Nope", "1")), "Unknown option: Nope");
}

}  // namespace
}  // namespace dv::env
