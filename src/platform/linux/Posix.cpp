#include "platform/linux/Posix.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

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

namespace {

// The shell between the caller and the program: it hands the program's
// status over on descriptor 3, which the program itself does not get. A
// no-op trap keeps an interrupt from the terminal from ending the shell
// before it could report; the program still gets SIGINT's default action.
constexpr const char* statusReporter = "trap : INT; \"$@\" 3>&-; echo $? >&3";
constexpr int statusDescriptor = 3;
constexpr int commandNotFound = 127;

// A pipe whose ends lie above the standard descriptors and the status one,
// so that dup2 onto those in the child always makes a copy.
bool highPipe(FileDescriptor (&ends)[2]) {
    int raw[2];
    if (::pipe2(raw, O_CLOEXEC) != 0)
        return false;
    for (int i = 0; i < 2; ++i) {
        ends[i].reset(::fcntl(raw[i], F_DUPFD_CLOEXEC, 10));
        ::close(raw[i]);
    }
    return ends[0].valid() && ends[1].valid();
}

// Reads to the end of the pipe; keeps what fits into `out` (NUL-terminated).
void drain(int descriptor, char* out, std::size_t capacity) {
    std::size_t kept = 0;
    char discard[256];
    for (;;) {
        char* into = kept + 1 < capacity ? out + kept : discard;
        const std::size_t room = kept + 1 < capacity ? capacity - 1 - kept : sizeof(discard);
        const ssize_t got = ::read(descriptor, into, room);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        if (into != discard)
            kept += static_cast<std::size_t>(got);
    }
    if (capacity > 0)
        out[kept] = '\0';
}

}  // namespace

ChildStatus runAndWait(const char* const* arguments, char* output, std::size_t capacity) {
    ChildStatus result;
    FileDescriptor status[2], captured[2];
    if (!highPipe(status) || (output && !highPipe(captured)))
        return result;

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, status[1].get(), statusDescriptor);
    if (output)
        ::posix_spawn_file_actions_adddup2(&actions, captured[1].get(), STDOUT_FILENO);
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    sigset_t signals;
    sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes, &signals);
    sigfillset(&signals);
    ::posix_spawnattr_setsigdefault(&attributes, &signals);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    // sh, "-c", the reporter, $0, then the program and its arguments.
    constexpr std::size_t maxArguments = 32;
    const char* shellArguments[maxArguments + 4] = {"/bin/sh", "-c", statusReporter, "sh"};
    std::size_t count = 4;
    for (const char* const* argument = arguments; *argument && count < maxArguments + 3; ++argument)
        shellArguments[count++] = *argument;
    shellArguments[count] = nullptr;

    pid_t child = 0;
    const int failed = ::posix_spawn(&child, shellArguments[0], &actions, &attributes,
                                     const_cast<char* const*>(shellArguments), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::posix_spawnattr_destroy(&attributes);
    status[1].reset();
    captured[1].reset();
    if (failed)
        return result;

    if (output)
        drain(captured[0].get(), output, capacity);
    char reported[16];
    drain(status[0].get(), reported, sizeof(reported));
    // Reaped here unless the host's SIGCHLD setting had the kernel do it.
    int ignored = 0;
    while (::waitpid(child, &ignored, 0) < 0 && errno == EINTR) {
    }

    int code = -1;
    for (const char* digit = reported; *digit >= '0' && *digit <= '9'; ++digit)
        code = (code < 0 ? 0 : code * 10) + (*digit - '0');
    if (code < 0 || code == commandNotFound)
        return result;  // the shell itself failed, or found no such program
    result.started = true;
    result.exited = code <= 128;
    result.code = result.exited ? code : code - 128;
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
