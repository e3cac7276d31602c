#include <dv/env/AppLog.h>
#include <dv/env/StampLog.h>

#include <gtest/gtest.h>

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace dv::env {
namespace {

namespace fs = std::filesystem;

const std::string separator = std::string(47, '-') + "\n";

class AppLogFile : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "dvenv2-applog-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        dir = pattern;
    }
    void TearDown() override { fs::remove_all(dir); }

    std::string path(const char* name) const { return (dir / name).string(); }

    static std::string read(const std::string& file) {
        std::ifstream in(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

    fs::path dir;
    std::ostringstream before;  // the stream's own buffer before any redirection
};

TEST_F(AppLogFile, CreatesMissingFileWithOneSeparatorAndStampedLinesAfterIt) {
    std::ostream stream(before.rdbuf());
    {
        AppLog log(stream);
        log.redirectToFile(path("new.log").c_str());
        // The separator is in the file at once, before anything else is written.
        EXPECT_EQ(read(path("new.log")), separator);
        stream << StampLog("src/Host.cpp", 3) << "hello" << std::endl;
    }
    EXPECT_EQ(read(path("new.log")), separator + "Host            :3      hello\n");
    EXPECT_EQ(before.str(), "");
}

TEST_F(AppLogFile, AppendsBelowFiveMebibytesAndEmptiesAtFiveMebibytes) {
    const std::string small = path("small.log"), large = path("large.log");
    { std::ofstream(small) << "x"; }
    { std::ofstream(large) << "x"; }
    fs::resize_file(small, 5242879);
    fs::resize_file(large, 5242880);

    std::ostream stream(before.rdbuf());
    AppLog log(stream);
    log.redirectToFile(small.c_str());
    log.redirectToFile(large.c_str());
    stream << "end" << std::endl;

    EXPECT_EQ(fs::file_size(small), 5242879 + separator.size());
    EXPECT_EQ(read(small).substr(5242879), separator);
    EXPECT_EQ(read(large), separator + "end\n");
}

TEST_F(AppLogFile, EachRunAddsOneSeparatorToAnAppendedLog) {
    const std::string file = path("runs.log");
    std::ostream stream(before.rdbuf());
    for (const char* text : {"first", "second"}) {
        AppLog log(stream);
        log.redirectToFile(file.c_str());
        stream << text << std::endl;
    }
    EXPECT_EQ(read(file), separator + "first\n" + separator + "second\n");
}

TEST_F(AppLogFile, SecondRedirectMovesTheLogAndDestructorRestoresTheFirstBuffer) {
    std::ostream stream(before.rdbuf());
    {
        AppLog log(stream);
        log.redirectToFile(path("one.log").c_str());
        stream << "to one" << std::endl;
        log.redirectToFile(path("two.log").c_str());
        stream << "to two" << std::endl;
        EXPECT_EQ(AppLog::getLogPath(), path("two.log"));
    }
    stream << "after";
    EXPECT_EQ(read(path("one.log")), separator + "to one\n");
    EXPECT_EQ(read(path("two.log")), separator + "to two\n");
    EXPECT_EQ(before.str(), "after");
}

TEST_F(AppLogFile, UnopenableFileDropsLinesSilentlyUntilTheLogIsGone) {
    const std::string missingDir = path("no/such/dir/x.log");
    std::ostream stream(before.rdbuf());
    {
        AppLog log(stream);
        log.redirectToFile(missingDir.c_str());
        stream << "lost" << std::endl;
        EXPECT_FALSE(stream.good());
        // An empty path cannot be opened either.
        log.redirectToFile("");
        EXPECT_EQ(AppLog::getLogPath(), "");
        log.redirectToFile(missingDir.c_str());
    }
    EXPECT_TRUE(stream.good());
    stream << "kept";
    EXPECT_EQ(before.str(), "kept");
    EXPECT_FALSE(fs::exists(missingDir));
    // The path stays as given, after the failure and after the log is gone.
    EXPECT_EQ(AppLog::getLogPath(), missingDir);
}

TEST_F(AppLogFile, LogPathIsEmptyBeforeAnyRedirectAndKeptAsGiven) {
    EXPECT_EQ(AppLog::getLogPath(), "");
    std::ostream stream(before.rdbuf());
    const std::string relative = (dir / "sub/../rel.log").string();
    fs::create_directory(dir / "sub");
    AppLog(stream).redirectToFile(relative.c_str());
    EXPECT_EQ(AppLog::getLogPath(), relative);
    EXPECT_EQ(read(path("rel.log")), separator);
}

}  // namespace
}  // namespace dv::env
