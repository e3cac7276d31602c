// A program that builds its AppLog like the application does and then fails
// for real, in a function of known name, as its argument says:
//   CrashChild LOG null-main | null-thread | abort | overflow | overflow-thread | uncaught
//                  | divide | trap | typo | filter-fault | filter-abort

#include <dv/env/AppLog.h>
#include <dv/env/Options.h>
#include <dv/env/StampLog.h>

#include <fx.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <streambuf>
#include <thread>

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
    dv::env::AppLog log(std::clog);
    log.redirectToFile(argv[1]);
    std::clog << dv::env::StampLog(__FILE__, __LINE__) << "about to fail: " << argv[2] << std::endl;

    const char* how = argv[2];
    if (std::strcmp(how, "null-main") == 0) {
        writeThroughNullOnMainThread();
    } else if (std::strcmp(how, "null-thread") == 0) {
        std::thread(writeThroughNullOnSecondThread).join();
    } else if (std::strcmp(how, "abort") == 0) {
        abortInNamedFunction();
    } else if (std::strcmp(how, "overflow") == 0) {
        return recurseWithoutEnd(0);
    } else if (std::strcmp(how, "overflow-thread") == 0) {
        std::thread([] {
            dv::env::AppLog::prepareThread();
            recurseWithoutEnd(0);
        }).join();
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
    } else if (std::strncmp(how, "filter-", 7) == 0) {
        static FailingBuffer failing(std::strcmp(how, "filter-abort") == 0);
        std::clog.rdbuf(&failing);
        writeThroughNullOnMainThread();
    }
    return 3;
}
