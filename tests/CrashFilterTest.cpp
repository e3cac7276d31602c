#include "CrashFilter.h"

#include <dv/env/StampLog.h>

#include "support/Command.h"
#include "support/TempDir.h"
#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace dv::env::internal {
namespace {

using Bytes = std::vector<unsigned char>;

std::string encode(const Bytes& bytes, std::ptrdiff_t* result = nullptr) {
    char out[73];
    const std::ptrdiff_t length = base64Encode(bytes.data(), bytes.size(), out);
    if (result)
        *result = length;
    return length < 0 ? std::string("<none>") : std::string(out);
}

TEST(Base64, MatchesTheRfcVectorsAndItsSizeLimit) {
    const std::pair<std::string, std::string> vectors[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {std::string("\xfb\xff\0", 3), "+/8A"},
    };
    for (const auto& [plain, coded] : vectors) {
        std::ptrdiff_t length = -2;
        EXPECT_EQ(encode(Bytes(plain.begin(), plain.end()), &length), coded) << plain;
        EXPECT_EQ(length, static_cast<std::ptrdiff_t>(coded.size()));
    }
    std::ptrdiff_t length = 0;
    EXPECT_EQ(encode(Bytes(54, 0xa5), &length).size(), 72u);
    encode(Bytes(55, 0xa5), &length);  // would need 76 characters
    EXPECT_EQ(length, -1);
}

// The dump's lines, joined, are the Base64 of the whole dump, as 54 bytes are
// whole groups of three. Tails of every padding.
TEST(Base64, AgreesWithTheSystemsBase64CommandOnRandomData) {
    std::mt19937 random(20240611);
    const test::TempDir dir;
    const std::string file = dir.path("data");
    for (const std::size_t tail : {0, 1, 2, 53}) {
        Bytes data(54 * 40 + tail);
        std::generate(data.begin(), data.end(), [&] { return static_cast<unsigned char>(random()); });
        dir.write("data", {reinterpret_cast<const char*>(data.data()), data.size()});
        std::string joined;
        for (auto at = data.begin(); at < data.end(); at += std::min<std::ptrdiff_t>(54, data.end() - at))
            joined += encode({at, at + std::min<std::ptrdiff_t>(54, data.end() - at)});

        int status = -1;
        EXPECT_EQ(joined, test::commandOutput("base64 -w0 '" + file + "'", &status)) << "tail of " << tail;
        EXPECT_EQ(status, 0);
    }
}

// Stands in for the system: a dump of chosen bytes, a chosen answer, and a
// record of what the filter asked for.
class FakeSystem : public CrashSystem {
public:
    Bytes dump;
    bool canCreate = true, canWrite = true, answer = false;
    std::size_t failReadAfter = SIZE_MAX;  // bytes read before a read fails
    std::vector<std::string> calls;
    std::string title, question, subject, body;

    void reportToSystem(const CrashReport&) override { calls.push_back("report"); }
    bool createDumpFile() override { return calls.push_back("create"), canCreate; }
    bool writeDump(const CrashReport&) override { return calls.push_back("write"), canWrite; }
    void rewindDump() override { calls.push_back("rewind"), position = 0; }
    void closeDump() override { calls.push_back("close"); }
    std::ptrdiff_t readDump(unsigned char* buffer, std::size_t size) override {
        if (position >= failReadAfter)
            return -1;
        const std::size_t part = std::min(size, dump.size() - position);
        std::copy_n(dump.begin() + static_cast<std::ptrdiff_t>(position), part, buffer);
        return position += part, static_cast<std::ptrdiff_t>(part);
    }
    bool askYesNo(const char* caption, const char* text) override {
        return calls.push_back("ask"), title = caption, question = text, answer;
    }
    void emailLog(const char* mailSubject, const char* text) override {
        calls.push_back("mail"), subject = mailSubject, body = text;
    }

private:
    std::size_t position = 0;
};

using Lines = std::vector<std::string>;

class CrashFilterLog : public ::testing::Test {
protected:
    // Runs the filter on a fresh log and gives its lines, stamps cut off.
    Lines run(const CrashReport& report) {
        log.reset();
        EXPECT_EQ(crashFilter(report, system), 1);
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
};

TEST_F(CrashFilterLog, FaultWritesTheCodeTheDumpBetweenMarkersAndAsks) {
    dumpOf(108);  // a multiple of 54 bytes ends in an empty block
    EXPECT_EQ(run(CrashReport{0xc0000005}), (Lines{"Unhandled exception: c0000005", "Memory Mini-Dump Begin",
                                                   lineOf(0, 54), lineOf(54, 108), "raw ", "Memory Mini-Dump End"}));
    EXPECT_EQ(system.calls, (Lines{"report", "create", "write", "rewind", "close", "ask"}));
    EXPECT_EQ(system.title, "Dravik Error");
    EXPECT_EQ(system.question,
              "Dravik has encountered a problem a needs to close.\nWe are sorry for the inconvenience.\n\n"
              "Please tell us about the problem. We have created\nan error report that you can send to help us "
              "improve\nDravik.\n\nWould you like to send this report now ?");

    dumpOf(110);
    EXPECT_EQ(run(CrashReport{0xc0000094}), (Lines{"Unhandled exception: c0000094", "Memory Mini-Dump Begin",
                                                   lineOf(0, 54), lineOf(54, 108), lineOf(108, 110),
                                                   "Memory Mini-Dump End"}));
    // The stream is decimal again after the hex code.
    std::clog << StampLog("Next.cpp", 1036) << 255 << std::endl;
    EXPECT_NE(log.text().find("\nNext            :1036   255\n"), std::string::npos) << log.text();
}

// Without a dump there are no markers, but the code is written in eight hex
// digits and the user is asked all the same; Yes mails the log.
TEST_F(CrashFilterLog, NoDumpFileOrFailedDumpWritesOnlyTheCodeAndAsks) {
    system.canCreate = false;
    for (const auto& [code, line] : {std::make_pair(0x15u, "Unhandled exception: 00000015"),
                                     std::make_pair(0x40000015u, "Unhandled exception: 40000015"),
                                     std::make_pair(0xc00000fdu, "Unhandled exception: c00000fd")})
        EXPECT_EQ(run(CrashReport{code}), Lines{line});
    EXPECT_EQ(system.calls, (Lines{"report", "create", "ask", "report", "create", "ask", "report", "create", "ask"}));

    system.calls.clear();
    system.canCreate = true;
    system.canWrite = false;
    system.answer = true;
    EXPECT_EQ(run(CrashReport{0xc0000005}).size(), 1u);
    EXPECT_EQ(system.calls, (Lines{"report", "create", "write", "close", "ask", "mail"}));
    EXPECT_EQ(system.subject, "Error Report");
    EXPECT_EQ(system.body, "Dravik Error Report (attached).");
}

TEST_F(CrashFilterLog, ReadFailureEndsTheLinesAndTheEndMarkerFollows) {
    dumpOf(200);
    system.failReadAfter = 108;
    EXPECT_EQ(run(CrashReport{0xc0000005}), (Lines{"Unhandled exception: c0000005", "Memory Mini-Dump Begin",
                                                   lineOf(0, 54), lineOf(54, 108), "Memory Mini-Dump End"}));
}

TEST_F(CrashFilterLog, DelayLoadFailuresWriteOneLineAndNoDump) {
    const DelayLoadFailure failures[] = {{"Render.dll", true, nullptr, 0, 126},
                                         {"Render.dll", true, "drawArc", 0, 127},
                                         {"Render.dll", false, nullptr, 12, 127}};
    EXPECT_EQ(run(CrashReport{delayLoadModuleNotFound, &failures[0]}),
              Lines{"Unable to delay-load DLL: Render.dll (error 0000007e)"});
    EXPECT_EQ(run(CrashReport{delayLoadProcedureNotFound, &failures[1]}),
              Lines{"Unable to delay-load DLL: Render.dll/ Proc: drawArc (error 0000007f)"});
    EXPECT_EQ(run(CrashReport{delayLoadProcedureNotFound, &failures[2]}),
              Lines{"Unable to delay-load DLL: Render.dll/ Proc: 12 (error 0000007f)"});
    EXPECT_EQ(std::count(system.calls.begin(), system.calls.end(), "create"), 0);
    EXPECT_EQ(std::count(system.calls.begin(), system.calls.end(), "ask"), 3);
}

}  // namespace
}  // namespace dv::env::internal
