#include <dv/env/ConfigRecorder.h>
#include <dv/env/Options.h>

#include "OptionStore.h"
#include "OptionsRecorder.h"
#include "support/StoredEntries.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <set>
#include <thread>
#include <utility>
#include <vector>

namespace dv::env {
namespace {

using namespace internal;

class Options : public test::WithApp, public ::testing::Test {
protected:
    void SetUp() override {
        optionStore().build();
        optionsRecorderInstance()->clear();
    }
    test::ClogCapture clog;
};

TEST(OptionCatalogue, HasEveryRowOnceWithItsDefaultsAndTransients) {
    EXPECT_EQ((std::vector{builtinIntOptions.size(), builtinRealOptions.size(), builtinStringOptions.size(),
                           builtinBoolOptions.size()}),
              (std::vector<std::size_t>{83, 27, 26, 120}));
    std::set<std::string> names;
    std::vector<std::string> transient, shortNames;
    auto collect = [&](const auto& table) {
        for (const auto& row : table) {
            EXPECT_TRUE(!row.name.empty() && names.insert(FXString(row.name.c_str()).upper().text()).second)
                << row.name;
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

TEST_F(Options, TablesReverseTheCatalogue) {
    const OptionStore& store = optionStore();
    EXPECT_EQ(store.ints[0].name, "RasterInMergeType");
    EXPECT_EQ(store.reals[0].name, "ToolErrorMargin");
    EXPECT_EQ(store.strings[0].name, "PsInPstoeditOptions");
    EXPECT_EQ(store.booleans[0].name, "RasterInKeepWhite");
    EXPECT_EQ(store.ints[store.ints.size() - 1].name, "DvDisplayUnits");
}

TEST_F(Options, MissingEntriesReadTheirDefaultAndUnknownNamesRowZero) {
    EXPECT_EQ(getOptionInt("ToolArcPrecUnits", false), -1);
    EXPECT_EQ(getOptionInt("TlcOutUserUnits", false), 20);
    EXPECT_DOUBLE_EQ(getOptionReal("GbrOutRectAptLimitValue", false), 0.5);
    EXPECT_EQ(getOptionString("CifOutHeader", false), "(CIF written by Dravik);");
    EXPECT_TRUE(getOptionBoolean("DvDeleteEmtpyCells", false));
    EXPECT_TRUE(getOptionBoolean("LvAccellerate", false));

    registry().writeIntEntry("Integer", "RasterInMergeType", 5);
    setOptionString("DvExportFile", "out.gds");
    EXPECT_EQ(getOptionInt("NoSuchOption", false), 5);
    EXPECT_EQ(getOptionInt("", false), 5);
    EXPECT_DOUBLE_EQ(getOptionReal("NoSuchOption", false), 1.5);
    EXPECT_EQ(getOptionString("o", false), "");  // short names do not reach the typed look-ups
    EXPECT_TRUE(testOption("NoSuchOption"));     // any name, given an application
}

TEST_F(Options, SettersWriteUnderTheRowsOwnSpellingAndNothingForUnknownNames) {
    setOptionInt("toolarcprecvalue", 64);
    setOptionReal("dxfinscaling", 2.25);
    setOptionString("dvfontpath", "/usr/share/fonts");
    setOptionBoolean("dxfoutflatten", true);
    setOptionInt("NoSuchOption", 9);
    setOptionReal("NoSuchOption", 9.0);
    setOptionString("NoSuchOption", "x");
    setOptionBoolean("NoSuchOption", true);
    EXPECT_EQ(test::storedEntries(registry()), "Boolean/DxfOutFlatten=1\nInteger/ToolArcPrecValue=64\n"
                                               "Real/DxfInScaling=2.25\nString/DvFontPath=/usr/share/fonts\n");
    EXPECT_EQ(getOptionInt("TOOLARCPRECVALUE", false), 64);
}

TEST(ProgramType, LivesOutsideTheRegistryAndNeedsNoApplication) {
    ASSERT_EQ(FXApp::instance(), nullptr);
    EXPECT_FALSE(testOption("ToolArcPrecValue"));
    EXPECT_EQ(getOptionInt("DvProgramType", false), 0);
    setOptionInt("DvProgramType", 7);
    EXPECT_EQ(getOptionInt("DvProgramType", false), 7);

    FXApp app("DravikTest", "DravikTest");
    test::ClogCapture clog;
    optionsRecorderInstance()->clear();
    EXPECT_EQ(getOptionInt("DvProgramType", true), 7);
    EXPECT_EQ(test::storedEntries(app.reg()), "");
    EXPECT_EQ(clog.text(), "");
    EXPECT_TRUE(optionsRecorder()->getConfiguration()->params().empty());
    setOptionInt("DvProgramType", 0);
}

TEST_F(Options, TextualReadGivesTheTextFormOfEachType) {
    setOptionInt("DvWindowPosX", -40);
    setOptionString("DvExportFile", "out.gds");
    const std::pair<const char*, const char*> cases[] = {{"ToolErrorMargin", "1.500000"}, {"toolconverttext", "true"},
                                                         {"DvWindowPosX", "-40"},         {"o", "out.gds"},
                                                         {"q", "false"},                  {"i", ""}};
    for (const auto& [name, expected] : cases) {
        std::string text = "kept";
        EXPECT_TRUE(getOption(name, text, false)) << name;
        EXPECT_EQ(text, expected) << name;
    }
    // Short names keep their case; the program type is no row here.
    for (const std::string name : {"O", "DvProgramType"}) {
        testing::internal::CaptureStderr();
        std::string text = "kept";
        EXPECT_FALSE(getOption(name, text, false));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unknown option: " + name + "\n");
        EXPECT_EQ(text, "kept");
    }
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

    // A stored boolean of 2 reads true and logs as 1.
    registry().writeIntEntry("Boolean", "GdsInIgnoreText", 2);
    EXPECT_TRUE(getOptionBoolean("GdsInIgnoreText", false));
    EXPECT_NE(clog.text().find("GdsInIgnoreText = 1\n"), std::string::npos) << clog.text();
}

TEST_F(Options, RecordsUnderTheCallersSpellingAndRecordOptionUnderTheRows) {
    setOptionReal("DxfOutScaling", 2.0);
    getOptionReal("dxfoutscaling", true);
    recordOption("DXFOUTSCALING");
    getOptionReal("DxfInScaling", false);
    testing::internal::CaptureStderr();
    recordOption("NoSuchOption");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unknown option: NoSuchOption\n");

    std::multimap<std::string, ConfigValue> listed;
    const auto configuration = optionsRecorder()->getConfiguration();
    for (auto& parameter : configuration->params())
        listed.emplace(parameter.name, parameter.value);
    EXPECT_EQ(listed, (std::multimap<std::string, ConfigValue>{{"DxfOutScaling", 2.0}, {"dxfoutscaling", 2.0}}));
}

TEST_F(Options, LoadDefaultsResetsTransientRowsOrAllAndTellsTheRecorder) {
    setOptionInt("ToolSnapToGridSpacing", 99);  // the others but ToolArcPrecValue are transient
    setOptionInt("ToolArcPrecValue", 64);
    setOptionString("DvImportFile", "in.gds");
    setOptionBoolean("DvExitWhenFinished", true);
    setOptionReal("PsOutDbScale", 3.0);
    optionStore().loadDefaults(true);
    EXPECT_EQ(getOptionInt("ToolSnapToGridSpacing", true), 10);
    EXPECT_EQ(getOptionInt("ToolArcPrecValue", true), 64);
    EXPECT_EQ(getOptionString("DvImportFile", false), "");
    EXPECT_FALSE(getOptionBoolean("DvExitWhenFinished", false));
    EXPECT_DOUBLE_EQ(getOptionReal("PsOutDbScale", false), 0.01);
    // The recorder knows every default, persistent or not.
    EXPECT_EQ(getOptionInt("ToolQuasiCircleMinFacets", true), 32);
    const auto params = optionsRecorder()->getConfiguration()->params();
    ASSERT_EQ(params.size(), 1u);
    EXPECT_EQ(params.front().name, "ToolArcPrecValue");

    optionStore().loadDefaults(false);
    EXPECT_EQ(getOptionInt("ToolArcPrecValue", false), 32);
    // Defaults stored already are not written again: the registry stays unmodified.
    registry().setModified(false);
    optionStore().loadDefaults(false);
    optionStore().loadDefaults(true);
    EXPECT_FALSE(registry().isModified());
    registry().deleteEntry("String", "DvImportFile");
    optionStore().loadDefaults(true);
    EXPECT_TRUE(registry().existingEntry("String", "DvImportFile"));
}

TEST_F(Options, ResetDeletesTheEntrySoTheDefaultAppliesAndLeavesOthersAlone) {
    setOptionInt("ToolArcPrecValue", 64);
    setOptionReal("DxfInScaling", 2.25);
    setOptionString("DvImportFile", "in.gds");
    setOptionBoolean("ToolConvertText", false);
    registry().writeStringEntry("String", "HostsOwnKey", "kept");
    EXPECT_TRUE(resetOption("dvarcprecvalue"));  // an old name, any case
    EXPECT_TRUE(resetOption("i"));               // a short name
    EXPECT_EQ(getOptionInt("ToolArcPrecValue", false), 32);
    EXPECT_EQ(getOptionString("DvImportFile", false), "");
    EXPECT_EQ(test::storedEntries(registry()),
              "Boolean/ToolConvertText=0\nReal/DxfInScaling=2.25\nString/HostsOwnKey=kept\n");

    // An option without an entry is not a change.
    registry().setModified(false);
    EXPECT_TRUE(resetOption("ToolArcPrecValue"));
    EXPECT_FALSE(registry().isModified());

    testing::internal::CaptureStderr();
    EXPECT_FALSE(resetOption("NoSuchOption"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unknown option: NoSuchOption\n");

    resetAllOptions();
    EXPECT_EQ(test::storedEntries(registry()), "String/HostsOwnKey=kept\n");
    EXPECT_TRUE(getOptionBoolean("ToolConvertText", false));
    EXPECT_DOUBLE_EQ(getOptionReal("DxfInScaling", false), 1.0);
    registry().setModified(false);
    resetAllOptions();
    EXPECT_FALSE(registry().isModified());
}

// Threads that make the first read of one row at once: the build happens once,
// the reads do not race, and exactly one of them logs. (String rows carry no
// such promise.)
TEST(OptionStoreThreads, FirstReadsOfOneRowBuildOnceAndLogOnce) {
    FXApp app("DravikTest", "DravikTest");
    test::ClogCapture clog;
    const auto readAtOnce = [](auto read) {
        std::atomic<int> waiting{8};
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t) {
            threads.emplace_back([&] {
                for (--waiting; waiting > 0;)
                    std::this_thread::yield();
                read();
            });
        }
        for (auto& thread : threads)
            thread.join();
    };
    readAtOnce([] { EXPECT_EQ(getOptionInt("ToolArcPrecValue", false), 32); });
    readAtOnce([] { EXPECT_DOUBLE_EQ(getOptionReal("ToolErrorMargin", false), 1.5); });
    readAtOnce([] { EXPECT_FALSE(getOptionBoolean("DxfOutBinary", false)); });
    const std::string lines = clog.text();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 3) << lines;
    for (const char* line : {"ToolArcPrecValue = 32\n", "ToolErrorMargin = 1.5\n", "DxfOutBinary = 0\n"})
        EXPECT_NE(lines.find(line), std::string::npos) << line;
    const OptionStore& store = optionStore();
    EXPECT_EQ(store.ints.size(), builtinIntOptions.size());
}

}  // namespace
}  // namespace dv::env
