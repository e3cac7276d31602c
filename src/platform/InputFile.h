#pragma once

// Reading a named file line by line: the one piece of the file system that the
// command-file reader needs. Tests and fuzzers can put a stand-in in its place.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace dv::env::platform {

// Which file an open file is, however its path was spelled: on Linux the device
// and the inode.
struct FileIdentity {
    std::uint64_t volume = 0;
    std::uint64_t index = 0;

    bool operator==(const FileIdentity& other) const { return volume == other.volume && index == other.index; }
};

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

// Opens a file for reading, leaving other readers and writers free to open it
// too. The path is UTF-8. Null if it cannot be opened.
std::unique_ptr<InputFile> openInputFile(std::string_view path);

using InputFileOpener = std::unique_ptr<InputFile> (*)(std::string_view path);

// Puts `opener` in the place of the system's and returns the one it replaced.
// Not synchronised: meant for the start of a test or a fuzzer.
InputFileOpener replaceInputFileOpener(InputFileOpener opener);

}  // namespace dv::env::platform
