#include "platform/InputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace dv::env::platform {

namespace {

// A plain descriptor with a buffer of its own: lines are cut out of the buffer
// with memchr, so a long line costs no more than its bytes.
class PosixInputFile final : public InputFile {
public:
    PosixInputFile(int descriptor, const struct stat& status)
        : fd(descriptor),
          id{static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino)},
          buffer(1 << 16) {}
    ~PosixInputFile() override { ::close(fd); }

    FileIdentity identity() const override { return id; }

    bool readLine(std::string& line) override {
        line.clear();
        for (;;) {
            if (begin == end && !fill())
                return !line.empty();
            const char* start = buffer.data() + begin;
            const auto* feed = static_cast<const char*>(std::memchr(start, '\n', end - begin));
            if (feed != nullptr) {
                const std::size_t length = static_cast<std::size_t>(feed - start) + 1;
                line.append(start, length);
                begin += length;
                return true;
            }
            line.append(start, end - begin);
            begin = end;
        }
    }

private:
    bool fill() {
        begin = end = 0;
        for (;;) {
            const ssize_t got = ::read(fd, buffer.data(), buffer.size());
            if (got > 0) {
                end = static_cast<std::size_t>(got);
                return true;
            }
            if (got < 0 && errno == EINTR)
                continue;
            return false;
        }
    }

    int fd;
    FileIdentity id;
    std::vector<char> buffer;
    std::size_t begin = 0;
    std::size_t end = 0;
};

std::unique_ptr<InputFile> openSystemFile(std::string_view path) {
    // Linux takes UTF-8 paths as they are; a NUL inside would name another file.
    if (path.empty() || path.find('\0') != std::string_view::npos)
        return nullptr;
    const std::string terminated(path);
    const int fd = ::open(terminated.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return nullptr;
    struct stat status {};
    if (::fstat(fd, &status) != 0) {
        ::close(fd);
        return nullptr;
    }
    return std::make_unique<PosixInputFile>(fd, status);
}

InputFileOpener currentOpener = openSystemFile;

}  // namespace

std::unique_ptr<InputFile> openInputFile(std::string_view path) { return currentOpener(path); }

InputFileOpener replaceInputFileOpener(InputFileOpener opener) {
    const InputFileOpener previous = currentOpener;
    currentOpener = opener != nullptr ? opener : openSystemFile;
    return previous;
}

}  // namespace dv::env::platform
