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

// A real-time signal near the top of the range, taken over only once a fault
// has occurred, when the process is ending anyway; hosts rarely use these.
int captureSignal() { return SIGRTMAX - 3; }

constexpr long answerTime = 100'000'000;  // ns: what a thread waits, and what the filter waits for it

enum SlotState : int { unused, asked, answered };

// Space for each thread's registers, kept ahead: the signalled thread may not
// allocate. Zero-initialised, so it costs nothing until a dump is taken.
struct Slot {
    std::atomic<pid_t> thread;
    std::atomic<int> state;
    ucontext_t context;
    struct _libc_fpstate floatingPoint;
};
constexpr std::size_t maxThreads = 256;
Slot slots[maxThreads];
std::atomic<std::size_t> slotCount{0};
std::atomic<bool> holding{false};

pid_t currentThread() { return static_cast<pid_t>(::syscall(SYS_gettid)); }

long long nowNanoseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

void sleepFor(long nanoseconds) {
    const timespec step{0, nanoseconds};
    ::nanosleep(&step, nullptr);
}

// On the signalled thread: stores its context, then waits for the dump.
void onCapture(int, siginfo_t* info, void* rawContext) {
    // Only our own request; another sender of this signal is ignored.
    if (info->si_code != SI_TKILL || info->si_pid != ::getpid())
        return;
    const int savedErrno = errno;
    const pid_t self = currentThread();
    const std::size_t count = slotCount.load(std::memory_order_acquire);
    for (std::size_t i = 0; i < count; ++i) {
        Slot& slot = slots[i];
        if (slot.thread.load(std::memory_order_relaxed) != self || slot.state.load(std::memory_order_acquire) != asked)
            continue;
        const auto* context = static_cast<const ucontext_t*>(rawContext);
        std::memcpy(&slot.context, context, sizeof(slot.context));
        if (context->uc_mcontext.fpregs) {
            std::memcpy(&slot.floatingPoint, context->uc_mcontext.fpregs, sizeof(slot.floatingPoint));
            slot.context.uc_mcontext.fpregs = &slot.floatingPoint;
        }
        slot.state.store(answered, std::memory_order_release);
        const long long end = nowNanoseconds() + answerTime;
        while (holding.load(std::memory_order_acquire) && nowNanoseconds() < end)
            sleepFor(1'000'000);
        break;
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

std::size_t holdOtherThreads(pid_t self, bool (*skip)(pid_t), HeldThread* held, std::size_t capacity) {
    struct sigaction action {};
    action.sa_sigaction = onCapture;
    action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    if (::sigaction(captureSignal(), &action, nullptr) != 0)
        return 0;

    holding.store(true, std::memory_order_release);
    std::size_t count = 0;
    forEachThread([&](pid_t thread) {
        if (thread == self || (skip && skip(thread)) || count == maxThreads)
            return;
        slots[count].thread.store(thread, std::memory_order_relaxed);
        slots[count].state.store(asked, std::memory_order_relaxed);
        ++count;
    });
    slotCount.store(count, std::memory_order_release);

    const pid_t process = ::getpid();
    for (std::size_t i = 0; i < count; ++i)
        if (::syscall(SYS_tgkill, process, slots[i].thread.load(std::memory_order_relaxed), captureSignal()) != 0)
            slots[i].state.store(unused, std::memory_order_relaxed);

    const long long end = nowNanoseconds() + answerTime;
    for (;;) {
        std::size_t waiting = 0;
        for (std::size_t i = 0; i < count; ++i)
            waiting += slots[i].state.load(std::memory_order_acquire) == asked;
        if (waiting == 0 || nowNanoseconds() >= end)
            break;
        sleepFor(500'000);
    }

    // Those that answered by now; a later answer is not read, and its thread
    // waits out its time.
    std::size_t taken = 0;
    for (std::size_t i = 0; i < count && taken < capacity; ++i)
        if (slots[i].state.load(std::memory_order_acquire) == answered)
            held[taken++] = HeldThread{slots[i].thread.load(std::memory_order_relaxed), &slots[i].context};
    return taken;
}

void releaseHeldThreads() { holding.store(false, std::memory_order_release); }

}  // namespace dv::env::platform
