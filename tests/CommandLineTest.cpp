#include <dv/env/ConfigRecorder.h>
#include <dv/env/Options.h>

#include "OptionTables.h"
#include "OptionsRecorder.h"
#include "platform/ErrorBox.h"
#include "support/TempDir.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <vector>

namespace dv::env {
namespace {

using ::testing::KilledBySignal;

std::vector<std::string> shownBoxes;  // "how|title|text"
bool displayIsOpen = false;

class CommandLine : public test::WithApp, public ::testing::Test {
protected:
    void SetUp() override {
        shownBoxes.clear();
        displayIsOpen = false;
        previous = platform::replaceErrorBoxOutput(
            {[] { return displayIsOpen; },
             [](const std::string& title, const std::string& text) { shownBoxes.push_back("dialog|" + title + "|" + text); },
             [](const std::string& title, const std::string& text) { shownBoxes.push_back("console|" + title + "|" + text); }});
    }
    void TearDown() override { platform::replaceErrorBoxOutput(previous); }

    bool parse(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "dravik");
        std::vector<char*> argv;
        for (std::string& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        return parseCommandLine(static_cast<int>(arguments.size()), argv.data());
    }
    int integer(const char* key) { return registry().readIntEntry("Integer", key, -12345); }
    std::string string(const char* key) { return registry().readStringEntry("String", key, "<none>"); }

    platform::ErrorBoxOutput previous{};
    test::TempDir dir;
    test::ClogCapture clog;
};

TEST_F(CommandLine, EveryParseResetsTheTransientRowsAndTellsAllDefaults) {
    registry().writeStringEntry("String", "DvImportFile", "old.gds");  // transient
    registry().writeIntEntry("Integer", "ToolArcPrecValue", 64);       // persistent
    EXPECT_FALSE(parse({}));
    EXPECT_EQ(string("DvImportFile"), "");
    EXPECT_EQ(integer("ToolArcPrecValue"), 64);
    auto recorder = internal::optionsRecorderInstance();  // knows the persistent default too
    recorder->clear();
    recorder->record("ToolArcPrecValue", ConfigValue(32));
    EXPECT_TRUE(recorder->getConfiguration()->params().empty());

    registry().writeIntEntry("Integer", "ToolQuasiCircleMinFacets", 8);  // persistent
    EXPECT_TRUE(parse({"-ToolArcPrecValue=65", "-DvLoadDefaults", "-i=x"}));
    EXPECT_EQ(integer("ToolArcPrecValue"), 32) << "loading the defaults midway undoes earlier arguments";
    EXPECT_EQ(integer("ToolQuasiCircleMinFacets"), 32);
    EXPECT_EQ(string("DvImportFile"), "x");
}

TEST_F(CommandLine, ArgumentFormsSplitIntoNameAndValue) {
    EXPECT_TRUE(parse({"-ToolArcPrecValue=64", "-i", "in file.gds", "-DvExportFile=a=b", "-q", "-ToolCropX0=-2.5",
                       "-DvSkipSteps=", "-DvTopCellPattern"}));
    EXPECT_EQ(integer("ToolArcPrecValue"), 64);
    EXPECT_EQ(string("DvImportFile"), "in file.gds");
    EXPECT_EQ(string("DvExportFile"), "a=b");
    EXPECT_EQ(registry().readIntEntry("Boolean", "DvExitWhenFinished", -1), 1);
    EXPECT_DOUBLE_EQ(registry().readRealEntry("Real", "ToolCropX0", 0), -2.5);
    EXPECT_EQ(string("DvSkipSteps"), "");
    EXPECT_EQ(string("DvTopCellPattern"), "");
    EXPECT_TRUE(shownBoxes.empty());

    // "-=x" names "=x"; "-" names the empty name; both take the next argument.
    // The result tells whether anything was assigned, a command file counting.
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(parse({"-=x", "1", "-", "2", "stray"}));
    EXPECT_TRUE(parse({"-NoSuchOption=1", "-c", dir.path("missing.cmd")}));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Unknown option: =x\nUnknown option: \nUnknown option: NoSuchOption\n");
}

TEST_F(CommandLine, RejectedArgumentsAreShownWholeAndParsingGoesOn) {
    const std::string longArgument(1000, 'p');
    EXPECT_TRUE(parse({"in.gds", "", "-ToolArcPrecValue=64", longArgument}));
    EXPECT_EQ(integer("ToolArcPrecValue"), 64);
    const std::string box = "console|Invalid command line option|Invalid option: \"";
    EXPECT_EQ(shownBoxes, (std::vector<std::string>{box + "in.gds\"\n", box + "\"\n", box + longArgument + "\"\n"}));

    displayIsOpen = true;
    shownBoxes.clear();
    EXPECT_FALSE(parse({"stray"}));
    EXPECT_EQ(shownBoxes, std::vector<std::string>{"dialog|Invalid command line option|Invalid option: \"stray\"\n"});

    // Without a display the real output writes both lines to standard error.
    platform::replaceErrorBoxOutput(platform::systemErrorBoxOutput());
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(parse({"in 50%s.gds"}));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Invalid command line option\nInvalid option: \"in 50%s.gds\"\n");
}

TEST_F(CommandLine, ToolApplyArgumentsJoin) {
    EXPECT_TRUE(parse({"-ToolApply=a", "-toolapply", "b", "-TOOLAPPLY=c"}));
    EXPECT_EQ(string("ToolApply"), "a;b;c");
    EXPECT_TRUE(parse({"-ToolApply=a", "-ToolApply"}));
    EXPECT_EQ(string("ToolApply"), "a;");

    // A command file in between starts the list afresh; later arguments append.
    const std::string file = dir.write("apply.cmd", "[Dravik]\nToolApply=x\n");
    EXPECT_TRUE(parse({"-ToolApply=a", "-c", file, "-ToolApply=b"}));
    EXPECT_EQ(string("ToolApply"), "x;b");
}

using CommandLineDeathTest = CommandLine;

TEST_F(CommandLineDeathTest, BadValuesEndTheProcessAtTheirArgument) {
    // A negative number in the two-argument form is the next option.
    EXPECT_EXIT(parse({"-ToolArcPrecValue", "-5"}), KilledBySignal(SIGABRT),
                "^Missing parameter for option: ToolArcPrecValue\n$");
    EXPECT_EXIT(parse({"-q", "out.gds", "-ToolArcPrecValue"}), KilledBySignal(SIGABRT),
                "^Invalid numeric parameter for option: q\n$");
}

// Closes the modal dialog once the event loop runs, noting what it showed.
class DialogCloser : public FXObject {
public:
    long handle(FXObject*, FXSelector, void*) override {
        if (auto* box = dynamic_cast<FXTopWindow*>(FXApp::instance()->getModalWindow())) {
            title = box->getTitle().text();
            owned = box->getOwner() != nullptr;
            collectLabels(box);
            FXApp::instance()->stopModal(box, MBOX_CLICKED_OK);
        }
        return 1;
    }
    void collectLabels(FXWindow* window) {
        for (FXWindow* child = window->getFirst(); child != nullptr; child = child->getNext()) {
            // Labels proper, not the buttons derived from them.
            if (child->getMetaClass() == FXMETACLASS(FXLabel) && !static_cast<FXLabel*>(child)->getText().empty())
                labels.emplace_back(static_cast<FXLabel*>(child)->getText().text());
            collectLabels(child);
        }
    }

    std::string title;
    std::vector<std::string> labels;
    bool owned = true;
};

TEST_F(CommandLine, WithADisplayTheRejectionIsAModalDialog) {
    if (std::getenv("DISPLAY") == nullptr)
        GTEST_SKIP() << "needs a display";
    platform::replaceErrorBoxOutput(platform::systemErrorBoxOutput());
    int argc = 1;
    char name[] = "dravik";
    char* argv[] = {name, nullptr};
    app->init(argc, argv);
    DialogCloser closer;
    app->addTimeout(&closer, 0, 200);

    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(parse({"stray.gds"}));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(closer.title, "Invalid command line option");
    EXPECT_FALSE(closer.owned);
    EXPECT_EQ(closer.labels, std::vector<std::string>{"Invalid option: \"stray.gds\"\n"});
}

}  // namespace
}  // namespace dv::env
