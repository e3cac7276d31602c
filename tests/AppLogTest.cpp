#include <dv/env/AppLog.h>
#include <dv/env/StampLog.h>
#include <dv/env/VersionResource.h>

#include "AppLogReports.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

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
    std::ostream stream{before.rdbuf()};
};

TEST_F(AppLogFile, EachRunAppendsOneSeparatorAndItsLines) {
    EXPECT_EQ(AppLog::getLogPath(), "");
    for (const char* text : {"first", "second"}) {
        AppLog log(stream);
        log.redirectToFile(path("runs.log").c_str());
        stream << StampLog("src/Host.cpp", 3) << text << std::endl;
    }
    EXPECT_EQ(read(path("runs.log")),
              separator + "Host            :3      first\n" + separator + "Host            :3      second\n");
    EXPECT_EQ(before.str(), "");
}

TEST_F(AppLogFile, AppendsBelowFiveMebibytesEmptiesAtFiveAndRestoresTheFirstBufferAtTheEnd) {
    const std::string small = path("small.log"), large = path("large.log");
    std::ofstream(small).put('x');
    std::ofstream(large).put('x');
    fs::resize_file(small, 5242879);
    fs::resize_file(large, 5242880);
    {
        AppLog log(stream);
        log.redirectToFile(small.c_str());
        stream << "to small" << std::endl;
        log.redirectToFile(large.c_str());
        stream << "to large" << std::endl;
    }
    stream << "after";
    EXPECT_EQ(fs::file_size(small), 5242879 + separator.size() + 9);
    EXPECT_EQ(read(large), separator + "to large\n");
    EXPECT_EQ(before.str(), "after");
}

TEST_F(AppLogFile, UnopenableFileDropsLinesSilentlyAndKeepsThePathAsGiven) {
    const std::string missing = path("no/such/../dir/x.log");
    {
        AppLog log(stream);
        log.redirectToFile("");
        EXPECT_EQ(AppLog::getLogPath(), "");
        log.redirectToFile(missing.c_str());
        stream << "lost" << std::endl;
        EXPECT_FALSE(stream.good());
    }
    EXPECT_TRUE(stream.good());
    stream << "kept";
    EXPECT_EQ(before.str(), "kept");
    EXPECT_EQ(AppLog::getLogPath(), missing);
}

// The lines of a report, each checked for the stamp of AppLog and cut behind it.
std::vector<std::string> reportLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        EXPECT_EQ(line.substr(0, 17), "AppLog          :") << line;
        lines.push_back(line.substr(std::min<std::size_t>(24, line.size())));
    }
    return lines;
}

class FakeSystem : public internal::platform::System {
public:
    bool listLoadedModules(std::vector<internal::ModuleRecord>& list) override {
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
    int mappedCalls = 0;
};

// Counts the flushes that reach the buffer.
struct FlushCounter : std::stringbuf {
    int flushes = 0;
    int sync() override { return ++flushes, std::stringbuf::sync(); }
};

class SystemReport : public ::testing::Test {
protected:
    void SetUp() override { ::setenv("TZ", "UTC", 1), ::tzset(); }
    std::vector<std::string> appInfo() {
        std::ostringstream out;
        internal::writeAppInfo(out, system);
        return reportLines(out.str());
    }
    FakeSystem system;
    const std::string date = "Mon Mar  4 09:12:45 2024";
};

TEST_F(SystemReport, ListsModulesWithVersionsByBaseNameThenTheDate) {
    system.loaded = {{"/opt/dravik/bin/dravik", "dravik"}, {"/opt/lib/libgeom.so.9", "libgeom.so.9"}, {"/lib/libc.so.6", "libc.so.6"}};
    system.versions = {{"dravik", {9, 1, 3, 456}}, {"libgeom.so.9", {10, 0, 0, 7}}, {"/lib/libc.so.6", {1, 1, 1, 1}}};
    EXPECT_EQ(appInfo(), (std::vector<std::string>{"/opt/dravik/bin/dravik 9.1.3.456", "/opt/lib/libgeom.so.9 10.0.0.7",
                                                   "/lib/libc.so.6", date}));
    EXPECT_EQ(system.mappedCalls, 0);
}

TEST_F(SystemReport, TakesTheSecondRoadOnlyWhenTheFirstFindsNothing) {
    system.mapped = {{"/usr/bin/host", "host"}};
    EXPECT_EQ(appInfo(), (std::vector<std::string>{"/usr/bin/host", date}));
    system.mapped.clear();
    EXPECT_EQ(appInfo(), (std::vector<std::string>{date}));
    EXPECT_EQ(system.mappedCalls, 2);
}

TEST_F(SystemReport, DateLineEndsOnceAndIsTheOneLineNotFlushed) {
    system.loaded = {{"/a/one", "one"}, {"/a/two", "two"}};
    FlushCounter buffer;
    std::ostream out(&buffer);
    internal::writeAppInfo(out, system);
    EXPECT_EQ(buffer.flushes, 2);
    EXPECT_EQ(buffer.str().substr(buffer.str().size() - date.size() - 2), " " + date + "\n");
}

TEST_F(SystemReport, OsLineIsTheSystemsNameAndVersionOrNothing) {
    std::ostringstream out;
    internal::writeOsInfo(out, system);
    EXPECT_EQ(out.str(), "");
    system.version = FakeSystem::Version{"Linux", "6.1.0-18-amd64 (Debian GNU/Linux 12 (bookworm))"};
    internal::writeOsInfo(out, system);
    EXPECT_EQ(reportLines(out.str()), std::vector<std::string>{"Linux 6.1.0-18-amd64 (Debian GNU/Linux 12 (bookworm))"});
}

TEST(SystemReportOnThisSystem, ListsThisProgramFirstWithItsVersionByEitherRoad) {
    char exe[4096];
    const ssize_t length = ::readlink("/proc/self/exe", exe, sizeof exe);
    ASSERT_GT(length, 0);
    std::ostringstream out;
    AppLog(out).logAppInfo();
    const auto lines = reportLines(out.str());
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines.front(), std::string(exe, length) + " 7.0.12.3");
    EXPECT_EQ(lines.back().size(), 24u);  // the date's fixed form

    // The mapped files give the program first too, and every module the
    // loader lists (with code of its own) among them.
    std::vector<internal::ModuleRecord> loaded, mapped{{"stale", "stale"}};
    auto& system = internal::platform::thisSystem();
    ASSERT_TRUE(system.listLoadedModules(loaded) && system.listMappedModules(mapped));
    EXPECT_EQ(mapped.front().path, std::string(exe, length));
    for (const auto& module : loaded) {
        bool found = false;
        for (const auto& other : mapped)
            found = found || fs::equivalent(module.path, other.path);
        EXPECT_TRUE(found) << module.path;
    }
}

}  // namespace
}  // namespace dv::env
