#pragma once

namespace dv::env::internal {

// Makes the crash handler the process's handler of fatal faults. Called by
// every AppLog constructor, after its state exists; the handler stays in force
// for the rest of the process and writes to std::clog.
void installCrashFilter();

}  // namespace dv::env::internal
