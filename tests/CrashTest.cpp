// Real crashes: a child process builds its AppLog as the application does and
// then faults. Its log must hold the diagnosis and a dump that lldb opens and
// that names the faulting function; the child must end by its signal. The
// child has neither display nor terminal, so the question is answered No.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace {

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string run(const std::string& command) {
    std::string output;
    if (std::FILE* pipe = ::popen(command.c_str(), "r")) {
        char buffer[4096];
        while (const std::size_t got = std::fread(buffer, 1, sizeof(buffer), pipe))
            output.append(buffer, got);
        ::pclose(pipe);
    }
    return output;
}

struct Crash {
    int signal = 0;  // the signal that ended the child, or 0
    std::string log;
    std::string dump;  // path of the dump taken out of the log
};

Crash crash(const char* how, bool extract = true) {
    const std::string base = ::testing::TempDir() + "crash-" + how;
    Crash result;
    const std::string log = base + ".log";
    std::remove(log.c_str());
    const pid_t child = ::fork();
    if (child == 0) {
        ::setsid();
        ::unsetenv("DISPLAY");
        const int nothing = ::open("/dev/null", O_RDWR);
        ::dup2(nothing, STDIN_FILENO);
        ::dup2(nothing, STDERR_FILENO);
        ::execl(CRASH_CHILD, CRASH_CHILD, log.c_str(), how, static_cast<char*>(nullptr));
        ::_exit(127);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result.log = readFile(log);
    result.dump = base + ".dmp";
    if (!extract)
        return result;
    const std::string extracted = run(std::string(DVENV_TOOL) + " dump-extract '" + log + "' '" + result.dump + "' 2>&1");
    EXPECT_NE(extracted.find("bytes written"), std::string::npos) << extracted;
    return result;
}

std::string backtrace(const Crash& crashed) {
    return run("lldb-14 -b --core '" + crashed.dump + "' -o 'bt 12' 2>/dev/null");
}

bool hasStamped(const std::string& log, const std::string& message) {
    return log.find("AppLog          :") != std::string::npos && log.find("   " + message + "\n") != std::string::npos;
}

TEST(Crash, NullWriteOnTheMainThreadGivesADumpNamingTheFunction) {
    const Crash crashed = crash("null-main");
    EXPECT_EQ(crashed.signal, SIGSEGV);
    EXPECT_TRUE(hasStamped(crashed.log, "Unhandled exception: c0000005")) << crashed.log;
    const std::string trace = backtrace(crashed);
    EXPECT_NE(trace.find("stop reason = signal SIGSEGV"), std::string::npos) << trace;
    EXPECT_NE(trace.find("frame #0: 0x"), std::string::npos) << trace;
    EXPECT_NE(trace.find("CrashChild`(anonymous namespace)::writeThroughNullOnMainThread()"), std::string::npos) << trace;
    EXPECT_NE(trace.find("CrashChild`main"), std::string::npos) << trace;
}

TEST(Crash, NullWriteOnASecondThreadGivesADumpNamingTheFunction) {
    const Crash crashed = crash("null-thread");
    EXPECT_EQ(crashed.signal, SIGSEGV);
    EXPECT_TRUE(hasStamped(crashed.log, "Unhandled exception: c0000005")) << crashed.log;
    const std::string trace = backtrace(crashed);
    EXPECT_NE(trace.find("writeThroughNullOnSecondThread()"), std::string::npos) << trace;
}

TEST(Crash, AbortAndUncaughtExceptionGiveADumpNamingTheCaller) {
    for (const auto& [how, function] : {std::make_pair("abort", "abortInNamedFunction()"),
                                        std::make_pair("uncaught", "throwWithoutCatch()")}) {
        const Crash crashed = crash(how);
        EXPECT_EQ(crashed.signal, SIGABRT) << how;
        EXPECT_TRUE(hasStamped(crashed.log, "Unhandled exception: 40000015")) << crashed.log;
        const std::string trace = backtrace(crashed);
        EXPECT_NE(trace.find("stop reason = signal SIGABRT"), std::string::npos) << trace;
        EXPECT_NE(trace.find(function), std::string::npos) << trace;
    }
}

// The filter runs on an alternate stack, so an overflow of the stack of the
// AppLog's thread still reaches it.
TEST(Crash, StackOverflowIsReportedAsSuch) {
    const Crash crashed = crash("overflow");
    EXPECT_EQ(crashed.signal, SIGSEGV);
    EXPECT_TRUE(hasStamped(crashed.log, "Unhandled exception: c00000fd")) << crashed.log.substr(0, 2000);
    EXPECT_NE(backtrace(crashed).find("frame #0: 0x"), std::string::npos);
}

TEST(Crash, ArithmeticFaultAndIllegalInstructionHaveTheirCodes) {
    const Crash divided = crash("divide");
    EXPECT_EQ(divided.signal, SIGFPE);
    EXPECT_TRUE(hasStamped(divided.log, "Unhandled exception: c0000094")) << divided.log;
    const Crash trapped = crash("trap");
    EXPECT_EQ(trapped.signal, SIGILL);
    EXPECT_TRUE(hasStamped(trapped.log, "Unhandled exception: c000001d")) << trapped.log;
}

// A fault inside the filter ends the process at once by its signal.
TEST(Crash, FaultInsideTheFilterEndsTheProcessByItsSignal) {
    EXPECT_EQ(crash("filter-fault", false).signal, SIGSEGV);
    EXPECT_EQ(crash("filter-abort", false).signal, SIGABRT);
}

// Yes on the terminal: the log goes to the mail program (one of ours, that
// xdg-email runs), and the process still ends by its signal.
TEST(Crash, YesMailsTheLogAndTheProcessEndsAllTheSame) {
    const std::string log = ::testing::TempDir() + "crash-yes.log", handed = ::testing::TempDir() + "crash-yes.mailto";
    const std::string mailer = ::testing::TempDir() + "crash-yes-mailer";
    std::remove(handed.c_str());
    std::ofstream(mailer) << "#!/bin/sh\nprintf '%s' \"$1\" > '" << handed << "'\n";
    ::chmod(mailer.c_str(), 0700);

    int terminal = -1;
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::unsetenv("DISPLAY");
        ::setenv("MAILER", mailer.c_str(), 1);
        ::execl(CRASH_CHILD, CRASH_CHILD, log.c_str(), "null-main", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    std::string seen;
    char buffer[256];
    while (seen.find("[y/N] ") == std::string::npos) {
        const ssize_t got = ::read(terminal, buffer, sizeof(buffer));
        if (got <= 0)
            break;
        seen.append(buffer, static_cast<std::size_t>(got));
    }
    EXPECT_NE(seen.find("Would you like to send this report now ?"), std::string::npos) << seen;
    ASSERT_EQ(::write(terminal, "y\n", 2), 2);
    // The terminal is read to its end, so that the child never waits on it.
    while (::read(terminal, buffer, sizeof(buffer)) > 0) {
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ::close(terminal);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV);
    const std::string address = readFile(handed);
    EXPECT_NE(address.find("subject=Error%20Report&body=Dravik%20Error%20Report%20%28attached%29.&attach="),
              std::string::npos) << address;
    EXPECT_NE(address.find("crash-yes.log"), std::string::npos) << address;
}

TEST(DumpExtract, RefusesLogsWithoutAWholeDump) {
    const std::string log = ::testing::TempDir() + "broken.log", out = ::testing::TempDir() + "broken.dmp";
    const auto extract = [&](const std::string& text) {
        std::ofstream(log, std::ios::binary) << text;
        return run(std::string(DVENV_TOOL) + " dump-extract '" + log + "' '" + out + "' 2>&1; echo status $?");
    };
    const std::string begin = "AppLog          :107    Memory Mini-Dump Begin\n";
    const std::string end = "AppLog          :120    Memory Mini-Dump End\n";
    const std::string full(72, 'A');

    EXPECT_NE(extract("no dump here\n").find("holds no memory dump"), std::string::npos);
    EXPECT_NE(extract(begin + full + "\n").find("has no end"), std::string::npos);
    EXPECT_NE(extract(begin + "AAA*\n" + end).find(":2: not a line of the dump"), std::string::npos);
    EXPECT_NE(extract(begin + "AAAA\n" + full + "\n" + end).find("only the last line may be shorter"), std::string::npos);
    EXPECT_NE(extract(begin + full + "\n").find("status 2"), std::string::npos);

    // Lines of other threads between the dump's lines are passed over.
    EXPECT_NE(extract(begin + full + "\nOptions         :89     ToolArcPrecValue = 64\nQUJD\n" + end)
                  .find("57 bytes written"), std::string::npos);
    EXPECT_EQ(readFile(out).substr(54), "ABC");
}

}  // namespace
