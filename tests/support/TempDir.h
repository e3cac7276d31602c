#pragma once

// A directory of scratch files for one test, removed with everything in it.

#include <filesystem>
#include <random>
#include <system_error>
#include <fstream>
#include <string>
#include <string_view>

namespace dv::env::test {

class TempDir {
public:
    // A name of its own: create_directory fails on one that exists.
    TempDir() {
        std::random_device random;
        const std::filesystem::path base = std::filesystem::temp_directory_path();
        for (int attempt = 0; attempt < 100; ++attempt) {
            const std::filesystem::path candidate = base / ("dvenv2-test-" + std::to_string(random()));
            if (std::filesystem::create_directory(candidate)) {
                root = candidate;
                return;
            }
        }
        throw std::filesystem::filesystem_error("no fresh directory", base, std::make_error_code(std::errc::file_exists));
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
