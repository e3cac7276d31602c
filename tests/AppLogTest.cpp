#include <dv/env/AppLog.h>

#include "platform/Files.h"
#include "platform/System.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

namespace dv::env {
namespace {

namespace fs = std::filesystem;

const std::string separator = std::string(47, '-') + "\n";

TEST(AppLogFile, AppendsBelowFiveMebibytesEmptiesAtFiveDropsWhatItCannotOpenAndGivesTheBufferBack) {
    const test::TempDir dir;
    std::ostringstream before;  // the stream's own buffer before any redirection
    std::ostream stream(before.rdbuf());
    const std::string small = dir.write("small.log", ""), large = dir.write("large.log", "");
    const std::string missing = dir.path("no/such/../dir/x.log");
    fs::resize_file(small, 5242879);
    fs::resize_file(large, 5242880);
    EXPECT_EQ(AppLog::getLogPath(), "");
    {
        AppLog log(stream);
        log.redirectToFile(small.c_str());
        stream << "to small" << std::endl;
        log.redirectToFile(large.c_str());
        stream << "first" << std::endl;
    }
    EXPECT_EQ(fs::file_size(small), 5242879 + separator.size() + 9);
    {
        AppLog log(stream);
        log.redirectToFile(large.c_str());
        stream << "second" << std::endl;
        log.redirectToFile(missing.c_str());
        stream << "lost" << std::endl;  // silently
        EXPECT_FALSE(stream.good());
    }
    EXPECT_TRUE(stream.good());
    stream << "after";
    std::ifstream written(large, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(written), {}), separator + "first\n" + separator + "second\n");
    EXPECT_EQ(before.str(), "after");
    EXPECT_EQ(AppLog::getLogPath(), missing);  // as given
}

unsigned modeOf(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

// A log may come to hold a memory dump: one the AppLog creates is its user's
// alone, whatever the umask; one that exists keeps its owner's mode, appended
// to or emptied.
TEST(AppLogFile, ANewLogIsPrivateAnExistingOneKeepsItsMode) {
    const test::TempDir dir;
    const mode_t umaskBefore = ::umask(022);
    const std::string fresh = dir.path("fresh.log");
    const std::string shared = dir.write("shared.log", ""), large = dir.write("large.log", "");
    ::chmod(shared.c_str(), 0644);
    ::chmod(large.c_str(), 0644);
    fs::resize_file(large, 5242880);
    std::ostringstream sink;
    std::ostream stream(sink.rdbuf());
    {
        AppLog log(stream);
        for (const std::string& path : {fresh, shared, large}) {
            log.redirectToFile(path.c_str());
            log.logOsInfo();
        }
    }
    ::umask(umaskBefore);
    EXPECT_EQ(modeOf(fresh), 0600u);
    EXPECT_EQ(modeOf(shared), 0644u);
    EXPECT_EQ(modeOf(large), 0644u);
    EXPECT_LT(fs::file_size(large), 5242880u);

    // The mail road's copy of the log is as private, an earlier copy too.
    const std::string copy = dir.write("Dravik 9 Log.txt", "old");
    ::chmod(copy.c_str(), 0644);
    EXPECT_TRUE(platform::files().copyFile(fresh.c_str(), copy.c_str()));
    EXPECT_EQ(modeOf(copy), 0600u);
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

class FakeSystem final : public platform::System {
public:
    bool listLoadedModules(std::vector<platform::ModuleRecord>& list) override {
        list.insert(list.end(), loaded.begin(), loaded.end());
        return !list.empty();
    }
    bool listMappedModules(std::vector<platform::ModuleRecord>& list) override {
        ++mappedCalls;
        list = mapped;
        return !list.empty();
    }
    std::optional<platform::VersionResource> mainProgramVersion() override { return std::nullopt; }
    std::optional<platform::VersionResource> libraryVersion() override { return std::nullopt; }
    std::optional<platform::VersionResource> moduleVersion(std::string_view name) override {
        const auto found = versions.find(std::string(name));
        return found == versions.end() ? std::nullopt : std::optional(platform::VersionResource{found->second, {}});
    }
    std::time_t now() override { return 1709543565; }  // 2024-03-04 09:12:45 UTC
    std::string localTimeText(std::time_t time) override {
        return platform::systemService<platform::System>().localTimeText(time);
    }
    std::optional<Version> systemVersion() override { return std::nullopt; }

    std::vector<platform::ModuleRecord> loaded, mapped;
    std::map<std::string, std::array<std::uint16_t, 4>> versions;
    int mappedCalls = 0;
};

class SystemReport : public ::testing::Test {
protected:
    void SetUp() override {
#ifdef _WIN32
        ::_putenv_s("TZ", "UTC"), ::_tzset();
#else
        ::setenv("TZ", "UTC", 1), ::tzset();
#endif
    }
    // The module lines and the date line; notes the flushes that reach the buffer.
    std::vector<std::string> appInfo() {
        struct FlushCounter : std::stringbuf {
            int sync() override { return ++flushes, std::stringbuf::sync(); }
            int flushes = 0;
        } buffer;
        std::ostream out(&buffer);
        const platform::StandIn<platform::System> standIn(system);
        AppLog(out).logAppInfo();
        flushes = buffer.flushes;
        return reportLines(buffer.str());
    }
    FakeSystem system;
    int flushes = 0;
    const std::string date = "Mon Mar  4 09:12:45 2024";
};

TEST_F(SystemReport, ListsModulesWithVersionsByBaseNameByEitherRoadThenTheDateUnflushed) {
    system.loaded = {{"/opt/dravik/bin/dravik", "dravik"}, {"/opt/lib/libgeom.so.9", "libgeom.so.9"}, {"/lib/libc.so.6", "libc.so.6"}};
    system.versions = {{"dravik", {9, 1, 3, 456}}, {"libgeom.so.9", {10, 0, 0, 7}}, {"/lib/libc.so.6", {1, 1, 1, 1}}};
    EXPECT_EQ(appInfo(), (std::vector<std::string>{"/opt/dravik/bin/dravik 9.1.3.456", "/opt/lib/libgeom.so.9 10.0.0.7",
                                                   "/lib/libc.so.6", date}));
    EXPECT_EQ(flushes, 3);  // the date line waits for the next flush
    EXPECT_EQ(system.mappedCalls, 0);

    // The second road is taken only when the first finds nothing.
    system.loaded.clear();
    system.mapped = {{"/usr/bin/host", "host"}};
    EXPECT_EQ(appInfo(), (std::vector<std::string>{"/usr/bin/host", date}));
    system.mapped.clear();
    EXPECT_EQ(appInfo(), (std::vector<std::string>{date}));
    EXPECT_EQ(system.mappedCalls, 2);
}

// On Linux; the Windows walks have tests of their own (WindowsBackendTest).
#ifndef _WIN32
// Both roads list this program first, and the mapped files hold every module
// the loader lists (with code of its own).
TEST(SystemReportOnThisSystem, BothRoadsListThisProgramFirst) {
    const std::string exe = fs::read_symlink("/proc/self/exe");
    std::vector<platform::ModuleRecord> loaded, mapped{{"stale", "stale"}};
    auto& system = platform::system();
    ASSERT_TRUE(system.listLoadedModules(loaded) && system.listMappedModules(mapped));
    EXPECT_EQ(loaded.front().path, exe);
    EXPECT_EQ(mapped.front().path, exe);
    for (const auto& module : loaded)
        EXPECT_TRUE(std::any_of(mapped.begin(), mapped.end(),
                                [&](const auto& other) { return fs::equivalent(module.path, other.path); }))
            << module.path;
}
#endif

}  // namespace
}  // namespace dv::env
