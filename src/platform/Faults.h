#pragma once

// Fatal faults of the process (bad memory access, illegal instruction,
// arithmetic fault, abort) as the crash filter meets them, and the dump of
// the process it writes for one.

#include "platform/Files.h"
#include "platform/Service.h"

#include <cstdint>

namespace dv::env::platform {

// What the backend knows of one fault; only the dump writer looks inside.
struct FaultContext;

// What a failed load of a library on first use tells.
struct DelayLoadFailure {
    const char* library;
    bool importByName;
    const char* procedureName;  // when importByName
    std::uint32_t ordinal;      // otherwise
    std::uint32_t error;        // the system's error number
};

struct Fault {
    std::uint32_t code;  // an exception code in the 32-bit form of the log line
    const FaultContext* context = nullptr;
    const DelayLoadFailure* delayLoad = nullptr;  // with the two delay-load codes
};

using FaultHandler = void (*)(const Fault& fault);

class Faults {
public:
    // Makes `handler` run on the faulting thread for every fatal fault of any
    // thread, for the rest of the process; a second call only changes the
    // handler. The calling thread is prepared as by `prepareThread`, and so
    // is every thread started after it where the system allows (see
    // `prepareThread`). When the handler returns, the process ends by the
    // fault's own default course (a core dump where the system keeps them); a
    // fault inside the handler ends the process at once by the course of the
    // thread's first fault, with no second run of the handler.
    virtual void installHandler(FaultHandler handler) = 0;

    // Gives the calling thread what the handler needs to run on it after a
    // stack overflow of that thread (an alternate stack), for as long as the
    // thread lives. Threads started after `installHandler` need no call
    // where the backend can give it to them as they start; threads that
    // existed before do. Harmless when called again, or before any handler
    // is installed.
    virtual void prepareThread() = 0;

    // Offers the fault to the system's own fault reporting.
    virtual void reportToSystem(const Fault& fault) = 0;

    // The calling thread as the system numbers it; never 0. Safe inside the
    // fault handler.
    virtual std::uint64_t currentThread() = 0;

    // Stops every other thread of the process where it is, for good: they
    // stay stopped until the process ends, so none of them writes to the log
    // while the report is written. A thread that cannot be stopped within
    // 100 ms is passed over. Runs on the faulting thread inside the handler:
    // no heap memory, no lock. Harmless when called again.
    virtual void holdOtherThreads(const Fault& fault) = 0;

    // Never returns: the calling thread waits until the process ends. With
    // `fault` (a fault that came after another thread's), a dump written
    // meanwhile shows the thread as that fault left it, its own frames
    // visible. Safe inside the fault handler.
    [[noreturn]] virtual void waitForEnd(const Fault* fault) = 0;

    // Writes a dump of the running process into the open, empty scratch file
    // `file`: every thread that can be had, the faulting one first, and the
    // fault. The other threads are held as by `holdOtherThreads` (first, if
    // that has not been called) and stay held. Runs on the faulting thread
    // inside the handler: no heap memory, no lock. False if the dump could
    // not be written whole.
    virtual bool writeDump(FileHandle file, const Fault& fault) = 0;

protected:
    ~Faults() = default;
};

template <>
Faults& systemService<Faults>();

inline Faults& faults() { return service<Faults>(); }

}  // namespace dv::env::platform
