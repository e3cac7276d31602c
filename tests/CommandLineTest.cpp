#include <dv/env/Options.h>

#include "OptionStore.h"
#include "support/TempDir.h"
#include "support/Aborted.h"
#include "support/ShownFatalErrors.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <vector>

namespace dv::env {
namespace {


class CommandLine : public test::WithApp, public ::testing::Test {
protected:
    bool parse(std::vector<const char*> arguments) {
        arguments.insert(arguments.begin(), "dravik");
        arguments.push_back(nullptr);
        return parseCommandLine(static_cast<int>(arguments.size() - 1), const_cast<char**>(arguments.data()));
    }
    int integer(const char* key) { return registry().readIntEntry("Integer", key, -12345); }
    std::string string(const char* key) { return registry().readStringEntry("String", key, "<none>"); }

    test::TempDir dir;
    test::ClogCapture clog;
};

TEST_F(CommandLine, EveryParseFirstResetsTheTransientRows) {
    registry().writeStringEntry("String", "DvImportFile", "old.gds");  // transient
    registry().writeIntEntry("Integer", "ToolArcPrecValue", 64);       // persistent
    EXPECT_FALSE(parse({}));
    EXPECT_EQ(string("DvImportFile"), "");
    EXPECT_EQ(integer("ToolArcPrecValue"), 64);

    registry().writeIntEntry("Integer", "ToolQuasiCircleMinFacets", 8);  // persistent
    EXPECT_TRUE(parse({"-ToolArcPrecValue=65", "-DvLoadDefaults", "-i=x"}));
    EXPECT_EQ(integer("ToolArcPrecValue"), 32) << "loading the defaults midway undoes earlier arguments";
    EXPECT_EQ(integer("ToolQuasiCircleMinFacets"), 32);
    EXPECT_EQ(string("DvImportFile"), "x");
}

TEST_F(CommandLine, ArgumentFormsSplitIntoNameAndValue) {
    ::testing::internal::CaptureStderr();
    EXPECT_TRUE(parse({"-ToolArcPrecValue=64", "-i", "in file.gds", "-DvExportFile=a=b", "-q", "-ToolCropX0=-2.5",
                       "-DvSkipSteps=", "-DvTopCellPattern"}));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(integer("ToolArcPrecValue"), 64);
    EXPECT_EQ(string("DvImportFile"), "in file.gds");
    EXPECT_EQ(string("DvExportFile"), "a=b");
    EXPECT_EQ(registry().readIntEntry("Boolean", "DvExitWhenFinished", -1), 1);
    EXPECT_DOUBLE_EQ(registry().readRealEntry("Real", "ToolCropX0", 0), -2.5);
    EXPECT_EQ(string("DvSkipSteps"), "");
    EXPECT_EQ(string("DvTopCellPattern"), "");

    // "-=x" names "=x"; "-" names the empty name; both take the next argument.
    // The result tells whether anything was assigned, a command file counting.
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(parse({"-=x", "1", "-", "2"}));
    EXPECT_TRUE(parse({"-NoSuchOption=1", "-c", dir.path("missing.cmd").c_str()}));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Unknown option: =x\nUnknown option: \nUnknown option: NoSuchOption\n");
}

// Where the rejection is shown is the platform's: on Linux standard error
// before the application's display is open, a FOX dialog after; on Windows
// the system's message box, which the backend's own tests answer.
#ifndef _WIN32
TEST_F(CommandLine, RejectedArgumentsAreShownWholeAndParsingGoesOn) {
    // Without a display, on standard error.
    const std::string longArgument(1000, 'p');
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(parse({"stray"}));
    EXPECT_TRUE(parse({"in.gds", "", "-ToolArcPrecValue=64", longArgument.c_str(), "in 50%s.gds"}));
    const std::string box = "Invalid command line option\nInvalid option: \"";
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), box + "stray\"\n" + box + "in.gds\"\n" + box + "\"\n" + box +
                                                            longArgument + "\"\n" + box + "in 50%s.gds\"\n");
    EXPECT_EQ(integer("ToolArcPrecValue"), 64);
}
#endif

TEST_F(CommandLine, ToolApplyArgumentsJoin) {
    EXPECT_TRUE(parse({"-ToolApply=a", "-toolapply", "b", "-TOOLAPPLY=c"}));
    EXPECT_EQ(string("ToolApply"), "a;b;c");
    EXPECT_TRUE(parse({"-ToolApply=a", "-ToolApply"}));
    EXPECT_EQ(string("ToolApply"), "a;");

    // A command file in between starts the list afresh; later arguments append.
    const std::string file = dir.write("apply.cmd", "[Dravik]\nToolApply=x\n");
    EXPECT_TRUE(parse({"-ToolApply=a", "-c", file.c_str(), "-ToolApply=b"}));
    EXPECT_EQ(string("ToolApply"), "x;b");
}

// No test may wait on a dialog: the fatal ones are written out instead.
class CommandLineDeathTest : public test::WithShownFatalErrors, public CommandLine {};

TEST_F(CommandLineDeathTest, BadValuesEndTheProcessAtTheirArgument) {
    // A negative number in the two-argument form is the next option.
    EXPECT_EXIT(parse({"-ToolArcPrecValue", "-5"}), test::endedByAbort(),
                "^shown: Missing parameter for option: ToolArcPrecValue\nMissing parameter for option: ToolArcPrecValue\n$");
    EXPECT_EXIT(parse({"-q", "out.gds", "-ToolArcPrecValue"}), test::endedByAbort(),
                "^shown: Invalid numeric parameter for option: q\nInvalid numeric parameter for option: q\n$");
}

#ifndef _WIN32
// Closes the modal dialog once the event loop runs, noting its title, whether
// it has an owner, and the text of its labels.
class DialogCloser : public FXObject {
public:
    long handle(FXObject*, FXSelector, void*) override {
        if (auto* box = dynamic_cast<FXTopWindow*>(FXApp::instance()->getModalWindow())) {
            shown = box->getTitle().text() + std::string(box->getOwner() != nullptr ? " (owned)\n" : "\n");
            addLabels(box);
            FXApp::instance()->stopModal(box, MBOX_CLICKED_OK);
        }
        return 1;
    }
    void addLabels(FXWindow* window) {
        for (FXWindow* child = window->getFirst(); child != nullptr; child = child->getNext()) {
            if (child->getMetaClass() == FXMETACLASS(FXLabel))  // not the buttons derived from labels
                shown += static_cast<FXLabel*>(child)->getText().text();
            addLabels(child);
        }
    }
    std::string shown;
};

TEST_F(CommandLine, WithADisplayTheRejectionIsAModalDialog) {
    if (std::getenv("DISPLAY") == nullptr)
        GTEST_SKIP() << "needs a display";
    int argc = 1;
    char name[] = "dravik";
    char* argv[] = {name, nullptr};
    app->init(argc, argv);
    DialogCloser closer;
    app->addTimeout(&closer, 0, 200);
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(parse({"stray 50%s.gds"}));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(closer.shown, "Invalid command line option\nInvalid option: \"stray 50%s.gds\"\n");
}
#endif

}  // namespace
}  // namespace dv::env
