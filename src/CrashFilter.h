#pragma once

// The crash filter: what runs when a fault reaches the top of a thread. It
// writes into std::clog's buffer, not through an AppLog: it has no object to
// work on, and the host points that stream at the log.

#include "platform/Faults.h"

#include <atomic>
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

// Which thread reports the end of the process: the first whose fault, or
// fatal report, reaches it. Once taken it stays taken.
class ReportLatch {
public:
    enum class Claim {
        first,  // the caller reports
        again,  // the caller holds it already: its own report is under way
        later,  // another thread holds it
    };
    // `thread` as platform::Faults::currentThread() gives it. Lock-free.
    Claim claim(std::uint64_t thread) noexcept;

private:
    std::atomic<std::uint64_t> owner{0};
};

// The process's latch, which the installed filter and fatalReport claim.
ReportLatch& processReportLatch();

// A fatal report is a chosen end, not a crash: claims the process's latch for
// the calling thread, so that the filter stays silent when the report ends
// the process. While another thread's fault is being reported the caller
// waits for the end instead, so that nothing of it lands inside that report.
void beginFatalReport();

// Runs the filter's steps for one fault, if `latch` makes the faulting thread
// the reporter: every other thread held, the diagnosis line, for a fault the
// dump between its markers, the question, and the mail if the answer is Yes.
// A thread that faults while another reports waits for the end (and shows in
// that dump); the reporter's own second entry, as when its fatal report ends
// the process, returns at once and writes nothing. Returns 1: the fault is
// dealt with, and the process is to end. No step takes heap memory or a lock,
// and the stream's flags, fill and width stay as they were, so a fault inside
// the allocator is reported like any other and other threads' numbers keep
// their form.
long crashFilter(const platform::Fault& fault, ReportLatch& latch);

}  // namespace dv::env::internal
