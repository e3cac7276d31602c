// A program that builds its AppLog like the application does and then fails
// for real, in a function of known name, as its argument says:
//   CrashChild LOG null-main | null-thread | abort | overflow | overflow-thread | overflow-pthread
//                  | overflow-early | uncaught | divide | trap | typo | threads | refused-read
//                  | filter-fault | filter-abort | abort-filter-fault | together-2 | together-8 | busy-log

#include <dv/env/AppLog.h>
#include <dv/env/Options.h>
#include <dv/env/StampLog.h>

#include <fx.h>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <cstring>
#include <iostream>
#include <mutex>
#include <stdexcept>
#include <streambuf>
#include <thread>
#include <vector>

namespace {

// Opaque to the optimiser, so the writes below stay writes.
int* volatile nowhere = nullptr;
volatile int depthLimit = 1 << 30;

[[gnu::noinline]] void writeThroughNullOnMainThread() { *nowhere = 1; }

[[gnu::noinline]] void writeThroughNullOnSecondThread() { *nowhere = 2; }

[[gnu::noinline]] void abortInNamedFunction() { std::abort(); }

[[gnu::noinline]] int recurseWithoutEnd(int depth) {
    volatile char frame[512];
    frame[0] = static_cast<char>(depth);
    if (depth >= depthLimit)
        return frame[0];
    return recurseWithoutEnd(depth + 1) + frame[0];
}

[[gnu::noinline]] void throwWithoutCatch() { throw std::runtime_error("nobody catches this"); }

// Three threads that spin where lldb can name them, and one that blocks
// every signal, which the dump must do without.
std::atomic<int> spinning{0};
volatile bool forever = true;

[[gnu::noinline]] void spinInFirstWorker() {
    spinning.fetch_add(1);
    while (forever) {
    }
}
[[gnu::noinline]] void spinInSecondWorker() {
    spinning.fetch_add(1);
    while (forever) {
    }
}
[[gnu::noinline]] void spinInThirdWorker() {
    spinning.fetch_add(1);
    while (forever) {
    }
}
[[gnu::noinline]] void spinDeafToSignals() {
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
    spinning.fetch_add(1);
    while (forever) {
    }
}

void faultBesideOtherThreads() {
    for (void (*body)() : {spinInFirstWorker, spinInSecondWorker, spinInThirdWorker, spinDeafToSignals})
        std::thread(body).detach();
    while (spinning.load() < 4) {
    }
    writeThroughNullOnMainThread();
}

// The kernel refuses process_vm_readv, as some containers do, and the program
// jumps into a file mapping that lies past the file's end: the dump must copy
// the code around that address without a fault of its own.
void refuseVmReads() {
    sock_filter rules[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_process_vm_readv, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    sock_fprog program{static_cast<unsigned short>(std::size(rules)), rules};
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
        std::exit(4);
}

[[gnu::noinline]] void jumpPastTheEndOfAFile() {
    const long page = ::sysconf(_SC_PAGESIZE);
    const int file = ::memfd_create("shrunk", 0);
    if (file < 0 || ::ftruncate(file, page) != 0)
        std::exit(4);
    void* code = ::mmap(nullptr, static_cast<std::size_t>(page), PROT_READ | PROT_EXEC, MAP_SHARED, file, 0);
    if (code == MAP_FAILED || ::ftruncate(file, 0) != 0)
        std::exit(4);
    reinterpret_cast<void (*)()>(code)();
}

// Threads that fault at the same moment, each in the same named function.
// They block every signal but the faults' own, so none is held before its
// fault, however the threads are scheduled: each shows in the dump as its
// fault left it.
std::atomic<int> ready{0};

[[gnu::noinline]] void faultTogether(int threads) {
    sigset_t blocked;
    sigfillset(&blocked);
    for (const int fault : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT})
        sigdelset(&blocked, fault);
    ::pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    ready.fetch_add(1);
    while (ready.load() < threads) {
    }
    *nowhere = 3;
}

void faultOnThreadsAtOnce(int threads) {
    std::vector<std::thread> started;
    for (int i = 0; i < threads; ++i)
        started.emplace_back(faultTogether, threads);
    for (std::thread& thread : started)
        thread.join();
}

// Workers that write numbered lines to the log without pause, under a lock of
// their own as a host's would, while the main thread faults.
void faultWhileOthersLog() {
    static std::mutex logLock;
    constexpr int workers = 4;
    std::atomic<int> writing{0};
    for (int i = 0; i < workers; ++i)
        std::thread([&writing] {
            writing.fetch_add(1);
            for (unsigned long line = 1000;; ++line) {
                const std::lock_guard<std::mutex> hold(logLock);
                std::clog << dv::env::StampLog("Worker", 12) << "line " << line << " of " << 255 << std::endl;
            }
        }).detach();
    while (writing.load() < workers) {
    }
    ::usleep(2000);
    writeThroughNullOnMainThread();
}

void* recurseOnCThread(void*) { return reinterpret_cast<void*>(static_cast<std::intptr_t>(recurseWithoutEnd(0))); }

// A thread that exists before the AppLog and prepares itself once it does.
std::atomic<bool> logBuilt{false};

void overflowOnEarlyThread() {
    while (!logBuilt.load()) {
    }
    dv::env::AppLog::prepareThread();
    dv::env::AppLog::prepareThread();  // a second call is harmless
    recurseWithoutEnd(0);
}

volatile int zero = 0;
volatile int dividend = 7;

[[gnu::noinline]] int divideByZero() { return dividend / zero; }

// A log stream that faults, or aborts, when the crash filter writes to it.
class FailingBuffer : public std::streambuf {
public:
    explicit FailingBuffer(bool abortInstead) : abort(abortInstead) {}

protected:
    int overflow(int c) override {
        if (abort)
            std::abort();
        *nowhere = c;
        return c;
    }

private:
    bool abort;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    const char* how = argv[2];
    std::thread early;
    if (std::strcmp(how, "overflow-early") == 0)
        early = std::thread(overflowOnEarlyThread);
    dv::env::AppLog log(std::clog);
    log.redirectToFile(argv[1]);
    logBuilt.store(true);
    std::clog << dv::env::StampLog(__FILE__, __LINE__) << "about to fail: " << argv[2] << std::endl;

    if (std::strcmp(how, "null-main") == 0) {
        writeThroughNullOnMainThread();
    } else if (std::strcmp(how, "null-thread") == 0) {
        std::thread(writeThroughNullOnSecondThread).join();
    } else if (std::strcmp(how, "abort") == 0) {
        abortInNamedFunction();
    } else if (std::strcmp(how, "overflow") == 0) {
        return recurseWithoutEnd(0);
    } else if (std::strcmp(how, "overflow-thread") == 0) {
        std::thread([] { recurseWithoutEnd(0); }).join();
    } else if (std::strcmp(how, "overflow-pthread") == 0) {
        pthread_t thread;
        if (::pthread_create(&thread, nullptr, recurseOnCThread, nullptr) == 0)
            ::pthread_join(thread, nullptr);
    } else if (std::strcmp(how, "overflow-early") == 0) {
        early.join();
    } else if (std::strncmp(how, "together-", 9) == 0) {
        faultOnThreadsAtOnce(std::atoi(how + 9));
    } else if (std::strcmp(how, "busy-log") == 0) {
        faultWhileOthersLog();
    } else if (std::strcmp(how, "uncaught") == 0) {
        std::thread(throwWithoutCatch).join();
    } else if (std::strcmp(how, "divide") == 0) {
        return divideByZero();
    } else if (std::strcmp(how, "trap") == 0) {
        __builtin_trap();
    } else if (std::strcmp(how, "typo") == 0) {
        FXApp app("CrashChild", "Dravik");
        char* arguments[] = {argv[0], const_cast<char*>("-ToolArcPrecValue=abc"), nullptr};
        dv::env::parseCommandLine(2, arguments);
    } else if (std::strcmp(how, "threads") == 0) {
        faultBesideOtherThreads();
    } else if (std::strcmp(how, "refused-read") == 0) {
        refuseVmReads();
        jumpPastTheEndOfAFile();
    } else if (std::strstr(how, "filter-")) {
        // "filter-fault", "filter-abort": a null write, then the filter fails;
        // "abort-filter-fault": an abort, then the filter faults.
        static FailingBuffer failing(std::strcmp(how, "filter-abort") == 0);
        std::clog.rdbuf(&failing);
        if (std::strncmp(how, "abort-", 6) == 0)
            abortInNamedFunction();
        writeThroughNullOnMainThread();
    }
    return 3;
}
