// A Windows program that builds its AppLog like the application does and then
// fails for real, in a function of known name, as its argument says:
//   FaultChild LOG abort-main | abort-thread | uncaught-thread | invalid-parameter
//                  | overflow-thread | overflow-main | together-N | busy-log | typo
// The crash question is answered No by a stand-in that writes "question" to
// standard error, so a test can count the questions.

#include <dv/env/AppLog.h>
#include <dv/env/Options.h>
#include <dv/env/StampLog.h>

#include "support/ShownFatalErrors.h"

#include <fx.h>

#include <windows.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

int* volatile nowhere = nullptr;
volatile int depthLimit = 1 << 30;

class CountedQuestions final : public dv::env::test::SilentDialogs {
public:
    bool askYesNo(const char*, const char*) override {
        DWORD written = 0;
        ::WriteFile(::GetStdHandle(STD_ERROR_HANDLE), "question\n", 9, &written, nullptr);
        return false;
    }
};

[[gnu::noinline]] void abortInNamedFunction() { std::abort(); }

[[gnu::noinline]] void throwWithoutCatch() { throw std::runtime_error("nobody catches this"); }

// A runtime function of the system's C runtime (what a module built with the
// system's compiler calls) given a null destination.
[[gnu::noinline]] void passInvalidParameter() {
    using CopyString = int(__cdecl*)(char*, std::size_t, const char*);
    const auto copy = reinterpret_cast<CopyString>(
        reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleA("ucrtbase.dll"), "strcpy_s")));
    if (!copy)
        std::exit(4);
    if (copy(nullptr, 0, "nowhere to go") == 0)
        std::exit(5);
}

[[gnu::noinline]] int recurseWithoutEnd(int depth) {
    volatile char frame[512];
    frame[0] = static_cast<char>(depth);
    if (depth >= depthLimit)
        return frame[0];
    return recurseWithoutEnd(depth + 1) + frame[0];
}

std::atomic<int> ready{0};

[[gnu::noinline]] void faultTogether(int threads) {
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

[[gnu::noinline]] void writeThroughNullWhileOthersLog() { *nowhere = 1; }

// Workers that write numbered lines without pause, under a lock of their own
// as a host's would, while the main thread faults.
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
    ::Sleep(20);
    writeThroughNullWhileOthersLog();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3)
        return 2;
    // Loaded as a module built with the system's compiler would load it.
    ::LoadLibraryA("ucrtbase.dll");
    CountedQuestions questions;
    dv::env::platform::StandIn<dv::env::platform::Dialogs> standIn(questions);
    dv::env::AppLog log(std::clog);
    log.redirectToFile(argv[1]);
    std::clog << dv::env::StampLog(__FILE__, __LINE__) << "about to fail: " << argv[2] << std::endl;

    const char* how = argv[2];
    if (std::strcmp(how, "abort-main") == 0) {
        abortInNamedFunction();
    } else if (std::strcmp(how, "abort-thread") == 0) {
        std::thread(abortInNamedFunction).join();
    } else if (std::strcmp(how, "uncaught-thread") == 0) {
        std::thread(throwWithoutCatch).join();
    } else if (std::strcmp(how, "invalid-parameter") == 0) {
        passInvalidParameter();
    } else if (std::strcmp(how, "overflow-thread") == 0) {
        std::thread([] { recurseWithoutEnd(0); }).join();
    } else if (std::strcmp(how, "overflow-main") == 0) {
        return recurseWithoutEnd(0);
    } else if (std::strncmp(how, "together-", 9) == 0) {
        faultOnThreadsAtOnce(std::atoi(how + 9));
    } else if (std::strcmp(how, "busy-log") == 0) {
        faultWhileOthersLog();
    } else if (std::strcmp(how, "typo") == 0) {
        FXApp app("FaultChild", "Dravik");
        char* arguments[] = {argv[0], const_cast<char*>("-ToolArcPrecValue=abc"), nullptr};
        dv::env::parseCommandLine(2, arguments);
    }
    return 3;
}
