// The mail client is reached through xdg-email (xdg-utils), which hands a
// prepared mail to the user's preferred mail program. Programs are started
// with posix_spawn and file copies made with plain system calls, so that the
// road allocates nothing from the heap.

#include "platform/Mail.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

namespace dv::env::internal::platform {

namespace {

// Runs a program and waits for it; its wait status, or -1 if it could not be
// started. `search` looks the program up on the executable search path.
int runProgram(const char* const* arguments, bool search) {
    pid_t child = 0;
    auto* argv = const_cast<char* const*>(arguments);
    const int failed = search ? ::posix_spawnp(&child, arguments[0], nullptr, nullptr, argv, environ)
                              : ::posix_spawn(&child, arguments[0], nullptr, nullptr, argv, environ);
    if (failed)
        return -1;
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return status;
}

struct Home {
    char path[PATH_MAX] = "";
};

// From the user database, not from the environment; once per process.
const Home& home() {
    static const Home found = [] {
        Home result;
        char buffer[16384];
        passwd entry{};
        passwd* user = nullptr;
        if (::getpwuid_r(::getuid(), &entry, buffer, sizeof(buffer), &user) == 0 && user && user->pw_dir)
            std::strncpy(result.path, user->pw_dir, sizeof(result.path) - 1);
        return result;
    }();
    return found;
}

bool writeAll(int file, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t wrote = ::write(file, data, size);
        if (wrote < 0 && errno == EINTR)
            continue;
        if (wrote <= 0)
            return false;
        data += wrote;
        size -= static_cast<std::size_t>(wrote);
    }
    return true;
}

}  // namespace

void prepareMail() { home(); }

bool mailClientAvailable() {
    const char* const arguments[] = {"/bin/sh", "-c", "command -v xdg-email >/dev/null 2>&1", nullptr};
    const int status = runProgram(arguments, false);
    return status >= 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// xdg-email exits with 0 once the mail program has the mail; it has no status
// for a mail the user discards. An interrupt from the user at the terminal
// counts as a cancel; anything else as a failure.
MailResult sendMail(const MailMessage& message) {
    char recipient[512];
    const std::size_t name = std::strlen(message.recipientName), address = std::strlen(message.recipientAddress);
    if (name + address + 4 > sizeof(recipient))
        return MailResult::failed;
    std::memcpy(recipient, message.recipientName, name);
    std::memcpy(recipient + name, " <", 2);
    std::memcpy(recipient + name + 2, message.recipientAddress, address);
    std::memcpy(recipient + name + 2 + address, ">", 2);

    const char* arguments[12] = {"xdg-email", "--utf8"};
    std::size_t count = 2;
    // xdg-email refuses empty texts; a mail without them is what was asked.
    if (message.subject && *message.subject) {
        arguments[count++] = "--subject";
        arguments[count++] = message.subject;
    }
    if (message.text && *message.text) {
        arguments[count++] = "--body";
        arguments[count++] = message.text;
    }
    if (message.attachment) {
        arguments[count++] = "--attach";
        arguments[count++] = message.attachment;
    }
    arguments[count++] = recipient;
    arguments[count] = nullptr;

    const int status = runProgram(arguments, true);
    if (status < 0)
        return MailResult::failed;
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return MailResult::sent;
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGINT)
        return MailResult::cancelled;
    return MailResult::failed;
}

const char* homeDirectory() { return home().path; }

bool fileExists(const char* path) {
    struct stat status {};
    return ::stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

bool copyFile(const char* from, const char* to) {
    const int source = ::open(from, O_RDONLY | O_CLOEXEC);
    if (source < 0)
        return false;
    const int target = ::open(to, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    bool ok = target >= 0;
    char buffer[16384];
    while (ok) {
        const ssize_t got = ::read(source, buffer, sizeof(buffer));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0) {
            ok = got == 0;
            break;
        }
        ok = writeAll(target, buffer, static_cast<std::size_t>(got));
    }
    ::close(source);
    if (target >= 0 && ::close(target) != 0)
        ok = false;
    return ok;
}

bool longPathName(const char* path, char* out) { return ::realpath(path, out) != nullptr; }

}  // namespace dv::env::internal::platform
