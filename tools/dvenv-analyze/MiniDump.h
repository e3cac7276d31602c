#pragma once

// What the analysis needs to know of a memory dump before a debugger opens
// it: that it is whole, which system wrote it, its modules with their build
// ids, and the fault. Only the streams named here are read; the debugger
// reads the rest.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace dvanalyze {

struct DumpModule {
    std::string path;      // as the crashed process had it
    std::string name;      // its base name
    std::uint64_t base = 0;
    std::uint32_t size = 0;
    std::string buildId;   // lower-case hex as debuggers spell it; empty if the dump has none
};

struct DumpFault {
    std::uint32_t threadId = 0;
    std::uint32_t code = 0;  // the system's: a signal number on Linux, an exception code on Windows
};

struct MiniDump {
    bool windows = false;
    std::vector<DumpModule> modules;
    std::vector<std::uint32_t> threadIds;
    std::optional<DumpFault> fault;

    // The module that holds `address`, if any.
    const DumpModule* moduleAt(std::uint64_t address) const;
};

// Reads `bytes` as a minidump. On failure, nothing, and `error` says what is
// wrong ("the dump is cut short: ...").
std::optional<MiniDump> readMiniDump(const std::string& bytes, std::string& error);

}  // namespace dvanalyze
