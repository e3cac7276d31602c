// dvenv-analyze on real crashes: the project's crash children fail for real,
// and the analyzer reads their logs, as files, as mails and with the
// binaries moved away. lldb-14's own command line is the reference for which
// threads a dump holds.

#include "support/Command.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <sys/personality.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <regex>
#include <set>
#include <string>

namespace {

using dv::env::test::commandOutput;
using dv::env::test::fileText;
using dv::env::test::TempDir;

// Runs `program LOG how` alone, as CrashTest does; gives the signal it ended by.
int crash(const std::string& program, const std::string& log, const char* how, const std::string& libraryPath = "") {
    const pid_t child = ::fork();
    if (child == 0) {
        ::setsid();
        ::unsetenv("DISPLAY");
        if (!libraryPath.empty())
            ::setenv("LD_LIBRARY_PATH", libraryPath.c_str(), 1);
        const int nothing = ::open("/dev/null", O_RDWR);
        ::dup2(nothing, STDIN_FILENO);
        ::dup2(nothing, STDERR_FILENO);
        ::execl(program.c_str(), program.c_str(), log.c_str(), how, static_cast<char*>(nullptr));
        ::_exit(127);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

struct Analysis {
    std::string out;  // standard output and error
    int status = -1;
};

// From an empty folder: lldb also looks for a module by its name in the
// current one, where a build's test would find the build's binaries.
Analysis analyze(const std::string& arguments) {
    static const TempDir elsewhere;
    int status = 0;
    Analysis result;
    result.out = commandOutput("cd '" + elsewhere.path("") + "' && " + ANALYZER + " " + arguments + " 2>&1", &status);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::string quoted(const std::string& path) { return "'" + path + "'"; }

// The faulting thread's frames, as the text report lists them.
std::vector<std::string> faultingFrames(const std::string& report) {
    std::vector<std::string> frames;
    const std::size_t start = report.find(" (faulting");
    if (start == std::string::npos)
        return frames;
    std::size_t at = report.find('\n', start) + 1;
    while (at < report.size() && report.compare(at, 3, "  #") == 0) {
        const std::size_t end = report.find('\n', at);
        frames.push_back(report.substr(at, end - at));
        at = end + 1;
    }
    return frames;
}

std::string signatureOf(const std::string& report) {
    std::smatch match;
    return std::regex_search(report, match, std::regex("\nSignature: ([0-9a-f]{16})\n")) ? match[1].str() : "";
}

// The thread ids of the dump in the log, as lldb-14's command line lists them.
std::set<std::string> threadsByLldb(const TempDir& dir, const std::string& log) {
    const std::string dump = dir.path("reference.dmp");
    commandOutput(std::string(DVENV_TOOL) + " dump-extract " + quoted(log) + " " + quoted(dump) + " 2>&1");
    const std::string list = commandOutput("lldb-14 -b --core " + quoted(dump) + " -o 'thread list' 2>/dev/null");
    std::set<std::string> ids;
    const std::regex tid("tid = (0x[0-9a-f]+|[0-9]+)");
    for (auto it = std::sregex_iterator(list.begin(), list.end(), tid); it != std::sregex_iterator(); ++it)
        ids.insert(std::to_string(std::stoull((*it)[1].str(), nullptr, 0)));
    return ids;
}

std::set<std::string> threadsInReport(const std::string& report) {
    std::set<std::string> ids;
    const std::regex thread("\nThread ([0-9]+)");
    for (auto it = std::sregex_iterator(report.begin(), report.end(), thread); it != std::sregex_iterator(); ++it)
        ids.insert((*it)[1].str());
    return ids;
}

struct Kind {
    const char* how;
    const char* exception;  // the line the report gives
    const char* site;       // what the first frame outside the C library shows; "" for none
};
void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.how; }

class EveryCrashKind : public ::testing::TestWithParam<Kind> {};

TEST_P(EveryCrashKind, NamesTheFaultingFunctionAndListsEveryThread) {
    const Kind& kind = GetParam();
#ifdef __SANITIZE_THREAD__
    if (std::strcmp(kind.how, "overflow-thread") == 0)
        GTEST_SKIP() << "ThreadSanitizer owns the start of every thread: the library leaves new threads unprepared";
#endif
    const TempDir dir;
    const std::string log = dir.path("crash.log");
    ASSERT_NE(crash(CRASH_CHILD, log, kind.how), 0);

    const auto started = std::chrono::steady_clock::now();
    const Analysis result = analyze(quoted(log));
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    RecordProperty("seconds", std::to_string(seconds));
    ASSERT_EQ(result.status, 0) << result.out;
    EXPECT_NE(result.out.find(std::string("\nException: ") + kind.exception + "\n"), std::string::npos) << result.out;
    EXPECT_EQ(signatureOf(result.out).size(), 16u) << result.out;

    // Frame 0, or for an abort the first frame above the C library's abort
    // (and a sanitizer's interceptor of it).
    const auto frames = faultingFrames(result.out);
    ASSERT_FALSE(frames.empty()) << result.out;
    const auto site = std::find_if(frames.begin(), frames.end(), [](const std::string& frame) {
        for (const char* runtime : {" libc.so.6 ", " libstdc++", " libFOX-1.6", " libtsan", " libasan", " libubsan"})
            if (frame.find(runtime) != std::string::npos)
                return false;
        return true;
    });
    ASSERT_NE(site, frames.end()) << result.out;
    if (*kind.site) {
        EXPECT_TRUE(std::regex_search(*site, std::regex(kind.site))) << *site << "\n" << result.out;
    } else {
        // A jump to memory that no module holds: the address alone.
        EXPECT_NE(frames.front().find("(in no module)"), std::string::npos) << result.out;
    }
    EXPECT_EQ(threadsInReport(result.out), threadsByLldb(dir, log)) << result.out;
}

INSTANTIATE_TEST_SUITE_P(
    CrashChild, EveryCrashKind,
    ::testing::Values(
        Kind{"null-main", "c0000005 (bad memory access)",
             "#0 +CrashChild  \\(anonymous namespace\\)::writeThroughNullOnMainThread\\(\\) at CrashChild\\.cpp:[0-9]+$"},
        Kind{"null-thread", "c0000005 (bad memory access)",
             "#0 +CrashChild  .*writeThroughNullOnSecondThread\\(\\) at CrashChild\\.cpp:[0-9]+$"},
        Kind{"abort", "40000015 (abort)", "CrashChild  .*abortInNamedFunction\\(\\) at CrashChild\\.cpp:[0-9]+$"},
        Kind{"uncaught", "40000015 (abort)", "CrashChild  .*throwWithoutCatch\\(\\) at CrashChild\\.cpp:[0-9]+$"},
        Kind{"divide", "c0000094 (integer division by zero)", "#0 +CrashChild  .*divideByZero\\(\\) at CrashChild\\.cpp:[0-9]+$"},
        Kind{"trap", "c000001d (illegal instruction)", "#0 +CrashChild  main(\\.cold)? at CrashChild\\.cpp:[0-9]+$"},
        Kind{"refused-read", "c0000006 (page error (SIGBUS))", ""},
        Kind{"overflow", "c00000fd (stack overflow)", "#0 +CrashChild  .*recurseWithoutEnd\\(int\\) at CrashChild\\.cpp:[0-9]+$"},
        Kind{"overflow-thread", "c00000fd (stack overflow)", "#0 +CrashChild  .*recurseWithoutEnd\\(int\\) at CrashChild\\.cpp:[0-9]+$"},
        Kind{"threads", "c0000005 (bad memory access)", "#0 +CrashChild  .*writeThroughNullOnMainThread\\(\\) at CrashChild\\.cpp:[0-9]+$"}),
    [](const auto& param) {
        std::string name = param.param.how;
        std::replace(name.begin(), name.end(), '-', '_');
        return name;
    });

// A bad value on the command line: the reason comes first; where the log has
// a dump after it, the frames show where the value was read.
TEST(FatalReport, TheReasonIsReportedWithOrWithoutADump) {
    const TempDir dir;
    const std::string log = dir.path("typo.log");
    ASSERT_NE(crash(CRASH_CHILD, log, "typo"), 0);
    const Analysis result = analyze(quoted(log));
    ASSERT_EQ(result.status, 0) << result.out;
    EXPECT_NE(result.out.find("\nReason:    Invalid numeric parameter for option: ToolArcPrecValue\n"), std::string::npos)
        << result.out;
    if (fileText(log).find("Memory Mini-Dump Begin") != std::string::npos) {
        EXPECT_TRUE(std::regex_search(result.out, std::regex("  dv::env::parseCommandLine\\(int, char\\*\\*\\) at CommandLine\\.cpp:[0-9]+\n")))
            << result.out;
    } else {
        EXPECT_NE(result.out.find("\nDump:      none in the log: a fatal report ends the process without one\n"), std::string::npos)
            << result.out;
    }

    // The same reason alone at the end of a log, as a fatal report leaves it.
    const std::string text = fileText(log);
    const std::size_t reason = text.find("Options ");
    ASSERT_NE(reason, std::string::npos);
    const std::string alone = dir.write("alone.log", text.substr(0, text.find('\n', reason) + 1));
    const Analysis withoutDump = analyze("--json " + quoted(alone));
    ASSERT_EQ(withoutDump.status, 0) << withoutDump.out;
    const auto crashes = nlohmann::json::parse(withoutDump.out)["crashes"];
    ASSERT_EQ(crashes.size(), 1u);
    EXPECT_EQ(crashes[0]["reason"], "Invalid numeric parameter for option: ToolArcPrecValue");
    EXPECT_EQ(crashes[0]["hasDump"], false);
    EXPECT_TRUE(crashes[0]["threads"].empty());
}

// The program's own reports head the analysis; the signature is the crash
// site's, whatever the load addresses of the run; another site has another.
TEST(Signature, OneSiteOneSignatureAcrossRunsAnotherSiteAnother) {
    const TempDir dir;
    std::set<std::string> first, addresses;
    std::string report;
    for (int run = 0; run < 3; ++run) {
        const std::string log = dir.path("first" + std::to_string(run) + ".log");
        ASSERT_NE(crash(REPORTING_CHILD, log, "first"), 0);
        const Analysis result = analyze(quoted(log));
        ASSERT_EQ(result.status, 0) << result.out;
        first.insert(signatureOf(result.out));
        const auto json = nlohmann::json::parse(analyze("--json " + quoted(log)).out);
        addresses.insert(json["crashes"][0]["threads"][0]["frames"][0]["address"].get<std::string>());
        report = result.out;
    }
    EXPECT_EQ(first.size(), 1u);
    // Without address-space randomisation (ThreadSanitizer's runs turn it
    // off) every run loads at the same address, and only the rest is shown.
    if ((::personality(0xffffffff) & ADDR_NO_RANDOMIZE) == 0) {
        EXPECT_EQ(addresses.size(), 3u) << "the runs were not loaded at different addresses";
    }
    EXPECT_TRUE(std::regex_search(report, std::regex("\nProgram:   " REPORTING_CHILD " [0-9]+\\.[0-9]+\\.[0-9]+\\.[0-9]+\n"))) << report;
    EXPECT_TRUE(std::regex_search(report, std::regex("\nDate:      [A-Z][a-z]{2} [A-Z][a-z]{2} .* [0-9]{4}\n"))) << report;
    EXPECT_NE(report.find("\nSystem:    Linux "), std::string::npos) << report;
    // The optimiser's clone of the function keeps its name.
    EXPECT_TRUE(std::regex_search(report, std::regex("#0 +ReportingChild  .*::storeAtFirstSite\\(int\\).* at ReportingChild\\.cpp:[0-9]+\n")))
        << report;

    const std::string log = dir.path("second.log");
    ASSERT_NE(crash(REPORTING_CHILD, log, "second"), 0);
    const std::string second = signatureOf(analyze(quoted(log)).out);
    EXPECT_EQ(second.size(), 16u);
    EXPECT_EQ(first.count(second), 0u);
}

// The mail road hands the log over as an attachment: Base64 or
// quoted-printable, alone or in an mbox, give the same report as the log.
TEST(Mail, TheAttachedLogGivesTheSameReportAsTheLog) {
    const TempDir dir;
    const std::string log = dir.path("dravik.log");
    ASSERT_NE(crash(CRASH_CHILD, log, "null-thread"), 0);
    const std::string plain = analyze(quoted(log)).out;
    const auto body = [](const std::string& report) { return report.substr(report.find('\n')); };
    int made = 0;
    for (const char* how : {"base64", "quoted-printable", "base64 mbox"}) {
        const std::string mail = dir.path("report" + std::to_string(++made) + ".eml");
        commandOutput(std::string(MAKE_MAIL) + " " + quoted(log) + " " + quoted(mail) + " " + how);
        const Analysis result = analyze(quoted(mail));
        ASSERT_EQ(result.status, 0) << how << "\n" << result.out;
        EXPECT_EQ(result.out.substr(0, result.out.find('\n')), "Crash in " + mail + ", attachment \"dravik.log\", line 3") << how;
        EXPECT_EQ(body(result.out), body(plain)) << how;
    }

    // One character that Base64 has not, in the attachment's fifth line.
    const std::string mail = dir.path("report.eml");
    commandOutput(std::string(MAKE_MAIL) + " " + quoted(log) + " " + quoted(mail) + " base64");
    std::string text = fileText(mail);
    const std::size_t attachment = text.find("\n\n", text.find("filename=")) + 2;
    std::size_t line = attachment;
    for (int k = 0; k < 4; ++k)
        line = text.find('\n', line) + 1;
    text[line + 10] = '*';
    const std::size_t number = 1 + static_cast<std::size_t>(std::count(text.begin(), text.begin() + static_cast<long>(line), '\n'));
    const Analysis damaged = analyze(quoted(dir.write("damaged.eml", text)));
    EXPECT_EQ(damaged.status, 2);
    EXPECT_NE(damaged.out.find("damaged.eml:" + std::to_string(number) + ": the part \"dravik.log\" is not valid Base64 there"),
              std::string::npos) << damaged.out;

    const Analysis withoutLog = analyze(quoted(dir.write(
        "reply.eml", "From: Ann <ann@example.org>\nMIME-Version: 1.0\nContent-Type: text/plain\n\nThe log is too big to send.\n")));
    EXPECT_EQ(withoutLog.status, 2);
    EXPECT_NE(withoutLog.out.find("reply.eml: the mail has no log attached"), std::string::npos) << withoutLog.out;
}

// The binaries of a build, moved into a symbols folder as support keeps them:
// found by build id, as they are and filed into a .build-id tree; one
// library stripped: named as having no symbols.
TEST(Symbols, FoundByBuildIdWhereverTheyLieAndMissingOnesAreNamed) {
    const TempDir dir;
    namespace fs = std::filesystem;
    const std::string program = dir.path("app/CrashChild");
    fs::create_directories(dir.path("app"));
    fs::copy_file(CRASH_CHILD, program);
    fs::copy_file(LIBRARY, dir.path("app/" LIBRARY_NAME));
    fs::copy_file(NOTELIB, dir.path("app/" NOTELIB_NAME));
    const std::string log = dir.path("moved.log");
    ASSERT_NE(crash(program, log, "null-main", dir.path("app")), 0);
    fs::rename(dir.path("app"), dir.path("symbols"));

    const std::string named = "CrashChild  (anonymous namespace)::writeThroughNullOnMainThread() at CrashChild.cpp:";
    const Analysis lost = analyze(quoted(log));
    EXPECT_EQ(lost.out.find(named), std::string::npos) << lost.out;
    EXPECT_TRUE(std::regex_search(lost.out, std::regex("\nCrashChild \\(build id [0-9a-f]{40}\\): no symbols, file not found\n")))
        << lost.out;

    const Analysis found = analyze("--symbols " + quoted(dir.path("symbols")) + " " + quoted(log));
    EXPECT_NE(found.out.find(named), std::string::npos) << found.out;
    EXPECT_EQ(found.out.find("CrashChild (build id"), std::string::npos) << found.out;

    const std::string filed = commandOutput(std::string(ANALYZER) + " symbols add " + quoted(dir.path("tree")) + " " +
                                            quoted(dir.path("symbols")) + "/* 2>&1");
    const std::string id = commandOutput("readelf -n " + quoted(dir.path("symbols/CrashChild")) + " | sed -n 's/.*Build ID: //p'");
    ASSERT_GT(id.size(), 3u);
    EXPECT_TRUE(fs::exists(dir.path("tree/.build-id/" + id.substr(0, 2) + "/" + id.substr(2, id.size() - 3) + ".debug"))) << filed;
    const Analysis tree = analyze("--symbols " + quoted(dir.path("tree")) + " " + quoted(log));
    EXPECT_NE(tree.out.find(named), std::string::npos) << tree.out;

    // libdvenv2 stripped of its symbols, the rest as built.
    fs::create_directories(dir.path("partial"));
    commandOutput("cp " + quoted(dir.path("symbols")) + "/* " + quoted(dir.path("partial")) + " && strip " +
                  quoted(dir.path("partial/libdvenv2.so.1")));
    const Analysis partial = analyze("--symbols " + quoted(dir.path("partial")) + " " + quoted(log));
    EXPECT_NE(partial.out.find(named), std::string::npos) << partial.out;
    EXPECT_TRUE(std::regex_search(partial.out, std::regex("\nlibdvenv2\\.so\\.1 \\(build id [0-9a-f]{40}\\): no symbols, exported names only\n")))
        << partial.out;
}

TEST(BadInput, NamesTheFileAndWhatIsWrong) {
    const TempDir dir;
    const std::string log = dir.path("whole.log");
    ASSERT_NE(crash(CRASH_CHILD, log, "abort"), 0);
    const std::string text = fileText(log);
    const std::size_t end = text.find("Memory Mini-Dump End");
    ASSERT_NE(end, std::string::npos);
    const std::size_t firstDumpLine = text.find('\n', text.find("Memory Mini-Dump Begin")) + 1;
    const std::size_t dumpLines = static_cast<std::size_t>(std::count(text.begin() + static_cast<long>(firstDumpLine),
                                                                      text.begin() + static_cast<long>(end), '\n'));
    const std::size_t beginLine = static_cast<std::size_t>(std::count(text.begin(), text.begin() + static_cast<long>(firstDumpLine), '\n'));

    const auto expect = [&](const std::string& name, const std::string& content, int status, const std::string& message) {
        const Analysis result = analyze(quoted(dir.write(name, content)));
        EXPECT_EQ(result.status, status) << name << "\n" << result.out;
        EXPECT_NE(result.out.find(message), std::string::npos) << name << "\n" << result.out;
    };
    expect("plain.log", "-----------------------------------------------\nAppLog          :88     /usr/bin/dravik 9.1.3.456\n", 2,
           "plain.log: no crash in it");
    // Cut in the middle of the dump: the log of a process that died writing it.
    expect("cut.log", text.substr(0, firstDumpLine + 73 * 10 + 30), 2,
           "cut.log: the dump that starts at line " + std::to_string(beginLine) + " has no end");
    // Whole lines left out: the dump's streams lie past its end.
    std::size_t cutFrom = firstDumpLine;
    for (std::size_t k = 0; k < dumpLines / 2; ++k)
        cutFrom = text.find('\n', cutFrom) + 1;
    expect("short.log", text.substr(0, cutFrom) + text.substr(text.rfind('\n', end) + 1), 2, "the dump is cut short: ");
    std::string garbage = text;
    garbage[firstDumpLine + 73 * 3 + 5] = '%';
    expect("garbage.log", garbage, 2, "garbage.log:" + std::to_string(beginLine + 4) + ": not a line of the dump");

    const Analysis missing = analyze(quoted(dir.path("missing.log")));
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.out.find("cannot read '" + dir.path("missing.log") + "'"), std::string::npos) << missing.out;
}

// --all reports each crash of a log that holds several runs, and --json the
// same for programs.
TEST(AllCrashes, EachCrashOfTheLogInTextAndJson) {
    const TempDir dir;
    const std::string log = dir.path("runs.log");
    ASSERT_NE(crash(CRASH_CHILD, log, "divide"), 0);
    ASSERT_NE(crash(CRASH_CHILD, log, "null-main"), 0);  // appended: the log is small
    const Analysis last = analyze(quoted(log));
    EXPECT_NE(last.out.find("writeThroughNullOnMainThread"), std::string::npos) << last.out;
    EXPECT_EQ(last.out.find("divideByZero"), std::string::npos) << last.out;

    const Analysis all = analyze("--all " + quoted(log));
    EXPECT_LT(all.out.find("divideByZero"), all.out.find("writeThroughNullOnMainThread")) << all.out;
    const auto json = nlohmann::json::parse(analyze("--all --json " + quoted(log)).out);
    ASSERT_EQ(json["crashes"].size(), 2u);
    EXPECT_EQ(json["crashes"][0]["exception"]["code"], "c0000094");
    EXPECT_EQ(json["crashes"][1]["exception"]["meaning"], "bad memory access");
    EXPECT_EQ(json["crashes"][1]["signature"], signatureOf(last.out));
    const auto& frame = json["crashes"][1]["threads"][0]["frames"][0];
    EXPECT_EQ(frame["module"], "CrashChild");
    EXPECT_EQ(frame["function"], "(anonymous namespace)::writeThroughNullOnMainThread()");
    EXPECT_EQ(std::filesystem::path(frame["file"].get<std::string>()).filename(), "CrashChild.cpp");
    EXPECT_GT(frame["line"].get<int>(), 0);
}

}  // namespace
