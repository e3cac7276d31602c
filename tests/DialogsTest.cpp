// The question and the message, asked for real through the dialog program:
// on a display (answered with the keyboard through xdotool), on a terminal
// (a pseudo-terminal), and with neither.

#include "platform/Dialogs.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <poll.h>
#include <pty.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>

namespace dv::env::internal::platform {
namespace {

constexpr int saidYes = 10;
constexpr int saidNo = 11;
const char* const question = "Dravik has encountered a problem.\nWould you like to send this report now ?";

int exitStatus(pid_t child) {
    int status = 0;
    if (::waitpid(child, &status, 0) != child)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Runs `body` in a child process and gives its exit status.
int inChild(const std::function<int()>& body, const std::function<void()>& prepare = [] {}) {
    const pid_t child = ::fork();
    if (child == 0) {
        prepare();
        ::_exit(body());
    }
    return exitStatus(child);
}

int askInChild() { return askYesNo("Dravik Error", question) ? saidYes : saidNo; }

TEST(Dialogs, WithNeitherDisplayNorTerminalTheAnswerIsNoAndMessagesGoToStandardError) {
    const std::string errors = ::testing::TempDir() + "dialog-errors";
    const auto alone = [&] {
        ::setsid();  // no controlling terminal
        ::unsetenv("DISPLAY");
        const int file = ::open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ::dup2(file, STDERR_FILENO);
    };
    EXPECT_EQ(inChild(askInChild, alone), saidNo);
    EXPECT_EQ(inChild([] { showMessage("Dravik", "Please send an e-mail.\n"); return 0; }, alone), 0);
    std::ifstream in(errors);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()),
              "Dravik\nPlease send an e-mail.\n");
}

// Reads from the terminal's master side until `prompt` has come, or 10 s.
std::string readUntil(int master, const std::string& prompt) {
    std::string seen;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (seen.find(prompt) == std::string::npos && std::chrono::steady_clock::now() < end) {
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

TEST(Dialogs, WithoutDisplayTheTerminalIsAsked) {
    for (const auto& [reply, expected] : {std::make_pair("y\n", saidYes), std::make_pair("n\n", saidNo),
                                          std::make_pair("\n", saidNo)}) {
        int master = -1;
        const pid_t child = ::forkpty(&master, nullptr, nullptr, nullptr);
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::unsetenv("DISPLAY");
            ::_exit(askInChild());
        }
        const std::string seen = readUntil(master, "[y/N] ");
        EXPECT_NE(seen.find("Dravik Error"), std::string::npos) << seen;
        EXPECT_NE(seen.find("Would you like to send this report now ?"), std::string::npos) << seen;
        ASSERT_EQ(::write(master, reply, std::char_traits<char>::length(reply)),
                  static_cast<ssize_t>(std::char_traits<char>::length(reply)));
        EXPECT_EQ(exitStatus(child), expected) << "reply " << reply;
        ::close(master);
    }
}

std::string run(const std::string& command) {
    std::string output;
    if (std::FILE* pipe = ::popen(command.c_str(), "r")) {
        char buffer[256];
        while (const std::size_t got = std::fread(buffer, 1, sizeof(buffer), pipe))
            output.append(buffer, got);
        ::pclose(pipe);
    }
    return output;
}

// Waits for a visible window of exactly this title, gives it the keyboard and
// presses `keys`; gives up when `child` has ended without one.
bool running(pid_t child) {
    siginfo_t info{};
    return ::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0;
}

bool pressInWindow(pid_t child, const std::string& title, const std::string& keys) {
    for (int attempt = 0; attempt < 100 && running(child); ++attempt) {
        const std::string window = run("xdotool search --onlyvisible --name '^" + title + "$' 2>/dev/null | head -1");
        if (!window.empty()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            run("xdotool windowfocus --sync " + window + " 2>/dev/null; xdotool key " + keys);
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return false;
}

TEST(Dialogs, OnADisplayAFoxDialogAsksWithYesAndNo) {
    if (!::getenv("DISPLAY") || run("command -v xdotool").empty())
        GTEST_SKIP() << "needs a display and xdotool";
    // A display that no client can open (another X server took its number)
    // is the environment's fault, not the dialog's.
    if (run("xdotool getdisplaygeometry 2>/dev/null").empty())
        GTEST_SKIP() << "the display " << ::getenv("DISPLAY") << " cannot be opened";
    // Each dialog runs in a process group of its own, ended if no window came.
    const auto answer = [](const std::function<int()>& body, const std::string& title, const std::string& keys) {
        const pid_t child = ::fork();
        if (child == 0) {
            ::setpgid(0, 0);
            ::_exit(body());
        }
        ::setpgid(child, child);
        const bool pressed = pressInWindow(child, title, keys);
        if (!pressed)
            ::kill(-child, SIGKILL);
        EXPECT_TRUE(pressed) << "no window " << title;
        return exitStatus(child);
    };
    EXPECT_EQ(answer(askInChild, "Dravik Error", "alt+y"), saidYes);
    EXPECT_EQ(answer(askInChild, "Dravik Error", "alt+n"), saidNo);
    EXPECT_EQ(answer([] { showMessage("Dravik", "Please send an e-mail.\n"); return 0; }, "Dravik", "Return"), 0);
}

}  // namespace
}  // namespace dv::env::internal::platform
