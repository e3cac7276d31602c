#include <dv/env/Options.h>

#include "OptionTables.h"
#include "support/TempDir.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

namespace dv::env {
namespace {

using ::testing::KilledBySignal;

class CommandFile : public test::WithApp, public ::testing::Test {
protected:
    void SetUp() override { internal::buildOptionTables(); }

    // Reads `content` as a command file and returns what went to standard error.
    std::string read(std::string_view content) {
        const std::string file = dir.write("run.cmd", content);
        ::testing::internal::CaptureStderr();
        EXPECT_TRUE(parseCommandFile(file));
        return ::testing::internal::GetCapturedStderr();
    }

    bool has(const char* section, const char* key) { return registry().existingEntry(section, key); }
    int integer(const char* key) { return registry().readIntEntry("Integer", key, -12345); }
    std::string string(const char* key) { return registry().readStringEntry("String", key, "<none>"); }

    test::TempDir dir;
    test::ClogCapture clog;
};

TEST_F(CommandFile, FilesWithNothingToAssignGiveTrue) {
    EXPECT_TRUE(parseCommandFile(""));
    EXPECT_TRUE(parseCommandFile(dir.path("missing.cmd")));
    EXPECT_TRUE(parseCommandFile(dir.path("")));  // a directory reads as no lines
    EXPECT_EQ(read(""), "");
    EXPECT_EQ(read("ToolArcPrecValue=64\n[Other]\nToolArcPrecValue=65\n"), "");
    EXPECT_FALSE(has("Integer", "ToolArcPrecValue"));
}

TEST_F(CommandFile, SectionHeadsOpenAndCloseTheSection) {
    read("\t[dRAVIK]\nToolArcPrecValue=64\n");
    EXPECT_EQ(integer("ToolArcPrecValue"), 64);

    // Text behind the bracket spoils a head; an open section ends there.
    read("[Dravik] \nToolArcPrecValue=1\n[Dravik]\nDvImportFile=a\n[Dravik]x\nDvExportFile=b\n");
    EXPECT_EQ(integer("ToolArcPrecValue"), 64);
    EXPECT_EQ(string("DvImportFile"), "a");
    EXPECT_FALSE(has("String", "DvExportFile"));

    // A section may be entered again; a byte order mark hides the head.
    read("[Dravik]\n[Sizes]\nToolArcPrecValue=2\n  [DRAVIK]\nToolArcPrecValue=3\n");
    EXPECT_EQ(integer("ToolArcPrecValue"), 3);
    read("\xEF\xBB\xBF[Dravik]\nToolArcPrecValue=4\n");
    EXPECT_EQ(integer("ToolArcPrecValue"), 3);
}

TEST_F(CommandFile, NamesAndValuesAreTrimmedAndUnquotedOnce) {
    read("[Dravik]\n  DvImportFile \t=  \"  in file.gds \"  \nDvExportFile=a=b\nCifOutHeader=\"\nDvFontPath=\"x\n");
    EXPECT_EQ(string("DvImportFile"), "  in file.gds ");
    EXPECT_EQ(string("DvExportFile"), "a=b");
    EXPECT_EQ(string("CifOutHeader"), "\"");
    EXPECT_EQ(string("DvFontPath"), "\"x");
}

TEST_F(CommandFile, LinesWithoutNameOrValueAreDroppedSilently) {
    registry().writeIntEntry("Integer", "ToolArcPrecValue", 64);
    registry().writeStringEntry("String", "DvImportFile", "kept");
    registry().writeIntEntry("Boolean", "DxfOutFlatten", 0);
    const std::string errors = read(
        "[Dravik]\n\n   \t\n; a note\n# another\n= 5\nToolArcPrecValue=\nToolArcPrecValue =  \n"
        "DvImportFile=\"\"\nDxfOutFlatten\nDvLoadDefaults=\n");
    EXPECT_EQ(errors, "");
    EXPECT_EQ(integer("ToolArcPrecValue"), 64);  // no reset either
    EXPECT_EQ(string("DvImportFile"), "kept");
    EXPECT_EQ(registry().readIntEntry("Boolean", "DxfOutFlatten", -1), 0);
}

TEST_F(CommandFile, UnknownNamesWarnAndReadingGoesOn) {
    const std::string errors = read("[Dravik]\n#ToolArcPrecValue=1\n;x = y\nToolArcPrecValue=64\n");
    EXPECT_EQ(errors, "Unknown option: #ToolArcPrecValue\nUnknown option: ;x\n");
    EXPECT_EQ(integer("ToolArcPrecValue"), 64);
}

TEST_F(CommandFile, CarriageReturnsBeforeLineFeedsAreNotPartOfTheLine) {
    read("[Dravik]\r\nDvImportFile=a b\r\nDvExportFile=x\ry\r\n");
    EXPECT_EQ(string("DvImportFile"), "a b");
    EXPECT_EQ(string("DvExportFile"), "x\ry");
}

TEST_F(CommandFile, LinesHaveNoLengthLimit) {
    const std::string long_value(1 << 20, 'x');
    read("[Dravik]\nDvImportFile=" + long_value + "\nToolArcPrecValue=64");  // no final line feed
    EXPECT_EQ(string("DvImportFile"), long_value);
    EXPECT_EQ(integer("ToolArcPrecValue"), 64);
}

TEST_F(CommandFile, ToolApplyJoinsWithinOneFileAndEachFileStartsAfresh) {
    registry().writeStringEntry("String", "ToolApply", "before");
    read("[Dravik]\nToolApply=\nToolApply=a\ntoolapply = b\n");
    EXPECT_EQ(string("ToolApply"), "a;b");

    const std::string inner = dir.write("inner.cmd", "[Dravik]\nToolApply=x\nToolApply=y\n");
    read("[Dravik]\nToolApply=a\nc=" + inner + "\nToolApply=b\n");
    EXPECT_EQ(string("ToolApply"), "x;y;b");
}

TEST_F(CommandFile, NestedFilesAreReadAtTheirPlace) {
    const std::string inner = dir.write("inner.cmd", "[Dravik]\nToolArcPrecValue=64\nDvImportFile=inner\n");
    read("[Dravik]\nDvImportFile=outer\nDvCommandFile=" + inner + "\nToolArcPrecValue=65\n");
    EXPECT_EQ(string("DvImportFile"), "inner");
    EXPECT_EQ(integer("ToolArcPrecValue"), 65);
}

TEST_F(CommandFile, AFileIsNotReadAgainInsideItself) {
    // b names a by another spelling; the chain stops there, and both files
    // go on behind the line that named the other.
    const std::string a = dir.path("a.cmd");
    const std::string aAgain = dir.path("./a.cmd");
    std::filesystem::create_symlink(a, dir.path("link.cmd"));
    const std::string b =
        dir.write("b.cmd", "[Dravik]\nc=" + aAgain + "\nc=" + dir.path("link.cmd") + "\nDvExportFile=b\n");
    dir.write("a.cmd", "[Dravik]\nc=" + b + "\nDvImportFile=a\n");
    ::testing::internal::CaptureStderr();
    EXPECT_TRUE(parseCommandFile(a));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Command file is already being read, not read again: " + aAgain +
                  "\nCommand file is already being read, not read again: " + dir.path("link.cmd") + "\n");
    EXPECT_EQ(string("DvExportFile"), "b");
    EXPECT_EQ(string("DvImportFile"), "a");

    // The same file twice in a row is no cycle.
    const std::string twice = dir.write("twice.cmd", "[Dravik]\nToolApply=t\n");
    EXPECT_EQ(read("[Dravik]\nc=" + twice + "\nToolApply=u\nc=" + twice + "\n"), "");
    EXPECT_EQ(string("ToolApply"), "t");
}

TEST_F(CommandFile, NestingDepthIsBounded) {
    // f0 names f1, which names f2, and so on: the 65th level is refused.
    constexpr int files = 70;
    for (int i = 0; i < files; ++i) {
        const std::string next = i + 1 < files ? "c=" + dir.path("f" + std::to_string(i + 1)) + "\n" : "";
        dir.write("f" + std::to_string(i), "[Dravik]\n" + next + "ToolApply=" + std::to_string(i) + "\n");
    }
    ::testing::internal::CaptureStderr();
    EXPECT_TRUE(parseCommandFile(dir.path("f0")));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Command files nested more than 64 deep, not read: " + dir.path("f64") + "\n");
    EXPECT_EQ(string("ToolApply"), "0");  // every level ran to its end
}

using CommandFileDeathTest = CommandFile;

TEST_F(CommandFileDeathTest, AnUnconvertibleValueEndsTheProcessAtItsLine) {
    const std::string file = dir.write("bad.cmd", "[Dravik]\nToolArcPrecValue=64\nToolCropX0=wide\n");
    EXPECT_EXIT(parseCommandFile(file), KilledBySignal(SIGABRT), "^Invalid numeric parameter for option: ToolCropX0\n$");
}

}  // namespace
}  // namespace dv::env
