#include "CrashFilter.h"

#include <dv/env/StampLog.h>

#include "Base64.h"
#include "platform/Dialogs.h"
#include "platform/Mail.h"
#include "support/SystemFiles.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

namespace dv::env::internal {
namespace {

using Bytes = std::vector<unsigned char>;

std::string encode(const Bytes& bytes) {
    char out[base64LineLength + 1];
    return base64Encode(bytes.data(), bytes.size(), out) < 0 ? std::string("<none>") : std::string(out);
}

// Stands in for the system: a dump of chosen bytes, a chosen answer, and a
// record of what the filter asked for.
class FakeSystem final : public platform::Faults, public platform::Dialogs, public platform::Mail, public test::SystemFiles {
public:
    struct WaitedForEnd {};

    Bytes dump;
    std::uint64_t thread = 41;
    bool canCreate = true, canWrite = true, answer = false;
    std::size_t failReadAfter = SIZE_MAX;  // bytes read before a read fails
    std::vector<std::string> calls;
    std::string title, question, subject, body;

    void installHandler(platform::FaultHandler) override {}
    void prepareThread() override {}
    void reportToSystem(const platform::Fault&) override { calls.push_back("report"); }
    std::uint64_t currentThread() override { return thread; }
    void holdOtherThreads(const platform::Fault&) override { calls.push_back("hold"); }
    // The filter's later faults never come back: the test sees them as a throw.
    [[noreturn]] void waitForEnd(const platform::Fault* fault) override {
        calls.push_back(fault ? "wait" : "wait without fault");
        throw WaitedForEnd{};
    }
    platform::FileHandle createScratchFile(const char*) override {
        return calls.push_back("create"), canCreate ? scratch : platform::FileHandle::none;
    }
    bool writeDump(platform::FileHandle file, const platform::Fault&) override {
        return calls.push_back("write"), file == scratch && canWrite;
    }
    bool rewindFile(platform::FileHandle) override { return calls.push_back("rewind"), position = 0, true; }
    void closeFile(platform::FileHandle) override { calls.push_back("close"); }
    std::ptrdiff_t readFile(platform::FileHandle, void* buffer, std::size_t size) override {
        if (position >= failReadAfter)
            return -1;
        const std::size_t part = std::min(size, dump.size() - position);
        std::copy_n(dump.begin() + static_cast<std::ptrdiff_t>(position), part, static_cast<unsigned char*>(buffer));
        return position += part, static_cast<std::ptrdiff_t>(part);
    }
    void prepare() override {}
    bool askYesNo(const char* caption, const char* text) override {
        return calls.push_back("ask"), title = caption, question = text, answer;
    }
    void showMessage(const char*, const char*) override {}
    void showFatalError(const char*, const char*) override {}
    void showErrorBox(const std::string&, const std::string&) override {}
    const char* dialogProgram() override { return ""; }
    bool clientAvailable() override { return true; }
    platform::MailResult send(const platform::MailMessage& message) override {
        calls.push_back("mail"), subject = message.subject, body = message.text;
        return platform::MailResult::sent;
    }
    bool copyDestination(const char*, char*, std::size_t) override { return false; }

private:
    static constexpr platform::FileHandle scratch{7};
    std::size_t position = 0;
};

using Lines = std::vector<std::string>;

class CrashFilterLog : public ::testing::Test {
protected:
    // Runs the filter on a fresh log and gives its lines, stamps cut off.
    Lines run(const platform::Fault& fault) {
        log.reset();
        ReportLatch latch;
        EXPECT_EQ(crashFilter(fault, latch), 1);
        Lines lines;
        std::istringstream in(log.text());
        for (std::string line; std::getline(in, line);)
            lines.push_back(line.rfind("AppLog          :", 0) == 0 ? line.substr(24) : "raw " + line);
        return lines;
    }
    void dumpOf(std::size_t size) {
        system.dump.resize(size);
        for (std::size_t i = 0; i < size; ++i)
            system.dump[i] = static_cast<unsigned char>(i * 7 + 3);
    }
    std::string lineOf(std::size_t from, std::size_t to) {
        return "raw " + encode({system.dump.begin() + static_cast<std::ptrdiff_t>(from),
                                system.dump.begin() + static_cast<std::ptrdiff_t>(to)});
    }

    test::ClogCapture log;
    FakeSystem system;
    const platform::StandIn<platform::Faults> faults{system};
    const platform::StandIn<platform::Dialogs> dialogs{system};
    const platform::StandIn<platform::Mail> mail{system};
    const platform::StandIn<platform::Files> files{system};
};

TEST_F(CrashFilterLog, FaultWritesTheCodeTheDumpBetweenMarkersAndAsks) {
    dumpOf(108);  // a multiple of 54 bytes ends in an empty block
    EXPECT_EQ(run(platform::Fault{0xc0000005}), (Lines{"Unhandled exception: c0000005", "Memory Mini-Dump Begin",
                                                   lineOf(0, 54), lineOf(54, 108), "raw ", "Memory Mini-Dump End"}));
    EXPECT_EQ(system.calls, (Lines{"hold", "report", "create", "write", "rewind", "close", "ask"}));
    EXPECT_EQ(system.title, "Dravik Error");
    EXPECT_EQ(system.question,
              "Dravik has encountered a problem a needs to close.\nWe are sorry for the inconvenience.\n\n"
              "Please tell us about the problem. We have created\nan error report that you can send to help us "
              "improve\nDravik.\n\nWould you like to send this report now ?");

    dumpOf(110);
    EXPECT_EQ(run(platform::Fault{0xc0000094}), (Lines{"Unhandled exception: c0000094", "Memory Mini-Dump Begin",
                                                   lineOf(0, 54), lineOf(54, 108), lineOf(108, 110),
                                                   "Memory Mini-Dump End"}));
}

// The filter formats in buffers of its own: another thread's way of writing
// numbers into the shared stream is what it was.
TEST_F(CrashFilterLog, LeavesTheStreamsFormattingAsItWas) {
    system.canCreate = false;
    const std::ios::fmtflags saved = std::clog.flags();
    std::clog << std::uppercase << std::showbase << std::oct << std::internal << std::setfill('#') << std::setw(9);
    const std::ios::fmtflags before = std::clog.flags();
    EXPECT_EQ(run(platform::Fault{0xc00000fd}), Lines{"Unhandled exception: c00000fd"});
    EXPECT_EQ(std::clog.flags(), before);
    EXPECT_EQ(std::clog.fill(), '#');
    EXPECT_EQ(std::clog.width(), 9);
    std::ostringstream alike;
    alike << std::uppercase << std::showbase << std::oct << std::internal << std::setfill('#') << std::setw(9) << 8;
    std::clog << 8 << std::endl;
    EXPECT_NE(log.text().find("\n" + alike.str() + "\n"), std::string::npos) << log.text();
    std::clog.flags(saved);
    std::clog.fill(' ');
    std::clog.width(0);
}

// The first thread whose fault reaches the filter reports; a later one waits
// for the end without a line, and the reporter's own second fault (its fatal
// report's end, or a fault inside the filter) passes silently.
TEST_F(CrashFilterLog, OnlyTheFirstFaultingThreadReports) {
    ReportLatch latch;
    EXPECT_EQ(latch.claim(7), ReportLatch::Claim::first);
    EXPECT_THROW(crashFilter(platform::Fault{0xc0000005}, latch), FakeSystem::WaitedForEnd);
    EXPECT_EQ(system.calls, Lines{"wait"});
    system.thread = 7;
    EXPECT_EQ(crashFilter(platform::Fault{0xc0000005}, latch), 1);
    EXPECT_EQ(system.calls, Lines{"wait"});
    EXPECT_EQ(latch.claim(7), ReportLatch::Claim::again);
    EXPECT_EQ(log.text(), "");
}

// A fatal report claims the process's latch: its own end is no crash, and a
// fatal report of another thread while one is under way waits for the end.
TEST_F(CrashFilterLog, AFatalReportsEndIsNoCrash) {
    beginFatalReport();
    EXPECT_EQ(crashFilter(platform::Fault{0x40000015}, processReportLatch()), 1);
    EXPECT_TRUE(system.calls.empty());
    system.thread = 42;
    EXPECT_THROW(beginFatalReport(), FakeSystem::WaitedForEnd);
    EXPECT_EQ(system.calls, Lines{"wait without fault"});
    EXPECT_EQ(log.text(), "");
}

// Without a dump there are no markers, but the code is written in eight hex
// digits and the user is asked all the same; Yes mails the log.
TEST_F(CrashFilterLog, NoDumpFileOrFailedDumpWritesOnlyTheCodeAndAsks) {
    system.canCreate = false;
    // Whatever spelling of hexadecimal a caller left on the stream.
    const std::ios::fmtflags saved = std::clog.flags();
    std::clog << std::uppercase << std::showbase;
    for (const auto& [code, line] : {std::make_pair(0x15u, "Unhandled exception: 00000015"),
                                     std::make_pair(0x40000015u, "Unhandled exception: 40000015"),
                                     std::make_pair(0xc00000fdu, "Unhandled exception: c00000fd")})
        EXPECT_EQ(run(platform::Fault{code}), Lines{line});
    EXPECT_TRUE(std::clog.flags() & std::ios::uppercase && std::clog.flags() & std::ios::showbase);
    std::clog.flags(saved);
    EXPECT_EQ(system.calls, (Lines{"hold", "report", "create", "ask", "hold", "report", "create", "ask", "hold", "report", "create", "ask"}));

    system.calls.clear();
    system.canCreate = true;
    system.canWrite = false;
    system.answer = true;
    EXPECT_EQ(run(platform::Fault{0xc0000005}).size(), 1u);
    EXPECT_EQ(system.calls, (Lines{"hold", "report", "create", "write", "close", "ask", "mail"}));
    EXPECT_EQ(system.subject, "Error Report");
    EXPECT_EQ(system.body, "Dravik Error Report (attached).");
}

TEST_F(CrashFilterLog, ReadFailureEndsTheLinesAndTheEndMarkerFollows) {
    dumpOf(200);
    system.failReadAfter = 108;
    EXPECT_EQ(run(platform::Fault{0xc0000005}), (Lines{"Unhandled exception: c0000005", "Memory Mini-Dump Begin",
                                                   lineOf(0, 54), lineOf(54, 108), "Memory Mini-Dump End"}));
}

TEST_F(CrashFilterLog, DelayLoadFailuresWriteOneLineAndNoDump) {
    const platform::DelayLoadFailure failures[] = {{"Render.dll", true, nullptr, 0, 126},
                                         {"Render.dll", true, "drawArc", 0, 127},
                                         {"Render.dll", false, nullptr, 12, 127}};
    EXPECT_EQ(run(platform::Fault{delayLoadModuleNotFound, nullptr, &failures[0]}),
              Lines{"Unable to delay-load DLL: Render.dll (error 0000007e)"});
    EXPECT_EQ(run(platform::Fault{delayLoadProcedureNotFound, nullptr, &failures[1]}),
              Lines{"Unable to delay-load DLL: Render.dll/ Proc: drawArc (error 0000007f)"});
    EXPECT_EQ(run(platform::Fault{delayLoadProcedureNotFound, nullptr, &failures[2]}),
              Lines{"Unable to delay-load DLL: Render.dll/ Proc: 12 (error 0000007f)"});
    EXPECT_EQ(std::count(system.calls.begin(), system.calls.end(), "create"), 0);
    EXPECT_EQ(std::count(system.calls.begin(), system.calls.end(), "ask"), 3);
}

}  // namespace
}  // namespace dv::env::internal
