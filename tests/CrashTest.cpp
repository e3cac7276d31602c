// Real crashes: a child process builds its AppLog as the application does and
// then fails. Its log must hold the diagnosis and a dump that lldb opens, and
// the child must end by its signal. With neither display nor terminal the
// question is answered No.

#include "support/Command.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstring>

#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <regex>
#include <sstream>
#include <string>
#include <utility>

namespace {

using dv::env::test::commandOutput;
using dv::env::test::fileText;

// Runs the child alone and gives the signal that ended it, or 0. Its
// standard error goes to `errors` if named.
int crash(const std::string& log, const char* how, const std::string& errors = "") {
    const pid_t child = ::fork();
    if (child == 0) {
        ::setsid();
        ::umask(022);
        ::unsetenv("DISPLAY");
        const int nothing = ::open("/dev/null", O_RDWR);
        ::dup2(nothing, STDIN_FILENO);
        ::dup2(errors.empty() ? nothing : ::open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
        ::execl(CRASH_CHILD, CRASH_CHILD, log.c_str(), how, static_cast<char*>(nullptr));
        ::_exit(127);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

struct Kind {
    const char* how;
    int signal;
    const char* code;
    const char* inTrace;  // what lldb must show of the dump
    const char* before = "";  // a pattern of what the log holds up to the diagnosis
};
void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.how; }

class Crash : public ::testing::TestWithParam<Kind> {};

TEST_P(Crash, EndsByItsSignalWithTheCodeAndADumpLldbReads) {
    const Kind& kind = GetParam();
    const dv::env::test::TempDir dir;  // of its own: other processes crash alike
    const std::string log = dir.path("crash.log"), dump = dir.path("crash.dmp");
    EXPECT_EQ(crash(log, kind.how), kind.signal);
    const std::string text = fileText(log);
    EXPECT_NE(text.find("AppLog          :"), std::string::npos) << text.substr(0, 2000);
    struct stat status {};
    EXPECT_TRUE(::stat(log.c_str(), &status) == 0 && (status.st_mode & 07777) == 0600);  // it holds a dump
    const std::size_t diagnosis = text.find(std::string("   Unhandled exception: ") + kind.code + "\n");
    EXPECT_NE(diagnosis, std::string::npos) << text.substr(0, 2000);
    EXPECT_TRUE(std::regex_search(text, std::regex(std::string(kind.before) + "Unhandled exception: ")))
        << text.substr(0, 2000);
    const std::string extracted =
        commandOutput(std::string(DVENV_TOOL) + " dump-extract '" + log + "' '" + dump + "' 2>&1");
    EXPECT_NE(extracted.find("bytes written"), std::string::npos) << extracted;
    const std::string trace = commandOutput("lldb-14 -b --core '" + dump + "' -o 'bt 12' 2>/dev/null");
    EXPECT_NE(trace.find(std::string("stop reason = signal SIG") + sigabbrev_np(kind.signal)), std::string::npos)
        << trace;
    EXPECT_NE(trace.find("frame #0: 0x"), std::string::npos) << trace;
    EXPECT_NE(trace.find(kind.inTrace), std::string::npos) << trace;
    // The program's module record carries its build id (as readelf shows it)
    // behind the CodeView signature, whose little-endian bytes are "LEpB":
    // symbol tools match modules by it.
    const std::string hex = commandOutput("readelf -n '" CRASH_CHILD "' | sed -n 's/.*Build ID: //p'");
    std::string record = "LEpB";
    for (std::size_t i = 0; i + 1 < hex.size() && std::isxdigit(static_cast<unsigned char>(hex[i])); i += 2)
        record += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    EXPECT_GT(record.size(), 4u);
    EXPECT_NE(fileText(dump).find(record), std::string::npos);
}

// The filter runs on an alternate stack, so an overflow of the AppLog thread's
// stack, or of any thread started after it, still reaches it.
INSTANTIATE_TEST_SUITE_P(
    Kinds, Crash,
    ::testing::Values(
        Kind{"null-main", SIGSEGV, "c0000005", "CrashChild`(anonymous namespace)::writeThroughNullOnMainThread()"},
        Kind{"null-thread", SIGSEGV, "c0000005", "writeThroughNullOnSecondThread()"},
        Kind{"abort", SIGABRT, "40000015", "abortInNamedFunction()"},
        Kind{"uncaught", SIGABRT, "40000015", "throwWithoutCatch()"},
        Kind{"overflow", SIGSEGV, "c00000fd", "::recurseWithoutEnd("},
        // Threads that nobody prepared: a std::thread, one a C library starts,
        // and one that existed before the AppLog and prepared itself.
        Kind{"overflow-thread", SIGSEGV, "c00000fd", "::recurseWithoutEnd("},
        Kind{"overflow-pthread", SIGSEGV, "c00000fd", "::recurseWithoutEnd("},
        Kind{"overflow-early", SIGSEGV, "c00000fd", "::recurseWithoutEnd("},
        Kind{"divide", SIGFPE, "c0000094", "divideByZero()"},
        Kind{"trap", SIGILL, "c000001d", "CrashChild`main"},
        // With process_vm_readv refused, at an address past a mapped file's end.
        // No symbol at that address: lldb shows the frame alone.
        Kind{"refused-read", SIGBUS, "c0000006", "frame #0: 0x"}),
    [](const auto& param) {
        std::string name = param.param.how;
        std::replace(name.begin(), name.end(), '-', '_');
        return name;
    });

// A bad value on the command line is a fatal report, not a crash: the reason
// is in the log and on standard error, the process ends by fxerror's abort,
// and there is no diagnosis, no dump and no question.
TEST(CrashTypo, EndsWithTheReasonAndNoCrashReport) {
    const dv::env::test::TempDir dir;
    const std::string log = dir.path("typo.log"), errors = dir.path("typo.err");
    EXPECT_EQ(crash(log, "typo", errors), SIGABRT);
    const std::string text = fileText(log);
    EXPECT_TRUE(std::regex_search(
        text, std::regex("about to fail: typo\nOptions         :[0-9]+ +Invalid numeric parameter for option: "
                         "ToolArcPrecValue\n$")))
        << text;
    EXPECT_EQ(text.find("Unhandled exception"), std::string::npos);
    EXPECT_EQ(text.find("Mini-Dump"), std::string::npos);
    const std::string said = fileText(errors);
    EXPECT_NE(said.find("Invalid numeric parameter for option: ToolArcPrecValue"), std::string::npos) << said;
    EXPECT_EQ(said.find("Would you like to send this report now ?"), std::string::npos) << said;
}

// Every thread is in the dump with its registers and stack, the faulting one
// first; one that blocks every signal cannot answer and is left out.
TEST(CrashWithThreads, TheDumpHoldsEveryThreadThatAnswers) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer holds a signal back until the thread calls into its runtime, "
                    "which the spinning threads never do";
#endif
    const dv::env::test::TempDir dir;
    const std::string log = dir.path("threads.log"), dump = dir.path("threads.dmp");
    EXPECT_EQ(crash(log, "threads"), SIGSEGV);
    commandOutput(std::string(DVENV_TOOL) + " dump-extract '" + log + "' '" + dump + "' 2>&1");
    const std::string trace = commandOutput("lldb-14 -b --core '" + dump + "' -o 'thread backtrace all -c 3' 2>/dev/null");
    EXPECT_NE(trace.find("* thread #1, stop reason = signal SIGSEGV"), std::string::npos) << trace;
    EXPECT_LT(trace.find("writeThroughNullOnMainThread()"), trace.find("thread #2")) << trace;
    for (const char* worker : {"spinInFirstWorker", "spinInSecondWorker", "spinInThirdWorker"})
        EXPECT_TRUE(std::regex_search(trace, std::regex(std::string("frame #0: 0x[0-9a-f]+ CrashChild`.*::") + worker + "\\(\\)")))
            << worker << " in\n" << trace;
    EXPECT_NE(trace.find("thread #4"), std::string::npos) << trace;
    EXPECT_EQ(trace.find("thread #5"), std::string::npos) << trace;
    EXPECT_EQ(trace.find("spinDeafToSignals"), std::string::npos) << trace;
}

std::size_t countOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

// How often each crash under load is repeated (CTest sets it from the cache
// variable DVENV2_CRASH_REPEAT).
int repetitions() {
    const char* text = std::getenv("DVENV2_CRASH_REPEAT");
    return text && std::atoi(text) > 0 ? std::atoi(text) : 3;
}

struct Load {
    const char* how;
    const char* firstFrame;     // frame #0 of the first faulting thread
    std::size_t faultingThreads;  // threads whose frame #0 is firstFrame
};
void PrintTo(const Load& load, std::ostream* out) { *out << load.how; }

class CrashUnderLoad : public ::testing::TestWithParam<Load> {};

// Threads that fault at once, or a fault while others write to the log
// without pause: each run gives one diagnosis, one question and a dump in one
// block, which lldb opens with every faulting thread at its fault, the first
// one first; the other threads' numbers stay decimal.
TEST_P(CrashUnderLoad, GivesOneWholeReport) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer defers the signal that holds a thread, and reports the host's own "
                    "unsynchronised log writes that these children make on purpose";
#endif
    const Load& load = GetParam();
    const dv::env::test::TempDir dir;
    const std::regex workerLine("Worker          :12     line [0-9]+ of 255");
    std::string lldbCommands;
    const int runs = repetitions();
    for (int run = 0; run < runs; ++run) {
        const std::string name = dir.path(std::to_string(run));
        ASSERT_EQ(crash(name + ".log", load.how, name + ".err"), SIGSEGV) << "run " << run;
        const std::string text = fileText(name + ".log");
        ASSERT_EQ(countOf(text, "Unhandled exception: "), 1u) << "run " << run << "\n" << text.substr(0, 3000);
        EXPECT_EQ(countOf(fileText(name + ".err"), "Would you like to send this report now ?"), 1u) << "run " << run;
        const std::size_t diagnosis = text.find("Unhandled exception: c0000005\n");
        const std::size_t end = text.find("Memory Mini-Dump End\n");
        ASSERT_LT(diagnosis, end) << "run " << run;
        EXPECT_EQ(text.find("Worker", diagnosis), std::string::npos) << "run " << run << "\n" << text.substr(diagnosis);
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            const bool worker = line.rfind("Worker", 0) == 0 && line.find("Unhandled exception") == std::string::npos;
            EXPECT_TRUE(!worker || std::regex_match(line, workerLine)) << "run " << run << ": " << line;
        }
        const std::string extracted = commandOutput(std::string(DVENV_TOOL) + " dump-extract '" + name + ".log' '" +
                                                    name + ".dmp' 2>&1");
        ASSERT_NE(extracted.find("bytes written"), std::string::npos) << "run " << run << ": " << extracted;
        lldbCommands += " -o 'target create --core " + name + ".dmp' -o 'thread backtrace all -c 1'";
    }

    // One lldb for every dump: its start is what takes the time.
    const std::string trace = commandOutput("lldb-14 -b" + lldbCommands + " 2>/dev/null");
    std::size_t at = trace.find("target create --core");
    for (int run = 0; run < runs; ++run, at = trace.find("target create --core", at + 1)) {
        ASSERT_NE(at, std::string::npos) << "run " << run << "\n" << trace;
        const std::string dump = trace.substr(at, trace.find("target create --core", at + 1) - at);
        const std::size_t first = dump.find("* thread #1, stop reason = signal SIGSEGV");
        ASSERT_NE(first, std::string::npos) << "run " << run << "\n" << dump;
        const std::size_t firstFrame = dump.find("frame #0: 0x", first);
        const std::string firstLine = dump.substr(firstFrame, dump.find('\n', firstFrame) - firstFrame);
        const std::size_t named = firstLine.find(load.firstFrame);
        ASSERT_NE(named, std::string::npos) << "run " << run << "\n" << dump;
        // Every faulting thread stands where its own fault left it: the same
        // function, file, line and column as the first.
        EXPECT_EQ(countOf(dump, firstLine.substr(named)), load.faultingThreads) << "run " << run << "\n" << dump;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Loads, CrashUnderLoad,
    ::testing::Values(Load{"together-2", "CrashChild`(anonymous namespace)::faultTogether(threads=2) at CrashChild.cpp:", 2},
                      Load{"together-8", "CrashChild`(anonymous namespace)::faultTogether(threads=8) at CrashChild.cpp:", 8},
                      Load{"busy-log", "CrashChild`(anonymous namespace)::writeThroughNullOnMainThread() at", 1}),
    [](const auto& param) {
        std::string name = param.param.how;
        std::replace(name.begin(), name.end(), '-', '_');
        return name;
    });

// The dump's file has no name: another user's "Dravik.DMP" in the temporary
// directory, or anything else of that name, cannot block it.
TEST(CrashDumpFile, AnotherFileOfTheNameDoesNotBlockTheDump) {
    const dv::env::test::TempDir dir;
    const std::string blocker = P_tmpdir "/Dravik.DMP";
    const bool made = ::mkdir(blocker.c_str(), 0700) == 0;
    EXPECT_EQ(crash(dir.path("blocked.log"), "abort"), SIGABRT);
    if (made)
        ::rmdir(blocker.c_str());
    EXPECT_NE(fileText(dir.path("blocked.log")).find("Memory Mini-Dump End"), std::string::npos);
}

// A fault inside the filter (its log stream stands in for a damaged one)
// ends the process at once by the first fault's signal, and the log keeps
// what it held.
TEST(CrashInFilter, EndsTheProcessByTheFirstSignal) {
    const dv::env::test::TempDir dir;
    for (const auto& [how, signal] : {std::pair<const char*, int>{"filter-fault", SIGSEGV}, {"filter-abort", SIGSEGV},
                                      {"abort-filter-fault", SIGABRT}}) {
        const std::string log = dir.path(std::string(how) + ".log");
        EXPECT_EQ(crash(log, how), signal) << how;
        EXPECT_NE(fileText(log).find("about to fail: " + std::string(how) + "\n"), std::string::npos) << how;
    }
}

// Yes on the terminal, in a host that ignores SIGCHLD and blocks a signal:
// the answer still comes back, and the log goes to a mail client that takes
// attachments (xdg-mime and xdg-email of ours), which starts with no signal
// blocked or ignored. The process still ends by its signal.
TEST(CrashAnsweredYes, MailsTheLogAndTheProcessEndsAllTheSame) {
    const dv::env::test::TempDir dir;
    const std::string log = dir.path("crash-yes.log");
    for (const auto& [name, script] :
         {std::pair<std::string, std::string>{"xdg-mime", "#!/bin/sh\necho thunderbird.desktop\n"},
          // Read by the shell itself: while it waits for a child, its own
          // mask is not the one it started with.
          {"xdg-email", "#!/bin/sh\nwhile read -r key value; do case $key in Sig*) echo \"$key $value\";; esac; done"
                        " < /proc/$$/status > '" + dir.path("signals") +
                        "'\nprintf '%s\\n' \"$@\" > '" + dir.path("arguments") + "'\n"}}) {
        ::chmod(dir.write(name, script).c_str(), 0700);
    }

    int terminal = -1;
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::unsetenv("DISPLAY");
        ::setenv("PATH", (dir.path("") + ":" + ::getenv("PATH")).c_str(), 1);
        ::signal(SIGCHLD, SIG_IGN);
        sigset_t blocked;
        sigemptyset(&blocked);
        sigaddset(&blocked, SIGUSR1);
        ::sigprocmask(SIG_BLOCK, &blocked, nullptr);
        ::execl(CRASH_CHILD, CRASH_CHILD, log.c_str(), "null-main", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    std::string seen;
    char buffer[256];
    for (ssize_t got = 1; got > 0 && seen.find("[y/N] ") == std::string::npos;)
        if ((got = ::read(terminal, buffer, sizeof(buffer))) > 0)
            seen.append(buffer, static_cast<std::size_t>(got));
    EXPECT_NE(seen.find("Would you like to send this report now ?"), std::string::npos) << seen;
    ASSERT_EQ(::write(terminal, "y\n", 2), 2);
    while (::read(terminal, buffer, sizeof(buffer)) > 0) {  // so the child never waits on the terminal
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ::close(terminal);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV);
    const std::string arguments = fileText(dir.path("arguments"));
    EXPECT_NE(arguments.find("--subject\nError Report\n--body\nDravik Error Report (attached).\n--attach\n" + log +
                             "\nDravik Support <"), std::string::npos) << arguments;
    // Signals 32 and 33 are reserved by the C library, which starts a program
    // with them as it finds them; this test's own host may ignore them.
    const std::string signals = fileText(dir.path("signals"));
    const auto mask = [&](const char* name) {
        const std::size_t at = signals.find(name);
        return at == std::string::npos ? ~0ull : std::stoull(signals.substr(at + std::strlen(name)), nullptr, 16);
    };
    constexpr unsigned long long libraryOwn = 3ull << 31;
    EXPECT_EQ(mask("SigBlk: "), 0u) << signals;
    EXPECT_EQ(mask("SigIgn: ") & ~libraryOwn, 0u) << signals;
}

TEST(DumpExtract, RefusesLogsWithoutAWholeDump) {
    const dv::env::test::TempDir dir;
    const std::string out = dir.path("broken.dmp");
    const auto extract = [&](const std::string& text) {
        const std::string log = dir.write("broken.log", text);
        return commandOutput(std::string(DVENV_TOOL) + " dump-extract '" + log + "' '" + out + "' 2>&1; echo status $?");
    };
    const std::string begin = "AppLog          :107    Memory Mini-Dump Begin\n";
    const std::string end = "AppLog          :120    Memory Mini-Dump End\n";
    const std::string full(72, 'A');

    EXPECT_NE(extract("no dump here\n").find("holds no memory dump"), std::string::npos);
    EXPECT_NE(extract(begin + full + "\n").find("has no end"), std::string::npos);
    EXPECT_NE(extract(begin + "AAA*\n" + end).find(":2: not a line of the dump"), std::string::npos);
    EXPECT_NE(extract(begin + "AAAA\n" + full + "\n" + end).find("only the last line may be shorter"),
              std::string::npos);
    EXPECT_NE(extract(begin + full + "\n").find("status 2"), std::string::npos);

    // Lines of other threads between the dump's lines are passed over.
    EXPECT_NE(extract(begin + full + "\nOptions         :89     ToolArcPrecValue = 64\nQUJD\n" + end)
                  .find("57 bytes written"), std::string::npos);
    EXPECT_EQ(fileText(out).substr(54), "ABC");
}

}  // namespace
