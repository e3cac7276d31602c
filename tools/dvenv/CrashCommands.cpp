// crash and dump-extract: the crash road end to end, for support. `crash`
// points the log at a file as the application does and then writes through a
// null pointer in faultOnPurpose; `dump-extract` takes the memory dump that
// the crash handler put into a log back out, for a debugger:
//
//   dvenv crash --log /tmp/dravik.log
//   dvenv dump-extract /tmp/dravik.log /tmp/dravik.dmp
//   lldb-14 --core /tmp/dravik.dmp -o bt

#include "Commands.h"

#include <dv/env/AppLog.h>
#include <dv/env/StampLog.h>

#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

namespace dvenv {

namespace {

int* volatile nowhere = nullptr;

[[gnu::noinline]] void faultOnPurpose() { *nowhere = 1; }

constexpr const char* beginMarker = "Memory Mini-Dump Begin";
constexpr const char* endMarker = "Memory Mini-Dump End";
constexpr std::size_t blockSize = 54;

bool endsWith(const std::string& text, const char* tail) {
    const std::string_view end(tail);
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// Decodes one line of Base64 (RFC 4648, padded); nothing if it is not that.
std::optional<std::vector<unsigned char>> decodeBase64(const std::string& text) {
    if (text.size() % 4 != 0)
        return std::nullopt;
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i < text.size(); i += 4) {
        std::uint32_t group = 0;
        int padding = 0;
        for (std::size_t k = 0; k < 4; ++k) {
            const char c = text[i + k];
            int value;
            if (c >= 'A' && c <= 'Z') value = c - 'A';
            else if (c >= 'a' && c <= 'z') value = c - 'a' + 26;
            else if (c >= '0' && c <= '9') value = c - '0' + 52;
            else if (c == '+') value = 62;
            else if (c == '/') value = 63;
            else if (c == '=' && i + 4 == text.size() && k >= 2) { value = 0; ++padding; }
            else return std::nullopt;
            if (padding > 0 && c != '=')
                return std::nullopt;
            group = group << 6 | static_cast<std::uint32_t>(value);
        }
        bytes.push_back(static_cast<unsigned char>(group >> 16));
        if (padding < 2)
            bytes.push_back(static_cast<unsigned char>(group >> 8));
        if (padding < 1)
            bytes.push_back(static_cast<unsigned char>(group));
    }
    return bytes;
}

}  // namespace

int crash(const std::optional<std::string>& logFile) {
    const dv::env::AppLog log(std::clog);
    const auto path = openLog(log, logFile);
    if (!path)
        return runFailure;
    std::cerr << "dvenv: faulting on purpose; the report goes to " << utf8Of(*path) << '\n';
    std::clog << dv::env::StampLog(__FILE__, __LINE__) << "Faulting on purpose" << std::endl;
    faultOnPurpose();
    return runFailure;
}

int extractDump(const std::string& logName, const std::string& dumpFile) {
    std::ifstream in(pathFromUtf8(logName), std::ios::binary);
    if (!in) {
        std::cerr << "dvenv: cannot read the log '" << logName << "'\n";
        return runFailure;
    }

    // The last dump of the log counts: a log that is appended to holds the
    // runs one after the other.
    std::vector<std::string> lines;
    std::size_t begin = 0;
    bool found = false;
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        lines.push_back(line);
        if (endsWith(line, beginMarker)) {
            begin = lines.size();
            found = true;
        }
    }
    if (!found) {
        std::cerr << "dvenv: the log '" << logName << "' holds no memory dump (no line ending in \"" << beginMarker << "\")\n";
        return badInput;
    }

    std::vector<unsigned char> dump;
    std::size_t lastLength = blockSize;
    std::size_t lastLine = 0;
    for (std::size_t i = begin; i < lines.size(); ++i) {
        const std::string& line = lines[i];
        if (endsWith(line, endMarker)) {
            std::ofstream out(pathFromUtf8(dumpFile), std::ios::binary | std::ios::trunc);
            out.write(reinterpret_cast<const char*>(dump.data()), static_cast<std::streamsize>(dump.size()));
            out.close();
            if (!out) {
                std::cerr << "dvenv: cannot write the dump file '" << dumpFile << "'\n";
                return runFailure;
            }
            std::cout << dump.size() << " bytes written to " << dumpFile << '\n';
            return 0;
        }
        // Lines of other threads can come between the dump's lines; a dump
        // line never holds a blank.
        if (line.find(' ') != std::string::npos)
            continue;
        if (lastLength != blockSize) {
            std::cerr << "dvenv: " << logName << ":" << lastLine + 1 << ": a dump line of " << lastLength
                      << " bytes is followed by another; only the last line may be shorter than " << blockSize << "\n";
            return badInput;
        }
        const auto bytes = decodeBase64(line);
        if (!bytes || bytes->size() > blockSize) {
            std::cerr << "dvenv: " << logName << ":" << i + 1 << ": not a line of the dump (Base64 of at most "
                      << blockSize << " bytes): '" << line.substr(0, 80) << "'\n";
            return badInput;
        }
        dump.insert(dump.end(), bytes->begin(), bytes->end());
        lastLength = bytes->size();
        lastLine = i;
    }
    std::cerr << "dvenv: the dump that starts at line " << begin << " of '" << logName
              << "' has no end (no line ending in \"" << endMarker << "\"); the process may have died while writing it\n";
    return badInput;
}

}  // namespace dvenv
