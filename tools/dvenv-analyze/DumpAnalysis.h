#pragma once

// Every thread of a dump unwound, and every frame named where symbols exist,
// by LLDB's C++ interface. The modules' files come from a SymbolStore and are
// handed to the debugger before it opens the dump, so that it takes them by
// build id wherever they lie.
//
//   Debugger debugger;                       // once per process
//   DumpAnalysis analysis = analyseDump(debugger, "/tmp/x.dmp", dump, store);

#include "MiniDump.h"
#include "SymbolStore.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace dvanalyze {

struct StackFrame {
    std::uint64_t address = 0;
    std::string module;        // base name of the module as the dump has it; empty outside every module
    std::uint64_t moduleOffset = 0;
    std::string function;      // empty where nothing names it
    std::string file;          // full path as compiled; empty without line information
    std::uint32_t line = 0;
};

struct DumpThread {
    std::uint64_t id = 0;
    bool faulting = false;
    std::string stopReason;    // e.g. "signal SIGSEGV", "Exception 0xc0000005"
    std::vector<StackFrame> frames;
};

struct ModuleWithoutSymbols {
    std::string name;
    std::string path;
    std::string buildId;
    bool fileFound = false;    // found, but with exported names only
};

struct DumpAnalysis {
    std::vector<DumpThread> threads;  // the faulting one first
    std::vector<ModuleWithoutSymbols> withoutSymbols;
    std::string error;                // the debugger could not open the dump
};

// LLDB's library, set up once for the process.
class Debugger {
public:
    Debugger();
    ~Debugger();
    Debugger(const Debugger&) = delete;
    Debugger& operator=(const Debugger&) = delete;

    struct State;
    State& state() { return *impl; }

private:
    std::unique_ptr<State> impl;
};

DumpAnalysis analyseDump(Debugger& debugger, const std::string& dumpFile, const MiniDump& dump, SymbolStore& symbols,
                         std::size_t frameLimit = 256);

}  // namespace dvanalyze
