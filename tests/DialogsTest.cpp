// The question, the message and the fatal error, shown for real through the
// dialog program: on a display (answered with the keyboard through xdotool),
// on a terminal (a pseudo-terminal), and with neither.

#include "platform/Dialogs.h"

#include "support/Command.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

namespace dv::env::platform {
namespace {

constexpr int saidYes = 10, saidNo = 11;

int ask() {
    return dialogs().askYesNo("Dravik Error", "Dravik has encountered a problem.\nWould you like to send this report now ?")
               ? saidYes : saidNo;
}
int show() { return dialogs().showMessage("Dravik", "Please send an e-mail.\n"), 0; }

int exitStatus(pid_t child) {
    int status = 0;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Forks a child that calls `prepare`, then ends with what `body` gives.
template <typename Prepare>
pid_t spawn(int (*body)(), Prepare prepare) {
    const pid_t child = ::fork();
    if (child == 0) {
        prepare();
        ::_exit(body());
    }
    return child;
}

int showFatal() { return dialogs().showFatalError("Dravik Error", "Invalid numeric parameter for option: Q"), 0; }

TEST(Dialogs, WithNeitherDisplayNorTerminalTheAnswerIsNoAndTheTextsGoToStandardError) {
    const test::TempDir dir;
    const std::string errors = dir.path("errors");
    const auto alone = [&] {
        ::setsid();  // no controlling terminal
        ::unsetenv("DISPLAY");
        ::dup2(::open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
    };
    EXPECT_EQ(exitStatus(spawn(ask, alone)), saidNo);
    EXPECT_EQ(test::fileText(errors),
              "Dravik Error\nDravik has encountered a problem.\nWould you like to send this report now ?\n"
              "dvenv-ask: no display and no terminal to ask on: answered No\n");
    EXPECT_EQ(exitStatus(spawn(show, alone)), 0);
    EXPECT_EQ(test::fileText(errors), "Dravik\nPlease send an e-mail.\n");
    // The one who reports a fatal error has written it there already.
    EXPECT_EQ(exitStatus(spawn(showFatal, alone)), 0);
    EXPECT_EQ(test::fileText(errors), "");
}

// Reads what the terminal shows until `until` has come, or for 10 s.
std::string readUntil(int master, const char* until) {
    std::string seen;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (seen.find(until) == std::string::npos && std::chrono::steady_clock::now() < end) {
        pollfd wait{master, POLLIN, 0};
        if (::poll(&wait, 1, 100) <= 0)
            continue;
        char buffer[256];
        const ssize_t got = ::read(master, buffer, sizeof(buffer));
        if (got <= 0)
            break;
        seen.append(buffer, static_cast<std::size_t>(got));
    }
    return seen;
}

// The answer comes back whatever the host does with SIGCHLD: ignored, the
// kernel reaps the dialog program before anyone could wait for its status.
TEST(Dialogs, WithoutDisplayTheTerminalIsAsked) {
    for (const std::string reply : {"y\n", "n\n", "\n"}) {
        int master = -1;
        const pid_t child = ::forkpty(&master, nullptr, nullptr, nullptr);
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::unsetenv("DISPLAY");
            ::signal(SIGCHLD, SIG_IGN);
            ::_exit(ask());
        }
        const std::string seen = readUntil(master, "[y/N] ");
        EXPECT_NE(seen.find("Dravik Error"), std::string::npos) << seen;
        EXPECT_NE(seen.find("Would you like to send this report now ?"), std::string::npos) << seen;
        ASSERT_EQ(::write(master, reply.data(), reply.size()), static_cast<ssize_t>(reply.size()));
        EXPECT_EQ(exitStatus(child), reply == "y\n" ? saidYes : saidNo) << "reply " << reply;
        ::close(master);
    }
}

// A background job that read the terminal would be stopped, and the program
// waiting for its answer with it.
TEST(Dialogs, ABackgroundJobIsNotAskedOnTheTerminal) {
    int master = -1;
    const pid_t child = ::forkpty(&master, nullptr, nullptr, nullptr);
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::unsetenv("DISPLAY");
        // The terminal's foreground goes to another process group.
        const pid_t foreground = ::fork();
        if (foreground == 0) {
            ::setpgid(0, 0);
            ::pause();
            ::_exit(0);
        }
        ::setpgid(foreground, foreground);
        ::tcsetpgrp(STDIN_FILENO, foreground);
        const int answer = ask();
        ::kill(foreground, SIGKILL);
        ::_exit(answer);
    }
    const std::string seen = readUntil(master, "answered No");
    EXPECT_NE(seen.find("no display and no terminal to ask on: answered No"), std::string::npos) << seen;
    EXPECT_EQ(exitStatus(child), saidNo);
    ::close(master);
}

using test::commandOutput;

TEST(Dialogs, OnADisplayAFoxDialogAsksWithYesAndNo) {
    if (!::getenv("DISPLAY") || commandOutput("command -v xdotool").empty())
        GTEST_SKIP() << "needs a display and xdotool";
    // Another X server may have taken the display's number: not the dialog's fault.
    // A busy server may refuse a client for a moment, so try for two seconds.
    bool opened = false;
    for (int attempt = 0; attempt < 20 && !opened; ++attempt) {
        opened = !commandOutput("xdotool getdisplaygeometry 2>/dev/null").empty();
        if (!opened)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    if (!opened)
        GTEST_SKIP() << "the display " << ::getenv("DISPLAY") << " cannot be opened";
    // Waits for a visible window of exactly this title, gives it the keyboard
    // and presses `keys`; a dialog that shows none before it ends, or in
    // 10 s, fails, and its process group is ended.
    const auto answer = [](int (*body)(), const std::string& title, const std::string& keys) {
        const pid_t child = spawn(body, [] { ::setpgid(0, 0); });
        ::setpgid(child, child);
        bool pressed = false;
        siginfo_t info{};
        for (int attempt = 0; attempt < 100 && !pressed; ++attempt) {
            info.si_pid = 0;
            if (::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid)
                break;
            const std::string window = commandOutput("xdotool search --onlyvisible --name '^" + title + "$' 2>/dev/null | head -1");
            std::this_thread::sleep_for(std::chrono::milliseconds(window.empty() ? 100 : 300));
            if ((pressed = !window.empty()))
                commandOutput("xdotool windowfocus --sync " + window + " 2>/dev/null; xdotool key " + keys);
        }
        if (!pressed)
            ::kill(-child, SIGKILL);
        EXPECT_TRUE(pressed) << "no window " << title;
        return exitStatus(child);
    };
    EXPECT_EQ(answer(ask, "Dravik Error", "alt+y"), saidYes);
    EXPECT_EQ(answer(ask, "Dravik Error", "alt+n"), saidNo);
    EXPECT_EQ(answer(show, "Dravik", "Return"), 0);
    EXPECT_EQ(answer(showFatal, "Dravik Error", "Return"), 0);
}

}  // namespace
}  // namespace dv::env::platform
