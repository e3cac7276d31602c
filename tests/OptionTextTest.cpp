#include <dv/env/Options.h>

#include "OptionStore.h"
#include "support/StoredEntries.h"
#include "support/Aborted.h"
#include "support/ShownFatalErrors.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <csignal>

namespace dv::env {
namespace {


class SetOption : public test::WithApp, public ::testing::Test {
protected:
    void SetUp() override { internal::optionStore().build(); }
};

struct Assignment {
    const char* name;
    const char* value;
    const char* stored;  // the whole registry after it, or for an unknown name the warning
};

TEST_F(SetOption, StoresEachTypeUnderTheRowsNameAfterOldAndShortNames) {
    const Assignment cases[] = {
        // Strings come first and take any text; their short names ignore case.
        {"DvImportFile", "", "String/DvImportFile=\n"},
        {"I", "in.gds", "String/DvImportFile=in.gds\n"},
        {"o", "out.cif", "String/DvExportFile=out.cif\n"},
        // Booleans take words or, as "%d" reads, a leading 0 or 1; empty is on.
        {"q", "", "Boolean/DvExitWhenFinished=1\n"},
        {"DxfOutFlatten", "1abc", "Boolean/DxfOutFlatten=1\n"}, {"DxfOutFlatten", "0.5", "Boolean/DxfOutFlatten=0\n"},
        {"DxfOutFlatten", " 1", "Boolean/DxfOutFlatten=1\n"},   {"DxfOutFlatten", "No", "Boolean/DxfOutFlatten=0\n"},
        {"DxfOutFlatten", "YES", "Boolean/DxfOutFlatten=1\n"},  {"DxfOutFlatten", "False", "Boolean/DxfOutFlatten=0\n"},
        {"ToolArcPrecValue", "12abc", "Integer/ToolArcPrecValue=12\n"},
        {"ToolArcPrecValue", "TRUE", "Integer/ToolArcPrecValue=1\n"},
        {"ToolArcPrecValue", "false", "Integer/ToolArcPrecValue=0\n"},
        {"ToolArcPrecValue", "  -7", "Integer/ToolArcPrecValue=-7\n"},
        {"ToolArcPrecValue", "+5", "Integer/ToolArcPrecValue=5\n"},
        {"ToolArcPrecValue", "2147483647", "Integer/ToolArcPrecValue=2147483647\n"},
        {"ToolArcPrecValue", "-2147483648", "Integer/ToolArcPrecValue=-2147483648\n"},
        {"toolCROPx0", "2.5mm", "Real/ToolCropX0=2.5\n"}, {"ToolCropX0", " -1e3", "Real/ToolCropX0=-1000\n"},
        {"ToolCropX0", "0x1p3", "Real/ToolCropX0=8\n"},   {"ToolCropX0", ".5", "Real/ToolCropX0=0.5\n"},
        // Names of earlier releases, in any case.
        {"dvcropx0", "1.5", "Real/ToolCropX0=1.5\n"},
        {"DvMergeKeepBoundaries", "true", "Boolean/ToolKeepInternalEdges=1\n"},
        {"DvKeepInternalEdges", "no", "Boolean/ToolKeepInternalEdges=0\n"},
        {"ToolDeembedCutLines", "yes", "Boolean/ToolHolesModeLink=1\n"},
    };
    for (const auto& [name, value, stored] : cases) {
        registry().clear();
        EXPECT_TRUE(setOption(name, value)) << name << " = " << value;
        EXPECT_EQ(test::storedEntries(registry()), stored) << name << " = " << value;
    }
}

TEST_F(SetOption, LoadDefaultsTakesEmptyTrueOrYesAndUnknownNamesStoreNothing) {
    for (const char* value : {"", "TRUE", "yEs"}) {
        registry().writeIntEntry("Integer", "ToolArcPrecValue", 64);  // persistent
        EXPECT_TRUE(setOption("dvloaddefaults", value)) << value;
        EXPECT_EQ(registry().readIntEntry("Integer", "ToolArcPrecValue", 0), 32) << value;
    }
    registry().clear();
    const Assignment cases[] = {
        {"Q", "1", "Q"},  // a boolean's short name keeps its case
        {"DvCropAddBounds", "1", "ToolCropAddBounds"},  // the current name has no row
        {"DvProgramType", "3", "DvProgramType"},
        {"DvLoadDefaults", "false", "DvLoadDefaults"},
        {"DvLoadDefaults", "1", "DvLoadDefaults"},
    };
    for (const auto& [name, value, warned] : cases) {
        ::testing::internal::CaptureStderr();
        EXPECT_FALSE(setOption(name, value)) << name;
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Unknown option: " + std::string(warned) + "\n");
        EXPECT_EQ(test::storedEntries(registry()), "") << name << " = " << value;
    }
    EXPECT_EQ(getOptionInt("DvProgramType", false), 0);
}

// No test may wait on a dialog: the fatal ones are written out instead.
class SetOptionDeathTest : public test::WithShownFatalErrors, public SetOption {};

TEST_F(SetOptionDeathTest, MissingOrUnconvertibleNumbersAreFatal) {
    // A value is missing only after the strings and booleans are searched.
    const Assignment cases[] = {
        {"ToolArcPrecValue", "", "ToolArcPrecValue"},       {"ToolCropX0", "", "ToolCropX0"},
        {"NoSuchOption", "", "NoSuchOption"},               {"Q", "", "Q"},
        {"DvArcPrecValue", "", "ToolArcPrecValue"},         {"DvExitWhenFinished", "2", "DvExitWhenFinished"},
        {"DvExitWhenFinished", "-1", "DvExitWhenFinished"}, {"DvExitWhenFinished", "out.gds", "DvExitWhenFinished"},
        {"ToolArcPrecValue", "yes", "ToolArcPrecValue"},    {"ToolArcPrecValue", "4294967297", "ToolArcPrecValue"},
        {"ToolArcPrecValue", "-2147483649", "ToolArcPrecValue"},
        {"ToolCropX0", "true", "ToolCropX0"},               {"ToolCropX0", "0x", "ToolCropX0"},
        {"DvArcPrecValue", "abc", "ToolArcPrecValue"},
    };
    for (const auto& [name, value, reported] : cases) {
        const std::string report = std::string(*value ? "Invalid numeric" : "Missing") + " parameter for option: " + reported;
        // Shown in a dialog first, then the toolkit's report on standard error.
        EXPECT_EXIT(setOption(name, value), test::endedByAbort(), "^shown: " + report + "\n" + report + "\n$")
            << name << " = " << value;
    }
}

}  // namespace
}  // namespace dv::env
