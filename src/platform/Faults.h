#pragma once

// The process-wide hook for fatal faults (bad memory access, illegal
// instruction, arithmetic fault, abort), as the crash filter needs it.

#include <cstdint>

namespace dv::env::internal::platform {

// What the platform knows of one fault; only the dump writer looks inside.
struct FaultContext;

struct Fault {
    std::uint32_t code;  // an exception code in the 32-bit form of the log line
    const FaultContext* context;
};

using FaultHandler = void (*)(const Fault& fault);

// Makes `handler` run on the faulting thread for every fatal fault of any
// thread, for the rest of the process; a second call only changes the handler.
// The calling thread gets an alternate stack for it, so that a stack overflow
// still reaches the handler. When the handler returns, the process ends by the
// fault's own default course (a core dump where the system keeps them); a
// fault inside the handler ends the process the same way at once.
void installFaultHandler(FaultHandler handler);

// Gives the calling thread an alternate stack for the fault handler unless it
// has one; false if none could be made.
bool giveThreadAlternateStack();

}  // namespace dv::env::internal::platform
