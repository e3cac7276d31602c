// Threads started after the fault handler is installed get their alternate
// signal stack as they start, with no call of the host's: the library defines
// pthread_create, which the dynamic linker finds before the C library's (the
// library is loaded ahead of it), wraps the start routine and hands over to
// the next definition, the C library's or a sanitizer runtime's that was
// found first. Sanitizer runtimes interpose the same function the same way.
// Threads that existed before still need prepareThreadForFaults.

#include "platform/linux/Signals.h"

#include <dv/env/Export.h>

#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>

#include <atomic>
#include <cstdlib>

namespace dv::env::platform {

namespace {

using CreateThread = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

std::atomic<bool> preparingNewThreads{false};

CreateThread nextCreateThread() {
    // Found once; two threads that look it up at once find the same.
    static std::atomic<CreateThread> next{nullptr};
    CreateThread found = next.load(std::memory_order_acquire);
    if (!found) {
        found = reinterpret_cast<CreateThread>(::dlsym(RTLD_NEXT, "pthread_create"));
        next.store(found, std::memory_order_release);
    }
    return found;
}

struct ThreadStart {
    void* (*routine)(void*);
    void* argument;
};

// The new thread's first frame. Not noexcept: cancellation unwinds through it.
void* startPrepared(void* raw) {
    const ThreadStart start = *static_cast<ThreadStart*>(raw);
    std::free(raw);
    prepareThreadForFaults();
    return start.routine(start.argument);
}

}  // namespace

void prepareThreadsAsTheyStart() { preparingNewThreads.store(true, std::memory_order_release); }

}  // namespace dv::env::platform

extern "C" DV_ENV_EXPORT int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                                            void* (*routine)(void*), void* argument) noexcept {
    using namespace dv::env::platform;
    const CreateThread create = nextCreateThread();
    if (!create)
        return EAGAIN;
    if (!preparingNewThreads.load(std::memory_order_acquire))
        return create(thread, attributes, routine, argument);
    // Without the memory for the hand-over the thread still starts, unprepared.
    auto* start = static_cast<ThreadStart*>(std::malloc(sizeof(ThreadStart)));
    if (!start)
        return create(thread, attributes, routine, argument);
    *start = ThreadStart{routine, argument};
    const int result = create(thread, attributes, startPrepared, start);
    if (result != 0)
        std::free(start);
    return result;
}
