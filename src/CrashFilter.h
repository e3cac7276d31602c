#pragma once

// The crash filter: what runs when a fault reaches the top of a thread. It
// writes to std::clog, not through an AppLog: it has no object to work on, and
// the host points that stream at the log.

#include "platform/Faults.h"

#include <cstdint>

namespace dv::env::internal {

// Makes the crash filter the process's handler of fatal faults. Called by
// every AppLog constructor, after its state exists; the handler stays in force
// for the rest of the process.
void installCrashFilter();

// Exception codes of a function or library that was to be loaded on first
// use and could not be.
inline constexpr std::uint32_t delayLoadModuleNotFound = 0xc06d007e;
inline constexpr std::uint32_t delayLoadProcedureNotFound = 0xc06d007f;

// Runs the filter's steps for one fault: the diagnosis line, for a fault the
// dump between its markers, the question, and the mail if the answer is Yes.
// Returns 1: the fault is dealt with, and the process is to end. No step takes
// heap memory or a lock, so a fault inside the allocator is reported like any
// other.
long crashFilter(const platform::Fault& fault);

}  // namespace dv::env::internal
