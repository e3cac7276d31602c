#pragma once

// The machine as the hardware report reads it: processors, the process's
// affinity, pinned threads, the processor's own identification and cycle
// counter, a fixed-frequency counter, scheduling priority and memory.

#include "platform/Service.h"

#include <cstdint>
#include <functional>
#include <optional>

namespace dv::env::platform {

// One answer of the processor identification instruction.
struct CpuIdRegisters {
    std::uint32_t eax = 0, ebx = 0, ecx = 0, edx = 0;
};

// In bytes. The "virtual" pair is the address space of this process.
struct MemoryStatus {
    std::uint64_t totalPhysical = 0, availablePhysical = 0;
    std::uint64_t totalVirtual = 0, availableVirtual = 0;
};

// A thread's scheduling, as far as it is saved and put back.
struct ThreadPriority {
    int policy = 0;
    int level = 0;
};

class Hardware {
public:
    // Logical processors of the system.
    virtual unsigned processorCount() = 0;
    // Processors 0 to 63 that this process may run on, one bit each.
    virtual std::optional<std::uint64_t> processAffinityMask() = 0;
    // Runs `body` on a new thread that is on `processor` from its first
    // instruction, and waits for it to end. False if no such thread ran.
    virtual bool runPinned(unsigned processor, const std::function<void()>& body) = 0;

    // On the calling thread's processor, with sub-leaf 0. False where the
    // query faults.
    virtual bool cpuid(std::uint32_t leaf, CpuIdRegisters& out) = 0;
    // The processor's cycle counter; nothing where reading it faults.
    virtual std::optional<std::uint64_t> cycleCounter() = 0;

    // A counter of fixed frequency, in ticks per second; nothing if there is
    // no such counter.
    virtual std::optional<std::uint64_t> counterFrequency() = 0;
    virtual std::uint64_t counter() = 0;

    // The calling thread's scheduling, and the realtime scheduling that the
    // measure asks for. Setting may be refused (false); the caller goes on.
    virtual ThreadPriority priority() = 0;
    virtual ThreadPriority realtimePriority() = 0;
    virtual bool setPriority(const ThreadPriority& priority) = 0;

    virtual std::optional<MemoryStatus> memoryStatus() = 0;

protected:
    ~Hardware() = default;
};

template <>
Hardware& systemService<Hardware>();

inline Hardware& hardware() { return service<Hardware>(); }

}  // namespace dv::env::platform
