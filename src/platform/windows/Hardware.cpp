// Processors, affinity and priority by Win32; cpuid and rdtsc on the calling
// thread, where a fault of either is caught by a vectored exception handler
// (g++ has no __try) and read as "not available".

#include "platform/Faults.h"
#include "platform/Hardware.h"
#include "platform/windows/Win32.h"

#include <cpuid.h>
#include <x86intrin.h>

#include <atomic>

namespace dv::env::platform {

namespace {

// Set while this thread runs one of the two instructions, so that the
// handler skips only those, and records that it did.
thread_local bool readingProcessor = false;
thread_local bool processorFaulted = false;

// cpuid (0F A2) and rdtsc (0F 31) are two bytes long each.
LONG CALLBACK skipFaultingInstruction(EXCEPTION_POINTERS* pointers) {
    const DWORD code = pointers->ExceptionRecord->ExceptionCode;
    if (!readingProcessor || (code != EXCEPTION_PRIV_INSTRUCTION && code != EXCEPTION_ILLEGAL_INSTRUCTION))
        return EXCEPTION_CONTINUE_SEARCH;
    processorFaulted = true;
    pointers->ContextRecord->Rip += 2;
    return EXCEPTION_CONTINUE_EXECUTION;
}

// Installed once, for the rest of the process.
void catchProcessorFaults() {
    static const PVOID handler = ::AddVectoredExceptionHandler(1, skipFaultingInstruction);
    (void)handler;
}

template <typename Read>
bool readProcessor(Read read) {
    catchProcessorFaults();
    processorFaulted = false;
    readingProcessor = true;
    read();
    readingProcessor = false;
    return !processorFaulted;
}

struct PinnedBody {
    const std::function<void()>* body;
};

DWORD WINAPI runBody(void* argument) {
    faults().prepareThread();  // an overflow here still reaches the crash filter
    try {
        (*static_cast<PinnedBody*>(argument)->body)();
    } catch (...) {
        // The body handles its own faults; nothing may leave a thread.
    }
    return 0;
}

class WindowsHardware final : public Hardware {
public:
    unsigned processorCount() override {
        SYSTEM_INFO system{};
        ::GetSystemInfo(&system);
        return system.dwNumberOfProcessors > 0 ? system.dwNumberOfProcessors : 1;
    }

    std::optional<std::uint64_t> processAffinityMask() override {
        DWORD_PTR process = 0, system = 0;
        if (!::GetProcessAffinityMask(::GetCurrentProcess(), &process, &system))
            return std::nullopt;
        return static_cast<std::uint64_t>(process);
    }

    // Created suspended and pinned before its first instruction.
    bool runPinned(unsigned processor, const std::function<void()>& body) override {
        if (processor >= 64)
            return false;
        PinnedBody argument{&body};
        const Handle thread(::CreateThread(nullptr, 0, runBody, &argument, CREATE_SUSPENDED, nullptr));
        if (!thread.valid())
            return false;
        if (!::SetThreadAffinityMask(thread.get(), DWORD_PTR{1} << processor)) {
            ::TerminateThread(thread.get(), 0);
            return false;
        }
        ::ResumeThread(thread.get());
        ::WaitForSingleObject(thread.get(), INFINITE);
        return true;
    }

    bool cpuid(std::uint32_t leaf, CpuIdRegisters& out) override {
        return readProcessor([&] { __cpuid_count(leaf, 0, out.eax, out.ebx, out.ecx, out.edx); });
    }

    std::optional<std::uint64_t> cycleCounter() override {
        std::uint64_t value = 0;
        if (!readProcessor([&] { value = __rdtsc(); }))
            return std::nullopt;
        return value;
    }

    std::optional<std::uint64_t> counterFrequency() override {
        LARGE_INTEGER frequency{};
        if (!::QueryPerformanceFrequency(&frequency) || frequency.QuadPart <= 0)
            return std::nullopt;
        return static_cast<std::uint64_t>(frequency.QuadPart);
    }

    std::uint64_t counter() override {
        LARGE_INTEGER now{};
        ::QueryPerformanceCounter(&now);
        return static_cast<std::uint64_t>(now.QuadPart);
    }

    // The process's priority class and the thread's priority.
    ThreadPriority priority() override {
        return {static_cast<int>(::GetPriorityClass(::GetCurrentProcess())), ::GetThreadPriority(::GetCurrentThread())};
    }

    ThreadPriority realtimePriority() override { return {REALTIME_PRIORITY_CLASS, THREAD_PRIORITY_TIME_CRITICAL}; }

    bool setPriority(const ThreadPriority& priority) override {
        const bool process = ::SetPriorityClass(::GetCurrentProcess(), static_cast<DWORD>(priority.policy)) != 0;
        const bool thread = ::SetThreadPriority(::GetCurrentThread(), priority.level) != 0;
        return process && thread;
    }

    std::optional<MemoryStatus> memoryStatus() override {
        MEMORYSTATUSEX memory{};
        memory.dwLength = sizeof(memory);
        if (!::GlobalMemoryStatusEx(&memory))
            return std::nullopt;
        return MemoryStatus{memory.ullTotalPhys, memory.ullAvailPhys, memory.ullTotalVirtual, memory.ullAvailVirtual};
    }
};

WindowsHardware windowsHardware;

}  // namespace

template <>
Hardware& systemService<Hardware>() {
    return windowsHardware;
}

}  // namespace dv::env::platform
