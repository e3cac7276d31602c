#pragma once

// A directory of scratch files for one test, removed with everything in it.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace dv::env::test {

class TempDir {
public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "dvenv2-test-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr)
            throw std::filesystem::filesystem_error("mkdtemp", std::error_code(errno, std::generic_category()));
        root = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string path(std::string_view name) const { return (root / name).string(); }

    // Writes `content` byte for byte and returns the file's path.
    std::string write(std::string_view name, std::string_view content) const {
        const std::string file = path(name);
        std::ofstream(file, std::ios::binary).write(content.data(), static_cast<std::streamsize>(content.size()));
        return file;
    }

private:
    std::filesystem::path root;
};

}  // namespace dv::env::test
