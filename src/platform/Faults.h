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
    // handler. The calling thread is prepared as by `prepareThread`. When the
    // handler returns, the
    // process ends by the fault's own default course (a core dump where the
    // system keeps them); a fault inside the handler ends the process the
    // same way at once.
    virtual void installHandler(FaultHandler handler) = 0;

    // Gives the calling thread what the handler needs to run on it after a
    // stack overflow of that thread (an alternate stack), for as long as the
    // thread lives. Harmless when called again, or before any handler is
    // installed.
    virtual void prepareThread() = 0;

    // Offers the fault to the system's own fault reporting.
    virtual void reportToSystem(const Fault& fault) = 0;

    // Writes a dump of the running process into the open, empty scratch file
    // `file`: every thread that can be had, the faulting one first, and the
    // fault. Other threads are held only while it is written. Runs on the
    // faulting thread inside the handler: no heap memory, no lock. False if
    // the dump could not be written whole.
    virtual bool writeDump(FileHandle file, const Fault& fault) = 0;

protected:
    ~Faults() = default;
};

template <>
Faults& systemService<Faults>();

inline Faults& faults() { return service<Faults>(); }

}  // namespace dv::env::platform
