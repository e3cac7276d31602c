#include <dv/env/Options.h>

#include "OptionTables.h"
#include "support/TempDir.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <csignal>

namespace dv::env {
namespace {

using ::testing::KilledBySignal;

class SetOption : public test::WithApp, public ::testing::Test {
protected:
    void SetUp() override { internal::buildOptionTables(); }

    bool has(const char* section, const char* key) { return registry().existingEntry(section, key); }
    int integer(const char* key) { return registry().readIntEntry("Integer", key, -12345); }
    int boolean(const char* key) { return registry().readIntEntry("Boolean", key, -12345); }
    double real(const char* key) { return registry().readRealEntry("Real", key, -12345.0); }
    std::string string(const char* key) { return registry().readStringEntry("String", key, "<none>"); }

    // setOption's result with what it wrote to standard error.
    std::pair<bool, std::string> withStderr(std::string_view name, std::string_view value) {
        ::testing::internal::CaptureStderr();
        const bool result = setOption(name, value);
        return {result, ::testing::internal::GetCapturedStderr()};
    }
};

TEST_F(SetOption, CommandNamesReadCommandFilesInAnyCase) {
    test::TempDir dir;
    const std::string file = dir.write("a.cmd", "[Dravik]\nToolArcPrecValue=64\n");
    EXPECT_TRUE(setOption("dvCOMMANDfile", file));
    EXPECT_EQ(integer("ToolArcPrecValue"), 64);
    registry().clear();
    EXPECT_TRUE(setOption("C", file));
    EXPECT_EQ(integer("ToolArcPrecValue"), 64);
    EXPECT_TRUE(setOption("c", ""));
    EXPECT_TRUE(setOption("c", dir.path("missing.cmd")));
}

TEST_F(SetOption, LoadDefaultsTakesEmptyTrueOrYesAndIsUnknownOtherwise) {
    for (const char* value : {"", "TRUE", "yEs"}) {
        registry().writeIntEntry("Integer", "ToolArcPrecValue", 64);  // persistent
        EXPECT_TRUE(setOption("dvloaddefaults", value)) << value;
        EXPECT_EQ(integer("ToolArcPrecValue"), 32) << value;
    }
    for (const char* value : {"false", "1"}) {
        registry().writeIntEntry("Integer", "ToolArcPrecValue", 64);
        const auto [result, errors] = withStderr("DvLoadDefaults", value);
        EXPECT_FALSE(result);
        EXPECT_EQ(errors, "Unknown option: DvLoadDefaults\n");
        EXPECT_EQ(integer("ToolArcPrecValue"), 64);
    }
}

TEST_F(SetOption, OldNamesStoreUnderTheirCurrentNames) {
    EXPECT_TRUE(setOption("dvcropx0", "1.5"));
    EXPECT_DOUBLE_EQ(real("ToolCropX0"), 1.5);
    EXPECT_TRUE(setOption("DvMergeKeepBoundaries", "true"));
    EXPECT_EQ(boolean("ToolKeepInternalEdges"), 1);
    EXPECT_TRUE(setOption("DvKeepInternalEdges", "no"));
    EXPECT_EQ(boolean("ToolKeepInternalEdges"), 0);
    EXPECT_TRUE(setOption("ToolDeembedCutLines", "yes"));
    EXPECT_EQ(boolean("ToolHolesModeLink"), 1);
    EXPECT_FALSE(has("Boolean", "ToolDeembedCutLines"));

    // The current name has no row: the warning names it, not the old name.
    const auto [result, errors] = withStderr("DvCropAddBounds", "1");
    EXPECT_FALSE(result);
    EXPECT_EQ(errors, "Unknown option: ToolCropAddBounds\n");
}

TEST_F(SetOption, ShortNamesIgnoreCaseOnlyForStrings) {
    EXPECT_TRUE(setOption("I", "in.gds"));
    EXPECT_EQ(string("DvImportFile"), "in.gds");
    EXPECT_TRUE(setOption("o", "out.cif"));
    EXPECT_EQ(string("DvExportFile"), "out.cif");

    const auto [result, errors] = withStderr("Q", "1");
    EXPECT_FALSE(result);
    EXPECT_EQ(errors, "Unknown option: Q\n");
    EXPECT_FALSE(has("Boolean", "DvExitWhenFinished"));

    EXPECT_TRUE(setOption("q", ""));  // an empty value switches a boolean on
    EXPECT_EQ(boolean("DvExitWhenFinished"), 1);
}

TEST_F(SetOption, ValuesConvertAsTheScanfFormatsRead) {
    EXPECT_TRUE(setOption("DvImportFile", ""));
    EXPECT_TRUE(has("String", "DvImportFile"));
    EXPECT_EQ(string("DvImportFile"), "");

    const std::pair<const char*, int> booleans[] = {{"1abc", 1}, {"0.5", 0}, {" 1", 1}, {"No", 0}, {"YES", 1},
                                                    {"False", 0}};
    for (const auto& [text, stored] : booleans) {
        EXPECT_TRUE(setOption("DxfOutFlatten", text));
        EXPECT_EQ(boolean("DxfOutFlatten"), stored) << text;
    }
    const std::pair<const char*, int> integers[] = {{"12abc", 12}, {"TRUE", 1}, {"false", 0}, {"  -7", -7},
                                                    {"+5", 5},     {"2147483647", 2147483647},
                                                    {"-2147483648", -2147483647 - 1}};
    for (const auto& [text, stored] : integers) {
        EXPECT_TRUE(setOption("ToolArcPrecValue", text));
        EXPECT_EQ(integer("ToolArcPrecValue"), stored) << text;
    }
    const std::pair<const char*, double> reals[] = {{"2.5mm", 2.5}, {" -1e3", -1000.0}, {"0x1p3", 8.0}, {".5", 0.5}};
    for (const auto& [text, stored] : reals) {
        EXPECT_TRUE(setOption("toolCROPx0", text));
        EXPECT_DOUBLE_EQ(real("ToolCropX0"), stored) << text;
    }
    EXPECT_FALSE(has("Real", "toolCROPx0"));  // the key is the row's own spelling
}

TEST_F(SetOption, DvProgramTypeIsNoTableRow) {
    const auto [result, errors] = withStderr("DvProgramType", "3");
    EXPECT_FALSE(result);
    EXPECT_EQ(errors, "Unknown option: DvProgramType\n");
    EXPECT_EQ(getOptionInt("DvProgramType", false), 0);
}

using SetOptionDeathTest = SetOption;

TEST_F(SetOptionDeathTest, MissingValueIsFatalForIntegersRealsAndUnknownNames) {
    EXPECT_EXIT(setOption("ToolArcPrecValue", ""), KilledBySignal(SIGABRT),
                "^Missing parameter for option: ToolArcPrecValue\n$");
    EXPECT_EXIT(setOption("ToolCropX0", ""), KilledBySignal(SIGABRT), "Missing parameter for option: ToolCropX0\n");
    // Checked before the integer and real tables are searched.
    EXPECT_EXIT(setOption("NoSuchOption", ""), KilledBySignal(SIGABRT), "Missing parameter for option: NoSuchOption");
    EXPECT_EXIT(setOption("Q", ""), KilledBySignal(SIGABRT), "Missing parameter for option: Q");
    EXPECT_EXIT(setOption("DvArcPrecValue", ""), KilledBySignal(SIGABRT),
                "Missing parameter for option: ToolArcPrecValue");
}

TEST_F(SetOptionDeathTest, UnconvertibleValueIsFatal) {
    const std::pair<const char*, const char*> cases[] = {
        {"DvExitWhenFinished", "2"},  {"DvExitWhenFinished", "-1"},      {"DvExitWhenFinished", "out.gds"},
        {"ToolArcPrecValue", "yes"},  {"ToolArcPrecValue", "4294967297"}, {"ToolArcPrecValue", "-2147483649"},
        {"ToolCropX0", "true"},       {"ToolCropX0", "0x"},               {"DvArcPrecValue", "abc"},
    };
    for (const auto& [name, value] : cases) {
        const std::string current = std::string_view(name) == "DvArcPrecValue" ? "ToolArcPrecValue" : name;
        EXPECT_EXIT(setOption(name, value), KilledBySignal(SIGABRT),
                    "^Invalid numeric parameter for option: " + current + "\n$")
            << name << " = " << value;
    }
}

}  // namespace
}  // namespace dv::env
