#include "CrashFilter.h"

#include <dv/env/StampLog.h>

#include "support/TestApp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace dv::env::internal {
namespace {

std::string encode(const std::vector<unsigned char>& bytes, std::ptrdiff_t* result = nullptr) {
    char out[73];
    const std::ptrdiff_t length = base64Encode(bytes.data(), bytes.size(), out);
    if (result)
        *result = length;
    return length < 0 ? std::string("<none>") : std::string(out);
}

std::vector<unsigned char> bytesOf(const std::string& text) { return {text.begin(), text.end()}; }

TEST(Base64, MatchesTheRfcVectorsAndItsSizeLimit) {
    const std::pair<const char*, const char*> vectors[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
    };
    for (const auto& [plain, coded] : vectors) {
        std::ptrdiff_t length = -2;
        EXPECT_EQ(encode(bytesOf(plain), &length), coded) << plain;
        EXPECT_EQ(length, static_cast<std::ptrdiff_t>(std::string(coded).size()));
    }

    // Both characters beyond the letters and digits, and a zero byte.
    EXPECT_EQ(encode({0xfb, 0xff, 0x00}), "+/8A");

    std::ptrdiff_t length = 0;
    EXPECT_EQ(encode(std::vector<unsigned char>(54, 0xa5), &length).size(), 72u);
    EXPECT_EQ(length, 72);
    // 55 bytes would need 76 characters.
    encode(std::vector<unsigned char>(55, 0xa5), &length);
    EXPECT_EQ(length, -1);
}

// The dump's lines, joined, are the Base64 of the whole dump: 54 bytes are
// whole groups of three. Tails of every padding.
TEST(Base64, AgreesWithTheSystemsBase64CommandOnRandomData) {
    std::mt19937 random(20240611);
    const std::string file = ::testing::TempDir() + "base64-data";
    for (const std::size_t tail : {0, 1, 2, 53}) {
        std::vector<unsigned char> data(54 * 40 + tail);
        for (auto& byte : data)
            byte = static_cast<unsigned char>(random());
        std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(data.data()),
                                                   static_cast<std::streamsize>(data.size()));
        std::string joined;
        for (std::size_t at = 0; at < data.size(); at += 54)
            joined += encode({data.begin() + static_cast<std::ptrdiff_t>(at),
                              data.begin() + static_cast<std::ptrdiff_t>(std::min(at + 54, data.size()))});

        std::FILE* pipe = ::popen(("base64 -w0 '" + file + "'").c_str(), "r");
        ASSERT_NE(pipe, nullptr);
        std::string expected;
        char buffer[4096];
        while (const std::size_t got = std::fread(buffer, 1, sizeof(buffer), pipe))
            expected.append(buffer, got);
        ASSERT_EQ(::pclose(pipe), 0);
        EXPECT_EQ(joined, expected) << "tail of " << tail << " bytes";
    }
}

// Stands in for the system: a dump of chosen bytes, a chosen answer, and a
// record of what the filter asked for.
class FakeSystem : public CrashSystem {
public:
    std::vector<unsigned char> dump;
    bool canCreate = true;
    bool canWrite = true;
    std::size_t failReadAfter = SIZE_MAX;  // bytes read before a read fails
    bool answer = false;

    std::vector<std::string> calls;
    std::string title, question, subject, body;

    void reportToSystem(const CrashReport&) override { calls.push_back("report"); }
    bool createDumpFile() override {
        calls.push_back("create");
        return canCreate;
    }
    bool writeDump(const CrashReport&) override {
        calls.push_back("write");
        return canWrite;
    }
    void rewindDump() override {
        calls.push_back("rewind");
        position = 0;
    }
    std::ptrdiff_t readDump(unsigned char* buffer, std::size_t size) override {
        if (position >= failReadAfter)
            return -1;
        const std::size_t left = dump.size() - position;
        const std::size_t part = size < left ? size : left;
        std::copy(dump.begin() + static_cast<std::ptrdiff_t>(position),
                  dump.begin() + static_cast<std::ptrdiff_t>(position + part), buffer);
        position += part;
        return static_cast<std::ptrdiff_t>(part);
    }
    void closeDump() override { calls.push_back("close"); }
    bool askYesNo(const char* caption, const char* text) override {
        calls.push_back("ask");
        title = caption;
        question = text;
        return answer;
    }
    void emailLog(const char* mailSubject, const char* text) override {
        calls.push_back("mail");
        subject = mailSubject;
        body = text;
    }

private:
    std::size_t position = 0;
};

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

class CrashFilterLog : public ::testing::Test {
protected:
    std::vector<std::string> run(const CrashReport& report) {
        EXPECT_EQ(crashFilter(report, system), 1);
        return linesOf(log.text());
    }

    test::ClogCapture log;
    FakeSystem system;
};

const std::string stamp = "AppLog          :";
const char* const questionText =
    "Dravik has encountered a problem a needs to close.\nWe are sorry for the inconvenience.\n\n"
    "Please tell us about the problem. We have created\nan error report that you can send to help us improve\n"
    "Dravik.\n\nWould you like to send this report now ?";

bool isStamped(const std::string& line, const std::string& message) {
    return line.rfind(stamp, 0) == 0 && line.size() > 24 && line.substr(24) == message;
}

std::vector<unsigned char> pattern(std::size_t size) {
    std::vector<unsigned char> bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<unsigned char>(i * 7 + 3);
    return bytes;
}

TEST_F(CrashFilterLog, FaultWritesTheCodeTheDumpBetweenMarkersAndAsks) {
    system.dump = pattern(108);
    const auto lines = run(CrashReport{0xc0000005});

    ASSERT_EQ(lines.size(), 6u);
    EXPECT_TRUE(isStamped(lines[0], "Unhandled exception: c0000005")) << lines[0];
    EXPECT_TRUE(isStamped(lines[1], "Memory Mini-Dump Begin")) << lines[1];
    EXPECT_EQ(lines[2], encode({system.dump.begin(), system.dump.begin() + 54}));
    EXPECT_EQ(lines[3], encode({system.dump.begin() + 54, system.dump.end()}));
    EXPECT_EQ(lines[4], "");  // a multiple of 54 bytes ends in an empty block
    EXPECT_TRUE(isStamped(lines[5], "Memory Mini-Dump End")) << lines[5];

    EXPECT_EQ(system.calls, (std::vector<std::string>{"report", "create", "write", "rewind", "close", "ask"}));
    EXPECT_EQ(system.title, "Dravik Error");
    EXPECT_EQ(system.question, questionText);
}

TEST_F(CrashFilterLog, ShortLastBlockMakesAShortLineAndTheStreamIsDecimalAgainAfter) {
    system.dump = pattern(110);
    auto lines = run(CrashReport{0xc0000094});
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_TRUE(isStamped(lines[0], "Unhandled exception: c0000094"));
    EXPECT_EQ(lines[2].size(), 72u);
    EXPECT_EQ(lines[3].size(), 72u);
    EXPECT_EQ(lines[4], encode({system.dump.begin() + 108, system.dump.end()}));
    EXPECT_EQ(lines[4].size(), 4u);

    std::clog << StampLog("Next.cpp", 1036) << 255 << std::endl;
    lines = linesOf(log.text());
    EXPECT_EQ(lines.back(), "Next            :1036   255");
}

TEST_F(CrashFilterLog, NoDumpFileOrFailedDumpWritesNoMarkersButStillAsks) {
    system.canCreate = false;
    auto lines = run(CrashReport{0x15});
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(isStamped(lines[0], "Unhandled exception: 00000015")) << lines[0];
    EXPECT_EQ(system.calls, (std::vector<std::string>{"report", "create", "ask"}));

    log.reset();
    system.calls.clear();
    system.canCreate = true;
    system.canWrite = false;
    lines = run(CrashReport{0xc0000005});
    EXPECT_EQ(lines.size(), 1u);
    EXPECT_EQ(system.calls, (std::vector<std::string>{"report", "create", "write", "close", "ask"}));
}

TEST_F(CrashFilterLog, ReadFailureEndsTheLinesAndTheEndMarkerFollows) {
    system.dump = pattern(200);
    system.failReadAfter = 108;
    const auto lines = run(CrashReport{0xc0000005});
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[2].size(), 72u);
    EXPECT_EQ(lines[3].size(), 72u);
    EXPECT_TRUE(isStamped(lines[4], "Memory Mini-Dump End"));
}

TEST_F(CrashFilterLog, DelayLoadFailuresWriteOneLineAndNoDump) {
    const DelayLoadFailure missingLibrary{"Render.dll", true, nullptr, 0, 126};
    auto lines = run(CrashReport{delayLoadModuleNotFound, &missingLibrary});
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(isStamped(lines[0], "Unable to delay-load DLL: Render.dll (error 0000007e)")) << lines[0];

    log.reset();
    const DelayLoadFailure byName{"Render.dll", true, "drawArc", 0, 127};
    lines = run(CrashReport{delayLoadProcedureNotFound, &byName});
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(isStamped(lines[0], "Unable to delay-load DLL: Render.dll/ Proc: drawArc (error 0000007f)")) << lines[0];

    log.reset();
    const DelayLoadFailure byOrdinal{"Render.dll", false, nullptr, 12, 127};
    lines = run(CrashReport{delayLoadProcedureNotFound, &byOrdinal});
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(isStamped(lines[0], "Unable to delay-load DLL: Render.dll/ Proc: 12 (error 0000007f)")) << lines[0];

    // No dump was attempted, and each time the user was asked.
    EXPECT_EQ(std::count(system.calls.begin(), system.calls.end(), "create"), 0);
    EXPECT_EQ(std::count(system.calls.begin(), system.calls.end(), "ask"), 3);
}

TEST_F(CrashFilterLog, YesMailsTheLogAndNoDoesNot) {
    system.canCreate = false;
    run(CrashReport{0xc0000005});
    EXPECT_EQ(std::count(system.calls.begin(), system.calls.end(), "mail"), 0);

    system.answer = true;
    run(CrashReport{0xc0000005});
    EXPECT_EQ(system.calls.back(), "mail");
    EXPECT_EQ(system.subject, "Error Report");
    EXPECT_EQ(system.body, "Dravik Error Report (attached).");
}

}  // namespace
}  // namespace dv::env::internal
