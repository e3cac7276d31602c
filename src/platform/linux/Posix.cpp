#include "platform/linux/Posix.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <initializer_list>

namespace dv::env::platform {

bool writeAll(int descriptor, const void* data, std::size_t size) {
    const auto* bytes = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t wrote = ::write(descriptor, bytes, size);
        if (wrote < 0 && errno == EINTR)
            continue;
        if (wrote <= 0)
            return false;
        bytes += wrote;
        size -= static_cast<std::size_t>(wrote);
    }
    return true;
}

std::ptrdiff_t readAll(int descriptor, void* buffer, std::size_t size) {
    auto* bytes = static_cast<char*>(buffer);
    std::size_t done = 0;
    while (done < size) {
        const ssize_t got = ::read(descriptor, bytes + done, size - done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return -1;
        if (got == 0)
            break;
        done += static_cast<std::size_t>(got);
    }
    return static_cast<std::ptrdiff_t>(done);
}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    if (this != &other)
        reset(other.release());
    return *this;
}

int FileDescriptor::release() {
    const int owned = value;
    value = -1;
    return owned;
}

bool FileDescriptor::reset(int descriptor) {
    // Linux frees the descriptor even when close reports an error, so close
    // is never retried.
    const bool closed = value < 0 || ::close(value) == 0;
    value = descriptor;
    return closed;
}

FileDescriptor openFile(const char* path, int flags, unsigned mode) {
    int descriptor;
    do
        descriptor = ::open(path, flags | O_CLOEXEC, static_cast<mode_t>(mode));
    while (descriptor < 0 && errno == EINTR);
    return FileDescriptor(descriptor);
}

ChildStatus runAndWait(const char* const* arguments, bool search) {
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    sigset_t signals;
    sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes, &signals);
    for (const int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT})
        sigaddset(&signals, signal);
    ::posix_spawnattr_setsigdefault(&attributes, &signals);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    pid_t child = 0;
    auto* argv = const_cast<char* const*>(arguments);
    const int failed = search ? ::posix_spawnp(&child, arguments[0], nullptr, &attributes, argv, environ)
                              : ::posix_spawn(&child, arguments[0], nullptr, &attributes, argv, environ);
    ::posix_spawnattr_destroy(&attributes);
    ChildStatus result;
    if (failed)
        return result;
    result.started = true;
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return result;
    }
    result.exited = WIFEXITED(status);
    result.code = result.exited ? WEXITSTATUS(status) : WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    return result;
}

std::string_view baseNameOf(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

bool mainProgramPath(char* out, std::size_t capacity) {
    const ssize_t length = capacity > 0 ? ::readlink("/proc/self/exe", out, capacity) : -1;
    const bool fits = length > 0 && static_cast<std::size_t>(length) < capacity;
    if (capacity > 0)
        out[fits ? length : 0] = '\0';
    return fits;
}

std::string mainProgramPath() {
    char buffer[4096];
    return mainProgramPath(buffer, sizeof buffer) ? std::string(buffer) : std::string();
}

}  // namespace dv::env::platform
