// Dialogs come from the program dvenv-ask, installed with the library: a
// fresh process that opens its own display connection (or the terminal), so
// that a crashing process never has to trust its own windows.

#include "platform/Dialogs.h"

#include <dlfcn.h>
#include <errno.h>
#include <limits.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <initializer_list>

namespace dv::env::internal::platform {

namespace {

constexpr int answerYes = 0;

// Found once, ahead of any question: asking then needs no heap memory.
char helperPath[PATH_MAX];

bool copyPath(char* to, const char* directory, std::size_t length, const char* tail) {
    const std::size_t tailLength = std::strlen(tail);
    if (length + tailLength >= PATH_MAX)
        return false;
    std::memcpy(to, directory, length);
    std::memcpy(to + length, tail, tailLength + 1);
    return true;
}

// Beside the module that holds the library (the shared library, or a program
// it is linked into) in ../libexec/dvenv2, as in the build tree and in an
// installation whose libraries lie in lib/; otherwise where it was installed.
void findHelper(char* found) {
    char module[PATH_MAX] = "";
    Dl_info info{};
    if (::dladdr(reinterpret_cast<void*>(&findHelper), &info) && info.dli_fname && info.dli_fname[0] == '/') {
        std::strncpy(module, info.dli_fname, sizeof(module) - 1);
    } else {
        const ssize_t length = ::readlink("/proc/self/exe", module, sizeof(module) - 1);
        module[length > 0 ? length : 0] = '\0';
    }
    char candidate[PATH_MAX];
    const char* slash = std::strrchr(module, '/');
    if (slash && copyPath(candidate, module, static_cast<std::size_t>(slash - module), "/../libexec/dvenv2/dvenv-ask") &&
        ::access(candidate, X_OK) == 0) {
        std::memcpy(found, candidate, sizeof(candidate));
        return;
    }
    if (::access(DVENV2_HELPER_INSTALL_PATH, X_OK) == 0)
        copyPath(found, DVENV2_HELPER_INSTALL_PATH, std::strlen(DVENV2_HELPER_INSTALL_PATH), "");
}

// Runs the dialog program and gives its exit status, or -1 if it could not
// run or did not exit.
int runHelper(const char* mode, const char* title, const char* text) {
    if (helperPath[0] == '\0')
        findHelper(helperPath);
    if (helperPath[0] == '\0')
        return -1;

    // The caller may be a fault handler with the fatal signals blocked: the
    // dialog program starts with none blocked and none handled.
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    sigset_t signals;
    sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes, &signals);
    for (const int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT})
        sigaddset(&signals, signal);
    ::posix_spawnattr_setsigdefault(&attributes, &signals);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    char* const arguments[] = {helperPath, const_cast<char*>(mode), const_cast<char*>(title), const_cast<char*>(text), nullptr};
    pid_t child = 0;
    const int failed = ::posix_spawn(&child, helperPath, nullptr, &attributes, arguments, environ);
    ::posix_spawnattr_destroy(&attributes);
    if (failed)
        return -1;
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void writeAll(int file, const char* text) {
    std::size_t left = std::strlen(text);
    while (left > 0) {
        const ssize_t wrote = ::write(file, text, left);
        if (wrote < 0 && errno == EINTR)
            continue;
        if (wrote <= 0)
            return;
        text += wrote;
        left -= static_cast<std::size_t>(wrote);
    }
}

}  // namespace

void prepareDialogs() {
    if (helperPath[0] == '\0')
        findHelper(helperPath);
}

bool askYesNo(const char* title, const char* text) { return runHelper("question", title, text) == answerYes; }

void showMessage(const char* title, const char* text) {
    if (runHelper("message", title, text) < 0) {
        writeAll(STDERR_FILENO, title);
        writeAll(STDERR_FILENO, "\n");
        writeAll(STDERR_FILENO, text);
    }
}

}  // namespace dv::env::internal::platform
