#include "platform/Files.h"
#include "platform/linux/Posix.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <initializer_list>

namespace dv::env::platform {

static_assert(PATH_MAX <= pathCapacity);

namespace {

class LinuxInputFile final : public BufferedInputFile {
public:
    LinuxInputFile(FileDescriptor descriptor, const struct stat& status)
        : BufferedInputFile({static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino)}),
          file(std::move(descriptor)) {}

private:
    std::ptrdiff_t readSome(char* into, std::size_t size) override { return readAll(file.get(), into, size); }

    FileDescriptor file;
};

int descriptorOf(FileHandle file) { return static_cast<int>(static_cast<std::intptr_t>(file)); }

// ".<process>.<attempt>" without the heap or a lock: this runs in the fault
// handler.
void writeSuffix(char* out, unsigned long process, unsigned attempt) {
    for (const unsigned long value : {process, static_cast<unsigned long>(attempt)}) {
        char digits[24];
        std::size_t count = 0;
        for (unsigned long rest = value; count == 0 || rest != 0; rest /= 10)
            digits[count++] = static_cast<char>('0' + rest % 10);
        *out++ = '.';
        while (count > 0)
            *out++ = digits[--count];
    }
    *out = '\0';
}

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

    // A log the library creates may come to hold a memory dump: it is its
    // user's alone (0600, whatever the umask). One that exists keeps the mode
    // its owner gave it.
    std::unique_ptr<std::streambuf> openLogFile(const char* path, bool append) override {
        if (const FileDescriptor created = openFile(path, O_WRONLY | O_CREAT | O_EXCL, 0600); created.valid())
            ::fchmod(created.get(), 0600);
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
        // The copy of a log is as private as a log the library creates, also
        // where an earlier copy was left readable by others.
        FileDescriptor target = openFile(to, O_WRONLY | O_CREAT | O_TRUNC, 0600);
        bool ok = target.valid();
        if (ok)
            ::fchmod(target.get(), 0600);
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

    // An unnamed file in the system's temporary directory (not one from the
    // environment: the library reads no environment variable), readable by
    // this process alone and gone when closed, whatever ends the process. A
    // file of the same name, anyone's, is no obstacle. Where the file system
    // has no unnamed files, a name of this process's own is made and removed
    // at once.
    FileHandle createScratchFile(const char* name) override {
        FileDescriptor file = openFile(P_tmpdir, O_TMPFILE | O_RDWR | O_EXCL, 0600);
        if (file.valid())
            return static_cast<FileHandle>(file.release());

        char path[256];
        const std::size_t directory = sizeof(P_tmpdir) - 1;
        const std::size_t length = std::strlen(name);
        constexpr std::size_t suffix = 24;  // ".<pid>.<attempt>"
        if (directory + 1 + length + suffix >= sizeof(path))
            return FileHandle::none;
        std::memcpy(path, P_tmpdir, directory);
        path[directory] = '/';
        std::memcpy(path + directory + 1, name, length);
        char* const tail = path + directory + 1 + length;
        for (unsigned attempt = 0; attempt < 16; ++attempt) {
            writeSuffix(tail, static_cast<unsigned long>(::getpid()), attempt);
            file = openFile(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
            if (file.valid()) {
                ::unlink(path);
                return static_cast<FileHandle>(file.release());
            }
            if (errno != EEXIST)
                break;
        }
        return FileHandle::none;
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
