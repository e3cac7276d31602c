#include <dv/env/Options.h>

#include "OptionStore.h"
#include "support/StoredEntries.h"
#include "support/Aborted.h"
#include "support/ShownFatalErrors.h"
#include "support/TempDir.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

namespace dv::env {
namespace {


class CommandFile : public test::WithApp, public ::testing::Test {
protected:
    void SetUp() override { internal::optionStore().build(); }

    // Reads `content` as a command file and returns what went to standard error.
    std::string read(std::string_view content) {
        const std::string file = dir.write("run.cmd", content);
        ::testing::internal::CaptureStderr();
        EXPECT_TRUE(parseCommandFile(file));
        return ::testing::internal::GetCapturedStderr();
    }
    std::string toolApply() { return registry().readStringEntry("String", "ToolApply", "<none>"); }

    test::TempDir dir;
    test::ClogCapture clog;
};

TEST_F(CommandFile, LinesAssignOnlyInsideTheSection) {
    const std::string inner = dir.write("inner.cmd", "[Dravik]\nToolArcPrecValue=64\nDvImportFile=inner\n");
    const std::string longValue(1 << 20, 'x');
    const struct {
        std::string content, stored, errors;
    } cases[] = {
        {"", "", ""},
        {"ToolArcPrecValue=64\n[Other]\nToolArcPrecValue=65\n", "", ""},
        {"\t[dRAVIK]\nToolArcPrecValue=64\n", "Integer/ToolArcPrecValue=64\n", ""},
        // Text behind the bracket spoils a head, and an open section ends there.
        {"[Dravik] \nToolArcPrecValue=1\n[Dravik]\nDvImportFile=a\n[Dravik]x\nDvExportFile=b\n",
         "String/DvImportFile=a\n", ""},
        {"[Dravik]\n[Sizes]\nToolArcPrecValue=2\n  [DRAVIK]\nToolArcPrecValue=3\n", "Integer/ToolArcPrecValue=3\n", ""},
        {"\xEF\xBB\xBF[Dravik]\nToolArcPrecValue=4\n", "", ""},
        // Names and values are trimmed, then unquoted once.
        {"[Dravik]\n  DvImportFile \t=  \"  in file.gds \"  \nDvExportFile=a=b\nCifOutHeader=\"\nDvFontPath=\"x\n",
         "String/CifOutHeader=\"\nString/DvExportFile=a=b\nString/DvFontPath=\"x\nString/DvImportFile=  in file.gds \n",
         ""},
        // Lines without name or value go silently, an empty DvLoadDefaults too.
        {"[Dravik]\n\n   \t\n; a note\n# another\n= 5\nToolArcPrecValue=\nToolArcPrecValue =  \nDvImportFile=\"\"\n"
         "DxfOutFlatten\nDvLoadDefaults=\n",
         "", ""},
        {"[Dravik]\n#ToolArcPrecValue=1\n;x = y\nToolArcPrecValue=64\n", "Integer/ToolArcPrecValue=64\n",
         "Unknown option: #ToolArcPrecValue\nUnknown option: ;x\n"},
        {"[Dravik]\r\nDvImportFile=a b\r\nDvExportFile=x\ry\r\n", "String/DvExportFile=x\ry\nString/DvImportFile=a b\n",
         ""},
        {"[Dravik]\nDvImportFile=" + longValue + "\nToolArcPrecValue=64", // no final line feed
         "Integer/ToolArcPrecValue=64\nString/DvImportFile=" + longValue + "\n", ""},
        // A nested file is read at its place; the command names ignore case.
        {"[Dravik]\nDvImportFile=outer\ndvCOMMANDfile=" + inner + "\nToolArcPrecValue=65\n",
         "Integer/ToolArcPrecValue=65\nString/DvImportFile=inner\n", ""},
    };
    for (const auto& [content, stored, errors] : cases) {
        registry().clear();
        EXPECT_EQ(read(content), errors) << content.substr(0, 100);
        EXPECT_EQ(test::storedEntries(registry()), stored) << content.substr(0, 100);
    }
    EXPECT_TRUE(parseCommandFile(""));
    EXPECT_TRUE(parseCommandFile(dir.path("missing.cmd")));
    EXPECT_TRUE(parseCommandFile(dir.path("")));  // a directory reads as no lines
}

TEST_F(CommandFile, ToolApplyJoinsWithinOneFileAndEachFileStartsAfresh) {
    registry().writeStringEntry("String", "ToolApply", "before");
    read("[Dravik]\nToolApply=\nToolApply=a\ntoolapply = b\n");
    EXPECT_EQ(toolApply(), "a;b");

    const std::string inner = dir.write("inner.cmd", "[Dravik]\nToolApply=x\nToolApply=y\n");
    read("[Dravik]\nToolApply=a\nc=" + inner + "\nToolApply=b\n");
    EXPECT_EQ(toolApply(), "x;y;b");
}

TEST_F(CommandFile, AFileIsNotReadAgainInsideItself) {
    // b names a by two other spellings; each is refused, and both files go on.
    const std::string a = dir.path("a.cmd"), aAgain = dir.path("./a.cmd"), link = dir.path("link.cmd");
    const std::string b = dir.path("b.cmd");
    dir.write("a.cmd", "[Dravik]\nc=" + b + "\nDvImportFile=a\n");
    std::filesystem::create_hard_link(a, link);  // Wine has no symbolic links
    dir.write("b.cmd", "[Dravik]\nc=" + aAgain + "\nC=" + link + "\nDvExportFile=b\n");
    ::testing::internal::CaptureStderr();
    EXPECT_TRUE(parseCommandFile(a));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Command file is already being read, not read again: " + aAgain +
                  "\nCommand file is already being read, not read again: " + link + "\n");
    EXPECT_EQ(test::storedEntries(registry()), "String/DvExportFile=b\nString/DvImportFile=a\n");

    // The same file twice in a row is no cycle.
    const std::string twice = dir.write("twice.cmd", "[Dravik]\nToolApply=t\n");
    EXPECT_EQ(read("[Dravik]\nc=" + twice + "\nToolApply=u\nc=" + twice + "\n"), "");
    EXPECT_EQ(toolApply(), "t");
}

TEST_F(CommandFile, NestingDepthIsBounded) {
    // f0 names f1, which names f2, and so on: the 65th level is refused.
    for (int i = 0; i < 70; ++i) {
        const std::string next = i + 1 < 70 ? "c=" + dir.path("f" + std::to_string(i + 1)) + "\n" : "";
        dir.write("f" + std::to_string(i), "[Dravik]\n" + next + "ToolApply=" + std::to_string(i) + "\n");
    }
    ::testing::internal::CaptureStderr();
    EXPECT_TRUE(parseCommandFile(dir.path("f0")));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Command files nested more than 64 deep, not read: " + dir.path("f64") + "\n");
    EXPECT_EQ(toolApply(), "0");  // every level ran to its end
}

// No test may wait on a dialog: the fatal ones are written out instead.
class CommandFileDeathTest : public test::WithShownFatalErrors, public CommandFile {};

TEST_F(CommandFileDeathTest, AnUnconvertibleValueEndsTheProcessAtItsLine) {
    const std::string file = dir.write("bad.cmd", "[Dravik]\nToolArcPrecValue=64\nToolCropX0=wide\n");
    EXPECT_EXIT(parseCommandFile(file), test::endedByAbort(), 
                "^shown: Invalid numeric parameter for option: ToolCropX0\nInvalid numeric parameter for option: ToolCropX0\n$");
}

}  // namespace
}  // namespace dv::env
