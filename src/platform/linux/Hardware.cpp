#include "platform/Hardware.h"
#include "platform/linux/Signals.h"

#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/sysinfo.h>
#include <time.h>
#include <unistd.h>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#include <x86intrin.h>
#endif

#include <fstream>
#include <string>

namespace dv::env::platform {

namespace {

// The counter runs at 10 MHz, derived from the raw monotonic clock (not slewed
// by time adjustment): the measure's window of about 1,050 ticks then lasts
// about 105 microseconds.
constexpr std::uint64_t counterHz = 10'000'000;
constexpr std::uint64_t nanosecondsPerTick = 1'000'000'000 / counterHz;

// The top of the user address space of an x86-64 process with 4-level paging;
// the kernel hands out nothing above it unless asked.
constexpr std::uint64_t userAddressSpace = 0x7ffffffff000ULL;

void* runBody(void* body) {
    prepareThreadForFaults();
    try {
        (*static_cast<const std::function<void()>*>(body))();
    } catch (...) {
        // The body handles its own faults; nothing may leave a thread.
    }
    return nullptr;
}

// A field of a "Name:   value kB" file such as /proc/meminfo, in bytes.
std::optional<std::uint64_t> kibibyteField(const char* file, const std::string& name) {
    std::ifstream in(file);
    const std::string label = name + ":";
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, label.size(), label) != 0)
            continue;
        try {
            return std::stoull(line.substr(label.size())) * 1024;
        } catch (const std::exception&) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

// The kernel can make the cycle counter fault for a thread (and those it
// starts); such a thread must not read it.
bool cycleCounterAllowed() {
#if defined(PR_GET_TSC)
    int mode = 0;
    if (::prctl(PR_GET_TSC, &mode, 0, 0, 0) == 0 && mode == PR_TSC_SIGSEGV)
        return false;
#endif
    return true;
}

class LinuxHardware final : public Hardware {
public:
    unsigned processorCount() override {
        const long count = ::sysconf(_SC_NPROCESSORS_ONLN);
        return count > 0 ? static_cast<unsigned>(count) : 1;
    }

    std::optional<std::uint64_t> processAffinityMask() override {
        cpu_set_t set;
        CPU_ZERO(&set);
        if (::sched_getaffinity(0, sizeof set, &set) != 0)
            return std::nullopt;
        std::uint64_t mask = 0;
        for (unsigned cpu = 0; cpu < 64; ++cpu)
            if (CPU_ISSET(cpu, &set))
                mask |= std::uint64_t{1} << cpu;
        return mask;
    }

    bool runPinned(unsigned processor, const std::function<void()>& body) override {
        pthread_attr_t attributes;
        if (::pthread_attr_init(&attributes) != 0)
            return false;
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(processor, &set);
        pthread_t thread;
        const bool started = ::pthread_attr_setaffinity_np(&attributes, sizeof set, &set) == 0 &&
                             ::pthread_create(&thread, &attributes, runBody,
                                              const_cast<std::function<void()>*>(&body)) == 0;
        ::pthread_attr_destroy(&attributes);
        if (started)
            ::pthread_join(thread, nullptr);
        return started;
    }

    bool cpuid(std::uint32_t leaf, CpuIdRegisters& out) override {
#if defined(__x86_64__) || defined(__i386__)
        __cpuid_count(leaf, 0, out.eax, out.ebx, out.ecx, out.edx);
        return true;
#else
        (void)leaf;
        (void)out;
        return false;
#endif
    }

    std::optional<std::uint64_t> cycleCounter() override {
#if defined(__x86_64__) || defined(__i386__)
        thread_local const bool allowed = cycleCounterAllowed();
        if (allowed)
            return __rdtsc();
#endif
        return std::nullopt;
    }

    std::optional<std::uint64_t> counterFrequency() override {
        timespec resolution{};
        if (::clock_getres(CLOCK_MONOTONIC_RAW, &resolution) != 0)
            return std::nullopt;
        return counterHz;
    }

    std::uint64_t counter() override {
        timespec now{};
        ::clock_gettime(CLOCK_MONOTONIC_RAW, &now);
        const auto nanoseconds = static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
                                 static_cast<std::uint64_t>(now.tv_nsec);
        return nanoseconds / nanosecondsPerTick;
    }

    ThreadPriority priority() override {
        int policy = SCHED_OTHER;
        sched_param parameter{};
        ::pthread_getschedparam(::pthread_self(), &policy, &parameter);
        return {policy, parameter.sched_priority};
    }

    ThreadPriority realtimePriority() override { return {SCHED_FIFO, ::sched_get_priority_max(SCHED_FIFO)}; }

    bool setPriority(const ThreadPriority& priority) override {
        sched_param parameter{};
        parameter.sched_priority = priority.level;
        return ::pthread_setschedparam(::pthread_self(), priority.policy, &parameter) == 0;
    }

    std::optional<MemoryStatus> memoryStatus() override {
        struct sysinfo system {};
        if (::sysinfo(&system) != 0)
            return std::nullopt;
        MemoryStatus status;
        status.totalPhysical = std::uint64_t{system.totalram} * system.mem_unit;
        // What can be had without swapping, which counts the page cache too.
        status.availablePhysical = kibibyteField("/proc/meminfo", "MemAvailable")
                                       .value_or(std::uint64_t{system.freeram} * system.mem_unit);

        status.totalVirtual = userAddressSpace;
        rlimit limit{};
        if (::getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY && limit.rlim_cur < userAddressSpace)
            status.totalVirtual = limit.rlim_cur;
        const std::uint64_t used = kibibyteField("/proc/self/status", "VmSize").value_or(0);
        status.availableVirtual = used < status.totalVirtual ? status.totalVirtual - used : 0;
        return status;
    }
};

LinuxHardware linuxHardware;

}  // namespace

template <>
Hardware& systemService<Hardware>() {
    return linuxHardware;
}

}  // namespace dv::env::platform
