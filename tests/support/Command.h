#pragma once

// What a shell command prints, and what a file holds.

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace dv::env::test {

// Standard output of `command`; `status` gets pclose's status.
inline std::string commandOutput(const std::string& command, int* status = nullptr) {
    std::string output;
    std::FILE* pipe = ::popen(command.c_str(), "r");
    char buffer[4096];
    while (pipe)
        if (const std::size_t got = std::fread(buffer, 1, sizeof(buffer), pipe))
            output.append(buffer, got);
        else
            break;
    const int ended = pipe ? ::pclose(pipe) : -1;
    if (status)
        *status = ended;
    return output;
}

inline std::string fileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace dv::env::test
