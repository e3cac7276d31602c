#include "platform/Files.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

namespace dv::env::internal::platform {

std::optional<std::uint64_t> fileSize(const char* path) {
    struct stat status {};
    if (::stat(path, &status) != 0)
        return std::nullopt;
    return static_cast<std::uint64_t>(status.st_size);
}

}  // namespace dv::env::internal::platform

namespace dv::env::internal::platform {

int createTemporaryFile(const char* name) {
    // The directory is the system's own, not one from the environment: the
    // library reads no environment variable.
    char path[256];
    const std::size_t directory = sizeof(P_tmpdir) - 1;
    const std::size_t length = std::strlen(name);
    if (directory + 1 + length >= sizeof(path))
        return -1;
    std::memcpy(path, P_tmpdir, directory);
    path[directory] = '/';
    std::memcpy(path + directory + 1, name, length + 1);

    // Replacing means a fresh file of our own: a file or link of that name
    // left by anyone is removed first, and O_EXCL refuses one that appears in
    // between. The name goes again at once, so the file lives only as long as
    // it is open, whatever ends the process.
    ::unlink(path);
    const int file = ::open(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (file >= 0)
        ::unlink(path);
    return file;
}

bool rewindFile(int file) { return ::lseek(file, 0, SEEK_SET) == 0; }

std::ptrdiff_t readFile(int file, void* buffer, std::size_t size) {
    auto* bytes = static_cast<char*>(buffer);
    std::size_t done = 0;
    while (done < size) {
        const ssize_t got = ::read(file, bytes + done, size - done);
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

void closeFile(int file) { ::close(file); }

}  // namespace dv::env::internal::platform
