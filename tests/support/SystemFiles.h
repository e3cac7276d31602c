#pragma once

// A base for stand-ins of the file system: every call goes to the system's own
// until a stand-in overrides it, so a test fakes only what it is about.

#include "platform/Files.h"

namespace dv::env::test {

class SystemFiles : public platform::Files {
public:
    std::optional<std::uint64_t> fileSize(const char* path) override { return system().fileSize(path); }
    bool fileExists(const char* path) override { return system().fileExists(path); }
    std::unique_ptr<platform::InputFile> openInputFile(std::string_view path) override {
        return system().openInputFile(path);
    }
    std::unique_ptr<std::streambuf> openLogFile(const char* path, bool append) override {
        return system().openLogFile(path, append);
    }
    void registerLogFile(const char* path) override { system().registerLogFile(path); }
    bool copyFile(const char* from, const char* to) override { return system().copyFile(from, to); }
    bool longPathName(const char* path, char* out, std::size_t capacity) override {
        return system().longPathName(path, out, capacity);
    }
    platform::FileHandle createScratchFile(const char* name) override { return system().createScratchFile(name); }
    bool rewindFile(platform::FileHandle file) override { return system().rewindFile(file); }
    std::ptrdiff_t readFile(platform::FileHandle file, void* buffer, std::size_t size) override {
        return system().readFile(file, buffer, size);
    }
    void closeFile(platform::FileHandle file) override { system().closeFile(file); }

protected:
    ~SystemFiles() = default;

private:
    static platform::Files& system() { return platform::systemService<platform::Files>(); }
};

}  // namespace dv::env::test
