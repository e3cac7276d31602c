#include "platform/linux/ThreadCapture.h"
#include "platform/linux/Posix.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstring>

namespace dv::env::platform {

namespace {

constexpr long answerTime = 100'000'000;  // ns: what the dump waits for a thread to answer

enum SlotState : int { unused, asked, answered };

// Space for each thread's registers, kept ahead: the signalled thread may not
// allocate. Zero-initialised, so it costs nothing until a dump is taken.
struct Slot {
    std::atomic<pid_t> thread;
    std::atomic<int> state;
    ucontext_t context;
    struct _libc_fpstate floatingPoint;

    // Keeps `from` (and its floating-point state) in the slot.
    void store(const ucontext_t& from) {
        std::memcpy(&context, &from, sizeof(context));
        if (from.uc_mcontext.fpregs) {
            std::memcpy(&floatingPoint, from.uc_mcontext.fpregs, sizeof(floatingPoint));
            context.uc_mcontext.fpregs = &floatingPoint;
        }
    }
};
constexpr std::size_t maxThreads = 256;
Slot slots[maxThreads];
std::atomic<std::size_t> slotCount{0};

// Threads that faulted after the reporter, each with the registers of its
// own fault; they never answer the signal, which the fault handler blocks.
constexpr std::size_t maxLaterFaults = 32;
Slot laterFaults[maxLaterFaults];

std::atomic<bool> holdTaken{false};
HeldThread heldThreads[maxThreads];
std::atomic<std::size_t> heldCount{0};
std::atomic<bool> heldReady{false};

long long nowNanoseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

void sleepFor(long nanoseconds) {
    const timespec step{0, nanoseconds};
    ::nanosleep(&step, nullptr);
}

[[noreturn]] void waitForever() {
    for (;;)
        ::pause();
}

const Slot* laterFaultOf(pid_t thread) {
    for (const Slot& slot : laterFaults)
        if (slot.thread.load(std::memory_order_acquire) == thread && slot.state.load(std::memory_order_acquire) == answered)
            return &slot;
    return nullptr;
}

// On the signalled thread: stores its context, then stays until the end.
void onCapture(int, siginfo_t* info, void* rawContext) {
    // Only our own request; another sender of this signal is ignored.
    if (info->si_code != SI_TKILL || info->si_pid != ::getpid())
        return;
    const int savedErrno = errno;
    const pid_t self = static_cast<pid_t>(::syscall(SYS_gettid));
    const std::size_t count = slotCount.load(std::memory_order_acquire);
    for (std::size_t i = 0; i < count; ++i) {
        Slot& slot = slots[i];
        if (slot.thread.load(std::memory_order_relaxed) != self || slot.state.load(std::memory_order_acquire) != asked)
            continue;
        slot.store(*static_cast<const ucontext_t*>(rawContext));
        slot.state.store(answered, std::memory_order_release);
        waitForever();
    }
    errno = savedErrno;
}

// The ids of the process's threads, read from /proc with getdents64 (the
// directory stream of the C library allocates).
template <typename Each>
void forEachThread(Each each) {
    const FileDescriptor directory = openFile("/proc/self/task", O_RDONLY | O_DIRECTORY);
    if (!directory.valid())
        return;
    alignas(8) char buffer[4096];
    for (;;) {
        const long got = ::syscall(SYS_getdents64, directory.get(), buffer, sizeof(buffer));
        if (got <= 0)
            return;
        for (long at = 0; at < got;) {
            struct Entry {
                std::uint64_t inode;
                std::int64_t offset;
                unsigned short length;
                unsigned char type;
                char name[1];
            };
            const auto* entry = reinterpret_cast<const Entry*>(buffer + at);
            pid_t thread = 0;
            const char* digit = entry->name;
            for (; *digit >= '0' && *digit <= '9'; ++digit)
                thread = thread * 10 + (*digit - '0');
            if (*digit == '\0' && thread > 0)
                each(thread);
            at += entry->length;
        }
    }
}

}  // namespace

// Near the top of the real-time range: hosts rarely use these.
int captureSignal() { return SIGRTMAX - 3; }

HeldThreads holdOtherThreads(pid_t self) {
    if (holdTaken.exchange(true)) {
        // Only the reporter calls; a second call comes after the first returned.
        while (!heldReady.load(std::memory_order_acquire))
            sleepFor(1'000'000);
        return {heldThreads, heldCount.load(std::memory_order_relaxed)};
    }

    struct sigaction action {};
    action.sa_sigaction = onCapture;
    action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    std::size_t count = 0;
    if (::sigaction(captureSignal(), &action, nullptr) == 0) {
        forEachThread([&](pid_t thread) {
            if (thread == self || count == maxThreads)
                return;
            slots[count].thread.store(thread, std::memory_order_relaxed);
            slots[count].state.store(asked, std::memory_order_relaxed);
            ++count;
        });
    }
    slotCount.store(count, std::memory_order_release);

    const pid_t process = ::getpid();
    for (std::size_t i = 0; i < count; ++i)
        if (::syscall(SYS_tgkill, process, slots[i].thread.load(std::memory_order_relaxed), captureSignal()) != 0)
            slots[i].state.store(unused, std::memory_order_relaxed);

    const auto settled = [](const Slot& slot) {
        return slot.state.load(std::memory_order_acquire) != asked || laterFaultOf(slot.thread.load(std::memory_order_relaxed));
    };
    const long long end = nowNanoseconds() + answerTime;
    for (;;) {
        std::size_t waiting = 0;
        for (std::size_t i = 0; i < count; ++i)
            waiting += !settled(slots[i]);
        if (waiting == 0 || nowNanoseconds() >= end)
            break;
        sleepFor(500'000);
    }

    // Those that answered by now; a later answer is not read, but its thread
    // stays held all the same.
    std::size_t taken = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const pid_t thread = slots[i].thread.load(std::memory_order_relaxed);
        if (const Slot* fault = laterFaultOf(thread))
            heldThreads[taken++] = HeldThread{thread, &fault->context};
        else if (slots[i].state.load(std::memory_order_acquire) == answered)
            heldThreads[taken++] = HeldThread{thread, &slots[i].context};
    }
    heldCount.store(taken, std::memory_order_relaxed);
    heldReady.store(true, std::memory_order_release);
    return {heldThreads, taken};
}

void waitAsHeld(pid_t self, const ucontext_t* context) {
    if (context) {
        for (Slot& slot : laterFaults) {
            pid_t expected = 0;
            if (slot.thread.compare_exchange_strong(expected, self)) {
                slot.store(*context);
                slot.state.store(answered, std::memory_order_release);
                break;
            }
        }
    }
    waitForever();
}

}  // namespace dv::env::platform
