#include "platform/linux/MiniDump.h"
#include "platform/linux/Signals.h"
#include "platform/linux/ThreadCapture.h"

#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <iterator>

namespace dv::env::platform {

std::uint32_t faultCode(int signal, int code, bool nearStackPointer) {
    switch (signal) {
    case SIGSEGV:
        return nearStackPointer ? 0xc00000fd : 0xc0000005;
    case SIGBUS:
        return code == BUS_ADRALN ? 0x80000002 : 0xc0000006;
    case SIGILL:
        return code == ILL_PRVOPC || code == ILL_PRVREG ? 0xc0000096 : 0xc000001d;
    case SIGFPE:
        switch (code) {
        case FPE_INTDIV: return 0xc0000094;
        case FPE_INTOVF: return 0xc0000095;
        case FPE_FLTDIV: return 0xc000008e;
        case FPE_FLTOVF: return 0xc0000091;
        case FPE_FLTUND: return 0xc0000093;
        case FPE_FLTRES: return 0xc000008f;
        case FPE_FLTSUB: return 0xc000008c;
        default: return 0xc0000090;
        }
    case SIGABRT:
        return 0x40000015;
    default:
        return 0xe0000000u | static_cast<std::uint32_t>(signal);
    }
}

namespace {

constexpr int fatalSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};

std::atomic<FaultHandler> installedHandler{nullptr};

// Threads now in the handler, by kernel thread id, with the signal that
// brought each in: a fault of one of them is a fault inside the handler.
// Beyond the table's size a thread runs the handler unmarked.
struct InHandler {
    std::atomic<pid_t> thread;
    std::atomic<int> signal;
};
InHandler threadsInHandler[32];

pid_t currentThread() { return static_cast<pid_t>(::syscall(SYS_gettid)); }

// Ends the process by the signal's default action: the signal is sent again
// and, not blocked, ends the process as the call returns.
void endByDefaultAction(int signal) {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    ::pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    ::syscall(SYS_tgkill, ::getpid(), currentThread(), signal);
}

bool nearStackPointer(const siginfo_t* info, const ucontext_t* context) {
    if (info->si_signo != SIGSEGV || info->si_code <= 0 || !context)
        return false;
    const auto address = reinterpret_cast<std::uintptr_t>(info->si_addr);
    const auto stack = static_cast<std::uintptr_t>(context->uc_mcontext.gregs[REG_RSP]);
    constexpr std::uintptr_t reach = 64 * 1024;
    return address + reach >= stack && address < stack + reach;
}

void onSignal(int signal, siginfo_t* info, void* rawContext) {
    const pid_t self = currentThread();
    for (auto& entry : threadsInHandler) {
        if (entry.thread.load() == self) {
            // A fault inside the handler: the process ends as the first one
            // would have ended it, and what the log holds stays.
            endByDefaultAction(entry.signal.load());
            return;
        }
    }
    // The mark stays: the process ends before this thread could fault anew.
    for (auto& entry : threadsInHandler) {
        pid_t expected = 0;
        if (entry.thread.compare_exchange_strong(expected, self)) {
            entry.signal.store(signal);
            break;
        }
    }

    const auto* context = static_cast<const ucontext_t*>(rawContext);
    const FaultContext faultContext{signal, info, context, self};
    const Fault fault{faultCode(signal, info->si_code, nearStackPointer(info, context)), &faultContext, nullptr};
    if (const FaultHandler handler = installedHandler.load())
        handler(fault);
    endByDefaultAction(signal);
}

// The handler writes the log and starts the dialog from here; a guard page
// below makes an overflow of this stack a fault, not a corruption. One stack
// as large that the thread has already (its own from an earlier call) is
// kept; a smaller one, such as a sanitizer's, is replaced, and given back when
// the thread ends, so that its owner frees it.
class AlternateStack {
public:
    AlternateStack() = default;
    AlternateStack(const AlternateStack&) = delete;
    AlternateStack& operator=(const AlternateStack&) = delete;

    void ensure() {
        const std::size_t page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
        const std::size_t minimum = static_cast<std::size_t>(::sysconf(_SC_MINSIGSTKSZ));
        std::size_t size = 256 * 1024;
        if (size < 4 * minimum)
            size = (4 * minimum + page - 1) / page * page;

        stack_t current{};
        if (::sigaltstack(nullptr, &current) == 0 && !(current.ss_flags & SS_DISABLE) && current.ss_size >= size)
            return;
        void* mapped = ::mmap(nullptr, size + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
        if (mapped == MAP_FAILED)
            return;
        ::mprotect(mapped, page, PROT_NONE);
        stack_t stack{};
        stack.ss_sp = static_cast<char*>(mapped) + page;
        stack.ss_size = size;
        if (::sigaltstack(&stack, &previous) != 0) {
            ::munmap(mapped, size + page);
            return;
        }
        memory = mapped;
        length = size + page;
    }

    ~AlternateStack() {
        if (!memory)
            return;
        stack_t current{};
        if (::sigaltstack(nullptr, &current) == 0 && current.ss_sp == static_cast<char*>(memory) + ::sysconf(_SC_PAGESIZE)) {
            if (previous.ss_flags & SS_DISABLE) {
                previous.ss_sp = nullptr;
                previous.ss_size = 0;
            }
            previous.ss_flags &= SS_DISABLE;
            ::sigaltstack(&previous, nullptr);
        }
        ::munmap(memory, length);
    }

private:
    void* memory = nullptr;
    std::size_t length = 0;
    stack_t previous{};
};

}  // namespace

void prepareThreadForFaults() {
    thread_local AlternateStack stack;
    stack.ensure();
}

namespace {

void installSignalHandlers(FaultHandler handler) {
    installedHandler.store(handler);
    prepareThreadForFaults();
    prepareThreadsAsTheyStart();

    struct sigaction action {};
    action.sa_sigaction = onSignal;
    // A fault inside the handler comes back into it (no signal deferred), to
    // be ended by the thread's first signal. A thread in the handler is never
    // held by the dump's signal: one that faulted later offers its own
    // registers instead.
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    sigemptyset(&action.sa_mask);
    sigaddset(&action.sa_mask, captureSignal());
    for (const int signal : fatalSignals)
        ::sigaction(signal, &action, nullptr);
}

class LinuxFaults final : public Faults {
public:
    void installHandler(FaultHandler handler) override { installSignalHandlers(handler); }
    void prepareThread() override { prepareThreadForFaults(); }
    // The system's own reporting (a core dump, where it keeps them) comes
    // when the process ends by the fault's default course, after the filter:
    // there is nothing to hand over first.
    void reportToSystem(const Fault&) override {}
    std::uint64_t currentThread() override { return static_cast<std::uint64_t>(platform::currentThread()); }
    void holdOtherThreads(const Fault&) override { platform::holdOtherThreads(platform::currentThread()); }
    void waitForEnd(const Fault* fault) override {
        waitAsHeld(platform::currentThread(), fault && fault->context ? fault->context->context : nullptr);
    }
    bool writeDump(FileHandle file, const Fault& fault) override {
        if (!fault.context)
            return false;
        const HeldThreads held = platform::holdOtherThreads(fault.context->thread);
        return writeMiniDump(static_cast<int>(static_cast<std::intptr_t>(file)), *fault.context, held.threads, held.count);
    }
};

LinuxFaults linuxFaults;

}  // namespace

template <>
Faults& systemService<Faults>() {
    return linuxFaults;
}

}  // namespace dv::env::platform
