#pragma once

// The POSIX plumbing that every Linux service shares: whole reads and writes
// that ride out interrupted system calls, an owner of a file descriptor, and
// starting a program and waiting for it, and the names of files. Everything
// that returns no std::string is safe inside a fault handler: no heap, no lock.

#include <cstddef>
#include <string>
#include <string_view>

namespace dv::env::platform {

// Writes all `size` bytes; false if the system refused a part of them.
bool writeAll(int descriptor, const void* data, std::size_t size);

// Reads up to `size` bytes, fewer only at the end of the file; -1 on failure.
std::ptrdiff_t readAll(int descriptor, void* buffer, std::size_t size);

// Closes its descriptor when it goes; -1 owns nothing.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : value(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept : value(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { reset(); }

    int get() const { return value; }
    bool valid() const { return value >= 0; }
    int release();
    // Closes the one owned now; false if closing reported an error.
    bool reset(int descriptor = -1);

private:
    int value = -1;
};

// Opens `path` (NUL-terminated) with open(2)'s flags, close-on-exec always.
FileDescriptor openFile(const char* path, int flags, unsigned mode = 0);

struct ChildStatus {
    bool started = false;
    bool exited = false;  // by exit; otherwise by a signal
    int code = 0;         // the exit status, or the signal
};

// Runs the program `arguments[0]` (a path, or a name looked up on the
// executable search path) with `arguments` (null-terminated) and waits for it
// to end. With `output`, what the program writes to standard output is kept
// there, NUL-terminated and cut to `capacity` bytes.
//
// The program starts with no signal blocked and every signal at its default
// action, whatever the calling thread had: the caller may be a fault handler,
// and the program must not inherit what the host ignores. Its status comes
// back through a pipe, not from waitpid, so that a host that ignores SIGCHLD
// (whose children the kernel reaps unasked) loses nothing; a status above 128
// counts as the end by signal (status - 128), as shells report it.
ChildStatus runAndWait(const char* const* arguments, char* output = nullptr, std::size_t capacity = 0);

// The part of `path` after its last slash.
std::string_view baseNameOf(std::string_view path);

// The path of the process's main program into `out` of `capacity` bytes;
// false (and `out` empty) if the system will not say or it does not fit.
bool mainProgramPath(char* out, std::size_t capacity);
// The same as a string, empty if unknown; uses the heap.
std::string mainProgramPath();

}  // namespace dv::env::platform
