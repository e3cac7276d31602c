#include "platform/Files.h"
#include "platform/linux/Posix.h"

#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <vector>

namespace dv::env::platform {

static_assert(PATH_MAX <= pathCapacity);

namespace {

// A descriptor with a buffer of its own: lines are cut out of the buffer with
// memchr, so a long line costs no more than its bytes.
class LinuxInputFile final : public InputFile {
public:
    LinuxInputFile(FileDescriptor descriptor, const struct stat& status)
        : file(std::move(descriptor)),
          id{static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino)},
          buffer(1 << 16) {}

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
        const std::ptrdiff_t got = readAll(file.get(), buffer.data(), buffer.size());
        if (got <= 0)
            return false;
        end = static_cast<std::size_t>(got);
        return true;
    }

    FileDescriptor file;
    FileIdentity id;
    std::vector<char> buffer;
    std::size_t begin = 0;
    std::size_t end = 0;
};

int descriptorOf(FileHandle file) { return static_cast<int>(static_cast<std::intptr_t>(file)); }

class LinuxFiles final : public Files {
public:
    std::optional<std::uint64_t> fileSize(const char* path) override {
        struct stat status {};
        if (::stat(path, &status) != 0)
            return std::nullopt;
        return static_cast<std::uint64_t>(status.st_size);
    }

    bool fileExists(const char* path) override {
        struct stat status {};
        return ::stat(path, &status) == 0 && S_ISREG(status.st_mode);
    }

    std::unique_ptr<InputFile> openInputFile(std::string_view path) override {
        // Linux takes UTF-8 paths as they are; a NUL inside would name another file.
        if (path.empty() || path.find('\0') != std::string_view::npos)
            return nullptr;
        FileDescriptor file = openFile(std::string(path).c_str(), O_RDONLY);
        struct stat status {};
        if (!file.valid() || ::fstat(file.get(), &status) != 0)
            return nullptr;
        return std::make_unique<LinuxInputFile>(std::move(file), status);
    }

    std::unique_ptr<std::streambuf> openLogFile(const char* path, bool append) override {
        auto file = std::make_unique<std::filebuf>();
        file->open(path, append ? std::ios::out | std::ios::app : std::ios::out | std::ios::trunc);
        return file;
    }

    // Linux keeps no list of files to go with a crash report.
    void registerLogFile(const char*) override {}

    bool copyFile(const char* from, const char* to) override {
        const FileDescriptor source = openFile(from, O_RDONLY);
        if (!source.valid())
            return false;
        FileDescriptor target = openFile(to, O_WRONLY | O_CREAT | O_TRUNC, 0600);
        bool ok = target.valid();
        char buffer[16384];
        while (ok) {
            const std::ptrdiff_t got = readAll(source.get(), buffer, sizeof(buffer));
            ok = got >= 0 && writeAll(target.get(), buffer, static_cast<std::size_t>(got));
            if (got < static_cast<std::ptrdiff_t>(sizeof(buffer)))
                break;
        }
        // A full disk may show only when the file is closed.
        return target.reset() && ok;
    }

    bool longPathName(const char* path, char* out, std::size_t capacity) override {
        char resolved[PATH_MAX];
        if (!::realpath(path, resolved))
            return false;
        const std::size_t length = std::strlen(resolved);
        if (length >= capacity)
            return false;
        std::memcpy(out, resolved, length + 1);
        return true;
    }

    FileHandle createScratchFile(const char* name) override {
        // The directory is the system's own, not one from the environment:
        // the library reads no environment variable.
        char path[256];
        const std::size_t directory = sizeof(P_tmpdir) - 1;
        const std::size_t length = std::strlen(name);
        if (directory + 1 + length >= sizeof(path))
            return FileHandle::none;
        std::memcpy(path, P_tmpdir, directory);
        path[directory] = '/';
        std::memcpy(path + directory + 1, name, length + 1);

        // Replacing means a fresh file of our own: a file or link of that
        // name left by anyone is removed first, and O_EXCL refuses one that
        // appears in between. The name goes again at once, so the file lives
        // only as long as it is open, whatever ends the process.
        ::unlink(path);
        FileDescriptor file = openFile(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
        if (!file.valid())
            return FileHandle::none;
        ::unlink(path);
        return static_cast<FileHandle>(file.release());
    }

    bool rewindFile(FileHandle file) override { return ::lseek(descriptorOf(file), 0, SEEK_SET) == 0; }

    std::ptrdiff_t readFile(FileHandle file, void* buffer, std::size_t size) override {
        return readAll(descriptorOf(file), buffer, size);
    }

    void closeFile(FileHandle file) override { ::close(descriptorOf(file)); }
};

LinuxFiles linuxFiles;

}  // namespace

template <>
Files& systemService<Files>() {
    return linuxFiles;
}

}  // namespace dv::env::platform
