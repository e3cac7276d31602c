#include <dv/env/ConfigRecorder.h>
#include <dv/env/Options.h>

#include "OptionTables.h"
#include "OptionsRecorder.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <set>
#include <thread>
#include <vector>

namespace dv::env {
namespace {

using namespace internal;

class Options : public test::WithApp, public ::testing::Test {
protected:
    void SetUp() override {
        buildOptionTables();
        optionsRecorderInstance()->clear();
    }
    test::ClogCapture clog;
};

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

TEST(OptionCatalogue, HasEveryRowOnceWithItsDefaultsAndTransients) {
    EXPECT_EQ(builtinIntOptions.size(), 83u);
    EXPECT_EQ(builtinRealOptions.size(), 27u);
    EXPECT_EQ(builtinStringOptions.size(), 26u);
    EXPECT_EQ(builtinBoolOptions.size(), 120u);

    std::set<std::string> names;
    std::vector<std::string> transient;
    std::vector<std::string> shortNames;
    auto collect = [&](const auto& table) {
        for (const auto& row : table) {
            EXPECT_FALSE(row.name.empty());
            EXPECT_TRUE(names.insert(upper(row.name)).second) << row.name;
            if (!row.persistent)
                transient.push_back(row.name);
            if (!row.shortName.empty())
                shortNames.push_back(row.shortName + ":" + row.name);
        }
    };
    collect(builtinIntOptions);
    collect(builtinRealOptions);
    collect(builtinStringOptions);
    collect(builtinBoolOptions);
    EXPECT_EQ(transient, (std::vector<std::string>{
                             "ToolSnapToGridSpacing", "ToolShapeFilter", "ToolExtractionHolesMode", "DvUserUnitsNm",
                             "PsOutDbScale", "DvExportFile", "DvImportFile", "DvSkipSteps", "ToolApply",
                             "DvApplyLayerMap", "DvApplyLayerMapBatch", "DvConvertBatch", "DvExitWhenFinished",
                             "DvNoRestart", "DvSaveSettings", "DvSelectTopCell", "DvSuccess", "DvKeepTempFiles",
                             "CmdToolCropBounds", "LvDisabled"}));
    EXPECT_EQ(shortNames, (std::vector<std::string>{"o:DvExportFile", "i:DvImportFile", "q:DvExitWhenFinished"}));
}

TEST_F(Options, BuildReversesTheCatalogue) {
    EXPECT_EQ(intOptions[0].name, "RasterInMergeType");
    EXPECT_EQ(realOptions[0].name, "ToolErrorMargin");
    EXPECT_EQ(stringOptions[0].name, "PsInPstoeditOptions");
    EXPECT_EQ(boolOptions[0].name, "RasterInKeepWhite");
    EXPECT_EQ(intOptions.back().name, "DvDisplayUnits");
}

TEST_F(Options, DefaultsAnswerReadsOfMissingEntries) {
    EXPECT_EQ(getOptionInt("ToolArcPrecUnits", false), -1);
    EXPECT_EQ(getOptionInt("TlcOutUserUnits", false), 20);
    EXPECT_DOUBLE_EQ(getOptionReal("GbrOutRectAptLimitValue", false), 0.5);
    EXPECT_EQ(getOptionInt("GbrOutRectAptLimitUnits", false), 6);
    EXPECT_EQ(getOptionString("CifOutHeader", false), "(CIF written by Dravik);");
    EXPECT_TRUE(getOptionBoolean("DvDeleteEmtpyCells", false));
    EXPECT_TRUE(getOptionBoolean("LvAccellerate", false));
}

TEST_F(Options, WritesUnderTheRowsOwnSpellingWhateverTheCaller) {
    setOptionInt("toolarcprecvalue", 64);
    EXPECT_EQ(registry().readIntEntry("Integer", "ToolArcPrecValue", 0), 64);
    EXPECT_EQ(getOptionInt("TOOLARCPRECVALUE", false), 64);
    setOptionReal("dxfinscaling", 2.25);
    EXPECT_DOUBLE_EQ(registry().readRealEntry("Real", "DxfInScaling", 0), 2.25);
    setOptionString("dvfontpath", "/usr/share/fonts");
    EXPECT_STREQ(registry().readStringEntry("String", "DvFontPath", ""), "/usr/share/fonts");
    setOptionBoolean("dxfoutflatten", true);
    EXPECT_EQ(registry().readIntEntry("Boolean", "DxfOutFlatten", 0), 1);
}

TEST_F(Options, BooleanEntryOfTwoReadsTrueAndLogsOne) {
    registry().writeIntEntry("Boolean", "GdsInIgnoreText", 2);
    clog.reset();
    EXPECT_TRUE(getOptionBoolean("GdsInIgnoreText", false));
    EXPECT_NE(clog.text().find("GdsInIgnoreText = 1\n"), std::string::npos) << clog.text();
}

TEST_F(Options, UnknownNamesActOnRowZeroAndSettersWriteNothing) {
    registry().writeIntEntry("Integer", "RasterInMergeType", 5);
    EXPECT_EQ(getOptionInt("NoSuchOption", false), 5);
    EXPECT_EQ(getOptionInt("", false), 5);
    EXPECT_DOUBLE_EQ(getOptionReal("NoSuchOption", false), 1.5);
    EXPECT_EQ(getOptionString("o", false), "");  // short names do not reach the typed look-ups

    setOptionInt("NoSuchOption", 9);
    setOptionReal("NoSuchOption", 9.0);
    setOptionString("NoSuchOption", "x");
    setOptionBoolean("NoSuchOption", true);
    EXPECT_EQ(registry().readIntEntry("Integer", "RasterInMergeType", 0), 5);
    EXPECT_FALSE(registry().existingEntry("Real", "ToolErrorMargin"));
    EXPECT_FALSE(registry().existingEntry("String", "PsInPstoeditOptions"));
    EXPECT_FALSE(registry().existingEntry("Boolean", "RasterInKeepWhite"));
    EXPECT_FALSE(registry().existingEntry("Integer", "NoSuchOption"));
}

TEST_F(Options, ProgramTypeLivesOutsideTheRegistry) {
    EXPECT_EQ(getOptionInt("DvProgramType", true), 0);
    setOptionInt("DvProgramType", 3);
    EXPECT_EQ(getOptionInt("DvProgramType", true), 3);
    EXPECT_FALSE(registry().existingEntry("Integer", "DvProgramType"));
    EXPECT_EQ(clog.text(), "");
    EXPECT_TRUE(optionsRecorder()->getConfiguration()->params().empty());
    setOptionInt("DvProgramType", 0);

    // Any other spelling is merely unknown.
    testing::internal::CaptureStderr();
    std::string text = "kept";
    EXPECT_FALSE(getOption("DvProgramType", text, false));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unknown option: DvProgramType\n");
    EXPECT_EQ(text, "kept");
}

TEST(ProgramType, WorksWithoutApplicationObject) {
    ASSERT_EQ(FXApp::instance(), nullptr);
    EXPECT_FALSE(testOption("ToolArcPrecValue"));
    setOptionInt("DvProgramType", 7);
    EXPECT_EQ(getOptionInt("DvProgramType", false), 7);
    setOptionInt("DvProgramType", 0);
}

TEST_F(Options, TestOptionIgnoresTheName) {
    EXPECT_TRUE(testOption("ToolArcPrecValue"));
    EXPECT_TRUE(testOption("NoSuchOption"));
}

TEST_F(Options, TextualReadGivesTheTextFormOfEachType) {
    std::string text;
    ASSERT_TRUE(getOption("ToolErrorMargin", text, false));
    EXPECT_EQ(text, "1.500000");
    ASSERT_TRUE(getOption("toolconverttext", text, false));
    EXPECT_EQ(text, "true");
    setOptionInt("DvWindowPosX", -40);
    ASSERT_TRUE(getOption("DvWindowPosX", text, false));
    EXPECT_EQ(text, "-40");
    setOptionString("DvExportFile", "out.gds");
    ASSERT_TRUE(getOption("o", text, false));
    EXPECT_EQ(text, "out.gds");
    ASSERT_TRUE(getOption("q", text, false));
    EXPECT_EQ(text, "false");
    ASSERT_TRUE(getOption("i", text, false));
    EXPECT_EQ(text, "");

    testing::internal::CaptureStderr();
    text = "kept";
    EXPECT_FALSE(getOption("O", text, false));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unknown option: O\n");
    EXPECT_EQ(text, "kept");
}

TEST_F(Options, ReadLogsFirstSightAndChangesOnly) {
    clog.reset();
    getOptionInt("SonXCells", false);
    getOptionInt("SonXCells", true);
    EXPECT_EQ(clog.text(), "Options         :" + clog.text().substr(17, 4) + "   SonXCells = 64\n");
    setOptionInt("SonXCells", 64);
    getOptionInt("SonXCells", false);
    setOptionInt("SonXCells", 65);
    getOptionInt("sonxcells", false);
    const std::string lines = clog.text();
    EXPECT_NE(lines.find("SonXCells = 65\n"), std::string::npos);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 2);
}

TEST_F(Options, RecordsUnderTheCallersSpellingAndRecordOptionUnderTheRows) {
    setOptionReal("DxfOutScaling", 2.0);
    getOptionReal("dxfoutscaling", true);
    recordOption("DXFOUTSCALING");
    getOptionReal("DxfInScaling", false);
    std::set<std::string> names;
    const auto configuration = optionsRecorder()->getConfiguration();
    for (auto& parameter : configuration->params()) {
        names.insert(parameter.name);
        EXPECT_EQ(parameter.value, ConfigValue(2.0));
    }
    EXPECT_EQ(names, (std::set<std::string>{"dxfoutscaling", "DxfOutScaling"}));

    testing::internal::CaptureStderr();
    recordOption("NoSuchOption");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unknown option: NoSuchOption\n");
    EXPECT_EQ(optionsRecorder()->getConfiguration()->params().size(), 2u);
}

TEST_F(Options, LoadDefaultsResetsTransientRowsOrAllAndTellsTheRecorder) {
    setOptionInt("ToolSnapToGridSpacing", 99);    // transient
    setOptionInt("ToolArcPrecValue", 64);         // persistent
    setOptionString("DvImportFile", "in.gds");    // transient
    setOptionBoolean("DvExitWhenFinished", true);  // transient
    setOptionReal("PsOutDbScale", 3.0);           // transient
    loadDefaults(true);
    EXPECT_EQ(getOptionInt("ToolSnapToGridSpacing", false), 10);
    EXPECT_EQ(getOptionInt("ToolArcPrecValue", false), 64);
    EXPECT_EQ(getOptionString("DvImportFile", false), "");
    EXPECT_FALSE(getOptionBoolean("DvExitWhenFinished", false));
    EXPECT_DOUBLE_EQ(getOptionReal("PsOutDbScale", false), 0.01);

    // The recorder knows every default, persistent or not.
    getOptionInt("ToolArcPrecValue", true);
    getOptionInt("ToolSnapToGridSpacing", true);
    auto params = optionsRecorder()->getConfiguration()->params();
    ASSERT_EQ(params.size(), 1u);
    EXPECT_EQ(params.front().name, "ToolArcPrecValue");

    loadDefaults(false);
    EXPECT_EQ(getOptionInt("ToolArcPrecValue", false), 32);
}

TEST_F(Options, LookUpsCacheEachSpellingAndNeverAMiss) {
    const std::size_t index = intOptionIndex("ToolArcPrecValue");
    EXPECT_EQ(intOptions[index].name, "ToolArcPrecValue");
    EXPECT_EQ(intOptionIndex("toolarcprecvalue"), index);
    EXPECT_FALSE(findIntOption("ToolLaterRegistered").has_value());
    intOptions.emplace_back(true, "ToolLaterRegistered", "", 5);
    ASSERT_TRUE(findIntOption("toollaterregistered").has_value());
    EXPECT_EQ(*findIntOption("ToolLaterRegistered"), intOptions.size() - 1);
}

TEST(OptionTables, FirstAccessFromManyThreadsBuildsOnce) {
    // Textual operations build without the mutex while look-ups build under
    // it; ThreadSanitizer checks that the two meet safely.
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([t] {
            if (t % 2 == 0)
                buildOptionTables();
            else
                EXPECT_EQ(boolOptions[boolOptionIndex("DxfOutBinary")].name, "DxfOutBinary");
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(std::count_if(intOptions.begin(), intOptions.end(),
                            [](const IntOption& row) { return row.name == "DvDisplayUnits"; }),
              1);
}

}  // namespace
}  // namespace dv::env
