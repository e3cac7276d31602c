#pragma once

// The crash filter: what runs when a fault reaches the top of a thread. The
// filter's steps live with AppLog, whose log they write; what they need of the
// system comes through CrashSystem, so that tests can stand in for it.

#include <cstddef>
#include <cstdint>

namespace dv::env::internal {

namespace platform {
struct FaultContext;
}

// Makes the crash filter the process's handler of fatal faults. Called by
// every AppLog constructor, after its state exists; the handler stays in force
// for the rest of the process and writes to std::clog.
void installCrashFilter();

// Exception codes of a function or library that was to be loaded on first
// use and could not be.
inline constexpr std::uint32_t delayLoadModuleNotFound = 0xc06d007e;
inline constexpr std::uint32_t delayLoadProcedureNotFound = 0xc06d007f;

// What a failed load on first use tells.
struct DelayLoadFailure {
    const char* library;
    bool importByName;
    const char* procedureName;  // when importByName
    std::uint32_t ordinal;      // otherwise
    std::uint32_t error;        // the system's error number
};

struct CrashReport {
    std::uint32_t code;
    const DelayLoadFailure* delayLoad = nullptr;      // with the two delay-load codes
    const platform::FaultContext* fault = nullptr;    // what the dump is made of
};

// What the filter needs of the system, step by step.
class CrashSystem {
public:
    virtual ~CrashSystem() = default;
    // Offers the fault to the system's own fault reporting.
    virtual void reportToSystem(const CrashReport& report) = 0;
    // The private temporary file "Dravik.DMP" that takes the dump.
    virtual bool createDumpFile() = 0;
    virtual bool writeDump(const CrashReport& report) = 0;
    virtual void rewindDump() = 0;
    // Up to `size` bytes, fewer only at the end; -1 if the read failed.
    virtual std::ptrdiff_t readDump(unsigned char* buffer, std::size_t size) = 0;
    virtual void closeDump() = 0;
    // The question "Dravik Error", Yes or No.
    virtual bool askYesNo(const char* title, const char* text) = 0;
    virtual void emailLog(const char* subject, const char* text) = 0;
};

// Runs the filter's steps for one fault: the diagnosis line, for a fault the
// dump between its markers, the question, and the mail if the answer is Yes.
// Returns 1: the fault is dealt with, and the process is to end.
long crashFilter(const CrashReport& report, CrashSystem& system);

// Base64 (RFC 4648, "+" and "/", "=" padding, no line breaks) of `size` bytes
// into `out`, which has room for 73 characters, with a closing NUL. Returns the
// text's length, at most 72, or -1 if it would not fit.
std::ptrdiff_t base64Encode(const unsigned char* data, std::size_t size, char* out);

}  // namespace dv::env::internal
