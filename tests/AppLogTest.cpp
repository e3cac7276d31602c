#include <dv/env/AppLog.h>
#include <dv/env/StampLog.h>
#include <dv/env/VersionResource.h>

#include "AppLogReports.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

// This test program carries a version resource, as the application does.
DV_VERSION_RESOURCE(7, 0, 12, 3, 9, 9, 9, 9);

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

// The lines of a report, each checked for the stamp of AppLog and cut
// behind it.
std::vector<std::string> reportLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        EXPECT_EQ(line.substr(0, 17), "AppLog          :") << line;
        lines.push_back(line.size() > 24 ? line.substr(24) : "");
    }
    return lines;
}

class FakeSystem : public internal::platform::System {
public:
    bool listLoadedModules(std::vector<internal::ModuleRecord>& list) override {
        ++loadedCalls;
        list.insert(list.end(), loaded.begin(), loaded.end());
        return !list.empty();
    }
    bool listMappedModules(std::vector<internal::ModuleRecord>& list) override {
        ++mappedCalls;
        list = mapped;
        return !list.empty();
    }
    std::optional<std::array<std::uint16_t, 4>> moduleFileVersion(const std::string& name) override {
        const auto found = versions.find(name);
        return found == versions.end() ? std::nullopt : std::optional(found->second);
    }
    std::time_t now() override { return 1709543565; }  // 2024-03-04 09:12:45 UTC
    std::optional<Version> systemVersion() override { return version; }

    std::vector<internal::ModuleRecord> loaded, mapped;
    std::map<std::string, std::array<std::uint16_t, 4>> versions;
    std::optional<Version> version;
    int loadedCalls = 0, mappedCalls = 0;
};

// Counts the flushes that reach the buffer.
class FlushCounter : public std::stringbuf {
public:
    int flushes = 0;

protected:
    int sync() override {
        ++flushes;
        return std::stringbuf::sync();
    }
};

class AppInfo : public ::testing::Test {
protected:
    void SetUp() override {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
    }
    std::vector<std::string> write() {
        std::ostringstream out;
        internal::writeAppInfo(out, system);
        return reportLines(out.str());
    }
    FakeSystem system;
    const std::string date = "Mon Mar  4 09:12:45 2024";
};

TEST_F(AppInfo, ListsModulesWithVersionsByBaseNameThenTheDate) {
    system.loaded = {{"/opt/dravik/bin/dravik", "dravik"},
                     {"/opt/dravik/lib/libgeom.so.9", "libgeom.so.9"},
                     {"/lib/x86_64-linux-gnu/libc.so.6", "libc.so.6"}};
    // Keyed by base name: the path plays no part in the look-up.
    system.versions = {{"dravik", {9, 1, 3, 456}}, {"libgeom.so.9", {10, 0, 0, 7}}, {"/lib/x86_64-linux-gnu/libc.so.6", {1, 1, 1, 1}}};
    EXPECT_EQ(write(), (std::vector<std::string>{"/opt/dravik/bin/dravik 9.1.3.456",
                                                 "/opt/dravik/lib/libgeom.so.9 10.0.0.7",
                                                 "/lib/x86_64-linux-gnu/libc.so.6", date}));
    EXPECT_EQ(system.mappedCalls, 0);
}

TEST_F(AppInfo, TakesTheSecondRoadOnlyWhenTheFirstFindsNothing) {
    system.mapped = {{"/usr/bin/host", "host"}};
    EXPECT_EQ(write(), (std::vector<std::string>{"/usr/bin/host", date}));
    EXPECT_EQ(system.loadedCalls, 1);
    EXPECT_EQ(system.mappedCalls, 1);

    system.mapped.clear();
    EXPECT_EQ(write(), (std::vector<std::string>{date}));
}

TEST_F(AppInfo, DateLineEndsOnceAndIsTheOneLineNotFlushed) {
    system.loaded = {{"/a/one", "one"}, {"/a/two", "two"}};
    FlushCounter buffer;
    std::ostream out(&buffer);
    internal::writeAppInfo(out, system);
    EXPECT_EQ(buffer.flushes, 2);
    const std::string text = buffer.str();
    EXPECT_EQ(text.substr(text.size() - date.size() - 1), date + "\n");
    EXPECT_NE(text[text.size() - date.size() - 2], '\n');
}

TEST(OsInfo, WritesTheSystemsNameAndVersionOrNothing) {
    FakeSystem system;
    std::ostringstream out;
    internal::writeOsInfo(out, system);
    EXPECT_EQ(out.str(), "");
    system.version = FakeSystem::Version{"Linux", "6.1.0-18-amd64 (Debian GNU/Linux 12 (bookworm))"};
    internal::writeOsInfo(out, system);
    EXPECT_EQ(reportLines(out.str()), std::vector<std::string>{"Linux 6.1.0-18-amd64 (Debian GNU/Linux 12 (bookworm))"});
}

std::string realPath(const char* link) {
    char buffer[4096];
    const ssize_t length = ::readlink(link, buffer, sizeof buffer);
    return length > 0 ? std::string(buffer, length) : "";
}

TEST(AppLogOnThisSystem, ListsThisProgramFirstWithItsVersionAndTheCLibrary) {
    std::ostringstream out;
    AppLog(out).logAppInfo();
    const auto lines = reportLines(out.str());
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines.front(), realPath("/proc/self/exe") + " 7.0.12.3");
    bool hasC = false;
    for (const auto& line : lines)
        hasC = hasC || line.find("/libc.so.6") != std::string::npos;
    EXPECT_TRUE(hasC);
    EXPECT_EQ(lines.back().size(), 24u);  // the date's fixed form
}

TEST(AppLogOnThisSystem, MappedFilesRoadFindsTheSameProgramAndLibraries) {
    std::vector<internal::ModuleRecord> loaded, mapped{{"stale", "stale"}};
    auto& system = internal::platform::thisSystem();
    ASSERT_TRUE(system.listLoadedModules(loaded));
    ASSERT_TRUE(system.listMappedModules(mapped));
    EXPECT_EQ(mapped.front().path, realPath("/proc/self/exe"));
    for (const auto& module : mapped) {
        EXPECT_NE(module.path, "stale");
        EXPECT_EQ(module.path.substr(module.path.rfind('/') + 1), module.name);
    }
    // Every module the loader lists has code mapped from its file.
    for (const auto& module : loaded) {
        bool found = false;
        for (const auto& other : mapped)
            found = found || fs::equivalent(module.path, other.path);
        EXPECT_TRUE(found) << module.path;
    }
}

TEST(AppLogOnThisSystem, OsLineNamesTheKernelRelease) {
    utsname system{};
    ASSERT_EQ(::uname(&system), 0);
    std::ostringstream out;
    AppLog(out).logOsInfo();
    const auto lines = reportLines(out.str());
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind(std::string(system.sysname) + " " + system.release, 0), 0u) << lines[0];
}

}  // namespace
}  // namespace dv::env
