#pragma once

// The file system: the log file, command files, the mail road's copy of the
// log, and the private scratch file of a crash dump. Paths are UTF-8.

#include "platform/Service.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

namespace dv::env::platform {

// Room for any path this library hands to the system, its NUL included.
inline constexpr std::size_t pathCapacity = 4096;

// Which file an open file is, however its path was spelled (on Linux the
// device and the inode).
struct FileIdentity {
    std::uint64_t volume = 0;
    std::uint64_t index = 0;

    bool operator==(const FileIdentity& other) const { return volume == other.volume && index == other.index; }
};

// A file opened for reading line by line.
class InputFile {
public:
    InputFile() = default;
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    virtual ~InputFile() = default;

    virtual FileIdentity identity() const = 0;
    // Replaces `line` with the next line, its line feed included when it has
    // one. False at the end of the file or on a read error.
    virtual bool readLine(std::string& line) = 0;
};

// The line cutting that every backend's InputFile shares: a buffer that
// `readSome` fills, lines cut out of it with memchr, so that a long line
// costs no more than its bytes.
class BufferedInputFile : public InputFile {
public:
    explicit BufferedInputFile(FileIdentity identity) : id(identity), buffer(1 << 16) {}

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

protected:
    // Up to `size` bytes of the file's next ones; 0 at its end, -1 on failure.
    virtual std::ptrdiff_t readSome(char* into, std::size_t size) = 0;

private:
    bool fill() {
        begin = end = 0;
        const std::ptrdiff_t got = readSome(buffer.data(), buffer.size());
        if (got <= 0)
            return false;
        end = static_cast<std::size_t>(got);
        return true;
    }

    FileIdentity id;
    std::vector<char> buffer;
    std::size_t begin = 0;
    std::size_t end = 0;
};

// An open file of the platform's own kind, for the few steps that must run
// inside the fault handler.
enum class FileHandle : std::intptr_t { none = -1 };

class Files {
public:
    // The size in bytes of the file at `path`, or nothing if there is none.
    virtual std::optional<std::uint64_t> fileSize(const char* path) = 0;
    // Whether a file (not a directory) exists at `path`.
    virtual bool fileExists(const char* path) = 0;

    // Opens a file for reading, leaving other readers and writers free to
    // open it too. Null if it cannot be opened.
    virtual std::unique_ptr<InputFile> openInputFile(std::string_view path) = 0;

    // Opens the log file for writing, at its end or emptied, leaving others
    // free to read it while it is written. A file that cannot be opened gives
    // a buffer that takes nothing.
    virtual std::unique_ptr<std::streambuf> openLogFile(const char* path, bool append) = 0;
    // Names the log file to the system's error reporting, so that a report
    // of a crash carries it; nothing where the system has no such reporting.
    virtual void registerLogFile(const char* path) = 0;

    // Copies `from` to `to`, replacing `to`. False if that failed. Safe
    // inside the fault handler, as are the next three and the scratch file's.
    virtual bool copyFile(const char* from, const char* to) = 0;
    // The absolute form of `path` with every link resolved, into `out` of
    // `capacity` bytes; false if there is no such file or it does not fit.
    virtual bool longPathName(const char* path, char* out, std::size_t capacity) = 0;

    // Creates the file `name` in the system's directory for temporary files,
    // for reading and writing by this process alone, replacing a file of that
    // name. The file vanishes when it is closed, and also if the process dies
    // first.
    virtual FileHandle createScratchFile(const char* name) = 0;
    // Back to the file's start; false on failure.
    virtual bool rewindFile(FileHandle file) = 0;
    // Up to `size` bytes, fewer only at the file's end; -1 on failure.
    virtual std::ptrdiff_t readFile(FileHandle file, void* buffer, std::size_t size) = 0;
    virtual void closeFile(FileHandle file) = 0;

protected:
    ~Files() = default;
};

template <>
Files& systemService<Files>();

inline Files& files() { return service<Files>(); }

}  // namespace dv::env::platform
